// The reader of JSON lines: as a file and as a stream, strict and skipping.
#include <gtest/gtest.h>

#include <map>
#include <nlohmann/json.hpp>
#include <sstream>
#include <string>

#include "frames.h"
#include "targets.h"

namespace fuzz {
namespace {

Reading read_json(std::string_view text, Way way, bool skip_bad, bool width_given) {
    Reading reading = read(text, way, skip_bad, 0, [width_given](ivtrack::Input& input) {
        return ivtrack::make_json_reader(input, width_given);
    });
    std::optional<double> width;
    for (const ivtrack::Frame& frame : reading.frames) {
        if (frame.width && !width_given) {
            EXPECT_EQ(width.value_or(*frame.width), *frame.width);
            width = frame.width;
        }
    }
    return reading;
}

/// What a frame that was accepted holds is what its line says.
void expect_same_frame(const ivtrack::Frame& frame, const nlohmann::json& line) {
    const auto text = [](const nlohmann::json& value) { return value.dump(); };
    EXPECT_EQ(text(line["frame"]), std::to_string(frame.number));
    const nlohmann::json& detections = line["detections"];
    ASSERT_EQ(detections.size(), frame.detections.size());
    for (std::size_t n = 0; n < frame.detections.size(); ++n) {
        const nlohmann::json& said = detections[n];
        const ivtrack::Detection& detection = frame.detections[n];
        const ivtrack::Box& box = detection.box;
        const std::string number = std::to_string(detection.class_number);
        EXPECT_EQ(said.contains("class") ? text(said["class"]) : "1", number);
        const double corners[] = {box.left, box.top, box.right, box.bottom};
        for (std::size_t k = 0; k < 4; ++k) {
            EXPECT_EQ(said["box"].at(k).get<double>(), corners[k]);
        }
        EXPECT_EQ(static_cast<float>(said["score"].get<double>()), detection.score);
        EXPECT_EQ(detection.index, static_cast<std::int64_t>(n));
    }
}

/// Of a text without a bad line.
void expect_same_frames(const std::vector<ivtrack::Frame>& frames, std::string_view text) {
    std::map<std::int64_t, nlohmann::json> lines;
    std::istringstream stream{std::string(text)};
    for (std::string line; std::getline(stream, line);) {
        if (line.find_first_not_of(" \t\r") != std::string::npos) {
            nlohmann::json object = nlohmann::json::parse(line);
            const auto number = object["frame"].get<std::int64_t>();
            lines[number] = std::move(object);
        }
    }
    ASSERT_EQ(lines.size(), frames.size());
    for (const ivtrack::Frame& frame : frames) {
        expect_same_frame(frame, lines[frame.number]);
    }
}

} // namespace

void json(Bytes in) {
    const std::string_view text = in.text();
    const Reading strict = read_json(text, Way::FILE, false, false);
    const Reading skipping = read_json(text, Way::FILE, true, false);
    EXPECT_EQ(strict.refused_line.has_value(), skipping.rejected > 0);
    if (!strict.refused_line) {
        expect_same_frames(strict.frames, text);
        expect_same_frames(strict.frames, skipping.frames);
        // A given width takes nothing away.
        expect_same_frames(strict.frames, read_json(text, Way::FILE, false, true).frames);
    }

    // A stream also refuses what runs backwards; what it takes is what a file takes.
    const Reading stream = read_json(text, Way::STREAM, false, false);
    EXPECT_LE(stream.refused_line.value_or(INT64_MAX), strict.refused_line.value_or(INT64_MAX));
    if (!stream.refused_line) {
        expect_same_frames(strict.frames, stream.frames);
    }
    const Reading skipping_stream = read_json(text, Way::STREAM, true, false);
    EXPECT_EQ(stream.refused_line.has_value(), skipping_stream.rejected > 0);
}

} // namespace fuzz
