// A tracker instance for tests, with access to its records and to the steps of a frame.
#ifndef LIBIV_TESTS_INSTANCE_H
#define LIBIV_TESTS_INSTANCE_H

#include <gtest/gtest.h>

#include <array>
#include <cstddef>
#include <vector>

#include "_libiv.h"
#include "iv_tracker.h"

namespace test {

/// One input row: class, left, top, right, bottom, score.
using Detection = std::array<float, 6>;
/// One output row: id, class, left, top, right, bottom, score, index of the input row.
using TrackRow = std::array<float, 8>;

/// A detection of class `c` from its centre.
inline Detection detection(float c, float x, float y, float w = 4, float h = 4, float s = 0.5f) {
    return {c, x - w * 0.5f, y - h * 0.5f, x + w * 0.5f, y + h * 0.5f, s};
}

struct Settings {
    int nmaxobjs = 8;
    float euc_thresh = 1;
    float iou_thresh = 0.25f;
    int fcnt_stable = 1;
    int fcnt_removal = 5;
    int ignore_class = 0;
};

/// What no row holds before the tracker writes it.
constexpr float UNWRITTEN = -77.0f;

class Instance {
  public:
    explicit Instance(const Settings& settings = Settings())
        : handle_(iv_tracker_create(64, 48, settings.nmaxobjs, settings.euc_thresh,
                                    settings.iou_thresh, settings.fcnt_stable,
                                    settings.fcnt_removal, settings.ignore_class)),
          settings_(settings) {}

    /// Lets all tracks go before the instance.
    ~Instance() {
        set(&Settings::fcnt_removal, 0);
        process({});
        EXPECT_EQ((*this)->track_count, 0);
        iv_tracker_release(handle_);
    }

    Instance(const Instance&) = delete;
    Instance& operator=(const Instance&) = delete;

    operator iv::internal::tracker_t*() const {
        return static_cast<iv::internal::tracker_t*>(handle_);
    }
    iv::internal::tracker_t* operator->() const { return *this; }

    /// Changes one tuning value of the running instance, unclamped.
    template <typename T>
    void set(T Settings::*value, T to) {
        settings_.*value = to;
        iv_tracker_set_params(handle_, settings_.euc_thresh, settings_.iou_thresh,
                              settings_.fcnt_stable, settings_.fcnt_removal,
                              settings_.ignore_class);
    }

    /// Runs one frame and returns the whole output, one row more than the capacity.
    std::vector<TrackRow> process_raw(std::vector<Detection> detections) {
        TrackRow unwritten;
        unwritten.fill(UNWRITTEN);
        std::vector<TrackRow> output(static_cast<std::size_t>(settings_.nmaxobjs) + 1, unwritten);
        iv_tracker_process(handle_, rows(detections), reinterpret_cast<float(*)[8]>(output.data()));
        return output;
    }

    /// Runs one frame and returns the rows in front of the terminator.
    std::vector<TrackRow> process(const std::vector<Detection>& detections) {
        std::vector<TrackRow> output = process_raw(detections);
        std::size_t count = 0;
        while (count + 1 < output.size() && output[count][0] != -1.0f) {
            ++count;
        }
        output.resize(count);
        return output;
    }

    /// Runs the first steps of a frame, extraction and association.
    void match(std::vector<Detection> detections) {
        iv::internal::tracker_extract(*this, rows(detections));
        iv::internal::tracker_match(*this);
    }

    /// The tracks, oldest first.
    std::vector<iv::internal::trk_obj_t*> tracks() const {
        std::vector<iv::internal::trk_obj_t*> result;
        iv::internal::list_head* head = &(*this)->track_list;
        for (iv::internal::list_head* link = head->next; link != head; link = link->next) {
            result.push_back(reinterpret_cast<iv::internal::trk_obj_t*>(link));
        }
        return result;
    }

    iv::internal::trk_obj_t* track(std::size_t index = 0) const { return tracks().at(index); }

  private:
    /// Ends the list with a row of class 0.
    static float (*rows(std::vector<Detection>& detections))[6] {
        detections.push_back({0, 1, 2, 3, 4, 5});
        return reinterpret_cast<float(*)[6]>(detections.data());
    }

    void* handle_;
    Settings settings_;
};

/// Ids of output rows, in order.
inline std::vector<int> ids(const std::vector<TrackRow>& rows) {
    std::vector<int> result;
    for (const TrackRow& row : rows) {
        result.push_back(static_cast<int>(row[0]));
    }
    return result;
}

} // namespace test

#endif
