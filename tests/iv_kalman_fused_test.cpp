// Filters of the tracker's shape run fused while nothing about them is unusual. Whatever is, the
// result is that of the matrix calls, made here one by one.
#include <gtest/gtest.h>

#include <array>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include "_libiv.h"
#include "iv_lanes/kernels.h"
#include "iv_matrix/inverse.h"
#include "support/bits.h"
#include "support/levels.h"
#include "support/matrix.h"
#include "support/random.h"

namespace {

constexpr int NS = 8;
constexpr int NM = 4;

void predict_by_calls(const iv_kalman_t& k) {
    iv_mat_mul(k.A, k.x_post, k.x_pre, 0);
    iv_mat_mul(k.A, k.P_post, k.temp1, IV_MAT_TRANS_SRC2);
    iv_mat_muladd(k.temp1, k.A, k.Q, k.P_pre, IV_MAT_TRANS_SRC2);
}

void correct_by_calls(const iv_kalman_t& k, iv_mat_t* z) {
    iv_mat_mul(k.P_pre, k.H, k.temp2, IV_MAT_TRANS_SRC2);
    iv_mat_muladd(k.H, k.temp2, k.R, k.temp3, 0);
    iv_mat_inv(k.temp3, k.temp4);
    iv_mat_mul(k.temp2, k.temp4, k.K, IV_MAT_TRANS_SRC2);
    iv_mat_submul(z, k.H, k.x_pre, k.temp5, 0);
    iv_mat_muladd(k.K, k.temp5, k.x_pre, k.x_post, 0);
    iv_mat_submul(nullptr, k.K, k.H, k.temp1, IV_MAT_IDENTITY_SRC1);
    iv_mat_mul(k.temp1, k.P_pre, k.P_post, IV_MAT_TRANS_SRC2);
}

/// The results of a filter, then its model.
constexpr iv_mat_t* iv_kalman_t::*FIELDS[] = {
    &iv_kalman_t::x_pre, &iv_kalman_t::x_post, &iv_kalman_t::P_pre, &iv_kalman_t::P_post,
    &iv_kalman_t::K,     &iv_kalman_t::temp1,  &iv_kalman_t::temp2, &iv_kalman_t::temp3,
    &iv_kalman_t::temp4, &iv_kalman_t::temp5,  &iv_kalman_t::A,     &iv_kalman_t::H,
    &iv_kalman_t::Q,     &iv_kalman_t::R};
constexpr std::size_t MATRICES = 15; ///< with the measurement

/// A filter with a model and a measurement of its own.
struct FilterWithModel {
    iv_kalman_t* k = iv_kalman_create(NS, NM, 0, nullptr, nullptr, nullptr, nullptr);
    float measured[NM] = {};
    iv_mat_t header;
    iv_mat_t* z = iv_mat_initheader(&header, NM, 1, IV_32F, measured);

    explicit FilterWithModel(std::uint64_t seed) {
        test::Random random(seed);
        for (iv_mat_t* mat : {k->A, k->H, k->Q, k->R, k->x_post, k->P_post, z}) {
            for (int i = 0; i < mat->rows * mat->cols; ++i) {
                mat->data.f[i] = static_cast<float>(random.between(-40, 40)) / 16.0f;
            }
        }
        for (int i = 0; i < NM; ++i) {
            k->R->data.f[i * (NM + 1)] += 8.0f;
        }
    }
    FilterWithModel(const FilterWithModel&) = delete;
    FilterWithModel& operator=(const FilterWithModel&) = delete;
    ~FilterWithModel() { iv_kalman_release(k); }

    /// The filter's results, its model, and the measurement.
    std::vector<iv_mat_t*> matrices() const {
        std::vector<iv_mat_t*> all;
        for (const auto field : FIELDS) {
            all.push_back(k->*field);
        }
        all.push_back(z);
        return all;
    }

    std::vector<float> values() const {
        std::vector<float> all;
        for (const iv_mat_t* mat : matrices()) {
            for (int i = 0; i < mat->rows * mat->cols; ++i) {
                std::memcpy(&all.emplace_back(), mat->data.p + 4 * i, sizeof(float));
            }
        }
        return all;
    }
};

struct Pairing {
    int first, second; // of the pair of state 0
    int pair_of(int state) const { return second == 2 ? state / 4 * 2 + state % 2 : state % 4; }
};
constexpr Pairing NEIGHBOURS{0, 2};
constexpr Pairing HALF_APART{0, 4};

/// The tracker's kind of model in its order of states, or in that of places before velocities.
void set_constant_velocity(FilterWithModel& filter, const Pairing& pairing) {
    const iv_kalman_t& k = *filter.k;
    const auto fill = [](iv_mat_t* mat, float diagonal) {
        for (int i = 0; i < mat->rows * mat->cols; ++i) {
            mat->data.f[i] = i % (mat->cols + 1) == 0 ? diagonal : 0.0f;
        }
    };
    fill(k.A, 1.0f);
    fill(k.Q, 0.1f);
    fill(k.R, 1.0f);
    fill(k.P_post, 1.0f);
    fill(k.H, 0.0f);
    for (int state = 0; state < NS; ++state) {
        const int other = state + pairing.second;
        if (other < NS && pairing.pair_of(state) == pairing.pair_of(other)) {
            k.A->data.f[state * NS + other] = 0.5f;
            k.H->data.f[pairing.pair_of(state) * NS + state] = 1.0f;
        }
    }
}

struct Case {
    const char* name;
    std::function<void(FilterWithModel&)> change;
};

class Fused : public testing::TestWithParam<Case> {};

/// Leaves values other than zero in the work area that all inverses share.
void soil_work_area() {
    constexpr int n = 2 * NM;
    float values[n * n];
    for (int i = 0; i < n * n; ++i) {
        values[i] = i % (n + 1) == 0 ? 20.0f : static_cast<float>(i % 7 + 1);
    }
    iv_mat_t header;
    iv_mat_t* mat = iv_mat_initheader(&header, n, n, IV_32F, values);
    iv_mat_inv(mat, mat);
}

/// What is made of the work area by inverses whose last pivot is zero.
void probe(std::vector<float>& values) {
    for (int n = 1; n <= NM; ++n) {
        std::vector<float> singular(static_cast<std::size_t>(n * n));
        for (int i = 0; i < n - 1; ++i) {
            singular[static_cast<std::size_t>(i * (n + 1))] = 1.0f;
        }
        iv_mat_t header;
        iv_mat_t* mat = iv_mat_initheader(&header, n, n, IV_32F, singular.data());
        iv_mat_inv(mat, mat);
        values.insert(values.end(), singular.begin(), singular.end());
    }
}

/// Lets both filters take some steps, one as the library does, one by matrix calls.
void expect_same_steps(FilterWithModel& library, FilterWithModel& calls, int steps) {
    for (int step = 0; step < steps; ++step) {
        iv_kalman_predict(library.k);
        predict_by_calls(*calls.k);
        std::vector<float> left = library.values();
        std::vector<float> right = calls.values();
        soil_work_area();
        iv_kalman_correct(library.k, library.z);
        probe(left);
        soil_work_area();
        correct_by_calls(*calls.k, calls.z);
        probe(right);
        const auto append = [](std::vector<float>& to, const std::vector<float>& from) {
            to.insert(to.end(), from.begin(), from.end());
        };
        append(left, library.values());
        append(right, calls.values());
        for (std::size_t i = 0; i < left.size(); ++i) {
            ASSERT_TRUE(std::memcmp(&left[i], &right[i], sizeof left[i]) == 0 ||
                        (left[i] != left[i] && right[i] != right[i]))
                << "step " << step << ", value " << i << ": " << left[i] << " instead of "
                << right[i];
        }
    }
}

TEST_P(Fused, EveryMatrixIsAsTheCallsLeaveIt) {
    for (std::uint64_t seed = 0; seed < 20; ++seed) {
        SCOPED_TRACE(seed);
        FilterWithModel library(seed);
        FilterWithModel calls(seed);
        for (FilterWithModel* filter : {&library, &calls}) {
            if (seed % 3 != 0) { // else every value connects all states
                set_constant_velocity(*filter, seed % 3 == 1 ? NEIGHBOURS : HALF_APART);
            }
            GetParam().change(*filter);
        }
        expect_same_steps(library, calls, 6);
        if (HasFatalFailure()) {
            return;
        }
    }
}

/// The fields of a header that say what lies behind it.
constexpr s32_t iv_mat_t::*HEADER_FIELDS[] = {&iv_mat_t::type, &iv_mat_t::rows, &iv_mat_t::cols,
                                              &iv_mat_t::step};

TEST(Fused, NoHeaderMayDifferFromTheOneThatCreationWrites) {
    for (std::size_t which = 0; which < MATRICES; ++which) {
        for (const auto field : HEADER_FIELDS) {
            FilterWithModel library(1);
            FilterWithModel calls(1);
            for (FilterWithModel* filter : {&library, &calls}) {
                set_constant_velocity(*filter, NEIGHBOURS);
                filter->matrices()[which]->*field -= 1;
            }
            SCOPED_TRACE("matrix " + std::to_string(which));
            expect_same_steps(library, calls, 2);
            if (HasFatalFailure()) {
                return;
            }
        }
    }
}

iv_mat_t* aside(iv_mat_t* mat, float* data) {
    mat->data.f = data;
    return mat;
}

/// Gives the matrix the storage of another, with its own values in it.
void move_into(iv_mat_t* mat, const iv_mat_t* other) {
    std::memcpy(other->data.p, mat->data.p, static_cast<std::size_t>(4 * mat->rows * mat->cols));
    mat->data.p = other->data.p;
}

INSTANTIATE_TEST_SUITE_P(
    Filter, Fused,
    testing::Values(
        Case{"Untouched", [](FilterWithModel&) {}},
        Case{"AnotherType", [](FilterWithModel& s) { s.k->P_pre->type = IV_32S; }},
        Case{"AnotherTypeOfTheModel",
             [](FilterWithModel& s) { s.k->H->type = IV_MAKETYPE(IV_32F, 2); }},
        Case{"FewerRows", [](FilterWithModel& s) { s.k->temp2->rows = 7; }},
        Case{"FewerColumns", [](FilterWithModel& s) { s.k->A->cols = 7; }},
        Case{"AShorterStep", [](FilterWithModel& s) { s.k->temp2->step = 8; }},
        Case{"AStepOfTheMeasurement", [](FilterWithModel& s) { s.z->step = 2; }},
        Case{"AShortMeasurement", [](FilterWithModel& s) { s.z->rows = 3; }},
        Case{"TheStorageOfAnother", [](FilterWithModel& s) { aside(s.k->K, s.k->temp2->data.f); }},
        Case{"TheMatrixOfAnother", [](FilterWithModel& s) { s.k->temp4 = s.k->temp3; }},
        Case{"NoiseInTheCovariance", [](FilterWithModel& s) { s.k->Q = s.k->P_pre; }},
        Case{"NoiseInTheInnovation", [](FilterWithModel& s) { aside(s.k->R, s.k->temp3->data.f); }},
        Case{"TheModelInTheState",
             [](FilterWithModel& s) { aside(s.k->H, s.k->P_post->data.f + 8); }},
        Case{"AMeasurementInTheState",
             [](FilterWithModel& s) { s.z->data.f = s.k->x_pre->data.f; }},
        Case{"NoiseWhereAnotherResultGoesBefore",
             [](FilterWithModel& s) { move_into(s.k->Q, s.k->temp1); }},
        Case{"NoiseThatIsAnotherResult", [](FilterWithModel& s) { s.k->Q = s.k->temp1; }},
        Case{"NoiseOfTheMeasurementWhereAnotherResultGoesBefore",
             [](FilterWithModel& s) { move_into(s.k->R, s.k->temp2); }},
        Case{"TheModelInTheGain", [](FilterWithModel& s) { move_into(s.k->H, s.k->K); }},
        Case{"AMeasurementWhereAnotherResultGoesBefore",
             [](FilterWithModel& s) { move_into(s.z, s.k->temp2); }},
        Case{"AMeasurementThatEndsInTheBlock",
             [](FilterWithModel& s) {
                 s.z->data.p = reinterpret_cast<u08_t*>(
                     &s.k->mbuf); // the last field of the record, before the block
                 s.k->mbuf = nullptr;
             }},
        Case{"AMisalignedModel",
             [](FilterWithModel& s) {
                 static unsigned char room[sizeof(float) * NS * NS + 1];
                 std::memcpy(room + 1, s.k->A->data.p, sizeof room - 1);
                 s.k->A->data.p = room + 1;
             }}),
    [](const auto& test) { return std::string(test.param.name); });

// Filters whose states fall into pairs: 16 of 64 values are computed, and the rest known.

using namespace iv::internal;

/// Leaves only what connects the states of a pair, with the other values as they come: +0.
void keep_pairs(FilterWithModel& filter, const Pairing& pairing) {
    const iv_kalman_t& k = *filter.k;
    for (iv_mat_t* mat : {k.A, k.Q, k.P_post, k.H, k.R}) {
        for (int row = 0; row < mat->rows; ++row) {
            const int pair = mat->rows == NS ? pairing.pair_of(row) : row;
            for (int col = 0; col < mat->cols; ++col) {
                if (pair != (mat->cols == NS ? pairing.pair_of(col) : col)) {
                    mat->data.f[row * mat->cols + col] = 0.0f;
                }
            }
        }
    }
}

/// Values that are apt to differ where sums are not taken in full.
float unusual(test::Random& random) {
    const float values[] = {0.0f,     -0.0f,      1.0f,           -1.0f,
                            1e-40f,   -1e-40f,    1e-30f,         -1e-30f,
                            3e38f,    -3e38f,     test::INFINITE, -test::INFINITE,
                            1.5e-45f, 1.0000001f, 0.1f,           test::NOT_A_NUMBER};
    return values[random.bits() % (sizeof values / sizeof *values)];
}

/// Puts an unusual value somewhere, inside or outside of the pairs, or negates what is there.
void disturb(FilterWithModel& filter, test::Random& random) {
    const iv_kalman_t& k = *filter.k;
    iv_mat_t* const mats[] = {k.A, k.H, k.Q, k.R, k.P_post, k.x_post, filter.z};
    const iv_mat_t* mat = mats[random.bits() % 7];
    const auto at = static_cast<int>(random.bits() % static_cast<unsigned>(mat->rows * mat->cols));
    float& value = mat->data.f[at];
    value = random.chance(0.3f) ? -value : unusual(random);
}

/// Leaves few values other than zeros of either sign, so that many sums are zero.
void thin_out(FilterWithModel& filter, const Pairing& pairing, test::Random& random) {
    const iv_kalman_t& k = *filter.k;
    for (iv_mat_t* mat : {k.A, k.H, k.Q, k.P_post, k.x_post, filter.z}) {
        for (int i = 0; i < mat->rows * mat->cols; ++i) {
            if (random.chance(0.6f)) {
                mat->data.f[i] = random.chance(0.5f) ? -0.0f : 0.0f;
            }
        }
    }
    keep_pairs(filter, pairing);
}

class FilterOfPairs : public testing::TestWithParam<const Kernels*> {
  protected:
    void SetUp() override {
        if (!test::runs(*GetParam())) {
            GTEST_SKIP() << "this CPU lacks the instructions of level " << GetParam()->level;
        }
    }
};

TEST_P(FilterOfPairs, EveryBitIsThatOfTheFullSums) {
    const test::ForcedLevel level(*GetParam());
    for (std::uint64_t seed = 0; seed < 3000; ++seed) {
        SCOPED_TRACE(seed);
        FilterWithModel library(seed);
        FilterWithModel calls(seed);
        for (FilterWithModel* filter : {&library, &calls}) {
            test::Random random(seed);
            const Pairing& pairing = seed % 2 ? NEIGHBOURS : HALF_APART;
            keep_pairs(*filter, pairing);
            if (random.chance(0.3f)) {
                thin_out(*filter, pairing, random);
            }
            for (int n = random.between(0, 3); n > 0; --n) {
                disturb(*filter, random);
            }
        }
        expect_same_steps(library, calls, 4);
        if (HasFatalFailure()) {
            return;
        }
    }
}
TEST_P(FilterOfPairs, ModelsOfConstantVelocityTakeTheShortWayAtEveryStep) {
    for (const Pairing& pairing : {NEIGHBOURS, HALF_APART}) {
        FilterWithModel filter(1);
        set_constant_velocity(filter, pairing);
        WorkArea work_area = {};
        for (int step = 0; step < 50; ++step) {
            ASSERT_TRUE(GetParam()->predict_state(*filter.k)) << step;
            ASSERT_TRUE(GetParam()->predict_covariance(*filter.k)) << step;
            ASSERT_TRUE(GetParam()->correct(*filter.k, filter.measured, work_area)) << step;
        }
    }
}

TEST_P(FilterOfPairs, WhereAValueConnectsTwoPairsNothingIsWritten) {
    for (int at = 0; at < NS * NS; ++at) {
        FilterWithModel filter(1);
        set_constant_velocity(filter, NEIGHBOURS);
        if (NEIGHBOURS.pair_of(at / NS) == NEIGHBOURS.pair_of(at % NS)) {
            continue;
        }
        filter.k->P_post->data.f[at] = -0.0f; // even the other zero
        const std::vector<float> before = filter.values();
        ASSERT_FALSE(GetParam()->predict_covariance(*filter.k)) << at;
        ASSERT_EQ(before, filter.values()) << at;
    }
}

INSTANTIATE_TEST_SUITE_P(Levels, FilterOfPairs, testing::ValuesIn(test::levels()),
                         test::LevelName());

#ifdef IV_DISPATCH

// Whether a filter gets as far as the kernels is seen of kernels that count and decline.

constexpr std::size_t RESULTS = 10;
constexpr std::size_t MEASUREMENT = 14;

/// How often x_pre, P_pre and the correction were wanted of the kernels.
using Wanted = std::array<int, 3>;
Wanted wanted;

Wanted wanted_in_a_step(iv_kalman_t* k, iv_mat_t* z) {
    Kernels counting = KERNELS_BASELINE;
    counting.predict_state = [](const iv_kalman_t&) {
        ++wanted[0];
        return false;
    };
    counting.predict_covariance = [](const iv_kalman_t&) {
        ++wanted[1];
        return false;
    };
    counting.correct = [](const iv_kalman_t&, const float*, WorkArea&) {
        ++wanted[2];
        return false;
    };
    const test::ForcedLevel forced(counting);
    wanted = {};
    iv_kalman_predict(k);
    iv_kalman_correct(k, z);
    return wanted;
}

/// Which kernels have to do with a matrix, by its place among those of FilterWithModel.
Wanted without_users_of(std::size_t which) {
    const bool state = which == 0 || which == 1 || which == 10;
    const bool covariance = which == 2 || which == 3 || which == 5 || which == 10 || which == 12;
    const bool correction = which != 10 && which != 12;
    return {!state, !covariance, !correction};
}

TEST(FilterOfPairs, FilterAsCreatedGetsToTheKernels) {
    const FilterWithModel own(1);
    EXPECT_EQ(wanted_in_a_step(own.k, own.z), (Wanted{1, 1, 1}));
    iv_kalman_t* shared = iv_kalman_create(NS, NM, 1, own.k->A, own.k->H, own.k->Q, own.k->R);
    EXPECT_EQ(wanted_in_a_step(shared, own.z), (Wanted{1, 1, 1}));
    iv_kalman_release(shared);
}

TEST(FilterOfPairs, ChangedHeaderKeepsItsUsersFromTheKernels) {
    for (std::size_t which = 0; which < MATRICES; ++which) {
        for (const auto field : HEADER_FIELDS) {
            const FilterWithModel filter(1);
            filter.matrices()[which]->*field -= 1;
            EXPECT_EQ(wanted_in_a_step(filter.k, filter.z), without_users_of(which)) << which;
        }
    }
}

TEST(FilterOfPairs, MovedResultKeepsItsUsersFromTheKernels) {
    for (std::size_t which = 0; which < RESULTS; ++which) {
        const FilterWithModel filter(1);
        iv_mat_t*& mat = filter.k->*FIELDS[which];
        iv_mat_t copy = *mat;
        float elsewhere[NS * NS] = {};
        mat->data.f = elsewhere;
        EXPECT_EQ(wanted_in_a_step(filter.k, filter.z), without_users_of(which)) << which;
        mat->data = copy.data;
        EXPECT_EQ(wanted_in_a_step(filter.k, filter.z), (Wanted{1, 1, 1})) << which;
        mat = &copy;
        EXPECT_EQ(wanted_in_a_step(filter.k, filter.z), without_users_of(which)) << which;
    }
}

/// A filter with the caller's model in the middle of a room, so that there is something before the
/// record and behind its matrices.
class FilterInARoom {
  public:
    FilterInARoom() {
        std::memcpy(room_ + BEFORE, created_.k, RECORD_AND_RESULTS);
        const std::ptrdiff_t way = room_ + BEFORE - reinterpret_cast<u08_t*>(created_.k);
        for (std::size_t which = 0; which < RESULTS; ++which) {
            iv_mat_t*& mat = filter()->*FIELDS[which];
            mat = reinterpret_cast<iv_mat_t*>(reinterpret_cast<u08_t*>(mat) + way);
            mat->data.p += way;
        }
    }

    iv_kalman_t* filter() { return reinterpret_cast<iv_kalman_t*>(room_ + BEFORE); }
    iv_mat_t* measurement() { return created_.z; }
    /// Where the filter's results begin and end, as bytes of the room.
    u08_t* begin() { return room_ + BEFORE + sizeof(iv_kalman_t); }
    u08_t* end() { return room_ + BEFORE + RECORD_AND_RESULTS; }
    /// The matrices that the caller owns: the model's and the measurement.
    iv_mat_t* callers(std::size_t which) { return created_.matrices()[which]; }

  private:
    static constexpr std::size_t RECORD_AND_RESULTS =
        sizeof(iv_kalman_t) + 10 * sizeof(iv_mat_t) + 308 * sizeof(float);
    static constexpr std::size_t BEFORE = 512;

    FilterWithModel created_{1};
    alignas(16) u08_t room_[BEFORE + RECORD_AND_RESULTS + 512] = {};
};

TEST(FilterOfPairs, OperandsOfTheCallerMayTouchTheResultsButNotOverlapThem) {
    for (std::size_t which = RESULTS; which < MATRICES; ++which) {
        SCOPED_TRACE(which);
        FilterInARoom room;
        iv_mat_t* mat = room.callers(which);
        const std::ptrdiff_t bytes = std::ptrdiff_t{4} * mat->rows * mat->cols;
        const auto wanted_with_values_at = [&](u08_t* at) {
            mat->data.p = at;
            return wanted_in_a_step(room.filter(), room.measurement());
        };
        EXPECT_EQ(wanted_with_values_at(room.begin() - bytes), (Wanted{1, 1, 1}));
        EXPECT_EQ(wanted_with_values_at(room.begin() - bytes + 1), without_users_of(which));
        EXPECT_EQ(wanted_with_values_at(room.begin()), without_users_of(which));
        EXPECT_EQ(wanted_with_values_at(room.end() - 1), without_users_of(which));
        EXPECT_EQ(wanted_with_values_at(room.end()), (Wanted{1, 1, 1}));
    }
}

TEST(FilterOfPairs, HeadersOfTheCallerMayTouchTheResultsButNotOverlapThem) {
    for (std::size_t which = RESULTS; which < MATRICES; ++which) {
        SCOPED_TRACE(which);
        FilterInARoom room;
        const iv_mat_t header = *room.callers(which);
        const auto wanted_with_header_at = [&](u08_t* at) {
            auto* mat = static_cast<iv_mat_t*>(std::memcpy(at, &header, sizeof header));
            if (which == MEASUREMENT) {
                return wanted_in_a_step(room.filter(), mat);
            }
            room.filter()->*FIELDS[which] = mat;
            return wanted_in_a_step(room.filter(), room.measurement());
        };
        EXPECT_EQ(wanted_with_header_at(room.end()), (Wanted{1, 1, 1}));
        EXPECT_EQ(wanted_with_header_at(room.end() - 8), without_users_of(which));
    }
}

#endif

} // namespace
