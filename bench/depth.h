// Codes and names of the element types.
#ifndef LIBIV_BENCH_DEPTH_H
#define LIBIV_BENCH_DEPTH_H

#include <string>
#include <type_traits>

#include "_libiv.h"

namespace bench {

template <class T>
constexpr int depth_of() {
    switch (sizeof(T)) {
        case 1:
            return std::is_signed_v<T> ? IV_8S : IV_8U;
        case 2:
            return std::is_signed_v<T> ? IV_16S : IV_16U;
        case 4:
            return std::is_floating_point_v<T> ? IV_32F : IV_32S;
        default:
            return std::is_floating_point_v<T> ? IV_64F : IV_64S;
    }
}

/// As in "f32" or "u8".
template <class T>
std::string type_name() {
    const char kind = std::is_floating_point_v<T> ? 'f' : std::is_signed_v<T> ? 's' : 'u';
    return kind + std::to_string(8 * sizeof(T));
}

} // namespace bench

#endif
