// The product and its two transposed modes.
#include <gtest/gtest.h>

#include <limits>
#include <type_traits>

#include "support/matrix.h"

namespace {

using test::bits_of;
using test::FloatMatrix;
using test::HIGH_TYPE_BIT;
using test::Matrix;

/// A mode with operand shapes that fit: rows and columns of src1, src2 and dst.
struct Mode {
    int flags;
    int shape[3][2];
};

constexpr Mode MODES[] = {
    {0, {{2, 3}, {3, 4}, {2, 4}}},
    {IV_MAT_TRANS_SRC1, {{3, 2}, {3, 4}, {2, 4}}},
    {IV_MAT_TRANS_SRC2, {{2, 3}, {4, 3}, {2, 4}}},
};

template <typename D>
class EachDepthProduct : public ::testing::Test {};
TYPED_TEST_SUITE(EachDepthProduct, test::AllDepths, test::DepthNames);

TYPED_TEST(EachDepthProduct, RowsTimesColumns) {
    using T = typename TypeParam::Scalar;
    const int type = TypeParam::code;
    Matrix<T> a(type, 2, 3, {1, 2, 3, 4, 5, 6});
    Matrix<T> b(type, 3, 2, {1, 2, 3, 4, 5, 6});
    Matrix<T> a_transposed(type, 3, 2, {1, 4, 2, 5, 3, 6});
    Matrix<T> b_transposed(type, 2, 3, {1, 3, 5, 2, 4, 6});
    const std::vector<T> expected{22, 28, 49, 64, 99};
    Matrix<T> plain(type, 2, 2, std::vector<T>(5, T{99}));
    iv_mat_mul(a, b, plain, 0);
    EXPECT_EQ(plain.values(), expected);
    Matrix<T> first(type, 2, 2, std::vector<T>(5, T{99}));
    iv_mat_mul(a_transposed, b, first, IV_MAT_TRANS_SRC1);
    EXPECT_EQ(first.values(), expected);
    Matrix<T> second(type, 2, 2, std::vector<T>(5, T{99}));
    iv_mat_mul(a, b_transposed, second, IV_MAT_TRANS_SRC2);
    EXPECT_EQ(second.values(), expected);
}

TYPED_TEST(EachDepthProduct, ResultNeedNotBeSquare) {
    using T = typename TypeParam::Scalar;
    const int type = TypeParam::code;
    Matrix<T> row(type, 1, 2, {1, 2}), column(type, 2, 1, {1, 2});
    Matrix<T> b(type, 2, 3, {1, 2, 3, 4, 5, 6}), b_transposed(type, 3, 2, {1, 4, 2, 5, 3, 6});
    const auto product = [](int rows, int cols, iv_mat_t* src1, iv_mat_t* src2, int flags) {
        Matrix<T> d(TypeParam::code, rows, cols, {99, 99, 99, 99});
        iv_mat_mul(src1, src2, d, flags);
        return d.values();
    };
    const std::vector<T> expected{9, 12, 15, 99};
    EXPECT_EQ(product(1, 3, row, b, 0), expected);
    EXPECT_EQ(product(1, 3, column, b, IV_MAT_TRANS_SRC1), expected);
    EXPECT_EQ(product(1, 3, row, b_transposed, IV_MAT_TRANS_SRC2), expected);
    EXPECT_EQ(product(3, 1, b_transposed, column, 0), expected);
    EXPECT_EQ(product(3, 1, b, column, IV_MAT_TRANS_SRC1), expected);
    EXPECT_EQ(product(3, 1, b_transposed, row, IV_MAT_TRANS_SRC2), expected);
}

TYPED_TEST(EachDepthProduct, InnerDimensionOfOne) {
    using T = typename TypeParam::Scalar;
    const int type = TypeParam::code;
    Matrix<T> column(type, 2, 1, {2, 3});
    Matrix<T> row(type, 1, 3, {5, 6, 7});
    Matrix<T> tall(type, 3, 1, {5, 6, 7});
    Matrix<T> wide(type, 1, 2, {2, 3});
    const std::vector<T> expected{10, 12, 14, 15, 18, 21};
    Matrix<T> d(type, 2, 3, std::vector<T>(6, T{99}));
    iv_mat_mul(column, row, d, 0);
    EXPECT_EQ(d.values(), expected);
    iv_mat_setone(d);
    iv_mat_mul(wide, row, d, IV_MAT_TRANS_SRC1);
    EXPECT_EQ(d.values(), expected);
    iv_mat_setone(d);
    iv_mat_mul(column, tall, d, IV_MAT_TRANS_SRC2);
    EXPECT_EQ(d.values(), expected);
}

TYPED_TEST(EachDepthProduct, FirstTransposeWinsAndOtherBitsAreIgnored) {
    using T = typename TypeParam::Scalar;
    Matrix<T> a(TypeParam::code, 2, 2, {1, 2, 3, 4});
    Matrix<T> b(TypeParam::code, 2, 2, {5, 6, 7, 8});
    const auto product = [&](int flags) {
        Matrix<T> d(TypeParam::code, 2, 2, std::vector<T>(4, T{99}));
        iv_mat_mul(a, b, d, flags);
        return d.values();
    };
    for (const int flags : {0, 4, 8, 16, 64, ~3}) {
        EXPECT_EQ(product(flags), (std::vector<T>{19, 22, 43, 50})) << flags;
    }
    for (const int flags : {1, 3, 17, -1}) {
        EXPECT_EQ(product(flags), (std::vector<T>{26, 30, 38, 44})) << flags;
    }
    for (const int flags : {2, 18, ~1}) {
        EXPECT_EQ(product(flags), (std::vector<T>{17, 23, 39, 53})) << flags;
    }
}

TYPED_TEST(EachDepthProduct, AnyShapeMismatchLeavesTheDestinationUntouched) {
    using T = typename TypeParam::Scalar;
    const std::vector<T> ones(30, T{1}), nines(30, T{9});
    for (const Mode& mode : MODES) {
        for (int changed = 0; changed < 6; ++changed) {
            for (const int by : {-1, 1}) {
                Mode m = mode;
                m.shape[changed / 2][changed % 2] += by;
                Matrix<T> a(TypeParam::code, m.shape[0][0], m.shape[0][1], ones);
                Matrix<T> b(TypeParam::code, m.shape[1][0], m.shape[1][1], ones);
                Matrix<T> d(TypeParam::code, m.shape[2][0], m.shape[2][1], nines);
                iv_mat_mul(a, b, d, m.flags);
                EXPECT_EQ(d.values(), nines)
                    << "flags " << m.flags << ", dimension " << changed << " by " << by;
            }
        }
    }
}

TYPED_TEST(EachDepthProduct, TransposedDestinationShapeIsRefused) {
    using T = typename TypeParam::Scalar;
    const std::vector<T> ones(12, T{1}), nines(12, T{9});
    for (const Mode& m : MODES) {
        Matrix<T> a(TypeParam::code, m.shape[0][0], m.shape[0][1], ones);
        Matrix<T> b(TypeParam::code, m.shape[1][0], m.shape[1][1], ones);
        Matrix<T> d(TypeParam::code, 4, 2, nines);
        iv_mat_mul(a, b, d, m.flags);
        EXPECT_EQ(d.values(), nines) << "flags " << m.flags;
    }
}

TYPED_TEST(EachDepthProduct, AnyTypeMismatchLeavesTheDestinationUntouched) {
    using T = typename TypeParam::Scalar;
    const int type = TypeParam::code;
    for (const int other : {type ^ 1, IV_MAKETYPE(type, 2), type | HIGH_TYPE_BIT}) {
        for (int operand = 0; operand < 3; ++operand) {
            Matrix<T> a(operand == 0 ? other : type, 2, 2, std::vector<T>(8, T{1}));
            Matrix<T> b(operand == 1 ? other : type, 2, 2, std::vector<T>(8, T{1}));
            Matrix<T> d(operand == 2 ? other : type, 2, 2, std::vector<T>(8, T{9}));
            for (const int flags : {0, 1, 2}) {
                iv_mat_mul(a, b, d, flags);
                EXPECT_EQ(d.values(), std::vector<T>(8, T{9})) << "operand " << operand;
            }
        }
    }
}

TYPED_TEST(EachDepthProduct, ChannelsAreRefusedAndHigherBitsAreNot) {
    using T = typename TypeParam::Scalar;
    for (const int channels : {2, 3, 5, 9, 17, 32}) {
        const int type = IV_MAKETYPE(TypeParam::code, channels);
        Matrix<T> a(type, 1, 1, std::vector<T>(32, T{2}));
        Matrix<T> d(type, 1, 1, std::vector<T>(32, T{9}));
        for (const int flags : {0, 1, 2}) {
            iv_mat_mul(a, a, d, flags);
            EXPECT_EQ(d.values(), std::vector<T>(32, T{9})) << channels << " channels";
        }
    }
    Matrix<T> a(TypeParam::code | HIGH_TYPE_BIT, 1, 1, {2});
    Matrix<T> d(TypeParam::code | HIGH_TYPE_BIT, 1, 1, {9});
    iv_mat_mul(a, a, d, 0);
    EXPECT_EQ(d.values(), std::vector<T>{4});
}

TYPED_TEST(EachDepthProduct, EmptyResultWritesNothing) {
    using T = typename TypeParam::Scalar;
    const int type = TypeParam::code;
    const std::vector<T> ones(9, T{1}), nines(9, T{9});
    for (const int length : {0, -1, -3}) {
        Matrix<T> full(type, 3, 3, ones);
        Matrix<T> no_rows(type, length, 3, ones), no_columns(type, 3, length, ones);
        Matrix<T> d(type, length, 3, nines);
        iv_mat_mul(no_rows, full, d, 0);
        iv_mat_mul(no_columns, full, d, IV_MAT_TRANS_SRC1);
        iv_mat_mul(no_rows, full, d, IV_MAT_TRANS_SRC2);
        EXPECT_EQ(d.values(), nines) << length << " rows";
        Matrix<T> e(type, 3, length, nines);
        iv_mat_mul(full, no_columns, e, 0);
        iv_mat_mul(full, no_columns, e, IV_MAT_TRANS_SRC1);
        iv_mat_mul(full, no_rows, e, IV_MAT_TRANS_SRC2);
        EXPECT_EQ(e.values(), nines) << length << " columns";
    }
}

TYPED_TEST(EachDepthProduct, InnerDimensionOfZeroStillFormsTheFirstTerm) {
    using T = typename TypeParam::Scalar;
    const int type = TypeParam::code;
    Matrix<T> flat(type, 1, 0, {3}), also_flat(type, 1, 0, {5});
    Matrix<T> tall(type, 0, 1, {3}), also_tall(type, 0, 1, {5});
    Matrix<T> d(type, 1, 1, {99});
    iv_mat_mul(flat, also_tall, d, 0);
    EXPECT_EQ(d.values(), std::vector<T>{15});
    iv_mat_setone(d);
    iv_mat_mul(tall, also_tall, d, IV_MAT_TRANS_SRC1);
    EXPECT_EQ(d.values(), std::vector<T>{15});
    iv_mat_setone(d);
    iv_mat_mul(flat, also_flat, d, IV_MAT_TRANS_SRC2);
    EXPECT_EQ(d.values(), std::vector<T>{15});
}

TYPED_TEST(EachDepthProduct, SharedStorageIsNotDetected) {
    using T = typename TypeParam::Scalar;
    Matrix<T> a(TypeParam::code, 2, 2, {1, 2, 3, 4});
    Matrix<T> b(TypeParam::code, 2, 2, {2, 1, 1, 3});
    iv_mat_mul(a, b, a, 0);
    EXPECT_NE(a.values(), (std::vector<T>{1, 2, 3, 4}));
}

TYPED_TEST(EachDepthProduct, TwoRowsGiveTheirDotProduct) {
    using T = typename TypeParam::Scalar;
    Matrix<T> a(TypeParam::code, 1, 5, {1, 2, 3, 4, 5});
    Matrix<T> b(TypeParam::code, 1, 5, {5, 4, 3, 2, 1});
    Matrix<T> d(TypeParam::code, 1, 1, {99});
    iv_mat_mul(a, b, d, IV_MAT_TRANS_SRC2);
    EXPECT_EQ(d.values(), std::vector<T>{35});
}

TYPED_TEST(EachDepthProduct, IntegersWrapAround) {
    using T = typename TypeParam::Scalar;
    if constexpr (std::is_integral_v<T>) {
        constexpr T high = std::numeric_limits<T>::max();
        Matrix<T> row(TypeParam::code, 1, 2, {high, high});
        Matrix<T> column(TypeParam::code, 2, 1, {high, high});
        Matrix<T> d(TypeParam::code, 1, 1, {99});
        iv_mat_mul(row, column, d, 0);
        EXPECT_EQ(d.values(), std::vector<T>{2});
        iv_mat_setone(d);
        iv_mat_mul(column, column, d, IV_MAT_TRANS_SRC1);
        EXPECT_EQ(d.values(), std::vector<T>{2});
        iv_mat_setone(d);
        iv_mat_mul(row, row, d, IV_MAT_TRANS_SRC2);
        EXPECT_EQ(d.values(), std::vector<T>{2});
    }
}

TYPED_TEST(EachDepthProduct, StepIsNotRead) {
    using T = typename TypeParam::Scalar;
    Matrix<T> a(TypeParam::code, 2, 2, {1, 2, 3, 4});
    Matrix<T> b(TypeParam::code, 2, 2, {5, 6, 7, 8});
    Matrix<T> d(TypeParam::code, 2, 2, {99, 99, 99, 99, 99});
    a->step = b->step = d->step = 3 * static_cast<int>(sizeof(T));
    iv_mat_mul(a, b, d, 0);
    EXPECT_EQ(d.values(), (std::vector<T>{19, 22, 43, 50, 99}));
}

TEST(MatrixProduct, BytesKeepTheLowBits) {
    Matrix<u08_t> a(IV_8U, 1, 1, {200}), b(IV_8U, 1, 1, {2}), d(IV_8U, 1, 1, {9});
    iv_mat_mul(a, b, d, 0);
    EXPECT_EQ(d.values(), std::vector<u08_t>{144});
    Matrix<s08_t> e(IV_8S, 1, 1, {100}), f(IV_8S, 1, 1, {2}), g(IV_8S, 1, 1, {9});
    iv_mat_mul(e, f, g, 0);
    EXPECT_EQ(g.values(), std::vector<s08_t>{-56});
}

/// The dot product of two vectors in the three modes, which must agree to the bit.
template <typename T>
T dot(int type, const std::vector<T>& x, const std::vector<T>& y) {
    const int n = static_cast<int>(x.size());
    Matrix<T> row(type, 1, n, x), column(type, n, 1, x);
    Matrix<T> other_row(type, 1, n, y), other_column(type, n, 1, y);
    Matrix<T> d(type, 1, 1, {T{0}}), e(type, 1, 1, {T{0}}), f(type, 1, 1, {T{0}});
    iv_mat_mul(row, other_column, d, 0);
    iv_mat_mul(column, other_column, e, IV_MAT_TRANS_SRC1);
    iv_mat_mul(row, other_row, f, IV_MAT_TRANS_SRC2);
    EXPECT_EQ(bits_of(d.values()[0]), bits_of(e.values()[0])) << d.values()[0];
    EXPECT_EQ(bits_of(d.values()[0]), bits_of(f.values()[0])) << d.values()[0];
    return d.values()[0];
}

// The square of 1 + 2^-12 is 1 + 2^-11 + 2^-24; the last term is lost when the square is rounded.
constexpr float V = 1 + 0x1p-12f;
constexpr double W = 1 + 0x1p-27;

TEST(MatrixProduct, FirstTermIsRoundedBeforeTheNextIsAdded) {
    EXPECT_EQ(dot<float>(IV_32F, {V, -1.0f}, {V, 1 + 0x1p-11f}), 0.0f);
    EXPECT_EQ(dot<double>(IV_64F, {W, -1.0}, {W, 1 + 0x1p-26}), 0.0);
}

TEST(MatrixProduct, LaterTermsAreFused) {
    EXPECT_EQ(dot<float>(IV_32F, {-1.0f, V}, {1 + 0x1p-11f, V}), 0x1p-24f);
    EXPECT_EQ(dot<double>(IV_64F, {-1.0, W}, {1 + 0x1p-26, W}), 0x1p-54);
}

TEST(MatrixProduct, FusedTermsRoundOnceInSinglePrecision) {
    EXPECT_EQ(dot<float>(IV_32F, {0x1p-60f, V}, {1.0f, V}), 1 + 0x1p-11f + 0x1p-23f);
}

TEST(MatrixProduct, TermsEnterInAscendingOrder) {
    for (const std::size_t n : {2u, 3u, 4u, 5u, 8u, 9u, 17u}) {
        std::vector<float> x(n, 0x1p-24f);
        x[0] = 1.0f;
        EXPECT_EQ(dot<float>(IV_32F, x, std::vector<float>(n, 1.0f)), 1.0f) << n << " terms";
        std::vector<double> y(n, 0x1p-53);
        y[0] = 1.0;
        EXPECT_EQ(dot<double>(IV_64F, y, std::vector<double>(n, 1.0)), 1.0) << n << " terms";
    }
    EXPECT_EQ(dot<float>(IV_32F, {1.0f, 0x1p-24f, -1.0f, 0x1p-30f}, {1, 1, 1, 1}), 0x1p-30f);
}

TEST(MatrixProduct, NothingIsSummedFromZero) {
    EXPECT_EQ(bits_of(dot<float>(IV_32F, {-0.0f}, {1.0f})), 0x80000000u);
    EXPECT_EQ(bits_of(dot<double>(IV_64F, {-0.0}, {1.0})), 0x8000000000000000u);
}

} // namespace
