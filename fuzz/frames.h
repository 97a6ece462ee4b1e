// What holds of the frames that a reader of detections accepts, in either format.
#ifndef LIBIV_FUZZ_FRAMES_H
#define LIBIV_FUZZ_FRAMES_H

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "reader.h"

namespace fuzz {

/// How a reader of a format is made.
using MakeReader = std::function<std::unique_ptr<ivtrack::FrameReader>(ivtrack::Input&)>;

/// What comes of reading a text in one way.
struct Reading {
    std::vector<ivtrack::Frame> frames;
    std::int64_t rejected = 0;
    std::optional<std::int64_t> refused_line; ///< where the reader stopped
};

enum class Way { FILE, STREAM };

/// Reads the text and fails unless what is accepted keeps the reader's promises and what is refused
/// is told as it should be.
Reading read(std::string_view text, Way way, bool skip_bad, std::int64_t first_frame,
             const MakeReader& make);

/// Fails unless both ways gave the same.
void expect_same_frames(const std::vector<ivtrack::Frame>& expected,
                        const std::vector<ivtrack::Frame>& actual);

/// All detections of the frames.
std::size_t detection_count(const std::vector<ivtrack::Frame>& frames);

} // namespace fuzz

#endif
