// The command track: from an input of either format through the library to an output of the same.
#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <limits>

#include "commands.h"
#include "errors.h"
#include "input.h"
#include "json_lines.h"
#include "mot.h"
#include "output.h"
#include "progress.h"
#include "seqinfo.h"
#include "summary.h"
#include "text.h"
#include "tracker.h"

namespace ivtrack {
namespace {

constexpr int FEWEST_REMOVAL_FRAMES = 5;
constexpr int SMALLEST_FILE_CAPACITY = 16;
constexpr int STREAM_CAPACITY = 1024;

/// A value that the caller may leave open, and who decided it.
template <typename Value>
struct Decision {
    Value value;
    std::string origin;
};

Decision<int> decide_removal(const TrackOptions& options, const SeqInfo& info) {
    if (options.removal) {
        return {*options.removal, "--removal"};
    }
    std::string origin = "--fps";
    std::optional<double> rate = options.fps;
    if (!rate) {
        rate = info.frame_rate();
        origin = fmt::format("frameRate of {}", info.name());
    }
    if (!rate) {
        return {FEWEST_REMOVAL_FRAMES, "default"};
    }
    const double half = std::min(std::floor(*rate / 2), 1e9);
    return {std::max(FEWEST_REMOVAL_FRAMES, static_cast<int>(half)), origin};
}

/// The image width, if anyone says it.
std::optional<Decision<double>> stated_width(const TrackOptions& options, const SeqInfo& info,
                                             const std::optional<double>& in_frames) {
    if (options.width) {
        return Decision<double>{*options.width, "--width"};
    }
    if (const std::optional<double> width = info.image_width()) {
        return Decision<double>{*width, fmt::format("imWidth of {}", info.name())};
    }
    if (in_frames) {
        return Decision<double>{*in_frames, "\"width\" of the input"};
    }
    return std::nullopt;
}

/// The largest right edge, or nothing without a detection.
std::optional<double> largest_right_edge(const std::vector<Frame>& frames) {
    std::optional<double> edge;
    for (const Frame& frame : frames) {
        for (const Detection& detection : frame.detections) {
            edge = edge ? std::max(*edge, detection.box.right) : detection.box.right;
        }
    }
    return edge;
}

Decision<double> decide_file_width(const TrackOptions& options, const SeqInfo& info,
                                   const Input& input, const std::vector<Frame>& frames) {
    const auto says_width = std::find_if(
        frames.begin(), frames.end(), [](const Frame& frame) { return frame.width.has_value(); });
    const std::optional<double> in_frames =
        says_width == frames.end() ? std::nullopt : says_width->width;
    if (const auto stated = stated_width(options, info, in_frames)) {
        return *stated;
    }
    const std::optional<double> edge = largest_right_edge(frames);
    if (!edge) {
        // Nothing will be scaled.
        return {options.units, "no detections"};
    }
    if (*edge <= 0) {
        throw BadInput(
            fmt::format("{}: {}: expected a largest right edge above 0; give the image "
                        "width with --width",
                        input.name(), *edge));
    }
    return {*edge, "largest right edge"};
}

Decision<double> decide_stream_width(const TrackOptions& options, const Input& input,
                                     const Frame& first) {
    const auto stated = stated_width(options, SeqInfo(), first.width);
    if (!stated) {
        throw BadInput(
            fmt::format("{}: frame {}: expected the image width in pixels; give it with --width, "
                        "or as \"width\" in the first JSON line",
                        input.name(), first.number));
    }
    return *stated;
}

Decision<int> decide_file_capacity(const TrackOptions& options, const std::vector<Frame>& frames) {
    if (options.max_objects) {
        return {*options.max_objects, "--max-objects"};
    }
    std::size_t fullest = 0;
    for (const Frame& frame : frames) {
        fullest = std::max(fullest, frame.detections.size());
    }
    const std::size_t twice = std::min(2 * fullest, std::size_t{MOST_OBJECTS});
    return {std::max(SMALLEST_FILE_CAPACITY, static_cast<int>(twice)), "default"};
}

Decision<int> decide_stream_capacity(const TrackOptions& options) {
    return options.max_objects ? Decision<int>{*options.max_objects, "--max-objects"}
                               : Decision<int>{STREAM_CAPACITY, "default"};
}

/// What differs between the two families of output.
struct Writer {
    std::string (*format)(std::int64_t frame, const std::vector<Track>& tracks);
    bool writes_gap_frames;
    Coasting coasting; ///< unless the caller says otherwise
};

Writer writer_of(Format format) {
    return format == Format::MOT ? Writer{format_mot, true, Coasting::DROP}
                                 : Writer{format_json, false, Coasting::REPORT};
}

void warn_of_crowd(const Summary& summary) {
    const std::string frames = summary.crowded_frames == 1
                                   ? "one frame"
                                   : fmt::format("{} frames", summary.crowded_frames);
    complain(fmt::format(
        "warning: {} detections dropped in {}, lowest scores first; the capacity is {}, "
        "--max-objects changes it",
        summary.over_capacity, frames, summary.capacity));
}

/// One tracker from the first frame to the last.
class Session {
  public:
    Session(const TrackOptions& options, Format format, Output& output, bool warns_at_once,
            const Decision<int>& removal, const Decision<double>& width,
            const Decision<int>& capacity)
        : writer_(writer_of(format)),
          output_(output),
          warns_at_once_(warns_at_once),
          drops_coasting_(options.coasting.value_or(writer_.coasting) == Coasting::DROP),
          min_score_(static_cast<float>(
              options.min_score.value_or(-std::numeric_limits<double>::infinity()))),
          longest_gap_(std::int64_t{std::max(removal.value, FEWEST_REMOVAL_FRAMES)} + 1),
          tracker_({width.value,
                    options.units,
                    capacity.value,
                    {static_cast<float>(options.distance), static_cast<float>(options.overlap),
                     options.stable, removal.value, options.ignore_class}}) {
        summary_.width =
            fmt::format("{} px ({}), {} units", width.value, width.origin, options.units);
        summary_.capacity = fmt::format("{} objects ({})", capacity.value, capacity.origin);
        summary_.removal = fmt::format("{} frames ({})", removal.value, removal.origin);
    }

    void process(Frame frame) {
        if (latest_) {
            process_gap(*latest_ + 1, frame.number);
        }
        latest_ = frame.number;
        drop_low_scores(frame);
        const std::vector<Track> tracks = step(frame.detections);
        count_dropped();
        ++summary_.frames;
        summary_.detections +=
            static_cast<std::int64_t>(frame.detections.size() - tracker_.dropped());
        output_.write(writer_.format(frame.number, tracks));
    }

    Summary summary() const {
        Summary summary = summary_;
        summary.busy_seconds = tracker_.busy().count();
        return summary;
    }

  private:
    /// Empty frames from `begin` until `end`, and no more of them than it takes to lose every
    /// track.
    void process_gap(std::int64_t begin, std::int64_t end) {
        const std::int64_t count = std::min(end - begin, longest_gap_);
        for (std::int64_t n = 0; n < count; ++n) {
            const std::vector<Track> tracks = step({});
            if (writer_.writes_gap_frames) {
                output_.write(writer_.format(begin + n, tracks));
            }
        }
        summary_.gap_frames += count;
    }

    std::vector<Track> step(const std::vector<Detection>& detections) {
        std::vector<Track> tracks = tracker_.process(detections);
        summary_.count_tracks(tracks);
        if (drops_coasting_) {
            tracks.erase(
                std::remove_if(tracks.begin(), tracks.end(),
                               [](const Track& track) { return track.detection == COASTING; }),
                tracks.end());
        }
        return tracks;
    }

    void drop_low_scores(Frame& frame) {
        std::vector<Detection>& detections = frame.detections;
        const std::size_t before = detections.size();
        const auto is_low = [this](const Detection& detection) {
            return detection.score < min_score_;
        };
        detections.erase(std::remove_if(detections.begin(), detections.end(), is_low),
                         detections.end());
        summary_.below_min_score += static_cast<std::int64_t>(before - detections.size());
    }

    void count_dropped() {
        if (tracker_.dropped() == 0) {
            return;
        }
        summary_.over_capacity += static_cast<std::int64_t>(tracker_.dropped());
        ++summary_.crowded_frames;
        // A stream may never end: it is told at once, and of the rest when it does.
        if (warns_at_once_ && summary_.crowded_frames == 1) {
            warn_of_crowd(summary_);
        }
    }

    Writer writer_;
    Output& output_;
    bool warns_at_once_;
    bool drops_coasting_;
    float min_score_; ///< single precision like the scores: 0.9 is not below 0.9
    std::int64_t longest_gap_;
    Tracker tracker_;
    Summary summary_;
    std::optional<std::int64_t> latest_; ///< number of the frame before
};

void finish(const TrackOptions& options, const Input& input, Summary summary, Output& output) {
    output.close();
    const bool told = input.is_stream() && summary.crowded_frames == 1;
    if (summary.crowded_frames > 0 && !told) {
        warn_of_crowd(summary);
    }
    summary.rejected = input.rejected();
    if (!options.quiet) {
        std::fputs(summary.text().c_str(), stderr);
    }
}

void track_file(const TrackOptions& options, Format format, Input& input, FrameReader& reader) {
    std::vector<Frame> frames = reader.all();
    const SeqInfo info = SeqInfo::beside(options.input);
    const Decision<double> width = decide_file_width(options, info, input, frames);
    const Decision<int> removal = decide_removal(options, info);
    const Decision<int> capacity = decide_file_capacity(options, frames);

    // Opened only now, so that bad input leaves an earlier output as it was.
    Output output(options.output);
    Session session(options, format, output, false, removal, width, capacity);
    {
        Progress progress(!options.quiet && !output.is_terminal(), frames.size());
        for (std::size_t n = 0; n < frames.size(); ++n) {
            progress.update(n);
            session.process(std::move(frames[n]));
        }
    }
    finish(options, input, session.summary(), output);
}

void track_stream(const TrackOptions& options, Format format, Input& input, FrameReader& reader) {
    std::optional<Frame> frame = reader.next();
    if (!frame) {
        Output output(options.output);
        finish(options, input, Summary(), output);
        return;
    }
    const Decision<double> width = decide_stream_width(options, input, *frame);
    // Opened only now, as for a file: a stream that is refused leaves an earlier output as it was.
    Output output(options.output);
    Session session(options, format, output, true, decide_removal(options, SeqInfo()), width,
                    decide_stream_capacity(options));
    for (; frame; frame = reader.next()) {
        session.process(std::move(*frame));
    }
    finish(options, input, session.summary(), output);
}

} // namespace

void track(const TrackOptions& options) {
    Input input(options.input, options.skip_bad);
    refuse_same_file(options.input, options.output);
    const Format format = options.format.value_or(input.peek() == '{' ? Format::JSON : Format::MOT);
    const std::unique_ptr<FrameReader> reader =
        format == Format::MOT ? make_mot_reader(input)
                              : make_json_reader(input, options.width.has_value());
    if (input.is_stream()) {
        track_stream(options, format, input, *reader);
    } else {
        track_file(options, format, input, *reader);
    }
}

} // namespace ivtrack
