// The command line.
#ifndef IVTRACK_OPTIONS_H
#define IVTRACK_OPTIONS_H

#include <cstdint>
#include <optional>
#include <string>
#include <variant>

#include "reader.h"

namespace ivtrack {

enum class Coasting { REPORT, DROP };

struct TrackOptions {
    std::string input;
    std::string output = "-";
    std::optional<Format> format;
    double distance = 1.0;
    double overlap = 0.1;
    int stable = 3;
    std::optional<int> removal;
    bool ignore_class = false;
    std::optional<int> max_objects;
    double units = 64;
    std::optional<double> width;
    std::optional<double> fps;
    std::optional<double> min_score;
    std::optional<Coasting> coasting;
    bool skip_bad = false;
    bool quiet = false;
};

struct SimulateOptions {
    std::string folder;
    int frames = 200;
    int objects = 8;
    std::uint64_t seed = 1;
    int width = 1280;
    int height = 720;
    int fps = 25;
    double miss = 0.05;
    double false_alarms = 0.1;
    double jitter = 0.02;
};

struct DrawOptions {
    std::string input;
    std::string output = "-";
    std::optional<double> width;
    std::optional<double> height;
};

/// Those of the command that was given.
using Options = std::variant<TrackOptions, SimulateOptions, DrawOptions>;

/// The most that --max-objects takes, and that a file's own capacity grows to.
constexpr int MOST_OBJECTS = 1000000;

/// Reads the command line. Nothing where it asks for help or the version, which is then printed.
/// Throws BadInput where it is wrong.
std::optional<Options> parse(int argc, char** argv);

} // namespace ivtrack

#endif
