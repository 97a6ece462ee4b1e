// Transpose.
//
// What storage may overlap fixes the result, the loop here says how; where nothing overlaps,
// transpose_kernel.h moves the elements.

#include "iv_lanes/kernels.h"
#include "iv_matrix/element.h"

using namespace iv::internal;

namespace {

/// The definition: walks the rows of `src`. In place this mirrors the upper triangle into the lower
/// one: (j, i) is written before it is read wherever j > i. The order is the behaviour.
void walk(const iv_mat_t* src, const iv_mat_t* dst) {
    const std::ptrdiff_t rows = src->rows;
    const std::ptrdiff_t cols = src->cols;
    const std::ptrdiff_t size = IV_ELEM_SIZE1(src->type);
    const std::ptrdiff_t element = IV_MAT_CN(src->type) * size;
    const u08_t* in = src->data.p;
    for (std::ptrdiff_t i = 0; i < rows; ++i) {
        for (std::ptrdiff_t j = 0; j < cols; ++j) {
            u08_t* out = dst->data.p + (j * rows + i) * element;
            for (std::ptrdiff_t k = 0; k < element; k += size, in += size) {
                copy_value(out + k, in, size);
            }
        }
    }
}

constexpr std::ptrdiff_t SHORTEST = 16; // bytes of a row or a column that a kernel takes

} // namespace

void iv_mat_transpose(iv_mat_t* src, iv_mat_t* dst) {
    if (src->type != dst->type || src->rows != dst->cols || src->cols != dst->rows) {
        return;
    }
    const std::ptrdiff_t rows = src->rows;
    const std::ptrdiff_t cols = src->cols;
    if (rows < 1 || cols < 1) {
        return;
    }
    const int size = IV_MAT_CN(src->type) * IV_ELEM_SIZE1(src->type);
    const std::ptrdiff_t bytes = rows * cols * size;
    if (!overlap(src->data.p, bytes, dst->data.p, bytes)) {
        if (rows == 1 || cols == 1) {
            std::memcpy(dst->data.p, src->data.p, static_cast<std::size_t>(bytes));
            return;
        }
        // Channels stay together: several small values move as one.
        for (int log = 0; log < 4; ++log) {
            if (size == 1 << log && rows * size >= SHORTEST && cols * size >= SHORTEST) {
                return kernels().transpose[log](src->data.p, dst->data.p, rows, cols);
            }
        }
    }
    walk(src, dst);
}
