// The transpose.
#include <gtest/gtest.h>

#include "support/matrix.h"

namespace {

using test::FloatMatrix;
using test::HIGH_TYPE_BIT;
using test::Matrix;

template <typename D>
class EachDepthTranspose : public ::testing::Test {};
TYPED_TEST_SUITE(EachDepthTranspose, test::AllDepths, test::DepthNames);

TYPED_TEST(EachDepthTranspose, RowsBecomeColumns) {
    using T = typename TypeParam::Scalar;
    Matrix<T> a(TypeParam::code, 2, 3, {1, 2, 3, 4, 5, 6});
    Matrix<T> b(TypeParam::code, 3, 2, std::vector<T>(7, T{9}));
    iv_mat_transpose(a, b);
    EXPECT_EQ(b.values(), (std::vector<T>{1, 4, 2, 5, 3, 6, 9}));
    EXPECT_EQ(a.values(), (std::vector<T>{1, 2, 3, 4, 5, 6}));
}

TYPED_TEST(EachDepthTranspose, ARowBecomesAColumnInTheSameOrder) {
    using T = typename TypeParam::Scalar;
    Matrix<T> row(TypeParam::code, 1, 5, {1, 2, 3, 4, 5});
    Matrix<T> column(TypeParam::code, 5, 1, std::vector<T>(5, T{9}));
    iv_mat_transpose(row, column);
    EXPECT_EQ(column.values(), row.values());
    Matrix<T> back(TypeParam::code, 1, 5, std::vector<T>(5, T{9}));
    iv_mat_transpose(column, back);
    EXPECT_EQ(back.values(), row.values());
}

TYPED_TEST(EachDepthTranspose, ChannelsStayTogether) {
    using T = typename TypeParam::Scalar;
    const int type = IV_MAKETYPE(TypeParam::code, 3);
    Matrix<T> a(type, 2, 2, {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12});
    Matrix<T> b(type, 2, 2, std::vector<T>(12, T{99}));
    iv_mat_transpose(a, b);
    EXPECT_EQ(b.values(), (std::vector<T>{1, 2, 3, 7, 8, 9, 4, 5, 6, 10, 11, 12}));
    Matrix<T> wide(type, 1, 2, {1, 2, 3, 4, 5, 6});
    Matrix<T> tall(type, 2, 1, std::vector<T>(6, T{99}));
    iv_mat_transpose(wide, tall);
    EXPECT_EQ(tall.values(), wide.values());
}

TYPED_TEST(EachDepthTranspose, AnyMismatchLeavesTheDestinationUntouched) {
    using T = typename TypeParam::Scalar;
    const int type = TypeParam::code;
    Matrix<T> a(type, 2, 3, std::vector<T>(12, T{1}));
    struct Header {
        int type, rows, cols;
    };
    for (const Header& other : {Header{type, 2, 3}, Header{IV_MAKETYPE(type, 2), 3, 2},
                                Header{type ^ 1, 3, 2}, Header{type | HIGH_TYPE_BIT, 3, 2},
                                Header{type, 3, 1}, Header{type, 2, 2}, Header{type, 6, 1}}) {
        Matrix<T> b(other.type, other.rows, other.cols, std::vector<T>(12, T{9}));
        iv_mat_transpose(a, b);
        EXPECT_EQ(b.values(), std::vector<T>(12, T{9}));
    }
}

TYPED_TEST(EachDepthTranspose, OntoItselfMirrorsTheUpperTriangleIntoTheLower) {
    using T = typename TypeParam::Scalar;
    Matrix<T> two(TypeParam::code, 2, 2, {1, 2, 3, 4});
    iv_mat_transpose(two, two);
    EXPECT_EQ(two.values(), (std::vector<T>{1, 2, 2, 4}));
    Matrix<T> three(TypeParam::code, 3, 3, {1, 2, 3, 4, 5, 6, 7, 8, 9});
    iv_mat_transpose(three, three);
    EXPECT_EQ(three.values(), (std::vector<T>{1, 2, 3, 2, 5, 6, 3, 6, 9}));
    Matrix<T> wide(TypeParam::code, 2, 3, {1, 2, 3, 4, 5, 6});
    iv_mat_transpose(wide, wide);
    EXPECT_EQ(wide.values(), (std::vector<T>{1, 2, 3, 4, 5, 6}));
}

TYPED_TEST(EachDepthTranspose, OntoItselfKeepsChannelsTogether) {
    using T = typename TypeParam::Scalar;
    Matrix<T> a(IV_MAKETYPE(TypeParam::code, 2), 2, 2, {1, 2, 3, 4, 5, 6, 7, 8});
    iv_mat_transpose(a, a);
    EXPECT_EQ(a.values(), (std::vector<T>{1, 2, 3, 4, 3, 4, 7, 8}));
}

// Source {1, 2} and destination {2, 3} share a value: with two channels, value 2 of the element
// is read after value 1 was stored over it.
TYPED_TEST(EachDepthTranspose, OverlappingElementsMoveValueByValue) {
    using T = typename TypeParam::Scalar;
    const int type = IV_MAKETYPE(TypeParam::code, 2);
    Matrix<T> a(type, 1, 1, {1, 2, 3});
    iv_mat_t ahead;
    iv_mat_initheader(&ahead, 1, 1, type, a->data.p + sizeof(T));
    iv_mat_transpose(a, &ahead);
    EXPECT_EQ(a.values(), (std::vector<T>{1, 1, 1}));
}

TYPED_TEST(EachDepthTranspose, EmptyMatricesWriteNothing) {
    using T = typename TypeParam::Scalar;
    struct Shape {
        int rows, cols;
    };
    for (const Shape& shape : {Shape{0, 3}, Shape{0, 1}, Shape{-1, 1}, Shape{-3, 1}}) {
        Matrix<T> a(TypeParam::code, shape.rows, shape.cols, {1, 2, 3});
        Matrix<T> b(TypeParam::code, shape.cols, shape.rows, {9, 9, 9});
        iv_mat_transpose(a, b);
        EXPECT_EQ(b.values(), (std::vector<T>{9, 9, 9})) << shape.rows << " x " << shape.cols;
        iv_mat_transpose(b, a);
        EXPECT_EQ(a.values(), (std::vector<T>{1, 2, 3})) << shape.cols << " x " << shape.rows;
    }
}

TYPED_TEST(EachDepthTranspose, StepIsNotRead) {
    using T = typename TypeParam::Scalar;
    Matrix<T> a(TypeParam::code, 2, 2, {1, 2, 3, 4, 5, 6});
    Matrix<T> b(TypeParam::code, 2, 2, {9, 9, 9, 9, 9, 9});
    a->step = b->step = 3 * static_cast<int>(sizeof(T));
    iv_mat_transpose(a, b);
    EXPECT_EQ(b.values(), (std::vector<T>{1, 3, 2, 4, 9, 9}));
}

TEST(MatrixTranspose, KeepsTheBitsOfNaNs) {
    Matrix<s32_t> bits(IV_32S, 1, 1, {0x7fa12345});
    FloatMatrix b(1, 1, {0.0f});
    bits->type = IV_32F;
    iv_mat_transpose(bits, b);
    EXPECT_EQ(b->data.i[0], 0x7fa12345);
}

} // namespace
