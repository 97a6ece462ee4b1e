/*
 * The equations of a filter with 8 states and 4 measured values whose states fall into four pairs
 * that know nothing of each other, as the places and velocities of a model of constant velocity do.
 * Of 8 x 8 values 16 are then other than zero, and one register holds what all pairs have in the
 * same place.
 *
 * What is left out changes no bit. The product of +0 and a finite value is a zero, and a zero leaves
 * every sum as it is, except that it makes +0 of -0 or not. So the kernels take zeros for +0, compute,
 * see whether everything was finite and nothing came out as -0, and only then write. They return
 * whether they did; they do for any model of constant velocity but by rare chance. The values
 * outside of the pairs are +0 since of every sum at least one term is, and so is its start.
 */
#ifndef LIBIV_KALMAN_PAIRS_KERNEL_H
#define LIBIV_KALMAN_PAIRS_KERNEL_H

#include "iv_lanes/kernels.h"
#include "iv_lanes/lanes.h"
#include "iv_matrix/inverse_kernel.h"
#include "iv_matrix/product_kernel.h"

namespace iv::internal {
namespace {

/// A value for each state, in as many registers as they take.
struct Eight {
    static constexpr int BYTES = 32 < WIDE ? 32 : WIDE;
    static constexpr int VECTORS = 32 / BYTES;
    Vector<float, BYTES> part[VECTORS];

    IV_INLINE static Eight load(const float* from);
    IV_INLINE void store(float* to) const;
    IV_INLINE static Eight all(float value);
};
using EightPart = Vector<float, Eight::BYTES>;
using EightBits = Vector<std::int32_t, Eight::BYTES>;

IV_INLINE Eight Eight::load(const float* from) {
    Eight row;
    each<VECTORS>([&](auto v) IV_INLINED {
        row.part[v] = load_whole<EightPart>(from + v * LANES<EightPart>);
    });
    return row;
}
IV_INLINE void Eight::store(float* to) const {
    each<VECTORS>([&](auto v) IV_INLINED { store_whole(to + v * LANES<EightPart>, part[v]); });
}
IV_INLINE Eight Eight::all(float value) {
    Eight row;
    each<VECTORS>([&](auto v) IV_INLINED { row.part[v] = splat<EightPart>(value); });
    return row;
}

template <class Step, class... R>
IV_INLINE Eight map(Step step, const R&... rows) {
    Eight result;
    each<Eight::VECTORS>([&](auto v) IV_INLINED { result.part[v] = step(rows.part[v]...); });
    return result;
}

// Bit by bit, of registers of floats.
template <class V>
using BitsOf = Vector<std::int32_t, sizeof(V)>;
template <class V>
IV_INLINE V both_of(V a, V b) {
    return reinterpret_cast<V>(reinterpret_cast<BitsOf<V>>(a) & reinterpret_cast<BitsOf<V>>(b));
}
template <class V>
IV_INLINE V any_of(V a, V b) {
    return reinterpret_cast<V>(reinterpret_cast<BitsOf<V>>(a) | reinterpret_cast<BitsOf<V>>(b));
}
/// What a has outside of b.
template <class V>
IV_INLINE V outside(V a, V b) {
    return reinterpret_cast<V>(reinterpret_cast<BitsOf<V>>(a) & ~reinterpret_cast<BitsOf<V>>(b));
}

IV_INLINE Eight masked(const Eight& values, const Eight& mask) {
    return map([](EightPart a, EightPart b) IV_INLINED { return both_of(a, b); }, values, mask);
}
IV_INLINE Eight merged(const Eight& a, const Eight& b) {
    return map([](EightPart x, EightPart y) IV_INLINED { return any_of(x, y); }, a, b);
}
IV_INLINE Eight rest(const Eight& values, const Eight& mask) {
    return map([](EightPart a, EightPart b) IV_INLINED { return outside(a, b); }, values, mask);
}
/// c + a * b
IV_INLINE Eight fused(const Eight& a, const Eight& b, const Eight& c) {
    return map([](EightPart x, EightPart y, EightPart z)
                   IV_INLINED { return multiply_add(x, y, z); },
               a, b, c);
}
IV_INLINE Eight negated(const Eight& values) {
    return map([](EightPart a) IV_INLINED { return -a; }, values);
}

// Templates, so that only the branch of this machine's registers is compiled.
template <class Values>
IV_INLINE Four half(const Values& values, int which) {
    if constexpr (Values::VECTORS == 2) {
        return values.part[which];
    } else {
        return which ? high_half(values.part[0]) : low_half(values.part[0]);
    }
}
template <class Half>
IV_INLINE Eight joined(Half low, Half high) {
    if constexpr (sizeof(EightPart) == sizeof(Half)) {
        return {{low, high}};
    } else {
        return {{join(low, high)}};
    }
}

/// The lower (0) or upper halves of the pieces of a and b, in turns.
template <int WHICH, class V>
IV_INLINE V halves_of_pieces(V a, V b) {
    using Words = Vector<std::int64_t, sizeof(V)>;
    return reinterpret_cast<V>(interleave<Words, WHICH>(reinterpret_cast<Words>(a),
                                                        reinterpret_cast<Words>(b),
                                                        std::make_index_sequence<LANES<Words>>{}));
}

// How states pair up. The first of a pair comes before the second. In a register with a value for
// each state, `select<WHICH>(a, b)` gives the first of every pair what a has of its first (0) or
// second (1) state, and the second of every pair what b has of it.

/// States i and i + 2 of each four: the tracker's.
struct Neighbours {
    static constexpr int pair_of(int state) { return state / 4 * 2 + state % 2; }
    static constexpr bool is_second(int state) { return state % 4 >= 2; }
    template <int WHICH>
    IV_INLINE static Eight select(const Eight& a, const Eight& b) {
        return map([](EightPart x, EightPart y)
                       IV_INLINED { return halves_of_pieces<WHICH>(x, y); },
                   a, b);
    }
    template <int WHICH>
    IV_INLINE static Four of_pairs(const Eight& values) {
        return halves_of_pieces<WHICH>(half(values, 0), half(values, 1));
    }
    IV_INLINE static Eight of_states(Four values) {
        return joined(halves_of_pieces<0>(values, values), halves_of_pieces<1>(values, values));
    }
};

/// States i and i + 4: all places, then all velocities.
struct HalfApart {
    static constexpr int pair_of(int state) { return state % 4; }
    static constexpr bool is_second(int state) { return state >= 4; }
    template <int WHICH>
    IV_INLINE static Eight select(const Eight& a, const Eight& b) {
        return joined(half(a, WHICH), half(b, WHICH));
    }
    template <int WHICH>
    IV_INLINE static Four of_pairs(const Eight& values) {
        return half(values, WHICH);
    }
    IV_INLINE static Eight of_states(Four values) { return joined(values, values); }
};

/// All ones where a state is of a pair, or the first of its pair.
template <class Pairing>
struct Masks {
    alignas(32) std::int32_t pair[4][8]{};
    alignas(32) float one_first[8]{};
    alignas(32) float one_second[8]{};
    constexpr Masks() {
        for (int state = 0; state < 8; ++state) {
            pair[Pairing::pair_of(state)][state] = -1;
            (Pairing::is_second(state) ? one_second : one_first)[state] = 1.0f;
        }
    }
    IV_INLINE Eight of(int q) const {
        Eight mask;
        each<Eight::VECTORS>([&](auto v) IV_INLINED {
            mask.part[v] = load_whole<EightPart>(&pair[q][v * LANES<EightPart>]);
        });
        return mask;
    }
};
template <class Pairing>
constexpr Masks<Pairing> MASKS_OF{};

constexpr std::int32_t LANE[4][4] = {{-1}, {0, -1}, {0, 0, -1}, {0, 0, 0, -1}};
IV_INLINE Four lane_mask(int lane) {
    return load_whole<Four>(LANE[lane]);
}

/// A matrix of 8 x 8 values: in the lane of a state what the rows of the first and of the second
/// state of its pair have in its column.
struct Pairs {
    Eight first, second;
};

template <class Pairing>
IV_INLINE Pairs load_pairs(const float* from, Eight& stray) {
    Pairs pairs{Eight::all(0.0f), Eight::all(0.0f)};
    each<8>([&](auto i) IV_INLINED {
        const Eight row = Eight::load(from + i * 8);
        Eight& rows = Pairing::is_second(i) ? pairs.second : pairs.first;
        rows = merged(rows, row);
        stray = merged(stray, rest(row, MASKS_OF<Pairing>.of(Pairing::pair_of(i))));
    });
    return pairs;
}

template <class Pairing>
IV_INLINE void store_pairs(float* to, const Pairs& pairs) {
    each<8>([&](auto i) IV_INLINED {
        const Eight& rows = Pairing::is_second(i) ? pairs.second : pairs.first;
        masked(rows, MASKS_OF<Pairing>.of(Pairing::pair_of(i))).store(to + i * 8);
    });
}

/// The matrix, transposed.
template <class Pairing>
IV_INLINE Pairs transposed(const Pairs& p) {
    return {Pairing::template select<0>(p.first, p.second),
            Pairing::template select<1>(p.first, p.second)};
}

/// start + a * b, of the rows of the first or second states: in the lane of a state the sum, over
/// the states k of its pair, of what a has of k and the row of b has of the lane.
template <class Pairing>
IV_INLINE Eight row_of_product(const Eight& start, const Eight& a, const Pairs& b) {
    const Eight sum = fused(Pairing::template select<0>(a, a), b.first, start);
    return fused(Pairing::template select<1>(a, a), b.second, sum);
}

template <class Pairing>
IV_INLINE Pairs product_of_pairs(const Pairs& start, const Pairs& a, const Pairs& b) {
    return {row_of_product<Pairing>(start.first, a.first, b),
            row_of_product<Pairing>(start.second, a.second, b)};
}

/// Zeros where everything is finite, else also NaNs.
IV_INLINE Eight times_zero(const Eight& values) {
    return map([](EightPart a) IV_INLINED { return a * 0.0f; }, values);
}
IV_INLINE Eight sum_of(const Eight& a, const Eight& b) {
    return map([](EightPart x, EightPart y) IV_INLINED { return x + y; }, a, b);
}
/// Ones where a value is a NaN.
IV_INLINE Eight unordered(const Eight& values) {
    // NOLINTNEXTLINE(misc-redundant-expression)
    return map([](EightPart a) IV_INLINED { return reinterpret_cast<EightPart>(a != a); }, values);
}
/// The lower, as integers: -0 is below everything else.
IV_INLINE Eight lower(const Eight& a, const Eight& b) {
    return map(
        [](EightPart x, EightPart y) IV_INLINED {
            const auto i = reinterpret_cast<EightBits>(x);
            const auto j = reinterpret_cast<EightBits>(y);
            return reinterpret_cast<EightPart>(choose(i < j, i, j));
        },
        a, b);
}
/// Ones where a value is -0.
IV_INLINE Eight minus_zero(const Eight& values) {
    return map(
        [](EightPart a) IV_INLINED {
            return reinterpret_cast<EightPart>(reinterpret_cast<EightBits>(a) == INT32_MIN);
        },
        values);
}

IV_INLINE bool is_clear(const Eight& bits) {
    const auto words =
        reinterpret_cast<Vector<std::uint64_t, PIECE>>(any_of(half(bits, 0), half(bits, 1)));
    return (words[0] | words[1]) == 0;
}

/// x_pre = A x_post
template <class Pairing>
[[gnu::noinline]] bool predict_state_of_pairs(const iv_kalman_t& k) {
    Eight stray = Eight::all(0.0f);
    const Pairs A = transposed<Pairing>(load_pairs<Pairing>(k.A->data.f, stray));
    const Eight x = Eight::load(k.x_post->data.f);
    const Eight x_pre =
        fused(A.second, Pairing::template select<1>(x, x),
              fused(A.first, Pairing::template select<0>(x, x), Eight::all(NOTHING<float>)));
    if (!is_clear(merged(merged(stray, unordered(times_zero(x_pre))), minus_zero(x_pre)))) {
        return false;
    }
    x_pre.store(k.x_pre->data.f);
    return true;
}

/// temp1 = A P_post', P_pre = temp1 A' + Q
template <class Pairing>
[[gnu::noinline]] bool predict_covariance_of_pairs(const iv_kalman_t& k) {
    Eight stray = Eight::all(0.0f);
    const Eight zero = stray;
    const Pairs A = load_pairs<Pairing>(k.A->data.f, stray);
    const Pairs P = load_pairs<Pairing>(k.P_post->data.f, stray);
    const Pairs Q = load_pairs<Pairing>(k.Q->data.f, stray);
    const Pairs temp1 = product_of_pairs<Pairing>({zero, zero}, A, transposed<Pairing>(P));
    const Pairs P_pre = product_of_pairs<Pairing>(Q, temp1, transposed<Pairing>(A));
    // What is not finite anywhere reaches P_pre.
    const Eight zeros = sum_of(times_zero(P_pre.first), times_zero(P_pre.second));
    const Eight lowest = lower(lower(temp1.first, temp1.second), lower(P_pre.first, P_pre.second));
    if (!is_clear(merged(merged(stray, unordered(zeros)), minus_zero(lowest)))) {
        return false;
    }
    store_pairs<Pairing>(k.temp1->data.f, temp1);
    store_pairs<Pairing>(k.P_pre->data.f, P_pre);
    return true;
}

/// Rows of 4 with a value for each pair, on the diagonal.
IV_INLINE void store_diagonal(float* to, Four values) {
    each<4>([&](auto q) IV_INLINED { store_whole(to + q * 4, both_of(values, lane_mask(q))); });
}

/// 8 rows of 4: each state has a value in the column of its pair.
template <class Pairing>
IV_INLINE void store_states(float* to, const Eight& values) {
    const Four firsts = Pairing::template of_pairs<0>(values);
    const Four seconds = Pairing::template of_pairs<1>(values);
    each<8>([&](auto i) IV_INLINED {
        store_whole(to + i * 4, both_of(Pairing::is_second(i) ? seconds : firsts,
                                        lane_mask(Pairing::pair_of(i))));
    });
}

template <class Pairing>
// One function, so that its registers are allotted once. NOLINTNEXTLINE(readability-function-size)
[[gnu::noinline]] bool correct_pairs(const iv_kalman_t& k, const float* z, WorkArea& work_area) {
    Eight stray = Eight::all(0.0f);
    const Eight zero = stray;
    const Pairs P = load_pairs<Pairing>(k.P_pre->data.f, stray);
    const Pairs P_transposed = transposed<Pairing>(P);
    Eight H = zero;
    Four R = splat<Four>(0.0f);
    Four stray_R = R;
    each<4>([&](auto q) IV_INLINED {
        const Eight row = Eight::load(k.H->data.f + q * 8);
        H = merged(H, row);
        stray = merged(stray, rest(row, MASKS_OF<Pairing>.of(q)));
        const Four row_R = load_whole<Four>(k.R->data.f + q * 4);
        R = any_of(R, row_R);
        stray_R = any_of(stray_R, outside(row_R, lane_mask(q)));
    });
    const Eight H_first = Pairing::template select<0>(H, H);
    const Eight H_second = Pairing::template select<1>(H, H);

    // temp2 = P_pre H', temp3 = H temp2 + R
    const Eight temp2 =
        fused(P_transposed.second, H_second, fused(P_transposed.first, H_first, zero));
    const Eight temp3 =
        fused(H_second, Pairing::template select<1>(temp2, temp2),
              fused(H_first, Pairing::template select<0>(temp2, temp2), Pairing::of_states(R)));

    // temp5 = z - H x_pre
    const Eight x_pre = Eight::load(k.x_pre->data.f);
    const Eight residual = fused(negated(H_second), Pairing::template select<1>(x_pre, x_pre),
                                 fused(negated(H_first), Pairing::template select<0>(x_pre, x_pre),
                                       Pairing::of_states(load_whole<Four>(z))));

    // The inverse of positive values on a diagonal: every factor of the elimination is a zero.
    const Four diagonal = Pairing::template of_pairs<0>(temp3);
    const auto inverse = [](Four values) IV_INLINED { return narrow(1.0 / widen<Pair>(values)); };
    const Four upper = __builtin_shufflevector(diagonal, diagonal, 2, 3, 2, 3);
    const Four temp4 = __builtin_shufflevector(inverse(diagonal), inverse(upper), 0, 1, 4, 5);

    // K = temp2 temp4', x_post = K temp5 + x_pre
    const Eight K = fused(temp2, Pairing::of_states(temp4), zero);
    const Eight x_post = fused(K, residual, x_pre);

    // temp1 = I - K H, P_post = temp1 P_pre'
    const Eight minus_K = negated(K);
    const Pairs temp1{fused(Pairing::template select<0>(minus_K, minus_K), H,
                            Eight::load(MASKS_OF<Pairing>.one_first)),
                      fused(Pairing::template select<1>(minus_K, minus_K), H,
                            Eight::load(MASKS_OF<Pairing>.one_second))};
    const Pairs P_post = product_of_pairs<Pairing>({zero, zero}, temp1, P_transposed);

    // What is not finite anywhere reaches P_post, x_post or temp3.
    const Eight zeros = sum_of(sum_of(times_zero(P_post.first), times_zero(P_post.second)),
                               sum_of(times_zero(x_post), times_zero(temp3)));
    const Eight lowest =
        lower(lower(lower(residual, x_post), lower(temp2, K)), lower(P_post.first, P_post.second));
    const Eight not_positive =
        map([](EightPart a) IV_INLINED { return reinterpret_cast<EightPart>(!(a > 0.0f)); }, temp3);
    stray = merged(stray, joined(stray_R, stray_R));
    stray = merged(merged(stray, unordered(zeros)), merged(not_positive, minus_zero(lowest)));
    if (!is_clear(stray)) {
        return false;
    }
    store_states<Pairing>(k.temp2->data.f, temp2);
    store_diagonal(k.temp3->data.f, diagonal);
    store_diagonal(k.temp4->data.f, temp4);
    store_whole(k.temp5->data.f, Pairing::template of_pairs<0>(residual));
    store_states<Pairing>(k.K->data.f, K);
    x_post.store(k.x_post->data.f);
    store_pairs<Pairing>(k.temp1->data.f, temp1);
    store_pairs<Pairing>(k.P_post->data.f, P_post);
    // As far as a later call can read: a pivot times its reciprocal in double rounds to 1.
    each<3>([&](auto i) IV_INLINED {
        store_whole(work_area.rows[i + 1], both_of(splat<Four>(1.0f), lane_mask(i + 1)));
    });
    store_whole(&work_area.rows[3][4], splat<Four>(0.0f));
    return true;
}

/// Whether state 0 pairs up with state 4, given a matrix that connects the states: no other pairing
/// is left to try then.
IV_INLINE bool is_half_apart(const iv_mat_t* mat) {
    return load_whole<float>(mat->data.f + 4) != 0.0f;
}

bool predict_state(const iv_kalman_t& k) {
    return is_half_apart(k.A) ? predict_state_of_pairs<HalfApart>(k)
                              : predict_state_of_pairs<Neighbours>(k);
}

bool predict_covariance(const iv_kalman_t& k) {
    return is_half_apart(k.A) ? predict_covariance_of_pairs<HalfApart>(k)
                              : predict_covariance_of_pairs<Neighbours>(k);
}

bool correct(const iv_kalman_t& k, const float* z, WorkArea& work_area) {
    return is_half_apart(k.P_pre) ? correct_pairs<HalfApart>(k, z, work_area)
                                  : correct_pairs<Neighbours>(k, z, work_area);
}

} // namespace
} // namespace iv::internal

#endif
