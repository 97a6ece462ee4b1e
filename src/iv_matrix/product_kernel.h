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

// Rows of a tile of one register a row, and of one with two. There are enough sums to cover the
// latency of the multiply-add, and few enough to leave registers for b.
#if defined(__AVX2__)
constexpr int TALL = 8;
#else
constexpr int TALL = 4;
#endif
constexpr int FLAT = 4;

#if defined(__AVX512BW__) || defined(__aarch64__)
constexpr int TERMS_KEPT = 16;
#else
constexpr int TERMS_KEPT = 8;
#endif

/// Terms after which the sums rest in the destination, so that the part of b in use stays cached.
constexpr std::ptrdiff_t INNER_BLOCK = 128;

/// Where a sum starts that has no value to start from. Minus zero is the one float that leaves any
/// first term as it is, zeros of either sign included.
template <class T>
constexpr T NOTHING = std::is_floating_point_v<T> ? -T{0} : T{0};

/// A piece of each row of b that a register has a lane for, as columns: block[s] is element s of
/// every row.
template <class L, class T, class LoadPiece>
IV_INLINE void load_transposed(typename L::Stored (&block)[PIECE / sizeof(T)], LoadPiece piece_of) {
    constexpr int step = PIECE / sizeof(T);
    each<step>([&](auto r) IV_INLINED {
        block[r] =
            gather<typename L::Stored>([=](int q) IV_INLINED { return piece_of(q * step + r); });
    });
    transpose_pieces(block);
}

/// The same at the edges of b: `count` elements of `left` rows, which lanes beyond repeat. Rare, and
/// kept out of the loops.
template <class L, class T>
[[gnu::noinline]] void load_edge_transposed(typename L::Stored (&block)[PIECE / sizeof(T)],
                                            const T* b, std::ptrdiff_t b_row, std::ptrdiff_t left,
                                            int count) {
    const int bytes = count * static_cast<int>(sizeof(T));
    load_transposed<L, T>(block, [=](std::ptrdiff_t j) IV_INLINED {
        return load_first<Vector<T, PIECE>>(b + (j < left ? j : left - 1) * b_row, bytes);
    });
}

/// HEIGHT x VECTORS registers of the result, from row i and column j on. Rows beyond the last repeat
/// it: they compute and store the same. Of the columns `left` exist.
template <class T, ProductMode MODE, int BYTES, int HEIGHT, int VECTORS>
void tile(const Product& p, std::ptrdiff_t i, std::ptrdiff_t j, std::ptrdiff_t left) {
    using L = Lanes<T, BYTES>;
    using Stored = typename L::Stored;
    const T* a[HEIGHT] = {static_cast<const T*>(p.a) + i * p.a_row};
    std::ptrdiff_t at[HEIGHT] = {i * p.cols + j}; // where the row lies in start and d
    each<HEIGHT - 1>([&](auto r) IV_INLINED {
        const bool exists = i + r + 1 < p.rows;
        a[r + 1] = a[r] + (exists ? p.a_row : 0);
        at[r + 1] = at[r] + (exists ? p.cols : 0);
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
            const T term = load_whole<T>(a[r] + k * p.a_col);
            const auto factor = L::broadcast(MODE == MINUS ? static_cast<T>(-term) : term);
            each<VECTORS>([&](auto v)
                              IV_INLINED { sum[r][v] = L::sum(factor, values[v], sum[r][v]); });
        });
    };
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
    std::ptrdiff_t i = 0;
    if constexpr (HEIGHT > FLAT) {
        for (; p.rows - i > FLAT; i += HEIGHT) {
            tile<T, MODE, BYTES, HEIGHT, VECTORS>(p, i, j, left);
        }
    }
    for (; i < p.rows; i += FLAT) {
        tile<T, MODE, BYTES, FLAT, VECTORS>(p, i, j, left);
    }
}

template <class T, ProductMode MODE>
void tiles(const Product& p) {
    constexpr std::ptrdiff_t wide = WIDE / sizeof(T);
    constexpr std::ptrdiff_t narrow = NARROW / sizeof(T);
    const auto at_most = [&p](std::ptrdiff_t j, std::ptrdiff_t count) {
        return p.cols - j < count ? p.cols - j : count;
    };
    std::ptrdiff_t j = 0;
    if constexpr (MODE == PLUS) {
        for (; p.cols - j > wide; j += 2 * wide) {
            panel<T, MODE, WIDE, FLAT, 2>(p, j, at_most(j, 2 * wide));
        }
    }
    for (; p.cols - j > narrow; j += wide) {
        panel<T, MODE, WIDE, TALL, 1>(p, j, at_most(j, wide));
    }
    if (j < p.cols) {
        panel<T, MODE, NARROW, TALL, 1>(p, j, p.cols - j);
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
        block.b = static_cast<const T*>(whole.b) + k * whole.b_row;
        block.inner = whole.inner - k < INNER_BLOCK ? whole.inner - k : INNER_BLOCK;
        tiles<T, MODE>(block);
        block.start = whole.d;
    }
}

// The second factor read transposed: a register is filled with one element of many rows of b. What
// was transposed is worth keeping, so a block of b stays in registers and all rows of a pass by.

/// Terms that a block of b has registers for, and half of them.
template <class T>
constexpr int MANY = sizeof(T) < 4 ? PIECE / static_cast<int>(sizeof(T)) : TERMS_KEPT;
template <class T>
constexpr int SOME = sizeof(T) < 4 ? MANY<T> : TERMS_KEPT / 2;

/// Adds the terms k to k + count - 1 to the sums of `left` columns from j on, which start from
/// `start`. K is the count, or 0 where only the call knows it.
template <class T, int BYTES, int K>
void add_terms(const Product& p, const void* start, std::ptrdiff_t j, std::ptrdiff_t left,
               std::ptrdiff_t k, int count) {
    using L = Lanes<T, BYTES>;
    using Stored = typename L::Stored;
    constexpr int step = PIECE / sizeof(T);
    constexpr int groups = (K ? K : MANY<T>) / step;
    const T* b = static_cast<const T*>(p.b) + j * p.b_row + k;
    Stored block[groups][step];
    const std::ptrdiff_t b_row = opaque(p.b_row);
    const auto load_group = [&](auto g) IV_INLINED {
        const int rest = count - g * step;
        if (left == L::COUNT && (K || rest >= step)) {
            load_transposed<L, T>(block[g], [=](std::ptrdiff_t row) IV_INLINED {
                return load_whole<Vector<T, PIECE>>(b + row * b_row + g * step);
            });
        } else {
            load_edge_transposed<L, T>(block[g], b + g * step, p.b_row, left,
                                       rest < step ? rest : step);
        }
    };
    if constexpr (K) {
        each<groups>(load_group);
    } else {
        for (int g = 0; g * step < count; ++g) {
            load_group(g);
        }
    }
    const int bytes = static_cast<int>(left) * static_cast<int>(sizeof(T));
    const T* a = static_cast<const T*>(p.a) + k;
    const T* from = static_cast<const T*>(start) + j;
    T* d = static_cast<T*>(p.d) + j;
    for (std::ptrdiff_t i = 0; i < p.rows; ++i) {
        typename L::Computed sum =
            L::computed(start ? load_first<Stored>(from, bytes) : splat<Stored>(NOTHING<T>));
        const auto add_term = [&](auto s) IV_INLINED {
            sum = L::sum(L::broadcast(load_whole<T>(a + s)), L::computed(block[s / step][s % step]),
                         sum);
        };
        if constexpr (K) {
            each<K>(add_term);
        } else {
            for (int s = 0; s < count; ++s) {
                add_term(s);
            }
        }
        store_first<Stored>(d, L::stored(sum), bytes);
        a += p.a_row;
        from += p.cols;
        d += p.cols;
    }
}

template <class T, int BYTES>
void transposed_panel(const Product& p, std::ptrdiff_t j, std::ptrdiff_t left) {
    const void* start = p.start;
    std::ptrdiff_t k = 0;
    for (; k + MANY<T> <= p.inner; k += MANY<T>) {
        add_terms<T, BYTES, MANY<T>>(p, start, j, left, k, MANY<T>);
        start = p.d;
    }
    const int rest = static_cast<int>(p.inner - k);
    if (rest == SOME<T>) {
        add_terms<T, BYTES, SOME<T>>(p, start, j, left, k, rest);
    } else if (rest > 0 || k == 0) {
        add_terms<T, BYTES, 0>(p, start, j, left, k, rest);
    }
}

template <class T>
void transposed_product(const Product& p) {
    constexpr std::ptrdiff_t wide = WIDE / sizeof(T);
    constexpr std::ptrdiff_t narrow = NARROW / sizeof(T);
    std::ptrdiff_t j = 0;
    for (; p.cols - j > narrow; j += wide) {
        transposed_panel<T, WIDE>(p, j, p.cols - j < wide ? p.cols - j : wide);
    }
    if (j < p.cols) {
        transposed_panel<T, NARROW>(p, j, p.cols - j);
    }
}

} // namespace
} // namespace iv::internal

#endif
