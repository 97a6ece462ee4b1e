// The inverse: Gauss-Jordan elimination on [A | I] in a static work area.

#include "iv_matrix/inverse.h"

#include <algorithm>
#include <utility>

#include "iv_matrix/element.h"

namespace iv::internal {
namespace {

/// Augmented rows: the matrix half in columns 0 to n - 1, the identity half in n to 2n - 1. Rows
/// and columns beyond the current order keep what earlier calls left there. The spare last row is
/// only reached when the last pivot of an order-40 matrix is zero; it stays zero.
float W[MAX_INVERSE_ORDER + 1][2 * MAX_INVERSE_ORDER];

void load(int n, const Cell<float>* values) {
    for (int i = 0; i < n; ++i) {
        for (int j = 0; j < n; ++j) {
            W[i][j] = (values++)->value;
            W[i][n + j] = i == j ? 1.0f : 0.0f;
        }
    }
}

/// Exchanges a row whose pivot is exactly zero with a row below: the first with a non-zero entry in
/// the pivot's column. The last candidate is taken unexamined, and there is no search for the
/// largest: a singular matrix goes through to infinities and NaNs. Of the last column the candidate
/// is the row below the matrix, with whatever an earlier call of larger order left there.
void repair_zero_pivot(int n, int i) {
    int k = i + 1;
    while (k < n - 1 && W[k][i] == 0.0f) {
        ++k;
    }
    for (int c = i; c < 2 * n; ++c) {
        std::swap(W[i][c], W[k][c]);
    }
    if (k == MAX_INVERSE_ORDER) {
        std::fill_n(W[k], 2 * MAX_INVERSE_ORDER, 0.0f);
    }
}

/// Clears column i in every row but the pivot's own. Factors are double, and each element is
/// rounded to float after one fused multiply-subtract. The whole row is updated: what elimination
/// leaves to the left of the pivot is not always zero, and it reaches the diagonal again.
void eliminate(int n, int i) {
    for (int j = 0; j < n; ++j) {
        if (j == i) {
            continue;
        }
        const double ratio = static_cast<double>(W[j][i]) / static_cast<double>(W[i][i]);
        for (int c = 0; c < 2 * n; ++c) {
            W[j][c] = static_cast<float>(std::fma(-ratio, static_cast<double>(W[i][c]), //
                                                  static_cast<double>(W[j][c])));
        }
    }
}

void normalise(int n) {
    for (int i = 0; i < n; ++i) {
        const double a = 1.0 / static_cast<double>(W[i][i]);
        for (int c = 0; c < 2 * n; ++c) {
            W[i][c] = static_cast<float>(static_cast<double>(W[i][c]) * a);
        }
    }
}

void store(int n, Cell<float>* values) {
    for (int i = 0; i < n; ++i) {
        for (int j = 0; j < n; ++j) {
            (values++)->value = W[i][n + j];
        }
    }
}

} // namespace

int _matinv_nxn(int n, float* A, float* inv) {
    if (n > MAX_INVERSE_ORDER) {
        return -1;
    }
    load(n, reinterpret_cast<const Cell<float>*>(A));
    for (int i = 0; i < n; ++i) {
        if (W[i][i] == 0.0f) {
            repair_zero_pivot(n, i);
        }
        eliminate(n, i);
    }
    normalise(n);
    store(n, reinterpret_cast<Cell<float>*>(inv));
    return 0;
}

} // namespace iv::internal

int iv_mat_inv(iv_mat_t* src, iv_mat_t* dst) {
    if (src->type != dst->type || src->type != IV_32F || !iv::internal::same_shape(src, dst)) {
        return -1;
    }
    // Squareness is not tested: the order is the number of rows.
    return iv::internal::_matinv_nxn(src->rows, src->data.f, dst->data.f);
}
