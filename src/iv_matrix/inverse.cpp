// The inverse: iv_mat_inv. Here operands are checked; inverse_kernel.h computes.

#include "iv_matrix/inverse.h"

#include "iv_lanes/kernels.h"
#include "iv_matrix/element.h"

namespace iv::internal {
namespace {

WorkArea work_area;

} // namespace

WorkArea& inverse_work_area() {
    return work_area;
}

int _matinv_nxn(int n, float* A, float* inv) {
    if (n > MAX_INVERSE_ORDER) {
        return -1;
    }
    if (n > 0) {
        kernels().invert(work_area, n, A, inv);
    }
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
