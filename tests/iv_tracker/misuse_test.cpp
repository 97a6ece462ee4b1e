// Rows and settings that no sane host passes: what becomes of them, and of everything else.
#include <gtest/gtest.h>

#include <cmath>
#include <string>

#include "iv_tracker/instance.h"
#include "support/allocations.h"
#include "support/matrix.h"

namespace {

using namespace iv::internal;
using test::Detection;
using test::detection;
using test::ids;
using test::INFINITE;
using test::Instance;
using test::NOT_A_NUMBER;
using test::Settings;
using test::TrackRow;

constexpr float LARGEST = std::numeric_limits<float>::max();

Settings stable_after(int frames, int removal = 5) {
    Settings settings;
    settings.fcnt_stable = frames;
    settings.fcnt_removal = removal;
    return settings;
}

/// Two objects that move and grow.
std::vector<Detection> two_objects(int frame) {
    const auto t = static_cast<float>(frame);
    return {detection(1, 10 + 0.25f * t, 20, 4 + 0.125f * t, 6), detection(2, 50, 20 - 0.5f * t)};
}

/// Boxes whose centre is no number or out of reach.
std::vector<Detection> lost_boxes() {
    std::vector<Detection> boxes{{1, -INFINITE, 0, INFINITE, 8, 0.5f},
                                 {1, 0, INFINITE, 4, INFINITE, 0.5f},
                                 {1, LARGEST, 0, LARGEST, 8, 0.5f}};
    for (const std::size_t column : {1u, 2u, 3u, 4u}) {
        for (const float value : {NOT_A_NUMBER, -NOT_A_NUMBER, INFINITE, -INFINITE}) {
            boxes.push_back(detection(1, 10, 20));
            boxes.back()[column] = value;
        }
    }
    return boxes;
}

bool is_number(const TrackRow& row) {
    return std::isfinite(row[2]) && std::isfinite(row[3]) && std::isfinite(row[4]) &&
           std::isfinite(row[5]);
}

TEST(TrackerMisuse, NonFiniteBoxesLeaveEveryOtherTrackAlone) {
    for (const Detection& lost : lost_boxes()) {
        SCOPED_TRACE(testing::PrintToString(lost));
        Instance instance(stable_after(2)), twin(stable_after(2));
        for (int frame = 0; frame < 20; ++frame) {
            std::vector<Detection> rows = two_objects(frame);
            const std::vector<TrackRow> expected = twin.process(rows);
            if (frame % 5 == 3) {
                rows.push_back(lost);
            }
            EXPECT_EQ(instance.process(rows), expected) << "frame " << frame;
        }
    }
}

TEST(TrackerMisuse, TrackOfANonFiniteBoxIsNeverMatchedAgain) {
    for (const Detection& lost : lost_boxes()) {
        SCOPED_TRACE(testing::PrintToString(lost));
        Instance instance(stable_after(2));
        for (int frame = 1; frame <= 5; ++frame) {
            EXPECT_TRUE(instance.process({lost}).empty());
            EXPECT_EQ(instance->track_count, frame) << "each row starts a track of its own";
        }
    }
}

TEST(TrackerMisuse, TrackOfANonFiniteBoxGoesLikeAnyOtherThatIsNotSeenAgain) {
    for (const Detection& lost : lost_boxes()) {
        SCOPED_TRACE(testing::PrintToString(lost));
        Instance tentative(stable_after(2, 50));
        tentative.process({lost});
        Instance confirmed(stable_after(1, 7));
        EXPECT_EQ(ids(confirmed.process({lost})), std::vector<int>{1});
        for (int miss = 1; miss <= 8; ++miss) {
            tentative.process({});
            EXPECT_EQ(tentative->track_count, miss <= 5 ? 1 : 0) << "miss " << miss;
            EXPECT_EQ(confirmed.process({}).size(), miss <= 2 ? 1u : 0u) << "miss " << miss;
            EXPECT_EQ(confirmed->track_count, miss <= 7 ? 1 : 0) << "miss " << miss;
        }
    }
}

// The centre of a box from -LARGEST to LARGEST is zero, its width is infinite: the row is matched.
TEST(TrackerMisuse, InfiniteWidthSpoilsTheTrackThatTakesItAndNoOther) {
    const Detection object = detection(1, 0, 20), infinite{1, -LARGEST, 18, LARGEST, 22, 0.5f};
    const Detection other = detection(2, 50, 20);
    Instance instance(stable_after(1, 7)), twin(stable_after(1, 7));
    for (int frame = 0; frame < 4; ++frame) {
        instance.process({object, other});
        twin.process({object, other});
    }
    twin.process({object, other});
    std::vector<TrackRow> rows = instance.process({infinite, other});
    EXPECT_EQ(ids(rows), (std::vector<int>{1, 2}));
    EXPECT_EQ(rows[0][7], 0.0f);
    EXPECT_FALSE(is_number(rows[0]));
    for (int frame = 1; frame <= 9; ++frame) {
        SCOPED_TRACE("frame " + std::to_string(frame) + " behind the infinite width");
        rows = instance.process({object, other});
        // The object goes on as 3; its former track is reported for two frames, kept for seven.
        EXPECT_EQ(ids(rows), frame <= 2 ? (std::vector<int>{1, 2, 3}) : (std::vector<int>{2, 3}));
        EXPECT_EQ(rows[frame <= 2 ? 1 : 0], twin.process({object, other})[1]);
        EXPECT_TRUE(is_number(rows.back()));
        EXPECT_EQ(instance->track_count, frame <= 7 ? 3 : 2);
    }
}

TEST(TrackerMisuse, HugeWidthLeavesTheCentreAloneAndIsForgotten) {
    Instance instance(stable_after(1)), twin(stable_after(1));
    const Detection object = detection(1, 0, 20), huge{1, -1e30f, 18, 1e30f, 22, 0.5f};
    for (int frame = 0; frame < 200; ++frame) {
        twin.process({object});
        const std::vector<TrackRow> rows = instance.process({frame == 5 ? huge : object});
        ASSERT_EQ(ids(rows), std::vector<int>{1}) << frame;
        EXPECT_TRUE(is_number(rows[0])) << frame;
        EXPECT_EQ(instance.track()->x, twin.track()->x) << frame;
        EXPECT_EQ(instance.track()->h, twin.track()->h) << frame;
    }
    EXPECT_NEAR(instance.track()->w, 4.0f, 1e-3f);
}

TEST(TrackerMisuse, AreasBeyondTheLargestFloatNeverPassTheOverlapGate) {
    Settings settings;
    settings.iou_thresh = 0.0f;
    Instance instance(settings);
    instance.set(&Settings::euc_thresh, -1.0f);
    const Detection huge{1, -1e30f, -1e30f, 1e30f, 1e30f, 0.5f};
    instance.process({huge});
    instance.process({huge});
    EXPECT_EQ(instance->track_count, 2);
}

TEST(TrackerMisuse, BoxInsideOutIsFollowedByItsCentreAndComesBackInsideOut) {
    Instance instance;
    const Detection inside_out{1, 12, 23, 8, 17, 0.5f};
    for (int frame = 0; frame < 4; ++frame) {
        const std::vector<TrackRow> rows = instance.process({inside_out});
        ASSERT_EQ(ids(rows), std::vector<int>{1});
        EXPECT_NEAR(rows[0][2], 12.0f, 1e-4f);
        EXPECT_NEAR(rows[0][3], 23.0f, 1e-4f);
        EXPECT_NEAR(rows[0][4], 8.0f, 1e-4f);
        EXPECT_NEAR(rows[0][5], 17.0f, 1e-4f);
    }
}

TEST(TrackerMisuse, ScoreOfAnyValueComesBackBitForBit) {
    for (const float score : {NOT_A_NUMBER, -NOT_A_NUMBER, INFINITE, -LARGEST, -0.0f}) {
        Instance instance;
        Detection row = detection(1, 10, 20);
        row[5] = score;
        EXPECT_EQ(test::bits_of(instance.process({row})[0][6]), test::bits_of(score)) << score;
    }
}

TEST(TrackerMisuse, OverlapThresholdThatIsNoNumberRefusesEverything) {
    Instance instance;
    instance.process({detection(1, 10, 20)});
    instance.set(&Settings::iou_thresh, NOT_A_NUMBER);
    instance.process({detection(1, 10, 20)});
    EXPECT_EQ(instance->track_count, 2);
}

TEST(TrackerMisuse, CapacityOfZeroTracksNothingAndWritesNothing) {
    Settings settings;
    settings.nmaxobjs = 0;
    Instance instance(settings);
    const std::vector<TrackRow> output = instance.process_raw({detection(1, 10, 20)});
    EXPECT_EQ(output[0][0], test::UNWRITTEN);
    EXPECT_EQ(instance->ncurobjs, 0);
    EXPECT_EQ(instance->track_count, 0);
}

TEST(TrackerMisuse, NegativeCapacityGivesNoTracker) {
    for (const int capacity : {-1, -1000, std::numeric_limits<int>::min()}) {
        test::Allocations allocations;
        EXPECT_EQ(iv_tracker_create(64, 48, capacity, 1, 0.5f, 3, 5, 0), nullptr) << capacity;
        EXPECT_EQ(allocations.freed(), allocations.made());
    }
}

} // namespace
