/*
 * The inverse as instructions: Gauss-Jordan elimination on [A | I] in the work area. Every lane owns
 * one element, and each element is rounded to float after one fused multiply-add in double, in the
 * order of the pivots.
 */
#ifndef LIBIV_MATRIX_INVERSE_KERNEL_H
#define LIBIV_MATRIX_INVERSE_KERNEL_H

#include "iv_lanes/kernels.h"
#include "iv_lanes/lanes.h"
#include "iv_matrix/inverse.h"

namespace iv::internal {
namespace {

/// Quotients are what every step waits for, and short registers have them first.
using Quotients = Vector<double, NARROW>;
constexpr int GROUP = LANES<Quotients>;

/// Elimination goes by strips of columns, a register each, which holds a group of columns or two.
using Doubles = Vector<double, WIDE>;
constexpr int STRIP = LANES<Doubles>;
constexpr int STRIP_GROUPS = STRIP / GROUP;
/// Groups of a row that are kept while all rows go by.
constexpr int MOST_GROUPS = 4 * STRIP_GROUPS;

template <std::size_t... ROW>
IV_INLINE Quotients gather_column(const WorkArea& w, int i, int j, std::index_sequence<ROW...>) {
    return widen<Quotients>(FloatsOf<Quotients>{w.rows[j + ROW][i]...});
}

/// What row i is multiplied by before it is added to each of the others, which clears column i. Of
/// rows behind the matrix it is zero. Returns whether all are finite.
IV_INLINE bool find_factors(const WorkArea& w, int n, int i, double* factors) {
    static_assert(MAX_INVERSE_ORDER % GROUP == 0, "registers reach no further than the rows");
    const Quotients divisor = splat<Quotients>(-static_cast<double>(w.rows[i][i]));
    auto row = lane_numbers<Vector<std::int64_t, sizeof(Quotients)>>();
    Quotients sum{}; // of finite factors, at most 2^278 each, is finite
    for (int j = 0; j < n; j += GROUP, row += GROUP) {
        const Quotients column = gather_column(w, i, j, std::make_index_sequence<GROUP>{});
        const auto bits = reinterpret_cast<decltype(row)>(column / divisor);
        const auto factor = reinterpret_cast<Quotients>(bits & (row < n));
        store_whole(&factors[j], factor);
        sum += factor;
    }
    double total = 0.0;
    each<GROUP>([&](auto lane) IV_INLINED { total += sum[int{lane}]; });
    return total - total == 0.0;
}

/// Exchanges a row whose pivot is exactly zero with a row below: the first with a non-zero entry in
/// the pivot's column. The last candidate is taken unexamined, and there is no search for the
/// largest: a singular matrix goes through to infinities and NaNs. Of the last column the candidate
/// is the row below the matrix, with whatever an earlier call of larger order left there.
[[gnu::noinline]] void repair_zero_pivot(WorkArea& w, int n, int i) {
    int k = i + 1;
    while (k < n - 1 && w.rows[k][i] == 0.0f) {
        ++k;
    }
    for (int c = i; c < 2 * n; ++c) {
        const float upper = w.rows[i][c];
        w.rows[i][c] = w.rows[k][c];
        w.rows[k][c] = k < MAX_INVERSE_ORDER ? upper : 0.0f; // the spare row stays zero
    }
}

/// As many of a strip's lanes as a group has.
template <class D>
IV_INLINE Quotients first_group(D strip) {
    if constexpr (STRIP_GROUPS == 1) {
        return strip;
    } else {
        return low_half(strip);
    }
}

/// GROUPS groups of columns of a row.
template <int GROUPS>
struct Panel {
    static constexpr int STRIPS = GROUPS / STRIP_GROUPS;
    static constexpr bool REST = GROUPS % STRIP_GROUPS != 0;
    static constexpr std::ptrdiff_t REST_AT = std::ptrdiff_t{STRIPS} * STRIP;
    Doubles strips[STRIPS + 1];
    Quotients rest;

    IV_INLINE void load(const float* from) {
        each<STRIPS>([&](auto v)
                         IV_INLINED { strips[v] = load_widened<Doubles>(from + v * STRIP); });
        if constexpr (REST) {
            rest = load_widened<Quotients>(from + REST_AT);
        }
    }

    IV_INLINE void add(Doubles factor, const Panel& row) {
        each<STRIPS>(
            [&](auto v) IV_INLINED { strips[v] = multiply_add(factor, row.strips[v], strips[v]); });
        if constexpr (REST) {
            rest = multiply_add(first_group(factor), row.rest, rest);
        }
    }

    IV_INLINE void store(float* to) const {
        each<STRIPS>([&](auto v) IV_INLINED { store_narrowed(to + v * STRIP, strips[v]); });
        if constexpr (REST) {
            store_narrowed(to + REST_AT, rest);
        }
    }
};

/// Adds row i, multiplied, to all others, in GROUPS groups of columns from c on.
template <int GROUPS>
IV_INLINE void eliminate_panel(WorkArea& w, int n, int i, int c, const double* factors) {
    Panel<GROUPS> pivot;
    pivot.load(&w.rows[i][c]);
    const auto add_to = [&](int first, int end) IV_INLINED {
        for (int j = first; j < end; ++j) {
            Panel<GROUPS> row;
            row.load(&w.rows[j][c]);
            row.add(splat<Doubles>(factors[j]), pivot);
            row.store(&w.rows[j][c]);
        }
    };
    add_to(0, i);
    add_to(i + 1, n);
}

/// The same in the first `width` columns, and in those behind that the last group takes. Elements to
/// the left of the pivot are not always zero, and they reach the diagonal again.
IV_INLINE void eliminate(WorkArea& w, int n, int i, int width, const double* factors) {
    for (int c = 0; c < width; c += MOST_GROUPS * GROUP) {
        const int left = (width - c + GROUP - 1) / GROUP;
        const int groups = left < MOST_GROUPS ? left : MOST_GROUPS;
        each<MOST_GROUPS>([&](auto fewer) IV_INLINED {
            if (groups == fewer + 1) {
                eliminate_panel<fewer + 1>(w, n, i, c, factors);
            }
        });
    }
}

/// Puts [A | I] into the work area, and zeros behind it as far as groups reach. Registers reach into
/// the next row, or behind that.
IV_INLINE void augment(WorkArea& w, int n, const std::uint8_t* from) {
    using S = Vector<float, NARROW>;
    using Columns = Vector<std::int32_t, NARROW>;
    constexpr int step = LANES<S>;
    const auto one = reinterpret_cast<Columns>(splat<S>(1.0f));
    const int width = (2 * n + GROUP - 1) & -GROUP;
    int left = n * n;
    for (int j = 0; j < n; ++j) {
        for (int c = 0; c < n; c += step) {
            const std::uint8_t* const at = from + std::ptrdiff_t{4} * (n * n - left + c);
            store_whole(&w.rows[j][c],
                        left - c >= step ? load_whole<S>(at) : load_first<S>(at, 4 * (left - c)));
        }
        left -= n;
    }
    for (int j = 0; j < n; ++j) {
        auto column = lane_numbers<Columns>();
        for (int c = n; c < width; c += step, column += step) {
            store_whole(&w.rows[j][c], (column == j) & one);
        }
    }
}

/// Divides every row by its pivot: the identity half becomes the inverse. In the work area it does
/// so where a later call can read the row.
IV_INLINE void normalise(WorkArea& w, int n, std::uint8_t* to) {
    int left = n * n;
    for (int i = 0; i < n; ++i) {
        float* const row = w.rows[i];
        const Doubles a = splat<Doubles>(1.0 / static_cast<double>(row[i]));
        for (int c = 0; c < n; c += STRIP) {
            const auto values = narrow(load_widened<Doubles>(row + n + c) * a);
            std::uint8_t* const at = to + std::ptrdiff_t{4} * (n * n - left + c);
            if (left - c >= STRIP) {
                std::memcpy(at, &values, STRIP * sizeof(float));
            } else {
                store_first(at, values, 4 * (left - c));
            }
        }
        left -= n;
        for (int c = i > 0 ? (i - 1) & -STRIP : 0; c < 2 * i; c += STRIP) {
            store_narrowed(row + c, load_widened<Doubles>(row + c) * a);
        }
    }
}

/// A row of order 4.
using Four = Vector<float, 16>;

using Pair = Vector<double, PIECE>;

/// Lane LANE of both pairs.
template <int LANE>
IV_INLINE Pair pick(Pair a, Pair b) {
    return __builtin_shufflevector(a, b, LANE, 2 + LANE);
}
template <int LANE>
IV_INLINE Pair both(Pair a) {
    return pick<LANE>(a, a);
}

/// Order 4 in registers, two columns in each: short registers have short latencies, and nearly every
/// step waits for the one before. Returns whether all factors are finite; if not, nothing is valid.
IV_INLINE bool invert_four(WorkArea& w, const Four (&from)[4], Four (&to)[4]) {
    Pair row[4][4];
    each<4>([&](auto j) IV_INLINED {
        row[j][0] = widen<Pair>(from[j]);
        row[j][1] = widen<Pair>(__builtin_shufflevector(from[j], from[j], 2, 3, 2, 3));
        row[j][2] = Pair{j == 0 ? 1.0 : 0.0, j == 1 ? 1.0 : 0.0};
        row[j][3] = Pair{j == 2 ? 1.0 : 0.0, j == 3 ? 1.0 : 0.0};
    });
    Pair sum{}; // of finite factors, at most 2^278 each, is finite
    each<4>([&](auto i) IV_INLINED {
        constexpr int next[4] = {(i + 1) % 4, (i + 2) % 4, (i + 3) % 4, i};
        const Pair pivot = both<i % 2>(row[i][i / 2]);
        each<2>([&](auto q) IV_INLINED {
            const Pair factors =
                pick<i % 2>(row[next[2 * q]][i / 2], row[next[2 * q + 1]][i / 2]) / pivot;
            sum += factors; // the pivot's own is finite if the others are
            each<(q == 0 ? 2 : 1)>([&](auto lane) IV_INLINED {
                constexpr int j = next[2 * q + lane];
                const Pair factor = both<lane>(factors);
                each<(i < 2 ? 3 : 4)>([&](auto p) IV_INLINED { // no need of columns behind 4 + i
                    row[j][p] =
                        widen<Pair>(narrow(multiply_add<true>(factor, row[i][p], row[j][p])));
                });
            });
        });
    });
    each<2>([&](auto q) IV_INLINED {
        const Pair scales = 1.0 / __builtin_shufflevector(row[2 * q][q], row[2 * q + 1][q], 0, 3);
        each<2>([&](auto lane) IV_INLINED {
            constexpr int i = 2 * q + lane;
            const Pair a = both<lane>(scales);
            to[i] =
                __builtin_shufflevector(narrow(row[i][2] * a), narrow(row[i][3] * a), 0, 1, 4, 5);
            each<i>([&](auto p) IV_INLINED { // where a later call can read
                if constexpr (p >= (i - 1) / 2) {
                    store_narrowed(&w.rows[i][2 * p], row[i][p] * a);
                }
            });
        });
    });
    return sum[0] + sum[1] - (sum[0] + sum[1]) == 0.0;
}

/// Orders 2 to this one, but 4, are kept in registers: rows of [A | I] that fill two at most.
constexpr int MOST_KEPT = MASKS ? STRIP : 0;

/// Lane LANE of the first register of each row. Lanes without a row repeat the last.
template <int LANE, int N, int REGISTERS>
IV_INLINE Doubles column_of(const Doubles (&row)[N][REGISTERS]) {
    const auto two = [&](auto r) IV_INLINED {
        return interleave<Doubles, LANE % 2>(row[r < N ? r : N - 1][0],
                                             row[r + 1 < N ? r + 1 : N - 1][0],
                                             std::make_index_sequence<STRIP>{});
    };
    constexpr int at = LANE / 2 * 2; // where their elements of the column are
    const auto four = [&](auto r) IV_INLINED {
        return __builtin_shufflevector(two(r), two(Constant<r + 2>{}), at, at + 1, at, at + 1,
                                       STRIP + at, STRIP + at + 1, STRIP + at, STRIP + at + 1);
    };
    return __builtin_shufflevector(four(Constant<0>{}), four(Constant<4>{}), 0, 1, 4, 5, 8, 9, 12,
                                   13);
}

/// Order N with all rows in registers. The next column is computed apart, from what it was before
/// the rows change, so that its quotients are on their way while they do. Returns whether all
/// factors are finite; if not, nothing is written.
template <int N>
[[gnu::noinline]] bool invert_kept(WorkArea& w, const std::uint8_t* from, std::uint8_t* to) {
    using Floats = FloatsOf<Doubles>;
    using Columns = Vector<std::int64_t, sizeof(Doubles)>;
    constexpr int registers = (2 * N + STRIP - 1) / STRIP;
    constexpr int bytes = N * static_cast<int>(sizeof(float));
    const auto columns = lane_numbers<Columns>();
    const auto one = reinterpret_cast<Columns>(splat<Doubles>(1.0));
    Doubles row[N][registers];
    each<N>([&](auto j) IV_INLINED {
        const Doubles values = widen<Doubles>(load_first<Floats>(from + j * bytes, bytes));
        each<registers>([&](auto v) IV_INLINED {
            const Columns identity = (columns == std::int64_t{N + j - v * STRIP}) & one;
            row[j][v] = reinterpret_cast<Doubles>(
                v == 0 ? reinterpret_cast<Columns>(values) | identity : identity);
        });
    });
    Doubles next = column_of<0>(row) / splat<Doubles>(-row[0][0][0]);
    Doubles sum = next; // of finite factors, at most 2^278 each, is finite
    each<N>([&](auto i) IV_INLINED {
        const Doubles factors = next;
        if constexpr (i + 1 < N) {
            const Doubles before = column_of<i + 1>(row);
            const Doubles above = splat<Doubles>(row[i][0][i + 1]);
            const Doubles after = widen<Doubles>(narrow(multiply_add(factors, above, before)));
            const Doubles column = choose(columns == std::int64_t{i}, before, after);
            next = column / splat<Doubles>(-column[i + 1]);
            sum += next;
        }
        each<registers>([&](auto v) IV_INLINED {
            each<N - 1>([&](auto other) IV_INLINED {
                constexpr int j = other < i ? other : other + 1;
                const Doubles factor = splat<Doubles>(factors[j]);
                row[j][v] = widen<Doubles>(narrow(multiply_add(factor, row[i][v], row[j][v])));
                settle(row[j][v]);
            });
        });
    });
    double total = 0.0;
    each<STRIP>([&](auto lane) IV_INLINED { total += sum[int{lane}]; });
    if (total - total != 0.0) {
        return false;
    }
    each<N>([&](auto i) IV_INLINED {
        const Doubles a = splat<Doubles>(1.0 / row[i][0][int{i}]);
        Floats values[registers];
        each<registers>([&](auto v) IV_INLINED {
            values[v] = narrow(row[i][v] * a);
            store_whole(&w.rows[i][v * STRIP], values[v]); // where a later call can read
        });
        store_first(to + i * bytes,
                    pick_lanes(values[0], values[registers - 1],
                               counted_from<N>(std::make_index_sequence<STRIP>{})),
                    bytes);
    });
    return true;
}

/// The same for an order that the compiler does not know. Returns whether it is done.
IV_INLINE bool invert_kept(WorkArea& w, int n, const std::uint8_t* from, std::uint8_t* to) {
    bool done = false;
    each<(MOST_KEPT > 0 ? MOST_KEPT - 1 : 0)>([&](auto less) IV_INLINED {
        constexpr int order = less + 2;
        if constexpr (order != 4) {
            if (n == order) {
                done = invert_kept<order>(w, from, to);
            }
        }
    });
    return done;
}

void invert(WorkArea& w, int n, const void* from, void* to) {
    if (n == 4) {
        Four rows[4];
        each<4>([&](auto j) IV_INLINED {
            rows[j] = load_whole<Four>(static_cast<const std::uint8_t*>(from) + j * PIECE);
        });
        if (invert_four(w, rows, rows)) {
            each<4>([&](auto j) IV_INLINED {
                store_whole(static_cast<std::uint8_t*>(to) + j * PIECE, rows[j]);
            });
            return;
        }
    }
    if (invert_kept(w, n, static_cast<const std::uint8_t*>(from), static_cast<std::uint8_t*>(to))) {
        return;
    }
    augment(w, n, static_cast<const std::uint8_t*>(from));
    alignas(sizeof(Quotients)) double factors[MAX_INVERSE_ORDER];
    // Until a factor is infinite or NaN, and so until rows are exchanged, the columns behind n + i of
    // row i are as they were at first, +0: times a finite factor they add a zero to +0 or to 1 and
    // change nothing.
    bool finite = true;
    for (int i = 0; i < n; ++i) {
        finite = finite && find_factors(w, n, i, factors);
        if (!finite) {
            if (w.rows[i][i] == 0.0f) {
                repair_zero_pivot(w, n, i);
            }
            find_factors(w, n, i, factors);
        }
        eliminate(w, n, i, finite ? n + i + 1 : 2 * n, factors);
    }
    normalise(w, n, static_cast<std::uint8_t*>(to));
}

} // namespace
} // namespace iv::internal

#endif
