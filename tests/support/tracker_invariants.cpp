#include "support/tracker_invariants.h"

#include <gtest/gtest.h>

#include <set>

namespace test {
namespace {

using iv::internal::list_head;
using iv::internal::MAX_TRACK_ID;
using iv::internal::tracker_t;
using iv::internal::trk_obj_t;

/// A packed matrix of floats whose values start where they should.
void expect_packed(const iv_mat_t* mat, int rows, int cols, const void* data) {
    ASSERT_EQ(mat->type, IV_32F);
    ASSERT_EQ(mat->rows, rows);
    ASSERT_EQ(mat->cols, cols);
    ASSERT_EQ(mat->step, cols * 4);
    ASSERT_EQ(static_cast<const void*>(mat->data.p), data);
}

/// The filter's matrices lie one behind the other in its block, its model is the tracker's.
void expect_sound_filter(const tracker_t& tracker, const iv_kalman_t& k) {
    ASSERT_EQ(k.ns, 8);
    ASSERT_EQ(k.nm, 4);
    ASSERT_EQ(k.A, tracker.A);
    ASSERT_EQ(k.H, tracker.H);
    ASSERT_EQ(k.Q, tracker.Q);
    ASSERT_EQ(k.R, tracker.R);
    struct Place {
        const iv_mat_t* mat;
        int rows, cols;
    };
    const auto* end = reinterpret_cast<const unsigned char*>(&k + 1);
    ASSERT_EQ(k.mbuf, static_cast<const void*>(end));
    for (const Place& place :
         {Place{k.x_pre, 8, 1}, Place{k.x_post, 8, 1}, Place{k.P_pre, 8, 8}, Place{k.P_post, 8, 8},
          Place{k.K, 8, 4}, Place{k.temp1, 8, 8}, Place{k.temp2, 8, 4}, Place{k.temp3, 4, 4},
          Place{k.temp4, 4, 4}, Place{k.temp5, 4, 1}}) {
        ASSERT_EQ(static_cast<const void*>(place.mat), end);
        expect_packed(place.mat, place.rows, place.cols, place.mat + 1);
        end += sizeof(iv_mat_t) + sizeof(float) * static_cast<std::size_t>(place.rows * place.cols);
    }
}

void expect_sound_track(const tracker_t& tracker, const trk_obj_t& track) {
    ASSERT_EQ(track.state, 0);
    ASSERT_GE(track.miss_count, 0);
    ASSERT_GE(track.match_count, 0);
    ASSERT_EQ(track.match_idx >= 0, track.miss_count == 0);
    ASSERT_GE(track.match_idx, -1);
    ASSERT_LT(track.match_idx, tracker.ncurobjs);
    if (track.match_idx >= 0) {
        ASSERT_EQ(tracker.match_obj[track.match_idx], &track);
    }
    const bool confirmed = track.id != -1;
    ASSERT_EQ(track.kalman != nullptr, confirmed);
    ASSERT_EQ(track.obv != nullptr, confirmed);
    if (confirmed) {
        ASSERT_GE(track.id, 1);
        ASSERT_LE(track.id, MAX_TRACK_ID);
        expect_sound_filter(tracker, *track.kalman);
        expect_packed(track.obv, 4, 1, track.obv + 1);
    } else {
        ASSERT_LE(track.miss_count, 5) << "misses of a tentative track";
    }
}

} // namespace

void expect_sound(const tracker_t& tracker) {
    ASSERT_GE(tracker.tid, 1);
    ASSERT_LE(tracker.tid, MAX_TRACK_ID);
    ASSERT_GE(tracker.ncurobjs, 0);
    ASSERT_LE(tracker.ncurobjs, tracker.nmaxobjs);
    ASSERT_LE(tracker.track_count, tracker.nmaxobjs);
    const list_head* const head = &tracker.track_list;
    std::set<const trk_obj_t*> ring;
    std::set<int> ids;
    int confirmed = 0;
    ASSERT_EQ(head->next->prev, head);
    for (const list_head* link = head->next; link != head; link = link->next) {
        ASSERT_EQ(link->next->prev, link);
        const auto* track = reinterpret_cast<const trk_obj_t*>(link);
        ASSERT_TRUE(ring.insert(track).second) << "the ring does not lead back to its head";
        ASSERT_NO_FATAL_FAILURE(expect_sound_track(tracker, *track));
        if (track->id != -1) {
            ids.insert(track->id);
            ++confirmed;
        }
    }
    ASSERT_EQ(static_cast<int>(ring.size()), tracker.track_count);
    ASSERT_EQ(static_cast<int>(ids.size()), confirmed) << "two tracks have the same id";
    for (int n = 0; n < tracker.ncurobjs; ++n) {
        const trk_obj_t* track = tracker.match_obj[n];
        ASSERT_TRUE(!track || (ring.count(track) == 1 && track->match_idx == n))
            << "detection " << n << " is associated with a track that is not matched with it";
    }
}

} // namespace test
