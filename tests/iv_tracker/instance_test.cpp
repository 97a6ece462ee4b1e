// The instance: creation, tuning, release, and the helpers that make tracks and filters.
#include "iv_tracker/instance.h"

#include <gtest/gtest.h>

#include <array>
#include <cstddef>
#include <cstdlib>
#include <cstring>

#include "support/allocations.h"
#include "support/matrix.h"

namespace {

using namespace iv::internal;
using test::Allocations;
using test::bits_of;
using test::detection;
using test::floats_of;
using test::INFINITE;
using test::Instance;
using test::NOT_A_NUMBER;
using test::Settings;
using Floats = std::vector<float>;

/// All bytes of a track, padding included.
std::array<unsigned char, sizeof(trk_obj_t)> bytes_of(const trk_obj_t* track) {
    std::array<unsigned char, sizeof(trk_obj_t)> bytes;
    std::memcpy(bytes.data(), track, bytes.size());
    return bytes;
}

TEST(TrackerRecords, InstanceFieldsAreInTheirOrder) {
    const std::size_t offsets[] = {offsetof(tracker_t, track_list),
                                   offsetof(tracker_t, track_count),
                                   offsetof(tracker_t, tid),
                                   offsetof(tracker_t, nmaxobjs),
                                   offsetof(tracker_t, ncurobjs),
                                   offsetof(tracker_t, im_w),
                                   offsetof(tracker_t, im_h),
                                   offsetof(tracker_t, euc_thresh),
                                   offsetof(tracker_t, iou_thresh),
                                   offsetof(tracker_t, fcnt_stable),
                                   offsetof(tracker_t, fcnt_removal),
                                   offsetof(tracker_t, ignore_class),
                                   offsetof(tracker_t, A),
                                   offsetof(tracker_t, H),
                                   offsetof(tracker_t, Q),
                                   offsetof(tracker_t, R),
                                   offsetof(tracker_t, cur_obj),
                                   offsetof(tracker_t, match_obj),
                                   offsetof(tracker_t, match_score),
                                   sizeof(tracker_t)};
    EXPECT_EQ(offsets[0], 0u);
    for (std::size_t i = 1; i < std::size(offsets); ++i) {
        EXPECT_LT(offsets[i - 1], offsets[i]) << "field " << i;
    }
}

TEST(TrackerRecords, TrackFieldsAreInTheirOrder) {
    const std::size_t offsets[] = {offsetof(trk_obj_t, list),
                                   offsetof(trk_obj_t, state),
                                   offsetof(trk_obj_t, id),
                                   offsetof(trk_obj_t, c),
                                   offsetof(trk_obj_t, x),
                                   offsetof(trk_obj_t, y),
                                   offsetof(trk_obj_t, w),
                                   offsetof(trk_obj_t, h),
                                   offsetof(trk_obj_t, s),
                                   offsetof(trk_obj_t, px),
                                   offsetof(trk_obj_t, py),
                                   offsetof(trk_obj_t, pw),
                                   offsetof(trk_obj_t, ph),
                                   offsetof(trk_obj_t, kalman),
                                   offsetof(trk_obj_t, obv),
                                   offsetof(trk_obj_t, pr_x),
                                   offsetof(trk_obj_t, pr_y),
                                   offsetof(trk_obj_t, pr_w),
                                   offsetof(trk_obj_t, pr_h),
                                   offsetof(trk_obj_t, match_idx),
                                   offsetof(trk_obj_t, miss_count),
                                   offsetof(trk_obj_t, match_count),
                                   sizeof(trk_obj_t)};
    EXPECT_EQ(offsets[0], 0u);
    for (std::size_t i = 1; i < std::size(offsets); ++i) {
        EXPECT_LT(offsets[i - 1], offsets[i]) << "field " << i;
    }
}

TEST(TrackerRecords, DetectionFieldsAreInTheirOrder) {
    const std::size_t offsets[] = {offsetof(det_obj_t, c), offsetof(det_obj_t, x),
                                   offsetof(det_obj_t, y), offsetof(det_obj_t, w),
                                   offsetof(det_obj_t, h), offsetof(det_obj_t, s)};
    for (std::size_t i = 0; i < std::size(offsets); ++i) {
        EXPECT_EQ(offsets[i], 4 * i);
    }
}

TEST(TrackerCreate, NewInstanceIsEmptyAndCountsIdsFromOne) {
    const Instance instance;
    EXPECT_EQ(instance->track_list.next, &instance->track_list);
    EXPECT_EQ(instance->track_list.prev, &instance->track_list);
    EXPECT_EQ(instance->track_count, 0);
    EXPECT_EQ(instance->tid, 1);
    EXPECT_EQ(instance->ncurobjs, 0);
}

TEST(TrackerCreate, StoresItsArguments) {
    auto* tracker = static_cast<tracker_t*>(iv_tracker_create(-3, 7, 5, 0.75f, 0.5f, 4, 6, -2));
    ASSERT_NE(tracker, nullptr);
    EXPECT_EQ(tracker->im_w, -3);
    EXPECT_EQ(tracker->im_h, 7);
    EXPECT_EQ(tracker->nmaxobjs, 5);
    EXPECT_EQ(tracker->euc_thresh, 0.75f);
    EXPECT_EQ(tracker->iou_thresh, 0.5f);
    EXPECT_EQ(tracker->fcnt_stable, 4);
    EXPECT_EQ(tracker->fcnt_removal, 6);
    EXPECT_EQ(tracker->ignore_class, -2);
    iv_tracker_release(tracker);
}

TEST(TrackerCreate, FrameCountsAreRaisedToOne) {
    for (const int below : {0, -1, -1000}) {
        Settings settings;
        settings.fcnt_stable = below;
        settings.fcnt_removal = below;
        const Instance instance(settings);
        EXPECT_EQ(instance->fcnt_stable, 1);
        EXPECT_EQ(instance->fcnt_removal, 1);
    }
}

TEST(TrackerCreate, GatesAreClampedToZeroAndOne) {
    struct Clamp {
        float from, to;
    };
    for (const Clamp& clamp :
         {Clamp{5.0f, 1.0f}, Clamp{0x1.000002p0f, 1.0f}, Clamp{1.0f, 1.0f}, Clamp{-0.5f, 0.0f},
          Clamp{0.25f, 0.25f}, Clamp{NOT_A_NUMBER, 1.0f}, Clamp{-NOT_A_NUMBER, 1.0f},
          Clamp{INFINITE, 1.0f}, Clamp{-INFINITE, 0.0f}, Clamp{0x1p-149f, 0x1p-149f},
          Clamp{0.0f, 0.0f}}) {
        Settings settings;
        settings.euc_thresh = clamp.from;
        const Instance distance(settings);
        EXPECT_EQ(bits_of(distance->euc_thresh), bits_of(clamp.to)) << clamp.from;
        EXPECT_EQ(distance->iou_thresh, 0.25f);
        settings = Settings();
        settings.iou_thresh = clamp.from;
        const Instance overlap(settings);
        EXPECT_EQ(bits_of(overlap->iou_thresh), bits_of(clamp.to)) << clamp.from;
        EXPECT_EQ(overlap->euc_thresh, 1.0f);
    }
}

TEST(TrackerCreate, NegativeZeroBecomesPositive) {
    Settings settings;
    settings.euc_thresh = -0.0f;
    settings.iou_thresh = -0.0f;
    const Instance instance(settings);
    EXPECT_EQ(bits_of(instance->euc_thresh), 0u);
    EXPECT_EQ(bits_of(instance->iou_thresh), 0u);
}

TEST(TrackerCreate, ModelMatricesHoldTheTables) {
    const Instance instance;
    const float q = 0.1f;
    EXPECT_EQ(floats_of(instance->A), (Floats{2, 0, -1, 0,  0, 0, 0,  0,  //
                                              0, 2, 0,  -1, 0, 0, 0,  0,  //
                                              1, 0, 0,  0,  0, 0, 0,  0,  //
                                              0, 1, 0,  0,  0, 0, 0,  0,  //
                                              0, 0, 0,  0,  2, 0, -1, 0,  //
                                              0, 0, 0,  0,  0, 2, 0,  -1, //
                                              0, 0, 0,  0,  1, 0, 0,  0,  //
                                              0, 0, 0,  0,  0, 1, 0,  0}));
    EXPECT_EQ(floats_of(instance->H), (Floats{1, 0, 0, 0, 0, 0, 0, 0, //
                                              0, 1, 0, 0, 0, 0, 0, 0, //
                                              0, 0, 0, 0, 1, 0, 0, 0, //
                                              0, 0, 0, 0, 0, 1, 0, 0}));
    EXPECT_EQ(floats_of(instance->Q), (Floats{q, 0, 0, 0, 0, 0, 0, 0, //
                                              0, q, 0, 0, 0, 0, 0, 0, //
                                              0, 0, q, 0, 0, 0, 0, 0, //
                                              0, 0, 0, q, 0, 0, 0, 0, //
                                              0, 0, 0, 0, q, 0, 0, 0, //
                                              0, 0, 0, 0, 0, q, 0, 0, //
                                              0, 0, 0, 0, 0, 0, q, 0, //
                                              0, 0, 0, 0, 0, 0, 0, q}));
    EXPECT_EQ(floats_of(instance->R), (Floats{1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1}));
    EXPECT_EQ(bits_of(floats_of(instance->Q)[63]), 0x3dcccccdu);
    for (const iv_mat_t* mat : {instance->A, instance->H, instance->Q, instance->R}) {
        EXPECT_EQ(mat->type, IV_32F);
        EXPECT_EQ(mat->step, 4 * mat->cols);
    }
    EXPECT_EQ(instance->H->rows, 4);
    EXPECT_EQ(instance->H->cols, 8);
    EXPECT_EQ(instance->R->cols, 4);
}

TEST(TrackerCreate, ScratchArraysStartAtZero) {
    const Instance instance;
    for (int n = 0; n < instance->nmaxobjs; ++n) {
        EXPECT_EQ(instance->cur_obj[n].c, 0);
        EXPECT_EQ(instance->cur_obj[n].s, 0.0f);
        EXPECT_EQ(instance->match_obj[n], nullptr);
        EXPECT_EQ(instance->match_score[n], 0.0f);
    }
}

TEST(TrackerSetParams, StoresTheValuesUnchanged) {
    auto* tracker = static_cast<tracker_t*>(iv_tracker_create(1, 2, 3, 0.5f, 0.5f, 4, 5, 0));
    ASSERT_NE(tracker, nullptr);
    iv_tracker_set_params(tracker, 5.0f, -0.5f, 0, -7, 9);
    EXPECT_EQ(tracker->euc_thresh, 5.0f);
    EXPECT_EQ(tracker->iou_thresh, -0.5f);
    EXPECT_EQ(tracker->fcnt_stable, 0);
    EXPECT_EQ(tracker->fcnt_removal, -7);
    EXPECT_EQ(tracker->ignore_class, 9);
    iv_tracker_set_params(tracker, -0.0f, NOT_A_NUMBER, -1, 0, 0);
    EXPECT_EQ(bits_of(tracker->euc_thresh), 0x80000000u);
    EXPECT_EQ(bits_of(tracker->iou_thresh), bits_of(NOT_A_NUMBER));
    EXPECT_EQ(tracker->fcnt_stable, -1);
    EXPECT_EQ(tracker->fcnt_removal, 0);
    iv_tracker_release(tracker);
}

TEST(TrackerSetParams, TouchesNothingElse) {
    Instance instance;
    instance.process({detection(3, 5, 5)});
    const auto before = bytes_of(instance.track());
    instance.set(&Settings::fcnt_stable, 9);
    EXPECT_EQ(bytes_of(instance.track()), before);
    EXPECT_EQ(instance->tid, 2);
    EXPECT_EQ(instance->track_count, 1);
    EXPECT_EQ(instance->ncurobjs, 1);
    EXPECT_EQ(instance->nmaxobjs, 8);
}

TEST(TrackerRelease, FreesTheArraysAndTheRecordAndLeavesTracksAlive) {
    auto* tracker = static_cast<tracker_t*>(iv_tracker_create(1, 1, 4, 1.0f, 0.5f, 1, 5, 0));
    ASSERT_NE(tracker, nullptr);
    float input[2][6] = {{1, 0, 0, 4, 4, 1}, {0, 0, 0, 0, 0, 0}};
    iv_tracker_process(tracker, input, nullptr);
    auto* track = reinterpret_cast<trk_obj_t*>(tracker->track_list.next);
    const std::vector<void*> expected{tracker->cur_obj, tracker->match_obj, tracker->match_score,
                                      tracker};
    {
        Allocations allocations;
        iv_tracker_release(tracker);
        EXPECT_EQ(allocations.freed_blocks(), expected);
        EXPECT_TRUE(allocations.sizes().empty());
    }
    EXPECT_EQ(track->id, 1);
    kalman_destroy(track);
    std::free(track);
}

TEST(TrackerTrack, NewTrackIsTentativeAndZero) {
    trk_obj_t* track = create_trk_obj();
    ASSERT_NE(track, nullptr);
    EXPECT_EQ(track->id, -1);
    track->id = 0;
    EXPECT_EQ(bytes_of(track), (std::array<unsigned char, sizeof(trk_obj_t)>{}));
    std::free(track);
}

TEST(TrackerTrack, FailedAllocationGivesNull) {
    Allocations allocations;
    allocations.fail_nth(1);
    EXPECT_EQ(create_trk_obj(), nullptr);
}

/// A track with a box and a box before, and the instance whose model its filter uses.
class TrackWithBoxes : public ::testing::Test {
  protected:
    TrackWithBoxes() {
        track_.id = 3;
        track_.x = 10, track_.y = 20, track_.w = 4, track_.h = 6;
        track_.px = 8, track_.py = 19, track_.pw = 4, track_.ph = 5;
    }

    Instance instance_;
    trk_obj_t track_ = {};
};

TEST_F(TrackWithBoxes, FilterStartsFromBothBoxesWithIdentityCovariance) {
    ASSERT_TRUE(kalman_init(instance_, &track_));
    EXPECT_EQ(floats_of(track_.kalman->x_post), (Floats{10, 20, 8, 19, 4, 6, 4, 5}));
    Floats identity(64, 0.0f);
    for (std::size_t i = 0; i < 64; i += 9) {
        identity[i] = 1.0f;
    }
    EXPECT_EQ(floats_of(track_.kalman->P_post), identity);
    EXPECT_EQ(floats_of(track_.kalman->x_pre), Floats(8, 0.0f));
    iv_kalman_predict(track_.kalman);
    EXPECT_EQ(floats_of(track_.kalman->x_pre), (Floats{12, 21, 10, 20, 4, 7, 4, 6}));
    kalman_destroy(&track_);
}

TEST_F(TrackWithBoxes, FilterRefersToTheModelOfTheInstance) {
    ASSERT_TRUE(kalman_init(instance_, &track_));
    EXPECT_EQ(track_.kalman->ns, 8);
    EXPECT_EQ(track_.kalman->nm, 4);
    EXPECT_EQ(track_.kalman->A, instance_->A);
    EXPECT_EQ(track_.kalman->H, instance_->H);
    EXPECT_EQ(track_.kalman->Q, instance_->Q);
    EXPECT_EQ(track_.kalman->R, instance_->R);
    EXPECT_EQ(track_.obv->type, IV_32F);
    EXPECT_EQ(track_.obv->rows, 4);
    EXPECT_EQ(track_.obv->cols, 1);
    kalman_destroy(&track_);
}

TEST_F(TrackWithBoxes, FilterAndMeasurementAreTwoAllocationsAndTwoFrees) {
    Allocations allocations;
    ASSERT_TRUE(kalman_init(instance_, &track_));
    EXPECT_EQ(allocations.made(), 2);
    iv_kalman_t* kalman = track_.kalman;
    iv_mat_t* obv = track_.obv;
    kalman_destroy(&track_);
    EXPECT_EQ(allocations.freed_blocks(), (std::vector<void*>{kalman, obv}));
    EXPECT_EQ(track_.kalman, kalman) << "the pointers stay";
    EXPECT_EQ(track_.obv, obv);
}

TEST_F(TrackWithBoxes, FailedAllocationLeavesTheTrackAsItWas) {
    for (const int failing : {1, 2}) {
        const auto before = bytes_of(&track_);
        Allocations allocations;
        allocations.fail_nth(failing);
        EXPECT_FALSE(kalman_init(instance_, &track_));
        EXPECT_EQ(allocations.made(), allocations.freed());
        EXPECT_EQ(bytes_of(&track_), before);
    }
}

} // namespace
