// What a tracker allocates and frees, and what happens when it cannot.
#include <gtest/gtest.h>

#include "iv_tracker/instance.h"
#include "iv_tracker/search.h"
#include "support/allocations.h"
#include "support/matrix.h"

namespace {

using namespace iv::internal;
using test::Allocations;
using test::Detection;
using test::detection;
using test::floats_of;
using test::ids;
using test::Instance;
using test::Settings;
using Sizes = std::vector<std::size_t>;

const Detection HERE = detection(1, 10, 20);
const Detection NEAR = detection(1, 10.5f, 20);
const Detection FAR = detection(1, 50, 20);

constexpr std::size_t FILTER = sizeof(iv_kalman_t) + 10 * sizeof(iv_mat_t) + 4 * 308;
constexpr std::size_t OBSERVATION = sizeof(iv_mat_t) + 16;

Settings stable_after(int frames) {
    Settings settings;
    settings.fcnt_stable = frames;
    return settings;
}

TEST(TrackerAllocation, CreationTakesEightBlocks) {
    Allocations allocations;
    void* handle = iv_tracker_create(64, 48, 5, 1, 0.5f, 3, 5, 0);
    EXPECT_EQ(allocations.sizes(),
              (Sizes{sizeof(instance_t) + search_bytes(5), 5 * sizeof(det_obj_t),
                     5 * sizeof(trk_obj_t*), 5 * sizeof(float), sizeof(iv_mat_t) + 256,
                     sizeof(iv_mat_t) + 128, sizeof(iv_mat_t) + 256, sizeof(iv_mat_t) + 64}));
    EXPECT_EQ(allocations.made(), 8);
    iv_tracker_release(handle);
    EXPECT_EQ(allocations.freed(), 4);
}

TEST(TrackerAllocation, SteadyFrameTakesNothing) {
    Instance instance(stable_after(1));
    instance.process({HERE});
    for (const std::vector<Detection>& frame :
         {std::vector<Detection>{HERE}, std::vector<Detection>{}, std::vector<Detection>{NEAR}}) {
        Allocations allocations;
        instance.process(frame);
        EXPECT_TRUE(allocations.sizes().empty());
        EXPECT_EQ(allocations.freed(), 0);
    }
}

TEST(TrackerAllocation, NewTrackTakesOneBlock) {
    Instance instance(stable_after(3));
    Allocations allocations;
    instance.process({HERE});
    EXPECT_EQ(allocations.sizes(), Sizes{sizeof(trk_obj_t)});
    instance.process({HERE, FAR});
    EXPECT_EQ(allocations.sizes(), (Sizes{sizeof(trk_obj_t), sizeof(trk_obj_t)}));
    EXPECT_EQ(allocations.freed(), 0);
}

TEST(TrackerAllocation, ConfirmationTakesTwoBlocks) {
    Instance instance(stable_after(2));
    instance.process({HERE});
    Allocations allocations;
    instance.process({HERE});
    EXPECT_EQ(allocations.sizes(), (Sizes{FILTER, OBSERVATION}));
    EXPECT_EQ(allocations.freed(), 0);
}

TEST(TrackerAllocation, FirstFrameConfirmationTakesThreeBlocks) {
    Instance instance(stable_after(1));
    Allocations allocations;
    instance.process({HERE});
    EXPECT_EQ(allocations.sizes(), (Sizes{sizeof(trk_obj_t), FILTER, OBSERVATION}));
}

TEST(TrackerAllocation, RemovalOfATentativeTrackFreesItsRecord) {
    Instance instance(stable_after(9));
    instance.process({HERE});
    trk_obj_t* track = instance.track();
    instance.set(&Settings::fcnt_removal, 0);
    Allocations allocations;
    instance.process({});
    EXPECT_EQ(allocations.freed_blocks(), std::vector<void*>{track});
}

TEST(TrackerAllocation, RemovalOfATentativeTrackAtItsSixthMissFreesItsRecord) {
    Settings settings = stable_after(9);
    settings.fcnt_removal = 50;
    Instance instance(settings);
    instance.process({HERE});
    trk_obj_t* track = instance.track();
    Allocations allocations;
    for (int miss = 1; miss <= 5; ++miss) {
        instance.process({});
        EXPECT_EQ(allocations.freed(), 0);
    }
    instance.process({});
    EXPECT_EQ(allocations.freed_blocks(), std::vector<void*>{track});
}

TEST(TrackerAllocation, RemovalOfAConfirmedTrackFreesFilterMeasurementAndRecord) {
    Instance instance(stable_after(1));
    instance.process({HERE});
    trk_obj_t* track = instance.track();
    const std::vector<void*> expected{track->kalman, track->obv, track};
    instance.set(&Settings::fcnt_removal, 0);
    Allocations allocations;
    instance.process({});
    EXPECT_EQ(allocations.freed_blocks(), expected);
    EXPECT_TRUE(allocations.sizes().empty());
}

TEST(TrackerAllocation, FailedTrackSkipsTheDetection) {
    Instance instance(stable_after(1));
    Allocations allocations;
    allocations.fail_nth(1);
    const std::vector<test::TrackRow> output = instance.process({HERE, FAR});
    EXPECT_EQ(ids(output), std::vector<int>{1});
    EXPECT_EQ(output[0][7], 1.0f);
    EXPECT_EQ(instance->track_count, 1);
    EXPECT_EQ(instance->match_obj[0], nullptr);
    EXPECT_EQ(ids(instance.process({HERE, FAR})), (std::vector<int>{1, 2}));
}

/// Compares the track with one that nothing but a raw match has happened to.
void expect_unconfirmed(const Instance& instance, int match_count) {
    ASSERT_EQ(instance->track_count, 1);
    const trk_obj_t& track = *instance.track();
    EXPECT_EQ(track.id, -1);
    EXPECT_EQ(track.kalman, nullptr);
    EXPECT_EQ(track.obv, nullptr);
    EXPECT_EQ(track.match_count, match_count);
    EXPECT_EQ(track.miss_count, 0);
    EXPECT_EQ(track.x, 10.5f);
    EXPECT_EQ(instance->tid, 1);
}

TEST(TrackerAllocation, FailedConfirmationIsMadeUpAtTheNextMatch) {
    for (const int failing : {1, 2}) {
        Instance instance(stable_after(2));
        instance.process({HERE});
        {
            Allocations allocations;
            allocations.fail_nth(failing);
            EXPECT_TRUE(instance.process({NEAR}).empty());
            EXPECT_EQ(allocations.freed(), allocations.made());
        }
        expect_unconfirmed(instance, 1);
        EXPECT_EQ(instance.track()->px, 10.0f);
        EXPECT_EQ(ids(instance.process({NEAR})), std::vector<int>{1});
        EXPECT_EQ(instance.track()->match_count, 2);
        EXPECT_EQ(instance->tid, 2);
        EXPECT_EQ(floats_of(instance.track()->kalman->x_post)[2], 10.5f);
    }
}

TEST(TrackerAllocation, FailedConfirmationInTheFirstFrameIsMadeUpInTheSecond) {
    for (const int failing : {2, 3}) {
        Instance instance(stable_after(1));
        {
            Allocations allocations;
            allocations.fail_nth(failing);
            EXPECT_TRUE(instance.process({NEAR}).empty());
            EXPECT_EQ(allocations.made() - allocations.freed(), 1) << "the track";
        }
        expect_unconfirmed(instance, 0);
        EXPECT_EQ(ids(instance.process({NEAR})), std::vector<int>{1});
        EXPECT_EQ(instance.track()->match_count, 1);
    }
}

TEST(TrackerAllocation, FailedConfirmationBeyondTheStableCountIsMadeUpToo) {
    for (const int failing : {1, 2}) {
        Instance instance(stable_after(9));
        instance.process({HERE});
        instance.process({HERE});
        instance.set(&Settings::fcnt_stable, 1);
        {
            Allocations allocations;
            allocations.fail_nth(failing);
            EXPECT_TRUE(instance.process({NEAR}).empty());
            EXPECT_EQ(allocations.freed(), allocations.made());
        }
        expect_unconfirmed(instance, 2);
        EXPECT_EQ(ids(instance.process({NEAR})), std::vector<int>{1});
        EXPECT_EQ(instance.track()->match_count, 3);
    }
}

TEST(TrackerAllocation, FailedSecondConfirmationKeepsIdAndFilter) {
    for (const int failing : {1, 2}) {
        Instance instance(stable_after(1));
        instance.process({HERE});
        iv_kalman_t* filter = instance.track()->kalman;
        iv_mat_t* obv = instance.track()->obv;
        instance.set(&Settings::fcnt_stable, 2);
        {
            Allocations allocations;
            allocations.fail_nth(failing);
            EXPECT_EQ(ids(instance.process({NEAR})), std::vector<int>{1});
            EXPECT_EQ(allocations.freed(), allocations.made());
        }
        EXPECT_EQ(instance.track()->kalman, filter);
        EXPECT_EQ(instance.track()->obv, obv);
        EXPECT_EQ(instance.track()->match_count, 1);
        EXPECT_EQ(instance.track()->x, 10.5f) << "the match itself counts";
        EXPECT_EQ(instance->tid, 2);
        EXPECT_EQ(ids(instance.process({NEAR})), std::vector<int>{2});
        EXPECT_EQ(instance.track()->match_count, 2);
        EXPECT_NE(instance.track()->kalman, filter);
        iv_kalman_release(filter);
        iv_mat_release(obv);
    }
}

TEST(TrackerAllocation, FailedConfirmationOfOneTrackLeavesOthersAlone) {
    Instance instance(stable_after(2));
    instance.process({HERE, FAR});
    Allocations allocations;
    allocations.fail_nth(1);
    const std::vector<test::TrackRow> output = instance.process({HERE, FAR});
    EXPECT_EQ(ids(output), std::vector<int>{1}) << "the id goes to the next track";
    EXPECT_EQ(output[0][7], 1.0f);
    EXPECT_EQ(ids(instance.process({HERE, FAR})), (std::vector<int>{2, 1}));
}

} // namespace
