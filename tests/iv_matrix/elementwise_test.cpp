// Negation, scaling, sum and difference.
#include <gtest/gtest.h>

#include <climits>
#include <limits>
#include <type_traits>

#include "support/forbidden_page.h"
#include "support/matrix.h"

namespace {

using test::bits_of;
using test::FloatMatrix;
using test::HIGH_TYPE_BIT;
using test::Matrix;

template <typename T>
constexpr bool has_negation = std::is_signed_v<T>;

template <typename D>
class EachDepthElementwise : public ::testing::Test {};
TYPED_TEST_SUITE(EachDepthElementwise, test::AllDepths, test::DepthNames);

TYPED_TEST(EachDepthElementwise, EveryChannelOfEveryElementIsComputed) {
    using T = typename TypeParam::Scalar;
    const int type = IV_MAKETYPE(TypeParam::code, 3);
    Matrix<T> a(type, 1, 2, {10, 20, 30, 40, 50, 60});
    Matrix<T> b(type, 1, 2, {1, 2, 3, 4, 5, 6});
    Matrix<T> c(type, 1, 2, std::vector<T>(7, T{99}));
    iv_mat_add(a, b, c);
    EXPECT_EQ(c.values(), (std::vector<T>{11, 22, 33, 44, 55, 66, 99}));
    iv_mat_sub(a, b, c);
    EXPECT_EQ(c.values(), (std::vector<T>{9, 18, 27, 36, 45, 54, 99}));
    T two{2};
    iv_mat_scale(&two, a, c);
    EXPECT_EQ(c.values(), (std::vector<T>{20, 40, 60, 80, 100, 120, 99}));
}

TYPED_TEST(EachDepthElementwise, NegationExistsForSignedDepthsOnly) {
    using T = typename TypeParam::Scalar;
    Matrix<T> a(IV_MAKETYPE(TypeParam::code, 2), 1, 2, {1, 2, 3, 4});
    Matrix<T> b(IV_MAKETYPE(TypeParam::code, 2), 1, 2, std::vector<T>(5, T{9}));
    iv_mat_neg(a, b);
    if constexpr (has_negation<T>) {
        EXPECT_EQ(b.values(), (std::vector<T>{-1, -2, -3, -4, 9}));
    } else {
        EXPECT_EQ(b.values(), std::vector<T>(5, T{9}));
    }
}

TYPED_TEST(EachDepthElementwise, IntegersWrapAround) {
    using T = typename TypeParam::Scalar;
    if constexpr (std::is_integral_v<T>) {
        constexpr T low = std::numeric_limits<T>::min();
        constexpr T high = std::numeric_limits<T>::max();
        Matrix<T> a(TypeParam::code, 1, 2, {high, low});
        Matrix<T> b(TypeParam::code, 1, 2, {1, 1});
        Matrix<T> c(TypeParam::code, 1, 2, {9, 9});
        iv_mat_add(a, b, c);
        EXPECT_EQ(c.values(), (std::vector<T>{low, low + 1}));
        iv_mat_sub(a, b, c);
        EXPECT_EQ(c.values(), (std::vector<T>{high - 1, high}));
        T factor = high;
        iv_mat_scale(&factor, a, c);
        EXPECT_EQ(c.values(), (std::vector<T>{1, low}));
    }
}

TYPED_TEST(EachDepthElementwise, MostNegativeValueNegatesToItself) {
    using T = typename TypeParam::Scalar;
    if constexpr (std::is_integral_v<T> && has_negation<T>) {
        constexpr T low = std::numeric_limits<T>::min();
        Matrix<T> a(TypeParam::code, 1, 2, {low, low + 1});
        iv_mat_neg(a, a);
        EXPECT_EQ(a.values(), (std::vector<T>{low, std::numeric_limits<T>::max()}));
    }
}

TYPED_TEST(EachDepthElementwise, AnyMismatchLeavesTheDestinationUntouched) {
    using T = typename TypeParam::Scalar;
    const int type = TypeParam::code;
    Matrix<T> a(type, 2, 3, std::vector<T>(12, T{1}));
    Matrix<T> b(type, 2, 3, std::vector<T>(12, T{1}));
    T two{2};
    struct Header {
        int type, rows, cols;
    };
    for (const Header& other : {Header{IV_MAKETYPE(type, 2), 2, 3}, Header{type ^ 1, 2, 3},
                                Header{type | HIGH_TYPE_BIT, 2, 3}, Header{type, 3, 2},
                                Header{type, 2, 2}, Header{type, 1, 3}, Header{type, 1, 6}}) {
        Matrix<T> c(other.type, other.rows, other.cols, std::vector<T>(12, T{9}));
        iv_mat_add(a, b, c);
        iv_mat_sub(a, b, c);
        iv_mat_neg(a, c);
        iv_mat_scale(&two, a, c);
        Matrix<T> d(type, 2, 3, std::vector<T>(12, T{9}));
        iv_mat_add(a, c, d);
        iv_mat_sub(a, c, d);
        EXPECT_EQ(c.values(), std::vector<T>(12, T{9}));
        EXPECT_EQ(d.values(), std::vector<T>(12, T{9}));
    }
}

TYPED_TEST(EachDepthElementwise, EqualTypesWithHighBitsFit) {
    using T = typename TypeParam::Scalar;
    const int type = TypeParam::code | HIGH_TYPE_BIT;
    Matrix<T> a(type, 1, 1, {3});
    Matrix<T> b(type, 1, 1, {4});
    iv_mat_add(a, b, a);
    EXPECT_EQ(a.values(), std::vector<T>{7});
}

TYPED_TEST(EachDepthElementwise, OperandsMayBeOneMatrix) {
    using T = typename TypeParam::Scalar;
    Matrix<T> a(TypeParam::code, 1, 3, {1, 2, 3});
    iv_mat_add(a, a, a);
    EXPECT_EQ(a.values(), (std::vector<T>{2, 4, 6}));
    T three{3};
    iv_mat_scale(&three, a, a);
    EXPECT_EQ(a.values(), (std::vector<T>{6, 12, 18}));
    iv_mat_sub(a, a, a);
    EXPECT_EQ(a.values(), (std::vector<T>{0, 0, 0}));
}

// A result stored one value ahead is the next value read: each value carries the ones before it.
TYPED_TEST(EachDepthElementwise, OverlappingStorageRunsOneValueAtATimeUpward) {
    using T = typename TypeParam::Scalar;
    std::vector<T> expected;
    for (int i = 0; i < 20; ++i) {
        expected.push_back(static_cast<T>(1 + i));
    }
    Matrix<T> ones(TypeParam::code, 1, 19, std::vector<T>(19, T{1}));
    Matrix<T> a(TypeParam::code, 1, 19, std::vector<T>(20, T{1}));
    Matrix<T> ahead(TypeParam::code, 1, 19, {});
    iv_mat_initheader(ahead, 1, 19, TypeParam::code, a->data.p + sizeof(T));
    iv_mat_add(a, ones, ahead);
    EXPECT_EQ(a.values(), expected);
    iv_mat_sub(ones, ahead, a);
    expected.clear();
    for (int i = 0; i < 20; ++i) {
        expected.push_back(static_cast<T>(i == 19 ? 20 : 1 - (i + 2)));
    }
    EXPECT_EQ(a.values(), expected);
}

TYPED_TEST(EachDepthElementwise, ScalingAndNegationOverlapValueByValueToo) {
    using T = typename TypeParam::Scalar;
    Matrix<T> a(TypeParam::code, 1, 4, {1, 9, 9, 9, 9});
    Matrix<T> ahead(TypeParam::code, 1, 4, {});
    iv_mat_initheader(ahead, 1, 4, TypeParam::code, a->data.p + sizeof(T));
    T two{2};
    iv_mat_scale(&two, a, ahead);
    EXPECT_EQ(a.values(), (std::vector<T>{1, 2, 4, 8, 16}));
    if constexpr (has_negation<T>) {
        iv_mat_neg(a, ahead);
        EXPECT_EQ(a.values(), (std::vector<T>{1, -1, 1, -1, 1}));
    }
}

// The factor is read once, before any value is stored over it.
TYPED_TEST(EachDepthElementwise, FactorMayLieInTheDestination) {
    using T = typename TypeParam::Scalar;
    Matrix<T> a(TypeParam::code, 1, 3, {2, 3, 4});
    iv_mat_scale(a->data.p, a, a);
    EXPECT_EQ(a.values(), (std::vector<T>{4, 6, 8}));
}

TYPED_TEST(EachDepthElementwise, EmptyMatricesWriteNothing) {
    using T = typename TypeParam::Scalar;
    struct Shape {
        int rows, cols;
    };
    for (const Shape& shape : {Shape{0, 3}, Shape{3, 0}, Shape{-1, 2}, Shape{65536, 65536}}) {
        Matrix<T> a(TypeParam::code, shape.rows, shape.cols, {5, 5});
        T two{2};
        iv_mat_neg(a, a);
        iv_mat_scale(&two, a, a);
        iv_mat_add(a, a, a);
        iv_mat_sub(a, a, a);
        EXPECT_EQ(a.values(), (std::vector<T>{5, 5})) << shape.rows << " x " << shape.cols;
    }
}

TYPED_TEST(EachDepthElementwise, TheFactorIsReadEvenForAnEmptyMatrix) {
    Matrix<typename TypeParam::Scalar> a(TypeParam::code, 0, 3, {5});
    const test::ForbiddenPage page;
    EXPECT_DEATH(iv_mat_scale(page.end(), a, a), "");
}

TYPED_TEST(EachDepthElementwise, StepIsNotRead) {
    using T = typename TypeParam::Scalar;
    Matrix<T> a(TypeParam::code, 2, 2, {1, 2, 3, 4, 9, 9});
    a->step = 3 * static_cast<int>(sizeof(T));
    iv_mat_add(a, a, a);
    EXPECT_EQ(a.values(), (std::vector<T>{2, 4, 6, 8, 9, 9}));
}

TEST(MatrixElementwise, SumsAndDifferencesKeepTheLowBits) {
    Matrix<u08_t> a(IV_8U, 2, 2, std::vector<u08_t>(4, 200));
    Matrix<u08_t> b(IV_8U, 2, 2, std::vector<u08_t>(4, 100));
    iv_mat_add(a, b, a);
    EXPECT_EQ(a.values(), std::vector<u08_t>(4, 44));
    Matrix<u16_t> one(IV_16U, 1, 1, {1});
    Matrix<u16_t> two(IV_16U, 1, 1, {2});
    iv_mat_sub(one, two, one);
    EXPECT_EQ(one.values(), std::vector<u16_t>{65535});
}

TEST(MatrixElementwise, ProductsKeepTheLowBits) {
    Matrix<s08_t> a(IV_8S, 1, 1, {100});
    s08_t three = 3;
    iv_mat_scale(&three, a, a);
    EXPECT_EQ(a.values(), std::vector<s08_t>{44});
    Matrix<u16_t> b(IV_16U, 1, 1, {65535});
    u16_t high = 65535;
    iv_mat_scale(&high, b, b);
    EXPECT_EQ(b.values(), std::vector<u16_t>{1});
    Matrix<s32_t> c(IV_32S, 1, 1, {1000003});
    s32_t factor = -999983;
    iv_mat_scale(&factor, c, c);
    EXPECT_EQ(c.values(), std::vector<s32_t>{741380019}) << "-999985999949 modulo 2^32";
}

TEST(MatrixElementwise, NegationFlipsTheSignBitOfFloats) {
    FloatMatrix a(1, 4, {0.0f, -0.0f, -test::INFINITE, 1.5f});
    iv_mat_neg(a, a);
    EXPECT_EQ(bits_of(a.values()[0]), 0x80000000u);
    EXPECT_EQ(bits_of(a.values()[1]), 0u);
    EXPECT_EQ(a.values()[2], test::INFINITE);
    EXPECT_EQ(a.values()[3], -1.5f);
    Matrix<f64_t> b(IV_64F, 1, 1, {0.0});
    iv_mat_neg(b, b);
    EXPECT_EQ(bits_of(b.values()[0]), 0x8000000000000000u);
}

TEST(MatrixElementwise, NegationKeepsThePayloadOfANaN) {
    Matrix<s32_t> bits(IV_32S, 1, 2, {0x7fa12345, 0x7fc00000});
    iv_mat_t floats;
    iv_mat_initheader(&floats, 1, 2, IV_32F, bits->data.p);
    iv_mat_neg(&floats, &floats);
    EXPECT_EQ(static_cast<unsigned>(bits.values()[0]), 0xffa12345u);
    EXPECT_EQ(static_cast<unsigned>(bits.values()[1]), 0xffc00000u);
    Matrix<s64_t> wide_bits(IV_64S, 1, 1, {0x7ff4000000000123});
    iv_mat_t doubles;
    iv_mat_initheader(&doubles, 1, 1, IV_64F, wide_bits->data.p);
    iv_mat_neg(&doubles, &doubles);
    EXPECT_EQ(static_cast<u64_t>(wide_bits.values()[0]), 0xfff4000000000123u);
}

TEST(MatrixElementwise, ScalingByMinusOneEqualsNegation) {
    Matrix<s16_t> a(IV_16S, 1, 3, {-32768, 7, 0});
    Matrix<s16_t> scaled(IV_16S, 1, 3, {9, 9, 9});
    Matrix<s16_t> negated(IV_16S, 1, 3, {9, 9, 9});
    s16_t minus_one = -1;
    iv_mat_scale(&minus_one, a, scaled);
    iv_mat_neg(a, negated);
    EXPECT_EQ(scaled.values(), (std::vector<s16_t>{-32768, -7, 0}));
    EXPECT_EQ(negated.values(), scaled.values());
}

TEST(MatrixElementwise, ScalingByAHalfHalvesDoubles) {
    Matrix<f64_t> a(IV_64F, 1, 3, {1.0, -3.0, 0.1});
    f64_t half = 0.5;
    iv_mat_scale(&half, a, a);
    EXPECT_EQ(a.values(), (std::vector<f64_t>{0.5, -1.5, 0.05}));
}

TEST(MatrixElementwise, FloatsRoundInTheirOwnPrecision) {
    FloatMatrix a(1, 1, {16777216.0f});
    FloatMatrix one(1, 1, {1.0f});
    iv_mat_add(a, one, a);
    EXPECT_EQ(a.values(), std::vector<float>{16777216.0f});
    Matrix<f64_t> b(IV_64F, 1, 1, {16777216.0});
    Matrix<f64_t> double_one(IV_64F, 1, 1, {1.0});
    iv_mat_add(b, double_one, b);
    EXPECT_EQ(b.values(), std::vector<f64_t>{16777217.0});
}

} // namespace
