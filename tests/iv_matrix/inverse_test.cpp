// The inverse and its work area, which outlives the calls.
#include "iv_matrix/inverse.h"

#include <gtest/gtest.h>

#include <cmath>

#include "support/matrix.h"

namespace {

using iv::internal::_matinv_nxn;
using test::bits_of;
using test::FloatMatrix;
using test::HIGH_TYPE_BIT;
using test::INFINITE;
using test::Matrix;
using test::NOT_A_NUMBER;

/// The inverse of a matrix of order n; the call has to succeed.
std::vector<float> inverse(int n, const std::vector<float>& values) {
    FloatMatrix src(n, n, values), dst(n, n, std::vector<float>(values.size(), 99.0f));
    EXPECT_EQ(iv_mat_inv(src, dst), 0);
    EXPECT_EQ(src.values().size(), values.size());
    return dst.values();
}

std::vector<float> identity(int n) {
    std::vector<float> values(static_cast<std::size_t>(n * n), 0.0f);
    for (int i = 0; i < n; ++i) {
        values[static_cast<std::size_t>(i * n + i)] = 1.0f;
    }
    return values;
}

TEST(MatrixInverse, OneByOneIsTheReciprocal) {
    EXPECT_EQ(inverse(1, {4}), std::vector<float>{0.25f});
}

TEST(MatrixInverse, SourceStaysAndStatusIsZero) {
    FloatMatrix src(2, 2, {2, 4, 1, 4}), dst(2, 2, {9, 9, 9, 9});
    EXPECT_EQ(iv_mat_inv(src, dst), 0);
    EXPECT_EQ(dst.values(), (std::vector<float>{1, -1, -0.25f, 0.5f}));
    EXPECT_EQ(src.values(), (std::vector<float>{2, 4, 1, 4}));
}

TEST(MatrixInverse, DestinationMayBeTheSource) {
    FloatMatrix mat(2, 2, {2, 4, 1, 4});
    EXPECT_EQ(iv_mat_inv(mat, mat), 0);
    EXPECT_EQ(mat.values(), (std::vector<float>{1, -1, -0.25f, 0.5f}));
}

TEST(MatrixInverse, ZeroPivotTakesTheNextRow) {
    EXPECT_EQ(inverse(2, {0, 1, 1, 0}), (std::vector<float>{0, 1, 1, 0}));
    EXPECT_EQ(inverse(2, {-0.0f, 1, 1, 0}), (std::vector<float>{0, 1, 1, 0}));
}

TEST(MatrixInverse, LastRowIsTakenUnexamined) {
    EXPECT_EQ(inverse(3, {0, 1, 0, 0, 0, 1, 5, 0, 0}),
              (std::vector<float>{0, 0, 0.2f, 1, 0, 0, 0, 1, 0}));
}

// The first usable row holds so small a pivot that rounding shows it was taken: the exact inverse
// has -1 and 1 in the first row.
TEST(MatrixInverse, FirstRowBelowWithANonZeroEntryIsTakenHoweverSmall) {
    const float e = 0x1p-30f;
    EXPECT_EQ(inverse(3, {0, 0, 1, e, 1, 0, 1, 1, 0}),
              (std::vector<float>{0, 0, 1, 0, 1, -e, 1, 0, 0}));
    EXPECT_EQ(inverse(4, {0, 0, 1, 0, 0, 0, 0, 1, e, 1, 0, 0, 1, 1, 0, 0}),
              (std::vector<float>{0, 0, 0, 1, 0, 0, 1, -e, 1, 0, 0, 0, 0, 1, 0, 0}));
}

TEST(MatrixInverse, NonZeroPivotIsKeptHoweverSmall) {
    const float e = 0x1p-30f;
    EXPECT_EQ(inverse(2, {e, 1, 1, 1}), (std::vector<float>{0, 1, 1, -e}));
}

TEST(MatrixInverse, ZeroColumnGivesNoFiniteResultAndStatusZero) {
    for (const float value : inverse(3, {0, 1, 2, 0, 3, 4, 0, 5, 6})) {
        EXPECT_FALSE(std::isfinite(value)) << value;
    }
}

// Row 0 after the first column is 3, 3, 1, 0; row 1 is 2^-54, 2^-20, -1/3 in single precision, 1.
TEST(MatrixInverse, FactorsAreDoublesAndEntriesFloats) {
    EXPECT_EQ(inverse(2, {3, 3, 1, 1 + 0x1p-20f}),
              (std::vector<float>{349525.65625f, -1048576, -349525.34375f, 1048576}));
}

// Row 1 is left with 2^-54 on and before the diagonal; eliminating with it clears the first pivot.
TEST(MatrixInverse, EliminationReachesColumnsLeftOfThePivot) {
    EXPECT_EQ(inverse(2, {3, 3, 1, 1}),
              (std::vector<float>{INFINITE, -INFINITE, -11184811 * 0x1p29f, 0x1p54f}));
}

TEST(MatrixInverse, OrderOfFortyIsAccepted) {
    std::vector<float> twice = identity(40), half = identity(40);
    for (std::size_t i = 0; i < twice.size(); ++i) {
        twice[i] *= 2.0f;
        half[i] *= 0.5f;
    }
    twice[39] = 8.0f;
    half[39] = -2.0f;
    EXPECT_EQ(inverse(40, twice), half);
}

TEST(MatrixInverse, OrderOfFortyOneIsRefused) {
    const std::vector<float> nines(41 * 41, 9.0f);
    FloatMatrix src(41, 41, identity(41)), dst(41, 41, nines);
    EXPECT_EQ(iv_mat_inv(src, dst), -1);
    EXPECT_EQ(dst.values(), nines);
    EXPECT_EQ(_matinv_nxn(41, src->data.f, dst->data.f), -1);
    EXPECT_EQ(dst.values(), nines);
}

TEST(MatrixInverse, OrderOfZeroOrLessDoesNothing) {
    FloatMatrix src(0, 0, {5}), dst(0, 0, {9});
    EXPECT_EQ(iv_mat_inv(src, dst), 0);
    src->rows = dst->rows = src->cols = dst->cols = -1;
    EXPECT_EQ(iv_mat_inv(src, dst), 0);
    EXPECT_EQ(_matinv_nxn(-41, src->data.f, dst->data.f), 0);
    EXPECT_EQ(dst.values(), std::vector<float>{9});
}

template <typename D>
class EachDepthInverse : public ::testing::Test {};
TYPED_TEST_SUITE(EachDepthInverse, test::AllDepths, test::DepthNames);

TYPED_TEST(EachDepthInverse, OnlySingleChannelFloatsAreAccepted) {
    using T = typename TypeParam::Scalar;
    for (const int type :
         {TypeParam::code, IV_MAKETYPE(TypeParam::code, 2), TypeParam::code | HIGH_TYPE_BIT}) {
        Matrix<T> src(type, 1, 1, {2, 2}), dst(type, 1, 1, {9, 9});
        const bool accepted = type == IV_32F;
        EXPECT_EQ(iv_mat_inv(src, dst), accepted ? 0 : -1) << "type " << type;
        EXPECT_EQ(dst.values()[0] == 9, !accepted) << "type " << type;
    }
}

TEST(MatrixInverse, DifferentHeadersAreRefused) {
    struct Header {
        int type, rows, cols;
    };
    for (const Header& other :
         {Header{IV_32S, 2, 2}, Header{IV_32F | HIGH_TYPE_BIT, 2, 2}, Header{IV_32F, 1, 2},
          Header{IV_32F, 3, 2}, Header{IV_32F, 2, 1}, Header{IV_32F, 2, 3}}) {
        const std::vector<float> nines(6, 9.0f);
        FloatMatrix src(2, 2, {2, 0, 0, 2});
        Matrix<float> dst(other.type, other.rows, other.cols, nines);
        EXPECT_EQ(iv_mat_inv(src, dst), -1);
        EXPECT_EQ(dst.values(), nines);
        FloatMatrix reversed(2, 2, {9, 9, 9, 9});
        EXPECT_EQ(iv_mat_inv(dst, reversed), -1);
        EXPECT_EQ(reversed.values(), (std::vector<float>{9, 9, 9, 9}));
    }
}

TEST(MatrixInverse, RowsAloneGiveTheOrder) {
    FloatMatrix src(2, 3, {2, 4, 1, 4, 7, 7}), dst(2, 3, {9, 9, 9, 9, 9, 9});
    EXPECT_EQ(iv_mat_inv(src, dst), 0);
    EXPECT_EQ(dst.values(), (std::vector<float>{1, -1, -0.25f, 0.5f, 9, 9}));
    FloatMatrix wide(1, 50, std::vector<float>(50, 4.0f)), out(1, 50, std::vector<float>(50, 9.0f));
    EXPECT_EQ(iv_mat_inv(wide, out), 0);
    EXPECT_EQ(out.values()[0], 0.25f);
}

TEST(MatrixInverse, StepIsNotRead) {
    FloatMatrix src(2, 2, {2, 4, 1, 4, 7, 7}), dst(2, 2, {9, 9, 9, 9, 9, 9});
    src->step = dst->step = 12;
    EXPECT_EQ(iv_mat_inv(src, dst), 0);
    EXPECT_EQ(dst.values(), (std::vector<float>{1, -1, -0.25f, 0.5f, 9, 9}));
}

TEST(MatrixInverse, RawRoutineWorksOnPlainArrays) {
    float a[4] = {2, 4, 1, 4};
    float inverse_of_a[4] = {9, 9, 9, 9};
    EXPECT_EQ(_matinv_nxn(2, a, inverse_of_a), 0);
    EXPECT_EQ(std::vector<float>(inverse_of_a, inverse_of_a + 4),
              (std::vector<float>{1, -1, -0.25f, 0.5f}));
}

// One third in double precision times three is 1 - 2^-54, so the fused elimination leaves row 1 of
// the work area with 2^-54 and 1 in front. A zero of order 1 takes that row for its pivot.
TEST(MatrixInverseWorkArea, ZeroLastPivotTakesTheRowThatALargerOrderLeft) {
    inverse(2, {3, 0, 1, 1});
    EXPECT_EQ(inverse(1, {0}), std::vector<float>{0x1p54f});
}

TEST(MatrixInverseWorkArea, RowsTakenAreExchanged) {
    inverse(2, {3, 0, 1, 1});
    inverse(1, {0});
    EXPECT_EQ(inverse(1, {0}), std::vector<float>{INFINITE}) << "of the row 0, 1 put there before";
}

TEST(MatrixInverseWorkArea, NaNPivotCountsAsNonZero) {
    inverse(2, {3, 0, 1, 1});
    EXPECT_TRUE(std::isnan(inverse(1, {NOT_A_NUMBER})[0]));
}

TEST(MatrixInverseWorkArea, FactorIsAQuotientAndNotAProductWithAReciprocal) {
    inverse(2, {49, 0, 49, 1});
    EXPECT_EQ(inverse(1, {0}), std::vector<float>{INFINITE}) << "49 * (1 / 49) is not 1";
}

TEST(MatrixInverseWorkArea, ColumnsLeftOfThePivotAreNotExchanged) {
    inverse(3, {3, 0, 0, 1, 0, 1, 6, 1, 0});
    EXPECT_EQ(inverse(1, {0}), std::vector<float>{0x1p54f});
}

// Row 2 is left with 2^-54 in front: a pivot, if it were looked at.
TEST(MatrixInverseWorkArea, RowsBelowTheMatrixAreNotExaminedForAPivot) {
    inverse(3, {3, 0, 0, 0, 1, 0, 1, 0, 1});
    for (const float value : inverse(2, {0, 1, 0, 2})) {
        EXPECT_FALSE(std::isfinite(value)) << value;
    }
}

// Row 2 is left as 0, 2^-55, 1, -2, ...: all of it divided by its pivot, which was 2.
TEST(MatrixInverseWorkArea, BothHalvesAreNormalised) {
    inverse(3, {1, 0, 0, 0, 3, 0, 4, 1, 2});
    EXPECT_EQ(inverse(2, {1, 0, 0, 0}), (std::vector<float>{1, 0, 0x1p55f, -0x1p56f}));
}

TEST(MatrixInverseWorkArea, FirstColumnIsNormalisedToo) {
    inverse(2, {3, 0, 1, 2});
    EXPECT_EQ(inverse(1, {0}), std::vector<float>{0x1p55f});
}

TEST(MatrixInverseWorkArea, RowBelowTheMatrixStaysUntilItIsTaken) {
    inverse(3, {1, 0, 0, 0, 3, 0, 4, 1, 2});
    inverse(2, {2, 4, 1, 4});
    inverse(2, {0, 1, 1, 0});
    EXPECT_EQ(inverse(2, {1, 0, 0, 0}), (std::vector<float>{1, 0, 0x1p55f, -0x1p56f}));
    inverse(2, {2, 4, 1, 4});
    EXPECT_EQ(inverse(2, {1, 0, 0, 0})[3], INFINITE) << "of the row 0, 0, 1 put there before";
}

// Rows of order 40 fill the work area: one column too many would be the next row's first.
TEST(MatrixInverseWorkArea, RowsOfOrderFortyDoNotReachTheNext) {
    std::vector<float> a = identity(40), expected = identity(40);
    a[0] = 3, a[40] = 1, a[80] = 3 * 0x1p60f;
    expected[0] = 1.0f / 3.0f, expected[40] = -1.0f / 3.0f, expected[80] = -0x1p60f;
    EXPECT_EQ(inverse(40, a), expected);
    EXPECT_EQ(inverse(1, {0}), std::vector<float>{0x1p54f});
}

TEST(MatrixInverseWorkArea, ExchangedRowsOfOrderFortyDoNotReachTheNext) {
    std::vector<float> a = identity(40);
    a[0] = 0, a[1] = 1, a[40] = 1, a[41] = 0;
    std::vector<float> expected = a;
    a[80] = 5, expected[81] = -5;
    EXPECT_EQ(inverse(40, a), expected);
}

// Row 2 holds 0, 0, 1, 1/4 in the columns of order 2: the pivot is zero, the rest is not.
TEST(MatrixInverseWorkArea, RightHalfOfTheTakenRowEntersTheResult) {
    inverse(3, {1, 0, 0, 0, 1, 0, -0.25f, 0, 1});
    const std::vector<float> result = inverse(2, {1, 0, 0, 0});
    EXPECT_EQ(result[2], INFINITE);
    EXPECT_EQ(result[3], INFINITE);
}

TEST(MatrixInverseWorkArea, OrderWithoutAZeroLastPivotIgnoresWhatWasLeft) {
    inverse(3, {3, 1, 1, 1, 3, 1, 1, 1, 3});
    EXPECT_EQ(inverse(2, {2, 4, 1, 4}), (std::vector<float>{1, -1, -0.25f, 0.5f}));
}

// Were the pivot row kept in the spare row, its identity half would make an infinity of the last
// entry.
TEST(MatrixInverseWorkArea, OrderFortyTakesASpareRowThatStaysZero) {
    std::vector<float> singular = identity(40);
    singular.back() = 0.0f;
    for (int call = 1; call <= 3; ++call) {
        for (const float value : inverse(40, singular)) {
            ASSERT_TRUE(std::isnan(value)) << value << " in call " << call;
        }
    }
}

// Row 39 is that of the identity: 1 in columns 39 and 79. Order 39 reads columns 38 to 77.
TEST(MatrixInverseWorkArea, OrderThirtyNineTakesTheLastRowOfOrderForty) {
    inverse(40, identity(40));
    std::vector<float> singular = identity(39);
    singular.back() = 0.0f;
    const std::vector<float> result = inverse(39, singular);
    EXPECT_EQ(result[38 * 39], INFINITE);
    EXPECT_TRUE(std::isnan(result[38 * 39 + 1]));
}

} // namespace
