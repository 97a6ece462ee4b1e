// Element-wise arithmetic of random shapes, types, mismatches and overlaps against the model.
#include <gtest/gtest.h>

#include <array>

#include "model/twin.h"

namespace {

using test::NanRule;
using test::Operand;
using test::Random;
using test::Twin;

enum class Operation { NEG, SCALE, ADD, SUB };
constexpr std::array<Operation, 4> OPERATIONS = {Operation::NEG, Operation::SCALE, Operation::ADD,
                                                 Operation::SUB};

NanRule nan_rule(Operation operation) {
    return operation == Operation::NEG ? NanRule::COPIED : NanRule::PRODUCED;
}

/// `src2` is the second operand of the sums; its first value is the scalar.
template <class Side>
void apply(Operation operation, const model::Mat& src1, const model::Mat& src2,
           const model::Mat& dst) {
    switch (operation) {
        case Operation::NEG:
            return Side::neg(src1, dst);
        case Operation::SCALE:
            return Side::scale(src2.data, src1, dst);
        case Operation::ADD:
            return Side::add(src1, src2, dst);
        case Operation::SUB:
            return Side::sub(src1, src2, dst);
    }
}

void run(Twin& twin, Operation operation, const Operand& src1, const Operand& src2,
         const Operand& dst) {
    twin.run(
        [&](auto side, auto at) { apply<decltype(side)>(operation, at(src1), at(src2), at(dst)); });
}

/// Changes one field of the operand so that it fits no other of the old shape.
void spoil(Operand& operand, Random& random) {
    model::Mat& mat = operand.mat;
    switch (random.between(0, 4)) {
        case 0:
            mat.type ^= 1 << random.between(0, 2);
            return;
        case 1:
            mat.type ^= 1 << random.between(3, 7);
            return;
        case 2:
            mat.type ^= 1 << random.between(8, 30);
            return;
        case 3:
            mat.rows += random.chance(0.5f) ? 1 : -1;
            return;
        default:
            mat.cols += random.chance(0.5f) ? 1 : -1;
    }
}

TEST(ElementwiseRandom, EveryTypeAndShapeGivesTheModelsBits) {
    Random random(test::seed() + 10);
    for (int round = 0; round < test::rounds(2500); ++round) {
        SCOPED_TRACE(round);
        Twin twin(random, test::random_hostility(random));
        const int type = test::random_type(random);
        const int rows = test::random_length(random);
        const int cols = test::random_length(random);
        const Operation operation = OPERATIONS[random.bits() % OPERATIONS.size()];
        Operand src1 = twin.place(type, rows, cols);
        Operand src2 = twin.place(type, rows, cols, 8);
        Operand dst = twin.place_destination(type, rows, cols);
        src1.mat.step = random.between(-9, 99);
        src2.mat.step = random.between(-9, 99);
        dst.mat.step = random.between(-9, 99);
        run(twin, operation, src1, src2, dst);
        twin.expect_same(dst, nan_rule(operation));
        if (HasFailure()) {
            FAIL() << "operation " << static_cast<int>(operation) << ", type " << type;
        }
    }
}

TEST(ElementwiseRandom, AnyMismatchLeavesEverythingUntouched) {
    Random random(test::seed() + 11);
    for (int round = 0; round < test::rounds(2000); ++round) {
        SCOPED_TRACE(round);
        Twin twin(random);
        const int type = test::random_type(random);
        const int rows = test::random_length(random);
        const int cols = test::random_length(random);
        const Operation operation = OPERATIONS[random.bits() % OPERATIONS.size()];
        const auto room = static_cast<std::size_t>((rows + 1) * (cols + 1)) * 32 * 8;
        std::array<Operand, 3> operands = {twin.place(type, rows, cols, room),
                                           twin.place(type, rows, cols, room),
                                           twin.place(type, rows, cols, room)};
        const bool sums = operation == Operation::ADD || operation == Operation::SUB;
        spoil(operands[sums ? random.bits() % 3 : random.bits() % 2 * 2], random);
        run(twin, operation, operands[0], operands[1], operands[2]);
        twin.expect_untouched();
    }
}

/// Three operands and a scalar anywhere within a stretch of up to three matrices' length.
struct Overlapping {
    Operand src1, src2, dst;
    bool whole_values; ///< distances are multiples of the value size

    Overlapping(Twin& twin, Random& random) {
        const int type = random.between(0, 255) & (random.chance(0.6f) ? 7 : 0x1f);
        const int rows = test::random_length(random);
        const int cols = test::random_length(random);
        const int size = model::value_size(type);
        const int span = rows * cols * model::channels_of(type) * size;
        whole_values = random.chance(0.6f);
        const int slack = random.chance(0.7f) ? 5 * size : span;
        const Operand pool = twin.place(type, 1, 1, static_cast<std::size_t>(span + slack + 8));
        const auto somewhere = [&] {
            const int shift = random.chance(0.3f) ? 0 : random.between(0, slack);
            const int offset = whole_values ? shift / size * size : shift;
            return Twin::over(pool.offset + static_cast<std::size_t>(offset), type, rows, cols);
        };
        src1 = somewhere();
        src2 = somewhere();
        dst = somewhere();
    }
};

TEST(ElementwiseRandom, EveryOverlapGivesTheResultOfOneValueAfterTheOther) {
    Random random(test::seed() + 12);
    const int count = test::rounds(5000);
    int compared = 0;
    for (int round = 0; round < count; ++round) {
        SCOPED_TRACE(round);
        Twin twin(random, random.chance(0.2f) ? 0.1f : 0.0f);
        const Overlapping operands(twin, random);
        const Operation operation = OPERATIONS[random.bits() % OPERATIONS.size()];
        run(twin, operation, operands.src1, operands.src2, operands.dst);
        // Read back at another alignment, a NaN that arithmetic produced is a number of any value.
        if (!operands.whole_values && operation != Operation::NEG &&
            twin.produced_nan(operands.dst)) {
            continue;
        }
        ++compared;
        twin.expect_same(operands.dst, nan_rule(operation));
        if (HasFailure()) {
            FAIL() << "operation " << static_cast<int>(operation) << ", type "
                   << operands.dst.mat.type << ", offsets " << operands.src1.offset << ", "
                   << operands.src2.offset << " -> " << operands.dst.offset;
        }
    }
    EXPECT_GT(compared, count / 2);
}

TEST(ElementwiseRandom, OneRecordInSeveralRolesWorksInPlace) {
    Random random(test::seed() + 13);
    for (int round = 0; round < test::rounds(400); ++round) {
        SCOPED_TRACE(round);
        Twin twin(random, test::random_hostility(random));
        const int type = random.between(0, 255);
        const int rows = test::random_length(random);
        const int cols = test::random_length(random);
        const Operand a = twin.place(type, rows, cols, 8);
        const Operation operation = OPERATIONS[random.bits() % OPERATIONS.size()];
        run(twin, operation, a, a, a);
        twin.expect_same(a, nan_rule(operation));
    }
}

TEST(ElementwiseRandom, CountsOfValuesWrapAt32Bits) {
    for (const auto& [rows, cols] : {std::pair(65536, 65536), std::pair(65536, 65537)}) {
        for (const Operation operation : OPERATIONS) {
            Random random(test::seed());
            Twin twin(random);
            Operand src1 = twin.place(model::S8, 1, 65536 + 100);
            Operand src2 = twin.place(model::S8, 1, 65536 + 100);
            Operand dst = twin.place(model::S8, 1, 65536 + 100);
            for (Operand* operand : {&src1, &src2, &dst}) {
                operand->mat.rows = rows;
                operand->mat.cols = cols;
            }
            run(twin, operation, src1, src2, dst);
            twin.expect_same(dst, NanRule::COPIED);
        }
    }
}

TEST(ElementwiseRandom, TwoNegativeLengthsCountAsTheirProduct) {
    for (const Operation operation : OPERATIONS) {
        Random random(test::seed());
        Twin twin(random);
        Operand src1 = twin.place(model::S16, 2, 3);
        Operand src2 = twin.place(model::S16, 2, 3);
        Operand dst = twin.place(model::S16, 2, 3);
        for (Operand* operand : {&src1, &src2, &dst}) {
            operand->mat.rows = -2;
            operand->mat.cols = -3;
        }
        run(twin, operation, src1, src2, dst);
        twin.expect_same(dst, NanRule::COPIED);
    }
}

} // namespace
