// Null pointers where the contract allows none.
#include <gtest/gtest.h>

#include <functional>
#include <string>

#include "_libiv.h"
#include "iv_tracker/instance.h"
#include "support/matrix.h"

namespace {

using test::FloatMatrix;
using test::Instance;

struct Call {
    std::string what;
    std::function<void()> make;
};

/// Fails unless every call ends the process.
void expect_faults(const std::vector<Call>& calls) {
    for (const Call& call : calls) {
        EXPECT_DEATH(call.make(), "") << call.what;
    }
}

const std::vector<float> NINE(9, 2.0f);

// A fault at once is what hosts get instead of an error code: the first thing read or written
// through each of these pointers lies in the first page, which no process has.

TEST(Null, TrackerOrInputFaults) {
    Instance instance;
    void* handle = static_cast<iv::internal::tracker_t*>(instance);
    float input[1][6] = {}, output[8][8];
    expect_faults({
        {"process: handle", [&] { iv_tracker_process(nullptr, input, output); }},
        {"process: input", [&] { iv_tracker_process(handle, nullptr, output); }},
        {"set_params", [] { iv_tracker_set_params(nullptr, 1, 0.5f, 3, 5, 0); }},
        {"release", [] { iv_tracker_release(nullptr); }},
    });
}

TEST(Null, MatrixOrValueFaults) {
    FloatMatrix a(3, 3, NINE), b(3, 3, NINE), c(3, 3, NINE), d(3, 3, NINE);
    float value = 1.0f;
    iv_mat_t* const none = nullptr;
    expect_faults({
        {"setzero", [&] { iv_mat_setzero(none); }},
        {"print", [&] { iv_mat_print(nullptr, none); }},
        {"setidentity", [&] { iv_mat_setidentity(none); }},
        {"setdiagonal: values", [&] { iv_mat_setdiagonal(nullptr, d); }},
        {"setdiagonal: matrix", [&] { iv_mat_setdiagonal(a->data.p, none); }},
        {"setone", [&] { iv_mat_setone(none); }},
        {"neg: src", [&] { iv_mat_neg(none, d); }},
        {"neg: dst", [&] { iv_mat_neg(a, none); }},
        {"scale: value", [&] { iv_mat_scale(nullptr, a, d); }},
        {"scale: src", [&] { iv_mat_scale(&value, none, d); }},
        {"scale: dst", [&] { iv_mat_scale(&value, a, none); }},
        {"add: src1", [&] { iv_mat_add(none, b, d); }},
        {"add: src2", [&] { iv_mat_add(a, none, d); }},
        {"add: dst", [&] { iv_mat_add(a, b, none); }},
        {"sub: src1", [&] { iv_mat_sub(none, b, d); }},
        {"sub: src2", [&] { iv_mat_sub(a, none, d); }},
        {"sub: dst", [&] { iv_mat_sub(a, b, none); }},
        {"transpose: src", [&] { iv_mat_transpose(none, d); }},
        {"transpose: dst", [&] { iv_mat_transpose(a, none); }},
        {"mul: src1", [&] { iv_mat_mul(none, b, d, 0); }},
        {"mul: src2", [&] { iv_mat_mul(a, none, d, 0); }},
        {"mul: dst", [&] { iv_mat_mul(a, b, none, 0); }},
        {"muladd: src1", [&] { iv_mat_muladd(none, b, c, d, 0); }},
        {"muladd: src2", [&] { iv_mat_muladd(a, none, c, d, 0); }},
        {"muladd: src3", [&] { iv_mat_muladd(a, b, none, d, 0); }},
        {"muladd: dst", [&] { iv_mat_muladd(a, b, c, none, 0); }},
        {"submul: src1, without the identity", [&] { iv_mat_submul(none, b, c, d, 0); }},
        {"submul: src2", [&] { iv_mat_submul(a, none, c, d, 0); }},
        {"submul: src3", [&] { iv_mat_submul(a, b, none, d, 0); }},
        {"submul: dst", [&] { iv_mat_submul(a, b, c, none, 0); }},
        {"inv: src", [&] { iv_mat_inv(none, d); }},
        {"inv: dst", [&] { iv_mat_inv(a, none); }},
    });
}

TEST(Null, StorageOfAMatrixFaults) {
    FloatMatrix a(3, 3, NINE), d(3, 3, NINE);
    iv_mat_t hollow;
    iv_mat_initheader(&hollow, 3, 3, IV_32F, nullptr);
    expect_faults({
        {"setzero", [&] { iv_mat_setzero(&hollow); }},
        {"setidentity", [&] { iv_mat_setidentity(&hollow); }},
        {"setone", [&] { iv_mat_setone(&hollow); }},
        {"add: src2", [&] { iv_mat_add(a, &hollow, d); }},
        {"add: dst", [&] { iv_mat_add(a, a, &hollow); }},
        {"transpose", [&] { iv_mat_transpose(&hollow, d); }},
        {"mul: src1", [&] { iv_mat_mul(&hollow, a, d, 0); }},
        {"mul: dst", [&] { iv_mat_mul(a, a, &hollow, 0); }},
        {"inv: src", [&] { iv_mat_inv(&hollow, d); }},
        {"inv: dst", [&] { iv_mat_inv(a, &hollow); }},
    });
}

TEST(Null, ArrayOfAFixedKernelFaults) {
    float a[3][3] = {}, c[3][3] = {}, x[3] = {}, y[3] = {};
    const auto none = static_cast<float(*)[3]>(nullptr);
    volatile float kept = 0.0f;
    expect_faults({
        {"matmult_3x3", [&] { _matmult_3x3(none, a, c); }},
        {"matmult_3x3t", [&] { _matmult_3x3t(a, none, c); }},
        {"matmult_3x3vec", [&] { _matmult_3x3vec(a, nullptr, y); }},
        {"matmult_3x3tvec", [&] { _matmult_3x3tvec(a, x, nullptr); }},
        {"matneg_3x3", [&] { _matneg_3x3(none); }},
        {"matdet_3x3", [&] { kept = _matdet_3x3(none); }},
        {"vecoutp_3", [&] { _vecoutp_3(x, y, none); }},
        {"veccrossp_3", [&] { _veccrossp_3(nullptr, x, y); }},
        {"vecdotp_3", [&] { kept = _vecdotp_3(x, nullptr); }},
    });
}

TEST(Null, FilterItsModelOrMeasurementFaults) {
    FloatMatrix A(1, 1, {1.0f}), H(1, 1, {1.0f}), Q(1, 1, {1.0f}), R(1, 1, {1.0f});
    FloatMatrix z(1, 1, {1.0f});
    const auto predict = [](iv_mat_t* a, iv_mat_t* q) {
        iv_kalman_predict(iv_kalman_create(1, 1, 1, a, nullptr, q, nullptr));
    };
    const auto correct = [](iv_mat_t* h, iv_mat_t* r, iv_mat_t* measurement) {
        iv_kalman_correct(iv_kalman_create(1, 1, 1, nullptr, h, nullptr, r), measurement);
    };
    expect_faults({
        {"predict: filter", [] { iv_kalman_predict(nullptr); }},
        {"predict: A", [&] { predict(nullptr, Q); }},
        {"predict: Q", [&] { predict(A, nullptr); }},
        {"correct: filter", [&] { iv_kalman_correct(nullptr, z); }},
        {"correct: H", [&] { correct(nullptr, R, z); }},
        {"correct: R", [&] { correct(H, nullptr, z); }},
        {"correct: measurement", [&] { correct(H, R, nullptr); }},
    });
}

} // namespace
