// Products and fused products of random shapes, flags, types, steps and mismatches against the
// model.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>

#include "model/twin.h"

namespace {

using test::NanRule;
using test::Operand;
using test::Random;
using test::Twin;

/// Single-channel types; rarely with bits above the channel field, which change nothing.
int random_product_type(Random& random) {
    const int depth = random.chance(0.5f) ? random.between(0, 7)
                                          : (random.chance(0.5f) ? model::F32 : model::F64);
    return random.chance(0.1f) ? depth | 1 << random.between(8, 30) : depth;
}

int random_flags(Random& random) {
    return random.chance(0.7f) ? random.between(0, 31)
                               : static_cast<int>(static_cast<unsigned>(random.bits()));
}

struct Lengths {
    int rows, inner, cols;

    Lengths(Random& random, int least_inner)
        : rows(test::random_length(random)),
          inner(test::random_length(random, least_inner)),
          cols(test::random_length(random)) {}
};

TEST(ProductRandom, EveryModeTypeAndShapeGivesTheModelsBits) {
    Random random(test::seed() + 30);
    for (int round = 0; round < test::rounds(4000); ++round) {
        SCOPED_TRACE(round);
        Twin twin(random, test::random_hostility(random));
        const int type = random_product_type(random);
        const int flags = random_flags(random);
        const Lengths n(random, 1);
        const bool first = flags & 1;
        const bool second = !first && flags & 2;
        Operand a = first ? twin.place(type, n.inner, n.rows) : twin.place(type, n.rows, n.inner);
        Operand b = second ? twin.place(type, n.cols, n.inner) : twin.place(type, n.inner, n.cols);
        Operand d = twin.place_destination(type, n.rows, n.cols);
        a.mat.step = random.between(-9, 99);
        b.mat.step = random.between(-9, 99);
        d.mat.step = random.between(-9, 99);
        twin.run([&](auto side, auto at) { side.mul(at(a), at(b), at(d), flags); });
        twin.expect_same(d, NanRule::PRODUCED);
        if (HasFailure()) {
            FAIL() << "type " << type << ", flags " << flags << ", " << n.rows << " x " << n.inner
                   << " x " << n.cols;
        }
    }
}

TEST(ProductRandom, SumWithAnAddendCopiesByTheStepOfTheSecondOperand) {
    Random random(test::seed() + 31);
    for (int round = 0; round < test::rounds(4000); ++round) {
        SCOPED_TRACE(round);
        Twin twin(random, test::random_hostility(random));
        const int type = random_product_type(random);
        const int flags = random_flags(random);
        const Lengths n(random, 0);
        const int packed = n.cols * model::value_size(type);
        const int step = random.chance(0.6f) ? packed : random.between(0, packed + 20);
        const auto room = static_cast<std::size_t>(n.rows * std::max(step, packed));
        const bool second = flags & 2;
        Operand a = twin.place(type, n.rows, n.inner);
        Operand b = second ? twin.place(type, n.cols, n.inner) : twin.place(type, n.inner, n.cols);
        Operand e = twin.place(type, n.rows, n.cols, room);
        Operand d = random.chance(0.2f) ? e : twin.place_destination(type, n.rows, n.cols, room);
        b.mat.step = step;
        a.mat.step = random.between(-9, 99);
        e.mat.step = random.between(-9, 99);
        d.mat.step = random.between(-9, 99);
        twin.run([&](auto side, auto at) { side.muladd(at(a), at(b), at(e), at(d), flags); });
        twin.expect_same(d, n.inner == 0 ? NanRule::COPIED : NanRule::PRODUCED);
        if (HasFailure()) {
            FAIL() << "type " << type << ", flags " << flags << ", " << n.rows << " x " << n.inner
                   << " x " << n.cols << ", step " << step << " instead of " << packed;
        }
    }
}

TEST(ProductRandom, DifferenceCopiesByTheStepOfTheMinuend) {
    Random random(test::seed() + 32);
    for (int round = 0; round < test::rounds(4000); ++round) {
        SCOPED_TRACE(round);
        Twin twin(random, test::random_hostility(random));
        const int type = random_product_type(random);
        const int flag = random_flags(random);
        const bool identity = flag & 16;
        const Lengths n(random, 0);
        const int packed = n.cols * model::value_size(type);
        const int step = random.chance(0.6f) ? packed : random.between(0, packed + 20);
        // An identity of no rows still writes cols + 1 values, one of no columns writes one.
        const int filled = packed + model::value_size(type);
        const auto room =
            static_cast<std::size_t>(std::max(filled, n.rows * std::max(step, packed)));
        Operand a = twin.place(type, n.rows, n.cols, room);
        Operand b = twin.place(type, n.rows, n.inner);
        Operand e = twin.place(type, n.inner, n.cols);
        Operand d = twin.place_destination(type, n.rows, n.cols, room);
        a.mat.step = step;
        const bool null = identity && random.chance(0.5f);
        if (identity) {
            a.mat.rows = random.between(-3, 50);
            a.mat.cols = random.between(-3, 50);
        }
        twin.run([&](auto side, auto at) {
            const model::Mat minuend = at(a);
            side.submul(null ? nullptr : &minuend, at(b), at(e), at(d), flag);
        });
        twin.expect_same(d, n.inner == 0 ? NanRule::COPIED : NanRule::PRODUCED);
        if (HasFailure()) {
            FAIL() << "type " << type << ", flag " << flag << ", " << n.rows << " x " << n.inner
                   << " x " << n.cols << ", step " << step << " instead of " << packed;
        }
    }
}

enum class Product { MUL, MULADD, SUBMUL };

/// Operands A, B, E and D of a product that fits, each with room for one row and column more.
struct Fitting {
    Product product;
    int flags;
    std::array<Operand, 4> operands;

    Fitting(Twin& twin, Random& random) : product(Product(random.between(0, 2))), operands() {
        const int type = random.between(0, 7);
        flags = random.between(0, 31);
        if (product == Product::SUBMUL) {
            flags &= ~3; // of no meaning there
        } else if (product == Product::MULADD) {
            flags &= ~1;
        }
        const Lengths n(random, 1);
        const bool first = flags & 1;
        const bool second = !first && flags & 2;
        const auto place = [&](bool transposed, int rows, int cols) {
            const auto room = static_cast<std::size_t>((rows + 2) * (cols + 2)) * 8 * 2;
            return transposed ? twin.place(type, cols, rows, room)
                              : twin.place(type, rows, cols, room);
        };
        operands = {place(first, n.rows, n.inner), place(second, n.inner, n.cols),
                    place(false, n.rows, n.cols), place(false, n.rows, n.cols)};
    }

    template <class Side, class At>
    void apply(Side side, At at) const {
        const model::Mat a = at(operands[0]);
        const model::Mat b = at(operands[1]);
        const model::Mat e = at(operands[2]);
        const model::Mat d = at(operands[3]);
        switch (product) {
            case Product::MUL:
                return side.mul(a, b, d, flags);
            case Product::MULADD:
                return side.muladd(a, b, e, d, flags);
            case Product::SUBMUL:
                return side.submul(&e, a, b, d, flags);
        }
    }
};

TEST(ProductRandom, AnyOtherTypeAmongTheOperandsLeavesEverythingUntouched) {
    Random random(test::seed() + 33);
    for (int round = 0; round < test::rounds(2000); ++round) {
        SCOPED_TRACE(round);
        Twin twin(random);
        Fitting call(twin, random);
        const auto spoiled = static_cast<std::size_t>(random.between(0, 3));
        if (call.product == Product::MUL && spoiled == 2) {
            continue;
        }
        call.operands.at(spoiled).mat.type ^= 1 << random.between(0, 30);
        twin.run([&](auto side, auto at) { call.apply(side, at); });
        twin.expect_untouched();
        if (HasFailure()) {
            FAIL() << "product " << static_cast<int>(call.product) << ", operand " << spoiled;
        }
    }
}

TEST(ProductRandom, ChannelsLeaveEverythingUntouched) {
    Random random(test::seed() + 34);
    for (int round = 0; round < test::rounds(1000); ++round) {
        SCOPED_TRACE(round);
        Twin twin(random);
        Fitting call(twin, random);
        const int channels = random.between(1, 31);
        for (Operand& operand : call.operands) {
            operand.mat.type |= channels << 3;
        }
        twin.run([&](auto side, auto at) { call.apply(side, at); });
        twin.expect_untouched();
    }
}

TEST(ProductRandom, AnyOtherLengthLeavesEverythingUntouched) {
    Random random(test::seed() + 35);
    for (int round = 0; round < test::rounds(2000); ++round) {
        SCOPED_TRACE(round);
        Twin twin(random);
        Fitting call(twin, random);
        const auto spoiled = static_cast<std::size_t>(random.between(0, 3));
        const bool unused = call.product == Product::MUL ||
                            (call.product == Product::SUBMUL && (call.flags & 16) != 0);
        if (unused && spoiled == 2) {
            continue;
        }
        model::Mat& mat = call.operands.at(spoiled).mat;
        (random.chance(0.5f) ? mat.rows : mat.cols) += random.chance(0.5f) ? 1 : -1;
        twin.run([&](auto side, auto at) { call.apply(side, at); });
        twin.expect_untouched();
        if (HasFailure()) {
            FAIL() << "product " << static_cast<int>(call.product) << ", flags " << call.flags
                   << ", operand " << spoiled;
        }
    }
}

} // namespace
