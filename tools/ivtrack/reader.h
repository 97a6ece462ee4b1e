// What a format of detections can do, whichever it is.
#ifndef IVTRACK_READER_H
#define IVTRACK_READER_H

#include <memory>
#include <optional>
#include <vector>

#include "detections.h"
#include "input.h"

namespace ivtrack {

enum class Format { MOT, JSON };

class FrameReader {
  public:
    virtual ~FrameReader() = default;

    /// The next frame of a stream, as soon as it is complete. Frames may only run forward.
    virtual std::optional<Frame> next() = 0;

    /// All frames of a file, sorted by number.
    virtual std::vector<Frame> all() = 0;
};

std::unique_ptr<FrameReader> make_mot_reader(Input& input);
/// With `width_given` the frames need not agree on the image width.
std::unique_ptr<FrameReader> make_json_reader(Input& input, bool width_given);

/// What an image width has to be, whoever states it.
constexpr const char* IMAGE_WIDTH = "an image width in pixels, from 1 to 1e9";
bool is_image_width(double pixels);

/// A box whose corners are in the wrong order, or too far out to be computed with, is a BadValue.
void check_box(const Box& box);

/// A score that single precision cannot hold is a BadValue.
float checked_score(double score);

} // namespace ivtrack

#endif
