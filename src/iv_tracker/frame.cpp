// The steps of a frame around the association: detections in, tracks made, confirmed and removed,
// rows out.

#include <climits>
#include <cstdlib>

#include "iv_tracker.h"
#include "iv_tracker/ahead.h"

namespace iv::internal {
namespace {

/// Confirmed tracks are reported while they have missed fewer frames than this.
constexpr int REPORTED_MISSES = 3;

// A tentative track survives this many misses; after the first three its matches count anew.
constexpr int TENTATIVE_MISSES = 5;
constexpr int TENTATIVE_MISSES_COUNTED = 3;

/// Toward zero, saturating, NaN gives 0: what 64-bit Arm does, on every machine.
int class_of(float value) {
    if (value != value) {
        return 0;
    }
    if (value >= 2147483648.0f) {
        return INT_MAX;
    }
    if (value < -2147483648.0f) {
        return INT_MIN;
    }
    return static_cast<int>(value);
}

/// Gives the track a filter and the next id. False, with nothing changed, iff an allocation fails.
bool confirm(tracker_t* tracker, trk_obj_t* obj) {
    if (!kalman_init(tracker, obj)) {
        return false;
    }
    obj->id = tracker->tid;
    tracker->tid = tracker->tid < MAX_TRACK_ID ? tracker->tid + 1 : 1;
    return true;
}

void take_detection(trk_obj_t* obj, const det_obj_t& det) {
    obj->c = det.c;
    obj->x = det.x;
    obj->y = det.y;
    obj->w = det.w;
    obj->h = det.h;
    obj->s = det.s;
}

void update_matched(tracker_t* tracker, trk_obj_t* obj) {
    obj->px = obj->x;
    obj->py = obj->y;
    obj->pw = obj->w;
    obj->ph = obj->h;
    take_detection(obj, tracker->cur_obj[obj->match_idx]);
    obj->miss_count = 0;

    // Compared before it is counted up: a count at its limit stays there, beyond every fcnt_stable.
    const int matches = obj->match_count;
    const bool beyond = matches >= tracker->fcnt_stable;
    const bool reached = !beyond && matches + 1 == tracker->fcnt_stable;
    if (matches < INT_MAX) {
        ++obj->match_count;
    }
    // A lowered fcnt_stable may leave a track beyond it without a filter: it is confirmed now.
    if (reached || (beyond && !obj->kalman)) {
        if (!confirm(tracker, obj)) {
            obj->match_count = matches; // so that the next match tries again
        }
    } else if (beyond) {
        kalman_correct(obj);
    }
}

void remove_track(tracker_t* tracker, trk_obj_t* obj) {
    if (is_confirmed(obj)) {
        kalman_destroy(obj);
    }
    __list_del(obj->list.prev, obj->list.next);
    --tracker->track_count;
    std::free(obj);
}

void update_missed(tracker_t* tracker, trk_obj_t* obj) {
    const bool tentative = !is_confirmed(obj);
    // Compared before it is counted up, the count never passes its limit.
    if (obj->miss_count >= tracker->fcnt_removal ||
        (tentative && obj->miss_count >= TENTATIVE_MISSES)) {
        remove_track(tracker, obj);
        return;
    }
    ++obj->miss_count;
    if (tentative && obj->miss_count > TENTATIVE_MISSES_COUNTED) {
        obj->match_count = 0;
    }
}

} // namespace

trk_obj_t* create_trk_obj() {
    trk_obj_t* obj = static_cast<trk_obj_t*>(std::calloc(1, sizeof(trk_obj_t)));
    if (obj) {
        obj->id = -1;
    }
    return obj;
}

void tracker_extract(tracker_t* tracker, float (*input)[6]) {
    int n = 0;
    // The class is looked at first: behind a full list the class of one more row is read.
    for (; input[n][0] != 0.0f && n < tracker->nmaxobjs; ++n) {
        const float* row = input[n];
        det_obj_t& det = tracker->cur_obj[n];
        det.c = class_of(row[0]);
        det.x = (row[1] + row[3]) * 0.5f;
        det.y = (row[2] + row[4]) * 0.5f;
        det.w = row[3] - row[1];
        det.h = row[4] - row[2];
        det.s = row[5];
    }
    tracker->ncurobjs = n;
}

void tracker_add_objects(tracker_t* tracker) {
    for (int n = 0; n < tracker->ncurobjs; ++n) {
        if (tracker->match_obj[n] || tracker->track_count >= tracker->nmaxobjs) {
            continue;
        }
        trk_obj_t* obj = create_trk_obj();
        if (!obj) {
            continue;
        }
        take_detection(obj, tracker->cur_obj[n]);
        obj->match_idx = n;
        tracker->match_obj[n] = obj;
        list_add_tail(&obj->list, &tracker->track_list);
        ++tracker->track_count;
    }
}

void tracker_update(tracker_t* tracker) {
    Ahead ahead(*search_of(tracker));
    list_head* head = &tracker->track_list;
    list_head* next;
    for (list_head* link = head->next; link != head; link = next) {
        next = link->next; // the track may go
        trk_obj_t* obj = track_of(link);
        ahead.reach(obj, FILTER_BYTES, MEASUREMENT_BYTES);
        kalman_predict_covariance(obj);
        if (obj->match_idx >= 0) {
            update_matched(tracker, obj);
        } else {
            update_missed(tracker, obj);
        }
    }
}

void tracker_get_tracks(tracker_t* tracker, float (*output)[8]) {
    int n = 0;
    Ahead ahead(*search_of(tracker));
    list_head* head = &tracker->track_list;
    for (list_head* link = head->next; link != head; link = link->next) {
        // Removed tracks have left the ring. NOLINTNEXTLINE(clang-analyzer-unix.Malloc)
        const trk_obj_t* obj = track_of(link);
        ahead.reach(obj, 0, 0);
        if (!is_confirmed(obj) || obj->miss_count >= REPORTED_MISSES) {
            continue;
        }
        float* row = output[n];
        row[0] = static_cast<float>(obj->id);
        row[1] = static_cast<float>(obj->c);
        row[2] = obj->x - obj->w * 0.5f;
        row[3] = obj->y - obj->h * 0.5f;
        row[4] = obj->x + obj->w * 0.5f;
        row[5] = obj->y + obj->h * 0.5f;
        row[6] = obj->s;
        row[7] = static_cast<float>(obj->match_idx);
        ++n;
    }
    if (n < tracker->nmaxobjs) { // a full list has no end mark
        output[n][0] = -1.0f;
    }
}

} // namespace iv::internal

using namespace iv::internal;

void iv_tracker_process(void* handle, float (*input)[6], float (*output)[8]) {
    tracker_t* tracker = static_cast<tracker_t*>(handle);
    tracker_extract(tracker, input);
    tracker_match(tracker);
    tracker_add_objects(tracker);
    tracker_update(tracker);
    if (output) {
        tracker_get_tracks(tracker, output);
    }
}
