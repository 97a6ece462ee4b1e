// Filters of random sizes and models against the model, matrix by matrix after every step.
#include <gtest/gtest.h>

#include "model/filter_pair.h"
#include "model/scene.h"

namespace {

using test::FilterPair;
using test::Random;

/// A measurement; now and then one that does not fit, so that a step is left out.
class Measurement {
  public:
    Measurement(Random& random, int nm, float hostile)
        : bytes_(static_cast<std::size_t>(nm + 2) * 8) {
        const int rows = random.chance(0.05f) ? nm + random.between(-1, 1) : nm;
        const int type = random.chance(0.05f) ? random.between(0, 255) : model::F32;
        mat_ = model::header(type, rows, random.chance(0.03f) ? 2 : 1, bytes_.data());
        mat_.step = mat_.cols == 1 ? mat_.step : 4;
        for (int i = 0; i < nm + 2; ++i) {
            test::random_value(random, model::F32, hostile, bytes_.data() + i * 4);
        }
    }

    const model::Mat& mat() const { return mat_; }

  private:
    std::vector<unsigned char> bytes_;
    model::Mat mat_;
};

void wash() {
    test::wash_work_area(model::Library{});
    test::wash_work_area(model::Scalar{});
}

void run_filter(Random& random, int ns, int nm, int steps, float hostile) {
    wash();
    FilterPair filters(ns, nm);
    EXPECT_EQ(filters.library().record().ns, ns);
    EXPECT_EQ(filters.library().record().nm, nm);
    const std::uint64_t seed = random.bits();
    filters.both([seed](auto& filter) {
        Random values(seed);
        test::make_filter_model(values, filter.matrices());
    });
    filters.expect_same();
    for (int step = 0; step < steps && !testing::Test::HasFailure(); ++step) {
        SCOPED_TRACE("ns " + std::to_string(ns) + ", nm " + std::to_string(nm) + ", step " +
                     std::to_string(step));
        if (random.chance(0.9f)) {
            filters.both([](auto& filter) { filter.predict(); });
        }
        if (random.chance(0.8f)) {
            const Measurement z(random, nm, hostile);
            filters.both([&z](auto& filter) { filter.correct(z.mat()); });
        }
        filters.expect_same();
    }
}

TEST(KalmanRandom, AnySizesAndSequencesGiveTheModelsBitsInEveryMatrix) {
    Random random(test::seed() + 60);
    for (int round = 0; round < test::rounds(150) && !HasFailure(); ++round) {
        SCOPED_TRACE(round);
        const float hostile = random.chance(0.2f) ? 0.02f : 0.0f;
        const int ns = random.between(1, 11);
        const int nm = random.between(1, 7);
        run_filter(random, ns, nm, 12, hostile);
    }
}

TEST(KalmanRandom, LongRunsStayEqual) {
    Random random(test::seed() + 61);
    run_filter(random, 8, 4, test::rounds(600), 0.0f);
    run_filter(random, 5, 3, test::rounds(600), 0.0f);
    run_filter(random, 1, 1, test::rounds(600), 0.0f);
}

TEST(KalmanRandom, LargeFiltersReachTheLimitOfTheInverse) {
    Random random(test::seed() + 62);
    for (const int nm : {39, 40, 41}) {
        run_filter(random, 43, nm, 3, 0.0f);
    }
}

TEST(KalmanRandom, SharedModelsWorkLikeOwnOnes) {
    Random random(test::seed() + 63);
    wash();
    model::Kalman source(6, 3);
    test::make_filter_model(random, source.matrices());
    model::Record A(source.A), H(source.H), Q(source.Q), R(source.R);
    model::LibraryFilter first(6, 3, 1, A.get(), H.get(), Q.get(), R.get());
    model::LibraryFilter second(6, 3, -5, A.get(), H.get(), Q.get(), R.get());
    model::Kalman expected(6, 3, source.A, source.H, source.Q, source.R);
    for (int step = 0; step < 20 && !HasFailure(); ++step) {
        const Measurement z(random, 3, 0.0f);
        const auto advance = [&](auto& filter) {
            filter.predict();
            filter.correct(z.mat());
        };
        advance(expected);
        advance(first);
        advance(second);
        test::expect_same_matrices(expected.matrices(), first.matrices());
        test::expect_same_matrices(expected.matrices(), second.matrices());
    }
}

} // namespace
