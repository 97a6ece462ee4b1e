// Fills, element-wise arithmetic and transpose: everything that sees storage as one flat array.
#include <algorithm>

#include "model/matrix.h"

namespace model {
namespace {

bool alike(const Mat& a, const Mat& b) {
    return a.type == b.type && a.rows == b.rows && a.cols == b.cols;
}

void copy_value(const unsigned char* from, unsigned char* to, int size) {
    unsigned char value[8];
    std::memcpy(value, from, static_cast<std::size_t>(size));
    std::memcpy(to, value, static_cast<std::size_t>(size));
}

/// Channel 0 of consecutive elements: diagonal values, each followed by a row's worth of zeros, and
/// zeros to the end. The first value is written whatever the shape.
template <class Diagonal>
void walk_diagonal(const Mat& mat, Diagonal diagonal) {
    const int size = value_size(mat.type);
    const std::ptrdiff_t element = channels_of(mat.type) * std::ptrdiff_t{size};
    const unsigned char zero[8] = {};
    const int diagonal_length = std::min(mat.rows, mat.cols);
    unsigned char* cursor = mat.data;

    copy_value(diagonal(0), cursor, size);
    cursor += element;
    for (int k = 1; k < diagonal_length; ++k) {
        for (int c = 0; c < mat.cols; ++c) {
            copy_value(zero, cursor, size);
            cursor += element;
        }
        copy_value(diagonal(k), cursor, size);
        cursor += element;
    }
    const int end = product32(mat.rows, mat.cols);
    for (int t = product32(diagonal_length - 1, mat.cols) + diagonal_length; t < end; ++t) {
        copy_value(zero, cursor, size);
        cursor += element;
    }
}

} // namespace

Mat header(int type, int rows, int cols, unsigned char* data) {
    return {type, rows, cols, product32(channels_of(type) * value_size(type), cols), data};
}

int flat_count(const Mat& mat) {
    return product32(mat.rows, product32(mat.cols, channels_of(mat.type)));
}

void setzero(const Mat& mat) {
    std::memset(mat.data, 0, static_cast<std::size_t>(product32(mat.rows, mat.step)));
}

void setidentity(const Mat& mat) {
    unsigned char one[8];
    with_depth(mat.type, [&](auto value) { store(one, 0, static_cast<decltype(value)>(1)); });
    walk_diagonal(mat, [&](int) { return one; });
}

void setdiagonal(const unsigned char* values, const Mat& mat) {
    walk_diagonal(mat, [&](int k) { return values + k * value_size(mat.type); });
}

void setone(const Mat& mat) {
    with_depth(mat.type, [&](auto value) {
        for (int i = 0; i < flat_count(mat); ++i) {
            store(mat.data, i, static_cast<decltype(value)>(1));
        }
    });
}

void neg(const Mat& src, const Mat& dst) {
    const int depth = depth_of(src.type);
    if (!alike(src, dst) || depth == U8 || depth == U16) {
        return;
    }
    with_depth(src.type, [&](auto value) {
        using T = decltype(value);
        for (int i = 0; i < flat_count(src); ++i) {
            store(dst.data, i, opposite(load<T>(src.data, i)));
        }
    });
}

void scale(const unsigned char* value, const Mat& src, const Mat& dst) {
    if (!alike(src, dst)) {
        return;
    }
    with_depth(src.type, [&](auto zero) {
        using T = decltype(zero);
        const T factor = load<T>(value, 0);
        for (int i = 0; i < flat_count(src); ++i) {
            store(dst.data, i, product(load<T>(src.data, i), factor));
        }
    });
}

void add(const Mat& src1, const Mat& src2, const Mat& dst) {
    if (!alike(src1, src2) || !alike(src1, dst)) {
        return;
    }
    with_depth(src1.type, [&](auto value) {
        using T = decltype(value);
        for (int i = 0; i < flat_count(src1); ++i) {
            store(dst.data, i, sum(load<T>(src1.data, i), load<T>(src2.data, i)));
        }
    });
}

void sub(const Mat& src1, const Mat& src2, const Mat& dst) {
    if (!alike(src1, src2) || !alike(src1, dst)) {
        return;
    }
    with_depth(src1.type, [&](auto value) {
        using T = decltype(value);
        for (int i = 0; i < flat_count(src1); ++i) {
            store(dst.data, i, difference(load<T>(src1.data, i), load<T>(src2.data, i)));
        }
    });
}

void transpose(const Mat& src, const Mat& dst) {
    if (src.type != dst.type || src.rows != dst.cols || src.cols != dst.rows) {
        return;
    }
    const int size = value_size(src.type);
    const int channels = channels_of(src.type);
    for (int i = 0; i < src.rows; ++i) {
        for (int j = 0; j < src.cols; ++j) {
            const std::ptrdiff_t from = (std::ptrdiff_t{i} * src.cols + j) * channels;
            const std::ptrdiff_t to = (std::ptrdiff_t{j} * src.rows + i) * channels;
            for (int k = 0; k < channels; ++k) {
                copy_value(src.data + (from + k) * size, dst.data + (to + k) * size, size);
            }
        }
    }
}

} // namespace model
