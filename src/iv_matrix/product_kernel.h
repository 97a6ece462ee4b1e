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

// Rows of a tile whose rows of sums take one register, two, and so on. There are enough sums to cover
// the latency of the multiply-add, and few enough to leave registers for b.
#if defined(__AVX512BW__)
constexpr int TALL[] = {8, 8, 8, 6};
#elif defined(__AVX2__)
constexpr int TALL[] = {8, 6};
#else
constexpr int TALL[] = {4, 4};
#endif
constexpr int FLAT = 4;

/// Registers of b that are kept while the rows of a pass by: as many as leave room for sums. Integers
/// come sooner with fewer, and subtraction is not worth the code.
template <class T, ProductMode MODE>
constexpr int KEPT = !MASKS                                         ? 8
                     : MODE != MINUS && std::is_floating_point_v<T> ? 24
                                                                    : 16;

/// The most registers of one row of b among them.
template <class T, ProductMode MODE>
constexpr int KEPT_WIDTH = KEPT<T, MODE> > 16 ? 2 : 1;

/// Registers that a row of sums takes.
template <class T, int BYTES, int VECTORS>
constexpr int REGISTERS = static_cast<int>(VECTORS * sizeof(typename Lanes<T, BYTES>::Computed) /
                                           BYTES);

/// Terms that are added at once where a row takes VECTORS registers: so many that their rows of b,
/// taken apart as sums are, can be kept, but a whole piece.
template <class T, ProductMode MODE, int VECTORS>
constexpr int KEPT_TERMS = KEPT<T, MODE> / REGISTERS<T, WIDE, VECTORS>;
template <class T>
constexpr int PIECE_TERMS = PIECE / static_cast<int>(sizeof(T));
template <class T, ProductMode MODE, int VECTORS = 1>
constexpr int TERMS =
    KEPT_TERMS<T, MODE, VECTORS> > PIECE_TERMS<T> ? KEPT_TERMS<T, MODE, VECTORS> : PIECE_TERMS<T>;

/// So few terms that a product is small: a mask is cheaper than the question whether one is needed.
constexpr int FEW = 8;

/// Rows of a that pass at once where the rows of b are kept, K of them. No sum of floats is to wait
/// alone for each of its multiply-adds, unless they are few. One of integers only waits for an
/// addition, but where instructions run in order. Beside two registers for each of 12 rows of b there
/// are some for three rows of sums.
template <class T, int K, int VECTORS>
constexpr int ABREAST =
#if defined(__x86_64__)
    std::is_integral_v<T> || (K > 0 && K < 3) ? 1
    : VECTORS > 1                             ? 3
                                              : 4;
#else
    4;
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
    if constexpr (MODE == MINUS) {
        return multiply_add<true>(factor, b, sum);
    } else {
        return L::sum(factor, b, sum);
    }
}

/// Columns of d in VECTORS registers a row, of which the last may be filled in part. Where it is often
/// full, a mask would cost more than the question.
template <class T, int BYTES, int VECTORS, bool OFTEN_FULL = true>
struct Row {
    using L = Lanes<T, BYTES>;
    using Stored = typename L::Stored;
    using Sums = typename L::Computed[VECTORS];
    int last; ///< bytes of the last register

    explicit Row(const ProductPart& part)
        : last((static_cast<int>(part.cols) - (VECTORS - 1) * L::COUNT) *
               static_cast<int>(sizeof(T))) {}

    IV_INLINE Stored load(const T* from, int v) const {
        return v < VECTORS - 1 ? load_whole<Stored>(from + v * L::COUNT)
                               : load_first<Stored>(from + v * L::COUNT, last);
    }

    IV_INLINE bool is_whole(int v) const {
        // Not covered: the compiler knows the constants
        return v < VECTORS - 1 || (MASKS && OFTEN_FULL && last == BYTES);
    }

    /// Sums start from the values at `start`, or from nothing if it is null.
    IV_INLINE void begin(Sums& sums, const T* start, const Product& p) const {
        each<VECTORS>([&](auto v) IV_INLINED {
            const Stored values = !start        ? splat<Stored>(NOTHING<T>)
                                  : is_whole(v) ? load_whole<Stored>(start + v * L::COUNT)
                                                : load(start, v);
            sums[v] = L::computed(flipped<T>(values, p));
        });
    }

    IV_INLINE void end(const Sums& sums, T* to, const Product& p) const {
        each<VECTORS>([&](auto v) IV_INLINED {
            const Stored values = flipped<T>(L::stored(sums[v]), p);
            if (is_whole(v)) {
                store_whole<Stored>(to + v * L::COUNT, values);
            } else {
                store_first<Stored>(to + v * L::COUNT, values, last);
            }
        });
    }
};

/// Rows i to i + HEIGHT - 1 of a part that is VECTORS registers wide or less. Unless all of them
/// exist, which COMPLETE promises, those beyond the last repeat it: they compute and store the same.
template <class T, ProductMode MODE, int BYTES, int HEIGHT, int VECTORS, bool COMPLETE>
void tile(const Product& p, const ProductPart& part, std::ptrdiff_t i) {
    using L = Lanes<T, BYTES>;
    using Stored = typename L::Stored;
    const T* a[HEIGHT] = {static_cast<const T*>(part.a) + i * p.a_row};
    // From each row of start and d to the next. Where all rows exist it is read where it is needed:
    // registers are short in between.
    std::ptrdiff_t steps[HEIGHT] = {};
    each<HEIGHT - 1>([&](auto r) IV_INLINED {
        const bool exists = COMPLETE || i + r + 1 < p.rows;
        a[r + 1] = a[r] + (exists ? p.a_row : 0);
        steps[r] = exists ? p.d_row : 0;
    });

    const Row<T, BYTES, VECTORS> row(part);
    typename L::Computed sums[HEIGHT][VECTORS];
    const T* start = part.start ? static_cast<const T*>(part.start) + i * p.d_row : nullptr;
    each<HEIGHT>([&](auto r) IV_INLINED {
        row.begin(sums[r], start, p);
        start += !start ? 0 : COMPLETE ? p.d_row : steps[r];
    });

    const std::ptrdiff_t a_col = p.a_col;
    const std::ptrdiff_t b_row = p.b_row;
    const T* b = static_cast<const T*>(part.b);
    std::ptrdiff_t k = 0; // where the term lies in a row of a
    const auto add_terms = [&](std::ptrdiff_t count, auto load) IV_INLINED {
        for (; count > 0; --count, k += a_col, b += b_row) {
            typename L::Computed values[VECTORS];
            each<VECTORS>([&](auto v) IV_INLINED { values[v] = L::computed(load(v)); });
            each<HEIGHT>([&](auto r) IV_INLINED {
                each<VECTORS>([&](auto v) IV_INLINED {
                    sums[r][v] = add_term<L, T, MODE>(a[r] + k, values[v], sums[r][v]);
                });
            });
        }
    };
    // Whole registers may reach into the next row of b, but not behind the last. Beside another
    // register that pays only where there are no masks: it is one more that may cross a cache line.
    constexpr bool may_reach = !MASKS || VECTORS == 1;
    std::ptrdiff_t rest = 0;
    for (std::ptrdiff_t reach = VECTORS * L::COUNT - part.cols; reach > 0 && rest < part.inner;
         reach -= may_reach ? b_row : 0) {
        ++rest;
    }
    add_terms(part.inner - rest,
              [&](int v) IV_INLINED { return load_whole<Stored>(b + v * L::COUNT); });
    add_terms(rest, [&](int v) IV_INLINED { return row.load(b, v); });

    T* d = static_cast<T*>(part.d) + i * p.d_row;
    const std::ptrdiff_t d_row = p.d_row; // for all the compiler knows, a store changes it
    each<HEIGHT>([&](auto r) IV_INLINED {
        row.end(sums[r], d, p);
        d += COMPLETE ? d_row : steps[r];
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

/// Whether so many terms of a part that is VECTORS registers wide get code of their own, in which the
/// rows of b stay in registers: all that can be kept where b is transposed, and where there are masks,
/// counts that small matrices have.
template <class T, ProductMode MODE, int VECTORS, int COUNT>
constexpr bool HAS_CODE = (MODE == PLUS_TRANSPOSED && COUNT == TERMS<T, MODE, VECTORS>)
                              ? MASKS || std::is_floating_point_v<T>
                          : !MASKS || COUNT == 0 ? false
                          : std::is_floating_point_v<T>
                              ? COUNT % 4 == 0 || (MODE == PLUS && VECTORS == 1 && COUNT <= FEW)
                              : MODE == PLUS && COUNT == FEW;

/// Loads what a register holds of each row of b: `cols` columns, which start at `from`. There are K
/// rows, or if K is 0, which is for a transposed b, as many as the part has terms.
template <class L, class T, ProductMode MODE, int K>
IV_INLINE void keep_columns(typename L::Stored* b, const Product& p, const ProductPart& part,
                            const T* from, std::ptrdiff_t cols) {
    using Stored = typename L::Stored;
    if constexpr (MODE == PLUS_TRANSPOSED) {
        const int count = static_cast<int>(part.inner);
        constexpr int step = PIECE / sizeof(T);
        const auto keep_whole = [&](auto group) IV_INLINED {
            load_transposed<L>(b + group * step, from + group * step, p.b_row);
        };
        const auto keep_edge = [&](Stored* block, int group) IV_INLINED {
            const int rest = count - group * step;
            load_edge_transposed<L>(block, from + group * step, p.b_row, cols,
                                    rest < step ? rest : step);
        };
        if constexpr (K) {
            if (cols == L::COUNT) {
                each<K / step>(keep_whole);
            } else {
                // In storage of their own: b is to be in registers.
                Stored edge[K];
                each<K / step>([&](auto group)
                                   IV_INLINED { keep_edge(edge + group * step, group); });
                each<K>([&](auto k) IV_INLINED { b[k] = edge[k]; });
            }
        } else {
            for (int group = 0; group * step < count; ++group) {
                if (cols == L::COUNT && count - group * step >= step) {
                    keep_whole(group);
                } else {
                    keep_edge(b + group * step, group);
                }
            }
        }
    } else {
        const int bytes = static_cast<int>(cols) * static_cast<int>(sizeof(T));
        each<K>([&](auto k) IV_INLINED { b[k] = load_first<Stored>(from + k * p.b_row, bytes); });
    }
}

/// The same for all registers.
template <class L, class T, ProductMode MODE, int VECTORS, int K, int COUNT>
IV_INLINE void keep_rows(typename L::Stored (&b)[VECTORS][COUNT], const Product& p,
                         const ProductPart& part) {
    each<VECTORS>([&](auto v) IV_INLINED {
        const std::ptrdiff_t first = v * L::COUNT;
        const std::ptrdiff_t cols = v < VECTORS - 1 ? L::COUNT : part.cols - first;
        const T* from = static_cast<const T*>(part.b);
        from += MODE == PLUS_TRANSPOSED ? first * p.b_row : first;
        keep_columns<L, T, MODE, K>(b[v], p, part, from, cols);
    });
}

/// Calls `step` with 0 to K - 1 as constants, or with 0 to count - 1 if K is 0.
template <int K, class Step>
IV_INLINE void each_term(std::ptrdiff_t count, Step step) {
    if constexpr (K) {
        each<K>(step);
    } else {
        for (std::ptrdiff_t k = 0; k < count; ++k) {
            step(k);
        }
    }
}

/// Adds K terms to each row of sums, or `count` if K is 0. The factors of row r start at term[r], a_col
/// values apart. If a is TRANSPOSED and K is not 0, all rows exist and are neighbours.
template <class L, class T, ProductMode MODE, bool TRANSPOSED, int K, int ROWS, int VECTORS,
          int COUNT>
IV_INLINE void add_kept_terms(typename L::Computed (&sums)[ROWS][VECTORS], const T* (&term)[ROWS],
                              std::ptrdiff_t a_col, const typename L::Stored (&b)[VECTORS][COUNT],
                              std::ptrdiff_t count) {
    // Neighbours share a pointer, if there are terms enough to pay for it.
    constexpr bool shared = TRANSPOSED && K > FEW;
    each_term<K>(count, [&](auto k) IV_INLINED {
        each<ROWS>([&](auto r) IV_INLINED {
            const T* factor = shared ? term[0] + r : term[r];
            each<VECTORS>([&](auto v) IV_INLINED {
                sums[r][v] = add_term<L, T, MODE>(factor, L::computed(b[v][k]), sums[r][v]);
            });
        });
        each<ROWS>([&](auto r) IV_INLINED { term[r] += shared && r > 0 ? 0 : a_col; });
        if constexpr (shared) {
            term[0] = opaque(term[0]);
        }
    });
}

/// A part with few terms and VECTORS registers a row: the rows of b are kept while the rows of a pass
/// by. If a is TRANSPOSED, its rows are one value apart, else its columns are. K is the number of
/// terms where the rows of b are kept in registers, else 0.
template <class T, ProductMode MODE, int BYTES, int VECTORS, bool TRANSPOSED, int K>
void pass_rows(const Product& p, const ProductPart& part) {
    using L = Lanes<T, BYTES>;
    constexpr int abreast = ABREAST<T, K, VECTORS>;
    typename L::Stored b[VECTORS][K ? K : TERMS<T, MODE, VECTORS>];
    keep_rows<L, T, MODE, VECTORS, K>(b, p, part);
    constexpr bool often_full = K == 0 || K > FEW;
    const Row<T, BYTES, VECTORS, often_full> row(part);
    const std::ptrdiff_t a_col = TRANSPOSED ? p.a_col : 1; // Not covered: the compiler knows
    const T* a = static_cast<const T*>(part.a);
    const T* start = static_cast<const T*>(part.start);
    T* d = static_cast<T*>(part.d);
    const auto pass = [&](auto count, auto exists) IV_INLINED {
        const std::ptrdiff_t d_row = p.d_row;
        const std::ptrdiff_t a_row = TRANSPOSED ? 1 : p.a_row; // Not covered: the compiler knows
        const T* term[count] = {a};
        std::ptrdiff_t at[count] = {0};
        each<count - 1>([&](auto r) IV_INLINED {
            term[r + 1] = term[r] + (exists(r + 1) ? a_row : 0);
            at[r + 1] = at[r] + (exists(r + 1) ? d_row : 0);
        });
        typename L::Computed sums[count][VECTORS];
        each<count>([&](auto r)
                        IV_INLINED { row.begin(sums[r], start ? start + at[r] : nullptr, p); });
        add_kept_terms<L, T, MODE, TRANSPOSED, K>(sums, term, a_col, b, part.inner);
        each<count>([&](auto r) IV_INLINED { row.end(sums[r], d + at[r], p); });
        a += count * a_row;
        start += start ? count * d_row : 0;
        d += count * d_row;
    };
    std::ptrdiff_t rows = p.rows;
    if constexpr (MASKS && K) {
        const auto always = [](int) IV_INLINED { return true; };
        if (abreast > 1 && rows >= abreast) {
            do {
                pass(Constant<abreast>{}, always);
                rows -= abreast;
            } while (rows >= abreast);
            if (rows == 0) {
                return; // sooner than by a loop that finds nothing to do
            }
        }
        for (; rows > 0; --rows) {
            pass(Constant<1>{}, always);
        }
    } else {
        // Rows that do not exist repeat the last: one loop is shorter than two.
        for (; rows > 0; rows -= abreast) {
            pass(Constant<abreast>{}, [=](int r) IV_INLINED { return r < rows; });
        }
    }
}

/// All rows of a part that is VECTORS registers wide or less, in tiles.
template <class T, ProductMode MODE, int BYTES, int VECTORS>
[[gnu::noinline]] void tiles(const Product& p, const ProductPart& part) {
    constexpr int height = TALL[REGISTERS<T, BYTES, VECTORS> - 1];
    std::ptrdiff_t i = 0;
    if constexpr (height > FLAT) {
        // The last rows go by two flat tiles if they fit: a tall one and a flat one compute more.
        while (p.rows - i > std::ptrdiff_t{2} * FLAT || p.rows - i == height) {
            tile<T, MODE, BYTES, height, VECTORS, true>(p, part, i);
            i += height;
        }
        if constexpr (VECTORS == 1) {
            if (p.rows - i > FLAT && p.rows - i < height) {
                return tile<T, MODE, BYTES, height, VECTORS, false>(p, part, i);
            }
        }
    }
    for (; i < p.rows; i += FLAT) {
        tile<T, MODE, BYTES, FLAT, VECTORS, false>(p, part, i);
    }
}

/// What computes a part that is VECTORS registers wide or less and has COUNT terms.
template <class T, ProductMode MODE, int BYTES, int VECTORS, bool TRANSPOSED, int COUNT>
constexpr auto* way() {
    if constexpr (HAS_CODE<T, MODE, VECTORS, COUNT>) {
        return pass_rows<T, MODE, BYTES, VECTORS, TRANSPOSED, COUNT>;
    } else if constexpr (MODE == PLUS_TRANSPOSED) {
        return pass_rows<T, MODE, BYTES, VECTORS, TRANSPOSED, 0>;
    } else {
        return tiles<T, MODE, BYTES, VECTORS>;
    }
}

/// Counts of terms that such parts may have: none to TERMS.
template <class T, ProductMode MODE, int VECTORS>
constexpr int COUNTS = TERMS<T, MODE, VECTORS> + 1;

/// The ways by the number of terms, and behind them those of a transposed a.
template <class T, ProductMode MODE, int BYTES, int VECTORS, class Places>
struct Ways;
template <class T, ProductMode MODE, int BYTES, int VECTORS, int... PLACE>
struct Ways<T, MODE, BYTES, VECTORS, std::integer_sequence<int, PLACE...>> {
    static constexpr int counts = COUNTS<T, MODE, VECTORS>;
    static constexpr void (*OF[])(const Product&, const ProductPart&) = {
        way<T, MODE, BYTES, VECTORS, (PLACE >= counts), PLACE % counts>()...};
};

/// All rows of a part that is VECTORS registers wide or less.
template <class T, ProductMode MODE, int BYTES, int VECTORS>
IV_INLINE void part_of_width(const Product& p, const ProductPart& part) {
    if constexpr (MODE == PLUS_TRANSPOSED || (MASKS && VECTORS <= KEPT_WIDTH<T, MODE>)) {
        constexpr int counts = COUNTS<T, MODE, VECTORS>;
        using Places = std::make_integer_sequence<int, (MODE == PLUS ? 2 : 1) * counts>;
        if (MODE == PLUS_TRANSPOSED || part.inner < counts) {
            const std::ptrdiff_t count = part.inner > 0 ? part.inner : 0;
            const bool transposed = MODE == PLUS && p.a_col != 1;
            return Ways<T, MODE, BYTES, VECTORS, Places>::OF[count + (transposed ? counts : 0)](
                p, part);
        }
    }
    if constexpr (MODE != PLUS_TRANSPOSED) {
        tiles<T, MODE, BYTES, VECTORS>(p, part);
    }
}

template <class T, ProductMode MODE>
IV_INLINE void narrow_part(const Product& p, const ProductPart& part) {
    if (part.cols > NARROW / static_cast<std::ptrdiff_t>(sizeof(T))) {
        part_of_width<T, MODE, WIDE, 1>(p, part);
    } else {
        part_of_width<T, MODE, NARROW, 1>(p, part);
    }
}

/// The most columns of a part, in registers. More than two are for floats: integers gain little.
constexpr int MOST_REGISTERS = sizeof TALL / sizeof TALL[0];
template <class T, ProductMode MODE>
constexpr int MOST = MODE == PLUS_TRANSPOSED                   ? KEPT_WIDTH<T, MODE>
                     : MODE == MINUS                           ? 1
                     : std::is_floating_point_v<T>             ? MOST_REGISTERS
                     : REGISTERS<T, WIDE, 2> <= MOST_REGISTERS ? 2
                                                               : 1;

/// Columns of a register.
template <class T>
constexpr std::ptrdiff_t COLUMNS = WIDE / static_cast<std::ptrdiff_t>(sizeof(T));

/// Terms that a part of so many registers may have.
template <class T, ProductMode MODE, int VECTORS = 1>
constexpr std::ptrdiff_t BLOCK = MODE == PLUS_TRANSPOSED ? TERMS<T, MODE, VECTORS> : INNER_BLOCK;

/// Registers that the next part takes of those that `cols` columns fill.
template <class T, ProductMode MODE>
IV_INLINE int next_registers(std::ptrdiff_t cols, std::ptrdiff_t inner) {
    constexpr std::ptrdiff_t most = MOST<T, MODE>;
    if (MODE == PLUS_TRANSPOSED && (inner <= BLOCK<T, MODE> || cols < most * COLUMNS<T>)) {
        return 1; // for all terms are kept at once, or the second would have idle lanes
    }
    const std::ptrdiff_t registers = (cols + COLUMNS<T> - 1) / COLUMNS<T>;
    // What does not fit at once, but into two parts, goes in halves: no narrow rest is left.
    return static_cast<int>(registers <= most      ? registers
                            : registers < 2 * most ? (registers + 1) / 2
                                                   : most);
}

/// Terms that the next part takes of `left`. Where multiples of four have code of their own, it takes
/// such, about half of what is left if that is less than twice the most; but a few terms go at once.
template <class T, ProductMode MODE>
IV_INLINE std::ptrdiff_t next_terms(std::ptrdiff_t left, int registers) {
    const std::ptrdiff_t most = registers == 1 ? BLOCK<T, MODE> : BLOCK<T, MODE, MOST<T, MODE>>;
    if constexpr (MODE == PLUS_TRANSPOSED && MASKS && std::is_floating_point_v<T>) {
        static_assert(BLOCK<T, MODE> % 4 == 0 && BLOCK<T, MODE, MOST<T, MODE>> % 4 == 0);
        constexpr std::ptrdiff_t at_once = 2 * std::ptrdiff_t{FEW};
        if (left < 2 * most) {
            return left > most ? (left + 7) / 8 * 4 : left > at_once ? left / 4 * 4 : left;
        }
    }
    return left < most ? left : most;
}

template <class T, ProductMode MODE>
[[gnu::noinline]] void product_in_parts(const Product& p) {
    const ProductPart& all = p.all;
    // From column j on, `inner` terms from k on. Returns the number of columns.
    const auto compute_part = [&](std::ptrdiff_t j, int registers, std::ptrdiff_t k,
                                  std::ptrdiff_t inner) IV_INLINED {
        const T* a = static_cast<const T*>(all.a) + k * p.a_col;
        const T* b = static_cast<const T*>(all.b);
        b += MODE == PLUS_TRANSPOSED ? j * p.b_row + k : k * p.b_row + j;
        const T* start = static_cast<const T*>(k > 0 ? all.d : all.start);
        const std::ptrdiff_t left = all.cols - j;
        const std::ptrdiff_t cols = registers * COLUMNS<T>;
        const ProductPart part{a,
                               b,
                               start ? start + j : nullptr,
                               static_cast<T*>(all.d) + j,
                               cols < left ? cols : left,
                               inner};
        if (registers == 1) {
            narrow_part<T, MODE>(p, part);
        }
        each<MOST<T, MODE> - 1>([&](auto more) IV_INLINED {
            if (registers == more + 2) {
                part_of_width<T, MODE, WIDE, more + 2>(p, part);
            }
        });
        return part.cols;
    };
    if constexpr (MODE == PLUS_TRANSPOSED) {
        // All terms of some columns: their sums, which rest every few terms, stay cached.
        for (std::ptrdiff_t j = 0, cols = 0; j < all.cols; j += cols) {
            const int registers = next_registers<T, MODE>(all.cols - j, all.inner);
            std::ptrdiff_t k = 0;
            do {
                const std::ptrdiff_t inner = next_terms<T, MODE>(all.inner - k, registers);
                cols = compute_part(j, registers, k, inner);
                k += inner;
            } while (k < all.inner);
        }
    } else {
        // All columns with some terms: the part of b in use stays cached.
        std::ptrdiff_t k = 0;
        do {
            const std::ptrdiff_t inner = next_terms<T, MODE>(all.inner - k, 1);
            for (std::ptrdiff_t j = 0; j < all.cols;) {
                j += compute_part(j, next_registers<T, MODE>(all.cols - j, inner), k, inner);
            }
            k += inner;
        } while (k < all.inner);
    }
}

template <class T, ProductMode MODE>
void product(const Product& p) {
    if (p.all.cols <= COLUMNS<T> && p.all.inner <= BLOCK<T, MODE>) {
        return narrow_part<T, MODE>(p, p.all);
    }
    product_in_parts<T, MODE>(p);
}

} // namespace
} // namespace iv::internal

#endif
