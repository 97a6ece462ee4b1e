/*
 * The equations of a filter with 8 states and 4 measured values, the tracker's, with everything in
 * registers. Every sum takes its terms in the order of the matrix calls that these replace, and
 * every matrix that those write is written.
 */
#ifndef LIBIV_KALMAN_FUSED_KERNEL_H
#define LIBIV_KALMAN_FUSED_KERNEL_H

#include "iv_kalman/pairs_kernel.h"
#include "iv_kalman/row.h"
#include "iv_lanes/kernels.h"
#include "iv_lanes/lanes.h"
#include "iv_matrix/inverse_kernel.h"
#include "iv_matrix/product_kernel.h"

namespace iv::internal {
namespace {

/// The columns of COUNT rows of LENGTH floats at `from`.
template <int COUNT, int LENGTH>
IV_INLINE void load_columns(const float* from, Row<COUNT> (&columns)[LENGTH]) {
    using L = Lanes<float, Row<COUNT>::BYTES>;
    constexpr int step = PIECE / static_cast<int>(sizeof(float));
    each<LENGTH / step>([&](auto group) IV_INLINED {
        each<Row<COUNT>::VECTORS>([&](auto v) IV_INLINED {
            typename L::Stored block[step];
            load_transposed<L>(block, from + v * L::COUNT * LENGTH + group * step, LENGTH);
            each<step>([&](auto s) IV_INLINED { columns[group * step + s].part[v] = block[s]; });
        });
    });
}

/// Stores rows of 8 as the columns of an 8 x 4 matrix.
IV_INLINE void store_columns(float* to, const Row<8> (&rows)[4]) {
    using V = Row<8>::V;
    each<Row<8>::VECTORS>([&](auto v) IV_INLINED {
        V block[4] = {rows[0].part[v], rows[1].part[v], rows[2].part[v], rows[3].part[v]};
        transpose_pieces(block);
        constexpr int pieces = sizeof(V) / PIECE;
        each<4>([&](auto r) IV_INLINED {
            float* at = to + (v * LANES<V> + r) * 4;
            if constexpr (pieces == 1) {
                store_whole(at, block[r]);
            } else {
                store_whole(at, low_half(block[r]));
                store_whole(at + 16, high_half(block[r]));
            }
        });
    });
}

// Sums of factors[k] * rows[k], k ascending: added to what is there, subtracted, or on their own.
template <int COUNT, int TERMS>
IV_INLINE Row<COUNT> add(Row<COUNT> sum, const float* factors, const Row<COUNT> (&rows)[TERMS]) {
    each<TERMS>([&](auto k) IV_INLINED {
        sum = sum.template with<PLUS>(load_whole<float>(factors + k), rows[k]);
    });
    return sum;
}
template <int COUNT, int TERMS>
IV_INLINE Row<COUNT> subtract(Row<COUNT> sum, const float* factors,
                              const Row<COUNT> (&rows)[TERMS]) {
    each<TERMS>([&](auto k) IV_INLINED {
        sum = sum.template with<MINUS>(load_whole<float>(factors + k), rows[k]);
    });
    return sum;
}

template <int COUNT, int TERMS>
IV_INLINE Row<COUNT> combine(const float* factors, const Row<COUNT> (&rows)[TERMS]) {
    return add(Row<COUNT>::all(NOTHING<float>), factors, rows);
}

constexpr float IDENTITY[8][8] = {{1},
                                  {0, 1},
                                  {0, 0, 1},
                                  {0, 0, 0, 1},
                                  {0, 0, 0, 0, 1},
                                  {0, 0, 0, 0, 0, 1},
                                  {0, 0, 0, 0, 0, 0, 1},
                                  {0, 0, 0, 0, 0, 0, 0, 1}};

/// x_pre = A x_post
void predict_state_8_4(const iv_kalman_t& k) {
    Row<8> columns[8];
    load_columns(k.A->data.f, columns);
    combine(k.x_post->data.f, columns).store(k.x_pre->data.f);
}

/// temp1 = A P_post', P_pre = temp1 A' + Q
void predict_covariance_8_4(const iv_kalman_t& k) {
    const bool half_apart = is_half_apart(k.A->data.f);
    if (half_apart ? predict_pairs<HalfApart>(k) : predict_pairs<Neighbours>(k)) {
        return;
    }
    const float* A = k.A->data.f;
    float* temp1 = k.temp1->data.f;
    Row<8> columns[8];
    load_columns(k.P_post->data.f, columns);
    for (std::ptrdiff_t i = 0; i < 64; i += 8) {
        combine(A + i, columns).store(temp1 + i);
    }
    load_columns(A, columns);
    for (std::ptrdiff_t i = 0; i < 64; i += 8) {
        add(Row<8>::load(k.Q->data.f + i), temp1 + i, columns).store(k.P_pre->data.f + i);
    }
}

void correct_8_4(const iv_kalman_t& k, const float* z, WorkArea& work_area) {
    const bool half_apart = is_half_apart(k.P_pre->data.f);
    if (half_apart ? correct_pairs<HalfApart>(k, z, work_area)
                   : correct_pairs<Neighbours>(k, z, work_area)) {
        return;
    }
    const float* H = k.H->data.f;
    float* temp1 = k.temp1->data.f;
    float* temp2 = k.temp2->data.f;
    float* temp3 = k.temp3->data.f;
    float* temp4 = k.temp4->data.f;
    float* temp5 = k.temp5->data.f;

    // temp2 = P_pre H', temp3 = H temp2 + R
    Row<8> P_columns[8];
    load_columns(k.P_pre->data.f, P_columns);
    Row<8> temp2_columns[4];
    each<4>([&](auto j) IV_INLINED { temp2_columns[j] = combine(H + j * 8, P_columns); });
    store_columns(temp2, temp2_columns);
    Row<4> temp2_rows[8];
    each<8>([&](auto i) IV_INLINED { temp2_rows[i] = Row<4>::load(temp2 + i * 4); });
    for (std::ptrdiff_t i = 0; i < 4; ++i) {
        add(Row<4>::load(k.R->data.f + i * 4), H + i * 8, temp2_rows).store(temp3 + i * 4);
    }

    // temp5 = z - H x_pre, while the inverse is on its way
    Row<4> H_columns[8];
    load_columns(H, H_columns);
    subtract(Row<4>::load(z), k.x_pre->data.f, H_columns).store(temp5);
    invert(work_area, 4, temp3, temp4);

    // K = temp2 temp4', x_post = K temp5 + x_pre
    Row<8> K_columns[4];
    each<4>([&](auto j) IV_INLINED { K_columns[j] = combine(temp4 + j * 4, temp2_columns); });
    store_columns(k.K->data.f, K_columns);
    add(Row<8>::load(k.x_pre->data.f), temp5, K_columns).store(k.x_post->data.f);

    // temp1 = I - K H, P_post = temp1 P_pre'
    Row<8> H_rows[4];
    each<4>([&](auto i) IV_INLINED { H_rows[i] = Row<8>::load(H + i * 8); });
    for (std::ptrdiff_t i = 0; i < 8; ++i) {
        subtract(Row<8>::load(IDENTITY[i]), k.K->data.f + i * 4, H_rows).store(temp1 + i * 8);
        combine(temp1 + i * 8, P_columns).store(k.P_post->data.f + i * 8);
    }
}

} // namespace
} // namespace iv::internal

#endif
