// Matrices: the bits of the C calls, what is refused, who owns what.
#include <gtest/gtest.h>

#include <algorithm>
#include <libiv.hpp>
#include <numeric>
#include <type_traits>
#include <vector>

#include "support/allocations.h"
#include "support/bits.h"
#include "support/matrix.h"
#include "support/output_capture.h"
#include "support/random.h"

namespace {

using iv::Matrix;
using iv::transposed;
using test::Allocations;

static_assert(Matrix<u08_t>::TYPE == IV_8U && Matrix<s08_t>::TYPE == IV_8S);
static_assert(Matrix<u16_t>::TYPE == IV_16U && Matrix<s16_t>::TYPE == IV_16S);
static_assert(Matrix<s32_t>::TYPE == IV_32S && Matrix<s64_t>::TYPE == IV_64S);
static_assert(Matrix<std::int64_t>::TYPE == IV_64S, "long is one, too");
static_assert(Matrix<f32_t>::TYPE == IV_32F && Matrix<f64_t, 3>::TYPE == IV_MAKETYPE(IV_64F, 3));
static_assert(Matrix<const float>::TYPE == IV_32F);
static_assert(!std::is_copy_constructible_v<Matrix<float>>);
static_assert(!std::is_copy_assignable_v<Matrix<float>>);
static_assert(std::is_nothrow_move_constructible_v<Matrix<float>>);
static_assert(std::is_nothrow_move_assignable_v<Matrix<float>>);
static_assert(std::is_convertible_v<Matrix<float>&, const Matrix<const float>&>);
static_assert(!std::is_convertible_v<Matrix<const float>&, const Matrix<float>&>);
static_assert(std::is_same_v<decltype(std::declval<const Matrix<float>&>()(0, 0)), const float&>);
static_assert(std::is_same_v<decltype(std::declval<const Matrix<float>&>().data()), const float*>);

template <class T>
T random_value(test::Random& random) {
    if constexpr (std::is_floating_point_v<T>) {
        return static_cast<T>(random.uniform(-100, 100));
    } else {
        return static_cast<T>(random.bits());
    }
}

template <class T, int CHANNELS = 1>
Matrix<T, CHANNELS> random_matrix(test::Random& random, int rows, int cols) {
    auto matrix = Matrix<T, CHANNELS>::zeros(rows, cols);
    std::generate(matrix.begin(), matrix.end(), [&] { return random_value<T>(random); });
    return matrix;
}

iv_mat_t* c_operand(const iv_mat_t* mat) {
    return const_cast<iv_mat_t*>(mat);
}

/// What a C call writes into a matrix of this shape.
template <class T, int CHANNELS = 1, class Call>
Matrix<T, CHANNELS> by_c(int rows, int cols, Call call) {
    auto matrix = Matrix<T, CHANNELS>::zeros(rows, cols);
    call(matrix.record());
    return matrix;
}

template <class T, int CHANNELS>
void expect_same(const Matrix<const T, CHANNELS>& expected,
                 const Matrix<const T, CHANNELS>& actual) {
    ASSERT_EQ(actual.rows(), expected.rows());
    ASSERT_EQ(actual.cols(), expected.cols());
    EXPECT_TRUE(std::equal(expected.begin(), expected.end(), actual.begin(),
                           [](T a, T b) { return test::bits(a) == test::bits(b); }));
}

/// The call throws, says so, and writes nothing.
template <class Call>
void expect_refused(const std::string& message, Call call) {
    try {
        call();
        ADD_FAILURE() << "expected: " << message;
    } catch (const std::invalid_argument& error) {
        EXPECT_NE(std::string(error.what()).find(message), std::string::npos) << error.what();
    }
}

template <typename D>
class HppMatrixOf : public testing::Test {
  protected:
    test::Random random_{7};
};
TYPED_TEST_SUITE(HppMatrixOf, test::AllDepths, test::DepthNames);

TYPED_TEST(HppMatrixOf, ElementWiseCallsGiveTheBitsOfTheCCalls) {
    using T = typename TypeParam::Scalar;
    test::Random& random = this->random_;
    const auto a = random_matrix<T, 3>(random, 5, 7);
    const auto b = random_matrix<T, 3>(random, 5, 7);
    T factor = random_value<T>(random);
    iv_mat_t* const mat_a = c_operand(a.record());
    iv_mat_t* const mat_b = c_operand(b.record());
    const auto sum = by_c<T, 3>(5, 7, [&](iv_mat_t* mat) { iv_mat_add(mat_a, mat_b, mat); });
    const auto difference = by_c<T, 3>(5, 7, [&](iv_mat_t* mat) { iv_mat_sub(mat_a, mat_b, mat); });
    const auto scaled = by_c<T, 3>(5, 7, [&](iv_mat_t* mat) { iv_mat_scale(&factor, mat_a, mat); });
    const auto turned = by_c<T, 3>(7, 5, [&](iv_mat_t* mat) { iv_mat_transpose(mat_a, mat); });
    expect_same<T, 3>(sum, a + b);
    expect_same<T, 3>(difference, a - b);
    expect_same<T, 3>(scaled, a * factor);
    expect_same<T, 3>(scaled, factor * a);
    expect_same<T, 3>(turned, transpose(a));
    auto changed = a.clone();
    changed += b;
    expect_same<T, 3>(sum, changed);
    changed.assign(a);
    changed -= b;
    expect_same<T, 3>(difference, changed);
    changed.assign(a);
    changed *= factor;
    expect_same<T, 3>(scaled, changed);
    if constexpr (std::is_signed_v<T>) {
        const auto negated = by_c<T, 3>(5, 7, [&](iv_mat_t* mat) { iv_mat_neg(mat_a, mat); });
        expect_same<T, 3>(negated, -a);
    }
}

TYPED_TEST(HppMatrixOf, ProductsGiveTheBitsOfTheCCalls) {
    using T = typename TypeParam::Scalar;
    test::Random& random = this->random_;
    const auto a = random_matrix<T>(random, 4, 6);
    const auto b = random_matrix<T>(random, 6, 5);
    const auto c = random_matrix<T>(random, 4, 5);
    const auto a_turned = transpose(a);
    const auto b_turned = transpose(b);
    iv_mat_t* const mats[] = {c_operand(a.record()), c_operand(b.record()), c_operand(c.record()),
                              c_operand(a_turned.record()), c_operand(b_turned.record())};
    const auto product =
        by_c<T>(4, 5, [&](iv_mat_t* mat) { iv_mat_mul(mats[0], mats[1], mat, 0); });
    const auto product1 =
        by_c<T>(4, 5, [&](iv_mat_t* mat) { iv_mat_mul(mats[3], mats[1], mat, IV_MAT_TRANS_SRC1); });
    const auto product2 =
        by_c<T>(4, 5, [&](iv_mat_t* mat) { iv_mat_mul(mats[0], mats[4], mat, IV_MAT_TRANS_SRC2); });
    expect_same<T>(product, a * b);
    expect_same<T>(product1, transposed(a_turned) * b);
    expect_same<T>(product2, a * transposed(b_turned));

    auto result = Matrix<T>::zeros(4, 5);
    multiply_add(a, b, c, result);
    expect_same<T>(
        by_c<T>(4, 5, [&](iv_mat_t* mat) { iv_mat_muladd(mats[0], mats[1], mats[2], mat, 0); }),
        result);
    multiply_add(a, transposed(b_turned), c, result);
    expect_same<T>(by_c<T>(4, 5,
                           [&](iv_mat_t* mat) {
                               iv_mat_muladd(mats[0], mats[4], mats[2], mat, IV_MAT_TRANS_SRC2);
                           }),
                   result);
    multiply_subtract(a, b, c, result);
    expect_same<T>(
        by_c<T>(4, 5, [&](iv_mat_t* mat) { iv_mat_submul(mats[2], mats[0], mats[1], mat, 0); }),
        result);
    identity_minus(a, b, result);
    expect_same<T>(by_c<T>(4, 5,
                           [&](iv_mat_t* mat) {
                               iv_mat_submul(nullptr, mats[0], mats[1], mat, IV_MAT_IDENTITY_SRC1);
                           }),
                   result);
    result.assign(c);
    multiply_add(a, b, result, result);
    expect_same<T>(
        by_c<T>(4, 5, [&](iv_mat_t* mat) { iv_mat_muladd(mats[0], mats[1], mats[2], mat, 0); }),
        result);
}

TYPED_TEST(HppMatrixOf, FillsGiveTheBitsOfTheCCalls) {
    using T = typename TypeParam::Scalar;
    expect_same<T>(by_c<T>(3, 4, iv_mat_setone), Matrix<T>::ones(3, 4));
    expect_same<T>(by_c<T>(3, 3, iv_mat_setidentity), Matrix<T>::identity(3));
    expect_same<T>(by_c<T>(3, 4, iv_mat_setzero), Matrix<T>::zeros(3, 4));
    T values[] = {2, 3, 5};
    auto diagonal = Matrix<T>::ones(3, 4);
    diagonal.set_diagonal({2, 3, 5});
    expect_same<T>(by_c<T>(3, 4, [&](iv_mat_t* mat) { iv_mat_setdiagonal(values, mat); }),
                   diagonal);
}

TEST(HppMatrix, InverseGivesTheBitsOfTheCCall) {
    test::Random random(3);
    for (const int order : {1, 2, 7, 40}) {
        auto a = random_matrix<float>(random, order, order);
        const auto expected = by_c<float>(
            order, order, [&](iv_mat_t* mat) { EXPECT_EQ(iv_mat_inv(a.record(), mat), 0); });
        expect_same<float>(expected, inverse(a));
        invert(a, a);
        expect_same<float>(expected, a);
    }
}

TEST(HppMatrix, ChannelsAreAnIndex) {
    auto pixels = Matrix<u08_t, 3>::of({{1, 2, 3, 4, 5, 6}, {7, 8, 9, 10, 11, 12}});
    EXPECT_EQ(pixels.rows(), 2);
    EXPECT_EQ(pixels.cols(), 2);
    EXPECT_EQ(pixels.size(), 12u);
    EXPECT_EQ(pixels(1, 0, 2), 9);
    pixels(1, 1, 0) = 99;
    EXPECT_EQ(pixels.data()[9], 99);
    const auto identity = Matrix<s16_t, 2>::identity(2);
    EXPECT_EQ(std::vector<s16_t>(identity.begin(), identity.end()),
              (std::vector<s16_t>{1, 0, 0, 0, 0, 0, 1, 0}));
}

TEST(HppMatrix, ViewReadsAndWritesTheCallersMemory) {
    float values[2][3] = {{1, 2, 3}, {4, 5, 6}};
    auto view = Matrix<float>::view(values);
    EXPECT_EQ(view.data(), &values[0][0]);
    view(1, 2) = 60;
    EXPECT_EQ(values[1][2], 60);
    view *= 2;
    EXPECT_EQ(values[1][2], 120);
    const std::vector<float> constant = {1, 2, 3, 4, 5, 6};
    view += Matrix<const float>::view(2, 3, constant.data());
    EXPECT_EQ(values[1][2], 126);
    EXPECT_EQ(constant[5], 6);
    values[0][0] = 7;
    auto copy = view.clone();
    values[0][0] = 8;
    EXPECT_EQ(copy(0, 0), 7);
    EXPECT_EQ(view(0, 0), 8);
}

TEST(HppMatrix, OnlyAnOwnerTakesABlockAndFreesIt) {
    float values[2][2] = {};
    Allocations allocations(Allocations::Keep::COUNTS);
    {
        auto view = Matrix<float>::view(values);
        auto other = Matrix<float>::view(2, 2, &values[0][0]);
        add(view, other, view);
        EXPECT_EQ(allocations.made(), 0);
        auto owner = Matrix<float>::zeros(2, 2);
        EXPECT_EQ(allocations.made(), 1);
        Matrix<float> moved = std::move(owner);
        const Matrix<const float> frozen = std::move(moved);
        EXPECT_EQ(frozen(1, 1), 0);
        EXPECT_EQ(allocations.freed(), 0);
    }
    EXPECT_EQ(allocations.made(), 1);
    EXPECT_EQ(allocations.freed(), 1);
    EXPECT_EQ(allocations.made_by_new(), 0);
}

// iv_mat_release takes a header whose values lie right behind it for one that iv_mat_create made.
TEST(HppMatrix, ViewOfValuesBehindAHeaderIsNotFreed) {
    struct {
        iv_mat_t header;
        float values[2][2];
    } block = {};
    Allocations allocations;
    { auto view = Matrix<float>::view(block.values); }
    EXPECT_EQ(allocations.freed(), 0);
}

TEST(HppMatrix, AssignmentFreesTheOldBlockAtOnce) {
    auto a = Matrix<float>::zeros(2, 2);
    auto b = Matrix<float>::ones(3, 3);
    Allocations allocations;
    a = std::move(b);
    EXPECT_EQ(allocations.freed(), 1);
    EXPECT_EQ(a(2, 2), 1);
    Matrix<float>& itself = a;
    a = std::move(itself);
    EXPECT_EQ(a(2, 2), 1);
}

TEST(HppMatrix, WhatWasMovedFromIsEmptyAndHarmless) {
    auto a = Matrix<float>::ones(2, 2);
    const auto b = std::move(a);
    EXPECT_TRUE(a.empty()); // NOLINT: what this is about
    EXPECT_EQ(a.rows(), 0);
    EXPECT_EQ(a.cols(), 0);
    EXPECT_EQ(a.begin(), a.end());
    a.set_zero();
    a.set_one();
    a.set_identity();
    auto c = Matrix<float>::ones(2, 2);
    expect_refused("add", [&] { a += a; });
    expect_refused("multiply", [&] { multiply(a, a, c); });
    expect_refused("multiply", [&] { multiply(c, c, a); });
    expect_refused("rows of a matrix: 0", [&] { (void)(a * a); });
    expect_refused("transpose", [&] { transpose(a, a); });
    expect_refused("invert", [&] { invert(a, a); });
    expect_refused("set_diagonal", [&] { a.set_diagonal({}); });
    expect_refused("assign", [&] { a.assign(a); });
    a = Matrix<float>::ones(1, 1);
    EXPECT_EQ(a(0, 0), 1);
}

TEST(HppMatrix, ShapesThatDoNotFitAreRefusedAndNothingIsWritten) {
    const auto wide = Matrix<float>::ones(2, 3);
    const auto tall = Matrix<float>::ones(3, 2);
    auto square = Matrix<float>::zeros(2, 2);
    expect_refused("add 2x3 3x2 2x3: expected one shape", [&] { (void)(wide + tall); });
    expect_refused("subtract 2x2 2x3 2x2", [&] { (void)(square - wide); });
    expect_refused("multiply 2x3 2x3 2x3", [&] { (void)(wide * wide); });
    expect_refused("multiply 3x2 3x2 3x2", [&] { (void)(transposed(wide) * tall); });
    expect_refused("multiply", [&] { multiply(tall, wide, square); });
    expect_refused("multiply", [&] { multiply(transposed(wide), tall, square); });
    expect_refused("multiply_add", [&] { multiply_add(wide, tall, wide, square); });
    expect_refused("multiply_add", [&] { multiply_add(wide, transposed(tall), square, square); });
    expect_refused("multiply_subtract", [&] { multiply_subtract(wide, tall, wide, square); });
    expect_refused("identity_minus", [&] { identity_minus(wide, wide, square); });
    expect_refused("scale", [&] { scale(wide, 2, square); });
    expect_refused("negate", [&] { negate(wide, square); });
    expect_refused("transpose", [&] { transpose(wide, square); });
    expect_refused("invert", [&] { invert(wide, square); });
    expect_refused("assign", [&] { square.assign(wide); });
    expect_refused("assign", [&] { square.assign({{1, 2}, {3}}); });
    expect_refused("set_diagonal", [&] { square.set_diagonal({1}); });
    expect_same<float>(Matrix<float>::zeros(2, 2), square);
    expect_refused("order, at most 40", [] { (void)inverse(Matrix<float>::identity(41)); });
}

TEST(HppMatrix, ProductsAndTransposesIntoTheirOperandsAreRefused) {
    float values[8] = {1, 2, 3, 4, 5, 6, 7, 8};
    auto a = Matrix<float>::view(2, 2, values);
    auto overlapping = Matrix<float>::view(2, 2, values + 3);
    auto apart = Matrix<float>::view(2, 2, values + 4);
    expect_refused("storage of its own", [&] { multiply(a, apart, a); });
    expect_refused("storage of its own", [&] { multiply(apart, a, a); });
    expect_refused("storage of its own", [&] { multiply(a, a, overlapping); });
    expect_refused("storage of their own", [&] { transpose(a, a); });
    multiply(a, a, apart);
    EXPECT_EQ(values[4], 7);
}

TEST(HppMatrix, SizesThatTheLibraryCannotCountAreRefused) {
    float value = 0;
    expect_refused("rows of a matrix: 0: expected at least 1", [] { Matrix<float>::zeros(0, 4); });
    expect_refused("columns of a matrix: -1", [&] { Matrix<float>::view(4, -1, &value); });
    expect_refused("less than 2 GiB", [&] { Matrix<float>::view(1 << 15, 1 << 14, &value); });
    expect_refused("less than 2 GiB", [] { Matrix<u08_t, 32>::zeros(1 << 30, 1 << 30); });
    EXPECT_EQ(Matrix<float>::view(1 << 15, (1 << 14) - 1, &value).rows(), 1 << 15);
    expect_refused("rows of a matrix", [] { Matrix<float>::of({}); });
    expect_refused("assign 2x2", [] { Matrix<float>::of({{1, 2}, {3}}); });
}

TEST(HppMatrix, WantOfMemoryIsBadAlloc) {
    const auto a = Matrix<float>::ones(2, 2);
    Allocations allocations;
    allocations.fail_from(1);
    EXPECT_THROW((void)Matrix<float>::zeros(2, 2), std::bad_alloc);
    EXPECT_THROW((void)(a * a), std::bad_alloc);
    EXPECT_THROW((void)a.clone(), std::bad_alloc);
}

TEST(HppMatrix, PrintsAsTheCCallDoes) {
    test::OutputCapture capture;
    print("A", Matrix<float>::of({{1, 2}, {3, 4}}));
    EXPECT_EQ(capture.text(), "A=\n   1.000000   2.000000\n   3.000000   4.000000\n");
}

} // namespace
