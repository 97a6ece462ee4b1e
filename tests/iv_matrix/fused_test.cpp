// The fused products: multiply-add and multiply-subtract.
#include <gtest/gtest.h>

#include <cstring>
#include <limits>
#include <type_traits>

#include "support/matrix.h"

namespace {

using test::bits_of;
using test::FloatMatrix;
using test::HIGH_TYPE_BIT;
using test::Matrix;

/// A call with operand shapes that fit: rows and columns of src1, src2, src3 and dst.
struct Call {
    void (*function)(iv_mat_t*, iv_mat_t*, iv_mat_t*, iv_mat_t*, int);
    int flags;
    int shape[4][2];
    bool reads_shape_of_src1;
};

constexpr Call CALLS[] = {
    {iv_mat_muladd, 0, {{2, 3}, {3, 4}, {2, 4}, {2, 4}}, true},
    {iv_mat_muladd, IV_MAT_TRANS_SRC2, {{2, 3}, {4, 3}, {2, 4}, {2, 4}}, true},
    {iv_mat_submul, 0, {{2, 4}, {2, 3}, {3, 4}, {2, 4}}, true},
    {iv_mat_submul, IV_MAT_IDENTITY_SRC1, {{2, 4}, {2, 3}, {3, 4}, {2, 4}}, false},
};

template <typename D>
class EachDepthFused : public ::testing::Test {};
TYPED_TEST_SUITE(EachDepthFused, test::AllDepths, test::DepthNames);

TYPED_TEST(EachDepthFused, MulAddIsTheProductPlusTheAddend) {
    using T = typename TypeParam::Scalar;
    const int type = TypeParam::code;
    Matrix<T> a(type, 2, 3, {1, 2, 3, 4, 5, 6});
    Matrix<T> b(type, 3, 2, {1, 2, 3, 4, 5, 6});
    Matrix<T> b_transposed(type, 2, 3, {1, 3, 5, 2, 4, 6});
    Matrix<T> addend(type, 2, 2, {10, 20, 30, 40});
    Matrix<T> d(type, 2, 2, std::vector<T>(5, T{99}));
    iv_mat_muladd(a, b, addend, d, 0);
    EXPECT_EQ(d.values(), (std::vector<T>{32, 48, 79, 104, 99}));
    iv_mat_setzero(d);
    iv_mat_muladd(a, b_transposed, addend, d, IV_MAT_TRANS_SRC2);
    EXPECT_EQ(d.values(), (std::vector<T>{32, 48, 79, 104, 99}));
}

TYPED_TEST(EachDepthFused, SubMulIsTheFirstMinusTheProduct) {
    using T = typename TypeParam::Scalar;
    const int type = TypeParam::code;
    Matrix<T> a(type, 2, 2, {100, 101, 102, 103});
    Matrix<T> b(type, 2, 3, {1, 2, 3, 4, 5, 6});
    Matrix<T> e(type, 3, 2, {1, 2, 3, 4, 5, 6});
    Matrix<T> d(type, 2, 2, std::vector<T>(5, T{99}));
    iv_mat_submul(a, b, e, d, 0);
    EXPECT_EQ(d.values(), (std::vector<T>{78, 73, 53, 39, 99}));
}

TYPED_TEST(EachDepthFused, ResultNeedNotBeSquare) {
    using T = typename TypeParam::Scalar;
    const int type = TypeParam::code;
    Matrix<T> row(type, 1, 2, {1, 2}), b(type, 2, 3, {1, 2, 3, 4, 5, 6});
    Matrix<T> b_transposed(type, 3, 2, {1, 4, 2, 5, 3, 6});
    Matrix<T> wide_addend(type, 1, 3, {100, 101, 102}), wide(type, 1, 3, {9, 9, 9, 9});
    iv_mat_muladd(row, b, wide_addend, wide, 0);
    EXPECT_EQ(wide.values(), (std::vector<T>{109, 113, 117, 9}));
    iv_mat_setzero(wide);
    iv_mat_muladd(row, b_transposed, wide_addend, wide, IV_MAT_TRANS_SRC2);
    EXPECT_EQ(wide.values(), (std::vector<T>{109, 113, 117, 9}));
    iv_mat_submul(wide_addend, row, b, wide, 0);
    EXPECT_EQ(wide.values(), (std::vector<T>{91, 89, 87, 9}));

    Matrix<T> a(type, 3, 2, {1, 2, 3, 4, 5, 6}), column(type, 2, 1, {7, 8});
    Matrix<T> column_transposed(type, 1, 2, {7, 8});
    Matrix<T> tall_addend(type, 3, 1, {1, 2, 103}), tall(type, 3, 1, {9, 9, 9, 9});
    iv_mat_muladd(a, column, tall_addend, tall, 0);
    const std::vector<T> sum{24, 55, static_cast<T>(186), 9};
    EXPECT_EQ(tall.values(), sum);
    iv_mat_setzero(tall);
    iv_mat_muladd(a, column_transposed, tall_addend, tall, IV_MAT_TRANS_SRC2);
    EXPECT_EQ(tall.values(), sum);
    iv_mat_submul(tall_addend, a, column, tall, 0);
    EXPECT_EQ(tall.values(), (std::vector<T>{static_cast<T>(-22), static_cast<T>(-51), 20, 9}));
}

TYPED_TEST(EachDepthFused, MulAddHeedsTheSecondTransposeBitAlone) {
    using T = typename TypeParam::Scalar;
    const int type = TypeParam::code;
    Matrix<T> a(type, 2, 2, {1, 2, 3, 4}), b(type, 2, 2, {5, 6, 7, 8});
    Matrix<T> addend(type, 2, 2, {1, 2, 3, 4});
    const auto sum = [&](int flags) {
        Matrix<T> d(type, 2, 2, std::vector<T>(4, T{99}));
        iv_mat_muladd(a, b, addend, d, flags);
        return d.values();
    };
    for (const int flags : {0, 1, 4, 8, 16, ~2}) {
        EXPECT_EQ(sum(flags), (std::vector<T>{20, 24, 46, 54})) << flags;
    }
    for (const int flags : {2, 3, 18, -1}) {
        EXPECT_EQ(sum(flags), (std::vector<T>{18, 25, 42, 57})) << flags;
    }
}

TYPED_TEST(EachDepthFused, SubMulHeedsTheIdentityBitAlone) {
    using T = typename TypeParam::Scalar;
    const int type = TypeParam::code;
    Matrix<T> a(type, 2, 2, {100, 101, 102, 103});
    Matrix<T> b(type, 2, 2, {1, 0, 2, 1}), e(type, 2, 2, {1, 0, 0, 1});
    const auto difference = [&](int flags) {
        Matrix<T> d(type, 2, 2, std::vector<T>(4, T{99}));
        iv_mat_submul(a, b, e, d, flags);
        return d.values();
    };
    for (const int flags : {0, 1, 2, 3, 4, 8, 32, ~16}) {
        EXPECT_EQ(difference(flags), (std::vector<T>{99, 101, 100, 102})) << flags;
    }
    for (const int flags : {16, 17, 18, -1}) {
        EXPECT_EQ(difference(flags), (std::vector<T>{0, 0, static_cast<T>(-2), 0})) << flags;
    }
}

TYPED_TEST(EachDepthFused, IdentityModeTakesANullFirstOperandOrOneOfAnyShape) {
    using T = typename TypeParam::Scalar;
    const int type = TypeParam::code;
    Matrix<T> b(type, 2, 2, {1, 0, 0, 0}), e(type, 2, 2, {1, 1, 0, 0});
    const std::vector<T> expected{0, static_cast<T>(-1), 0, 1};
    Matrix<T> d(type, 2, 2, std::vector<T>(4, T{99}));
    iv_mat_submul(nullptr, b, e, d, IV_MAT_IDENTITY_SRC1);
    EXPECT_EQ(d.values(), expected);
    iv_mat_t unread;
    iv_mat_initheader(&unread, 7, -1, type, nullptr);
    iv_mat_setzero(d);
    iv_mat_submul(&unread, b, e, d, IV_MAT_IDENTITY_SRC1);
    EXPECT_EQ(d.values(), expected);
}

TYPED_TEST(EachDepthFused, IdentityModeStillComparesTheTypeOfTheFirstOperand) {
    using T = typename TypeParam::Scalar;
    const int type = TypeParam::code;
    Matrix<T> b(type, 1, 1, {1});
    for (const int other : {type ^ 1, IV_MAKETYPE(type, 2), type | HIGH_TYPE_BIT}) {
        Matrix<T> a(other, 1, 1, {1, 1});
        Matrix<T> d(type, 1, 1, {99});
        iv_mat_submul(a, b, b, d, IV_MAT_IDENTITY_SRC1);
        EXPECT_EQ(d.values(), std::vector<T>{99});
    }
}

TYPED_TEST(EachDepthFused, IdentityModeFillsNonSquareDestinations) {
    using T = typename TypeParam::Scalar;
    const int type = TypeParam::code;
    const auto wrapped = [](int value) { return static_cast<T>(value); };
    Matrix<T> b(type, 2, 1, {1, 2}), e(type, 1, 3, {1, 2, 3});
    Matrix<T> wide(type, 2, 3, std::vector<T>(7, T{99}));
    iv_mat_submul(nullptr, b, e, wide, IV_MAT_IDENTITY_SRC1);
    EXPECT_EQ(wide.values(), (std::vector<T>{0, wrapped(-2), wrapped(-3), wrapped(-2), wrapped(-3),
                                             wrapped(-6), 99}));
    Matrix<T> f(type, 3, 1, {1, 2, 3}), g(type, 1, 2, {1, 2});
    Matrix<T> tall(type, 3, 2, std::vector<T>(7, T{99}));
    iv_mat_submul(nullptr, f, g, tall, IV_MAT_IDENTITY_SRC1);
    EXPECT_EQ(tall.values(), (std::vector<T>{0, wrapped(-2), wrapped(-2), wrapped(-3), wrapped(-3),
                                             wrapped(-6), 99}));
}

TYPED_TEST(EachDepthFused, AnyShapeMismatchLeavesTheDestinationUntouched) {
    using T = typename TypeParam::Scalar;
    const std::vector<T> ones(30, T{1}), nines(30, T{9});
    for (const Call& call : CALLS) {
        for (int changed = call.reads_shape_of_src1 ? 0 : 2; changed < 8; ++changed) {
            for (const int by : {-1, 1}) {
                Call c = call;
                c.shape[changed / 2][changed % 2] += by;
                Matrix<T> src1(TypeParam::code, c.shape[0][0], c.shape[0][1], ones);
                Matrix<T> src2(TypeParam::code, c.shape[1][0], c.shape[1][1], ones);
                Matrix<T> src3(TypeParam::code, c.shape[2][0], c.shape[2][1], ones);
                Matrix<T> d(TypeParam::code, c.shape[3][0], c.shape[3][1], nines);
                c.function(src1, src2, src3, d, c.flags);
                EXPECT_EQ(d.values(), nines)
                    << "flags " << c.flags << ", dimension " << changed << " by " << by;
            }
        }
    }
}

TYPED_TEST(EachDepthFused, AnyTypeMismatchLeavesTheDestinationUntouched) {
    using T = typename TypeParam::Scalar;
    const int type = TypeParam::code;
    for (const Call& call : CALLS) {
        for (const int other : {type ^ 1, IV_MAKETYPE(type, 2), type | HIGH_TYPE_BIT}) {
            for (int operand = 0; operand < 4; ++operand) {
                Matrix<T> src1(operand == 0 ? other : type, 2, 2, std::vector<T>(8, T{1}));
                Matrix<T> src2(operand == 1 ? other : type, 2, 2, std::vector<T>(8, T{1}));
                Matrix<T> src3(operand == 2 ? other : type, 2, 2, std::vector<T>(8, T{1}));
                Matrix<T> d(operand == 3 ? other : type, 2, 2, std::vector<T>(8, T{9}));
                call.function(src1, src2, src3, d, call.flags);
                EXPECT_EQ(d.values(), std::vector<T>(8, T{9})) << "operand " << operand;
            }
        }
    }
}

TYPED_TEST(EachDepthFused, ChannelsAreRefusedAndHigherBitsAreNot) {
    using T = typename TypeParam::Scalar;
    for (const Call& call : CALLS) {
        for (const int channels : {2, 3, 5, 9, 17, 32}) {
            const int type = IV_MAKETYPE(TypeParam::code, channels);
            Matrix<T> a(type, 1, 1, std::vector<T>(32, T{2}));
            Matrix<T> d(type, 1, 1, std::vector<T>(32, T{9}));
            call.function(a, a, a, d, call.flags);
            EXPECT_EQ(d.values(), std::vector<T>(32, T{9})) << channels << " channels";
        }
        Matrix<T> a(TypeParam::code | HIGH_TYPE_BIT, 1, 1, {1});
        Matrix<T> d(TypeParam::code | HIGH_TYPE_BIT, 1, 1, {9});
        call.function(a, a, a, d, call.flags);
        EXPECT_NE(d.values(), std::vector<T>{9});
    }
}

TYPED_TEST(EachDepthFused, InnerDimensionOfZeroGivesTheAddend) {
    using T = typename TypeParam::Scalar;
    const int type = TypeParam::code;
    Matrix<T> no_columns(type, 2, 0, {7}), no_rows(type, 0, 2, {7});
    Matrix<T> addend(type, 2, 2, {1, 2, 3, 4});
    Matrix<T> d(type, 2, 2, std::vector<T>(5, T{99}));
    iv_mat_muladd(no_columns, no_rows, addend, d, 0);
    EXPECT_EQ(d.values(), (std::vector<T>{1, 2, 3, 4, 99}));
    iv_mat_setzero(d);
    iv_mat_muladd(no_columns, no_columns, addend, d, IV_MAT_TRANS_SRC2);
    EXPECT_EQ(d.values(), (std::vector<T>{1, 2, 3, 4, 99}));
    iv_mat_setzero(d);
    iv_mat_submul(addend, no_columns, no_rows, d, 0);
    EXPECT_EQ(d.values(), (std::vector<T>{1, 2, 3, 4, 99}));
    iv_mat_submul(nullptr, no_columns, no_rows, d, IV_MAT_IDENTITY_SRC1);
    EXPECT_EQ(d.values(), (std::vector<T>{1, 0, 0, 1, 99}));
}

TYPED_TEST(EachDepthFused, EmptyResultWritesNothing) {
    using T = typename TypeParam::Scalar;
    const std::vector<T> ones(12, T{1}), nines(12, T{9});
    for (const Call& call : CALLS) {
        if (call.flags == IV_MAT_IDENTITY_SRC1) {
            continue;
        }
        const bool adds = call.function == iv_mat_muladd;
        Matrix<T> empty(TypeParam::code, 0, 3, ones), full(TypeParam::code, 3, 3, ones);
        Matrix<T> d(TypeParam::code, 0, 3, nines);
        call.function(empty, adds ? full : empty, adds ? empty : full, d, call.flags);
        EXPECT_EQ(d.values(), nines) << "flags " << call.flags;
    }
}

TYPED_TEST(EachDepthFused, MulAddCopiesTheAddendByTheStepOfTheSecondFactor) {
    using T = typename TypeParam::Scalar;
    const int type = TypeParam::code;
    const int size = static_cast<int>(sizeof(T));
    Matrix<T> a(type, 2, 1, {1, 2}), b(type, 1, 2, {10, 20});
    Matrix<T> addend(type, 2, 2, {1, 2, 3, 4, 5, 6});
    addend->step = 77;
    const auto sum = [&](int step) {
        Matrix<T> d(type, 2, 2, std::vector<T>(7, T{9}));
        d->step = 78;
        b->step = step;
        iv_mat_muladd(a, b, addend, d, 0);
        return d.values();
    };
    EXPECT_EQ(sum(2 * size), (std::vector<T>{11, 22, 23, 44, 9, 9, 9}));
    EXPECT_EQ(sum(3 * size), (std::vector<T>{11, 22, 23, 44, 5, 6, 9}));
    EXPECT_EQ(sum(size), (std::vector<T>{11, 22, 29, 49, 9, 9, 9}));
    EXPECT_EQ(sum(0), (std::vector<T>{19, 29, 29, 49, 9, 9, 9}));
}

TYPED_TEST(EachDepthFused, SubMulCopiesTheFirstOperandByItsOwnStep) {
    using T = typename TypeParam::Scalar;
    const int type = TypeParam::code;
    const int size = static_cast<int>(sizeof(T));
    Matrix<T> a(type, 2, 2, {101, 102, 103, 104, 5, 6});
    Matrix<T> b(type, 2, 1, {1, 2}), e(type, 1, 2, {10, 20});
    b->step = 77;
    e->step = 78;
    const auto difference = [&](int step) {
        Matrix<T> d(type, 2, 2, std::vector<T>(7, T{99}));
        d->step = 79;
        a->step = step;
        iv_mat_submul(a, b, e, d, 0);
        return d.values();
    };
    EXPECT_EQ(difference(2 * size), (std::vector<T>{91, 82, 83, 64, 99, 99, 99}));
    EXPECT_EQ(difference(3 * size), (std::vector<T>{91, 82, 83, 64, 5, 6, 99}));
    EXPECT_EQ(difference(size), (std::vector<T>{91, 82, 79, 59, 99, 99, 99}));
    EXPECT_EQ(difference(0), (std::vector<T>{89, 79, 79, 59, 99, 99, 99}));
}

// One byte of the addend's first value, and the sums go on from what that makes of the destination's.
TYPED_TEST(EachDepthFused, StepOfOneByteCopiesOneByte) {
    using T = typename TypeParam::Scalar;
    const int type = TypeParam::code;
    Matrix<T> a(type, 1, 1, {0}), b(type, 1, 2, {3, 5});
    Matrix<T> from(type, 1, 2, {1, 2}), d(type, 1, 2, {9, 9}), e(type, 1, 2, {9, 9});
    std::vector<T> expected{9, 9};
    std::memcpy(expected.data(), from->data.p, 1);
    b->step = from->step = 1;
    iv_mat_muladd(a, b, from, d, 0);
    EXPECT_EQ(d.values(), expected);
    iv_mat_submul(from, a, b, e, 0);
    EXPECT_EQ(e.values(), expected);
}

TYPED_TEST(EachDepthFused, TwoNegativeLengthsCopyTheStartOfTheSumAndNoMore) {
    using T = typename TypeParam::Scalar;
    const int type = TypeParam::code;
    const std::vector<T> start{1, 2, 3, 4, 5, 6, 7}, nines(7, T{9});
    const std::vector<T> copied{1, 2, 3, 4, 5, 6, 9};
    Matrix<T> left(type, -2, 4, nines), right(type, 4, -3, nines);
    Matrix<T> from(type, -2, -3, start), d(type, -2, -3, nines);
    iv_mat_muladd(left, right, from, d, 0);
    EXPECT_EQ(d.values(), copied);
    Matrix<T> e(type, -2, -3, nines);
    iv_mat_submul(from, left, right, e, 0);
    EXPECT_EQ(e.values(), copied);
}

TYPED_TEST(EachDepthFused, TransposedMulAddReadsNoStep) {
    using T = typename TypeParam::Scalar;
    const int type = TypeParam::code;
    Matrix<T> a(type, 2, 1, {1, 2}), b(type, 2, 1, {10, 20});
    Matrix<T> addend(type, 2, 2, {1, 2, 3, 4, 5, 6});
    Matrix<T> d(type, 2, 2, std::vector<T>(6, T{9}));
    a->step = b->step = addend->step = d->step = 3 * static_cast<int>(sizeof(T));
    iv_mat_muladd(a, b, addend, d, IV_MAT_TRANS_SRC2);
    EXPECT_EQ(d.values(), (std::vector<T>{11, 22, 23, 44, 9, 9}));
}

TYPED_TEST(EachDepthFused, DestinationMayBeTheAddend) {
    using T = typename TypeParam::Scalar;
    const int type = TypeParam::code;
    Matrix<T> a(type, 2, 2, {1, 2, 3, 4}), b(type, 2, 2, {5, 6, 7, 8});
    Matrix<T> plain(type, 2, 2, {1, 2, 3, 4});
    iv_mat_muladd(a, b, plain, plain, 0);
    EXPECT_EQ(plain.values(), (std::vector<T>{20, 24, 46, 54}));
    Matrix<T> transposed(type, 2, 2, {1, 2, 3, 4});
    iv_mat_muladd(a, b, transposed, transposed, IV_MAT_TRANS_SRC2);
    EXPECT_EQ(transposed.values(), (std::vector<T>{18, 25, 42, 57}));
}

TYPED_TEST(EachDepthFused, IntegersWrapAround) {
    using T = typename TypeParam::Scalar;
    if constexpr (std::is_integral_v<T>) {
        constexpr T low = std::numeric_limits<T>::min();
        constexpr T high = std::numeric_limits<T>::max();
        const int type = TypeParam::code;
        Matrix<T> one(type, 1, 1, {1}), top(type, 1, 1, {high}), bottom(type, 1, 1, {low});
        Matrix<T> d(type, 1, 1, {99});
        iv_mat_muladd(one, one, top, d, 0);
        EXPECT_EQ(d.values(), std::vector<T>{low});
        iv_mat_setone(d);
        iv_mat_muladd(one, one, top, d, IV_MAT_TRANS_SRC2);
        EXPECT_EQ(d.values(), std::vector<T>{low});
        iv_mat_submul(bottom, one, one, d, 0);
        EXPECT_EQ(d.values(), std::vector<T>{high});
        iv_mat_muladd(top, top, top, d, 0);
        EXPECT_EQ(d.values(), std::vector<T>{static_cast<T>(low)}) << "high squared is 1";
        iv_mat_submul(bottom, top, top, d, 0);
        EXPECT_EQ(d.values(), std::vector<T>{high});
    }
}

TEST(MatrixFused, BytesKeepTheLowBits) {
    Matrix<u08_t> sixteen(IV_8U, 1, 1, {16}), ten(IV_8U, 1, 1, {10}), d(IV_8U, 1, 1, {9});
    iv_mat_muladd(sixteen, sixteen, ten, d, 0);
    EXPECT_EQ(d.values(), std::vector<u08_t>{10});
    Matrix<u08_t> zero(IV_8U, 1, 1, {0}), one(IV_8U, 1, 1, {1});
    iv_mat_submul(zero, one, one, d, 0);
    EXPECT_EQ(d.values(), std::vector<u08_t>{255});
}

/// start + x . y in both modes of iv_mat_muladd, which must agree to the bit.
template <typename T>
T sum(int type, T start, const std::vector<T>& x, const std::vector<T>& y) {
    const int n = static_cast<int>(x.size());
    Matrix<T> row(type, 1, n, x), other_row(type, 1, n, y), other_column(type, n, 1, y);
    Matrix<T> addend(type, 1, 1, {start}), d(type, 1, 1, {T{0}}), e(type, 1, 1, {T{0}});
    iv_mat_muladd(row, other_column, addend, d, 0);
    iv_mat_muladd(row, other_row, addend, e, IV_MAT_TRANS_SRC2);
    EXPECT_EQ(bits_of(d.values()[0]), bits_of(e.values()[0])) << d.values()[0];
    return d.values()[0];
}

/// start - x . y by iv_mat_submul.
template <typename T>
T difference(int type, T start, const std::vector<T>& x, const std::vector<T>& y) {
    const int n = static_cast<int>(x.size());
    Matrix<T> row(type, 1, n, x), column(type, n, 1, y);
    Matrix<T> a(type, 1, 1, {start}), d(type, 1, 1, {T{0}});
    iv_mat_submul(a, row, column, d, 0);
    return d.values()[0];
}

// The square of 1 + 2^-12 is 1 + 2^-11 + 2^-24; the last term is lost when the square is rounded.
constexpr float V = 1 + 0x1p-12f;
constexpr double W = 1 + 0x1p-27;

TEST(MatrixFused, EveryTermIsFused) {
    EXPECT_EQ(sum<float>(IV_32F, -(1 + 0x1p-11f), {V}, {V}), 0x1p-24f);
    EXPECT_EQ(sum<double>(IV_64F, -(1 + 0x1p-26), {W}, {W}), 0x1p-54);
    EXPECT_EQ(difference<float>(IV_32F, 1 + 0x1p-11f, {V}, {V}), -0x1p-24f);
    EXPECT_EQ(difference<double>(IV_64F, 1 + 0x1p-26, {W}, {W}), -0x1p-54);
    EXPECT_EQ(sum<float>(IV_32F, 0x1p-60f, {V}, {V}), 1 + 0x1p-11f + 0x1p-23f);
}

TEST(MatrixFused, TermsEnterInAscendingOrderOnTopOfTheAddend) {
    for (const std::size_t n : {1u, 2u, 3u, 4u, 5u, 8u, 9u, 17u}) {
        const std::vector<float> small(n, 0x1p-25f), ones(n, 1.0f);
        EXPECT_EQ(sum<float>(IV_32F, 1.0f, small, ones), 1.0f) << n << " terms";
        EXPECT_EQ(difference<float>(IV_32F, 1.0f, small, ones), 1.0f) << n << " terms";
        const std::vector<double> tiny(n, 0x1p-54), double_ones(n, 1.0);
        EXPECT_EQ(sum<double>(IV_64F, 1.0, tiny, double_ones), 1.0) << n << " terms";
        EXPECT_EQ(difference<double>(IV_64F, 1.0, tiny, double_ones), 1.0) << n << " terms";
    }
    EXPECT_EQ(sum<float>(IV_32F, 1.0f, {0x1p-24f, -1.0f, 0x1p-30f}, {1, 1, 1}), 0x1p-30f);
    EXPECT_EQ(difference<float>(IV_32F, 1.0f, {-0x1p-24f, 1.0f, -0x1p-30f}, {1, 1, 1}), 0x1p-30f);
}

TEST(MatrixFused, SignedZerosFollowTheAddend) {
    EXPECT_EQ(bits_of(sum<float>(IV_32F, -0.0f, {-0.0f}, {1.0f})), 0x80000000u);
    EXPECT_EQ(bits_of(difference<float>(IV_32F, -0.0f, {0.0f}, {1.0f})), 0x80000000u);
    EXPECT_EQ(bits_of(difference<float>(IV_32F, -0.0f, {-0.0f}, {1.0f})), 0u);
}

} // namespace
