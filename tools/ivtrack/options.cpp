#include "options.h"

#include <fmt/format.h>
#include <libiv.h>

#include <CLI/CLI.hpp>
#include <cfloat>
#include <cmath>
#include <limits>
#include <sstream>

#include "errors.h"
#include "output.h"
#include "reader.h"
#include "text.h"

namespace ivtrack {
namespace {

// The library's ready-made range check lets a NaN pass, so numbers are checked as text.
CLI::Validator number_that(const std::string& expected, bool (*holds)(double)) {
    return CLI::Validator(
        [expected, holds](std::string& text) {
            const std::optional<double> value = parse_number(text);
            return value && holds(*value)
                       ? std::string()
                       : fmt::format("{}: expected {}", in_quotes(text), expected);
        },
        "");
}

CLI::Validator fraction() {
    return number_that("a number from 0 to 1", [](double x) { return x >= 0 && x <= 1; });
}

CLI::Validator positive() {
    return number_that("a number above 0, at most 1e9", [](double x) { return x > 0 && x <= 1e9; });
}

CLI::Validator image_width() {
    return number_that(IMAGE_WIDTH, is_image_width);
}

CLI::Validator score() {
    return number_that("a number that single precision can hold",
                       [](double x) { return std::fabs(x) <= static_cast<double>(FLT_MAX); });
}

CLI::Validator integer_from(std::int64_t low, std::int64_t high) {
    return CLI::Validator(
        [low, high](std::string& text) {
            const std::optional<std::int64_t> value = parse_integer(text);
            return value && *value >= low && *value <= high
                       ? std::string()
                       : fmt::format("{}: expected an integer from {} to {}", in_quotes(text), low,
                                     high);
        },
        "");
}

void declare_tuning(CLI::App& command, TrackOptions& options) {
    constexpr int INT_LIMIT = std::numeric_limits<int>::max();
    command
        .add_option(
            "--distance", options.distance,
            "Distance gate (euc_thresh): greatest squared distance of centres, in units "
            "squared, at which a detection continues a track without overlapping it; 0 to 1")
        ->check(fraction())
        ->capture_default_str();
    command
        .add_option("--overlap", options.overlap,
                    "Overlap gate (iou_thresh): beyond the distance gate, intersection over union "
                    "must be above this; 0 to 1, and 1 rejects everything")
        ->check(fraction())
        ->capture_default_str();
    command
        .add_option("--stable", options.stable,
                    "Matched frames (fcnt_stable) after which a track is confirmed and gets its id")
        ->check(integer_from(1, INT_LIMIT))
        ->capture_default_str();
    command
        .add_option("--removal", options.removal,
                    "Missed frames in a row (fcnt_removal) that a track survives [half the frame "
                    "rate, at least 5]")
        ->check(integer_from(1, INT_LIMIT));
    command.add_flag("--ignore-class", options.ignore_class,
                     "A detection may continue a track of another class (ignore_class)");
    command
        .add_option("--max-objects", options.max_objects,
                    "Capacity (nmaxobjs): detections a frame and tracks alive; of more detections "
                    "the highest scores are kept [a file: twice its fullest frame, at least 16; a "
                    "stream: 1024]")
        ->check(integer_from(1, MOST_OBJECTS));
}

void declare_input(CLI::App& command, TrackOptions& options) {
    command
        .add_option_function<std::string>(
            "--format",
            [&options](const std::string& name) {
                options.format = name == "mot" ? Format::MOT : Format::JSON;
            },
            "MOTChallenge text or JSON lines [what the first byte tells]")
        ->check(CLI::IsMember({"mot", "json"}));
    command
        .add_option("--units", options.units,
                    "Image width in the library's units. Nothing is associated across 10 units or "
                    "more, so this scale is the first thing to tune; 16 to 100 suit most scenes")
        ->check(positive())
        ->capture_default_str();
    command
        .add_option("--width", options.width,
                    "Image width in pixels [imWidth of a seqinfo.ini beside the file or one folder "
                    "up, \"width\" of JSON lines, or a file's largest right edge]")
        ->check(image_width());
    command
        .add_option("--fps", options.fps,
                    "Frames per second, for the default of --removal [frameRate of seqinfo.ini]")
        ->check(positive());
    command.add_option("--min-score", options.min_score, "Leave out detections with a lower score")
        ->check(score());
    command.add_flag("--skip-bad", options.skip_bad,
                     "Drop and count bad rows instead of ending with an error");
}

void declare_track(CLI::App& app, TrackOptions& options) {
    CLI::App& command = *app.add_subcommand("track", "Give detections identities");
    command
        .add_option("DET", options.input,
                    "Detections: MOTChallenge text or JSON lines; - for standard input, which is "
                    "answered frame by frame")
        ->required();
    command.add_option("-o,--output", options.output, "Where the tracks go; - for standard output")
        ->capture_default_str();
    declare_input(command, options);
    declare_tuning(command, options);
    command
        .add_option_function<std::string>(
            "--coasting",
            [&options](const std::string& name) {
                options.coasting = name == "drop" ? Coasting::DROP : Coasting::REPORT;
            },
            "What to do with the last box of a track that missed one or two frames [drop in "
            "MOTChallenge text, report in JSON lines]")
        ->check(CLI::IsMember({"report", "drop"}));
    command.add_flag("-q,--quiet", options.quiet,
                     "No summary and no progress bar; warnings remain");
}

void declare_simulate(CLI::App& app, SimulateOptions& options) {
    constexpr int MOST_FRAMES = 1000000;
    constexpr int MOST_PIXELS = 100000;
    CLI::App& command = *app.add_subcommand(
        "simulate", "Invent a scene: detections, ground truth and seqinfo.ini in a folder");
    command.add_option("DIR", options.folder, "Folder, made if need be; its files are replaced")
        ->required();
    command.add_option("--frames", options.frames, "Length")
        ->check(integer_from(1, MOST_FRAMES))
        ->capture_default_str();
    command.add_option("--objects", options.objects, "Objects in the scene at a time")
        ->check(integer_from(0, 1000))
        ->capture_default_str();
    command.add_option("--seed", options.seed, "The same seed gives the same scene everywhere")
        ->check(integer_from(0, std::numeric_limits<std::int64_t>::max()))
        ->capture_default_str();
    command.add_option("--width", options.width, "Image width in pixels")
        ->check(integer_from(16, MOST_PIXELS))
        ->capture_default_str();
    command.add_option("--height", options.height, "Image height in pixels")
        ->check(integer_from(16, MOST_PIXELS))
        ->capture_default_str();
    command.add_option("--fps", options.fps, "Frames per second")
        ->check(integer_from(1, 1000))
        ->capture_default_str();
    command.add_option("--miss", options.miss, "Probability that a visible object is not detected")
        ->check(fraction())
        ->capture_default_str();
    command
        .add_option("--false-alarms", options.false_alarms,
                    "Probability of a detection of nothing, per frame")
        ->check(fraction())
        ->capture_default_str();
    command
        .add_option("--jitter", options.jitter,
                    "Standard deviation of the edges of detected boxes, as a part of the box")
        ->check(fraction())
        ->capture_default_str();
}

void declare_draw(CLI::App& app, DrawOptions& options) {
    CLI::App& command =
        *app.add_subcommand("draw", "Draw the paths of tracks, or of a ground truth, as SVG");
    command.add_option("TRACKS", options.input, "MOTChallenge text with identities; - likewise")
        ->required();
    command.add_option("-o,--output", options.output, "Where the picture goes")
        ->capture_default_str();
    command.add_option("--width", options.width, "Image width in pixels [as far as the boxes go]")
        ->check(positive());
    command.add_option("--height", options.height, "Image height in pixels [likewise]")
        ->check(positive());
}

/// Help and version go to standard output.
void report(const CLI::App& app, const CLI::ParseError& error) {
    std::ostringstream out;
    std::ostringstream complaint;
    if (app.exit(error, out, complaint) != 0) {
        std::string text = complaint.str();
        text.pop_back(); // its last line ends
        throw BadInput(text);
    }
    Output("-").write(out.str());
}

} // namespace

std::optional<Options> parse(int argc, char** argv) {
    CLI::App app("Tracks objects: gives the detections of a video identities that last.",
                 "ivtrack");
    app.set_version_flag("--version", fmt::format("ivtrack {}.{}.{}", LIBIV_VERSION_MAJOR,
                                                  LIBIV_VERSION_MINOR, LIBIV_VERSION_PATCH));
    app.require_subcommand(1);
    app.footer(
        "Exit status: 0 done; 1 the system failed (open, read, write, memory); 2 wrong usage or "
        "bad input.");
    TrackOptions track;
    SimulateOptions simulate;
    DrawOptions draw;
    declare_track(app, track);
    declare_simulate(app, simulate);
    declare_draw(app, draw);
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        report(app, error);
        return std::nullopt;
    }
    if (app.got_subcommand("track")) {
        return track;
    }
    if (app.got_subcommand("simulate")) {
        return simulate;
    }
    return draw;
}

} // namespace ivtrack
