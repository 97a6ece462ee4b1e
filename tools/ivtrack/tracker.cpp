#include "tracker.h"

#include "errors.h"

namespace ivtrack {
namespace {

iv::Tracker create(const iv::TrackerOptions& options) {
    try {
        return iv::Tracker::create(options);
    } catch (const std::invalid_argument& error) {
        throw BadInput(error.what());
    }
}

/// A box that shrank fast may be estimated inside out: what is left of it is its centre line.
void turn_right_way(double& low, double& high) {
    if (high < low) {
        low = high = (low + high) / 2;
    }
}

} // namespace

Tracker::Tracker(const iv::TrackerOptions& options) : tracker_(create(options)) {}

const std::vector<Track>& Tracker::process(const std::vector<Detection>& detections) {
    input_.clear();
    for (const Detection& detection : detections) {
        input_.push_back({detection.class_number, detection.box, detection.score});
    }
    const auto begin = std::chrono::steady_clock::now();
    const iv::Span<const iv::Track> tracks = tracker_.process(input_);
    busy_ += std::chrono::steady_clock::now() - begin;

    tracks_.clear();
    for (const iv::Track& track : tracks) {
        Box box = track.box;
        turn_right_way(box.left, box.right);
        turn_right_way(box.top, box.bottom);
        tracks_.push_back({track.id, track.class_number, box, track.score,
                           track.is_coasting()
                               ? COASTING
                               : detections[static_cast<std::size_t>(track.detection)].index});
    }
    return tracks_;
}

} // namespace ivtrack
