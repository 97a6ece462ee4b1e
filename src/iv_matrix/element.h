/*
 * What the matrix operations know about their elements: how a value is stored, how each scalar type
 * computes, and how a type code becomes a type. Loops elsewhere are written once, over a type T.
 */
#ifndef LIBIV_MATRIX_ELEMENT_H
#define LIBIV_MATRIX_ELEMENT_H

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <type_traits>

#include "_libiv.h"

namespace iv::internal {

/// One value in matrix storage. Hosts may place storage at any address and under any type of their
/// own.
template <class T>
struct [[gnu::packed, gnu::may_alias]] Cell {
    T value;
};

template <class T>
Cell<T>* cells(const iv_mat_t* mat) {
    return reinterpret_cast<Cell<T>*>(mat->data.p);
}

/// The arithmetic of an integer type: wraps around at its width. It runs in an unsigned type at
/// least as wide as int, because overflow in a signed type (65535 * 65535 after promotion, too) is
/// undefined.
template <class T, bool = std::is_floating_point_v<T>>
struct Arithmetic {
    using Wide = std::common_type_t<unsigned, std::make_unsigned_t<T>>;

    static T neg(T a) { return static_cast<T>(Wide{0} - static_cast<Wide>(a)); }
    static T add(T a, T b) { return static_cast<T>(static_cast<Wide>(a) + static_cast<Wide>(b)); }
    static T sub(T a, T b) { return static_cast<T>(static_cast<Wide>(a) - static_cast<Wide>(b)); }
    static T mul(T a, T b) { return static_cast<T>(static_cast<Wide>(a) * static_cast<Wide>(b)); }
};

/// The arithmetic of a float type.
template <class T>
struct Arithmetic<T, true> {
    static T neg(T a) { return -a; }
    static T add(T a, T b) { return a + b; }
    static T sub(T a, T b) { return a - b; }
    static T mul(T a, T b) { return a * b; }
};

template <class T>
struct Tag {
    using type = T;
};

/// The scalar type that a visitor's tag stands for.
template <class TagOfT>
using TypeOf = typename TagOfT::type;

/// Copies one value of 1, 2, 4 or 8 bytes: reads all of it, then writes it.
inline void copy_value(void* to, const void* from, std::ptrdiff_t size) {
    const auto copy = [=](auto bits) {
        std::memcpy(&bits, from, sizeof bits);
        std::memcpy(to, &bits, sizeof bits);
    };
    switch (size) {
        case 1:
            return copy(std::uint8_t{});
        case 2:
            return copy(std::uint16_t{});
        case 4:
            return copy(std::uint32_t{});
        default:
            return copy(std::uint64_t{});
    }
}

/// Calls `visit` with the tag of the scalar type of `type`'s depth.
template <class Visitor>
void visit_depth(int type, Visitor visit) {
    switch (IV_MAT_DEPTH(type)) {
        case IV_8U:
            return visit(Tag<u08_t>{});
        case IV_8S:
            return visit(Tag<s08_t>{});
        case IV_16U:
            return visit(Tag<u16_t>{});
        case IV_16S:
            return visit(Tag<s16_t>{});
        case IV_32S:
            return visit(Tag<s32_t>{});
        case IV_32F:
            return visit(Tag<f32_t>{});
        case IV_64S:
            return visit(Tag<s64_t>{});
        default:
            return visit(Tag<f64_t>{});
    }
}

/// An unsigned integer of T's width: what is only moved keeps its bits, signalling NaNs included,
/// and depths of one width share their code.
template <class T>
using BitsOf = std::conditional_t<
    sizeof(T) == 1, std::uint8_t,
    std::conditional_t<sizeof(T) == 2, std::uint16_t,
                       std::conditional_t<sizeof(T) == 4, std::uint32_t, std::uint64_t>>>;

// Sizes and counts are 32-bit signed integers that wrap around.

inline int wrap_add(int a, int b) {
    return static_cast<int>(static_cast<unsigned>(a) + static_cast<unsigned>(b));
}

inline int wrap_mul(int a, int b) {
    return static_cast<int>(static_cast<unsigned>(a) * static_cast<unsigned>(b));
}

/// Values in the storage of a packed matrix, all channels counted.
inline int value_count(const iv_mat_t* mat) {
    return wrap_mul(mat->rows, wrap_mul(mat->cols, IV_MAT_CN(mat->type)));
}

inline bool same_shape(const iv_mat_t* a, const iv_mat_t* b) {
    return a->rows == b->rows && a->cols == b->cols;
}

/// Whether two stretches of storage share a byte.
inline bool overlap(const void* a, std::ptrdiff_t bytes_a, const void* b, std::ptrdiff_t bytes_b) {
    const auto start_a = reinterpret_cast<std::uintptr_t>(a);
    const auto start_b = reinterpret_cast<std::uintptr_t>(b);
    return start_a < start_b + static_cast<std::uintptr_t>(bytes_b) &&
           start_b < start_a + static_cast<std::uintptr_t>(bytes_a);
}

} // namespace iv::internal

#endif
