// Fills and headers of random shapes and types against the model.
#include <gtest/gtest.h>

#include <climits>
#include <cstdlib>

#include "model/twin.h"

namespace {

using test::NanRule;
using test::Operand;
using test::Random;
using test::Twin;

/// Room for whatever a fill writes to a matrix of this shape, negative lengths included.
std::size_t room(int type, int rows, int cols) {
    const int elements = (std::abs(rows) + 2) * (std::abs(cols) + 2);
    return static_cast<std::size_t>(elements * model::channels_of(type) * model::value_size(type));
}

Operand place_any_shape(Twin& twin, Random& random) {
    const int type = test::random_type(random);
    const int rows = random.chance(0.1f) ? random.between(-4, 0) : test::random_length(random);
    const int cols = random.chance(0.1f) ? random.between(-4, 0) : test::random_length(random);
    return twin.place(type, rows, cols, room(type, rows, cols));
}

/// Runs `fill(side, matrix, at)` on random matrices with random steps, which only setzero reads.
template <class Fill>
void expect_fills_like_the_model(std::uint64_t salt, Fill fill) {
    Random random(test::seed() + salt);
    for (int round = 0; round < test::rounds(1500); ++round) {
        SCOPED_TRACE(round);
        Twin twin(random, test::random_hostility(random));
        Operand mat = place_any_shape(twin, random);
        const Operand values = twin.place(mat.mat.type, 1, 50);
        mat.mat.step = random.between(-100, 100);
        twin.run([&](auto side, auto at) { fill(side, at(mat), at(values).data); });
        twin.expect_same(mat, NanRule::COPIED);
        if (testing::Test::HasFailure()) {
            FAIL() << "type " << mat.mat.type << ", " << mat.mat.rows << " x " << mat.mat.cols;
        }
    }
}

TEST(FillRandom, IdentityWritesChannelZeroOfEveryElementAndNothingElse) {
    expect_fills_like_the_model(
        1, [](auto side, const model::Mat& mat, unsigned char*) { side.setidentity(mat); });
}

TEST(FillRandom, DiagonalCopiesItsValuesBitForBit) {
    expect_fills_like_the_model(2, [](auto side, const model::Mat& mat, unsigned char* values) {
        side.setdiagonal(values, mat);
    });
}

TEST(FillRandom, OneFillsEveryChannel) {
    expect_fills_like_the_model(
        3, [](auto side, const model::Mat& mat, unsigned char*) { side.setone(mat); });
}

TEST(FillRandom, ZeroClearsRowsTimesStepBytes) {
    Random random(test::seed() + 4);
    for (int round = 0; round < test::rounds(1500); ++round) {
        SCOPED_TRACE(round);
        Twin twin(random);
        const int type = test::random_type(random);
        const int rows = test::random_length(random);
        const int cols = test::random_length(random);
        const int step = random.between(0, 60);
        Operand mat = twin.place(type, rows, cols, static_cast<std::size_t>(rows * step));
        mat.mat.step = step;
        twin.run([&](auto side, auto at) { side.setzero(at(mat)); });
        twin.expect_same(mat, NanRule::COPIED);
    }
}

TEST(FillRandom, CountsOfValuesWrapAt32Bits) {
    const int type = model::U8;
    for (const auto& [rows, cols] : {std::pair(65536, 65536), std::pair(65536, 65537)}) {
        Random random(test::seed());
        Twin twin(random);
        Operand mat = twin.place(type, 1, 65536 + 100);
        mat.mat.rows = rows;
        mat.mat.cols = mat.mat.step = cols;
        twin.run([&](auto side, auto at) { side.setone(at(mat)); });
        twin.expect_same(mat, NanRule::COPIED);
        twin.run([&](auto side, auto at) { side.setzero(at(mat)); });
        twin.expect_same(mat, NanRule::COPIED);
    }
}

// The diagonal is written, but no zeros behind it: the count of all values is negative.
TEST(FillRandom, DiagonalOfTwoToThe31ValuesEndsWithItsLastValue) {
    Random random(test::seed() + 6);
    for (int depth = model::U8; depth <= model::F64; ++depth) {
        Twin twin(random);
        Operand mat = twin.place(depth, 1, 10);
        const Operand values = twin.place(depth, 1, 2);
        mat.mat.rows = 1 << 30;
        mat.mat.cols = 2;
        twin.run([&](auto side, auto at) { side.setidentity(at(mat)); });
        twin.expect_same(mat, NanRule::COPIED);
        twin.run([&](auto side, auto at) { side.setdiagonal(at(values).data, at(mat)); });
        twin.expect_same(mat, NanRule::COPIED);
    }
}

TEST(RecordRandom, HeaderTakesAnyFieldsAndItsStepWrapsAt32Bits) {
    Random random(test::seed() + 5);
    unsigned char value = 0;
    for (int round = 0; round < test::rounds(5000); ++round) {
        const int type = test::random_type(random);
        const int rows = static_cast<int>(static_cast<unsigned>(random.bits()));
        const int cols = random.chance(0.5f)
                             ? test::random_length(random)
                             : static_cast<int>(static_cast<unsigned>(random.bits()));
        iv_mat_t record;
        ASSERT_EQ(iv_mat_initheader(&record, rows, cols, type, &value), &record);
        const model::Mat expected = model::header(type, rows, cols, &value);
        ASSERT_EQ(record.type, expected.type);
        ASSERT_EQ(record.rows, expected.rows);
        ASSERT_EQ(record.cols, expected.cols);
        ASSERT_EQ(record.step, expected.step) << "type " << type << ", " << cols << " columns";
        ASSERT_EQ(record.data.p, &value);
    }
}

} // namespace
