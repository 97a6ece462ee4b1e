// The instance: what lives from one frame to the next.

#include <cstdlib>

#include "iv_tracker.h"
#include "iv_tracker/search.h"

namespace iv::internal {
namespace {

template <class T>
T* create_array(int count) {
    return static_cast<T*>(std::calloc(static_cast<std::size_t>(count), sizeof(T)));
}

/// The zero-filled record, with scratch memory behind it in the same block.
tracker_t* create_record(int nmaxobjs) {
    void* block = std::calloc(1, sizeof(instance_t) + search_bytes(nmaxobjs));
    if (!block) {
        return nullptr;
    }
    instance_t* instance = static_cast<instance_t*>(block);
    search_init(&instance->search, instance + 1, nmaxobjs);
    return &instance->record;
}

/// Clamps to 0..1. Written so that NaN becomes 1 and -0.0 becomes 0.0 on every machine.
float clamp_gate(float value) {
    const float at_most_one = value < 1.0f ? value : 1.0f;
    return at_most_one > 0.0f ? at_most_one : 0.0f;
}

int at_least_one(int value) {
    return value < 1 ? 1 : value;
}

} // namespace
} // namespace iv::internal

using namespace iv::internal;

void* iv_tracker_create(int im_w, int im_h, int nmaxobjs, float euc_thresh, float iou_thresh,
                        int fcnt_stable, int fcnt_removal, int ignore_class) {
    tracker_t* tracker = create_record(nmaxobjs);
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
    const bool has_model = create_motion_model(tracker);
    if (!has_model || !tracker->cur_obj || !tracker->match_obj || !tracker->match_score) {
        release_motion_model(tracker);
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

void iv_tracker_release(void* handle) {
    // Tracks still alive, their filters and the model stay allocated: part of the contract.
    tracker_t* tracker = static_cast<tracker_t*>(handle);
    std::free(tracker->cur_obj);
    std::free(tracker->match_obj);
    std::free(tracker->match_score);
    std::free(tracker);
}
