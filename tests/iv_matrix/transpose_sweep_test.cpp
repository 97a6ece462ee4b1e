// The transpose of every small shape and of some larger odd ones, against the model: where squares
// begin and end, and where overlap forbids them.
#include <gtest/gtest.h>

#include "model/twin.h"

namespace {

using test::NanRule;
using test::Operand;
using test::Random;
using test::Twin;

void expect_model_result(Twin& twin, const Operand& src, const Operand& dst) {
    twin.run([&](auto side, auto at) { side.transpose(at(src), at(dst)); });
    twin.expect_same(dst, NanRule::COPIED);
    if (testing::Test::HasFailure()) {
        FAIL() << "type " << src.mat.type << ", " << src.mat.rows << " x " << src.mat.cols
               << ", offsets " << src.offset << " -> " << dst.offset;
    }
}

/// One depth of each width; unsigned and signed ones move alike.
constexpr int WIDTHS[] = {model::U8, model::S16, model::F32, model::F64};

TEST(TransposeSweep, EveryShapeTo40x40) {
    Random random(test::seed() + 70);
    for (const int type : WIDTHS) {
        for (int rows = 1; rows <= 40; ++rows) {
            for (int cols = 1; cols <= 40; ++cols) {
                Twin twin(random, 0.1f);
                const Operand src = twin.place(type, rows, cols);
                const Operand dst = twin.place(type, cols, rows);
                expect_model_result(twin, src, dst);
                ASSERT_FALSE(HasFailure());
            }
        }
    }
}

TEST(TransposeSweep, LargerOddShapes) {
    Random random(test::seed() + 71);
    for (const int type : WIDTHS) {
        for (const auto& [rows, cols] :
             {std::pair(63, 65), std::pair(64, 64), std::pair(65, 63), std::pair(131, 67),
              std::pair(16, 301), std::pair(301, 16), std::pair(5, 200), std::pair(200, 5),
              std::pair(127, 129), std::pair(1, 500), std::pair(500, 1)}) {
            Twin twin(random);
            const Operand src = twin.place(type, rows, cols);
            const Operand dst = twin.place(type, cols, rows);
            expect_model_result(twin, src, dst);
            ASSERT_FALSE(HasFailure());
        }
    }
}

// Two to eight channels may be as wide as one value of another depth.
TEST(TransposeSweep, EveryNumberOfChannelsMovesWholeElements) {
    Random random(test::seed() + 72);
    for (int type = 0; type < 256; ++type) {
        for (const auto& [rows, cols] :
             {std::pair(3, 5), std::pair(8, 8), std::pair(17, 19), std::pair(1, 9)}) {
            Twin twin(random);
            const Operand src = twin.place(type, rows, cols);
            const Operand dst = twin.place(type, cols, rows);
            expect_model_result(twin, src, dst);
            ASSERT_FALSE(HasFailure());
        }
    }
}

TEST(TransposeSweep, InPlaceMirrorsWhateverTheSize) {
    Random random(test::seed() + 73);
    for (const int type : WIDTHS) {
        for (const int n : {1, 2, 4, 8, 15, 16, 17, 32, 33, 64, 70}) {
            Twin twin(random);
            const Operand mat = twin.place(type, n, n);
            expect_model_result(twin, mat, mat);
            ASSERT_FALSE(HasFailure());
        }
    }
}

// The destination starts around either end of the source: the last byte that they share counts.
TEST(TransposeSweep, EveryDistanceAroundTheLengthGivesTheResultOfOneValueAfterTheOther) {
    Random random(test::seed() + 74);
    for (const int type : WIDTHS) {
        for (const int n : {1, 4, 16, 33}) {
            const int span = n * n * model::value_size(type);
            for (int beyond = -9; beyond <= 9; ++beyond) {
                if (span + beyond < 0) {
                    continue;
                }
                Twin twin(random);
                const Operand pool =
                    twin.place(type, 1, 1, static_cast<std::size_t>(2 * span + 16));
                const Operand low = Twin::over(pool.offset, type, n, n);
                const Operand high =
                    Twin::over(pool.offset + static_cast<std::size_t>(span + beyond), type, n, n);
                expect_model_result(twin, low, high);
                expect_model_result(twin, high, low);
                ASSERT_FALSE(HasFailure());
            }
        }
    }
}

} // namespace
