/*
 * The tracker's records and the steps of a frame. Nothing here is exported: hosts see a handle.
 *
 * Boxes are in centre form (centre x, centre y, width, height); only the rows that a host passes
 * and receives carry corners. The tracker's own arithmetic is plain single precision, and nothing
 * of it is fused.
 */
#ifndef LIBIV_TRACKER_H
#define LIBIV_TRACKER_H

#include <cstddef>

#include "_libiv.h"
#include "iv_list.h"

namespace iv::internal {

/// Ids run from 1 to this and then start again: every id is exact as a float.
constexpr int MAX_TRACK_ID = 1048574;

/// One detection of the current frame.
struct det_obj_t {
    int c;      ///< class
    float x, y; ///< centre
    float w, h; ///< size
    float s;    ///< score
};

/// One track. It is tentative until it has been matched often enough, then confirmed.
struct trk_obj_t {
    list_head list;       ///< link in tracker_t::track_list; first, so that it is the track
    int state;            ///< always 0
    int id;               ///< -1 while tentative
    int c;                ///< class of the detection last matched
    float x, y, w, h;     ///< box now
    float s;              ///< score of the detection last matched
    float px, py, pw, ph; ///< box before the latest match
    iv_kalman_t* kalman;  ///< null while tentative; owned
    iv_mat_t* obv;        ///< measurement (4 x 1) for the filter; null while tentative; owned
    float pr_x, pr_y, pr_w, pr_h; ///< box predicted for the current frame
    int match_idx;                ///< detection matched in the current frame, or -1
    int miss_count;               ///< frames missed in a row
    int match_count;              ///< matches counted toward confirmation; stays at INT_MAX
};

/// One tracker instance.
struct tracker_t {
    list_head track_list;  ///< all tracks, oldest first; owned
    int track_count;       ///< tracks in the list
    int tid;               ///< id of the next confirmed track
    int nmaxobjs;          ///< capacity: detections read, tracks alive, rows written
    int ncurobjs;          ///< detections in the current frame
    int im_w, im_h;        ///< stored, never read
    float euc_thresh;      ///< gate on the squared centre distance
    float iou_thresh;      ///< gate on intersection over union
    int fcnt_stable;       ///< matches after which a track is confirmed
    int fcnt_removal;      ///< missed frames in a row that a track survives
    int ignore_class;      ///< non-zero: classes need not agree
    iv_mat_t* A;           ///< 8 x 8 transition; A, H, Q, R are shared by the filters of all tracks
    iv_mat_t* H;           ///< 4 x 8 measurement
    iv_mat_t* Q;           ///< 8 x 8 process noise
    iv_mat_t* R;           ///< 4 x 4 measurement noise
    det_obj_t* cur_obj;    ///< nmaxobjs detections of the current frame
    trk_obj_t** match_obj; ///< nmaxobjs: the track of each detection, or null
    float* match_score; ///< nmaxobjs: squared distance that won the track, 100 without a candidate,
                        ///< 0 when rejected or taken over
};

static_assert(offsetof(trk_obj_t, list) == 0,
              "a pointer to a track's link is a pointer to the track");
static_assert(offsetof(tracker_t, track_list) == 0, "a pointer to the head is one to the tracker");

inline trk_obj_t* track_of(list_head* link) {
    return reinterpret_cast<trk_obj_t*>(link);
}

inline bool is_confirmed(const trk_obj_t* obj) {
    return obj->id >= 0;
}

/// A zero-filled tentative track, or null when the allocation fails.
trk_obj_t* create_trk_obj();

/// Makes the four matrices of the motion model. False, with those that were made left to
/// release_motion_model, iff an allocation fails.
bool create_motion_model(tracker_t* tracker);
void release_motion_model(tracker_t* tracker);

/// Bytes of a track's filter: record, ten headers and the values of the ten matrices. It starts with
/// what the prediction of the state touches.
constexpr std::size_t FILTER_BYTES =
    sizeof(iv_kalman_t) + 10 * sizeof(iv_mat_t) + 308 * sizeof(float);
constexpr std::size_t STATE_BYTES =
    sizeof(iv_kalman_t) + 2 * (sizeof(iv_mat_t) + 8 * sizeof(float));
constexpr std::size_t MEASUREMENT_BYTES = sizeof(iv_mat_t) + 4 * sizeof(float);

/// Gives the track a filter seeded with its box now and before, and a measurement vector. False,
/// with the track unchanged and nothing allocated, iff an allocation fails. An earlier filter is
/// not released.
bool kalman_init(tracker_t* tracker, trk_obj_t* obj);

/// Releases the track's filter and measurement vector; neither the pointers nor the track change.
void kalman_destroy(trk_obj_t* obj);

/// Predicts the track's box for this frame. The filter's estimate does not move, so a track that
/// misses frames is predicted at the same place again and again. The filter's covariance follows
/// with kalman_predict_covariance: association has no need of it, and a filter that is predicted
/// and corrected in one go is fetched from memory once.
void kalman_predict(trk_obj_t* obj);
void kalman_predict_covariance(trk_obj_t* obj);

/// Corrects the filter with the track's box, which holds the detection's, and takes the estimate
/// instead.
void kalman_correct(trk_obj_t* obj);

/// A box in centre form.
struct box_t {
    float x, y, w, h;
};

/// Intersection over union. Boxes without an area give NaN or infinity.
float box_iou(const box_t& a, const box_t& b);

// The steps of a frame, in their order.
void tracker_extract(tracker_t* tracker, float (*input)[6]);
void tracker_match(tracker_t* tracker);
void tracker_add_objects(tracker_t* tracker);
void tracker_update(tracker_t* tracker);
void tracker_get_tracks(tracker_t* tracker, float (*output)[8]);

} // namespace iv::internal

#endif
