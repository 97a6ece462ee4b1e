/*
 * The product as instructions. A tile of sums is held in registers, every lane owns one element of
 * the result, and the inner index ascends: each sum takes its terms in the reference order, one
 * multiply-add a term, whatever the width of a register.
 */
#ifndef LIBIV_MATRIX_PRODUCT_KERNEL_H
#define LIBIV_MATRIX_PRODUCT_KERNEL_H

#include "iv_lanes/kernels.h"
#include "iv_lanes/lanes.h"

namespace iv::internal {
namespace {

// Rows of a tile; one that reads b transposed is taller, to spread the cost of transposing.
constexpr int ROWS = 4;
template <class T>
constexpr int ROWS_TRANSPOSED = sizeof(T) < 4 ? 4 : 8;

/// Terms after which the sums rest in the destination, so that the part of b in use stays cached.
constexpr std::ptrdiff_t INNER_BLOCK = 256;

/// Where a sum starts that has no value to start from. Minus zero is the one float that leaves any
/// first term as it is, zeros of either sign included.
template <class T>
constexpr T NOTHING = std::is_floating_point_v<T> ? -T{0} : T{0};

/// BYTES / PIECE pieces side by side; `piece(q)` is the one at place q.
template <class S, class PieceAt>
IV_INLINE S gather(PieceAt piece, int q = 0) {
    if constexpr (sizeof(S) == PIECE) {
        return piece(q);
    } else {
        using Half = Vector<ElementOf<S>, sizeof(S) / 2>;
        return join(gather<Half>(piece, q),
                    gather<Half>(piece, q + static_cast<int>(sizeof(Half)) / PIECE));
    }
}

/// Elements k to k + STEP - 1 of `left` rows of b, as rows; lanes beyond `left` repeat the last.
template <class L, class T, class LoadPiece>
IV_INLINE void load_transposed(typename L::Stored (&block)[PIECE / sizeof(T)], const T* b,
                               std::ptrdiff_t b_row, std::ptrdiff_t left, LoadPiece load_piece) {
    constexpr int step = PIECE / sizeof(T);
    each<step>([&](auto r) IV_INLINED {
        block[r] = gather<typename L::Stored>([=](int q) IV_INLINED {
            const std::ptrdiff_t j = q * step + r;
            return load_piece(b + (j < left ? j : left - 1) * b_row);
        });
    });
    transpose_pieces(block);
}

/// The same of the last elements of a row, fewer than a piece holds. Rare: kept out of the loops.
template <class L, class T>
[[gnu::noinline]] void load_transposed_rest(typename L::Stored (&block)[PIECE / sizeof(T)],
                                            const T* b, std::ptrdiff_t b_row, std::ptrdiff_t left,
                                            int count) {
    const int bytes = count * static_cast<int>(sizeof(T));
    load_transposed<L, T>(block, b, b_row, left, [bytes](const T* from) IV_INLINED {
        return load_first<Vector<T, PIECE>>(from, bytes);
    });
}

/// HEIGHT x VECTORS registers of the result, from row i and column j on. Rows beyond the last repeat
/// it: they compute and store the same. Of the columns `left` exist.
template <class T, ProductMode MODE, int BYTES, int HEIGHT, int VECTORS>
void tile(const Product& p, std::ptrdiff_t i, std::ptrdiff_t j, std::ptrdiff_t left) {
    using L = Lanes<T, BYTES>;
    using Stored = typename L::Stored;
    const T* a[HEIGHT];
    std::ptrdiff_t at[HEIGHT]; // where the row lies in start and d
    each<HEIGHT>([&](auto r) IV_INLINED {
        const std::ptrdiff_t row = i + r < p.rows ? i + r : p.rows - 1;
        a[r] = static_cast<const T*>(p.a) + row * p.a_row;
        at[r] = row * p.cols + j;
    });

    typename L::Computed sum[HEIGHT][VECTORS];
    const int last =
        (static_cast<int>(left) - (VECTORS - 1) * L::COUNT) * static_cast<int>(sizeof(T));
    const auto load = [last](const T* from, int v) IV_INLINED {
        return v < VECTORS - 1 ? load_whole<Stored>(from + v * L::COUNT)
                               : load_first<Stored>(from + v * L::COUNT, last);
    };
    each<HEIGHT>([&](auto r) IV_INLINED {
        each<VECTORS>([&](auto v) IV_INLINED {
            sum[r][v] = L::computed(p.start ? load(static_cast<const T*>(p.start) + at[r], v)
                                            : splat<Stored>(NOTHING<T>));
        });
    });

    const auto add_term = [&](std::ptrdiff_t k, const Stored(&b)[VECTORS]) IV_INLINED {
        typename L::Computed values[VECTORS];
        each<VECTORS>([&](auto v) IV_INLINED { values[v] = L::computed(b[v]); });
        each<HEIGHT>([&](auto r) IV_INLINED {
            const T term = a[r][k * p.a_col];
            const auto factor = L::broadcast(MODE == MINUS ? static_cast<T>(-term) : term);
            each<VECTORS>([&](auto v)
                              IV_INLINED { sum[r][v] = L::sum(factor, values[v], sum[r][v]); });
        });
    };
    if constexpr (MODE == PLUS_TRANSPOSED) {
        static_assert(VECTORS == 1);
        constexpr int step = PIECE / sizeof(T);
        const T* b = static_cast<const T*>(p.b) + j * p.b_row;
        std::ptrdiff_t k = 0;
        for (; k + step <= p.inner; k += step) {
            Stored block[step];
            load_transposed<L, T>(block, b + k, p.b_row, left, [](const T* from) IV_INLINED {
                return load_whole<Vector<T, PIECE>>(from);
            });
            each<step>([&](auto s) IV_INLINED { add_term(k + s, {block[s]}); });
        }
        if (k < p.inner) {
            Stored block[step];
            load_transposed_rest<L, T>(block, b + k, p.b_row, left, static_cast<int>(p.inner - k));
            for (int s = 0; k < p.inner; ++k, ++s) {
                add_term(k, {block[s]});
            }
        }
    } else {
        const T* b = static_cast<const T*>(p.b) + j;
        std::ptrdiff_t k = 0;
        if constexpr (!MASKS) {
            // Whole registers may reach into the next row of b, but not behind its end.
            std::ptrdiff_t reach = j + VECTORS * L::COUNT - p.b_row;
            std::ptrdiff_t inside = p.inner;
            for (; reach > 0 && inside > 0; reach -= p.b_row) {
                --inside;
            }
            for (; k < inside; ++k, b += p.b_row) {
                Stored row[VECTORS];
                each<VECTORS>([&](auto v)
                                  IV_INLINED { row[v] = load_whole<Stored>(b + v * L::COUNT); });
                add_term(k, row);
            }
        }
        for (; k < p.inner; ++k, b += p.b_row) {
            Stored row[VECTORS];
            each<VECTORS>([&](auto v) IV_INLINED { row[v] = load(b, v); });
            add_term(k, row);
        }
    }

    each<HEIGHT>([&](auto r) IV_INLINED {
        each<VECTORS>([&](auto v) IV_INLINED {
            T* to = static_cast<T*>(p.d) + at[r] + v * L::COUNT;
            if (v < VECTORS - 1) {
                store_whole<Stored>(to, L::stored(sum[r][v]));
            } else {
                store_first<Stored>(to, L::stored(sum[r][v]), last);
            }
        });
    });
}

/// All rows of the columns of one tile.
template <class T, ProductMode MODE, int BYTES, int HEIGHT, int VECTORS>
void panel(const Product& p, std::ptrdiff_t j, std::ptrdiff_t left) {
    for (std::ptrdiff_t i = 0; i < p.rows; i += HEIGHT) {
        tile<T, MODE, BYTES, HEIGHT, VECTORS>(p, i, j, left);
    }
}

/// All tiles of a product.
template <class T, ProductMode MODE>
void tiles(const Product& p) {
    constexpr std::ptrdiff_t wide = WIDE / sizeof(T);
    constexpr std::ptrdiff_t narrow = NARROW / sizeof(T);
    const auto at_most = [&p](std::ptrdiff_t j, std::ptrdiff_t count) {
        return p.cols - j < count ? p.cols - j : count;
    };
    std::ptrdiff_t j = 0;
    if constexpr (MODE == PLUS_TRANSPOSED) {
        for (; p.cols - j > narrow; j += wide) {
            panel<T, MODE, WIDE, ROWS_TRANSPOSED<T>, 1>(p, j, at_most(j, wide));
        }
        if (j < p.cols) {
            panel<T, MODE, NARROW, ROWS_TRANSPOSED<T>, 1>(p, j, p.cols - j);
        }
    } else {
        if constexpr (MODE == PLUS) {
            for (; p.cols - j > wide; j += 2 * wide) {
                panel<T, MODE, WIDE, ROWS, 2>(p, j, at_most(j, 2 * wide));
            }
        }
        for (; p.cols - j > narrow; j += wide) {
            panel<T, MODE, WIDE, ROWS, 1>(p, j, at_most(j, wide));
        }
        if (j < p.cols) {
            panel<T, MODE, NARROW, ROWS, 1>(p, j, p.cols - j);
        }
    }
}

template <class T, ProductMode MODE>
void product(const Product& whole) {
    if (whole.inner <= INNER_BLOCK) {
        return tiles<T, MODE>(whole);
    }
    Product block = whole;
    for (std::ptrdiff_t k = 0; k < whole.inner; k += INNER_BLOCK) {
        block.a = static_cast<const T*>(whole.a) + k * whole.a_col;
        block.b = static_cast<const T*>(whole.b) + k * (MODE == PLUS_TRANSPOSED ? 1 : whole.b_row);
        block.inner = whole.inner - k < INNER_BLOCK ? whole.inner - k : INNER_BLOCK;
        tiles<T, MODE>(block);
        block.start = whole.d;
    }
}

} // namespace
} // namespace iv::internal

#endif
