#include "frames.h"

#include <gtest/gtest.h>

#include <cmath>

#include "errors.h"
#include "text_file.h"

namespace fuzz {
namespace {

using ivtrack::Box;
using ivtrack::Detection;
using ivtrack::Frame;

/// Far enough for any image, and what the library computes with stays finite.
constexpr double LARGEST_COORDINATE = 1e18;

void expect_usable(const Detection& detection) {
    const Box& box = detection.box;
    for (const double coordinate : {box.left, box.top, box.right, box.bottom}) {
        EXPECT_LE(std::fabs(coordinate), LARGEST_COORDINATE);
    }
    EXPECT_LE(box.left, box.right);
    EXPECT_LE(box.top, box.bottom);
    EXPECT_TRUE(std::isfinite(detection.score));
}

/// Numbers ascend, and so do the indices of each frame's detections.
void expect_usable(const std::vector<Frame>& frames, std::int64_t first_frame) {
    std::int64_t before = first_frame - 1;
    for (const Frame& frame : frames) {
        EXPECT_GT(frame.number, before);
        before = frame.number;
        std::int64_t index = -1;
        for (const Detection& detection : frame.detections) {
            EXPECT_GT(detection.index, index);
            index = detection.index;
            expect_usable(detection);
        }
        if (frame.width) {
            EXPECT_TRUE(*frame.width >= 1 && *frame.width <= 1e9);
        }
    }
}

std::vector<Frame> all_of_stream(ivtrack::FrameReader& reader) {
    std::vector<Frame> frames;
    while (std::optional<Frame> frame = reader.next()) {
        frames.push_back(std::move(*frame));
    }
    return frames;
}

} // namespace

Reading read(std::string_view text, Way way, bool skip_bad, std::int64_t first_frame,
             const MakeReader& make) {
    Reading reading;
    const TextFile file(way == Way::FILE ? text : std::string_view());
    const StandardInput standard_input(way == Way::STREAM ? text : std::string_view());
    const std::string path = way == Way::FILE ? file.path() : "-";
    ivtrack::Input input(path, skip_bad);
    const auto refusal = refusal_of<ivtrack::BadInput>([&] {
        const auto reader = make(input);
        reading.frames = way == Way::FILE ? reader->all() : all_of_stream(*reader);
    });
    reading.rejected = input.rejected();
    if (refusal) {
        EXPECT_FALSE(skip_bad) << *refusal;
        reading.refused_line = expect_located_message(*refusal, input.name(), text);
    }
    if (!skip_bad) {
        EXPECT_EQ(reading.rejected, 0);
    }
    expect_usable(reading.frames, first_frame);
    return reading;
}

void expect_same_frames(const std::vector<Frame>& expected, const std::vector<Frame>& actual) {
    ASSERT_EQ(expected.size(), actual.size());
    for (std::size_t i = 0; i < expected.size(); ++i) {
        ASSERT_EQ(expected[i].number, actual[i].number);
        ASSERT_EQ(expected[i].width, actual[i].width);
        ASSERT_EQ(expected[i].detections.size(), actual[i].detections.size());
        for (std::size_t n = 0; n < expected[i].detections.size(); ++n) {
            const Detection& a = expected[i].detections[n];
            const Detection& b = actual[i].detections[n];
            ASSERT_EQ(a.class_number, b.class_number);
            ASSERT_EQ(a.box.left, b.box.left);
            ASSERT_EQ(a.box.top, b.box.top);
            ASSERT_EQ(a.box.right, b.box.right);
            ASSERT_EQ(a.box.bottom, b.box.bottom);
            ASSERT_EQ(a.score, b.score);
            ASSERT_EQ(a.index, b.index);
        }
    }
}

std::size_t detection_count(const std::vector<Frame>& frames) {
    std::size_t count = 0;
    for (const Frame& frame : frames) {
        count += frame.detections.size();
    }
    return count;
}

} // namespace fuzz
