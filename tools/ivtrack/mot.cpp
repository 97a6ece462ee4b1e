#include "mot.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <iterator>

#include "reader.h"
#include "text.h"

namespace ivtrack {
namespace {

// Columns of a row, counted from 0.
enum Column : std::size_t { FRAME, ID, LEFT, TOP, WIDTH, HEIGHT, CONFIDENCE, CLASS };
constexpr std::size_t FEWEST_COLUMNS = CONFIDENCE + 1;
// Rows of this many columns end either in a class and two fillers or in three coordinates.
constexpr std::size_t WORLD_ROW_COLUMNS = 10;
constexpr std::int64_t NO_CLASS_IN_FILE = -1;

using Columns = std::vector<std::string_view>;

double number(const Columns& columns, std::size_t column) {
    const std::optional<double> value = parse_number(columns[column]);
    if (!value) {
        throw BadValue{std::string(columns[column]),
                       fmt::format("a finite number in column {}", column + 1)};
    }
    return *value;
}

std::int64_t class_number(const Columns& columns) {
    if (columns.size() <= CLASS) {
        return NO_CLASS;
    }
    if (columns.size() == WORLD_ROW_COLUMNS &&
        (number(columns, CLASS + 1) != -1 || number(columns, CLASS + 2) != -1)) {
        return NO_CLASS;
    }
    const std::optional<std::int64_t> value = parse_integer(columns[CLASS]);
    if (!value) {
        // A fraction is one more coordinate. A whole number that is no integer here is a class that
        // cannot be kept.
        if (columns.size() == WORLD_ROW_COLUMNS && std::fmod(number(columns, CLASS), 1.0) != 0.0) {
            return NO_CLASS;
        }
        throw BadValue{std::string(columns[CLASS]), "a class (an integer) in column 8"};
    }
    return *value == NO_CLASS_IN_FILE ? NO_CLASS : *value;
}

Box parse_box(const Columns& columns) {
    for (const Column size : {WIDTH, HEIGHT}) {
        if (number(columns, size) < 0) {
            throw BadValue{std::string(columns[size]),
                           fmt::format("a {} of 0 or more", size == WIDTH ? "width" : "height")};
        }
    }
    const double left = number(columns, LEFT);
    const double top = number(columns, TOP);
    const Box box{left, top, left + number(columns, WIDTH), top + number(columns, HEIGHT)};
    check_box(box);
    return box;
}

class MotReader : public FrameReader {
  public:
    explicit MotReader(Input& input) : input_(input) {}

    std::optional<Frame> next() override {
        if (!pending_) {
            pending_ = next_row();
        }
        if (!pending_) {
            return std::nullopt;
        }
        Frame frame{pending_->frame, {}, std::nullopt};
        while (pending_ && pending_->frame == frame.number) {
            append(frame, *pending_);
            pending_ = next_row_from(frame.number);
        }
        return frame;
    }

    std::vector<Frame> all() override {
        std::vector<MotRow> rows;
        while (const std::optional<MotRow> row = next_row()) {
            rows.push_back(*row);
        }
        std::stable_sort(rows.begin(), rows.end(),
                         [](const MotRow& a, const MotRow& b) { return a.frame < b.frame; });
        std::vector<Frame> frames;
        for (const MotRow& row : rows) {
            if (frames.empty() || frames.back().number != row.frame) {
                frames.push_back(Frame{row.frame, {}, std::nullopt});
            }
            append(frames.back(), row);
        }
        return frames;
    }

  private:
    static void append(Frame& frame, const MotRow& row) {
        frame.detections.push_back(row.detection);
        frame.detections.back().index = static_cast<std::int64_t>(frame.detections.size()) - 1;
    }

    std::optional<MotRow> next_row() {
        while (input_.next_line(line_)) {
            try {
                return parse_mot_row(line_);
            } catch (const BadValue& bad) {
                input_.reject(bad);
            }
        }
        return std::nullopt;
    }

    /// The next row whose frame is not before `current`.
    std::optional<MotRow> next_row_from(std::int64_t current) {
        std::optional<MotRow> row = next_row();
        while (row && row->frame < current) {
            input_.reject(
                {fmt::format("{}", row->frame),
                 fmt::format("frame {} or a later one (a stream runs forward)", current)});
            row = next_row();
        }
        return row;
    }

    Input& input_;
    std::string line_;
    std::optional<MotRow> pending_; ///< first row of the next frame
};

} // namespace

MotRow parse_mot_row(std::string_view line) {
    const Columns columns = split_columns(line);
    if (columns.size() < FEWEST_COLUMNS) {
        throw BadValue{std::string(trim(line)),
                       fmt::format("at least {} columns: frame,id,left,top,width,height,conf",
                                   FEWEST_COLUMNS)};
    }
    const std::optional<std::int64_t> frame = parse_integer(columns[FRAME]);
    if (!frame || *frame < 1) {
        throw BadValue{std::string(columns[FRAME]), "a frame (an integer from 1) in column 1"};
    }
    MotRow row{*frame, number(columns, ID), {}};
    row.detection.box = parse_box(columns);
    row.detection.score = checked_score(number(columns, CONFIDENCE));
    row.detection.class_number = class_number(columns);
    for (std::size_t column = CLASS; column < columns.size(); ++column) {
        number(columns, column);
    }
    return row;
}

std::string format_mot(std::int64_t frame, const std::vector<Track>& tracks) {
    std::string text;
    for (const Track& track : tracks) {
        const Box& box = track.box;
        fmt::format_to(std::back_inserter(text), "{},{},{},{},{},{},{},{},-1,-1\n", frame, track.id,
                       written_coordinate(box.left), written_coordinate(box.top),
                       written_coordinate(box.right - box.left),
                       written_coordinate(box.bottom - box.top), track.score + 0.0f,
                       track.class_number);
    }
    return text;
}

std::unique_ptr<FrameReader> make_mot_reader(Input& input) {
    return std::make_unique<MotReader>(input);
}

} // namespace ivtrack
