// Numbers and their bits, for programs with tests and without.
#ifndef LIBIV_TESTS_NUMBER_H
#define LIBIV_TESTS_NUMBER_H

#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>
#include <type_traits>

namespace test {

template <class To, class From>
To bit_cast(From from) {
    static_assert(sizeof(To) == sizeof(From), "the bits of one are the bits of the other");
    To to;
    std::memcpy(&to, &from, sizeof to);
    return to;
}

inline std::uint32_t bits(float value) {
    return bit_cast<std::uint32_t>(value);
}
inline std::uint64_t bits(double value) {
    return bit_cast<std::uint64_t>(value);
}
template <class T, std::enable_if_t<std::is_integral_v<T>, int> = 0>
T bits(T value) {
    return value;
}

/// The bits, with every NaN as one: for results of arithmetic, whose NaNs differ by processor.
template <class T>
auto canonical_bits(T value) {
    if constexpr (std::is_same_v<T, float>) {
        return value != value ? std::uint32_t{0x7fc00000} : bits(value);
    } else if constexpr (std::is_same_v<T, double>) {
        return value != value ? std::uint64_t{0x7ff8000000000000} : bits(value);
    } else {
        return value;
    }
}

/// False under an emulator (valgrind, for one) whose fused multiply-add loses the sign of a zero: a
/// canary test fails there, so that nobody takes such a machine for a good one.
inline bool keeps_the_sign_of_a_zero() {
    static const bool keeps = [] {
        volatile double zero = 0.0;
        const double factor = zero;
        return std::signbit(std::fma(factor, -1.0, -0.0));
    }();
    return keeps;
}

/// Equal to the bit, but any NaN equals any other; where fused multiply-adds lose the sign of a
/// zero, any zero equals any other, too.
template <class T>
bool same_number(T a, T b) {
    return canonical_bits(a) == canonical_bits(b) || (a == b && !keeps_the_sign_of_a_zero());
}

/// A number with all its digits, and its bits.
template <class T>
std::string show(T value) {
    if constexpr (std::is_floating_point_v<T>) {
        char text[80];
        std::snprintf(text, sizeof text, "%.17g (0x%0*llx)", static_cast<double>(value),
                      static_cast<int>(2 * sizeof(T)),
                      static_cast<unsigned long long>(bits(value)));
        return text;
    } else {
        return std::to_string(value);
    }
}

} // namespace test

#endif
