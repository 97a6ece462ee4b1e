// The kernels on 3x3 matrices and 3-vectors.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <vector>

#include "support/matrix.h"

namespace {

using test::bits_of;

using Vector = std::array<float, 3>;

/// A 3x3 matrix as the kernels take it.
struct Matrix3 {
    float rows[3][3];
    std::vector<float> values() const {
        std::vector<float> result(9);
        std::memcpy(result.data(), rows, sizeof rows);
        return result;
    }
};

constexpr Matrix3 ASCENDING = {{{1, 2, 3}, {4, 5, 6}, {7, 8, 9}}};
constexpr Matrix3 DESCENDING = {{{9, 8, 7}, {6, 5, 4}, {3, 2, 1}}};

TEST(Fixed3, ProductOfTwoMatrices) {
    Matrix3 a = ASCENDING, b = DESCENDING, c = {};
    _matmult_3x3(a.rows, b.rows, c.rows);
    EXPECT_EQ(c.values(), (std::vector<float>{30, 24, 18, 84, 69, 54, 138, 114, 90}));
}

TEST(Fixed3, ProductWithATransposedMatrix) {
    Matrix3 a = ASCENDING, b = DESCENDING, c = {};
    _matmult_3x3t(a.rows, b.rows, c.rows);
    EXPECT_EQ(c.values(), (std::vector<float>{46, 28, 10, 118, 73, 28, 190, 118, 46}));
}

TEST(Fixed3, ProductWithItsOwnTransposeIsSymmetric) {
    Matrix3 a = ASCENDING, c = {};
    _matmult_3x3t(a.rows, a.rows, c.rows);
    EXPECT_EQ(c.values(), (std::vector<float>{14, 32, 50, 32, 77, 122, 50, 122, 194}));
    _matmult_3x3(a.rows, a.rows, c.rows);
    EXPECT_EQ(c.values(), (std::vector<float>{30, 36, 42, 66, 81, 96, 102, 126, 150}));
}

TEST(Fixed3, MatrixTimesVector) {
    Matrix3 a = ASCENDING;
    Vector x = {1, 2, 3}, y = {};
    _matmult_3x3vec(a.rows, x.data(), y.data());
    EXPECT_EQ(y, (Vector{14, 32, 50}));
}

TEST(Fixed3, TransposedMatrixTimesVectorEqualsTheProductWithTheTranspose) {
    Matrix3 a = ASCENDING, transposed = {{{1, 4, 7}, {2, 5, 8}, {3, 6, 9}}};
    Vector x = {1, 2, 3}, y = {}, z = {};
    _matmult_3x3tvec(a.rows, x.data(), y.data());
    _matmult_3x3vec(transposed.rows, x.data(), z.data());
    EXPECT_EQ(y, (Vector{30, 36, 42}));
    EXPECT_EQ(y, z);
}

/// The dot product of two vectors in every place of every kernel that sums products.
void expect_dot(const Vector& x, const Vector& y, float expected) {
    Vector left = x, right = y, out = {};
    EXPECT_EQ(_vecdotp_3(left.data(), right.data()), expected);
    Matrix3 rows = {}, columns = {}, other_rows = {}, c = {};
    for (std::size_t i = 0; i < 3; ++i) {
        for (std::size_t k = 0; k < 3; ++k) {
            rows.rows[i][k] = x[k];
            other_rows.rows[i][k] = y[k];
            columns.rows[k][i] = y[k];
        }
    }
    const std::vector<float> everywhere(9, expected);
    _matmult_3x3(rows.rows, columns.rows, c.rows);
    EXPECT_EQ(c.values(), everywhere) << "_matmult_3x3";
    _matmult_3x3t(rows.rows, other_rows.rows, c.rows);
    EXPECT_EQ(c.values(), everywhere) << "_matmult_3x3t";
    _matmult_3x3vec(rows.rows, right.data(), out.data());
    EXPECT_EQ(out, (Vector{expected, expected, expected})) << "_matmult_3x3vec";
    _matmult_3x3tvec(columns.rows, left.data(), out.data());
    EXPECT_EQ(out, (Vector{expected, expected, expected})) << "_matmult_3x3tvec";
}

// The square of V is R + 2^-24; the last term is lost when the square is rounded.
constexpr float V = 1 + 0x1p-12f;
constexpr float R = 1 + 0x1p-11f;

TEST(Fixed3, SumsAreKeptInDoublePrecision) {
    expect_dot({0x1p24f, 1, -0x1p24f}, {1, 1, 1}, 1.0f);
    expect_dot({V, 1, 0}, {V, -R, 0}, 0x1p-24f);
    expect_dot({0, V, 1}, {0, V, -R}, 0x1p-24f);
    expect_dot({1, 0, V}, {-R, 0, V}, 0x1p-24f);
}

TEST(Fixed3, FirstTwoTermsAreAddedBeforeTheThird) {
    expect_dot({0x1p30f, 1, -0x1p30f}, {0x1p30f, 1, 0x1p30f}, 0.0f);
    expect_dot({1, 0x1p30f, 0x1p30f}, {1, 0x1p30f, -0x1p30f}, 0.0f);
    expect_dot({0x1p30f, 0x1p30f, 1}, {0x1p30f, -0x1p30f, 1}, 1.0f);
}

TEST(Fixed3, NegationFlipsEverySignAndTwiceRestoresEveryBit) {
    std::array<unsigned, 9> bits = {0x00000000u, 0x80000000u, 0x3f800000u, 0x7fa12345u, 0xffc00001u,
                                    0x7f800000u, 0xff800000u, 0x00000001u, 0xc0490fdbu};
    for (int turn = 0; turn < 9; ++turn) {
        std::array<unsigned, 9> flipped = bits;
        for (unsigned& value : flipped) {
            value ^= 0x80000000u;
        }
        Matrix3 a;
        std::array<unsigned, 9> result;
        std::memcpy(&a, bits.data(), sizeof a);
        _matneg_3x3(a.rows);
        std::memcpy(result.data(), &a, sizeof a);
        EXPECT_EQ(result, flipped);
        _matneg_3x3(a.rows);
        std::memcpy(result.data(), &a, sizeof a);
        EXPECT_EQ(result, bits);
        std::rotate(bits.begin(), bits.begin() + 1, bits.end());
    }
}

float determinant(Matrix3 a) {
    return _matdet_3x3(a.rows);
}

TEST(Fixed3, DeterminantOfTheIdentityIsOneAndOfASingularMatrixZero) {
    EXPECT_EQ(determinant({{{1, 0, 0}, {0, 1, 0}, {0, 0, 1}}}), 1.0f);
    EXPECT_EQ(determinant(ASCENDING), 0.0f);
}

TEST(Fixed3, DeterminantExpandsAlongTheFirstRow) {
    EXPECT_EQ(determinant({{{2, 0, 0}, {0, 3, 5}, {0, 7, 11}}}), -4.0f);
    EXPECT_EQ(determinant({{{0, 2, 0}, {3, 0, 5}, {7, 0, 11}}}), 4.0f);
    EXPECT_EQ(determinant({{{0, 0, 2}, {3, 5, 0}, {7, 11, 0}}}), -4.0f);
    EXPECT_EQ(determinant({{{2, 3, 5}, {7, 11, 13}, {17, 19, 23}}}), -78.0f);
}

TEST(Fixed3, MinorsRoundTheirSecondProductAndFuseTheFirst) {
    EXPECT_EQ(determinant({{{1, 0, 0}, {0, V, R}, {0, 1, V}}}), 0x1p-24f);
    EXPECT_EQ(determinant({{{1, 0, 0}, {0, R, V}, {0, V, 1}}}), 0.0f);
    EXPECT_EQ(determinant({{{0, 1, 0}, {R, 0, V}, {V, 0, 1}}}), 0x1p-24f);
    EXPECT_EQ(determinant({{{0, 1, 0}, {V, 0, R}, {1, 0, V}}}), 0.0f);
    EXPECT_EQ(determinant({{{0, 0, 1}, {V, R, 0}, {1, V, 0}}}), 0x1p-24f);
    EXPECT_EQ(determinant({{{0, 0, 1}, {R, V, 0}, {V, 1, 0}}}), 0.0f);
}

// Rows (p, q, 0) and (0, t, 1) have the minors q, -p and p * t.
TEST(Fixed3, DeterminantRoundsTheSecondTermAndFusesTheOthersInOrder) {
    EXPECT_EQ(determinant({{{1, V, 0}, {-V, -R, 0}, {0, 0, 1}}}), 0.0f);
    EXPECT_EQ(determinant({{{V, 1, 0}, {R, V, 0}, {0, 0, 1}}}), 0x1p-24f);
    EXPECT_EQ(determinant({{{0, -R, V}, {-1, 0, 0}, {0, -V, 1}}}), 0x1p-24f);
    EXPECT_EQ(determinant({{{0x1p-24f, 1, -1}, {-1, 1, 0}, {0, -1, 1}}}), 0.0f);
}

TEST(Fixed3, DeterminantStaysInSinglePrecision) {
    EXPECT_EQ(determinant({{{0x1p-24f, 1, 0}, {-1, 1, 0}, {0, 0, 1}}}), 1.0f);
    EXPECT_EQ(determinant({{{0x1p-24f, 1, -0.5f}, {-1, 1, 0}, {0, -1, 1}}}), 0.5f);
}

TEST(Fixed3, OuterProduct) {
    Vector x = {1, 2, 3}, y = {4, 5, 6};
    Matrix3 o = {};
    _vecoutp_3(x.data(), y.data(), o.rows);
    EXPECT_EQ(o.values(), (std::vector<float>{4, 5, 6, 8, 10, 12, 12, 15, 18}));
    Vector v = {V, 0, 0};
    _vecoutp_3(v.data(), v.data(), o.rows);
    EXPECT_EQ(o.rows[0][0], R);
}

Vector cross(Vector x, Vector y) {
    Vector z = {};
    _veccrossp_3(x.data(), y.data(), z.data());
    return z;
}

TEST(Fixed3, CrossProduct) {
    EXPECT_EQ(cross({1, 0, 0}, {0, 1, 0}), (Vector{0, 0, 1}));
    EXPECT_EQ(cross({2, 3, 5}, {7, 11, 13}), (Vector{-16, 9, 1}));
    EXPECT_EQ(cross({0.1f, V, 0x1p70f}, {0.1f, V, 0x1p70f}), (Vector{0, 0, 0}));
}

TEST(Fixed3, CrossProductKeepsBothProductsInDoublePrecision) {
    EXPECT_EQ(cross({0, R, V}, {0, V, 1}), (Vector{-0x1p-24f, 0, 0}));
    EXPECT_EQ(cross({V, 0, R}, {1, 0, V}), (Vector{0, -0x1p-24f, 0}));
    EXPECT_EQ(cross({R, V, 0}, {V, 1, 0}), (Vector{0, 0, -0x1p-24f}));
    EXPECT_EQ(cross({0, V, R}, {0, 1, V}), (Vector{0x1p-24f, 0, 0}));
}

TEST(Fixed3, InputsMayBeOneArray) {
    Vector x = {1, 2, 3};
    EXPECT_EQ(_vecdotp_3(x.data(), x.data()), 14.0f);
    Matrix3 o = {};
    _vecoutp_3(x.data(), x.data(), o.rows);
    EXPECT_EQ(o.values(), (std::vector<float>{1, 2, 3, 2, 4, 6, 3, 6, 9}));
}

} // namespace
