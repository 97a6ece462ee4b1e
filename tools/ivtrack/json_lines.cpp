#include "json_lines.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <iterator>
#include <limits>
#include <nlohmann/json.hpp>
#include <unordered_set>

#include "reader.h"
#include "text.h"

namespace ivtrack {
namespace {

using nlohmann::json;

/// The piece of a line around the byte at which it stops being JSON.
std::string around(const std::string& line, std::size_t byte) {
    constexpr std::size_t BEFORE = 20;
    constexpr std::size_t LENGTH = 40;
    const std::size_t begin = std::min(byte > BEFORE ? byte - BEFORE : 0, line.size());
    return line.substr(begin, LENGTH);
}

json parse_object(const std::string& line) {
    constexpr const char* EXPECTED = "one JSON object a line, with \"frame\" and \"detections\"";
    // Printing a value needs stack for each of its levels.
    static constexpr int DEEPEST = 100;
    const auto check_depth = [&line](int depth, json::parse_event_t, const json&) {
        if (depth > DEEPEST) {
            throw BadValue{line, fmt::format("at most {} levels of nesting", DEEPEST)};
        }
        return true;
    };
    try {
        json object = json::parse(line, check_depth);
        if (!object.is_object()) {
            throw BadValue{line, EXPECTED};
        }
        return object;
    } catch (const json::parse_error& error) {
        throw BadValue{around(line, error.byte), EXPECTED};
    } catch (const json::exception&) {
        throw BadValue{line, "numbers that double precision can hold"};
    }
}

/// Text of a value for a message. Strings may hold any bytes, so they are replaced, not refused.
std::string text_of(const json& value) {
    return value.dump(-1, ' ', false, json::error_handler_t::replace);
}

const json& value_of(const json& object, const char* key, const std::string& expected) {
    const auto found = object.find(key);
    if (found == object.end()) {
        throw BadValue{text_of(object), expected};
    }
    return *found;
}

std::int64_t integer(const json& value, const std::string& expected) {
    const bool too_large =
        value.is_number_unsigned() &&
        value.get<std::uint64_t>() > std::uint64_t{std::numeric_limits<std::int64_t>::max()};
    if (!value.is_number_integer() || too_large) {
        throw BadValue{text_of(value), expected};
    }
    return value.get<std::int64_t>();
}

double number(const json& value, const std::string& expected) {
    if (!value.is_number()) {
        throw BadValue{text_of(value), expected};
    }
    return value.get<double>();
}

Box parse_box(const json& detection) {
    constexpr const char* EXPECTED = "\"box\" of four numbers [x1,y1,x2,y2]";
    const json& value = value_of(detection, "box", EXPECTED);
    if (!value.is_array() || value.size() != 4) {
        throw BadValue{text_of(value), EXPECTED};
    }
    const Box box{number(value[0], EXPECTED), number(value[1], EXPECTED),
                  number(value[2], EXPECTED), number(value[3], EXPECTED)};
    check_box(box);
    return box;
}

Detection parse_detection(const json& value, std::int64_t index) {
    if (!value.is_object()) {
        throw BadValue{text_of(value), "a detection: an object with \"box\" and \"score\""};
    }
    constexpr const char* SCORE = "\"score\", a number";
    Detection detection{NO_CLASS, parse_box(value), 0.0f, index};
    detection.score = checked_score(number(value_of(value, "score", SCORE), SCORE));
    if (value.contains("class")) {
        detection.class_number = integer(value["class"], "\"class\", an integer");
    }
    return detection;
}

class JsonReader : public FrameReader {
  public:
    JsonReader(Input& input, bool width_given) : input_(input), width_given_(width_given) {}

    std::optional<Frame> next() override {
        return read([this](std::int64_t number) {
            if (latest_ && number < *latest_) {
                throw BadValue{fmt::format("{}", number),
                               fmt::format("a frame after {} (a stream runs forward)", *latest_)};
            }
            if (latest_ && number == *latest_) {
                throw_repeated(number);
            }
            latest_ = number;
        });
    }

    std::vector<Frame> all() override {
        std::vector<Frame> frames;
        std::unordered_set<std::int64_t> numbers;
        const auto check = [&numbers](std::int64_t number) {
            if (!numbers.insert(number).second) {
                throw_repeated(number);
            }
        };
        while (std::optional<Frame> frame = read(check)) {
            frames.push_back(std::move(*frame));
        }
        std::stable_sort(frames.begin(), frames.end(),
                         [](const Frame& a, const Frame& b) { return a.number < b.number; });
        return frames;
    }

  private:
    [[noreturn]] static void throw_repeated(std::int64_t number) {
        throw BadValue{fmt::format("{}", number), "one line a frame, and this frame came before"};
    }

    /// The next frame that can be used; `check_number` has the last word on whether it is one.
    template <typename CheckNumber>
    std::optional<Frame> read(CheckNumber check_number) {
        while (input_.next_line(line_)) {
            try {
                const json object = parse_object(line_);
                Frame frame = parse_head(object);
                constexpr const char* DETECTIONS = "\"detections\", an array";
                const json& detections = value_of(object, "detections", DETECTIONS);
                if (!detections.is_array()) {
                    throw BadValue{text_of(detections), DETECTIONS};
                }
                check_number(frame.number);
                width_ = frame.width ? frame.width : width_;
                append_detections(frame, detections);
                return frame;
            } catch (const BadValue& bad) {
                input_.reject(bad);
            }
        }
        return std::nullopt;
    }

    Frame parse_head(const json& object) const {
        constexpr const char* EXPECTED = "\"frame\", an integer from 0";
        const json& value = value_of(object, "frame", EXPECTED);
        Frame frame{integer(value, EXPECTED), {}, std::nullopt};
        if (frame.number < 0) {
            throw BadValue{text_of(value), EXPECTED};
        }
        if (object.contains("width")) {
            const json& width = object["width"];
            const std::string expected = fmt::format("\"width\", {}", IMAGE_WIDTH);
            frame.width = number(width, expected);
            if (!is_image_width(*frame.width)) {
                throw BadValue{text_of(width), expected};
            }
            if (!width_given_ && width_ && *width_ != *frame.width) {
                throw BadValue{text_of(width),
                               fmt::format("the same width as before, {}", *width_)};
            }
        }
        return frame;
    }

    /// A bad detection is dropped alone: the frame is there all the same.
    void append_detections(Frame& frame, const json& detections) {
        for (std::size_t n = 0; n < detections.size(); ++n) {
            try {
                frame.detections.push_back(
                    parse_detection(detections[n], static_cast<std::int64_t>(n)));
            } catch (const BadValue& bad) {
                input_.reject(bad);
            }
        }
    }

    Input& input_;
    bool width_given_;
    std::string line_;
    std::optional<std::int64_t> latest_; ///< number of the frame before, in a stream
    std::optional<double> width_;        ///< as the frames so far say
};

} // namespace

std::string format_json(std::int64_t frame, const std::vector<Track>& tracks) {
    std::string text = fmt::format("{{\"frame\":{},\"tracks\":[", frame);
    const char* separator = "";
    for (const Track& track : tracks) {
        const Box& box = track.box;
        fmt::format_to(
            std::back_inserter(text),
            "{}{{\"id\":{},\"class\":{},\"box\":[{},{},{},{}],\"score\":{},\"detection\":{}}}",
            separator, track.id, track.class_number, written_coordinate(box.left),
            written_coordinate(box.top), written_coordinate(box.right),
            written_coordinate(box.bottom), track.score + 0.0f,
            track.detection == COASTING ? "null" : fmt::format("{}", track.detection));
        separator = ",";
    }
    return text + "]}\n";
}

std::unique_ptr<FrameReader> make_json_reader(Input& input, bool width_given) {
    return std::make_unique<JsonReader>(input, width_given);
}

} // namespace ivtrack
