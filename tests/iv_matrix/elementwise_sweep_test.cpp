// Element-wise arithmetic and fills over every length, alignment and small distance between
// operands, against the model: where vectors begin and end, and where overlap forbids them.
#include <gtest/gtest.h>

#include <array>

#include "model/twin.h"

namespace {

using test::NanRule;
using test::Operand;
using test::Random;
using test::Twin;

constexpr int DEPTHS = 8;

/// Bytes of the widest vectors, and a few values around multiples of them.
constexpr int WIDEST = 64;

template <class Side>
void apply(int operation, const model::Mat& src1, const model::Mat& src2, const model::Mat& dst) {
    switch (operation) {
        case 0:
            return Side::neg(src1, dst);
        case 1:
            return Side::scale(src2.data, src1, dst);
        case 2:
            return Side::add(src1, src2, dst);
        default:
            return Side::sub(src1, src2, dst);
    }
}
constexpr int OPERATIONS = 4;

/// Runs all operations on the operands, one after the other from the same values.
void expect_model_results(Twin& twin, const Operand& src1, const Operand& src2,
                          const Operand& dst) {
    for (int operation = 0; operation < OPERATIONS; ++operation) {
        twin.run([&](auto side, auto at) {
            apply<decltype(side)>(operation, at(src1), at(src2), at(dst));
        });
        twin.expect_same(dst, operation == 0 ? NanRule::COPIED : NanRule::PRODUCED);
        if (testing::Test::HasFailure()) {
            FAIL() << "operation " << operation << ", type " << dst.mat.type << ", " << dst.mat.cols
                   << " values, offsets " << src1.offset << ", " << src2.offset << " -> "
                   << dst.offset;
        }
    }
}

TEST(ElementwiseSweep, EveryLengthTo200GivesTheModelsBits) {
    Random random(test::seed() + 60);
    for (int depth = 0; depth < DEPTHS; ++depth) {
        for (int count = 0; count <= 200; ++count) {
            Twin twin(random, 0.05f);
            const Operand src1 = twin.place(depth, 1, count);
            const Operand src2 = twin.place(depth, 1, count, 8);
            const Operand dst = twin.place_destination(depth, 1, count);
            expect_model_results(twin, src1, src2, dst);
            ASSERT_FALSE(HasFailure());
        }
    }
}

TEST(ElementwiseSweep, EveryAlignmentOfTheDestinationGivesTheModelsBits) {
    Random random(test::seed() + 61);
    for (int depth = 0; depth < DEPTHS; ++depth) {
        for (int offset = 0; offset < WIDEST; ++offset) {
            // Twins start at any of 16 alignments, so that all of 64 and more are met.
            Twin twin(random);
            const int count = random.between(1, 6 * WIDEST);
            const Operand src1 = twin.place(depth, 1, count);
            const Operand src2 = twin.place(depth, 1, count, 8);
            Operand dst = twin.place(depth, 1, count + WIDEST);
            dst = Twin::over(dst.offset + static_cast<std::size_t>(offset), depth, 1, count);
            expect_model_results(twin, src1, src2, dst);
            ASSERT_FALSE(HasFailure());
        }
    }
}

TEST(ElementwiseSweep, InPlaceEveryLengthTo200GivesTheModelsBits) {
    Random random(test::seed() + 62);
    for (int depth = 0; depth < DEPTHS; ++depth) {
        for (int count = 1; count <= 200; ++count) {
            Twin twin(random, 0.05f);
            const Operand a = twin.place(depth, 1, count);
            const Operand b = twin.place(depth, 1, count, 8);
            expect_model_results(twin, a, b, a);
            expect_model_results(twin, b, a, a);
            expect_model_results(twin, a, a, a);
            ASSERT_FALSE(HasFailure());
        }
    }
}

// Long arrays may go by other registers than short ones.
TEST(ElementwiseSweep, ArraysLongerThanTheNearestCacheGiveTheModelsBits) {
    Random random(test::seed() + 67);
    for (int depth = 0; depth < DEPTHS; ++depth) {
        const int size = model::value_size(depth);
        for (const int bytes : {21846, 32768, 65536}) {
            for (int trial = 0; trial < 6; ++trial) {
                Twin twin(random, 0.05f);
                const int count = bytes / size + random.between(-3, 40);
                const Operand pool = twin.place(depth, 1, count + 2 * WIDEST);
                const Operand elsewhere = twin.place(depth, 1, count, 8);
                const Operand apart = twin.place_destination(depth, 1, count);
                const auto at = [&](int values) {
                    return Twin::over(pool.offset + static_cast<std::size_t>(values * size), depth,
                                      1, count);
                };
                const int place = random.between(0, WIDEST);
                expect_model_results(twin, at(place), elsewhere, apart);
                expect_model_results(twin, elsewhere, at(place), at(place));
                expect_model_results(twin, at(place), elsewhere, at(random.between(0, WIDEST)));
                ASSERT_FALSE(HasFailure());
            }
        }
    }
}

// The destination starts up to one and a half vectors before or behind a source, by whole values
// and, where no result can tell, by bytes.
TEST(ElementwiseSweep, EverySmallDistanceGivesTheResultOfOneValueAfterTheOther) {
    Random random(test::seed() + 63);
    constexpr int reach = WIDEST + WIDEST / 2;
    for (int depth = 0; depth < DEPTHS; ++depth) {
        const int size = model::value_size(depth);
        const bool integers = depth != model::F32 && depth != model::F64;
        for (const int bytes : {16, 32, 64, 128, 320}) {
            for (int distance = -reach; distance <= reach; distance += integers ? 1 : size) {
                Twin twin(random);
                const int count = bytes / size + random.between(-1, 2);
                const Operand pool = twin.place(
                    depth, 1, 1, static_cast<std::size_t>((count + 8) * size + 2 * reach));
                const Operand elsewhere = twin.place(depth, 1, count, 8);
                const auto at = [&](int offset) {
                    return Twin::over(pool.offset + static_cast<std::size_t>(reach + offset), depth,
                                      1, count);
                };
                expect_model_results(twin, at(0), elsewhere, at(distance));
                expect_model_results(twin, elsewhere, at(0), at(distance));
                ASSERT_FALSE(HasFailure());
            }
        }
    }
}

TEST(ElementwiseSweep, DistancesOfAboutTheWholeLengthGiveTheResultOfOneValueAfterTheOther) {
    Random random(test::seed() + 64);
    for (int depth = 0; depth < DEPTHS; ++depth) {
        const int size = model::value_size(depth);
        for (const int count : {1, 2, 63, 64, 65, 200}) {
            for (int beyond = -2; beyond <= 2; ++beyond) {
                const int span = (count + beyond) * size;
                if (span < 0) {
                    continue;
                }
                Twin twin(random);
                const Operand pool =
                    twin.place(depth, 1, 1, static_cast<std::size_t>((2 * count + 4) * size));
                const Operand elsewhere = twin.place(depth, 1, count, 8);
                const Operand low = Twin::over(pool.offset, depth, 1, count);
                const Operand high =
                    Twin::over(pool.offset + static_cast<std::size_t>(span), depth, 1, count);
                expect_model_results(twin, low, elsewhere, high);
                expect_model_results(twin, high, elsewhere, low);
                expect_model_results(twin, elsewhere, low, high);
                expect_model_results(twin, elsewhere, high, low);
                ASSERT_FALSE(HasFailure());
            }
        }
    }
}

TEST(FillSweep, OnesOfEveryLengthAndAlignment) {
    Random random(test::seed() + 65);
    for (int depth = 0; depth < DEPTHS; ++depth) {
        for (int count = 0; count <= 300; ++count) {
            Twin twin(random);
            const Operand pool = twin.place(depth, 1, count + WIDEST);
            const Operand mat = Twin::over(
                pool.offset + static_cast<std::size_t>(random.between(0, WIDEST)), depth, 1, count);
            twin.run([&](auto side, auto at) { side.setone(at(mat)); });
            twin.expect_same(mat, NanRule::COPIED);
            ASSERT_FALSE(HasFailure()) << "depth " << depth << ", " << count << " values";
        }
    }
}

// A diagonal value is read just before it is written, so zeros written earlier may be read.
TEST(FillSweep, DiagonalValuesMayLieInTheMatrix) {
    Random random(test::seed() + 66);
    for (int depth = 0; depth < DEPTHS; ++depth) {
        const int size = model::value_size(depth);
        for (int rows = 1; rows <= 5; ++rows) {
            for (int cols = 1; cols <= 5; ++cols) {
                const int n = rows < cols ? rows : cols;
                const int span = (rows * cols + n) * size;
                for (int offset = 0; offset <= span; ++offset) {
                    Twin twin(random);
                    const Operand pool =
                        twin.place(depth, 1, 1, static_cast<std::size_t>(span + n * size));
                    const Operand mat = Twin::over(pool.offset + static_cast<std::size_t>(n * size),
                                                   depth, rows, cols);
                    const Operand values =
                        Twin::over(pool.offset + static_cast<std::size_t>(offset), depth, 1, n);
                    twin.run(
                        [&](auto side, auto at) { side.setdiagonal(at(values).data, at(mat)); });
                    twin.expect_same(mat, NanRule::COPIED);
                    ASSERT_FALSE(HasFailure())
                        << "depth " << depth << ", " << rows << " x " << cols << ", " << offset;
                }
            }
        }
    }
}

} // namespace
