/*
 * A row of a small matrix in registers.
 */
#ifndef LIBIV_KALMAN_ROW_H
#define LIBIV_KALMAN_ROW_H

#include "iv_lanes/kernels.h"
#include "iv_lanes/lanes.h"

namespace iv::internal {
namespace {

/// COUNT floats side by side, in as many registers as they take.
template <int COUNT>
struct Row {
    static constexpr int BYTES = COUNT * 4 < WIDE ? COUNT * 4 : WIDE;
    static constexpr int VECTORS = COUNT * 4 / BYTES;
    using V = Vector<float, BYTES>;
    V part[VECTORS];

    IV_INLINE static Row load(const float* from) {
        Row row;
        each<VECTORS>([&](auto v) IV_INLINED { row.part[v] = load_whole<V>(from + v * LANES<V>); });
        return row;
    }
    IV_INLINE void store(float* to) const {
        each<VECTORS>([&](auto v) IV_INLINED { store_whole(to + v * LANES<V>, part[v]); });
    }
    IV_INLINE static Row all(float value) {
        Row row;
        each<VECTORS>([&](auto v) IV_INLINED { row.part[v] = splat<V>(value); });
        return row;
    }
    /// this + factor * row, or this - factor * row
    template <ProductMode MODE>
    IV_INLINE Row with(float factor, const Row& row) const {
        Row sum;
        each<VECTORS>([&](auto v) IV_INLINED {
            const V all = splat<V>(factor);
            sum.part[v] = multiply_add(MODE == MINUS ? -all : all, row.part[v], part[v]);
        });
        return sum;
    }
};

} // namespace
} // namespace iv::internal

#endif
