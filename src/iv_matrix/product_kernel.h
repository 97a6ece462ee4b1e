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

/// Rows of b that are kept in registers while the rows of a pass by.
#if defined(__AVX512BW__)
constexpr int KEPT = 16;
#else
constexpr int KEPT = 8;
#endif

/// Terms that are added at once, whole pieces of them.
template <class T>
constexpr int TERMS = KEPT* static_cast<int>(sizeof(T)) < PIECE
                          ? PIECE / static_cast<int>(sizeof(T))
                          : KEPT;

/// Rows of a that pass at once. One is enough where instructions run out of order.
#if defined(__x86_64__)
constexpr int ABREAST = 1;
#else
constexpr int ABREAST = 4;
#endif

/// Terms after which the sums rest in the destination, so that the part of b in use stays cached.
constexpr std::ptrdiff_t INNER_BLOCK = 128;

/// Where a sum starts that has no value to start from. Minus zero is the one float that leaves any
/// first term as it is, zeros of either sign included.
template <class T>
constexpr T NOTHING = std::is_floating_point_v<T> ? -T{0} : T{0};

/// sum + a * b, or minus, for the factor at `a` and a row of b.
template <class L, class T, ProductMode MODE>
IV_INLINE typename L::Computed add_term(const T* a, typename L::Computed b,
                                        typename L::Computed sum) {
    const T term = load_whole<T>(a);
    return L::sum(L::broadcast(MODE == MINUS ? static_cast<T>(-term) : term), b, sum);
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

    const auto add_row = [&](std::ptrdiff_t k, const Stored(&b)[VECTORS]) IV_INLINED {
        typename L::Computed values[VECTORS];
        each<VECTORS>([&](auto v) IV_INLINED { values[v] = L::computed(b[v]); });
        each<HEIGHT>([&](auto r) IV_INLINED {
            each<VECTORS>([&](auto v) IV_INLINED {
                sum[r][v] = add_term<L, T, MODE>(a[r] + k * p.a_col, values[v], sum[r][v]);
            });
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
            add_row(k, row);
        }
    }
    for (; k < p.inner; ++k, b += p.b_row) {
        Stored row[VECTORS];
        each<VECTORS>([&](auto v) IV_INLINED { row[v] = load(b, v); });
        add_row(k, row);
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

/// A piece of each row of b that a register has a lane for, as columns: block[s] becomes element s
/// of every row. `piece_of` loads a row's piece.
template <class L, class LoadPiece>
IV_INLINE void transpose_rows(typename L::Stored* block, LoadPiece piece_of) {
    using Stored = typename L::Stored;
    constexpr int step = PIECE / sizeof(ElementOf<Stored>);
    Stored rows[step];
    each<step>([&](auto r) IV_INLINED {
        rows[r] = gather<Stored>([=](int q) IV_INLINED { return piece_of(q * step + r); });
    });
    transpose_pieces(rows);
    each<step>([&](auto r) IV_INLINED { block[r] = rows[r]; });
}

template <class L, class T>
IV_INLINE void load_transposed(typename L::Stored* block, const T* b, std::ptrdiff_t b_row) {
    const std::ptrdiff_t row = opaque(b_row);
    transpose_rows<L>(block, [=](std::ptrdiff_t j)
                                 IV_INLINED { return load_whole<Vector<T, PIECE>>(b + j * row); });
}

/// The same at the edges of b: `count` elements of `left` rows, which lanes beyond repeat. Rare, and
/// kept out of the loops.
template <class L, class T>
[[gnu::noinline]] void load_edge_transposed(typename L::Stored* block, const T* b,
                                            std::ptrdiff_t b_row, std::ptrdiff_t left, int count) {
    const int bytes = count * static_cast<int>(sizeof(T));
    transpose_rows<L>(block, [=](std::ptrdiff_t j) IV_INLINED {
        return load_first<Vector<T, PIECE>>(b + (j < left ? j : left - 1) * b_row, bytes);
    });
}

/// Terms k to k + count - 1 of the sums of `left` columns from j on, which start from `start`.
struct Terms {
    std::ptrdiff_t k;
    int count;
    std::ptrdiff_t j, left;
    const void* start;
};

/// Adds terms to all sums of a column of registers: the rows of b that the terms need are kept while
/// the rows of a pass by. K is their count where they are kept in registers, else 0.
template <class T, int BYTES, ProductMode MODE, int K>
void pass_rows(const Product& p, const Terms& terms) {
    using L = Lanes<T, BYTES>;
    using Stored = typename L::Stored;
    constexpr bool transposed = MODE == PLUS_TRANSPOSED;
    const int bytes = static_cast<int>(terms.left) * static_cast<int>(sizeof(T));
    Stored b[K ? K : TERMS<T>];
    if constexpr (transposed) {
        constexpr int step = PIECE / sizeof(T);
        const T* from = static_cast<const T*>(p.b) + terms.j * p.b_row + terms.k;
        const auto keep = [&](auto group) IV_INLINED {
            const int rest = terms.count - group * step;
            if (terms.left == L::COUNT && (K || rest >= step)) {
                load_transposed<L>(b + group * step, from + group * step, p.b_row);
            } else {
                load_edge_transposed<L>(b + group * step, from + group * step, p.b_row, terms.left,
                                        rest < step ? rest : step);
            }
        };
        if constexpr (K) {
            each<K / step>(keep);
        } else {
            for (int group = 0; group * step < terms.count; ++group) {
                keep(group);
            }
        }
    } else {
        const T* from = static_cast<const T*>(p.b) + terms.k * p.b_row + terms.j;
        const auto keep = [&](auto k)
                              IV_INLINED { b[k] = load_first<Stored>(from + k * p.b_row, bytes); };
        if constexpr (K) {
            each<K>(keep);
        } else {
            for (int k = 0; k < terms.count; ++k) {
                keep(k);
            }
        }
    }
    const std::ptrdiff_t a_col = transposed ? 1 : p.a_col;
    const T* a = static_cast<const T*>(p.a) + terms.k * a_col;
    const T* from = static_cast<const T*>(terms.start) + terms.j;
    T* d = static_cast<T*>(p.d) + terms.j;
    for (std::ptrdiff_t rows = p.rows; rows > 0; rows -= ABREAST) {
        const T* term[ABREAST] = {a};
        std::ptrdiff_t at[ABREAST] = {0};
        each<ABREAST - 1>([&](auto r) IV_INLINED {
            term[r + 1] = term[r] + (r + 1 < rows ? p.a_row : 0);
            at[r + 1] = at[r] + (r + 1 < rows ? p.cols : 0);
        });
        typename L::Computed sum[ABREAST];
        each<ABREAST>([&](auto r) IV_INLINED {
            sum[r] = L::computed(terms.start ? load_first<Stored>(from + at[r], bytes)
                                             : splat<Stored>(NOTHING<T>));
        });
        const auto add_row = [&](auto k) IV_INLINED {
            each<ABREAST>([&](auto r) IV_INLINED {
                sum[r] = add_term<L, T, MODE>(term[r], L::computed(b[k]), sum[r]);
                term[r] += a_col;
            });
        };
        if constexpr (K) {
            each<K>(add_row);
        } else {
            for (int k = 0; k < terms.count; ++k) {
                add_row(k);
            }
        }
        each<ABREAST>([&](auto r)
                          IV_INLINED { store_first<Stored>(d + at[r], L::stored(sum[r]), bytes); });
        a += ABREAST * p.a_row;
        from += ABREAST * p.cols;
        d += ABREAST * p.cols;
    }
}

/// Whether so many terms get code of their own: full blocks, and the counts of small matrices where
/// masks serve their edges in place.
template <class T, ProductMode MODE>
constexpr bool in_registers(int count) {
    if (MODE == PLUS_TRANSPOSED && count % (PIECE / static_cast<int>(sizeof(T))) != 0) {
        return false;
    }
    const bool full = count == TERMS<T> && MODE != MINUS;
    const bool filter = count == 4 || count == 8;
    const bool tiny = count == 2 || count == 3 || count == 6 || count == 12;
    return full || (MASKS && std::is_floating_point_v<T> && (filter || (tiny && MODE == PLUS))) ||
           (MASKS && count == 8 && MODE == PLUS);
}

template <class T, int BYTES, ProductMode MODE, class Counts>
struct Passes;
template <class T, int BYTES, ProductMode MODE, int... COUNT>
struct Passes<T, BYTES, MODE, std::integer_sequence<int, COUNT...>> {
    static constexpr void (*OF[])(const Product&, const Terms&) = {
        pass_rows < T, BYTES, MODE, in_registers<T, MODE>(COUNT) ? COUNT : 0 > ...};
};

/// pass_rows for as many terms as there are, 0 to TERMS.
template <class T, int BYTES, ProductMode MODE>
IV_INLINE void pass(const Product& p, const Terms& terms) {
    using Counts = std::make_integer_sequence<int, TERMS<T> + 1>;
    Passes<T, BYTES, MODE, Counts>::OF[terms.count](p, terms);
}

/// A column of registers with b read transposed, a block of terms at a time.
template <class T, int BYTES>
void transposed_panel(const Product& p, std::ptrdiff_t j, std::ptrdiff_t left) {
    Terms terms{0, 0, j, left, p.start};
    do {
        const std::ptrdiff_t rest = p.inner - terms.k;
        terms.count = rest < TERMS<T> ? static_cast<int>(rest) : TERMS<T>;
        pass<T, BYTES, PLUS_TRANSPOSED>(p, terms);
        terms.start = p.d;
        terms.k += TERMS<T>;
    } while (terms.k < p.inner);
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
    constexpr std::ptrdiff_t wide = WIDE / sizeof(T);
    constexpr std::ptrdiff_t narrow = NARROW / sizeof(T);
    if (MASKS && whole.inner <= TERMS<T> && whole.cols <= wide) {
        const Terms all{0, static_cast<int>(whole.inner), 0, whole.cols, whole.start};
        return whole.cols <= narrow ? pass<T, NARROW, MODE>(whole, all)
                                    : pass<T, WIDE, MODE>(whole, all);
    }
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

} // namespace
} // namespace iv::internal

#endif
