// Prediction and association: which detection continues which track.

#include "iv_tracker.h"

namespace iv::internal {
namespace {

/// No association reaches this far: a squared distance, in units squared.
constexpr float MAX_DISTANCE = 100.0f;

/// The track nearest to the detection among those it may continue, or null; `mind` becomes its
/// squared distance. Strictly less: of two tracks equally near, the older one, met first, is taken.
trk_obj_t* nearest_track(tracker_t* tracker, const det_obj_t& det, float* mind) {
    trk_obj_t* nearest = nullptr;
    *mind = MAX_DISTANCE;
    list_head* head = &tracker->track_list;
    for (list_head* link = head->next; link != head; link = link->next) {
        trk_obj_t* obj = track_of(link);
        if (obj->c != det.c && !tracker->ignore_class) {
            continue;
        }
        const float dx = obj->pr_x - det.x;
        const float dy = obj->pr_y - det.y;
        const float d = dx * dx + dy * dy;
        if (d < *mind) {
            *mind = d;
            nearest = obj;
        }
    }
    return nearest;
}

/// Associates detection n with its nearest track, or leaves it without one. A detection that is
/// rejected, or loses its track to a nearer one, does not try the next track.
void match_detection(tracker_t* tracker, int n) {
    const det_obj_t& det = tracker->cur_obj[n];
    float mind;
    trk_obj_t* obj = nearest_track(tracker, det, &mind);
    tracker->match_obj[n] = obj;
    tracker->match_score[n] = mind;
    if (!obj) {
        return;
    }
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
    list_head* head = &tracker->track_list;
    for (list_head* link = head->next; link != head; link = link->next) {
        kalman_predict(track_of(link));
        track_of(link)->match_idx = -1;
    }
    for (int n = 0; n < tracker->ncurobjs; ++n) {
        match_detection(tracker, n);
    }
}

} // namespace iv::internal
