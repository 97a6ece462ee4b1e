// Transpose.

#include "iv_matrix/element.h"

using namespace iv::internal;

namespace {

/// Walks the rows of `src`. In place this mirrors the upper triangle into the lower one: (j, i) is
/// written before it is read wherever j > i. The order is the behaviour.
template <class Bits>
void transpose(const iv_mat_t* src, iv_mat_t* dst) {
    const std::ptrdiff_t rows = src->rows;
    const std::ptrdiff_t cols = src->cols;
    const std::ptrdiff_t channels = IV_MAT_CN(src->type);
    const Cell<Bits>* in = cells<Bits>(src);
    Cell<Bits>* out = cells<Bits>(dst);
    for (std::ptrdiff_t i = 0; i < rows; ++i) {
        for (std::ptrdiff_t j = 0; j < cols; ++j) {
            for (std::ptrdiff_t k = 0; k < channels; ++k) {
                out[(j * rows + i) * channels + k].value = (in++)->value;
            }
        }
    }
}

} // namespace

void iv_mat_transpose(iv_mat_t* src, iv_mat_t* dst) {
    if (src->type != dst->type || src->rows != dst->cols || src->cols != dst->rows) {
        return;
    }
    visit_depth(src->type,
                [src, dst](auto tag) { transpose<BitsOf<TypeOf<decltype(tag)>>>(src, dst); });
}
