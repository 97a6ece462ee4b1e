#include "digests/corpus.h"
#include "model/scene.h"

namespace digests {
namespace {

using model::Mat;
using test::Random;

template <class Filter>
void add_all(Digest& digest, int round, int step, const Filter& filter) {
    digest.begin(round_of(round) + ", step " + std::to_string(step));
    for (const Mat& mat : filter.matrices()) {
        digest.add(mat);
    }
}

void set(const Mat& mat, int row, int col, float value) {
    model::store(mat.data, row * mat.cols + col, value);
}

/// States `place` and `place + apart`: a value now and one step earlier, of which four are measured.
template <class Filter>
void make_constant_velocity(const Filter& filter, int apart) {
    const auto matrices = filter.matrices();
    for (int k = 0; k < 4; ++k) {
        const int now = apart == 4 ? k : k / 2 * 4 + k % 2;
        set(matrices[10], now, now, 2.0f);
        set(matrices[10], now, now + apart, -1.0f);
        set(matrices[10], now + apart, now, 1.0f);
        set(matrices[11], k, now, 1.0f);
        set(matrices[13], k, k, 1.0f);
    }
    for (int k = 0; k < 8; ++k) {
        set(matrices[12], k, k, 0.1f);
    }
    model::setidentity(matrices[3]);
}

/// Something that goes to and fro, seen with noise, and not seen at times.
template <class Side>
void long_run(Digests& digests, const std::string& name, int apart, int steps) {
    test::wash_work_area(Side{});
    typename Side::Filter filter(8, 4);
    make_constant_velocity(filter, apart);
    Random random(0xd00d);
    std::array<float, 4> place = {10.0f, 20.0f, 5.0f, 7.0f};
    std::array<float, 4> velocity = {0.5f, -0.25f, 0.03125f, 0.0f};
    for (int step = 0; step < steps; ++step) {
        filter.predict();
        add_all(digests[name], 0, step, filter);
        const Values z(random, model::F32, 4, 1, 0.0f);
        for (std::size_t k = 0; k < 4; ++k) {
            velocity[k] = random.chance(0.05f) ? -velocity[k] : velocity[k];
            place[k] = place[k] + velocity[k];
            set(z.mat(), static_cast<int>(k), 0, place[k] + random.uniform(-0.5f, 0.5f));
        }
        if (!random.chance(0.2f)) {
            filter.correct(z.mat());
            add_all(digests[name], 0, step, filter);
        }
    }
}

template <class Side>
void any_size(Digests& digests, const std::string& name, int rounds, int steps, float hostile) {
    test::wash_work_area(Side{});
    Random random(0xe00e);
    for (int round = 0; round < rounds; ++round) {
        const int nm = round % 4 == 3 ? 4 : random.between(1, 9);
        typename Side::Filter filter(round % 4 == 3 ? 8 : random.between(1, 13), nm);
        test::make_filter_model(random, filter.matrices());
        for (int step = 0; step < steps; ++step) {
            filter.predict();
            add_all(digests[name], round, step, filter);
            if (random.chance(0.9f)) {
                filter.correct(Values(random, model::F32, nm, 1, hostile).mat());
                add_all(digests[name], round, step, filter);
            }
        }
    }
}

/// More measured values than the inverse takes: the gain stays as it is.
template <class Side>
void too_many_measured(Digests& digests) {
    typename Side::Filter filter(3, 41);
    Random random(0xf00f);
    test::make_filter_model(random, filter.matrices());
    for (int step = 0; step < 3; ++step) {
        filter.predict();
        filter.correct(Values(random, model::F32, 41, 1, 0.0f).mat());
        add_all(digests["kalman/41 measured"], 0, step, filter);
    }
}

template <class Side>
void small_sizes(Digests& digests) {
    test::wash_work_area(Side{});
    Random random(0x5005);
    for (int round = 0; round < 30; ++round) {
        const int ns = random.between(1, 10);
        const int nm = random.between(1, 6);
        typename Side::Filter filter(ns, nm);
        test::make_filter_model(random, filter.matrices());
        for (int step = 0; step < 15; ++step) {
            filter.predict();
            add_all(digests["kalman_predict"], round, step, filter);
            filter.correct(Values(random, model::F32, nm, 1, 0.0f).mat());
            add_all(digests["kalman_correct"], round, step, filter);
        }
    }
}

} // namespace

template <class Side>
void digest_kalman(Digests& digests) {
    small_sizes<Side>(digests);
    long_run<Side>(digests, "kalman/neighbours, long", 2, 400);
    long_run<Side>(digests, "kalman/half apart, long", 4, 400);
    any_size<Side>(digests, "kalman/any size, long", 12, 60, 0.0f);
    any_size<Side>(digests, "kalman/any size, hostile", 24, 8, 0.05f);
    too_many_measured<Side>(digests);
}

IV_DIGESTS_OF(digest_kalman);

} // namespace digests
