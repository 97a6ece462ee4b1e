// Products: iv_mat_mul, and the fused iv_mat_muladd and iv_mat_submul.
//
// Every sum has one accumulator of the element's type and takes its terms in ascending order of the
// inner index, each by one multiply-add of the type's arithmetic. Here operands are checked and
// described; product_kernel.h computes.

#include "iv_lanes/kernels.h"
#include "iv_matrix/element.h"

using namespace iv::internal;

namespace {

/// The kernels of an element type. The functions ask for theirs before anything else: what they know
/// by then need not outlast the call that finds the table.
using ProductKernels = ProductKernel* const[PRODUCT_MODES];

/// How the first factor is walked.
struct Factor {
    const iv_mat_t* mat;
    int row, col; ///< values to the next row and column of the factor
    int inner;    ///< its columns
};

Factor as_it_lies(const iv_mat_t* mat) {
    return {mat, mat->cols, 1, mat->cols};
}

Factor first_transposed(const iv_mat_t* mat) {
    return {mat, 1, mat->cols, mat->rows};
}

/// Rows that a kernel gets at once: it comes back to them for other columns and terms, and they
/// should still be cached.
constexpr int MOST_ROWS = 256;

/// Any number of rows, of values of `size` bytes.
[[gnu::noinline]] void compute_in_blocks(ProductKernel* kernel, const Product& p,
                                         std::ptrdiff_t size) {
    for (std::ptrdiff_t i = 0; i < p.rows; i += MOST_ROWS) {
        const std::ptrdiff_t left = p.rows - i;
        Product block = p;
        block.rows = left < MOST_ROWS ? left : MOST_ROWS;
        block.all.a = static_cast<const u08_t*>(p.all.a) + i * p.a_row * size;
        if (p.all.start) {
            block.all.start = static_cast<const u08_t*>(p.all.start) + i * p.d_row * size;
        }
        block.all.d = static_cast<u08_t*>(p.all.d) + i * p.d_row * size;
        kernel(block);
    }
}

/// dst = start + sign * a * b; without a start the first term is formed whatever the inner size.
/// Inlined, for it is a good part of what a product of 2 x 2 values costs.
[[gnu::always_inline]] inline void compute(const ProductKernels& of_type, ProductMode mode,
                                           Factor a, const iv_mat_t* b, const void* start,
                                           iv_mat_t* dst) {
    if (dst->rows < 1 || dst->cols < 1) {
        return; // kernels count on a row and a column
    }
    const int inner = start || a.inner > 0 ? a.inner : 1;
    if (dst->cols == 1 && mode != MINUS) {
        // A single column is the row it equals in storage, with the factors exchanged.
        const bool rows_of_a = a.col == 1;
        of_type[rows_of_a ? PLUS_TRANSPOSED : PLUS](
            {{b->data.p, a.mat->data.p, start, dst->data.p, dst->rows, inner},
             0,
             1,
             rows_of_a ? a.row : a.col,
             dst->rows,
             1,
             0});
    } else {
        const Product product{{a.mat->data.p, b->data.p, start, dst->data.p, dst->cols, inner},
                              a.row,
                              a.col,
                              b->cols,
                              dst->cols,
                              dst->rows,
                              mode == MINUS ? ~std::uint64_t{0} : 0};
        if (dst->rows <= MOST_ROWS) {
            of_type[mode](product);
        } else {
            compute_in_blocks(of_type[mode], product, IV_ELEM_SIZE1(dst->type));
        }
    }
}

bool has_shape(const iv_mat_t* mat, int rows, int cols) {
    // A null operand where one is needed is the caller's error.
    // NOLINTNEXTLINE(clang-analyzer-core.*)
    return mat->rows == rows && mat->cols == cols;
}

/// Where the sums of dst start that begin with the values of `src`. The contract copies rows of
/// `step` bytes to dst first; rows of just the right size, if there are any, are read where they
/// lie.
const void* placed(const iv_mat_t* src, iv_mat_t* dst, int step) {
    if (dst->rows > 0 && step == wrap_mul(dst->cols, IV_ELEM_SIZE1(dst->type))) {
        return src->data.p;
    }
    const int bytes = wrap_mul(dst->rows, step);
    if (bytes != 0) { // memmove takes no null pointer, not even for nothing
        std::memmove(dst->data.p, src->data.p, static_cast<std::size_t>(bytes));
    }
    return dst->data.p;
}

constexpr int CHANNEL_BITS = 0xF8;

} // namespace

void iv_mat_mul(iv_mat_t* src1, iv_mat_t* src2, iv_mat_t* dst, int flags) {
    const int type = src1->type;
    if ((type & CHANNEL_BITS) || src2->type != type || dst->type != type) {
        return;
    }
    const ProductKernels& of_type = kernels().product[IV_MAT_DEPTH(type)];
    ProductMode mode = PLUS;
    Factor a = as_it_lies(src1);
    bool fits = false;
    if (flags & IV_MAT_TRANS_SRC1) {
        a = first_transposed(src1);
        fits = src1->rows == src2->rows && has_shape(dst, src1->cols, src2->cols);
    } else if (flags & IV_MAT_TRANS_SRC2) {
        mode = PLUS_TRANSPOSED;
        fits = src1->cols == src2->cols && has_shape(dst, src1->rows, src2->rows);
    } else {
        fits = src1->cols == src2->rows && has_shape(dst, src1->rows, src2->cols);
    }
    if (fits) {
        compute(of_type, mode, a, src2, nullptr, dst);
    }
}

void iv_mat_muladd(iv_mat_t* src1, iv_mat_t* src2, iv_mat_t* src3, iv_mat_t* dst, int flags) {
    const int type = src1->type;
    if ((type & CHANNEL_BITS) || src2->type != type || src3->type != type || dst->type != type) {
        return;
    }
    const ProductKernels& of_type = kernels().product[IV_MAT_DEPTH(type)];
    if (flags & IV_MAT_TRANS_SRC2) {
        if (src1->cols != src2->cols || !has_shape(src3, src1->rows, src2->rows) ||
            !same_shape(src3, dst)) {
            return;
        }
        compute(of_type, PLUS_TRANSPOSED, as_it_lies(src1), src2, src3->data.p, dst);
    } else {
        if (src1->cols != src2->rows || !has_shape(src3, src1->rows, src2->cols) ||
            !same_shape(src3, dst)) {
            return;
        }
        // The row size is src2's step, whatever the steps of src3 and dst: part of the contract.
        const void* start = placed(src3, dst, src2->step);
        compute(of_type, PLUS, as_it_lies(src1), src2, start, dst);
    }
}

void iv_mat_submul(iv_mat_t* src1, iv_mat_t* src2, iv_mat_t* src3, iv_mat_t* dst, int flag) {
    const int type = src2->type;
    // A first operand that the identity replaces may be null, but if given its type has to fit.
    if ((type & CHANNEL_BITS) || (src1 && src1->type != type) || src3->type != type ||
        dst->type != type) {
        return;
    }
    const ProductKernels& of_type = kernels().product[IV_MAT_DEPTH(type)];
    const bool identity = flag & IV_MAT_IDENTITY_SRC1;
    if (src2->cols != src3->rows || (!identity && !has_shape(src1, src2->rows, src3->cols)) ||
        !has_shape(dst, src2->rows, src3->cols)) {
        return;
    }
    const void* start = dst->data.p;
    if (identity) {
        iv_mat_setidentity(dst);
    } else {
        start = placed(src1, dst, src1->step);
    }
    compute(of_type, MINUS, as_it_lies(src2), src3, start, dst);
}
