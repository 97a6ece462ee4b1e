// Products and fused products: every value of the result is one sum in ascending order.
#include "model/matrix.h"

namespace model {
namespace {

bool has_shape(const Mat& mat, int rows, int cols) {
    return mat.rows == rows && mat.cols == cols;
}

/// A matrix, or its transpose, as the product reads it.
struct Factor {
    const Mat& mat;
    bool transposed;

    int rows() const { return transposed ? mat.cols : mat.rows; }
    int cols() const { return transposed ? mat.rows : mat.cols; }

    template <class T>
    T at(int row, int col) const {
        const int stored_row = transposed ? col : row;
        const int stored_col = transposed ? row : col;
        return load<T>(mat.data, std::ptrdiff_t{stored_row} * mat.cols + stored_col);
    }
};

/// Replaces every value of `dst`, of rows(a) x cols(b), by what `result` makes of it and its place.
template <class T, class Result>
void each_value(const Factor& a, const Factor& b, const Mat& dst, Result result) {
    for (int i = 0; i < a.rows(); ++i) {
        for (int j = 0; j < b.cols(); ++j) {
            const std::ptrdiff_t place = std::ptrdiff_t{i} * dst.cols + j;
            store<T>(dst.data, place, result(i, j, place));
        }
    }
}

void copy_bytes(const Mat& from, const Mat& to, int bytes) {
    std::memmove(to.data, from.data, static_cast<std::size_t>(bytes));
}

} // namespace

void mul(const Mat& src1, const Mat& src2, const Mat& dst, int flags) {
    const bool first = (flags & TRANSPOSED_FIRST) != 0;
    const Factor a{src1, first};
    const Factor b{src2, !first && (flags & TRANSPOSED_SECOND) != 0};
    if (!one_channel(src1.type) || src2.type != src1.type || dst.type != src1.type ||
        a.cols() != b.rows() || !has_shape(dst, a.rows(), b.cols())) {
        return;
    }
    with_depth(src1.type, [&](auto zero) {
        using T = decltype(zero);
        each_value<T>(a, b, dst, [&](int i, int j, std::ptrdiff_t) {
            T value = product(a.at<T>(i, 0), b.at<T>(0, j));
            for (int k = 1; k < a.cols(); ++k) {
                value = plus_product(value, a.at<T>(i, k), b.at<T>(k, j));
            }
            return value;
        });
    });
}

void muladd(const Mat& src1, const Mat& src2, const Mat& src3, const Mat& dst, int flags) {
    const bool second = (flags & TRANSPOSED_SECOND) != 0;
    const Factor a{src1, false};
    const Factor b{src2, second};
    if (!one_channel(src1.type) || src2.type != src1.type || src3.type != src1.type ||
        dst.type != src1.type || a.cols() != b.rows() || !has_shape(src3, a.rows(), b.cols()) ||
        !has_shape(dst, a.rows(), b.cols())) {
        return;
    }
    if (!second) {
        copy_bytes(src3, dst, product32(src1.rows, src2.step));
    }
    const unsigned char* addend = second ? src3.data : dst.data;
    with_depth(src1.type, [&](auto zero) {
        using T = decltype(zero);
        each_value<T>(a, b, dst, [&](int i, int j, std::ptrdiff_t place) {
            T value = load<T>(addend, place);
            for (int k = 0; k < a.cols(); ++k) {
                value = plus_product(value, a.at<T>(i, k), b.at<T>(k, j));
            }
            return value;
        });
    });
}

void submul(const Mat* src1, const Mat& src2, const Mat& src3, const Mat& dst, int flag) {
    const Factor b{src2, false};
    const Factor e{src3, false};
    if (!one_channel(src2.type) || (src1 && src1->type != src2.type) || src3.type != src2.type ||
        dst.type != src2.type || b.cols() != e.rows()) {
        return;
    }
    const bool identity = (flag & IDENTITY_FIRST) != 0;
    if ((!identity && !has_shape(*src1, b.rows(), e.cols())) ||
        !has_shape(dst, b.rows(), e.cols())) {
        return;
    }
    if (identity) {
        setidentity(dst);
    } else {
        copy_bytes(*src1, dst, product32(src2.rows, src1->step));
    }
    with_depth(src2.type, [&](auto zero) {
        using T = decltype(zero);
        each_value<T>(b, e, dst, [&](int i, int j, std::ptrdiff_t place) {
            T value = load<T>(dst.data, place);
            for (int k = 0; k < b.cols(); ++k) {
                value = minus_product(value, b.at<T>(i, k), e.at<T>(k, j));
            }
            return value;
        });
    });
}

} // namespace model
