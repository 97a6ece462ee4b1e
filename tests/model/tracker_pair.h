// The library's tracker beside the model's: every output row, and after every frame the whole ring.
#ifndef LIBIV_TESTS_MODEL_TRACKER_PAIR_H
#define LIBIV_TESTS_MODEL_TRACKER_PAIR_H

#include "model/library.h"
#include "model/scene.h"
#include "support/guarded.h"

namespace test {

/// What a frame of the tests has seen happen, so that a run without some event is noticed.
struct Events {
    int rows = 0;
    int coasting_rows = 0;
    int confirmations = 0;
    int second_confirmations = 0;
    int turned_away = 0; // detections with a candidate that they did not get
    int full_outputs = 0;
    int full_rings = 0;
};

/// The library and the model take the same frames.
class TrackerPair {
  public:
    TrackerPair(int capacity, const model::Parameters& parameters)
        : capacity_(capacity), library_(capacity, parameters), model_(capacity, parameters) {}

    void set_params(const model::Parameters& parameters) {
        library_.set_params(parameters);
        model_.set_params(parameters);
    }

    /// One frame on both sides, and a comparison of everything.
    void process(const Rows& rows, bool report, Events& events);

    int capacity() const { return capacity_; }
    model::LibraryTracker& library() { return library_; }
    model::Tracker& model() { return model_; }

  private:
    using Output = float (*)[8];

    void compare_rows(const Guarded& expected, const Guarded& actual) const;
    void count_rows(const Guarded& output, Events& events) const;
    void compare_state();
    void compare_detections();
    static void compare_track(const model::Track& expected, const iv::internal::trk_obj_t& actual);
    static void compare_filter(const model::Track& expected, const iv::internal::trk_obj_t& actual);

    int capacity_;
    model::LibraryTracker library_;
    model::Tracker model_;
};

} // namespace test

#endif
