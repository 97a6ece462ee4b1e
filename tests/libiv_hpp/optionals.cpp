#include "optionals.h"

#include <libiv.hpp>

namespace test {
namespace {

#define REQUIRE(condition)                \
    do {                                  \
        if (!(condition)) {               \
            return "not so: " #condition; \
        }                                 \
    } while (false)

using iv::KalmanFilter;
using iv::KalmanModel;
using iv::Matrix;
using iv::Tracker;
using iv::TrackerOptions;

TrackerOptions options() {
    TrackerOptions options;
    options.width = 64;
    options.tuning.stable = 1;
    return options;
}

KalmanModel model() {
    KalmanModel model;
    model.A = *Matrix<float>::identity(1);
    model.H = *Matrix<float>::identity(1);
    model.Q = *Matrix<float>::identity(1);
    model.R = *Matrix<float>::identity(1);
    return model;
}

} // namespace

const char* optionals_hold_what_is_made() {
    const auto a = Matrix<float>::of({{2, 0}, {0, 4}});
    REQUIRE(a);
    const auto b = inverse(*a);
    REQUIRE(b && (*b)(1, 1) == 0.25f);
    const auto product = *a * *b;
    REQUIRE(product && (*product)(0, 0) == 1);
    auto sum = a->clone();
    REQUIRE(add(*a, *b, *sum) && (*sum)(0, 0) == 2.5f);

    auto filter = KalmanFilter::create(model());
    REQUIRE(filter);
    filter->predict();
    REQUIRE(filter->correct(*Matrix<float>::identity(1)));
    REQUIRE(filter->state()(0, 0) == 0.5f);

    auto tracker = Tracker::create(options());
    REQUIRE(tracker);
    iv::Tuning tuning = options().tuning;
    tuning.removal = 20;
    REQUIRE(tracker->tune(tuning));
    const auto tracks = tracker->process({{0, {1, 2, 3, 4}, 1.0f}});
    REQUIRE(tracks && tracks->size() == 1 && (*tracks)[0].class_number == 0);
    return nullptr;
}

const char* optionals_are_empty_where_operands_do_not_fit() {
    REQUIRE(!Matrix<float>::zeros(0, 1));
    REQUIRE(!Matrix<float>::of({{1, 2}, {3}}));
    auto wide = Matrix<float>::ones(1, 2);
    REQUIRE(!(*wide * *wide));
    REQUIRE(!inverse(*wide));
    REQUIRE(!multiply(*wide, *wide, *wide));
    REQUIRE(!(*wide += *Matrix<float>::ones(2, 1)));
    REQUIRE((*wide)(0, 1) == 1);

    REQUIRE(!KalmanFilter::create({}));
    auto filter = KalmanFilter::create(model());
    REQUIRE(!filter->correct(*wide));

    REQUIRE(!Tracker::create({}));
    auto tracker = Tracker::create(options());
    iv::Tuning tuning;
    tuning.overlap = 2;
    REQUIRE(!tracker->tune(tuning));
    return nullptr;
}

const char* optionals_are_empty_while_memory_is_out() {
    REQUIRE(!Matrix<float>::zeros(1, 1));
    REQUIRE(!Tracker::create(options()));
    return nullptr;
}

} // namespace test
