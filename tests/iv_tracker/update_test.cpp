// Starting, confirming, correcting, coasting and removing tracks.
#include <gtest/gtest.h>

#include <climits>
#include <cstring>

#include "iv_tracker/instance.h"
#include "support/allocations.h"
#include "support/matrix.h"

namespace {

using namespace iv::internal;
using test::Detection;
using test::detection;
using test::floats_of;
using test::ids;
using test::Instance;
using test::Settings;
using Floats = std::vector<float>;

Settings stable_after(int frames, int removal = 5) {
    Settings settings;
    settings.fcnt_stable = frames;
    settings.fcnt_removal = removal;
    return settings;
}

const Detection HERE = detection(1, 10, 20, 4, 8, 0.75f);
const Detection FAR = detection(1, 60, 20);

TEST(TrackerAdd, UnassociatedDetectionStartsATentativeTrack) {
    Instance instance(stable_after(3));
    instance.process({HERE});
    ASSERT_EQ(instance->track_count, 1);
    const trk_obj_t& track = *instance.track();
    EXPECT_EQ(track.id, -1);
    EXPECT_EQ(track.state, 0);
    EXPECT_EQ(track.c, 1);
    EXPECT_EQ(track.x, 10.0f);
    EXPECT_EQ(track.y, 20.0f);
    EXPECT_EQ(track.w, 4.0f);
    EXPECT_EQ(track.h, 8.0f);
    EXPECT_EQ(track.s, 0.75f);
    EXPECT_EQ(track.kalman, nullptr);
    EXPECT_EQ(track.obv, nullptr);
    EXPECT_EQ(track.match_idx, 0);
    EXPECT_EQ(track.match_count, 1);
    EXPECT_EQ(track.miss_count, 0);
    EXPECT_EQ(instance->match_obj[0], &track);
}

TEST(TrackerAdd, NewTrackHoldsItsDetectionBeforeTheUpdate) {
    Instance instance(stable_after(3));
    instance.match({FAR, HERE});
    tracker_add_objects(instance);
    ASSERT_EQ(instance->track_count, 2);
    const trk_obj_t& track = *instance.track(1);
    EXPECT_EQ(track.c, 1);
    EXPECT_EQ(track.x, 10.0f);
    EXPECT_EQ(track.y, 20.0f);
    EXPECT_EQ(track.w, 4.0f);
    EXPECT_EQ(track.h, 8.0f);
    EXPECT_EQ(track.s, 0.75f);
    EXPECT_EQ(track.px, 0.0f);
    EXPECT_EQ(track.match_idx, 1);
    EXPECT_EQ(track.match_count, 0);
    EXPECT_EQ(instance->match_obj[1], &track);
    tracker_update(instance);
    EXPECT_EQ(track.match_count, 1);
}

TEST(TrackerAdd, TracksAreInTheOrderOfTheirCreation) {
    Instance instance(stable_after(3));
    instance.process({detection(1, 30, 0), detection(1, 10, 0)});
    instance.process({detection(1, 50, 0), detection(1, 10, 0)});
    ASSERT_EQ(instance->track_count, 3);
    EXPECT_EQ(instance.track(0)->x, 30.0f);
    EXPECT_EQ(instance.track(1)->x, 10.0f);
    EXPECT_EQ(instance.track(2)->x, 50.0f);
}

TEST(TrackerAdd, DetectionsBeyondTheCapacityAreDropped) {
    Settings settings = stable_after(3);
    settings.nmaxobjs = 2;
    Instance instance(settings);
    instance.process({detection(1, 0, 0)});
    instance.process({detection(1, 30, 0), detection(1, 60, 0)});
    ASSERT_EQ(instance->track_count, 2);
    EXPECT_EQ(instance.track(1)->x, 30.0f);
    EXPECT_EQ(instance->match_obj[1], nullptr);
    instance.process({detection(1, 0, 0), detection(1, 90, 0)});
    EXPECT_EQ(instance->track_count, 2);
    EXPECT_EQ(instance.track(0)->miss_count, 0);
    EXPECT_EQ(instance.track(1)->miss_count, 1);
}

TEST(TrackerAdd, EmptyFrameMakesNoTrackAndCountsAMissForAll) {
    Instance instance(stable_after(1));
    instance.process({detection(1, 0, 0), detection(1, 30, 0)});
    instance.process({});
    EXPECT_EQ(instance->ncurobjs, 0);
    EXPECT_EQ(instance->track_count, 2);
    EXPECT_EQ(instance.track(0)->miss_count, 1);
    EXPECT_EQ(instance.track(1)->miss_count, 1);
}

TEST(TrackerUpdate, MatchTakesTheDetectionAndKeepsTheBoxBefore) {
    Settings settings = stable_after(9);
    settings.ignore_class = 1;
    Instance instance(settings);
    instance.process({HERE});
    instance.process({});
    instance.process({detection(7, 10.5f, 20.25f, 5, 10, 0.25f)});
    const trk_obj_t& track = *instance.track();
    EXPECT_EQ(track.px, 10.0f);
    EXPECT_EQ(track.py, 20.0f);
    EXPECT_EQ(track.pw, 4.0f);
    EXPECT_EQ(track.ph, 8.0f);
    EXPECT_EQ(track.c, 7);
    EXPECT_EQ(track.x, 10.5f);
    EXPECT_EQ(track.y, 20.25f);
    EXPECT_EQ(track.w, 5.0f);
    EXPECT_EQ(track.h, 10.0f);
    EXPECT_EQ(track.s, 0.25f);
    EXPECT_EQ(track.miss_count, 0);
    EXPECT_EQ(track.match_count, 2);
}

TEST(TrackerUpdate, NewTrackHasItsOwnBoxBefore) {
    Instance instance(stable_after(9));
    instance.process({HERE});
    const trk_obj_t& track = *instance.track();
    EXPECT_EQ(track.px, 10.0f);
    EXPECT_EQ(track.py, 20.0f);
    EXPECT_EQ(track.pw, 4.0f);
    EXPECT_EQ(track.ph, 8.0f);
}

TEST(TrackerConfirm, FirstMatchConfirmsWhenOneIsEnough) {
    Instance instance(stable_after(1));
    instance.process({HERE});
    const trk_obj_t& track = *instance.track();
    EXPECT_EQ(track.id, 1);
    EXPECT_EQ(instance->tid, 2);
    ASSERT_NE(track.kalman, nullptr);
    ASSERT_NE(track.obv, nullptr);
    EXPECT_EQ(floats_of(track.kalman->x_post), (Floats{10, 20, 10, 20, 4, 8, 4, 8}));
}

TEST(TrackerConfirm, ThirdMatchConfirmsWhenThreeAreAsked) {
    Instance instance(stable_after(3));
    EXPECT_TRUE(instance.process({HERE}).empty());
    EXPECT_TRUE(instance.process({HERE}).empty());
    EXPECT_EQ(instance->tid, 1);
    EXPECT_EQ(ids(instance.process({HERE})), std::vector<int>{1});
    EXPECT_EQ(instance.track()->match_count, 3);
}

TEST(TrackerConfirm, FilterStartsWithTheVelocityOfTheLatestMatch) {
    Instance instance(stable_after(2));
    instance.process({HERE});
    instance.process({detection(1, 10.5f, 20.25f, 5, 10)});
    EXPECT_EQ(floats_of(instance.track()->kalman->x_post),
              (Floats{10.5f, 20.25f, 10, 20, 5, 10, 4, 8}));
    EXPECT_EQ(instance.track()->x, 10.5f) << "not corrected in the frame of the confirmation";
}

TEST(TrackerConfirm, MissesBetweenMatchesDoNotStartAnew) {
    Instance instance(stable_after(3));
    instance.process({HERE});
    instance.process({HERE});
    for (int miss = 0; miss < 3; ++miss) {
        instance.process({});
    }
    EXPECT_EQ(ids(instance.process({HERE})), std::vector<int>{1});
}

TEST(TrackerConfirm, IdsFollowTheOrderOfTheTracks) {
    Instance instance(stable_after(2));
    instance.process({detection(1, 0, 0)});
    instance.process({detection(1, 30, 0)});
    instance.process({detection(1, 30, 0), detection(1, 0, 0), detection(1, 60, 0)});
    instance.process({detection(1, 60, 0)});
    EXPECT_EQ(instance.track(0)->id, 1);
    EXPECT_EQ(instance.track(1)->id, 2);
    EXPECT_EQ(instance.track(2)->id, 3);
}

TEST(TrackerConfirm, IdAfterTheHighestIsOne) {
    Instance instance(stable_after(1));
    instance->tid = 1048573;
    EXPECT_EQ(ids(instance.process({detection(1, 0, 0), detection(1, 30, 0), detection(1, 60, 0)})),
              (std::vector<int>{1048573, 1048574, 1}));
    EXPECT_EQ(instance->tid, 2);
}

TEST(TrackerConfirm, HighestIdLeavesOneForTheNext) {
    Instance instance(stable_after(1));
    instance->tid = 1048574;
    instance.process({HERE});
    EXPECT_EQ(instance->tid, 1);
}

// Of a state at rest with unit covariance the gain is 5.1 / 6.1 in the position.
TEST(TrackerCorrect, BoxBecomesThePosteriorState) {
    Instance instance(stable_after(1));
    instance.process({detection(1, 10, 20, 4, 8, 0.75f)});
    instance.process({detection(1, 10.5f, 19.5f, 5, 6, 0.25f)});
    const trk_obj_t& track = *instance.track();
    const float gain = 5.1f / 6.1f;
    EXPECT_NEAR(track.x, 10 + 0.5f * gain, 1e-4f);
    EXPECT_NEAR(track.y, 20 - 0.5f * gain, 1e-4f);
    EXPECT_NEAR(track.w, 4 + gain, 1e-4f);
    EXPECT_NEAR(track.h, 8 - 2 * gain, 1e-4f);
    EXPECT_EQ(track.px, 10.0f);
    EXPECT_EQ(track.py, 20.0f);
    EXPECT_EQ(track.pw, 4.0f);
    EXPECT_EQ(track.ph, 8.0f);
    EXPECT_EQ(track.s, 0.25f);
    EXPECT_EQ(track.id, 1);
    EXPECT_EQ(track.match_count, 2);
    const Floats state = floats_of(track.kalman->x_post);
    EXPECT_EQ(track.x, state[0]);
    EXPECT_EQ(track.y, state[1]);
    EXPECT_EQ(track.w, state[4]);
    EXPECT_EQ(track.h, state[5]);
}

TEST(TrackerCorrect, MeasurementIsTheBoxOfTheDetection) {
    Instance instance(stable_after(1));
    instance.process({HERE});
    instance.process({detection(1, 10.5f, 19.5f, 5, 6)});
    EXPECT_EQ(floats_of(instance.track()->obv), (Floats{10.5f, 19.5f, 5, 6}));
}

TEST(TrackerCorrect, BoxBeforeIsTheCorrectedOne) {
    Instance instance(stable_after(1));
    instance.process({HERE});
    instance.process({detection(1, 10.5f, 19.5f, 5, 6)});
    const float corrected = instance.track()->x;
    instance.process({detection(1, 11, 19, 5, 6)});
    EXPECT_EQ(instance.track()->px, corrected);
}

TEST(TrackerCorrect, StandingTrackStaysWhereItIs) {
    Instance instance(stable_after(1));
    for (int frame = 0; frame < 50; ++frame) {
        const std::vector<test::TrackRow> rows = instance.process({HERE});
        ASSERT_EQ(ids(rows), std::vector<int>{1});
        EXPECT_NEAR(rows[0][2], 8.0f, 1e-3f);
    }
    EXPECT_EQ(instance.track()->match_count, 50);
}

TEST(TrackerMiss, ConfirmedTrackKeepsBoxClassScoreAndFilter) {
    Instance instance(stable_after(2));
    instance.process({HERE});
    instance.process({detection(1, 10.5f, 20, 4, 8, 0.25f)});
    trk_obj_t* track = instance.track();
    const Floats state = floats_of(track->kalman->x_post);
    instance.process({});
    instance.process({});
    EXPECT_EQ(track->x, 10.5f);
    EXPECT_EQ(track->px, 10.0f);
    EXPECT_EQ(track->c, 1);
    EXPECT_EQ(track->s, 0.25f);
    EXPECT_EQ(track->miss_count, 2);
    EXPECT_EQ(track->match_count, 2);
    EXPECT_EQ(floats_of(track->kalman->x_post), state);
}

TEST(TrackerMiss, ConfirmedTrackSurvivesRemovalCountMisses) {
    for (const int removal : {1, 2, 7, 12}) {
        Instance instance(stable_after(1, removal));
        instance.process({HERE});
        for (int miss = 1; miss <= removal; ++miss) {
            instance.process({});
            ASSERT_EQ(instance->track_count, 1) << "miss " << miss << " of " << removal;
            EXPECT_EQ(instance.track()->miss_count, miss);
            EXPECT_EQ(instance.track()->match_count, 1);
        }
        instance.process({});
        EXPECT_EQ(instance->track_count, 0) << removal;
        EXPECT_TRUE(instance.tracks().empty());
    }
}

TEST(TrackerMiss, TentativeTrackForgetsItsMatchesAtTheFourthAndFifthMiss) {
    Instance instance(stable_after(9, 10));
    instance.process({HERE});
    instance.process({HERE});
    for (int miss = 1; miss <= 5; ++miss) {
        instance.process({});
        ASSERT_EQ(instance->track_count, 1);
        EXPECT_EQ(instance.track()->miss_count, miss);
        EXPECT_EQ(instance.track()->match_count, miss <= 3 ? 2 : 0) << "miss " << miss;
    }
    instance.process({});
    EXPECT_EQ(instance->track_count, 0) << "removed at the sixth miss";
}

TEST(TrackerMiss, MatchesAreForgottenAtTheFifthMissToo) {
    Instance instance(stable_after(9, 10));
    instance.process({HERE});
    for (int miss = 1; miss <= 4; ++miss) {
        instance.process({});
    }
    instance.track()->match_count = 7;
    instance.process({});
    EXPECT_EQ(instance.track()->match_count, 0);
}

TEST(TrackerMiss, TentativeTrackCountsAnewAfterFourMisses) {
    Instance instance(stable_after(2, 10));
    instance.process({HERE});
    for (int miss = 1; miss <= 4; ++miss) {
        instance.process({});
    }
    instance.process({HERE});
    EXPECT_EQ(instance.track()->id, -1);
    instance.process({HERE});
    EXPECT_EQ(instance.track()->id, 1);
}

TEST(TrackerMiss, TentativeTrackSurvivesNoMoreThanRemovalCountMisses) {
    Instance instance(stable_after(9, 2));
    instance.process({HERE});
    instance.process({});
    instance.process({});
    EXPECT_EQ(instance->track_count, 1);
    instance.process({});
    EXPECT_EQ(instance->track_count, 0);
}

TEST(TrackerMiss, TentativeTrackWithinRemovalFourForgetsBeforeItGoes) {
    Instance instance(stable_after(9, 4));
    instance.process({HERE});
    for (int miss = 1; miss <= 4; ++miss) {
        instance.process({});
    }
    EXPECT_EQ(instance->track_count, 1);
    EXPECT_EQ(instance.track()->match_count, 0);
    instance.process({});
    EXPECT_EQ(instance->track_count, 0);
}

TEST(TrackerMiss, RemovalCountBelowOneRemovesAtTheFirstMiss) {
    for (const int removal : {0, -1, INT_MIN}) {
        for (const int stable : {1, 9}) {
            Instance instance(stable_after(stable));
            instance.process({HERE});
            instance.set(&Settings::fcnt_removal, removal);
            instance.process({});
            EXPECT_EQ(instance->track_count, 0) << removal;
        }
    }
}

TEST(TrackerMiss, RemovalKeepsTheOrderOfTheRest) {
    Instance instance(stable_after(1, 1));
    const Detection one = detection(1, 0, 0), two = detection(1, 30, 0);
    const Detection three = detection(1, 60, 0), four = detection(1, 90, 0);
    instance.process({one, two, three, four});
    instance.process({four, one});
    instance.process({four, one});
    EXPECT_EQ(instance->track_count, 2);
    ASSERT_EQ(instance.tracks().size(), 2u);
    EXPECT_EQ(instance.track(0)->id, 1);
    EXPECT_EQ(instance.track(1)->id, 4);
    EXPECT_EQ(instance->track_list.prev, &instance.track(1)->list);
    instance.process({two, four, one});
    EXPECT_EQ(instance.track(2)->id, 5) << "a new track has a new id";
}

TEST(TrackerMiss, RemovedTrackMakesRoom) {
    Settings settings = stable_after(1, 1);
    settings.nmaxobjs = 1;
    Instance instance(settings);
    instance.process({HERE});
    instance.process({detection(1, 50, 0)});
    EXPECT_EQ(instance.track()->x, 10.0f) << "no room yet";
    instance.process({detection(1, 50, 0)});
    EXPECT_EQ(instance->track_count, 0) << "room is made after detections were added";
    instance.process({detection(1, 50, 0)});
    EXPECT_EQ(instance.track()->x, 50.0f);
}

} // namespace
