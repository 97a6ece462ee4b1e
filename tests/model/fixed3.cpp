#include "model/fixed3.h"

#include <cmath>

#include "model/values.h"

namespace model {
namespace {

Mat3 transposed(const Mat3& a) {
    Mat3 t;
    for (std::size_t i = 0; i < 3; ++i) {
        for (std::size_t j = 0; j < 3; ++j) {
            t[j][i] = a[i][j];
        }
    }
    return t;
}

/// a * b - c * d with the second product rounded, the first not.
template <class T>
T product_difference(T a, T b, T c, T d) {
    return std::fma(a, b, -(c * d));
}

} // namespace

/// The middle term is a product, the outer two are fused onto it, all in double precision.
float vecdotp(const Vec3& x, const Vec3& y) {
    double z = wide(x[1]) * wide(y[1]);
    z = std::fma(wide(x[0]), wide(y[0]), z);
    z = std::fma(wide(x[2]), wide(y[2]), z);
    return static_cast<float>(z);
}

Vec3 matmult_vec(const Mat3& a, const Vec3& x) {
    return {vecdotp(a[0], x), vecdotp(a[1], x), vecdotp(a[2], x)};
}

Vec3 matmult_tvec(const Mat3& a, const Vec3& x) {
    return matmult_vec(transposed(a), x);
}

Mat3 matmult_t(const Mat3& a, const Mat3& b) {
    return {matmult_vec(b, a[0]), matmult_vec(b, a[1]), matmult_vec(b, a[2])};
}

Mat3 matmult(const Mat3& a, const Mat3& b) {
    return matmult_t(a, transposed(b));
}

Mat3 matneg(const Mat3& a) {
    Mat3 result;
    for (std::size_t i = 0; i < 3; ++i) {
        for (std::size_t j = 0; j < 3; ++j) {
            result[i][j] = opposite(a[i][j]);
        }
    }
    return result;
}

float matdet(const Mat3& a) {
    const float minor0 = product_difference(a[1][1], a[2][2], a[1][2], a[2][1]);
    const float minor1 = product_difference(a[1][2], a[2][0], a[1][0], a[2][2]);
    const float minor2 = product_difference(a[1][0], a[2][1], a[1][1], a[2][0]);
    const float middle = a[0][1] * minor1;
    return std::fma(a[0][2], minor2, std::fma(a[0][0], minor0, middle));
}

Mat3 vecoutp(const Vec3& x, const Vec3& y) {
    Mat3 result;
    for (std::size_t i = 0; i < 3; ++i) {
        for (std::size_t j = 0; j < 3; ++j) {
            result[i][j] = x[i] * y[j];
        }
    }
    return result;
}

Vec3 veccrossp(const Vec3& x, const Vec3& y) {
    const auto component = [&](std::size_t i, std::size_t j) {
        return static_cast<float>(
            product_difference(wide(x[i]), wide(y[j]), wide(x[j]), wide(y[i])));
    };
    return {component(1, 2), component(2, 0), component(0, 1)};
}

} // namespace model
