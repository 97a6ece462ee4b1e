// The kernel of the search for the nearest track, on every instruction set, against a plain loop.
#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

#include "support/bits.h"
#include "support/levels.h"
#include "support/matrix.h"
#include "support/random.h"

namespace {

using namespace iv::internal;
using test::INFINITE;
using test::NOT_A_NUMBER;
using test::Random;

/// Random tracks around the origin, many at the same places, some at none; their ages are shuffled.
/// Behind them and around the ranges nothing is within reach.
class Scene {
  public:
    Scene(Random& random, unsigned count) {
        for (unsigned i = 0; i < count; ++i) {
            x_.push_back(coordinate(random));
            y_.push_back(coordinate(random));
            c_.push_back(random.between(-1, 1));
            age_.push_back(static_cast<int>(i));
        }
        for (unsigned i = count; i > 1; --i) {
            std::swap(age_[i - 1], age_[random.bits() % i]);
        }
        for (int n = random.between(0, 4); n > 0; --n) {
            const unsigned first = static_cast<unsigned>(random.bits() % (count + 1));
            const unsigned longest = random.chance(0.5f) ? 4 : count;
            const unsigned end = first + static_cast<unsigned>(random.bits() % (longest + 1));
            ranges_.push_back({first, std::min(end, count)});
        }
        for (unsigned i = 0; i < count; ++i) {
            if (!in_a_range(i)) {
                x_[i] = NOT_A_NUMBER;
            }
        }
        x_.resize(count + CENTRES_BEYOND, NOT_A_NUMBER);
        y_.resize(count + CENTRES_BEYOND);
        c_.resize(count + CENTRES_BEYOND);
        age_.resize(count + CENTRES_BEYOND);
    }

    Nearest nearest(const Kernels& kernels, const Target& target) {
        const Centres centres = {x_.data(), y_.data(), c_.data(), age_.data()};
        return kernels.nearest(centres, ranges_.data(), static_cast<int>(ranges_.size()), target);
    }

    Nearest expected(const Target& target) const {
        Nearest best = {100.0f, -1};
        for (std::size_t i = 0; i < x_.size(); ++i) {
            const float dx = x_[i] - target.x;
            const float dy = y_[i] - target.y;
            const float dx2 = dx * dx;
            const float dy2 = dy * dy;
            const float d = dx2 + dy2;
            const bool agrees = target.class_bits == 0 || c_[i] == target.c;
            if (agrees && (d < best.d || (d == best.d && age_[i] < best.age))) {
                best = {d, age_[i]};
            }
        }
        return best;
    }

  private:
    static float coordinate(Random& random) {
        if (random.chance(0.05f)) {
            const float strange[] = {NOT_A_NUMBER, -NOT_A_NUMBER, INFINITE, -INFINITE,
                                     3e38f,        1e-45f,        -0.0f,    1e8f};
            return strange[random.bits() % 8];
        }
        const float value = random.uniform(-12.0f, 12.0f);
        return random.chance(0.8f) ? static_cast<float>(static_cast<int>(value)) : value;
    }

    bool in_a_range(unsigned place) const {
        return std::any_of(ranges_.begin(), ranges_.end(), [&](const Range& range) {
            return range.first <= place && place < range.end;
        });
    }

    std::vector<float> x_, y_;
    std::vector<int> c_, age_;
    std::vector<Range> ranges_;
};

class NearestKernel : public ::testing::TestWithParam<const Kernels*> {
  protected:
    void SetUp() override {
        if (!test::runs(*GetParam())) {
            GTEST_SKIP() << "this CPU lacks the instructions of level " << GetParam()->level;
        }
    }
};

TEST_P(NearestKernel, FindsWhatAPlainLoopFinds) {
    Random random(test::seed() + 95);
    int found = 0;
    int missed = 0;
    for (int round = 0; round < 3000; ++round) {
        Scene scene(random, static_cast<unsigned>(random.between(0, 60)));
        const Target target = {random.uniform(-3.0f, 3.0f),
                               static_cast<float>(random.between(-9, 9)), random.between(-1, 1),
                               random.chance(0.5f) ? 0 : -1};
        const Nearest expected = scene.expected(target);
        const Nearest actual = scene.nearest(*GetParam(), target);
        ASSERT_EQ(expected.age, actual.age) << "round " << round;
        ASSERT_PRED_FORMAT2(test::SameBits, expected.d, actual.d) << "round " << round;
        (expected.age < 0 ? missed : found) += 1;
    }
    EXPECT_GT(found, 500);
    EXPECT_GT(missed, 500);
}

TEST_P(NearestKernel, TargetThatIsNoNumberFindsNothing) {
    Random random(test::seed() + 96);
    for (int round = 0; round < 200; ++round) {
        Scene scene(random, 30);
        for (const float strange : {NOT_A_NUMBER, INFINITE, -INFINITE}) {
            EXPECT_EQ(scene.nearest(*GetParam(), {strange, 0, 0, 0}).age, -1);
            EXPECT_EQ(scene.nearest(*GetParam(), {0, strange, 0, 0}).d, 100.0f);
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Levels, NearestKernel, ::testing::ValuesIn(test::levels()),
                         test::LevelName{});

} // namespace
