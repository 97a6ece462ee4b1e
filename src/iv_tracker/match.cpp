// Prediction and association: which detection continues which track.

#include "iv_tracker.h"
#include "iv_tracker/ahead.h"
#include "iv_tracker/search.h"

namespace iv::internal {
namespace {

/// Finds the track nearest to each detection.
void find_nearest(tracker_t* tracker, const search_t& search) {
    const bool any_class = tracker->ignore_class != 0;
    for (int n = 0; n < tracker->ncurobjs; ++n) {
        const Nearest nearest = search_nearest(search, tracker->cur_obj[n], any_class);
        tracker->match_obj[n] = nearest.age < 0 ? nullptr : search.tracks[nearest.age].obj;
        tracker->match_score[n] = nearest.d;
    }
}

/// Associates detection n with the track nearest to it, or leaves it without one. A detection that
/// is rejected, or loses its track to a nearer one, does not try the next track.
void match_detection(tracker_t* tracker, int n) {
    trk_obj_t* obj = tracker->match_obj[n];
    if (!obj) {
        return;
    }
    const det_obj_t& det = tracker->cur_obj[n];
    const float mind = tracker->match_score[n];
    const float gate =
        mind <= tracker->euc_thresh
            ? 1.0f
            : box_iou({obj->pr_x, obj->pr_y, obj->pr_w, obj->pr_h}, {det.x, det.y, det.w, det.h});
    const bool passes = gate > tracker->iou_thresh;
    const int holder = obj->match_idx;
    if (passes && holder < 0) {
        obj->match_idx = n;
    } else if (passes && tracker->match_score[holder] > mind) {
        // Strictly nearer than the holder: on a tie the earlier detection keeps the track.
        tracker->match_obj[holder] = nullptr;
        tracker->match_score[holder] = 0.0f;
        obj->match_idx = n;
    } else {
        tracker->match_obj[n] = nullptr;
        tracker->match_score[n] = 0.0f;
    }
}

} // namespace

void tracker_match(tracker_t* tracker) {
    search_t* search = search_of(tracker);
    Ahead ahead(*search);
    search->count = 0;
    list_head* head = &tracker->track_list;
    for (list_head* link = head->next; link != head; link = link->next) {
        trk_obj_t* obj = track_of(link);
        ahead.reach(obj, STATE_BYTES, 0);
        kalman_predict(obj);
        obj->match_idx = -1;
        search_add(search, obj);
    }
    search_index(search);
    find_nearest(tracker, *search);
    for (int n = 0; n < tracker->ncurobjs; ++n) {
        match_detection(tracker, n);
    }
}

} // namespace iv::internal
