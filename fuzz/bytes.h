// The fuzzer's input, read as the decisions of a test.
#ifndef LIBIV_FUZZ_BYTES_H
#define LIBIV_FUZZ_BYTES_H

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <iterator>
#include <limits>
#include <string_view>

namespace fuzz {

/// Every string of bytes means something: behind its end there are zeros.
class Bytes {
  public:
    Bytes(const unsigned char* data, std::size_t size) : next_(data), left_(size) {}

    bool empty() const { return left_ == 0; }

    template <class T>
    T raw() {
        T value{};
        const std::size_t size = std::min(sizeof value, left_);
        if (size > 0) {
            std::memcpy(&value, next_, size);
        }
        next_ += size;
        left_ -= size;
        return value;
    }

    unsigned byte() { return raw<unsigned char>(); }

    /// True for so many of the 256 values of a byte, not for zero.
    bool chance(unsigned of_256) { return byte() > 255 - of_256; }

    /// An integer of low..high, both included: from one byte where that is enough, else from two.
    int between(int low, int high) {
        const unsigned count = static_cast<unsigned>(high - low) + 1;
        const unsigned value = count <= 256 ? byte() : raw<std::uint16_t>();
        return low + static_cast<int>(value % count);
    }

    template <class T, std::size_t N>
    T one_of(const T (&values)[N]) {
        return values[byte() % N];
    }

    /// A float of any kind: mostly a quarter, so that numbers tie.
    float number() {
        using Limits = std::numeric_limits<float>;
        static constexpr float SPECIAL[] = {Limits::quiet_NaN(),
                                            -Limits::quiet_NaN(),
                                            Limits::infinity(),
                                            -Limits::infinity(),
                                            Limits::max(),
                                            Limits::lowest(),
                                            Limits::denorm_min(),
                                            Limits::min(),
                                            -0.0f,
                                            1e10f,
                                            -1e19f,
                                            2147483648.0f,
                                            -2147483648.0f,
                                            1.0f + Limits::epsilon()};
        const int kind = between(0, 255);
        if (kind < 160) {
            return static_cast<float>(kind < 80 ? kind : 79 - kind) * 0.25f;
        }
        if (kind < 220) {
            return static_cast<float>(raw<std::int16_t>()) * (1.0f / 256.0f);
        }
        return kind < 245 ? one_of(SPECIAL) : raw<float>();
    }

    /// All that is left.
    std::string_view text() const { return {reinterpret_cast<const char*>(next_), left_}; }

  private:
    const unsigned char* next_;
    std::size_t left_;
};

} // namespace fuzz

#endif
