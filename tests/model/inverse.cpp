#include "model/inverse.h"

#include <algorithm>

namespace model {

InverseArea& inverse_area() {
    static InverseArea area;
    return area;
}

int inv(const Mat& src, const Mat& dst) {
    return inverse_area().invert(src, dst);
}

int InverseArea::invert(const Mat& src, const Mat& dst) {
    if (src.type != dst.type || src.rows != dst.rows || src.cols != dst.cols || src.type != F32 ||
        src.rows > MAX_ORDER) {
        return -1;
    }
    const int n = src.rows;
    build(src.data, n);
    for (int i = 0; i < n; ++i) {
        repair_zero_pivot(i, n);
        eliminate(i, n);
    }
    normalise(n);
    for (int i = 0; i < n; ++i) {
        for (int j = 0; j < n; ++j) {
            store(dst.data, std::ptrdiff_t{i} * n + j, at(i, n + j));
        }
    }
    return 0;
}

void InverseArea::build(const unsigned char* src, int n) {
    rows_.back().fill(0.0f);
    for (int i = 0; i < n; ++i) {
        for (int j = 0; j < n; ++j) {
            at(i, j) = load<float>(src, std::ptrdiff_t{i} * n + j);
            at(i, n + j) = i == j ? 1.0f : 0.0f;
        }
    }
}

/// Behind the last column the row below the matrix comes in, with what an earlier call left there.
void InverseArea::repair_zero_pivot(int i, int n) {
    if (at(i, i) != 0.0f) {
        return;
    }
    int k = i + 1;
    while (k < n - 1 && at(k, i) == 0.0f) {
        ++k;
    }
    for (int c = i; c < 2 * n; ++c) {
        std::swap(at(i, c), at(k, c));
    }
}

void InverseArea::eliminate(int i, int n) {
    for (int j = 0; j < n; ++j) {
        if (j == i) {
            continue;
        }
        const double ratio = wide(at(j, i)) / wide(at(i, i));
        for (int c = 0; c < 2 * n; ++c) {
            const double value = std::fma(-ratio, wide(at(i, c)), wide(at(j, c)));
            at(j, c) = static_cast<float>(value);
        }
    }
}

void InverseArea::normalise(int n) {
    for (int i = 0; i < n; ++i) {
        const double a = 1.0 / wide(at(i, i));
        for (int c = 0; c < 2 * n; ++c) {
            at(i, c) = static_cast<float>(wide(at(i, c)) * a);
        }
    }
}

} // namespace model
