// The motion model, and the filters that carry it.

#include <cstring>

#include "iv_kalman.h"
#include "iv_tracker.h"

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

/// One matrix of the motion model, or null when the allocation fails.
iv_mat_t* create_model(int rows, int cols, const float* data) {
    iv_mat_t* mat = iv_mat_create(rows, cols, IV_32F);
    if (mat) {
        std::memcpy(mat->data.f, data, static_cast<std::size_t>(rows * cols) * sizeof(float));
    }
    return mat;
}

} // namespace

bool create_motion_model(tracker_t* tracker) {
    tracker->A = create_model(NS, NS, Adata);
    tracker->H = create_model(NM, NS, Hdata);
    tracker->Q = create_model(NS, NS, Qdata);
    tracker->R = create_model(NM, NM, Rdata);
    return tracker->A && tracker->H && tracker->Q && tracker->R;
}

void release_motion_model(tracker_t* tracker) {
    iv_mat_release(tracker->A);
    iv_mat_release(tracker->H);
    iv_mat_release(tracker->Q);
    iv_mat_release(tracker->R);
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

void kalman_predict(trk_obj_t* obj) {
    if (is_confirmed(obj)) {
        predict_state(obj->kalman);
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

void kalman_predict_covariance(trk_obj_t* obj) {
    if (is_confirmed(obj)) {
        predict_covariance(obj->kalman);
    }
}

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

} // namespace iv::internal
