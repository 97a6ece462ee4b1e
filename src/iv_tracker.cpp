// The tracker: the instance with its motion model, and the five steps of a frame.

#include "iv_tracker.h"

#include <climits>
#include <cstdlib>
#include <cstring>

namespace iv::internal {
namespace {

// The state of a filter: centre now, centre one frame earlier, size now, size one frame earlier.
// Velocity is carried as the difference of the two.
constexpr int NS = 8;
constexpr int NM = 4; ///< a measurement: centre and size
enum StateIndex { X = 0, Y = 1, PX = 2, PY = 3, W = 4, H = 5, PW = 6, PH = 7 };

/// Constant velocity: now becomes twice now minus earlier, earlier becomes now.
constexpr float Adata[NS * NS] = {
    2, 0, -1, 0,  0, 0, 0,  0,  //
    0, 2, 0,  -1, 0, 0, 0,  0,  //
    1, 0, 0,  0,  0, 0, 0,  0,  //
    0, 1, 0,  0,  0, 0, 0,  0,  //
    0, 0, 0,  0,  2, 0, -1, 0,  //
    0, 0, 0,  0,  0, 2, 0,  -1, //
    0, 0, 0,  0,  1, 0, 0,  0,  //
    0, 0, 0,  0,  0, 1, 0,  0,  //
};

constexpr float Hdata[NM * NS] = {
    1, 0, 0, 0, 0, 0, 0, 0, //
    0, 1, 0, 0, 0, 0, 0, 0, //
    0, 0, 0, 0, 1, 0, 0, 0, //
    0, 0, 0, 0, 0, 1, 0, 0, //
};

constexpr float Qdata[NS * NS] = {
    0.1f, 0,    0,    0,    0,    0,    0,    0,    //
    0,    0.1f, 0,    0,    0,    0,    0,    0,    //
    0,    0,    0.1f, 0,    0,    0,    0,    0,    //
    0,    0,    0,    0.1f, 0,    0,    0,    0,    //
    0,    0,    0,    0,    0.1f, 0,    0,    0,    //
    0,    0,    0,    0,    0,    0.1f, 0,    0,    //
    0,    0,    0,    0,    0,    0,    0.1f, 0,    //
    0,    0,    0,    0,    0,    0,    0,    0.1f, //
};

constexpr float Rdata[NM * NM] = {
    1, 0, 0, 0, //
    0, 1, 0, 0, //
    0, 0, 1, 0, //
    0, 0, 0, 1, //
};

/// No association reaches this far: a squared distance, in units squared.
constexpr float MAX_DISTANCE = 100.0f;

/// Confirmed tracks are reported while they have missed fewer frames than this.
constexpr int REPORTED_MISSES = 3;

// A tentative track survives this many misses; after the first three its matches count anew.
constexpr int TENTATIVE_MISSES = 5;
constexpr int TENTATIVE_MISSES_COUNTED = 3;

trk_obj_t* track_of(list_head* link) {
    return reinterpret_cast<trk_obj_t*>(link);
}

bool is_confirmed(const trk_obj_t* obj) {
    return obj->id >= 0;
}

/// One matrix of the motion model, or null when the allocation fails.
iv_mat_t* create_model(int rows, int cols, const float* data) {
    iv_mat_t* mat = iv_mat_create(rows, cols, IV_32F);
    if (mat) {
        std::memcpy(mat->data.f, data, static_cast<std::size_t>(rows * cols) * sizeof(float));
    }
    return mat;
}

template <class T>
T* create_array(int count) {
    return static_cast<T*>(std::calloc(static_cast<std::size_t>(count), sizeof(T)));
}

/// Clamps to 0..1. Written so that NaN becomes 1 and -0.0 becomes 0.0 on every machine.
float clamp_gate(float value) {
    const float at_most_one = value < 1.0f ? value : 1.0f;
    return at_most_one > 0.0f ? at_most_one : 0.0f;
}

int at_least_one(int value) {
    return value < 1 ? 1 : value;
}

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

/// Length of the intersection of two intervals given by centre and length; negative when they are
/// apart.
float overlap(float x1, float w1, float x2, float w2) {
    const float left1 = x1 - w1 * 0.5f;
    const float left2 = x2 - w2 * 0.5f;
    const float right1 = x1 + w1 * 0.5f;
    const float right2 = x2 + w2 * 0.5f;
    const float left = left1 > left2 ? left1 : left2;
    const float right = right1 < right2 ? right1 : right2;
    return right - left;
}

float box_intersection(const box_t& a, const box_t& b) {
    const float w = overlap(a.x, a.w, b.x, b.w);
    const float h = overlap(a.y, a.h, b.y, b.h);
    return w > 0.0f && h > 0.0f ? w * h : 0.0f;
}

/// Predicts the track's box for this frame. The filter's estimate does not move, so a track that
/// misses frames is predicted at the same place again and again.
void kalman_predict(trk_obj_t* obj) {
    if (is_confirmed(obj)) {
        iv_kalman_predict(obj->kalman);
        const float* x = obj->kalman->x_pre->data.f;
        obj->pr_x = x[X];
        obj->pr_y = x[Y];
        obj->pr_w = x[W];
        obj->pr_h = x[H];
    } else {
        obj->pr_x = obj->x;
        obj->pr_y = obj->y;
        obj->pr_w = obj->w;
        obj->pr_h = obj->h;
    }
}

/// Corrects the filter with the track's box, which holds the detection's, and takes the estimate
/// instead.
void kalman_correct(trk_obj_t* obj) {
    float* z = obj->obv->data.f;
    z[0] = obj->x;
    z[1] = obj->y;
    z[2] = obj->w;
    z[3] = obj->h;
    iv_kalman_correct(obj->kalman, obj->obv);
    const float* x = obj->kalman->x_post->data.f;
    obj->x = x[X];
    obj->y = x[Y];
    obj->w = x[W];
    obj->h = x[H];
}

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

bool kalman_init(tracker_t* tracker, trk_obj_t* obj) {
    iv_kalman_t* kalman =
        iv_kalman_create(NS, NM, 1, tracker->A, tracker->H, tracker->Q, tracker->R);
    iv_mat_t* obv = kalman ? iv_mat_create(NM, 1, IV_32F) : nullptr;
    if (!obv) {
        iv_kalman_release(kalman);
        return false;
    }
    iv_mat_setidentity(kalman->P_post);
    float* x = kalman->x_post->data.f;
    x[X] = obj->x;
    x[Y] = obj->y;
    x[PX] = obj->px;
    x[PY] = obj->py;
    x[W] = obj->w;
    x[H] = obj->h;
    x[PW] = obj->pw;
    x[PH] = obj->ph;
    // A track confirmed anew drops its earlier filter here, unreleased: part of the contract.
    obj->kalman = kalman;
    obj->obv = obv;
    return true;
}

void kalman_destroy(trk_obj_t* obj) {
    iv_kalman_release(obj->kalman);
    iv_mat_release(obj->obv);
}

float box_iou(const box_t& a, const box_t& b) {
    const float inter = box_intersection(a, b);
    return inter / (a.w * a.h + b.w * b.h - inter);
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
    list_head* head = &tracker->track_list;
    list_head* next;
    for (list_head* link = head->next; link != head; link = next) {
        next = link->next; // the track may go
        trk_obj_t* obj = track_of(link);
        if (obj->match_idx >= 0) {
            update_matched(tracker, obj);
        } else {
            update_missed(tracker, obj);
        }
    }
}

void tracker_get_tracks(tracker_t* tracker, float (*output)[8]) {
    int n = 0;
    list_head* head = &tracker->track_list;
    for (list_head* link = head->next; link != head; link = link->next) {
        // Removed tracks have left the ring. NOLINTNEXTLINE(clang-analyzer-unix.Malloc)
        const trk_obj_t* obj = track_of(link);
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
        if (++n == tracker->nmaxobjs) {
            break; // a full list has no end mark
        }
    }
    if (n < tracker->nmaxobjs) {
        output[n][0] = -1.0f;
    }
}

} // namespace iv::internal

using namespace iv::internal;

void* iv_tracker_create(int im_w, int im_h, int nmaxobjs, float euc_thresh, float iou_thresh,
                        int fcnt_stable, int fcnt_removal, int ignore_class) {
    tracker_t* tracker = create_array<tracker_t>(1);
    if (!tracker) {
        return nullptr;
    }
    list_init(&tracker->track_list);
    tracker->cur_obj = create_array<det_obj_t>(nmaxobjs);
    tracker->match_obj = create_array<trk_obj_t*>(nmaxobjs);
    tracker->match_score = create_array<float>(nmaxobjs);
    tracker->tid = 1;
    tracker->nmaxobjs = nmaxobjs;
    tracker->im_w = im_w;
    tracker->im_h = im_h;
    iv_tracker_set_params(tracker, clamp_gate(euc_thresh), clamp_gate(iou_thresh),
                          at_least_one(fcnt_stable), at_least_one(fcnt_removal), ignore_class);
    tracker->A = create_model(NS, NS, Adata);
    tracker->H = create_model(NM, NS, Hdata);
    tracker->Q = create_model(NS, NS, Qdata);
    tracker->R = create_model(NM, NM, Rdata);
    if (!tracker->cur_obj || !tracker->match_obj || !tracker->match_score || !tracker->A ||
        !tracker->H || !tracker->Q || !tracker->R) {
        iv_mat_release(tracker->A);
        iv_mat_release(tracker->H);
        iv_mat_release(tracker->Q);
        iv_mat_release(tracker->R);
        iv_tracker_release(tracker);
        return nullptr;
    }
    return tracker;
}

void iv_tracker_set_params(void* handle, float euc_thresh, float iou_thresh, int fcnt_stable,
                           int fcnt_removal, int ignore_class) {
    tracker_t* tracker = static_cast<tracker_t*>(handle);
    tracker->euc_thresh = euc_thresh;
    tracker->iou_thresh = iou_thresh;
    tracker->fcnt_stable = fcnt_stable;
    tracker->fcnt_removal = fcnt_removal;
    tracker->ignore_class = ignore_class;
}

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

void iv_tracker_release(void* handle) {
    // Tracks still alive, their filters and the model stay allocated: part of the contract.
    tracker_t* tracker = static_cast<tracker_t*>(handle);
    std::free(tracker->cur_obj);
    std::free(tracker->match_obj);
    std::free(tracker->match_score);
    std::free(tracker);
}
