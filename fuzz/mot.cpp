// The reader of MOTChallenge text: as a file and as a stream, strict and skipping.
#include "mot.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <sstream>
#include <string>

#include "frames.h"
#include "targets.h"
#include "text.h"

namespace fuzz {
namespace {

using ivtrack::MotRow;

/// What the lines of a text are, each for itself.
struct Lines {
    std::vector<MotRow> rows;
    std::int64_t bad = 0;
    std::optional<std::int64_t> first_bad;
};

struct Column {
    std::string text;
    double value;
};

/// The columns of a row that was accepted: the C library reads a finite number in each.
std::vector<Column> columns_of(const std::string& line) {
    std::vector<Column> columns;
    std::istringstream stream(line + ",");
    std::string text;
    while (std::getline(stream, text, ',')) {
        text = ivtrack::trim(text);
        char* end = nullptr;
        columns.push_back({text, std::strtod(text.c_str(), &end)});
        EXPECT_EQ(end, text.c_str() + text.size()) << "column " << columns.size() << " of " << line;
        EXPECT_FALSE(text.empty()) << line;
        EXPECT_TRUE(std::isfinite(columns.back().value)) << line;
    }
    return columns;
}

bool is_integer(const std::string& text) {
    return text.find_first_not_of("-0123456789") == std::string::npos;
}

/// In rows of ten columns the last three are a class and two fillers of -1, or coordinates.
std::int64_t class_of(const std::vector<Column>& columns) {
    const bool filled = columns.size() == 10 && columns[8].value == -1 && columns[9].value == -1;
    if (columns.size() < 8 || (columns.size() == 10 && !filled) || !is_integer(columns[7].text)) {
        return ivtrack::NO_CLASS;
    }
    const std::int64_t number = std::strtoll(columns[7].text.c_str(), nullptr, 10);
    return number == -1 ? ivtrack::NO_CLASS : number;
}

void expect_same_row(const MotRow& row, const std::string& line) {
    const std::vector<Column> columns = columns_of(line);
    ASSERT_GE(columns.size(), 7u) << line;
    const auto value = [&columns](std::size_t n) { return columns[n].value; };
    const ivtrack::Box& box = row.detection.box;
    EXPECT_EQ(row.frame, std::strtoll(columns[0].text.c_str(), nullptr, 10)) << line;
    EXPECT_EQ(row.id, value(1)) << line;
    EXPECT_EQ(box.left, value(2)) << line;
    EXPECT_EQ(box.top, value(3)) << line;
    EXPECT_EQ(box.right, value(2) + value(4)) << line;
    EXPECT_EQ(box.bottom, value(3) + value(5)) << line;
    EXPECT_EQ(row.detection.score, static_cast<float>(value(6))) << line;
    EXPECT_EQ(row.detection.class_number, class_of(columns)) << line;
}

Lines lines_of(std::string_view text) {
    Lines lines;
    std::istringstream stream{std::string(text)};
    std::string line;
    for (std::int64_t number = 1; std::getline(stream, line); ++number) {
        if (ivtrack::trim(line).empty()) {
            continue;
        }
        try {
            lines.rows.push_back(ivtrack::parse_mot_row(line));
            expect_same_row(lines.rows.back(), line);
        } catch (const ivtrack::BadValue&) {
            ++lines.bad;
            lines.first_bad = lines.first_bad.value_or(number);
        }
    }
    return lines;
}

Reading read_mot(std::string_view text, Way way, bool skip_bad) {
    Reading reading = read(text, way, skip_bad, 1, ivtrack::make_mot_reader);
    for (const ivtrack::Frame& frame : reading.frames) {
        EXPECT_FALSE(frame.detections.empty());
        EXPECT_EQ(frame.detections.back().index + 1,
                  static_cast<std::int64_t>(frame.detections.size()));
    }
    return reading;
}

} // namespace

void mot(Bytes in) {
    const std::string_view text = in.text();
    const Lines lines = lines_of(text);

    const Reading strict = read_mot(text, Way::FILE, false);
    EXPECT_EQ(strict.refused_line, lines.first_bad);

    const Reading skipping = read_mot(text, Way::FILE, true);
    EXPECT_EQ(skipping.rejected, lines.bad);
    EXPECT_EQ(detection_count(skipping.frames), lines.rows.size());
    if (!strict.refused_line) {
        expect_same_frames(strict.frames, skipping.frames);
    }

    // A stream also refuses what runs backwards; what it takes is what a file takes.
    const Reading stream = read_mot(text, Way::STREAM, false);
    EXPECT_LE(stream.refused_line.value_or(INT64_MAX), lines.first_bad.value_or(INT64_MAX));
    const Reading skipping_stream = read_mot(text, Way::STREAM, true);
    EXPECT_EQ(detection_count(skipping_stream.frames) +
                  static_cast<std::size_t>(skipping_stream.rejected - lines.bad),
              lines.rows.size());
    if (skipping_stream.rejected == lines.bad) {
        expect_same_frames(skipping.frames, skipping_stream.frames);
    }
    if (!stream.refused_line) {
        expect_same_frames(strict.frames, stream.frames);
    }
}

} // namespace fuzz
