// The account of a run, on standard error.
#ifndef IVTRACK_SUMMARY_H
#define IVTRACK_SUMMARY_H

#include <cstdint>
#include <string>
#include <vector>

#include "detections.h"

namespace ivtrack {

class Summary {
  public:
    std::int64_t frames = 0;     ///< frames of the input
    std::int64_t gap_frames = 0; ///< empty frames processed in their place where some are missing
    std::int64_t detections = 0; ///< that the tracker was given
    std::int64_t below_min_score = 0; ///< detections left out for their score
    std::int64_t rejected = 0;        ///< bad rows, lines and detections that were skipped
    std::int64_t over_capacity = 0;   ///< detections left out for want of room
    std::int64_t crowded_frames = 0;  ///< frames that this concerns
    double busy_seconds = 0;          ///< spent in the library
    std::string width;                ///< how wide the image is and who said so; empty: unknown
    std::string capacity;             ///< likewise, and so is the next
    std::string removal;

    void count_tracks(const std::vector<Track>& tracks);

    /// Lines "name: value", without those that have nothing to tell.
    std::string text() const;

  private:
    std::int64_t tracks_ = 0;
    std::int64_t matches_ = 0; ///< frames in which a track had a detection, over all tracks
    int next_id_ = 1;          ///< of the next new track
};

} // namespace ivtrack

#endif
