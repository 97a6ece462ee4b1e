// Inverses of random matrices against the model, both with the memory of the calls before.
#include <gtest/gtest.h>

#include "model/scene.h"
#include "model/twin.h"

namespace {

using test::NanRule;
using test::Operand;
using test::Random;
using test::Twin;

/// Inverts one random matrix on both sides.
void invert_one(Random& random, int rows, int cols, const char* kind) {
    Twin twin(random, test::random_hostility(random) * 0.2f);
    const Operand src = twin.place(model::F32, rows, cols);
    const Operand other = twin.place_destination(model::F32, rows, cols);
    const Operand dst = random.chance(0.3f) ? src : other;
    const test::MatrixKind chosen = test::random_matrix_kind(random);
    const std::uint64_t seed = random.bits();
    twin.run([&](auto side, auto at) {
        Random values(seed);
        test::make_difficult(values, chosen, at(src));
        EXPECT_EQ(side.inv(at(src), at(dst)), 0);
    });
    twin.expect_same(dst, NanRule::PRODUCED);
    if (testing::Test::HasFailure()) {
        FAIL() << kind << ": " << rows << " x " << cols << ", kind " << static_cast<int>(chosen);
    }
}

TEST(InverseRandom, RegularSingularAndHostileMatricesGiveTheModelsBitsInAnySequence) {
    test::wash_work_area(model::Library{});
    test::wash_work_area(model::Scalar{});
    Random random(test::seed() + 40);
    for (int round = 0; round < test::rounds(3000); ++round) {
        SCOPED_TRACE(round);
        const int n = random.chance(0.02f) ? random.between(30, 40) : random.between(0, 7);
        invert_one(random, n, n, "square");
        if (HasFailure()) {
            return;
        }
    }
}

TEST(InverseRandom, EveryOrderGivesTheModelsBitsForEveryKindOfMatrix) {
    test::wash_work_area(model::Library{});
    test::wash_work_area(model::Scalar{});
    Random random(test::seed() + 44);
    for (int n = 1; n <= 40; ++n) {
        SCOPED_TRACE(n);
        for (int round = 0; round < test::rounds(12); ++round) {
            invert_one(random, n, n, "of every order");
            if (HasFailure()) {
                return;
            }
        }
    }
}

/// The identity but for the last pivot, which is zero: row n of the work area takes its place.
void make_singular(const model::Mat& mat) {
    const int n = mat.rows;
    for (int i = 0; i < n; ++i) {
        for (int j = 0; j < n; ++j) {
            model::store(mat.data, std::ptrdiff_t{i} * n + j, i == j && i < n - 1 ? 1.0f : 0.0f);
        }
    }
}

TEST(InverseRandom, SingularMatrixShowsTheRowThatAnyLargerOneLeftBehind) {
    test::wash_work_area(model::Library{});
    test::wash_work_area(model::Scalar{});
    Random random(test::seed() + 45);
    int finite = 0;
    for (int larger = 2; larger <= 40; ++larger) {
        for (int n = 1; n < larger; ++n) {
            SCOPED_TRACE(testing::Message() << "order " << n << " after " << larger);
            Twin twin(random);
            const Operand before = twin.place(model::F32, larger, larger);
            const Operand singular = twin.place(model::F32, n, n);
            const Operand dst = twin.place_destination(model::F32, n, n);
            const std::uint64_t seed = random.bits();
            twin.run([&](auto side, auto at) {
                Random values(seed);
                test::make_difficult(values, test::MatrixKind::DOMINANT, at(before));
                make_singular(at(singular));
                side.inv(at(before), at(before));
                side.inv(at(singular), at(dst));
            });
            twin.expect_same(dst, NanRule::PRODUCED);
            finite += twin.produced_nan(dst) ? 0 : 1;
            if (HasFailure()) {
                return;
            }
        }
    }
    EXPECT_GT(finite, 700) << "of 780 that have a row to show";
}

TEST(InverseRandom, OrderFortyEndsWithTheSpareRowOfZeros) {
    test::wash_work_area(model::Library{});
    test::wash_work_area(model::Scalar{});
    Random random(test::seed() + 41);
    for (int round = 0; round < test::rounds(30); ++round) {
        SCOPED_TRACE(round);
        invert_one(random, 40, 40, "order 40");
        invert_one(random, 39, 39, "order 39");
        if (HasFailure()) {
            return;
        }
    }
}

TEST(InverseRandom, MoreColumnsThanRowsInvertTheLeadingValuesAsASquare) {
    test::wash_work_area(model::Library{});
    test::wash_work_area(model::Scalar{});
    Random random(test::seed() + 42);
    for (int round = 0; round < test::rounds(300); ++round) {
        SCOPED_TRACE(round);
        const int rows = random.between(-2, 6);
        invert_one(random, rows, rows + random.between(1, 4), "wide");
        if (HasFailure()) {
            return;
        }
    }
}

TEST(InverseRandom, RefusalsWriteNothingAndForgetNothing) {
    Random random(test::seed() + 43);
    for (int round = 0; round < test::rounds(1000); ++round) {
        SCOPED_TRACE(round);
        Twin twin(random);
        const int n = random.chance(0.1f) ? 41 : random.between(0, 6);
        const auto room = static_cast<std::size_t>((n + 1) * (n + 1)) * 4;
        Operand src = twin.place(model::F32, n, n, room);
        Operand dst = twin.place(model::F32, n, n, room);
        model::Mat& spoiled = random.chance(0.5f) ? src.mat : dst.mat;
        switch (n > 40 ? 3 : random.between(0, 3)) {
            case 0:
                spoiled.type ^= 1 << random.between(0, 30);
                break;
            case 1:
                spoiled.rows += random.chance(0.5f) ? 1 : -1;
                break;
            case 2:
                spoiled.cols += random.chance(0.5f) ? 1 : -1;
                break;
            default:
                if (n <= 40) {
                    src.mat.type = dst.mat.type ^= 1 << random.between(0, 30);
                }
        }
        twin.run([&](auto side, auto at) { EXPECT_EQ(side.inv(at(src), at(dst)), -1); });
        twin.expect_untouched();
        if (HasFailure()) {
            return;
        }
    }
}

} // namespace
