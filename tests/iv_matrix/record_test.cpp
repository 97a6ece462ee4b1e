// Making, releasing and clearing matrices.
#include <gtest/gtest.h>

#include <climits>
#include <cstddef>
#include <cstdlib>
#include <type_traits>

#include "support/allocations.h"
#include "support/matrix.h"

namespace {

using test::Allocations;
using test::FloatMatrix;
using test::HIGH_TYPE_BIT;
using test::Matrix;

constexpr std::size_t HEADER = sizeof(iv_mat_t);

/// The size that iv_mat_create asks malloc for; the request itself is made to fail.
std::size_t requested_size(int rows, int cols, int type) {
    Allocations allocations;
    allocations.fail_nth(1);
    EXPECT_EQ(iv_mat_create(rows, cols, type), nullptr);
    return allocations.sizes().size() == 1 ? allocations.sizes()[0] : 0;
}

TEST(MatrixRecord, FieldsFollowOneAnotherWithoutGaps) {
    EXPECT_EQ(offsetof(iv_mat_t, type), 0u);
    EXPECT_EQ(offsetof(iv_mat_t, rows), 4u);
    EXPECT_EQ(offsetof(iv_mat_t, cols), 8u);
    EXPECT_EQ(offsetof(iv_mat_t, step), 12u);
    EXPECT_EQ(offsetof(iv_mat_t, data), 16u);
    EXPECT_EQ(HEADER, 16u + sizeof(void*));
}

TEST(MatrixRecord, TypeCodePacksDepthAndChannels) {
    EXPECT_EQ(IV_MAKETYPE(IV_64F, 1), 7);
    EXPECT_EQ(IV_MAKETYPE(IV_16U, 3), 18);
    EXPECT_EQ(IV_MAKETYPE(IV_8U, 32), 248);
    EXPECT_EQ(IV_MAT_DEPTH(IV_MAKETYPE(IV_64S, 32) | HIGH_TYPE_BIT), IV_64S);
    EXPECT_EQ(IV_MAT_CN(IV_MAKETYPE(IV_64S, 32) | HIGH_TYPE_BIT), 32);
    EXPECT_EQ(IV_MAT_CN(IV_MAKETYPE(IV_8S, 1) | HIGH_TYPE_BIT), 1);
}

TEST(MatrixRecord, DepthCodesRunFromZeroToSeven) {
    const int codes[8] = {IV_8U, IV_8S, IV_16U, IV_16S, IV_32S, IV_32F, IV_64S, IV_64F};
    for (int i = 0; i < 8; ++i) {
        EXPECT_EQ(codes[i], i);
    }
}

TEST(MatrixRecord, ScalarTypesHaveTheirWidthAndSign) {
    EXPECT_TRUE(std::is_signed_v<s08_t> && sizeof(s08_t) == 1);
    EXPECT_TRUE(std::is_unsigned_v<u08_t> && sizeof(u08_t) == 1);
    EXPECT_TRUE(std::is_signed_v<s16_t> && sizeof(s16_t) == 2);
    EXPECT_TRUE(std::is_unsigned_v<u16_t> && sizeof(u16_t) == 2);
    EXPECT_TRUE(std::is_signed_v<s32_t> && sizeof(s32_t) == 4);
    EXPECT_TRUE(std::is_signed_v<s64_t> && sizeof(s64_t) == 8);
    EXPECT_TRUE(std::is_unsigned_v<u64_t> && sizeof(u64_t) == 8);
    EXPECT_TRUE((std::is_same_v<f32_t, float> && std::is_same_v<f64_t, double>));
}

template <typename D>
class EachDepthRecord : public ::testing::Test {};
TYPED_TEST_SUITE(EachDepthRecord, test::AllDepths, test::DepthNames);

TYPED_TEST(EachDepthRecord, StepAndBlockHoldAllChannels) {
    constexpr int size = sizeof(typename TypeParam::Scalar);
    EXPECT_EQ(IV_ELEM_SIZE1(TypeParam::code), size);
    for (const int channels : {1, 2, 3, 31, 32}) {
        const int type = IV_MAKETYPE(TypeParam::code, channels);
        iv_mat_t header;
        iv_mat_initheader(&header, 2, 5, type, nullptr);
        EXPECT_EQ(header.step, 5 * channels * size) << channels << " channels";
        EXPECT_EQ(requested_size(2, 5, type),
                  HEADER + static_cast<std::size_t>(10 * channels * size));
    }
}

TEST(MatrixHeader, NullRecordGivesNull) {
    float value = 3.0f;
    EXPECT_EQ(iv_mat_initheader(nullptr, 1, 1, IV_32F, &value), nullptr);
    EXPECT_EQ(value, 3.0f);
}

TEST(MatrixHeader, StoresItsArgumentsUnchanged) {
    iv_mat_t header;
    float value = 3.0f;
    const int type = -1 & ~HIGH_TYPE_BIT;
    EXPECT_EQ(iv_mat_initheader(&header, -7, -3, type, &value), &header);
    EXPECT_EQ(header.type, type);
    EXPECT_EQ(header.rows, -7);
    EXPECT_EQ(header.cols, -3);
    EXPECT_EQ(header.step, 32 * 8 * -3);
    EXPECT_EQ(header.data.f, &value);
    EXPECT_EQ(value, 3.0f);
}

TEST(MatrixHeader, StepOfThreeChannelWordsIs18AndOfFiveDoublesIs40) {
    iv_mat_t header;
    iv_mat_initheader(&header, 2, 3, IV_MAKETYPE(IV_16U, 3), nullptr);
    EXPECT_EQ(header.step, 18);
    iv_mat_initheader(&header, 1, 5, IV_64F, nullptr);
    EXPECT_EQ(header.step, 40);
}

TEST(MatrixHeader, StepWrapsAround) {
    iv_mat_t header;
    iv_mat_initheader(&header, 1, 1 << 29, IV_64F, nullptr);
    EXPECT_EQ(header.step, 0);
    iv_mat_initheader(&header, 1, 1 << 28, IV_64F, nullptr);
    EXPECT_EQ(header.step, INT_MIN);
    iv_mat_initheader(&header, 1, (1 << 29) + 1, IV_64F, nullptr);
    EXPECT_EQ(header.step, 8);
}

TEST(MatrixCreate, IsOneBlockWithTheValuesBehindTheHeader) {
    Allocations allocations;
    iv_mat_t* mat = iv_mat_create(3, 5, IV_MAKETYPE(IV_16S, 2));
    ASSERT_NE(mat, nullptr);
    EXPECT_EQ(allocations.made(), 1);
    EXPECT_EQ(mat->type, IV_MAKETYPE(IV_16S, 2));
    EXPECT_EQ(mat->rows, 3);
    EXPECT_EQ(mat->cols, 5);
    EXPECT_EQ(mat->step, 20);
    EXPECT_EQ(static_cast<void*>(mat->data.p), static_cast<void*>(mat + 1));
    iv_mat_release(mat);
    EXPECT_EQ(allocations.freed_blocks(), std::vector<void*>{mat});
}

TEST(MatrixCreate, NoRowsGiveAHeaderAlone) {
    Allocations allocations;
    iv_mat_t* mat = iv_mat_create(0, 4, IV_32F);
    ASSERT_NE(mat, nullptr);
    EXPECT_EQ(mat->rows, 0);
    EXPECT_EQ(mat->step, 16);
    EXPECT_EQ(static_cast<void*>(mat->data.p), static_cast<void*>(mat + 1));
    EXPECT_EQ(allocations.sizes(), std::vector<std::size_t>{HEADER});
    iv_mat_release(mat);
    EXPECT_EQ(allocations.freed(), 1);
}

TEST(MatrixCreate, FailedAllocationGivesNull) {
    Allocations allocations;
    allocations.fail_nth(1);
    EXPECT_EQ(iv_mat_create(2, 2, IV_32F), nullptr);
    EXPECT_EQ(allocations.sizes().size(), 1u);
    EXPECT_EQ(allocations.made(), 0);
    EXPECT_EQ(allocations.freed(), 0);
}

TEST(MatrixCreate, NegativeSizesAreWidenedWithTheirSign) {
    EXPECT_EQ(requested_size(-1, 1, IV_8U), HEADER - 1);
    EXPECT_EQ(requested_size(3, -1, IV_64F), HEADER - 24);
    EXPECT_EQ(requested_size(-2, 4, IV_32F), HEADER - 32);
    EXPECT_EQ(requested_size(-2, -4, IV_32F), HEADER + 32);
}

TEST(MatrixCreate, ByteCountWrapsAroundAt32Bits) {
    EXPECT_EQ(requested_size(65536, 65536, IV_8U), HEADER);
    EXPECT_EQ(requested_size(65536, 65537, IV_8U), HEADER + 65536);
    EXPECT_EQ(requested_size(32768, 65536, IV_8U), HEADER - (std::size_t{1} << 31));
    EXPECT_EQ(requested_size(1 << 28, 1, IV_MAKETYPE(IV_64F, 2)), HEADER);
    EXPECT_EQ(requested_size(INT_MAX, INT_MAX, IV_8U), HEADER + 1);
}

TEST(MatrixRelease, NullIsFine) {
    Allocations allocations;
    iv_mat_release(nullptr);
    EXPECT_EQ(allocations.freed(), 0);
}

TEST(MatrixRelease, HeaderOverSeparateValuesIsNotFreed) {
    FloatMatrix values(1, 2, {1.0f, 2.0f});
    iv_mat_t* header = iv_mat_create(1, 2, IV_32F);
    ASSERT_NE(header, nullptr);
    void* own_values = header->data.p;
    Allocations allocations;
    for (float* elsewhere : {values->data.f, static_cast<float*>(nullptr), header->data.f + 1}) {
        header->data.f = elsewhere;
        iv_mat_release(header);
        EXPECT_EQ(allocations.freed(), 0);
    }
    iv_mat_initheader(header, 1, 2, IV_32F, own_values);
    iv_mat_release(header);
    EXPECT_EQ(allocations.freed(), 1);
}

TEST(MatrixRelease, HeaderWithTheValuesRightBehindItIsFreedWhoeverMadeIt) {
    auto* block = static_cast<iv_mat_t*>(std::malloc(HEADER + 4));
    ASSERT_NE(block, nullptr);
    iv_mat_initheader(block, 9, 9, IV_64S, block + 1);
    Allocations allocations;
    iv_mat_release(block);
    EXPECT_EQ(allocations.freed_blocks(), std::vector<void*>{block});
}

TEST(MatrixSetZero, ClearsAllChannels) {
    Matrix<s16_t> mat(IV_MAKETYPE(IV_16S, 3), 3, 4, std::vector<s16_t>(36, -1));
    iv_mat_setzero(mat);
    EXPECT_EQ(mat.values(), std::vector<s16_t>(36, 0));
}

TEST(MatrixSetZero, ClearsRowsTimesStepBytes) {
    Matrix<u08_t> mat(IV_8U, 2, 2, std::vector<u08_t>(8, 9));
    mat->step = 3;
    iv_mat_setzero(mat);
    EXPECT_EQ(mat.values(), (std::vector<u08_t>{0, 0, 0, 0, 0, 0, 9, 9}));
}

TEST(MatrixSetZero, CountWrapsAroundAt32Bits) {
    Matrix<u08_t> mat(IV_8U, 1, 1, std::vector<u08_t>(8, 9));
    mat->rows = 65536;
    mat->step = 65536;
    iv_mat_setzero(mat);
    EXPECT_EQ(mat.values(), std::vector<u08_t>(8, 9));
    mat->rows = (1 << 30) + 1;
    mat->step = 4;
    iv_mat_setzero(mat);
    EXPECT_EQ(mat.values(), (std::vector<u08_t>{0, 0, 0, 0, 9, 9, 9, 9}));
}

TEST(MatrixSetZero, EmptyMatrixStaysAsItIs) {
    FloatMatrix mat(0, 3, {5.0f});
    iv_mat_setzero(mat);
    EXPECT_EQ(mat.values(), std::vector<float>{5.0f});
}

} // namespace
