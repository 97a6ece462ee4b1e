// Plain records: what comes out of the input files and what goes into the output files.
#ifndef IVTRACK_DETECTIONS_H
#define IVTRACK_DETECTIONS_H

#include <cstdint>
#include <libiv.hpp>
#include <optional>
#include <vector>

namespace ivtrack {

/// Objects without a class are tracked as one class, and written as this one.
constexpr std::int64_t NO_CLASS = 1;

/// Corners in the caller's pixels.
using Box = iv::Box;

struct Detection {
    std::int64_t class_number;
    Box box;
    float score;
    std::int64_t index; ///< position in its frame, rows that were dropped included
};

/// What one frame of the input holds.
struct Frame {
    std::int64_t number;
    std::vector<Detection> detections;
    std::optional<double> width; ///< image width in pixels, if the frame itself says so
};

/// A track as reported in one frame.
struct Track {
    int id;
    std::int64_t class_number;
    Box box;
    float score;
    std::int64_t detection; ///< index of the detection matched in this frame, or COASTING
};

/// Stands for the detection of a track that missed this frame.
constexpr std::int64_t COASTING = -1;

} // namespace ivtrack

#endif
