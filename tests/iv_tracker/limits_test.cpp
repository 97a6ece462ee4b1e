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

TEST(TrackerLimits, MatchEndsAnyNumberOfMisses) {
    Confirmed instance;
    instance.set(&Settings::fcnt_removal, INT_MAX);
    instance.track()->miss_count = INT_MAX;
    instance.process({HERE});
    EXPECT_EQ(instance.track()->miss_count, 0);
}

} // namespace
