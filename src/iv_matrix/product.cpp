// Products: iv_mat_mul, and the fused iv_mat_muladd and iv_mat_submul.
//
// Every sum has one accumulator of the element's type and takes its terms in ascending order of the
// inner index, each by one multiply-add of the type's arithmetic. Two nests do all of it: one
// updates whole rows of the destination, so that rows of the second factor are walked in storage
// order; the other forms dot products, where the second factor is read transposed.

#include "iv_matrix/element.h"

using namespace iv::internal;

namespace {

enum class Read { AsIs, Transposed };

/// What a sum starts from: the product of the first terms, or a value that was there before.
enum class Start { FirstTerm, Addend };

enum class Sign { Plus, Minus };

struct Shape {
    std::ptrdiff_t rows;  ///< of the destination
    std::ptrdiff_t cols;  ///< of the destination
    std::ptrdiff_t inner; ///< index summed over
};

template <Sign sign, class T>
T accumulate(T sum, T a, T b) {
    if constexpr (sign == Sign::Plus) {
        return Arithmetic<T>::mul_add(sum, a, b);
    } else {
        return Arithmetic<T>::mul_sub(sum, a, b);
    }
}

/// dst = a * b (Start::FirstTerm) or dst +-= a * b (Start::Addend), a row of dst at a time.
template <class T, Read read_a, Start start, Sign sign>
void update_rows(const iv_mat_t* src1, const iv_mat_t* src2, iv_mat_t* dst, Shape shape) {
    const Cell<T>* a = cells<T>(src1);
    const Cell<T>* b = cells<T>(src2);
    Cell<T>* d = cells<T>(dst);
    for (std::ptrdiff_t i = 0; i < shape.rows; ++i, d += shape.cols) {
        const auto a_at = [=](std::ptrdiff_t k) {
            return read_a == Read::AsIs ? a[i * shape.inner + k].value
                                        : a[k * shape.rows + i].value;
        };
        std::ptrdiff_t k = 0;
        if constexpr (start == Start::FirstTerm) {
            const T factor = a_at(k);
            for (std::ptrdiff_t j = 0; j < shape.cols; ++j) {
                d[j].value = Arithmetic<T>::mul(factor, b[j].value);
            }
            ++k;
        }
        for (; k < shape.inner; ++k) {
            const T factor = a_at(k);
            const Cell<T>* b_row = b + k * shape.cols;
            for (std::ptrdiff_t j = 0; j < shape.cols; ++j) {
                d[j].value = accumulate<sign>(d[j].value, factor, b_row[j].value);
            }
        }
    }
}

/// dst = a * b' (Start::FirstTerm) or addend + a * b' (Start::Addend). The addend may be dst: each
/// of its values is read just before the same one is written.
template <class T, Start start>
void dot_rows(const iv_mat_t* src1, const iv_mat_t* src2, const iv_mat_t* addend, iv_mat_t* dst,
              Shape shape) {
    const Cell<T>* a_row = cells<T>(src1);
    Cell<T>* d = cells<T>(dst);
    for (std::ptrdiff_t i = 0; i < shape.rows; ++i, a_row += shape.inner) {
        const Cell<T>* b_row = cells<T>(src2);
        for (std::ptrdiff_t j = 0; j < shape.cols; ++j, ++d, b_row += shape.inner) {
            std::ptrdiff_t k = 0;
            T sum;
            if constexpr (start == Start::FirstTerm) {
                sum = Arithmetic<T>::mul(a_row[0].value, b_row[0].value);
                ++k;
            } else {
                sum = cells<T>(addend)[i * shape.cols + j].value;
            }
            for (; k < shape.inner; ++k) {
                sum = accumulate<Sign::Plus>(sum, a_row[k].value, b_row[k].value);
            }
            d->value = sum;
        }
    }
}

bool has_shape(const iv_mat_t* mat, int rows, int cols) {
    // A null operand where one is needed is the caller's error.
    // NOLINTNEXTLINE(clang-analyzer-core.*)
    return mat->rows == rows && mat->cols == cols;
}

/// Copies a 32-bit count of bytes, widened with its sign. Source and destination may be the same.
void copy_bytes(iv_mat_t* dst, const iv_mat_t* src, int bytes) {
    if (bytes != 0) { // memmove takes no null pointer, not even for nothing
        std::memmove(dst->data.p, src->data.p, static_cast<std::size_t>(bytes));
    }
}

constexpr int CHANNEL_BITS = 0xF8;

} // namespace

void iv_mat_mul(iv_mat_t* src1, iv_mat_t* src2, iv_mat_t* dst, int flags) {
    const int type = src1->type;
    if ((type & CHANNEL_BITS) || src2->type != type || dst->type != type) {
        return;
    }
    if (flags & IV_MAT_TRANS_SRC1) {
        if (src1->rows != src2->rows || !has_shape(dst, src1->cols, src2->cols)) {
            return;
        }
        visit_depth(type, [=](auto tag) {
            update_rows<TypeOf<decltype(tag)>, Read::Transposed, Start::FirstTerm, Sign::Plus>(
                src1, src2, dst, {dst->rows, dst->cols, src1->rows});
        });
    } else if (flags & IV_MAT_TRANS_SRC2) {
        if (src1->cols != src2->cols || !has_shape(dst, src1->rows, src2->rows)) {
            return;
        }
        visit_depth(type, [=](auto tag) {
            dot_rows<TypeOf<decltype(tag)>, Start::FirstTerm>(src1, src2, nullptr, dst,
                                                              {dst->rows, dst->cols, src1->cols});
        });
    } else {
        if (src1->cols != src2->rows || !has_shape(dst, src1->rows, src2->cols)) {
            return;
        }
        visit_depth(type, [=](auto tag) {
            update_rows<TypeOf<decltype(tag)>, Read::AsIs, Start::FirstTerm, Sign::Plus>(
                src1, src2, dst, {dst->rows, dst->cols, src1->cols});
        });
    }
}

void iv_mat_muladd(iv_mat_t* src1, iv_mat_t* src2, iv_mat_t* src3, iv_mat_t* dst, int flags) {
    const int type = src1->type;
    if ((type & CHANNEL_BITS) || src2->type != type || src3->type != type || dst->type != type) {
        return;
    }
    if (flags & IV_MAT_TRANS_SRC2) {
        if (src1->cols != src2->cols || !has_shape(src3, src1->rows, src2->rows) ||
            !same_shape(src3, dst)) {
            return;
        }
        visit_depth(type, [=](auto tag) {
            dot_rows<TypeOf<decltype(tag)>, Start::Addend>(src1, src2, src3, dst,
                                                           {dst->rows, dst->cols, src1->cols});
        });
    } else {
        if (src1->cols != src2->rows || !has_shape(src3, src1->rows, src2->cols) ||
            !same_shape(src3, dst)) {
            return;
        }
        // The row size is src2's step, whatever the steps of src3 and dst: part of the contract.
        copy_bytes(dst, src3, wrap_mul(src1->rows, src2->step));
        visit_depth(type, [=](auto tag) {
            update_rows<TypeOf<decltype(tag)>, Read::AsIs, Start::Addend, Sign::Plus>(
                src1, src2, dst, {dst->rows, dst->cols, src1->cols});
        });
    }
}

void iv_mat_submul(iv_mat_t* src1, iv_mat_t* src2, iv_mat_t* src3, iv_mat_t* dst, int flag) {
    const int type = src2->type;
    // A first operand that the identity replaces may be null, but if given its type has to fit.
    if ((type & CHANNEL_BITS) || (src1 && src1->type != type) || src3->type != type ||
        dst->type != type) {
        return;
    }
    const bool identity = flag & IV_MAT_IDENTITY_SRC1;
    if (src2->cols != src3->rows || (!identity && !has_shape(src1, src2->rows, src3->cols)) ||
        !has_shape(dst, src2->rows, src3->cols)) {
        return;
    }
    if (identity) {
        iv_mat_setidentity(dst);
    } else {
        copy_bytes(dst, src1, wrap_mul(src2->rows, src1->step));
    }
    visit_depth(type, [=](auto tag) {
        update_rows<TypeOf<decltype(tag)>, Read::AsIs, Start::Addend, Sign::Minus>(
            src2, src3, dst, {dst->rows, dst->cols, src2->cols});
    });
}
