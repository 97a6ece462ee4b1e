// iv::Tracker as this program uses it: what it refuses is bad input, and time is taken.
#ifndef IVTRACK_TRACKER_H
#define IVTRACK_TRACKER_H

#include <chrono>
#include <libiv.hpp>
#include <vector>

#include "detections.h"

namespace ivtrack {

class Tracker {
  public:
    /// Options that iv::Tracker does not take are BadInput.
    explicit Tracker(const iv::TrackerOptions& options);

    /// Takes one frame and returns the tracks to report.
    const std::vector<Track>& process(const std::vector<Detection>& detections);

    /// Detections of the latest frame that were above the capacity.
    std::size_t dropped() const { return tracker_.dropped(); }

    /// Time spent in the library.
    std::chrono::duration<double> busy() const { return busy_; }

  private:
    iv::Tracker tracker_;
    std::vector<iv::Detection> input_;
    std::vector<Track> tracks_;
    std::chrono::duration<double> busy_{};
};

} // namespace ivtrack

#endif
