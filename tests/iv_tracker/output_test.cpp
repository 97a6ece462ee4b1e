// The rows written back.
#include <gtest/gtest.h>

#include "iv_tracker/instance.h"
#include "support/matrix.h"

namespace {

using namespace iv::internal;
using test::Detection;
using test::detection;
using test::ids;
using test::Instance;
using test::Settings;
using test::TrackRow;
using test::UNWRITTEN;

Settings capacity(int nmaxobjs, int stable = 1) {
    Settings settings;
    settings.nmaxobjs = nmaxobjs;
    settings.fcnt_stable = stable;
    return settings;
}

TrackRow unwritten() {
    TrackRow row;
    row.fill(UNWRITTEN);
    return row;
}

/// The terminator: nothing but column 0 is written.
TrackRow terminator() {
    TrackRow row = unwritten();
    row[0] = -1.0f;
    return row;
}

TEST(TrackerOutput, FirstDetectionIsReportedAtOnceWhenOneMatchIsEnough) {
    Instance instance(capacity(2));
    const std::vector<TrackRow> output = instance.process_raw({Detection{1, 10, 10, 30, 50, 0.9f}});
    EXPECT_EQ(output[0], (TrackRow{1, 1, 10, 10, 30, 50, 0.9f, 0}));
    EXPECT_EQ(output[1], terminator());
    EXPECT_EQ(output[2], unwritten());
}

TEST(TrackerOutput, SameDetectionIsReportedInTheThirdCallWhenThreeAreAsked) {
    Instance instance(capacity(2, 3));
    const Detection row{1, 10, 10, 30, 50, 0.9f};
    EXPECT_EQ(instance.process_raw({row})[0], terminator());
    EXPECT_EQ(instance.process_raw({row})[0], terminator());
    EXPECT_EQ(instance.process_raw({row})[0], (TrackRow{1, 1, 10, 10, 30, 50, 0.9f, 0}));
}

TEST(TrackerOutput, ColumnsAreIdClassCornersScoreAndInputRow) {
    Instance instance(capacity(4));
    instance->tid = 7;
    const std::vector<TrackRow> output =
        instance.process({detection(5, 50, 60, 2, 4, 0.125f), detection(-3, 10, 20, 6, 8, -2.0f)});
    ASSERT_EQ(output.size(), 2u);
    EXPECT_EQ(output[0], (TrackRow{7, 5, 49, 58, 51, 62, 0.125f, 0}));
    EXPECT_EQ(output[1], (TrackRow{8, -3, 7, 16, 13, 24, -2, 1}));
}

TEST(TrackerOutput, LastColumnIsTheInputRowAndNotTheOutputRow) {
    Instance instance(capacity(4));
    instance.process({detection(1, 0, 0), detection(1, 30, 0)});
    const std::vector<TrackRow> output =
        instance.process({detection(1, 60, 0), detection(1, 30, 0), detection(1, 0, 0)});
    EXPECT_EQ(ids(output), (std::vector<int>{1, 2, 3}));
    EXPECT_EQ(output[0][7], 2.0f);
    EXPECT_EQ(output[1][7], 1.0f);
    EXPECT_EQ(output[2][7], 0.0f);
}

TEST(TrackerOutput, CoastingTrackIsReportedForTwoMissesAlone) {
    Instance instance(capacity(2));
    const Detection row{1, 10, 10, 30, 50, 0.9f};
    instance.process({row});
    const TrackRow coasting{1, 1, 10, 10, 30, 50, 0.9f, -1};
    EXPECT_EQ(instance.process_raw({})[0], coasting);
    EXPECT_EQ(instance.process_raw({})[0], coasting);
    EXPECT_EQ(instance.process_raw({})[0], terminator());
    EXPECT_EQ(instance->track_count, 1);
    EXPECT_EQ(instance.process({row})[0][0], 1.0f) << "and comes back with its id";
}

TEST(TrackerOutput, ConfirmedTrackIsRemovedAfterRemovalCountPlusOneMisses) {
    Instance instance(capacity(2));
    instance.process({detection(1, 0, 0)});
    for (int miss = 1; miss <= 5; ++miss) {
        EXPECT_EQ(instance.process({}).size(), miss <= 2 ? 1u : 0u);
        EXPECT_EQ(instance->track_count, 1);
    }
    instance.process({});
    EXPECT_EQ(instance->track_count, 0);
}

TEST(TrackerOutput, TentativeTracksAreNotReported) {
    Instance instance(capacity(4, 2));
    instance.process({detection(1, 0, 0)});
    const std::vector<TrackRow> output =
        instance.process({detection(1, 30, 0), detection(1, 0, 0)});
    EXPECT_EQ(ids(output), std::vector<int>{1});
    EXPECT_EQ(output[0][2], -2.0f);
}

TEST(TrackerOutput, AnyIdFromZeroOnIsConfirmed) {
    Instance instance(capacity(4));
    instance->tid = 0;
    EXPECT_EQ(ids(instance.process({detection(1, 0, 0)})), std::vector<int>{0});
}

TEST(TrackerOutput, FullOutputHasNoTerminator) {
    Instance instance(capacity(2));
    const std::vector<TrackRow> output =
        instance.process_raw({detection(1, 0, 0), detection(1, 30, 0), detection(1, 60, 0)});
    EXPECT_EQ(output[0][0], 1.0f);
    EXPECT_EQ(output[1][0], 2.0f);
    EXPECT_EQ(output[2], unwritten());
}

TEST(TrackerOutput, RowsBehindTheTerminatorStayUnwritten) {
    Instance instance(capacity(4));
    const std::vector<TrackRow> output = instance.process_raw({detection(1, 0, 0)});
    EXPECT_EQ(output[1], terminator());
    for (std::size_t row = 2; row < output.size(); ++row) {
        EXPECT_EQ(output[row], unwritten()) << "row " << row;
    }
}

TEST(TrackerOutput, EmptyInstanceWritesTheTerminatorAlone) {
    Instance instance;
    EXPECT_EQ(instance.process_raw({})[0], terminator());
}

TEST(TrackerOutput, TrackingAdvancesWithoutOutput) {
    Instance instance(capacity(2, 2));
    float input[2][6] = {{1, 0, 0, 4, 4, 0.5f}, {0, 0, 0, 0, 0, 0}};
    iv_tracker_process(static_cast<tracker_t*>(instance), input, nullptr);
    iv_tracker_process(static_cast<tracker_t*>(instance), input, nullptr);
    EXPECT_EQ(instance.track()->id, 1);
    EXPECT_EQ(instance.process({})[0][7], -1.0f);
}

TEST(TrackerOutput, RowsComeOldestFirst) {
    Instance instance(capacity(4));
    instance.process({detection(1, 30, 0)});
    instance.process({detection(1, 0, 0), detection(1, 30, 0)});
    EXPECT_EQ(ids(instance.process({detection(1, 60, 0), detection(1, 0, 0)})),
              (std::vector<int>{1, 2, 3}));
}

TEST(TrackerOutput, InstancesAreIndependent) {
    Instance first(capacity(2)), second(capacity(2));
    first.process({detection(1, 0, 0)});
    EXPECT_EQ(ids(second.process({detection(1, 50, 0)})), std::vector<int>{1});
    EXPECT_EQ(ids(first.process({})), std::vector<int>{1});
    EXPECT_EQ(first->tid, 2);
}

} // namespace
