// Reading the rows of a frame.
#include <gtest/gtest.h>

#include <climits>
#include <cstring>

#include "iv_tracker/instance.h"
#include "support/forbidden_page.h"
#include "support/matrix.h"

namespace {

using namespace iv::internal;
using test::Detection;
using test::detection;
using test::INFINITE;
using test::Instance;
using test::NOT_A_NUMBER;
using test::Settings;

/// Extracts rows as they are, without a terminator behind them.
void extract(const Instance& instance, std::vector<Detection> rows) {
    tracker_extract(instance, reinterpret_cast<float(*)[6]>(rows.data()));
}

/// The class that a row's first column gives.
int class_of(float column) {
    const Instance instance;
    extract(instance, {Detection{column, 0, 0, 1, 1, 1}, Detection{0, 0, 0, 0, 0, 0}});
    EXPECT_EQ(instance->ncurobjs, 1) << column;
    return instance->cur_obj[0].c;
}

TEST(TrackerExtract, RowBecomesACentreFormDetection) {
    const Instance instance;
    extract(instance, {Detection{3, 10, 20, 30, 50, 0.75f}, Detection{0, 9, 9, 9, 9, 9}});
    ASSERT_EQ(instance->ncurobjs, 1);
    const det_obj_t& det = instance->cur_obj[0];
    EXPECT_EQ(det.c, 3);
    EXPECT_EQ(det.x, 20.0f);
    EXPECT_EQ(det.y, 35.0f);
    EXPECT_EQ(det.w, 20.0f);
    EXPECT_EQ(det.h, 30.0f);
    EXPECT_EQ(det.s, 0.75f);
}

TEST(TrackerExtract, NothingIsFilteredSortedOrClamped) {
    const Instance instance;
    extract(instance, {Detection{2, 30, 5, 10, 1, -3}, Detection{1, -1e30f, 0, 1e30f, 0, 7},
                       Detection{-5, 0, 0, 0, 0, 0}, Detection{0, 0, 0, 0, 0, 0}});
    ASSERT_EQ(instance->ncurobjs, 3);
    EXPECT_EQ(instance->cur_obj[0].w, -20.0f);
    EXPECT_EQ(instance->cur_obj[0].h, -4.0f);
    EXPECT_EQ(instance->cur_obj[0].x, 20.0f);
    EXPECT_EQ(instance->cur_obj[0].s, -3.0f);
    EXPECT_EQ(instance->cur_obj[1].w, 2e30f);
    EXPECT_EQ(instance->cur_obj[1].s, 7.0f);
    EXPECT_EQ(instance->cur_obj[2].c, -5);
}

TEST(TrackerExtract, SumsAreSinglePrecision) {
    const Instance instance;
    extract(instance, {Detection{1, 3e38f, 0, 3e38f, 0, 1}, Detection{0, 0, 0, 0, 0, 0}});
    EXPECT_EQ(instance->cur_obj[0].x, INFINITE) << "the sum overflows before it is halved";
}

TEST(TrackerExtract, EitherZeroEndsTheList) {
    for (const float zero : {0.0f, -0.0f}) {
        const Instance instance;
        extract(instance, {detection(1, 0, 0), Detection{zero, 0, 0, 1, 1, 1}, detection(2, 0, 0)});
        EXPECT_EQ(instance->ncurobjs, 1);
        EXPECT_EQ(instance->cur_obj[1].c, 0);
        EXPECT_EQ(instance->cur_obj[1].x, 0.0f);
    }
}

TEST(TrackerExtract, FirstRowMayEndTheList) {
    Instance instance;
    instance.process({detection(1, 0, 0)});
    extract(instance, {Detection{0, 0, 0, 1, 1, 1}});
    EXPECT_EQ(instance->ncurobjs, 0);
}

TEST(TrackerExtract, ClassIsTruncatedTowardZero) {
    EXPECT_EQ(class_of(2.7f), 2);
    EXPECT_EQ(class_of(-2.7f), -2);
    EXPECT_EQ(class_of(16777216.0f), 16777216);
}

TEST(TrackerExtract, FractionOfOneIsClassZeroAndNoEnd) {
    EXPECT_EQ(class_of(0.5f), 0);
    EXPECT_EQ(class_of(-0.99f), 0);
    EXPECT_EQ(class_of(0x1p-149f), 0);
}

TEST(TrackerExtract, NaNIsClassZeroAndNoEnd) {
    EXPECT_EQ(class_of(NOT_A_NUMBER), 0);
    EXPECT_EQ(class_of(-NOT_A_NUMBER), 0);
}

TEST(TrackerExtract, ClassSaturates) {
    EXPECT_EQ(class_of(1e10f), INT_MAX);
    EXPECT_EQ(class_of(-1e10f), INT_MIN);
    EXPECT_EQ(class_of(INFINITE), INT_MAX);
    EXPECT_EQ(class_of(-INFINITE), INT_MIN);
    EXPECT_EQ(class_of(2147483648.0f), INT_MAX);
    EXPECT_EQ(class_of(2147483520.0f), 2147483520);
    EXPECT_EQ(class_of(-2147483648.0f), INT_MIN);
    EXPECT_EQ(class_of(-2147483520.0f), -2147483520);
}

TEST(TrackerExtract, StopsAtTheCapacity) {
    Settings settings;
    settings.nmaxobjs = 2;
    const Instance instance(settings);
    extract(instance, {detection(1, 0, 0), detection(2, 0, 0), detection(3, 0, 0)});
    EXPECT_EQ(instance->ncurobjs, 2);
    EXPECT_EQ(instance->cur_obj[1].c, 2);
}

TEST(TrackerExtract, ClassOfTheRowBehindAFullListIsReadAndNoMore) {
    Settings settings;
    settings.nmaxobjs = 2;
    const Instance instance(settings);
    const test::ForbiddenPage page;
    const std::vector<Detection> rows{detection(1, 0, 0), detection(2, 0, 0), detection(3, 0, 0)};
    const auto extract_at = [&](std::size_t readable) {
        void* input = page.end(readable);
        std::memcpy(input, rows.data(), readable);
        tracker_extract(instance, static_cast<float(*)[6]>(input));
    };
    extract_at(2 * sizeof(Detection) + sizeof(float));
    EXPECT_EQ(instance->ncurobjs, 2);
    EXPECT_DEATH(extract_at(2 * sizeof(Detection)), "");
}

TEST(TrackerExtract, EndMayStandRightBehindTheCapacity) {
    Settings settings;
    settings.nmaxobjs = 2;
    const Instance instance(settings);
    extract(instance, {detection(1, 0, 0), detection(2, 0, 0), Detection{0, 0, 0, 0, 0, 0}});
    EXPECT_EQ(instance->ncurobjs, 2);
}

} // namespace
