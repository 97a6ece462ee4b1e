// The library as this program hosts it: one instance, pixels and any class numbers outside.
#ifndef IVTRACK_TRACKER_H
#define IVTRACK_TRACKER_H

#include <chrono>
#include <cstdint>
#include <memory>
#include <unordered_map>
#include <vector>

#include "detections.h"

namespace ivtrack {

/// The tuning values of iv_tracker_create, in the library's units.
struct Tuning {
    float distance;
    float overlap;
    int stable;
    int removal;
    bool ignore_class;
};

/// One factor between the caller's pixels and the library's units, for x and y.
class Scale {
  public:
    /// A factor that is no use in single precision is BadInput.
    Scale(double units, double width);

    float to_units(double pixels) const { return static_cast<float>(pixels * factor_); }
    double to_pixels(float units) const { return static_cast<double>(units) / factor_; }

  private:
    double factor_;
};

/// Numbers classes 1, 2, 3, ... in order of appearance: in the library's input 0 ends the list, and
/// a float holds no large number exactly.
class ClassTable {
  public:
    float to_library(std::int64_t class_number);
    std::int64_t from_library(float number) const;

  private:
    std::unordered_map<std::int64_t, float> numbers_;
    std::vector<std::int64_t> classes_;
};

class Tracker {
  public:
    Tracker(const Tuning& tuning, const Scale& scale, int capacity);
    ~Tracker();
    Tracker(const Tracker&) = delete;
    Tracker& operator=(const Tracker&) = delete;

    /// Takes one frame of at most `capacity` detections and returns the tracks to report.
    const std::vector<Track>& process(const std::vector<Detection>& detections);

    /// Time spent in the library.
    std::chrono::duration<double> busy() const { return busy_; }

  private:
    void write_input(const std::vector<Detection>& detections);
    void read_output(const std::vector<Detection>& detections);

    Tuning tuning_;
    Scale scale_;
    int capacity_;
    ClassTable classes_;
    std::unique_ptr<float[][6]> input_;  ///< capacity + 1 rows: the last one ends a full list
    std::unique_ptr<float[][8]> output_; ///< capacity rows
    void* handle_;
    std::vector<Track> tracks_;
    std::chrono::duration<double> busy_{};
};

} // namespace ivtrack

#endif
