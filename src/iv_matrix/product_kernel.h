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
#if defined(__AVX512BW__)
constexpr int TALL[] = {8, 8};
#elif defined(__AVX2__)
constexpr int TALL[] = {8, 4};
#else
constexpr int TALL[] = {4, 4};
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

/// What a register of sums starts from, or ends as. Integers are subtracted by adding: the complement
/// of s is -s - 1, so that the complement of (complement of s) + a b is s - a b.
template <class T, class S>
IV_INLINE S flipped(S values, const Product& p) {
    if constexpr (std::is_integral_v<T>) {
        return values ^ splat<S>(static_cast<T>(p.flip));
    } else {
        return values;
    }
}

/// sum + a * b, or minus, for the factor at `a` and a row of b.
template <class L, class T, ProductMode MODE>
IV_INLINE typename L::Computed add_term(const T* a, typename L::Computed b,
                                        typename L::Computed sum) {
    const auto factor = L::broadcast(load_whole<T>(a));
    return L::sum(MODE == MINUS ? -factor : factor, b, sum);
}

/// Rows i to i + HEIGHT - 1 of a part that is VECTORS registers wide or less. Rows beyond the last
/// repeat it: they compute and store the same.
template <class T, ProductMode MODE, int BYTES, int HEIGHT, int VECTORS>
// One function, so that its registers are allotted once. NOLINTNEXTLINE(readability-function-size)
void tile(const Product& p, const ProductPart& part, std::ptrdiff_t i) {
    using L = Lanes<T, BYTES>;
    using Stored = typename L::Stored;
    const T* a[HEIGHT] = {static_cast<const T*>(part.a) + i * p.a_row};
    std::ptrdiff_t at[HEIGHT] = {i * p.d_row}; // where the row lies in start and d
    each<HEIGHT - 1>([&](auto r) IV_INLINED {
        const bool exists = i + r + 1 < p.rows;
        a[r + 1] = a[r] + (exists ? p.a_row : 0);
        at[r + 1] = at[r] + (exists ? p.d_row : 0);
    });

    typename L::Computed sum[HEIGHT][VECTORS];
    const int last =
        (static_cast<int>(part.cols) - (VECTORS - 1) * L::COUNT) * static_cast<int>(sizeof(T));
    const auto load = [last](const T* from, int v) IV_INLINED {
        return v < VECTORS - 1 ? load_whole<Stored>(from + v * L::COUNT)
                               : load_first<Stored>(from + v * L::COUNT, last);
    };
    each<HEIGHT>([&](auto r) IV_INLINED {
        each<VECTORS>([&](auto v) IV_INLINED {
            const auto start = part.start ? load(static_cast<const T*>(part.start) + at[r], v)
                                          : splat<Stored>(NOTHING<T>);
            sum[r][v] = L::computed(flipped<T>(start, p));
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
    const T* b = static_cast<const T*>(part.b);
    std::ptrdiff_t k = 0;
    if constexpr (!MASKS) {
        // Whole registers may reach into the next row of b, but not behind the last.
        std::ptrdiff_t reach = VECTORS * L::COUNT - part.cols;
        std::ptrdiff_t inside = part.inner;
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
    for (; k < part.inner; ++k, b += p.b_row) {
        Stored row[VECTORS];
        each<VECTORS>([&](auto v) IV_INLINED { row[v] = load(b, v); });
        add_row(k, row);
    }

    each<HEIGHT>([&](auto r) IV_INLINED {
        each<VECTORS>([&](auto v) IV_INLINED {
            T* to = static_cast<T*>(part.d) + at[r] + v * L::COUNT;
            const auto values = flipped<T>(L::stored(sum[r][v]), p);
            if (v < VECTORS - 1) {
                store_whole<Stored>(to, values);
            } else {
                store_first<Stored>(to, values, last);
            }
        });
    });
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
    Vector<T, PIECE> pieces[L::COUNT];
    for (std::ptrdiff_t j = 0; j < L::COUNT; ++j) {
        pieces[j] = load_first<Vector<T, PIECE>>(b + (j < left ? j : left - 1) * b_row, bytes);
    }
    transpose_rows<L>(block, [&](std::ptrdiff_t j) IV_INLINED { return pieces[j]; });
}

/// Loads the rows of b that a part with one register a row needs, K of them, or as many as it has
/// terms if K is 0.
template <class L, class T, ProductMode MODE, int K>
IV_INLINE void keep_rows(typename L::Stored* b, const Product& p, const ProductPart& part) {
    using Stored = typename L::Stored;
    const int count = static_cast<int>(part.inner);
    const T* from = static_cast<const T*>(part.b);
    if constexpr (MODE == PLUS_TRANSPOSED) {
        constexpr int step = PIECE / sizeof(T);
        const auto keep = [&](auto group) IV_INLINED {
            const int rest = count - group * step;
            if (part.cols == L::COUNT && (K || rest >= step)) {
                load_transposed<L>(b + group * step, from + group * step, p.b_row);
            } else {
                load_edge_transposed<L>(b + group * step, from + group * step, p.b_row, part.cols,
                                        rest < step ? rest : step);
            }
        };
        if constexpr (K) {
            each<K / step>(keep);
        } else {
            for (int group = 0; group * step < count; ++group) {
                keep(group);
            }
        }
    } else {
        const int bytes = static_cast<int>(part.cols) * static_cast<int>(sizeof(T));
        const auto keep = [&](auto k)
                              IV_INLINED { b[k] = load_first<Stored>(from + k * p.b_row, bytes); };
        if constexpr (K) {
            each<K>(keep);
        } else {
            for (int k = 0; k < count; ++k) {
                keep(k);
            }
        }
    }
}

/// A part with one register a row and few terms: the rows of b are kept while the rows of a pass
/// by. K is the number of terms where the rows of b are kept in registers, else 0.
template <class T, ProductMode MODE, int BYTES, int K>
void pass_rows(const Product& p, const ProductPart& part) {
    using L = Lanes<T, BYTES>;
    using Stored = typename L::Stored;
    constexpr bool transposed = MODE == PLUS_TRANSPOSED;
    const int bytes = static_cast<int>(part.cols) * static_cast<int>(sizeof(T));
    Stored b[K ? K : TERMS<T>];
    keep_rows<L, T, MODE, K>(b, p, part);
    const std::ptrdiff_t a_col = transposed ? 1 : p.a_col; // Not covered: the compiler knows
    const T* a = static_cast<const T*>(part.a);
    const T* start = static_cast<const T*>(part.start);
    T* d = static_cast<T*>(part.d);
    for (std::ptrdiff_t rows = p.rows; rows > 0; rows -= ABREAST) {
        const T* term[ABREAST] = {a};
        std::ptrdiff_t at[ABREAST] = {0};
        each<ABREAST - 1>([&](auto r) IV_INLINED {
            term[r + 1] = term[r] + (r + 1 < rows ? p.a_row : 0);
            at[r + 1] = at[r] + (r + 1 < rows ? p.d_row : 0);
        });
        typename L::Computed sum[ABREAST];
        each<ABREAST>([&](auto r) IV_INLINED {
            const auto values =
                part.start ? load_first<Stored>(start + at[r], bytes) : splat<Stored>(NOTHING<T>);
            sum[r] = L::computed(flipped<T>(values, p));
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
            for (int k = 0; k < part.inner; ++k) {
                add_row(k);
            }
        }
        each<ABREAST>([&](auto r) IV_INLINED {
            store_first<Stored>(d + at[r], flipped<T>(L::stored(sum[r]), p), bytes);
        });
        a += ABREAST * p.a_row;
        start += part.start ? ABREAST * p.d_row : 0;
        d += ABREAST * p.d_row;
    }
}

/// The K of so many terms. Code of their own get full blocks, and the counts of small matrices where
/// masks serve their edges in place.
template <class T, ProductMode MODE>
constexpr int registers_for(int count) {
    const bool pieces = count % (PIECE / static_cast<int>(sizeof(T))) == 0;
    const bool full = count == TERMS<T> && MODE != MINUS && (MASKS || std::is_floating_point_v<T>);
    // Not covered: the compiler runs it
    // Not covered: the compiler runs it
    const bool filter = count == 4 || count == 8;
    const bool tiny = count == 2 || count == 3 || count == 6 || count == 12;
    const bool small =
        std::is_floating_point_v<T> ? filter || (tiny && MODE == PLUS) : count == 8 && MODE == PLUS;
    return (pieces || MODE != PLUS_TRANSPOSED) && (full || (MASKS && small)) ? count : 0;
}

template <class T, ProductMode MODE, int BYTES, class Counts>
struct Passes;
template <class T, ProductMode MODE, int BYTES, int... COUNT>
struct Passes<T, MODE, BYTES, std::integer_sequence<int, COUNT...>> {
    static constexpr void (*OF[])(const Product&, const ProductPart&) = {
        pass_rows<T, MODE, BYTES, registers_for<T, MODE>(COUNT)>...};
};

/// All rows of a part that is VECTORS registers wide or less.
template <class T, ProductMode MODE, int BYTES, int VECTORS>
IV_INLINE void panel(const Product& p, const ProductPart& part) {
    if constexpr (VECTORS == 1 && (MASKS || MODE == PLUS_TRANSPOSED)) {
        if (MODE == PLUS_TRANSPOSED || part.inner <= TERMS<T>) {
            using Counts = std::make_integer_sequence<int, TERMS<T> + 1>;
            return Passes<T, MODE, BYTES, Counts>::OF[part.inner > 0 ? part.inner : 0](p, part);
        }
    }
    if constexpr (MODE != PLUS_TRANSPOSED) {
        constexpr int height = TALL[VECTORS - 1];
        std::ptrdiff_t i = 0;
        if constexpr (height > FLAT) {
            for (; p.rows - i > FLAT; i += height) {
                tile<T, MODE, BYTES, height, VECTORS>(p, part, i);
            }
        }
        for (; i < p.rows; i += FLAT) {
            tile<T, MODE, BYTES, FLAT, VECTORS>(p, part, i);
        }
    }
}

template <class T, ProductMode MODE>
void product(const Product& p) {
    constexpr bool transposed = MODE == PLUS_TRANSPOSED;
    constexpr std::ptrdiff_t block = transposed ? TERMS<T> : INNER_BLOCK;
    constexpr std::ptrdiff_t wide = WIDE / sizeof(T);
    constexpr std::ptrdiff_t narrow = NARROW / sizeof(T);
    const auto one_register_wide = [&p](const ProductPart& part) IV_INLINED {
        part.cols > narrow ? panel<T, MODE, WIDE, 1>(p, part) : panel<T, MODE, NARROW, 1>(p, part);
    };
    const ProductPart& all = p.all;
    if (all.cols <= wide && all.inner <= block) {
        return one_register_wide(all);
    }
    std::ptrdiff_t k = 0;
    do {
        const T* a = static_cast<const T*>(all.a) + k * p.a_col;
        const T* b = static_cast<const T*>(all.b) + k * (transposed ? 1 : p.b_row);
        const T* start = static_cast<const T*>(k > 0 ? all.d : all.start);
        T* d = static_cast<T*>(all.d);
        const std::ptrdiff_t inner = all.inner - k < block ? all.inner - k : block;
        for (std::ptrdiff_t j = 0; j < all.cols;) {
            const std::ptrdiff_t left = all.cols - j;
            const std::ptrdiff_t most = MODE == PLUS && left > wide ? 2 * wide : wide;
            const ProductPart part{
                a,     b + j * (transposed ? p.b_row : 1), start ? start + j : nullptr,
                d + j, left < most ? left : most,          inner};
            if (MODE == PLUS && left > wide) {
                panel<T, MODE, WIDE, 2>(p, part);
            } else {
                one_register_wide(part);
            }
            j += most;
        }
        k += block;
    } while (k < all.inner);
}

} // namespace
} // namespace iv::internal

#endif
