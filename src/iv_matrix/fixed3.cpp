// Kernels of fixed size: 3x3 matrices and 3-vectors in plain float arrays, as straight-line code.

#include <cmath>

#include "libiv.h"

namespace {

/// x0 y0 + x1 y1 + x2 y2, summed in double from the middle term outwards and rounded once. The
/// product of two floats is exact in double: each term enters by one rounding, as by a fused
/// multiply-add.
float dot(float x0, float y0, float x1, float y1, float x2, float y2) {
    double sum = static_cast<double>(x1) * static_cast<double>(y1);
    sum += static_cast<double>(x0) * static_cast<double>(y0);
    sum += static_cast<double>(x2) * static_cast<double>(y2);
    return static_cast<float>(sum);
}

/// a b - c d in double, rounded once.
float difference(float a, float b, float c, float d) {
    return static_cast<float>(static_cast<double>(a) * static_cast<double>(b) -
                              static_cast<double>(c) * static_cast<double>(d));
}

/// a b - c d in single precision: c d is rounded, the rest is fused.
float minor_of(float a, float b, float c, float d) {
    return std::fma(a, b, -(c * d));
}

float dot(const float* x, const float* y) {
    return dot(x[0], y[0], x[1], y[1], x[2], y[2]);
}

float dot_column(const float* x, float (*B)[3], int j) {
    return dot(x[0], B[0][j], x[1], B[1][j], x[2], B[2][j]);
}

} // namespace

void _matmult_3x3(float (*A)[3], float (*B)[3], float (*C)[3]) {
    C[0][0] = dot_column(A[0], B, 0);
    C[0][1] = dot_column(A[0], B, 1);
    C[0][2] = dot_column(A[0], B, 2);
    C[1][0] = dot_column(A[1], B, 0);
    C[1][1] = dot_column(A[1], B, 1);
    C[1][2] = dot_column(A[1], B, 2);
    C[2][0] = dot_column(A[2], B, 0);
    C[2][1] = dot_column(A[2], B, 1);
    C[2][2] = dot_column(A[2], B, 2);
}

void _matmult_3x3t(float (*A)[3], float (*B)[3], float (*C)[3]) {
    C[0][0] = dot(A[0], B[0]);
    C[0][1] = dot(A[0], B[1]);
    C[0][2] = dot(A[0], B[2]);
    C[1][0] = dot(A[1], B[0]);
    C[1][1] = dot(A[1], B[1]);
    C[1][2] = dot(A[1], B[2]);
    C[2][0] = dot(A[2], B[0]);
    C[2][1] = dot(A[2], B[1]);
    C[2][2] = dot(A[2], B[2]);
}

void _matmult_3x3vec(float (*A)[3], float* x, float* y) {
    y[0] = dot(A[0], x);
    y[1] = dot(A[1], x);
    y[2] = dot(A[2], x);
}

void _matmult_3x3tvec(float (*A)[3], float* x, float* y) {
    y[0] = dot_column(x, A, 0);
    y[1] = dot_column(x, A, 1);
    y[2] = dot_column(x, A, 2);
}

void _matneg_3x3(float (*A)[3]) {
    A[0][0] = -A[0][0];
    A[0][1] = -A[0][1];
    A[0][2] = -A[0][2];
    A[1][0] = -A[1][0];
    A[1][1] = -A[1][1];
    A[1][2] = -A[1][2];
    A[2][0] = -A[2][0];
    A[2][1] = -A[2][1];
    A[2][2] = -A[2][2];
}

float _matdet_3x3(float (*A)[3]) {
    const float minor0 = minor_of(A[1][1], A[2][2], A[1][2], A[2][1]);
    const float minor1 = minor_of(A[1][2], A[2][0], A[1][0], A[2][2]);
    const float minor2 = minor_of(A[1][0], A[2][1], A[1][1], A[2][0]);
    float det = A[0][1] * minor1;
    det = std::fma(A[0][0], minor0, det);
    return std::fma(A[0][2], minor2, det);
}

void _vecoutp_3(float* x, float* y, float (*O)[3]) {
    O[0][0] = x[0] * y[0];
    O[0][1] = x[0] * y[1];
    O[0][2] = x[0] * y[2];
    O[1][0] = x[1] * y[0];
    O[1][1] = x[1] * y[1];
    O[1][2] = x[1] * y[2];
    O[2][0] = x[2] * y[0];
    O[2][1] = x[2] * y[1];
    O[2][2] = x[2] * y[2];
}

void _veccrossp_3(float* x, float* y, float* z) {
    z[0] = difference(x[1], y[2], x[2], y[1]);
    z[1] = difference(x[2], y[0], x[0], y[2]);
    z[2] = difference(x[0], y[1], x[1], y[0]);
}

float _vecdotp_3(float* x, float* y) {
    return dot(x, y);
}
