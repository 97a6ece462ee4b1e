// Filters of the tracker's shape run fused while nothing about them is unusual. Whatever is, the
// result is that of the matrix calls, made here one by one.
#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include "_libiv.h"
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

    std::vector<float> values() const {
        std::vector<float> all;
        for (const iv_mat_t* mat :
             {k->x_pre, k->x_post, k->P_pre, k->P_post, k->K, k->temp1, k->temp2, k->temp3,
              k->temp4, k->temp5, k->A, k->H, k->Q, k->R}) {
            std::vector<float> some(static_cast<std::size_t>(mat->rows * mat->cols));
            std::memcpy(some.data(), mat->data.p, some.size() * sizeof(float));
            all.insert(all.end(), some.begin(), some.end());
        }
        return all;
    }
};

struct Case {
    const char* name;
    std::function<void(FilterWithModel&)> change;
};

class Fused : public testing::TestWithParam<Case> {};

TEST_P(Fused, EveryMatrixIsAsTheCallsLeaveIt) {
    for (std::uint64_t seed = 0; seed < 20; ++seed) {
        FilterWithModel library(seed);
        FilterWithModel calls(seed);
        GetParam().change(library);
        GetParam().change(calls);
        for (int step = 0; step < 6; ++step) {
            iv_kalman_predict(library.k);
            predict_by_calls(*calls.k);
            iv_kalman_correct(library.k, library.z);
            correct_by_calls(*calls.k, calls.z);
            const std::vector<float> left = library.values();
            const std::vector<float> right = calls.values();
            for (std::size_t i = 0; i < left.size(); ++i) {
                ASSERT_TRUE(std::memcmp(&left[i], &right[i], sizeof left[i]) == 0 ||
                            (left[i] != left[i] && right[i] != right[i]))
                    << "seed " << seed << ", step " << step << ", value " << i << ": " << left[i]
                    << " instead of " << right[i];
            }
        }
    }
}

iv_mat_t* aside(iv_mat_t* mat, float* data) {
    mat->data.f = data;
    return mat;
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
        Case{"AMisalignedModel",
             [](FilterWithModel& s) {
                 static unsigned char room[sizeof(float) * NS * NS + 1];
                 std::memcpy(room + 1, s.k->A->data.p, sizeof room - 1);
                 s.k->A->data.p = room + 1;
             }}),
    [](const auto& test) { return std::string(test.param.name); });

} // namespace
