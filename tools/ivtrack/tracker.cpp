#include "tracker.h"

#include <fmt/format.h>
#include <libiv.h>

#include <new>

#include "errors.h"

namespace ivtrack {
namespace {

// With coordinates up to 1e18 pixels, factors in this range stay far inside single precision.
constexpr double SMALLEST_FACTOR = 1e-12;
constexpr double LARGEST_FACTOR = 1e12;

// Above this, not every integer is a float.
constexpr std::size_t MOST_CLASSES = 1 << 24;

// The library stores the image size and computes nothing with it.
constexpr int IMAGE_SIZE = 0;

/// A box that shrank fast may be estimated inside out: what is left of it is its centre line.
void turn_right_way(double& low, double& high) {
    if (high < low) {
        low = high = (low + high) / 2;
    }
}

} // namespace

Scale::Scale(double units, double width) : factor_(units / width) {
    if (!(factor_ >= SMALLEST_FACTOR && factor_ <= LARGEST_FACTOR)) {
        throw BadInput(fmt::format(
            "{:g} units to an image width of {:g}: expected between {:g} and {:g} units a pixel",
            units, width, SMALLEST_FACTOR, LARGEST_FACTOR));
    }
}

float ClassTable::to_library(std::int64_t class_number) {
    const auto known = numbers_.find(class_number);
    if (known != numbers_.end()) {
        return known->second;
    }
    if (classes_.size() == MOST_CLASSES) {
        throw BadInput(fmt::format("class {}: expected at most {} different ones", class_number,
                                   MOST_CLASSES));
    }
    classes_.push_back(class_number);
    return numbers_[class_number] = static_cast<float>(classes_.size());
}

std::int64_t ClassTable::from_library(float number) const {
    return classes_[static_cast<std::size_t>(number) - 1];
}

Tracker::Tracker(const Tuning& tuning, const Scale& scale, int capacity)
    : tuning_(tuning),
      scale_(scale),
      capacity_(capacity),
      input_(std::make_unique<float[][6]>(static_cast<std::size_t>(capacity) + 1)),
      output_(std::make_unique<float[][8]>(static_cast<std::size_t>(capacity))),
      handle_(iv_tracker_create(IMAGE_SIZE, IMAGE_SIZE, capacity, tuning.distance, tuning.overlap,
                                tuning.stable, tuning.removal, tuning.ignore_class)) {
    if (!handle_) {
        throw std::bad_alloc();
    }
}

Tracker::~Tracker() {
    // Release leaves live tracks allocated: without patience, one empty frame lets all of them go.
    iv_tracker_set_params(handle_, tuning_.distance, tuning_.overlap, tuning_.stable, 0,
                          tuning_.ignore_class);
    input_[0][0] = 0.0f;
    iv_tracker_process(handle_, input_.get(), nullptr);
    iv_tracker_release(handle_);
}

const std::vector<Track>& Tracker::process(const std::vector<Detection>& detections) {
    write_input(detections);
    const auto begin = std::chrono::steady_clock::now();
    iv_tracker_process(handle_, input_.get(), output_.get());
    busy_ += std::chrono::steady_clock::now() - begin;
    read_output(detections);
    return tracks_;
}

void Tracker::write_input(const std::vector<Detection>& detections) {
    std::size_t n = 0;
    for (const Detection& detection : detections) {
        const Box& box = detection.box;
        float(&row)[6] = input_[n++];
        row[0] = classes_.to_library(detection.class_number);
        row[1] = scale_.to_units(box.left);
        row[2] = scale_.to_units(box.top);
        row[3] = scale_.to_units(box.right);
        row[4] = scale_.to_units(box.bottom);
        row[5] = detection.score;
    }
    input_[n][0] = 0.0f;
}

void Tracker::read_output(const std::vector<Detection>& detections) {
    tracks_.clear();
    for (std::size_t n = 0; n < static_cast<std::size_t>(capacity_); ++n) {
        const float(&row)[8] = output_[n];
        const int id = static_cast<int>(row[0]);
        if (id < 0) {
            break;
        }
        Box box{scale_.to_pixels(row[2]), scale_.to_pixels(row[3]), scale_.to_pixels(row[4]),
                scale_.to_pixels(row[5])};
        turn_right_way(box.left, box.right);
        turn_right_way(box.top, box.bottom);
        const int matched = static_cast<int>(row[7]);
        tracks_.push_back(
            Track{id, classes_.from_library(row[1]), box, row[6],
                  matched < 0 ? COASTING : detections[static_cast<std::size_t>(matched)].index});
    }
}

} // namespace ivtrack
