// The tracker: one instance, its tracks in order of age, and what one frame does to them.
#ifndef LIBIV_TESTS_MODEL_TRACKER_H
#define LIBIV_TESTS_MODEL_TRACKER_H

#include <array>
#include <list>
#include <memory>
#include <vector>

#include "model/kalman.h"

namespace model {

/// Centre and size.
struct Box {
    float x, y, w, h;
};

float intersection_over_union(const Box& a, const Box& b);

struct Track {
    int id = -1;
    int category = 0;
    Box now{};
    Box before{};
    Box predicted{};
    float score = 0.0f;
    std::unique_ptr<Kalman> filter;
    std::array<float, 4> observed{};
    int match = -1; ///< detection of this frame
    int misses = 0;
    int matches = 0;

    bool confirmed() const { return id >= 0; }
};

struct Detection {
    int category;
    Box box;
    float score;
    Track* track;   ///< null: unassociated
    float distance; ///< squared; 100 without a candidate, 0 when rejected or displaced
};

struct Parameters {
    float distance_gate;
    float overlap_gate;
    int stable;
    int removal;
    int ignore_class;
};

class Tracker {
  public:
    /// Clamps the parameters.
    Tracker(int capacity, const Parameters& parameters);

    /// Clamps nothing.
    void set_params(const Parameters& parameters) { parameters_ = parameters; }

    /// `rows` end as the library's do; `output` may be null.
    void process(const float (*rows)[6], float (*output)[8]);

    const Parameters& parameters() const { return parameters_; }
    std::list<Track>& tracks() { return tracks_; }
    const std::vector<Detection>& detections() const { return detections_; }
    int next_id() const { return next_id_; }
    void set_next_id(int id) { next_id_ = id; }

    /// Refuses the nth block of memory from now on (1: the next one), and with `lasting` all behind
    /// it. 0: none. A track takes one block, a filter two.
    void refuse_block(int n, bool lasting);

  private:
    void extract(const float (*rows)[6]);
    void predict();
    void associate(int n);
    Track* nearest(const Detection& detection, float& distance);
    void start_tracks();
    void update();
    void match(Track& track);
    /// False, with nothing changed, when memory is refused.
    bool confirm(Track& track);
    bool take_blocks(int count);
    static void correct(Track& track);
    /// True when the track has to go.
    bool miss(Track& track) const;
    void report(float (*output)[8]) const;

    int capacity_;
    Parameters parameters_;
    int next_id_ = 1;
    int until_refusal_ = 0;
    bool lasting_refusal_ = false;
    std::list<Track> tracks_;
    std::vector<Detection> detections_;
    /// Holds the motion model A, H, Q, R that the filters of all tracks refer to.
    Kalman motion_{8, 4};
};

} // namespace model

#endif
