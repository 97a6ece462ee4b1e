#include "summary.h"

#include <fmt/format.h>

#include <iterator>
#include <utility>

namespace ivtrack {
namespace {

// Ids start again at 1 after this one.
constexpr int LAST_ID = 1048574;

double ratio(std::int64_t sum, double count) {
    return count > 0 ? static_cast<double>(sum) / count : 0.0;
}

} // namespace

void Summary::count_tracks(const std::vector<Track>& tracks) {
    for (const Track& track : tracks) {
        // Ids are given in sequence, and a track is reported in the frame that gives it its id.
        if (track.id == next_id_) {
            ++tracks_;
            next_id_ = track.id == LAST_ID ? 1 : track.id + 1;
        }
        matches_ += track.detection != COASTING;
    }
}

std::string Summary::text() const {
    std::string text;
    const auto line = [&text](const char* name, const std::string& value) {
        fmt::format_to(std::back_inserter(text), "{}: {}\n", name, value);
    };
    const auto line_if_any = [&line](const char* name, std::int64_t count,
                                     const std::string& value) {
        if (count > 0) {
            line(name, value);
        }
    };
    line("frames", fmt::format("{}", frames));
    line_if_any("empty frames in gaps", gap_frames, fmt::format("{}", gap_frames));
    line("detections", fmt::format("{}", detections));
    line_if_any("below --min-score", below_min_score, fmt::format("{}", below_min_score));
    line_if_any("skipped as bad", rejected, fmt::format("{}", rejected));
    line_if_any("dropped above the capacity", over_capacity,
                fmt::format("{} detections in {} frames", over_capacity, crowded_frames));
    line("tracks", fmt::format("{}", tracks_));
    line("mean track length",
         fmt::format("{:.1f} frames", ratio(matches_, static_cast<double>(tracks_))));
    line("speed",
         fmt::format("{:.0f} frames/s in the library", ratio(frames + gap_frames, busy_seconds)));
    for (const auto& [name, value] :
         {std::pair("image width", width), {"capacity", capacity}, {"removal", removal}}) {
        if (!value.empty()) {
            line(name, value);
        }
    }
    return text;
}

} // namespace ivtrack
