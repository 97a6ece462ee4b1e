// Prediction and association: which detection takes which track.
#include <gtest/gtest.h>

#include <cmath>

#include "iv_tracker/instance.h"
#include "support/matrix.h"

namespace {

using namespace iv::internal;
using test::Detection;
using test::detection;
using test::Instance;
using test::NOT_A_NUMBER;
using test::Settings;

constexpr float FORCE_OVERLAP = -1.0f;

/// Settings under which tracks stay tentative and are predicted where they were last seen.
Settings tentative() {
    Settings settings;
    settings.fcnt_stable = 1000;
    settings.fcnt_removal = 1000;
    return settings;
}

/// An instance of tentative tracks at the given detections.
class Scene : public Instance {
  public:
    explicit Scene(const std::vector<Detection>& first_frame, Settings settings = tentative())
        : Instance(settings) {
        set(&Settings::iou_thresh, 1.0f);
        process(first_frame);
        set(&Settings::iou_thresh, settings.iou_thresh);
        EXPECT_EQ((*this)->track_count, static_cast<int>(first_frame.size()));
    }

    /// The index of the track that detection n holds, or -1.
    int held_by(int n) const {
        const std::vector<trk_obj_t*> all = tracks();
        for (std::size_t i = 0; i < all.size(); ++i) {
            if ((*this)->match_obj[n] == all[i]) {
                EXPECT_EQ(all[i]->match_idx, n);
                return static_cast<int>(i);
            }
        }
        EXPECT_EQ((*this)->match_obj[n], nullptr);
        return -1;
    }

    float score(int n) const { return (*this)->match_score[n]; }
};

constexpr int NONE = -1;

TEST(TrackerMatch, NearDetectionTakesTheTrack) {
    Scene scene({detection(1, 5, 5)});
    scene.match({detection(1, 5.5f, 4.5f)});
    EXPECT_EQ(scene.held_by(0), 0);
    EXPECT_EQ(scene.score(0), 0.5f);
}

TEST(TrackerMatch, WithoutCandidateTheScoreIsOneHundred) {
    Scene scene({detection(1, 0, 0)});
    scene.match({detection(1, 50, 0)});
    EXPECT_EQ(scene.held_by(0), NONE);
    EXPECT_EQ(scene.score(0), 100.0f);
    EXPECT_EQ(scene.track()->match_idx, -1);
}

TEST(TrackerMatch, WithoutTracksNothingIsHeld) {
    Scene scene({});
    scene.match({detection(1, 0, 0)});
    EXPECT_EQ(scene.held_by(0), NONE);
    EXPECT_EQ(scene.score(0), 100.0f);
}

// Boxes are so wide that every overlap passes: only the distance can refuse.
TEST(TrackerMatch, SquaredDistanceOfOneHundredIsNoCandidate) {
    Scene scene({detection(1, 0, 0, 1000, 1000)});
    struct Centre {
        float x, y;
    };
    for (const Centre& far : {Centre{10, 0}, Centre{0, -10}, Centre{6, 8}, Centre{-8, 6}}) {
        scene.match({detection(1, far.x, far.y, 1000, 1000)});
        EXPECT_EQ(scene.held_by(0), NONE) << far.x << ", " << far.y;
        EXPECT_EQ(scene.score(0), 100.0f);
    }
    for (const Centre& near : {Centre{9.9375f, 0}, Centre{0, -9.9375f}, Centre{6, 7.9375f}}) {
        scene.match({detection(1, near.x, near.y, 1000, 1000)});
        EXPECT_EQ(scene.held_by(0), 0) << near.x << ", " << near.y;
    }
}

TEST(TrackerMatch, CeilingStandsHoweverLowTheThresholds) {
    Settings settings = tentative();
    Scene scene({detection(1, 0, 0, 1000, 1000)}, settings);
    scene.set(&Settings::euc_thresh, 1e9f);
    scene.set(&Settings::iou_thresh, -1e9f);
    scene.match({detection(1, 10, 0, 1000, 1000)});
    EXPECT_EQ(scene.held_by(0), NONE);
}

TEST(TrackerMatch, NearestTrackIsTheCandidate) {
    Scene scene({detection(1, 0, 0), detection(1, 3, 0), detection(1, 2, 0)});
    scene.match({detection(1, 2.25f, 0)});
    EXPECT_EQ(scene.held_by(0), 2);
    EXPECT_EQ(scene.score(0), 0.0625f);
}

TEST(TrackerMatch, OfEquallyNearTracksTheOldestWins) {
    Scene scene({detection(1, 1, 0), detection(1, -1, 0), detection(1, 0, 1)});
    scene.match({detection(1, 0, 0)});
    EXPECT_EQ(scene.held_by(0), 0);
}

TEST(TrackerMatch, OfEquallyNearDetectionsTheFirstWins) {
    Scene scene({detection(1, 0, 0)});
    scene.match({detection(1, 1, 0), detection(1, -1, 0)});
    EXPECT_EQ(scene.held_by(0), 0);
    EXPECT_EQ(scene.held_by(1), NONE);
    EXPECT_EQ(scene.score(0), 1.0f);
    EXPECT_EQ(scene.score(1), 0.0f);
    scene.process({detection(1, 1, 0), detection(1, -1, 0)});
    EXPECT_EQ(scene.track()->x, 1.0f);
    EXPECT_EQ(scene->track_count, 2) << "the later one starts a track";
    EXPECT_EQ(scene.track(1)->x, -1.0f);
}

TEST(TrackerMatch, LaterStrictlyNearerDetectionTakesTheTrackOver) {
    Scene scene({detection(1, 0, 0)});
    scene.match({detection(1, 1, 0), detection(1, 0.5f, 0)});
    EXPECT_EQ(scene.held_by(0), NONE);
    EXPECT_EQ(scene.held_by(1), 0);
    EXPECT_EQ(scene.score(0), 0.0f);
    EXPECT_EQ(scene.score(1), 0.25f);
    scene.process({detection(1, 1, 0), detection(1, 0.5f, 0)});
    EXPECT_EQ(scene.track()->x, 0.5f);
    EXPECT_EQ(scene->track_count, 2) << "the earlier one starts a track";
    EXPECT_EQ(scene.track(1)->x, 1.0f);
}

TEST(TrackerMatch, DetectionThatLosesItsTrackIsDroppedWithoutRoom) {
    Settings settings = tentative();
    settings.nmaxobjs = 2;
    Scene scene({detection(1, 0, 0), detection(1, 50, 0)}, settings);
    scene.process({detection(1, 1, 0), detection(1, 0.5f, 0)});
    EXPECT_EQ(scene->track_count, 2);
    EXPECT_EQ(scene.track(0)->x, 0.5f);
    EXPECT_EQ(scene.track(1)->x, 50.0f);
    EXPECT_EQ(scene->match_obj[0], nullptr);
}

TEST(TrackerMatch, EachNearerDetectionTakesOverFromTheOneBefore) {
    Scene scene({detection(1, 0, 0)});
    scene.match({detection(1, 1, 0), detection(1, 0.5f, 0), detection(1, 0.75f, 0),
                 detection(1, 0.25f, 0)});
    EXPECT_EQ(scene.held_by(3), 0);
    EXPECT_EQ(scene.score(3), 0.0625f);
    for (const int loser : {0, 1, 2}) {
        EXPECT_EQ(scene.held_by(loser), NONE);
        EXPECT_EQ(scene.score(loser), 0.0f);
    }
}

TEST(TrackerMatch, LosingDetectionDoesNotTryAnotherTrack) {
    Scene scene({detection(1, 0, 0), detection(1, 2, 0)});
    scene.match({detection(1, 0.75f, 0), detection(1, 0, 0)});
    EXPECT_EQ(scene.held_by(0), NONE) << "though track 1 is near and free";
    EXPECT_EQ(scene.held_by(1), 0);
    EXPECT_EQ(scene.track(1)->match_idx, -1);
    scene.match({detection(1, 0, 0), detection(1, 0.75f, 0)});
    EXPECT_EQ(scene.held_by(0), 0);
    EXPECT_EQ(scene.held_by(1), NONE) << "refused by the holder, not offered to track 1";
    EXPECT_EQ(scene.track(1)->match_idx, -1);
}

TEST(TrackerMatch, RefusedDetectionDoesNotTryAnotherTrack) {
    Scene scene({detection(1, 0, 0, 1, 1), detection(1, 5, 0, 8, 8)});
    scene.match({detection(1, 2, 0, 4, 8)});
    EXPECT_EQ(scene.held_by(0), NONE) << "though a third of it and track 1 overlap";
    EXPECT_EQ(scene.score(0), 0.0f);
    EXPECT_EQ(scene.track(0)->match_idx, -1);
    EXPECT_EQ(scene.track(1)->match_idx, -1);
}

TEST(TrackerMatch, TakenOverTrackMustStillPassTheGate) {
    Scene scene({detection(1, 0, 0)});
    scene.set(&Settings::euc_thresh, FORCE_OVERLAP);
    scene.match({detection(1, 1, 0), detection(1, 0.5f, 0, 0, 0)});
    EXPECT_EQ(scene.held_by(0), 0);
    EXPECT_EQ(scene.held_by(1), NONE);
    EXPECT_EQ(scene.score(0), 1.0f);
    EXPECT_EQ(scene.score(1), 0.0f);
}

TEST(TrackerMatch, DistanceGateIncludesItsThreshold) {
    Scene scene({detection(1, 0, 0, 0.25f, 0.25f)});
    scene.match({detection(1, 1, 0, 0.25f, 0.25f)});
    EXPECT_EQ(scene.held_by(0), 0);
    scene.match({detection(1, 1.0625f, 0, 0.25f, 0.25f)});
    EXPECT_EQ(scene.held_by(0), NONE);
    EXPECT_EQ(scene.score(0), 0.0f);
    scene.set(&Settings::euc_thresh, 0.0f);
    scene.match({detection(1, 0, 0, 0, 0)});
    EXPECT_EQ(scene.held_by(0), 0);
}

// A detection within the distance gate counts as one that overlaps wholly.
TEST(TrackerMatch, DistanceGatePassesEveryOverlapThresholdBelowOne) {
    Scene scene({detection(1, 0, 0, 0.25f, 0.25f)});
    scene.set(&Settings::iou_thresh, 0.9999f);
    scene.match({detection(1, 1, 0, 0.25f, 0.25f)});
    EXPECT_EQ(scene.held_by(0), 0);
    scene.set(&Settings::iou_thresh, 1.0f);
    scene.match({detection(1, 1, 0, 0.25f, 0.25f)});
    EXPECT_EQ(scene.held_by(0), NONE);
}

TEST(TrackerMatch, BeyondTheDistanceGateTheBoxesMustOverlap) {
    Scene scene({detection(1, 0, 0, 8, 8)});
    scene.match({detection(1, 2, 0, 8, 8)});
    EXPECT_EQ(scene.held_by(0), 0) << "overlap 0.6";
    EXPECT_EQ(scene.score(0), 4.0f);
    scene.match({detection(1, 6, 0, 8, 8)});
    EXPECT_EQ(scene.held_by(0), NONE) << "overlap 1/7";
    scene.match({detection(1, 0, 6, 8, 8)});
    EXPECT_EQ(scene.held_by(0), NONE) << "overlap 1/7";
}

TEST(TrackerMatch, OverlapGateExcludesItsThreshold) {
    Scene scene({detection(1, 0, 0, 4, 4)});
    scene.set(&Settings::euc_thresh, FORCE_OVERLAP);
    scene.match({detection(1, 0, 0, 2, 2)});
    EXPECT_EQ(scene.held_by(0), NONE) << "overlap 0.25 is not above 0.25";
    scene.set(&Settings::iou_thresh, 0.2490234375f);
    scene.match({detection(1, 0, 0, 2, 2)});
    EXPECT_EQ(scene.held_by(0), 0);
}

TEST(TrackerMatch, NegativeDistanceGateAlwaysAsksForOverlap) {
    Scene scene({detection(1, 0, 0, 1, 1)});
    scene.match({detection(1, 0, 0, 4, 4)});
    EXPECT_EQ(scene.held_by(0), 0);
    scene.set(&Settings::euc_thresh, FORCE_OVERLAP);
    scene.match({detection(1, 0, 0, 4, 4)});
    EXPECT_EQ(scene.held_by(0), NONE);
    scene.set(&Settings::euc_thresh, NOT_A_NUMBER);
    scene.match({detection(1, 0, 0, 4, 4)});
    EXPECT_EQ(scene.held_by(0), NONE);
}

TEST(TrackerMatch, OverlapThresholdOfOneRefusesEverything) {
    Settings settings = tentative();
    settings.nmaxobjs = 3;
    settings.iou_thresh = 1.0f;
    Instance instance(settings);
    for (int frame = 1; frame <= 5; ++frame) {
        instance.process({detection(1, 0, 0)});
        EXPECT_EQ(instance->track_count, frame < 3 ? frame : 3);
    }
}

TEST(TrackerMatch, NegativeOverlapThresholdAcceptsBoxesApart) {
    Scene scene({detection(1, 0, 0, 1, 1)});
    scene.set(&Settings::iou_thresh, -0.5f);
    scene.match({detection(1, 9, 0, 1, 1)});
    EXPECT_EQ(scene.held_by(0), 0);
    EXPECT_EQ(scene.score(0), 81.0f);
}

TEST(TrackerMatch, NaNOverlapNeverPasses) {
    Scene scene({detection(1, 0, 0, 0, 0)});
    scene.set(&Settings::euc_thresh, FORCE_OVERLAP);
    scene.set(&Settings::iou_thresh, -0.5f);
    scene.match({detection(1, 0, 0, 0, 0)});
    EXPECT_EQ(scene.held_by(0), NONE);
    EXPECT_EQ(scene.score(0), 0.0f);
}

TEST(TrackerMatch, NaNPositionIsNoCandidate) {
    Scene scene({detection(1, 0, 0)});
    scene.match({Detection{1, NOT_A_NUMBER, 0, 4, 4, 1}});
    EXPECT_EQ(scene.held_by(0), NONE);
    EXPECT_EQ(scene.score(0), 100.0f);
}

TEST(TrackerMatch, OverlapIsThatOfThePredictedBox) {
    Scene scene({detection(1, 0, 0, 2, 8)});
    scene.match({detection(1, 0, 3, 2, 8)});
    EXPECT_EQ(scene.held_by(0), 0) << "overlap 10 of 22";
    scene.match({detection(1, 3, 0, 2, 8)});
    EXPECT_EQ(scene.held_by(0), NONE) << "apart";
}

TEST(TrackerMatch, ClassesMustAgree) {
    Scene scene({detection(1, 0, 0), detection(2, 2, 0)});
    scene.match({detection(2, 0.5f, 0, 6, 6)});
    EXPECT_EQ(scene.held_by(0), 1) << "the nearer track is of another class";
    EXPECT_EQ(scene.score(0), 2.25f);
    scene.match({detection(3, 0, 0)});
    EXPECT_EQ(scene.held_by(0), NONE);
    EXPECT_EQ(scene.score(0), 100.0f);
}

TEST(TrackerMatch, ClassesMayDifferWhenIgnored) {
    Scene scene({detection(1, 0, 0), detection(2, 2, 0)});
    for (const int ignore : {1, -1, 256}) {
        scene.set(&Settings::ignore_class, ignore);
        scene.match({detection(2, 0.5f, 0)});
        EXPECT_EQ(scene.held_by(0), 0);
    }
    scene.process({detection(2, 0.5f, 0)});
    EXPECT_EQ(scene.track(0)->c, 2) << "the track takes the class of the detection";
}

TEST(TrackerMatch, EveryFrameStartsWithoutMatches) {
    Scene scene({detection(1, 0, 0)});
    scene.match({detection(1, 0.5f, 0)});
    EXPECT_EQ(scene.track()->match_idx, 0);
    scene.match({detection(1, 50, 0), detection(1, 0.75f, 0)});
    EXPECT_EQ(scene.held_by(1), 0) << "nearer ones of an earlier frame do not count";
    scene.match({});
    EXPECT_EQ(scene.track()->match_idx, -1);
}

TEST(TrackerPredict, TentativeTrackIsExpectedWhereItIs) {
    Scene scene({detection(1, 3, 5, 4, 6)});
    scene.process({detection(1, 3.5f, 5.25f, 5, 7)});
    scene.match({});
    const trk_obj_t& track = *scene.track();
    EXPECT_EQ(track.pr_x, 3.5f);
    EXPECT_EQ(track.pr_y, 5.25f);
    EXPECT_EQ(track.pr_w, 5.0f);
    EXPECT_EQ(track.pr_h, 7.0f);
}

TEST(TrackerPredict, ConfirmedTrackIsExpectedAtConstantVelocity) {
    Settings settings;
    settings.fcnt_stable = 2;
    Instance instance(settings);
    instance.process({detection(1, 10, 20, 4, 8)});
    instance.process({detection(1, 10.5f, 19.75f, 5, 10)});
    instance.match({});
    const trk_obj_t& track = *instance.track();
    EXPECT_EQ(track.pr_x, 11.0f);
    EXPECT_EQ(track.pr_y, 19.5f);
    EXPECT_EQ(track.pr_w, 6.0f);
    EXPECT_EQ(track.pr_h, 12.0f);
}

TEST(TrackerPredict, PredictionStandsStillWhileCoasting) {
    Settings settings;
    settings.fcnt_stable = 2;
    Instance instance(settings);
    instance.process({detection(1, 10, 20)});
    instance.process({detection(1, 10.5f, 20)});
    for (int miss = 1; miss <= 4; ++miss) {
        instance.process({});
        EXPECT_EQ(instance.track()->pr_x, 11.0f) << "miss " << miss;
    }
    instance.process({detection(1, 11, 20, 0, 0)});
    EXPECT_EQ(instance.track()->miss_count, 0) << "found again where it was expected";
}

TEST(TrackerPredict, AssociationGoesByThePredictedBoxOfAConfirmedTrack) {
    Settings settings;
    settings.fcnt_stable = 2;
    Instance instance(settings);
    instance.process({detection(1, 10, 20, 1, 1)});
    instance.process({detection(1, 11, 20, 1, 1)});
    instance.match({detection(1, 12.5f, 20, 1, 1)});
    EXPECT_EQ(instance->match_score[0], 0.25f);
    EXPECT_EQ(instance.track()->match_idx, 0);
    instance.match({detection(1, 10.75f, 20, 1, 1)});
    EXPECT_EQ(instance.track()->match_idx, -1);
}

} // namespace
