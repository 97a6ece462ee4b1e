// Kalman filters: the bits of the C calls, whose model they have, what is refused.
#include <gtest/gtest.h>

#include <algorithm>
#include <libiv.hpp>
#include <type_traits>

#include "support/allocations.h"
#include "support/bits.h"
#include "support/random.h"

namespace {

using iv::KalmanFilter;
using iv::KalmanModel;
using iv::Matrix;
using test::Allocations;

static_assert(!std::is_copy_constructible_v<KalmanFilter>);
static_assert(std::is_nothrow_move_constructible_v<KalmanFilter>);
static_assert(std::is_nothrow_move_assignable_v<KalmanFilter>);
static_assert(
    std::is_same_v<decltype(std::declval<const KalmanFilter&>().state()), Matrix<const float>>);

Matrix<float> random_matrix(test::Random& random, int rows, int cols) {
    auto matrix = Matrix<float>::zeros(rows, cols);
    std::generate(matrix.begin(), matrix.end(), [&] { return random.uniform(-1, 1); });
    return matrix;
}

KalmanModel random_model(test::Random& random, int states, int measured) {
    KalmanModel model;
    model.A = random_matrix(random, states, states);
    model.H = random_matrix(random, measured, states);
    model.Q = Matrix<float>::identity(states) * 0.1f;
    model.R = Matrix<float>::identity(measured);
    return model;
}

void expect_same(const iv_mat_t* expected, const Matrix<const float>& actual) {
    ASSERT_EQ(expected->rows, actual.rows());
    ASSERT_EQ(expected->cols, actual.cols());
    for (std::size_t i = 0; i < actual.size(); ++i) {
        EXPECT_PRED_FORMAT2(test::SameNumber, expected->data.f[i], actual.data()[i]) << i;
    }
}

void expect_same(const iv_kalman_t* expected, const KalmanFilter& actual) {
    expect_same(expected->x_post, actual.state());
    expect_same(expected->P_post, actual.covariance());
    expect_same(expected->x_pre, actual.predicted_state());
    expect_same(expected->P_pre, actual.predicted_covariance());
    expect_same(expected->K, actual.gain());
    expect_same(expected->temp5, actual.innovation());
    expect_same(expected->temp3, actual.innovation_covariance());
    expect_same(expected->A, actual.A());
    expect_same(expected->H, actual.H());
    expect_same(expected->Q, actual.Q());
    expect_same(expected->R, actual.R());
}

TEST(HppKalman, FilterGivesTheBitsOfTheCCalls) {
    test::Random random(11);
    for (const auto& [states, measured] : {std::pair(1, 1), {3, 2}, {8, 4}}) {
        KalmanModel model = random_model(random, states, measured);
        iv_kalman_t* expected =
            iv_kalman_create(states, measured, 1, model.A.record(), model.H.record(),
                             model.Q.record(), model.R.record());
        iv_mat_setidentity(expected->P_post);
        auto own = KalmanFilter::create(model);
        auto sharing = KalmanFilter::sharing(model);
        own.covariance().set_identity();
        sharing.covariance().set_identity();
        for (int step = 0; step < 30; ++step) {
            auto z = random_matrix(random, measured, 1);
            for (KalmanFilter* filter : {&own, &sharing}) {
                filter->predict();
                filter->correct(z);
            }
            iv_kalman_predict(expected);
            iv_kalman_correct(expected, z.record());
            expect_same(expected, own);
            expect_same(expected, sharing);
        }
        iv_kalman_release(expected);
    }
}

TEST(HppKalman, CreatedFilterHasAModelOfItsOwnASharingOneTheCallers) {
    test::Random random(5);
    KalmanModel model = random_model(random, 2, 1);
    auto own = KalmanFilter::create(model);
    auto sharing = KalmanFilter::sharing(model);
    model.A(0, 1) = 5;
    EXPECT_NE(own.A()(0, 1), 5);
    EXPECT_EQ(sharing.A()(0, 1), 5);
    own.A()(0, 1) = 6;
    EXPECT_EQ(model.A(0, 1), 5);
    EXPECT_EQ(sharing.A().data(), model.A.data());
}

TEST(HppKalman, CoastingMovesOn) {
    KalmanModel model;
    model.A = Matrix<float>::of({{1, 1}, {0, 1}});
    model.H = Matrix<float>::of({{1, 0}});
    model.Q = Matrix<float>::identity(2);
    model.R = Matrix<float>::identity(1);
    auto filter = KalmanFilter::create(model);
    filter.state().assign({{10}, {2}});
    filter.predict();
    filter.predict();
    EXPECT_EQ(filter.predicted_state()(0, 0), 12) << "a prediction is made from the estimate";
    filter.coast();
    filter.predict();
    EXPECT_EQ(filter.predicted_state()(0, 0), 14);
    EXPECT_EQ(filter.predicted_covariance()(1, 1), 2) << "and is ever less sure";
}

TEST(HppKalman, ModelsThatDoNotFitAreRefused) {
    test::Random random(1);
    const auto expect_refused = [](const KalmanModel& model) {
        EXPECT_THROW((void)KalmanFilter::create(model), std::invalid_argument);
    };
    expect_refused({});
    expect_refused(random_model(random, 50, 41));
    EXPECT_NO_THROW((void)KalmanFilter::create(random_model(random, 50, 40)));
    for (Matrix<float> KalmanModel::*matrix :
         {&KalmanModel::A, &KalmanModel::H, &KalmanModel::Q, &KalmanModel::R}) {
        KalmanModel model = random_model(random, 3, 2);
        model.*matrix = Matrix<float>::zeros(4, 5);
        expect_refused(model);
        EXPECT_THROW((void)KalmanFilter::sharing(model), std::invalid_argument);
        model.*matrix = {};
        expect_refused(model);
    }
}

TEST(HppKalman, MeasurementThatDoesNotFitIsRefusedAndChangesNothing) {
    test::Random random(2);
    auto filter = KalmanFilter::create(random_model(random, 3, 2));
    filter.covariance().set_identity();
    filter.predict();
    filter.correct(Matrix<float>::ones(2, 1));
    const auto state = filter.state().clone();
    EXPECT_THROW(filter.correct(Matrix<float>::ones(1, 2)), std::invalid_argument);
    EXPECT_THROW(filter.correct(Matrix<float>::ones(3, 1)), std::invalid_argument);
    expect_same(state.record(), filter.state());
}

TEST(HppKalman, FilterIsOneBlockThatMovesAlong) {
    test::Random random(4);
    KalmanModel model = random_model(random, 3, 2);
    Allocations allocations(Allocations::Keep::COUNTS);
    {
        auto filter = KalmanFilter::create(model);
        EXPECT_EQ(allocations.made(), 1);
        filter.state()(2, 0) = 3;
        KalmanFilter moved = std::move(filter);
        EXPECT_EQ(moved.state()(2, 0), 3);
        filter = KalmanFilter::sharing(model);
        filter.predict();
        moved = std::move(filter);
        EXPECT_EQ(allocations.freed(), 1);
        EXPECT_EQ(moved.A().data(), model.A.data());
    }
    EXPECT_EQ(allocations.made(), 2);
    EXPECT_EQ(allocations.freed(), 2);
    EXPECT_EQ(allocations.made_by_new(), 0);
    allocations.fail_nth(1);
    EXPECT_THROW((void)KalmanFilter::create(model), std::bad_alloc);
}

} // namespace
