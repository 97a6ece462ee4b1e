// Transposes of random shapes, types, mismatches and overlaps against the model.
#include <gtest/gtest.h>

#include "model/twin.h"

namespace {

using test::NanRule;
using test::Operand;
using test::Random;
using test::Twin;

void run(Twin& twin, const Operand& src, const Operand& dst) {
    twin.run([&](auto side, auto at) { side.transpose(at(src), at(dst)); });
}

TEST(TransposeRandom, EveryTypeAndShapeMovesWholeElementsBitForBit) {
    Random random(test::seed() + 20);
    for (int round = 0; round < test::rounds(2000); ++round) {
        SCOPED_TRACE(round);
        Twin twin(random, test::random_hostility(random));
        const int type = test::random_type(random);
        const int rows = test::random_length(random);
        const int cols = test::random_length(random);
        Operand src = twin.place(type, rows, cols);
        Operand dst = twin.place(type, cols, rows);
        src.mat.step = random.between(-9, 99);
        dst.mat.step = random.between(-9, 99);
        run(twin, src, dst);
        twin.expect_same(dst, NanRule::COPIED);
        if (HasFailure()) {
            FAIL() << "type " << type << ", " << rows << " x " << cols;
        }
    }
}

TEST(TransposeRandom, AnyMismatchLeavesEverythingUntouched) {
    Random random(test::seed() + 21);
    for (int round = 0; round < test::rounds(1000); ++round) {
        SCOPED_TRACE(round);
        Twin twin(random);
        const int type = test::random_type(random);
        const int rows = test::random_length(random);
        const int cols = test::random_length(random);
        const auto room = static_cast<std::size_t>((rows + 1) * (cols + 1)) * 32 * 8;
        const Operand src = twin.place(type, rows, cols, room);
        Operand dst = twin.place(type, cols, rows, room);
        switch (random.between(0, 2)) {
            case 0:
                dst.mat.type ^= 1 << random.between(0, 30);
                break;
            case 1:
                dst.mat.rows += random.chance(0.5f) ? 1 : -1;
                break;
            default:
                dst.mat.cols += random.chance(0.5f) ? 1 : -1;
        }
        run(twin, src, dst);
        twin.expect_untouched();
    }
}

TEST(TransposeRandom, EveryOverlapGivesTheResultOfOneValueAfterTheOther) {
    Random random(test::seed() + 22);
    for (int round = 0; round < test::rounds(3000); ++round) {
        SCOPED_TRACE(round);
        Twin twin(random);
        const int type = random.between(0, 255) & (random.chance(0.5f) ? 7 : 0x3f);
        const int rows = test::random_length(random);
        const int cols = random.chance(0.5f) ? rows : test::random_length(random);
        const int span = rows * cols * model::channels_of(type) * model::value_size(type);
        const int slack = random.chance(0.5f) ? 40 : span;
        const Operand pool = twin.place(type, 1, 1, static_cast<std::size_t>(span + slack + 8));
        const auto somewhere = [&] {
            return pool.offset +
                   static_cast<std::size_t>(random.chance(0.3f) ? 0 : random.between(0, slack));
        };
        const Operand src = Twin::over(somewhere(), type, rows, cols);
        const Operand dst = Twin::over(somewhere(), type, cols, rows);
        run(twin, src, dst);
        twin.expect_same(dst, NanRule::COPIED);
        if (HasFailure()) {
            FAIL() << "type " << type << ", " << rows << " x " << cols << ", offsets " << src.offset
                   << " -> " << dst.offset;
        }
    }
}

} // namespace
