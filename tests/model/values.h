// The arithmetic of the eight element types, one value at a time.
#ifndef LIBIV_TESTS_MODEL_VALUES_H
#define LIBIV_TESTS_MODEL_VALUES_H

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <type_traits>

namespace model {

/// The type code's low three bits.
inline int depth_of(int type) {
    return static_cast<int>(static_cast<unsigned>(type) % 8);
}

/// 1 to 32.
inline int channels_of(int type) {
    return static_cast<int>(static_cast<unsigned>(type) / 8 % 32) + 1;
}

inline bool one_channel(int type) {
    return channels_of(type) == 1;
}

/// Calls `work` with a value of the type code's scalar type.
template <class Work>
auto with_depth(int type, Work work) {
    switch (depth_of(type)) {
        case 0:
            return work(std::uint8_t{});
        case 1:
            return work(std::int8_t{});
        case 2:
            return work(std::uint16_t{});
        case 3:
            return work(std::int16_t{});
        case 4:
            return work(std::int32_t{});
        case 5:
            return work(float{});
        case 6:
            return work(std::int64_t{});
        default:
            return work(double{});
    }
}

/// Bytes of one value.
inline int value_size(int type) {
    return with_depth(type, [](auto value) { return static_cast<int>(sizeof value); });
}

/// Value number `index` of an array that need not be aligned.
template <class T>
T load(const unsigned char* array, std::ptrdiff_t index) {
    T value;
    std::memcpy(&value, array + index * static_cast<std::ptrdiff_t>(sizeof value), sizeof value);
    return value;
}

template <class T>
void store(unsigned char* array, std::ptrdiff_t index, T value) {
    std::memcpy(array + index * static_cast<std::ptrdiff_t>(sizeof value), &value, sizeof value);
}

/// Every promotion to double precision is written.
inline double wide(float value) {
    return static_cast<double>(value);
}

/// The low 32 bits of the exact product.
inline int product32(int a, int b) {
    const std::int64_t exact = std::int64_t{a} * b;
    return static_cast<int>(static_cast<std::uint32_t>(exact));
}

/// An integer's residue modulo 2^64, from which the residue of any narrower type follows.
template <class T>
std::uint64_t residue(T value) {
    return static_cast<std::uint64_t>(value);
}

template <class T>
T sum(T a, T b) {
    if constexpr (std::is_floating_point_v<T>) {
        return a + b;
    } else {
        return static_cast<T>(residue(a) + residue(b));
    }
}

template <class T>
T difference(T a, T b) {
    if constexpr (std::is_floating_point_v<T>) {
        return a - b;
    } else {
        return static_cast<T>(residue(a) - residue(b));
    }
}

template <class T>
T product(T a, T b) {
    if constexpr (std::is_floating_point_v<T>) {
        return a * b;
    } else {
        return static_cast<T>(residue(a) * residue(b));
    }
}

/// addend + a * b, rounded once.
template <class T>
T plus_product(T addend, T a, T b) {
    if constexpr (std::is_floating_point_v<T>) {
        return std::fma(a, b, addend);
    } else {
        return sum(addend, product(a, b));
    }
}

/// minuend - a * b, rounded once.
template <class T>
T minus_product(T minuend, T a, T b) {
    if constexpr (std::is_floating_point_v<T>) {
        return std::fma(-a, b, minuend);
    } else {
        return difference(minuend, product(a, b));
    }
}

/// The other sign; a float's other bits stay, those of a NaN too.
template <class T>
T opposite(T value) {
    if constexpr (std::is_floating_point_v<T>) {
        return std::copysign(value, std::signbit(value) ? T{1} : T{-1});
    } else {
        return difference(T{0}, value);
    }
}

} // namespace model

#endif
