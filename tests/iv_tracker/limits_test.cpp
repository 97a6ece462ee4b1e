// Tuning values that only a running instance can have, and counters at their limits.
#include <gtest/gtest.h>

#include <climits>

#include "iv_tracker/instance.h"
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

const Detection HERE = detection(1, 10, 20);
const Detection NEAR = detection(1, 10.5f, 20);

Settings stable_after(int frames) {
    Settings settings;
    settings.fcnt_stable = frames;
    return settings;
}

/// An instance with one track that is confirmed as 1.
class Confirmed : public Instance {
  public:
    Confirmed() : Instance(stable_after(1)) {
        process({HERE});
        EXPECT_EQ(track()->id, 1);
    }

    /// Whether the latest frame corrected the track: its box is then neither the detection's nor
    /// the one before.
    bool corrected() const { return track()->x > 10.0f && track()->x < 10.5f; }
};

TEST(TrackerLimits, StableCountBelowOneConfirmsInTheFirstFrame) {
    for (const int stable : {0, -1, INT_MIN}) {
        Instance instance(stable_after(5));
        instance.set(&Settings::fcnt_stable, stable);
        EXPECT_EQ(ids(instance.process({HERE})), std::vector<int>{1}) << stable;
        EXPECT_EQ(instance.track()->x, 10.0f);
        ASSERT_NE(instance.track()->kalman, nullptr);
        ASSERT_NE(instance.track()->obv, nullptr);
        EXPECT_EQ(instance->tid, 2);
        instance.process({NEAR});
        EXPECT_EQ(instance.track()->id, 1) << "corrected from then on";
        EXPECT_LT(instance.track()->x, 10.5f);
    }
}

TEST(TrackerLimits, LoweredStableCountConfirmsAtTheNextMatch) {
    Instance instance(stable_after(9));
    instance.process({HERE});
    instance.process({HERE});
    instance.process({HERE});
    instance.set(&Settings::fcnt_stable, 2);
    EXPECT_TRUE(instance.process({}).empty()) << "not by a miss";
    EXPECT_EQ(ids(instance.process({NEAR})), std::vector<int>{1});
    EXPECT_EQ(instance.track()->match_count, 4);
    EXPECT_EQ(instance.track()->x, 10.5f) << "confirmed, not corrected";
    EXPECT_EQ(floats_of(instance.track()->kalman->x_post)[2], 10.0f);
    EXPECT_EQ(ids(instance.process({NEAR})), std::vector<int>{1});
    EXPECT_EQ(instance->tid, 2);
}

TEST(TrackerLimits, LoweredStableCountGoesOnCorrectingConfirmedTracks) {
    Instance instance(stable_after(2));
    instance.process({HERE});
    instance.process({HERE});
    instance.set(&Settings::fcnt_stable, 1);
    instance.process({NEAR});
    EXPECT_EQ(instance.track()->id, 1);
    EXPECT_LT(instance.track()->x, 10.5f);
}

TEST(TrackerLimits, RaisedStableCountConfirmsASecondTime) {
    Confirmed instance;
    iv_kalman_t* old_filter = instance.track()->kalman;
    iv_mat_t* old_obv = instance.track()->obv;
    instance.set(&Settings::fcnt_stable, 3);
    EXPECT_EQ(ids(instance.process({NEAR})), std::vector<int>{1}) << "reported as before";
    EXPECT_EQ(instance.track()->x, 10.5f) << "but not corrected";
    EXPECT_EQ(instance.track()->kalman, old_filter);
    {
        Allocations allocations;
        instance.match({NEAR});
        tracker_update(instance);
        EXPECT_EQ(allocations.made(), 2);
        EXPECT_EQ(allocations.freed(), 0) << "the old filter stays allocated";
    }
    EXPECT_EQ(instance.track()->id, 2);
    EXPECT_EQ(instance->tid, 3);
    EXPECT_NE(instance.track()->kalman, old_filter);
    EXPECT_NE(instance.track()->obv, old_obv);
    instance.process({HERE});
    EXPECT_EQ(instance.track()->id, 2);
    EXPECT_GT(instance.track()->x, 10.0f) << "corrected again";
    iv_kalman_release(old_filter);
    iv_mat_release(old_obv);
}

TEST(TrackerLimits, MatchCountStaysAtItsLimitAndIsBeyondEveryStableCount) {
    Confirmed instance;
    instance.set(&Settings::fcnt_stable, INT_MAX);
    instance.track()->match_count = INT_MAX;
    Allocations allocations;
    instance.match({NEAR});
    tracker_update(instance);
    EXPECT_EQ(allocations.made(), 0);
    EXPECT_EQ(instance.track()->match_count, INT_MAX);
    EXPECT_EQ(instance.track()->id, 1);
    EXPECT_TRUE(instance.corrected());
}

TEST(TrackerLimits, MatchCountReachingItsLimitStillConfirms) {
    Instance instance(stable_after(INT_MAX));
    instance.process({HERE});
    instance.track()->match_count = INT_MAX - 2;
    EXPECT_TRUE(instance.process({HERE}).empty());
    EXPECT_EQ(ids(instance.process({HERE})), std::vector<int>{1});
    EXPECT_EQ(instance.track()->match_count, INT_MAX);
    instance.process({NEAR});
    EXPECT_EQ(instance.track()->id, 1) << "once";
    EXPECT_EQ(instance->tid, 2);
}

TEST(TrackerLimits, MatchCountAtItsLimitWithoutAFilterConfirms) {
    Instance instance(stable_after(INT_MAX));
    instance.process({HERE});
    instance.track()->match_count = INT_MAX;
    EXPECT_EQ(ids(instance.process({HERE})), std::vector<int>{1});
    EXPECT_EQ(instance.track()->match_count, INT_MAX);
}

TEST(TrackerLimits, MissCountBeyondItsLimitExceedsEveryRemovalCount) {
    Confirmed instance;
    instance.set(&Settings::fcnt_removal, INT_MAX);
    instance.track()->miss_count = INT_MAX - 1;
    instance.process({});
    ASSERT_EQ(instance->track_count, 1);
    EXPECT_EQ(instance.track()->miss_count, INT_MAX);
    instance.process({});
    EXPECT_EQ(instance->track_count, 0);
}

// What a host sees of a track does not tell how long it has lived.
TEST(TrackerLimits, TrackMatchedMoreOftenThanCanBeCountedIsReportedLikeAnyOther) {
    for (const int stable : {1, 3, INT_MAX}) {
        Instance young(stable_after(1)), old(stable_after(1));
        for (Instance* instance : {&young, &old}) {
            instance->process({HERE});
            instance->process({HERE});
        }
        young.track()->match_count = 1000;
        old.set(&Settings::fcnt_stable, stable);
        old.track()->match_count = stable < INT_MAX ? INT_MAX - 4 : INT_MAX;
        for (int frame = 0; frame < 12; ++frame) {
            const auto x = 10.0f + 0.25f * static_cast<float>(frame);
            const std::vector<Detection> rows{detection(1, x, 20, 4 + x)};
            const bool seen = frame % 5 != 4;
            const std::vector<test::TrackRow> expected =
                young.process(seen ? rows : std::vector<Detection>{});
            EXPECT_EQ(old.process(seen ? rows : std::vector<Detection>{}), expected) << frame;
            EXPECT_EQ(ids(expected), std::vector<int>{1});
        }
        EXPECT_EQ(old.track()->match_count, INT_MAX);
        EXPECT_EQ(old->tid, 2);
    }
}

TEST(TrackerLimits, TrackMissedMoreOftenThanCanBeCountedGoesOrComesBackLikeAnyOther) {
    for (const int misses : {4, INT_MAX - 2, INT_MAX - 1, INT_MAX}) {
        Confirmed instance;
        instance.set(&Settings::fcnt_removal, INT_MAX);
        instance.track()->miss_count = misses;
        const std::vector<test::TrackRow> rows = instance.process({NEAR});
        EXPECT_EQ(ids(rows), std::vector<int>{1}) << misses;
        EXPECT_TRUE(instance.corrected()) << misses;
        instance.track()->miss_count = misses;
        instance.set(&Settings::fcnt_removal, misses);
        EXPECT_TRUE(instance.process({}).empty()) << misses;
        EXPECT_EQ(instance->track_count, 0) << misses;
    }
}

TEST(TrackerLimits, IdsAfterTheHighestStartAgainWhateverIsAlive) {
    Instance instance(stable_after(1));
    instance.process({HERE, detection(1, 40, 20)});
    instance->tid = MAX_TRACK_ID;
    const std::vector<Detection> rows{HERE, detection(1, 40, 20), detection(1, 70, 20),
                                      detection(1, 100, 20), detection(1, 130, 20)};
    EXPECT_EQ(ids(instance.process(rows)), (std::vector<int>{1, 2, MAX_TRACK_ID, 1, 2}));
    EXPECT_EQ(ids(instance.process(rows)), (std::vector<int>{1, 2, MAX_TRACK_ID, 1, 2}));
    EXPECT_EQ(instance->tid, 3);
}

TEST(TrackerLimits, SecondConfirmationStartsIdsAgainToo) {
    Confirmed instance;
    iv_kalman_t* old_filter = instance.track()->kalman;
    iv_mat_t* old_obv = instance.track()->obv;
    instance->tid = MAX_TRACK_ID;
    instance.set(&Settings::fcnt_stable, 2);
    EXPECT_EQ(ids(instance.process({HERE, detection(2, 50, 20)})), std::vector<int>{MAX_TRACK_ID});
    EXPECT_EQ(ids(instance.process({HERE, detection(2, 50, 20)})),
              (std::vector<int>{MAX_TRACK_ID, 1}));
    iv_kalman_release(old_filter);
    iv_mat_release(old_obv);
}

TEST(TrackerLimits, RefusedConfirmationKeepsTheHighestIdForTheNextMatch) {
    Instance instance(stable_after(1));
    instance->tid = MAX_TRACK_ID;
    {
        Allocations allocations;
        allocations.fail_nth(2);
        EXPECT_TRUE(instance.process({HERE}).empty());
    }
    EXPECT_EQ(ids(instance.process({HERE, detection(2, 50, 20)})),
              (std::vector<int>{MAX_TRACK_ID, 1}));
}

TEST(TrackerLimits, MatchEndsAnyNumberOfMisses) {
    Confirmed instance;
    instance.set(&Settings::fcnt_removal, INT_MAX);
    instance.track()->miss_count = INT_MAX;
    instance.process({HERE});
    EXPECT_EQ(instance.track()->miss_count, 0);
}

} // namespace
