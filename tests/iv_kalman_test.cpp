// The Kalman filter: its block, prediction and correction.
#include <numeric>

#include "iv_kalman.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <memory>

#include "support/allocations.h"
#include "support/matrix.h"

namespace {

using test::Allocations;
using test::fill;
using test::FloatMatrix;
using test::floats_of;
using Floats = std::vector<float>;

struct Releaser {
    void operator()(iv_kalman_t* kalman) const { iv_kalman_release(kalman); }
};
using Filter = std::unique_ptr<iv_kalman_t, Releaser>;

/// A filter with a model of its own.
Filter own_model(int ns, int nm) {
    return Filter(iv_kalman_create(ns, nm, 0, nullptr, nullptr, nullptr, nullptr));
}

/// A caller's model: matrices of a filter with 8 states and 4 measurements, all ones.
struct Model {
    FloatMatrix A{8, 8, Floats(64, 1)}, H{4, 8, Floats(32, 1)};
    FloatMatrix Q{8, 8, Floats(64, 1)}, R{4, 4, Floats(16, 1)};

    Filter filter(int flag) { return Filter(iv_kalman_create(8, 4, flag, A, H, Q, R)); }
};

/// The matrices of a filter in field order.
std::array<iv_mat_t*, 14> matrices(const iv_kalman_t& k) {
    return {k.x_pre, k.x_post, k.P_pre, k.P_post, k.K, k.temp1, k.temp2,
            k.temp3, k.temp4,  k.temp5, k.A,      k.H, k.Q,     k.R};
}

/// Rows and columns of each matrix in field order.
std::array<std::array<int, 2>, 14> shapes(int ns, int nm) {
    return {{{ns, 1},
             {ns, 1},
             {ns, ns},
             {ns, ns},
             {ns, nm},
             {ns, ns},
             {ns, nm},
             {nm, nm},
             {nm, nm},
             {nm, 1},
             {ns, ns},
             {nm, ns},
             {ns, ns},
             {nm, nm}}};
}

std::uintptr_t address(const void* pointer) {
    return reinterpret_cast<std::uintptr_t>(pointer);
}

TEST(KalmanRecord, FieldsAreInTheirOrder) {
    EXPECT_EQ(offsetof(iv_kalman_t, ns), 0u);
    EXPECT_EQ(offsetof(iv_kalman_t, nm), 4u);
    const std::size_t pointers[] = {
        offsetof(iv_kalman_t, x_pre),  offsetof(iv_kalman_t, x_post), offsetof(iv_kalman_t, P_pre),
        offsetof(iv_kalman_t, P_post), offsetof(iv_kalman_t, K),      offsetof(iv_kalman_t, temp1),
        offsetof(iv_kalman_t, temp2),  offsetof(iv_kalman_t, temp3),  offsetof(iv_kalman_t, temp4),
        offsetof(iv_kalman_t, temp5),  offsetof(iv_kalman_t, A),      offsetof(iv_kalman_t, H),
        offsetof(iv_kalman_t, Q),      offsetof(iv_kalman_t, R),      offsetof(iv_kalman_t, mbuf)};
    for (std::size_t i = 0; i < 15; ++i) {
        EXPECT_EQ(pointers[i], 8 + i * sizeof(void*)) << "pointer " << i;
    }
}

TEST(KalmanSizes, TablesHoldBytesRowsAndColumnsInFieldOrder) {
    for (const int flag : {0, 1, 7, -1}) {
        int bytes[15], rows[15], cols[15];
        std::fill_n(bytes, 15, -9);
        std::fill_n(rows, 15, -9);
        std::fill_n(cols, 15, -9);
        const int count = iv::internal::getmsizes(bytes, rows, cols, 6, 2, flag);
        EXPECT_EQ(count, flag == 0 ? 14 : 10);
        for (std::size_t i = 0; i < static_cast<std::size_t>(count); ++i) {
            EXPECT_EQ(rows[i], shapes(6, 2)[i][0]) << "matrix " << i;
            EXPECT_EQ(cols[i], shapes(6, 2)[i][1]) << "matrix " << i;
            EXPECT_EQ(bytes[i], static_cast<int>(sizeof(iv_mat_t)) + 4 * rows[i] * cols[i]);
        }
        EXPECT_EQ(bytes[count], -9) << "entries beyond are not written";
        EXPECT_EQ(rows[count], -9);
        EXPECT_EQ(cols[count], -9);
    }
}

/// Compares the headers of the first `count` matrices with the shapes of the filter.
void expect_shapes(const iv_kalman_t& kalman, int ns, int nm, std::size_t count) {
    EXPECT_EQ(kalman.ns, ns);
    EXPECT_EQ(kalman.nm, nm);
    for (std::size_t i = 0; i < count; ++i) {
        const iv_mat_t* mat = matrices(kalman)[i];
        const auto [rows, cols] = shapes(ns, nm)[i];
        EXPECT_EQ(mat->type, IV_32F) << "matrix " << i;
        EXPECT_EQ(mat->rows, rows) << "matrix " << i;
        EXPECT_EQ(mat->cols, cols) << "matrix " << i;
        EXPECT_EQ(mat->step, 4 * cols) << "matrix " << i;
        EXPECT_EQ(floats_of(mat), Floats(static_cast<std::size_t>(rows * cols), 0.0f));
    }
}

TEST(KalmanCreate, CallersModelIsReferredTo) {
    Model model;
    for (const int flag : {1, 7, -1, 0x100}) {
        const Filter kalman = model.filter(flag);
        ASSERT_NE(kalman, nullptr);
        expect_shapes(*kalman, 8, 4, 10);
        EXPECT_EQ(kalman->A, static_cast<iv_mat_t*>(model.A));
        EXPECT_EQ(kalman->H, static_cast<iv_mat_t*>(model.H));
        EXPECT_EQ(kalman->Q, static_cast<iv_mat_t*>(model.Q));
        EXPECT_EQ(kalman->R, static_cast<iv_mat_t*>(model.R));
    }
}

TEST(KalmanCreate, OwnModelLiesInTheBlockWhateverIsPassed) {
    Model model;
    for (iv_mat_t* passed : {static_cast<iv_mat_t*>(nullptr), static_cast<iv_mat_t*>(model.A)}) {
        const Filter kalman(iv_kalman_create(3, 5, 0, passed, passed, passed, passed));
        ASSERT_NE(kalman, nullptr);
        expect_shapes(*kalman, 3, 5, 14);
    }
}

TEST(KalmanCreate, IsOneBlockOfTheRecordAndItsMatrices) {
    Model model;
    Allocations allocations;
    Filter kalman = model.filter(1);
    EXPECT_EQ(allocations.sizes(),
              std::vector<std::size_t>{sizeof(iv_kalman_t) + 10 * sizeof(iv_mat_t) + 4 * 308});
    iv_kalman_t* block = kalman.get();
    kalman.reset();
    EXPECT_EQ(allocations.freed_blocks(), std::vector<void*>{block});
    kalman = own_model(8, 4);
    EXPECT_EQ(allocations.sizes()[1], sizeof(iv_kalman_t) + 14 * sizeof(iv_mat_t) + 4 * 484);
    EXPECT_EQ(allocations.made(), 2);
}

// Odd sizes leave half a pointer's width behind a matrix.
TEST(KalmanCreate, MatricesFollowOneAnotherAtMultiplesOfThePointerSize) {
    struct Size {
        int ns, nm;
    };
    for (const Size& size : {Size{8, 4}, Size{1, 1}, Size{3, 1}, Size{1, 2}, Size{5, 3}}) {
        Allocations allocations;
        const Filter kalman = own_model(size.ns, size.nm);
        std::uintptr_t next = address(kalman.get() + 1);
        EXPECT_EQ(address(kalman->mbuf), next);
        for (const iv_mat_t* mat : matrices(*kalman)) {
            next = (next + sizeof(void*) - 1) / sizeof(void*) * sizeof(void*);
            EXPECT_EQ(address(mat), next);
            EXPECT_EQ(address(mat->data.p), address(mat + 1));
            next = address(mat->data.f + mat->rows * mat->cols);
        }
        EXPECT_GE(address(kalman.get()) + allocations.sizes()[0], next);
        EXPECT_LT(address(kalman.get()) + allocations.sizes()[0], next + sizeof(void*));
    }
}

TEST(KalmanCreate, FailedAllocationGivesNull) {
    Allocations allocations;
    allocations.fail_nth(1);
    EXPECT_EQ(own_model(2, 2), nullptr);
    EXPECT_EQ(allocations.sizes().size(), 1u);
    EXPECT_EQ(allocations.freed(), 0);
}

TEST(KalmanRelease, NullIsFine) {
    Allocations allocations;
    iv_kalman_release(nullptr);
    EXPECT_EQ(allocations.freed(), 0);
}

TEST(KalmanPredict, FreshFilterPredictsZeroAndTheProcessNoise) {
    Model model;
    const Filter kalman = model.filter(1);
    Floats noise(64);
    std::iota(noise.begin(), noise.end(), 1.0f);
    fill(kalman->Q, noise);
    iv_kalman_predict(kalman.get());
    EXPECT_EQ(floats_of(kalman->x_pre), Floats(8, 0.0f));
    EXPECT_EQ(floats_of(kalman->P_pre), noise);
}

TEST(KalmanPredict, FreshFilterWithItsOwnModelPredictsZero) {
    const Filter kalman = own_model(3, 2);
    fill(kalman->x_pre, Floats(3, 9));
    fill(kalman->P_pre, Floats(9, 9));
    iv_kalman_predict(kalman.get());
    EXPECT_EQ(floats_of(kalman->x_pre), Floats(3, 0.0f));
    EXPECT_EQ(floats_of(kalman->P_pre), Floats(9, 0.0f));
}

/// A filter of two states and two measurements in which no matrix is symmetric.
class AsymmetricFilter : public ::testing::Test {
  protected:
    AsymmetricFilter() : kalman_(own_model(2, 2)) {
        fill(kalman_->A, {1, 2, 3, 4});
        fill(kalman_->H, {1, 0, 1, 1});
        fill(kalman_->Q, {1, 2, 3, 4});
        fill(kalman_->R, {0, 1, -4, -6});
        fill(kalman_->x_post, {1, 2});
        fill(kalman_->P_post, {1, 2, 5, 7});
        fill(kalman_->x_pre, {1, 2});
        fill(kalman_->P_pre, {2, 1, 3, 4});
    }

    Filter kalman_;
    FloatMatrix z_{2, 1, {5, 11}};
};

TEST_F(AsymmetricFilter, PredictionTransposesTheCorrectedCovariance) {
    iv_kalman_predict(kalman_.get());
    EXPECT_EQ(floats_of(kalman_->x_pre), (Floats{5, 11}));
    EXPECT_EQ(floats_of(kalman_->temp1), (Floats{5, 19, 11, 43}));
    EXPECT_EQ(floats_of(kalman_->P_pre), (Floats{44, 93, 100, 209}));
}

TEST_F(AsymmetricFilter, PredictionWritesNothingElse) {
    const auto before = matrices(*kalman_);
    fill(kalman_->K, {1, 2, 3, 4});
    fill(kalman_->temp5, {1, 2});
    iv_kalman_predict(kalman_.get());
    EXPECT_EQ(floats_of(kalman_->x_post), (Floats{1, 2}));
    EXPECT_EQ(floats_of(kalman_->P_post), (Floats{1, 2, 5, 7}));
    EXPECT_EQ(floats_of(kalman_->K), (Floats{1, 2, 3, 4}));
    EXPECT_EQ(floats_of(kalman_->temp5), (Floats{1, 2}));
    EXPECT_EQ(floats_of(kalman_->temp2), Floats(4, 0.0f));
    EXPECT_EQ(matrices(*kalman_), before);
}

TEST_F(AsymmetricFilter, PredictionsInARowAreEqual) {
    iv_kalman_predict(kalman_.get());
    iv_kalman_predict(kalman_.get());
    EXPECT_EQ(floats_of(kalman_->x_pre), (Floats{5, 11}));
    EXPECT_EQ(floats_of(kalman_->P_pre), (Floats{44, 93, 100, 209}));
}

TEST_F(AsymmetricFilter, CorrectionFillsEveryIntermediateResult) {
    iv_kalman_correct(kalman_.get(), z_);
    EXPECT_EQ(floats_of(kalman_->temp2), (Floats{2, 3, 3, 7}));
    EXPECT_EQ(floats_of(kalman_->temp3), (Floats{2, 4, 1, 4}));
    EXPECT_EQ(floats_of(kalman_->temp4), (Floats{1, -1, -0.25f, 0.5f}));
    EXPECT_EQ(floats_of(kalman_->K), (Floats{-1, 1, -4, 2.75f}));
    EXPECT_EQ(floats_of(kalman_->temp5), (Floats{4, 8}));
    EXPECT_EQ(floats_of(kalman_->x_post), (Floats{5, 8}));
    EXPECT_EQ(floats_of(kalman_->temp1), (Floats{1, -1, 1.25f, -1.75f}));
    EXPECT_EQ(floats_of(kalman_->P_post), (Floats{1, -1, 0.75f, -3.25f}));
}

TEST_F(AsymmetricFilter, CorrectionLeavesPredictionModelAndMeasurement) {
    iv_kalman_correct(kalman_.get(), z_);
    EXPECT_EQ(floats_of(kalman_->x_pre), (Floats{1, 2}));
    EXPECT_EQ(floats_of(kalman_->P_pre), (Floats{2, 1, 3, 4}));
    EXPECT_EQ(floats_of(kalman_->A), (Floats{1, 2, 3, 4}));
    EXPECT_EQ(floats_of(kalman_->H), (Floats{1, 0, 1, 1}));
    EXPECT_EQ(floats_of(kalman_->Q), (Floats{1, 2, 3, 4}));
    EXPECT_EQ(floats_of(kalman_->R), (Floats{0, 1, -4, -6}));
    EXPECT_EQ(z_.values(), (Floats{5, 11}));
}

TEST_F(AsymmetricFilter, CorrectionsInARowAreEqual) {
    iv_kalman_correct(kalman_.get(), z_);
    iv_kalman_correct(kalman_.get(), z_);
    EXPECT_EQ(floats_of(kalman_->K), (Floats{-1, 1, -4, 2.75f}));
    EXPECT_EQ(floats_of(kalman_->x_post), (Floats{5, 8}));
}

TEST_F(AsymmetricFilter, MisshapenMeasurementLeavesTheInnovationStale) {
    FloatMatrix row(1, 2, {5, 11});
    test::Matrix<s32_t> whole(IV_32S, 2, 1, {5, 11});
    for (iv_mat_t* wrong : {static_cast<iv_mat_t*>(row), static_cast<iv_mat_t*>(whole)}) {
        fill(kalman_->temp5, {0, 0});
        iv_kalman_correct(kalman_.get(), wrong);
        EXPECT_EQ(floats_of(kalman_->temp5), (Floats{0, 0}));
        EXPECT_EQ(floats_of(kalman_->x_post), (Floats{1, 2}));
        iv_kalman_correct(kalman_.get(), z_);
        fill(kalman_->x_post, {99, 99});
        iv_kalman_correct(kalman_.get(), wrong);
        EXPECT_EQ(floats_of(kalman_->temp5), (Floats{4, 8})) << "the innovation before";
        EXPECT_EQ(floats_of(kalman_->x_post), (Floats{5, 8}));
    }
}

TEST_F(AsymmetricFilter, MisshapenModelLeavesItsResultsStale) {
    kalman_->A->type = IV_32S;
    iv_kalman_predict(kalman_.get());
    EXPECT_EQ(floats_of(kalman_->x_pre), (Floats{1, 2}));
    EXPECT_EQ(floats_of(kalman_->temp1), Floats(4, 0.0f));
    EXPECT_EQ(floats_of(kalman_->P_pre), (Floats{2, 1, 3, 4}));
    kalman_->R->rows = 3;
    iv_kalman_correct(kalman_.get(), z_);
    EXPECT_EQ(floats_of(kalman_->temp2), (Floats{2, 3, 3, 7}));
    EXPECT_EQ(floats_of(kalman_->temp3), Floats(4, 0.0f)) << "refused";
    for (const float value : floats_of(kalman_->temp4)) {
        EXPECT_FALSE(std::isfinite(value)) << "inverse of the stale zeros";
    }
}

// Shapes come from the matrices alone.
TEST_F(AsymmetricFilter, RecordedSizesAreNotRead) {
    kalman_->ns = 7;
    kalman_->nm = -3;
    iv_kalman_correct(kalman_.get(), z_);
    EXPECT_EQ(floats_of(kalman_->x_post), (Floats{5, 8}));
    iv_kalman_predict(kalman_.get());
    EXPECT_EQ(floats_of(kalman_->x_pre), (Floats{21, 47}));
}

TEST(KalmanCorrect, ScalarFilter) {
    const Filter kalman = own_model(1, 1);
    FloatMatrix z(1, 1, {8});
    fill(kalman->A, {1});
    fill(kalman->H, {1});
    fill(kalman->Q, {2});
    fill(kalman->R, {1});
    fill(kalman->P_post, {1});
    fill(kalman->x_post, {4});
    iv_kalman_predict(kalman.get());
    EXPECT_EQ(floats_of(kalman->x_pre), Floats{4});
    EXPECT_EQ(floats_of(kalman->P_pre), Floats{3});
    iv_kalman_correct(kalman.get(), z);
    EXPECT_EQ(floats_of(kalman->K), Floats{0.75f});
    EXPECT_EQ(floats_of(kalman->x_post), Floats{7});
    EXPECT_EQ(floats_of(kalman->P_post), Floats{0.75f});
}

TEST(KalmanCorrect, DifferentNumbersOfStatesAndMeasurements) {
    const Filter kalman = own_model(2, 1);
    FloatMatrix z(1, 1, {10});
    fill(kalman->H, {1, 2});
    fill(kalman->R, {-1});
    fill(kalman->x_pre, {1, 2});
    fill(kalman->P_pre, {1, 0, 0, 1});
    iv_kalman_correct(kalman.get(), z);
    EXPECT_EQ(floats_of(kalman->K), (Floats{0.25f, 0.5f}));
    EXPECT_EQ(floats_of(kalman->x_post), (Floats{2.25f, 4.5f}));
    EXPECT_EQ(floats_of(kalman->P_post), (Floats{0.75f, -0.5f, -0.5f, 0}));
}

TEST(KalmanCorrect, MoreThanFortyMeasurementsHaveNoEffect) {
    const Filter kalman = own_model(2, 41);
    FloatMatrix z(41, 1, Floats(41, 5));
    fill(kalman->H, Floats(82, 1));
    iv_mat_setidentity(kalman->R);
    fill(kalman->x_pre, {3, 4});
    fill(kalman->P_pre, {1, 2, 3, 4});
    iv_kalman_correct(kalman.get(), z);
    EXPECT_EQ(floats_of(kalman->temp4), Floats(41 * 41, 0.0f));
    EXPECT_EQ(floats_of(kalman->K), Floats(82, 0.0f));
    EXPECT_EQ(floats_of(kalman->x_post), (Floats{3, 4}));
    EXPECT_EQ(floats_of(kalman->P_post), (Floats{1, 3, 2, 4}));
}

TEST(KalmanCorrect, SingularInnovationCovarianceIsNotDetected) {
    const Filter kalman = own_model(2, 2);
    FloatMatrix z(2, 1, {8, 8});
    fill(kalman->H, {1, 0, 0, 1});
    iv_kalman_correct(kalman.get(), z);
    for (const iv_mat_t* result : {kalman->K, kalman->x_post, kalman->P_post}) {
        for (const float value : floats_of(result)) {
            EXPECT_FALSE(std::isfinite(value)) << value;
        }
    }
}

/// One step of a filter whose states are measured one by one.
void step(const Filter& kalman, const Floats& measured) {
    FloatMatrix z(4, 1, measured);
    iv_kalman_predict(kalman.get());
    iv_kalman_correct(kalman.get(), z);
}

// The covariance and the gain never see a measurement, and the estimate is a matter of its filter.
TEST(KalmanCorrect, MeasurementThatIsNoNumberSpoilsTheEstimateOfItsFilterAlone) {
    Model model;
    for (iv_mat_t* mat : {&*model.A, &*model.H, &*model.Q, &*model.R}) {
        iv_mat_setidentity(mat);
    }
    const Filter spoiled = model.filter(1), beside = model.filter(1), twin = model.filter(1);
    for (const float value : {3.0f, test::NOT_A_NUMBER, 4.0f, 5.0f}) {
        step(spoiled, {1, value, 2, 3});
        step(beside, {1, 2, 3, 4});
    }
    for (int i = 0; i < 4; ++i) {
        step(twin, {1, 2, 3, 4});
    }
    EXPECT_EQ(floats_of(beside->x_post), floats_of(twin->x_post));
    EXPECT_EQ(floats_of(beside->P_post), floats_of(twin->P_post));
    EXPECT_EQ(floats_of(spoiled->P_post), floats_of(twin->P_post));
    for (const float value : floats_of(spoiled->x_post)) {
        EXPECT_TRUE(std::isnan(value)) << "two steps behind the measurement";
    }
    fill(spoiled->x_post, floats_of(twin->x_post));
    step(spoiled, {1, 2, 3, 4});
    step(twin, {1, 2, 3, 4});
    EXPECT_EQ(floats_of(spoiled->x_post), floats_of(twin->x_post)) << "written anew it is sound";
}

TEST(KalmanCorrect, NeitherStepAllocates) {
    Model model;
    const Filter kalman = model.filter(1);
    FloatMatrix z(4, 1, {1, 2, 3, 4});
    Allocations allocations;
    iv_kalman_predict(kalman.get());
    iv_kalman_correct(kalman.get(), z);
    EXPECT_TRUE(allocations.sizes().empty());
    EXPECT_EQ(allocations.freed(), 0);
}

TEST(KalmanRelease, CallersModelStays) {
    Model model;
    model.filter(1).reset();
    EXPECT_EQ(model.A.values(), Floats(64, 1));
    EXPECT_EQ(model.R.values(), Floats(16, 1));
}

} // namespace
