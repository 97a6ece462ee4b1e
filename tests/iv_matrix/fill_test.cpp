// Identity, diagonal and ones.
#include <gtest/gtest.h>

#include "support/matrix.h"

namespace {

using test::FloatMatrix;
using test::Matrix;

template <typename D>
class EachDepthFill : public ::testing::Test {};
TYPED_TEST_SUITE(EachDepthFill, test::AllDepths, test::DepthNames);

TYPED_TEST(EachDepthFill, IdentityHasOnesOnTheDiagonalAndZerosElsewhere) {
    using T = typename TypeParam::Scalar;
    Matrix<T> mat(TypeParam::code, 3, 3, std::vector<T>(9, T{9}));
    iv_mat_setidentity(mat);
    EXPECT_EQ(mat.values(), (std::vector<T>{1, 0, 0, 0, 1, 0, 0, 0, 1}));
}

TYPED_TEST(EachDepthFill, IdentityOfAWideAndATallMatrix) {
    using T = typename TypeParam::Scalar;
    Matrix<T> wide(TypeParam::code, 2, 3, std::vector<T>(6, T{9}));
    iv_mat_setidentity(wide);
    EXPECT_EQ(wide.values(), (std::vector<T>{1, 0, 0, 0, 1, 0}));
    Matrix<T> tall(TypeParam::code, 3, 2, std::vector<T>(6, T{9}));
    iv_mat_setidentity(tall);
    EXPECT_EQ(tall.values(), (std::vector<T>{1, 0, 0, 1, 0, 0}));
    Matrix<T> column(TypeParam::code, 3, 1, std::vector<T>(3, T{9}));
    iv_mat_setidentity(column);
    EXPECT_EQ(column.values(), (std::vector<T>{1, 0, 0}));
    Matrix<T> row(TypeParam::code, 1, 3, std::vector<T>(3, T{9}));
    iv_mat_setidentity(row);
    EXPECT_EQ(row.values(), (std::vector<T>{1, 0, 0}));
}

TYPED_TEST(EachDepthFill, IdentityLeavesOtherChannelsUntouched) {
    using T = typename TypeParam::Scalar;
    Matrix<T> mat(IV_MAKETYPE(TypeParam::code, 2), 2, 2, std::vector<T>(8, T{9}));
    iv_mat_setidentity(mat);
    EXPECT_EQ(mat.values(), (std::vector<T>{1, 9, 0, 9, 0, 9, 1, 9}));
}

TYPED_TEST(EachDepthFill, IdentityOfAnEmptyMatrixWritesTheFirstElementAllTheSame) {
    using T = typename TypeParam::Scalar;
    Matrix<T> no_columns(TypeParam::code, 2, 0, std::vector<T>(3, T{9}));
    iv_mat_setidentity(no_columns);
    EXPECT_EQ(no_columns.values(), (std::vector<T>{1, 9, 9}));
    Matrix<T> no_rows(TypeParam::code, 0, 3, std::vector<T>(6, T{9}));
    iv_mat_setidentity(no_rows);
    EXPECT_EQ(no_rows.values(), (std::vector<T>{1, 0, 0, 0, 9, 9}));
    Matrix<T> nothing(TypeParam::code, 0, 0, std::vector<T>(2, T{9}));
    iv_mat_setidentity(nothing);
    EXPECT_EQ(nothing.values(), (std::vector<T>{1, 9}));
}

TYPED_TEST(EachDepthFill, DiagonalTakesTheCallersValues) {
    using T = typename TypeParam::Scalar;
    std::vector<T> diagonal{5, 6, 7};
    Matrix<T> mat(TypeParam::code, 3, 3, std::vector<T>(9, T{9}));
    iv_mat_setdiagonal(diagonal.data(), mat);
    EXPECT_EQ(mat.values(), (std::vector<T>{5, 0, 0, 0, 6, 0, 0, 0, 7}));
    Matrix<T> tall(TypeParam::code, 4, 2, std::vector<T>(8, T{9}));
    iv_mat_setdiagonal(diagonal.data(), tall);
    EXPECT_EQ(tall.values(), (std::vector<T>{5, 0, 0, 6, 0, 0, 0, 0}));
    Matrix<T> two(IV_MAKETYPE(TypeParam::code, 2), 2, 2, std::vector<T>(8, T{9}));
    iv_mat_setdiagonal(diagonal.data(), two);
    EXPECT_EQ(two.values(), (std::vector<T>{5, 9, 0, 9, 0, 9, 6, 9}));
}

TYPED_TEST(EachDepthFill, DiagonalOfAnEmptyMatrixReadsAndWritesOneValue) {
    using T = typename TypeParam::Scalar;
    std::vector<T> diagonal{5};
    Matrix<T> no_columns(TypeParam::code, 3, 0, std::vector<T>(2, T{9}));
    iv_mat_setdiagonal(diagonal.data(), no_columns);
    EXPECT_EQ(no_columns.values(), (std::vector<T>{5, 9}));
    Matrix<T> no_rows(TypeParam::code, 0, 2, std::vector<T>(4, T{9}));
    iv_mat_setdiagonal(diagonal.data(), no_rows);
    EXPECT_EQ(no_rows.values(), (std::vector<T>{5, 0, 0, 9}));
    // Counted from (-1 - 1) * 3 - 1 up to -1 * 3.
    Matrix<T> negative(TypeParam::code, -1, 3, std::vector<T>(6, T{9}));
    iv_mat_setdiagonal(diagonal.data(), negative);
    EXPECT_EQ(negative.values(), (std::vector<T>{5, 0, 0, 0, 0, 9}));
}

TYPED_TEST(EachDepthFill, OnesFillAllChannels) {
    using T = typename TypeParam::Scalar;
    Matrix<T> mat(IV_MAKETYPE(TypeParam::code, 3), 2, 2, std::vector<T>(13, T{9}));
    iv_mat_setone(mat);
    std::vector<T> expected(12, T{1});
    expected.push_back(T{9});
    EXPECT_EQ(mat.values(), expected);
}

TYPED_TEST(EachDepthFill, OnesOfAnEmptyMatrixWriteNothing) {
    using T = typename TypeParam::Scalar;
    Matrix<T> mat(TypeParam::code, 0, 2, std::vector<T>(2, T{9}));
    iv_mat_setone(mat);
    mat->rows = 2;
    mat->cols = -1;
    iv_mat_setone(mat);
    mat->rows = 65536;
    mat->cols = 65536;
    iv_mat_setone(mat);
    EXPECT_EQ(mat.values(), std::vector<T>(2, T{9}));
}

TYPED_TEST(EachDepthFill, StepIsNotRead) {
    using T = typename TypeParam::Scalar;
    std::vector<T> diagonal{5, 6};
    Matrix<T> mat(TypeParam::code, 2, 2, std::vector<T>(6, T{9}));
    mat->step = 3 * static_cast<int>(sizeof(T));
    iv_mat_setidentity(mat);
    EXPECT_EQ(mat.values(), (std::vector<T>{1, 0, 0, 1, 9, 9}));
    iv_mat_setdiagonal(diagonal.data(), mat);
    EXPECT_EQ(mat.values(), (std::vector<T>{5, 0, 0, 6, 9, 9}));
    iv_mat_setone(mat);
    EXPECT_EQ(mat.values(), (std::vector<T>{1, 1, 1, 1, 9, 9}));
}

TYPED_TEST(EachDepthFill, BitsAboveTheChannelsAreIgnored) {
    using T = typename TypeParam::Scalar;
    Matrix<T> mat(TypeParam::code | test::HIGH_TYPE_BIT, 1, 2, std::vector<T>(3, T{9}));
    iv_mat_setone(mat);
    EXPECT_EQ(mat.values(), (std::vector<T>{1, 1, 9}));
    iv_mat_setidentity(mat);
    EXPECT_EQ(mat.values(), (std::vector<T>{1, 0, 9}));
}

TEST(MatrixFill, IdentityOfOneElementIsOneInItsType) {
    Matrix<s64_t> whole(IV_64S, 1, 1, {-1});
    iv_mat_setidentity(whole);
    EXPECT_EQ(whole.values(), std::vector<s64_t>{1});
    Matrix<f64_t> real(IV_64F, 1, 1, {-1.0});
    iv_mat_setidentity(real);
    EXPECT_EQ(real.values(), std::vector<f64_t>{1.0});
}

TEST(MatrixFill, DiagonalOfASmallMatrixReadsNoMoreThanItNeeds) {
    std::vector<s16_t> diagonal{5, -6, 7};
    Matrix<s16_t> square(IV_16S, 3, 3, std::vector<s16_t>(9, 9));
    iv_mat_setdiagonal(diagonal.data(), square);
    EXPECT_EQ(square.values(), (std::vector<s16_t>{5, 0, 0, 0, -6, 0, 0, 0, 7}));
    std::vector<s16_t> exactly_two{5, -6};
    Matrix<s16_t> wide(IV_16S, 2, 4, std::vector<s16_t>(8, 9));
    iv_mat_setdiagonal(exactly_two.data(), wide);
    EXPECT_EQ(wide.values(), (std::vector<s16_t>{5, 0, 0, 0, 0, -6, 0, 0}));
}

TEST(MatrixFill, DiagonalKeepsTheBitsOfANaN) {
    float signalling = test::float_of(0xffa12345u);
    FloatMatrix mat(1, 1, {0.0f});
    iv_mat_setdiagonal(&signalling, mat);
    EXPECT_EQ(static_cast<unsigned>(mat->data.i[0]), 0xffa12345u);
}

TEST(MatrixFill, ZerosOffTheDiagonalArePositive) {
    FloatMatrix mat(1, 2, {-1.0f, -1.0f});
    iv_mat_setidentity(mat);
    EXPECT_EQ(test::bits_of(mat.values()[1]), 0u);
}

} // namespace
