/*
 * The nearest of the centres in a few ranges. Every lane keeps the nearest that it has met, and at
 * the end the lanes are compared with each other; no branch depends on a centre, since none could
 * be foretold.
 */
#ifndef LIBIV_NEAREST_KERNEL_H
#define LIBIV_NEAREST_KERNEL_H

#include "iv_lanes/kernels.h"
#include "iv_lanes/lanes.h"

namespace iv::internal {
namespace {

/// The nearest that each lane has met.
template <class F, class I>
struct NearestOfLanes {
    F d;
    I age;

    /// Takes another in the lanes where it is nearer, or as near and older. A NaN is neither.
    IV_INLINE void meet(F other_d, I other_age) {
        const I older = choose(other_age < age, other_age, age);
        age = choose(other_d < d, other_age, choose(other_d == d, older, age));
        d = choose(other_d < d, other_d, d);
    }
};

/// The nearest of all lanes.
template <class F, class I>
IV_INLINE Nearest nearest_of(NearestOfLanes<F, I> lanes) {
    if constexpr (LANES < F >> 4) {
        NearestOfLanes<decltype(low_half(lanes.d)), decltype(low_half(lanes.age))> half{
            low_half(lanes.d), low_half(lanes.age)};
        half.meet(high_half(lanes.d), high_half(lanes.age));
        return nearest_of(half);
    } else {
        static_assert(LANES<F> == 4);
        const auto meet_moved = [&](auto order) IV_INLINED {
            lanes.meet(pick_lanes(lanes.d, lanes.d, order),
                       pick_lanes(lanes.age, lanes.age, order));
        };
        meet_moved(std::index_sequence<2, 3, 0, 1>{});
        meet_moved(std::index_sequence<1, 0, 3, 2>{});
        return {lanes.d[0], lanes.age[0]};
    }
}

/// Whole vectors are read, also behind the end of a range: what is found there counts as well.
Nearest nearest(const Centres& centres, const Range* ranges, int count, const Target& target) {
    using F = Vector<float, NARROW>;
    using I = Vector<std::int32_t, NARROW>;
    static_assert(LANES<F> <= CENTRES_BEYOND);
    const F x = splat<F>(target.x);
    const F y = splat<F>(target.y);
    const I class_bits = splat<I>(target.class_bits);
    const I c = splat<I>(target.c) & class_bits;
    const F out_of_reach = splat<F>(__builtin_inff());
    NearestOfLanes<F, I> lanes{splat<F>(NO_TRACK.d), splat<I>(NO_TRACK.age)};
    for (const Range* range = ranges; range != ranges + count; ++range) {
        unsigned i = range->first;
        do { // an empty range, too: one vector costs less than a branch
            const F dx = load_whole<F>(centres.x + i) - x;
            const F dy = load_whole<F>(centres.y + i) - y;
            const F d = dx * dx + dy * dy;
            const I agreeing = load_whole<I>(centres.c + i) & class_bits;
            lanes.meet(choose(agreeing == c, d, out_of_reach), load_whole<I>(centres.age + i));
            i += static_cast<unsigned>(LANES<F>);
        } while (i < range->end);
    }
    return nearest_of(lanes);
}

} // namespace
} // namespace iv::internal

#endif
