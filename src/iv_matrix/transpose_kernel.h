/*
 * The transpose as instructions: squares as wide as a register are turned in registers, whole rows
 * in and whole columns out.
 */
#ifndef LIBIV_MATRIX_TRANSPOSE_KERNEL_H
#define LIBIV_MATRIX_TRANSPOSE_KERNEL_H

#include "iv_lanes/kernels.h"
#include "iv_lanes/lanes.h"

namespace iv::internal {
namespace {

/// Turns the square that src points to, of rows of `cols` elements, into dst, of rows of `rows`.
template <class T, int BYTES>
IV_INLINE void turn(const T* src, std::ptrdiff_t cols, T* dst, std::ptrdiff_t rows) {
    constexpr int side = PIECE / sizeof(T);
    constexpr int pieces = BYTES / PIECE;
    Vector<T, BYTES> block[side][pieces];
    each<pieces>([&](auto q) IV_INLINED {
        Vector<T, BYTES> group[side];
        each<side>([&](auto r) IV_INLINED {
            group[r] = load_whole<Vector<T, BYTES>>(src + (q * side + r) * cols);
        });
        transpose_pieces(group);
        each<side>([&](auto r) IV_INLINED { block[r][q] = group[r]; });
    });
    each<side>([&](auto r) IV_INLINED {
        exchange_pieces(block[r]);
        each<pieces>([&](auto q)
                         IV_INLINED { store_whole(dst + (q * side + r) * rows, block[r][q]); });
    });
}

/// A line of the source is used up while it is cached.
constexpr std::ptrdiff_t LINE = 64;

template <class T, int BYTES>
void turn_all(const T* src, T* dst, std::ptrdiff_t rows, std::ptrdiff_t cols) {
    constexpr std::ptrdiff_t side = BYTES / sizeof(T);
    constexpr std::ptrdiff_t line = LINE / sizeof(T);
    for (std::ptrdiff_t from = 0; from < cols; from += line) {
        for (std::ptrdiff_t i = 0; i < rows; i += side) {
            // The last squares reach back over what is done: they write the same again.
            const std::ptrdiff_t row = i + side <= rows ? i : rows - side;
            for (std::ptrdiff_t j = from; j < from + line && j < cols; j += side) {
                const std::ptrdiff_t col = j + side <= cols ? j : cols - side;
                turn<T, BYTES>(src + row * cols + col, cols, dst + col * rows + row, rows);
            }
        }
    }
}

template <class T>
void transpose(const void* src, void* dst, std::ptrdiff_t rows, std::ptrdiff_t cols) {
    const T* from = static_cast<const T*>(src);
    T* to = static_cast<T*>(dst);
    const std::ptrdiff_t shorter = rows < cols ? rows : cols;
    if (shorter * static_cast<int>(sizeof(T)) < WIDE) {
        turn_all<T, PIECE>(from, to, rows, cols);
    } else {
        turn_all<T, WIDE>(from, to, rows, cols);
    }
}

} // namespace
} // namespace iv::internal

#endif
