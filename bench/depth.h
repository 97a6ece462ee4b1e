// The type codes of the element types.
#ifndef LIBIV_BENCH_DEPTH_H
#define LIBIV_BENCH_DEPTH_H

#include <type_traits>

#include "_libiv.h"

namespace bench {

template <class T>
struct Depth;
template <>
struct Depth<u08_t> {
    static constexpr int code = IV_8U;
    static constexpr const char* name = "u8";
};
template <>
struct Depth<u16_t> {
    static constexpr int code = IV_16U;
    static constexpr const char* name = "u16";
};
template <>
struct Depth<s16_t> {
    static constexpr int code = IV_16S;
    static constexpr const char* name = "s16";
};
template <>
struct Depth<s32_t> {
    static constexpr int code = IV_32S;
    static constexpr const char* name = "s32";
};
template <>
struct Depth<s64_t> {
    static constexpr int code = IV_64S;
    static constexpr const char* name = "s64";
};
template <>
struct Depth<f32_t> {
    static constexpr int code = IV_32F;
    static constexpr const char* name = "f32";
};
template <>
struct Depth<f64_t> {
    static constexpr int code = IV_64F;
    static constexpr const char* name = "f64";
};

} // namespace bench

#endif
