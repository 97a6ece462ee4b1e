#include "model/tracker.h"

#include <algorithm>
#include <climits>

namespace model {
namespace {

constexpr int LAST_ID = 1048574;
constexpr float SEARCH_LIMIT = 100.0f;

/// Where x, y, w and h stand in the state; each value's predecessor stands two entries further.
constexpr std::array<int, 4> STATE_OF_BOX = {0, 1, 4, 5};

void set(const Mat& mat, int row, int col, float value) {
    store(mat.data, std::ptrdiff_t{row} * mat.cols + col, value);
}

Box box_of_state(const Mat& x) {
    return {load<float>(x.data, STATE_OF_BOX[0]), load<float>(x.data, STATE_OF_BOX[1]),
            load<float>(x.data, STATE_OF_BOX[2]), load<float>(x.data, STATE_OF_BOX[3])};
}

/// Toward zero; out of range saturates, NaN gives 0.
int to_int(float value) {
    if (value != value) {
        return 0;
    }
    if (value >= 2147483648.0f) {
        return INT_MAX;
    }
    if (value <= -2147483648.0f) {
        return INT_MIN;
    }
    return static_cast<int>(value);
}

int one_more(int count) {
    return count == INT_MAX ? INT_MAX : count + 1;
}

float clamp_to_unit(float value) {
    return std::fmax(std::fmin(value, 1.0f), 0.0f);
}

/// How far two intervals, given by centre and length, run together; negative when they are apart.
float overlap(float x1, float w1, float x2, float w2) {
    const float left = std::fmax(x1 - w1 * 0.5f, x2 - w2 * 0.5f);
    const float right = std::fmin(x1 + w1 * 0.5f, x2 + w2 * 0.5f);
    return right - left;
}

} // namespace

float intersection_over_union(const Box& a, const Box& b) {
    const float w = overlap(a.x, a.w, b.x, b.w);
    const float h = overlap(a.y, a.h, b.y, b.h);
    const float common = w > 0.0f && h > 0.0f ? w * h : 0.0f;
    const float area_a = a.w * a.h;
    const float area_b = b.w * b.h;
    const float both = area_a + area_b;
    return common / (both - common);
}

Tracker::Tracker(int capacity, const Parameters& parameters)
    : capacity_(capacity),
      parameters_{clamp_to_unit(parameters.distance_gate), clamp_to_unit(parameters.overlap_gate),
                  std::max(parameters.stable, 1), std::max(parameters.removal, 1),
                  parameters.ignore_class} {
    for (int k = 0; k < 4; ++k) {
        const int now = STATE_OF_BOX[static_cast<std::size_t>(k)];
        const int before = now + 2;
        set(motion_.A, now, now, 2.0f);
        set(motion_.A, now, before, -1.0f);
        set(motion_.A, before, now, 1.0f);
        set(motion_.H, k, now, 1.0f);
        set(motion_.R, k, k, 1.0f);
    }
    for (int k = 0; k < 8; ++k) {
        set(motion_.Q, k, k, 0.1f);
    }
}

void Tracker::process(const float (*rows)[6], float (*output)[8]) {
    extract(rows);
    predict();
    for (int n = 0; n < static_cast<int>(detections_.size()); ++n) {
        associate(n);
    }
    start_tracks();
    update();
    if (output) {
        report(output);
    }
}

void Tracker::extract(const float (*rows)[6]) {
    detections_.clear();
    for (int n = 0; rows[n][0] != 0.0f && n < capacity_; ++n) {
        const float* row = rows[n];
        const Box box = {(row[1] + row[3]) * 0.5f, (row[2] + row[4]) * 0.5f, row[3] - row[1],
                         row[4] - row[2]};
        detections_.push_back({to_int(row[0]), box, row[5], nullptr, SEARCH_LIMIT});
    }
}

void Tracker::predict() {
    for (Track& track : tracks_) {
        track.match = -1;
        if (track.confirmed()) {
            track.filter->predict();
            track.predicted = box_of_state(track.filter->x_pre);
        } else {
            track.predicted = track.now;
        }
    }
}

/// The oldest of the nearest tracks within the search limit, with its squared distance.
Track* Tracker::nearest(const Detection& detection, float& distance) {
    Track* found = nullptr;
    for (Track& track : tracks_) {
        if (parameters_.ignore_class == 0 && track.category != detection.category) {
            continue;
        }
        const float dx = track.predicted.x - detection.box.x;
        const float dy = track.predicted.y - detection.box.y;
        const float dx2 = dx * dx;
        const float dy2 = dy * dy;
        const float d = dx2 + dy2;
        if (d < distance) {
            distance = d;
            found = &track;
        }
    }
    return found;
}

void Tracker::associate(int n) {
    Detection& detection = detections_[static_cast<std::size_t>(n)];
    Track* const track = nearest(detection, detection.distance);
    if (!track) {
        return;
    }
    const float gate = detection.distance <= parameters_.distance_gate
                           ? 1.0f
                           : intersection_over_union(track->predicted, detection.box);
    Detection* const holder =
        track->match < 0 ? nullptr : &detections_[static_cast<std::size_t>(track->match)];
    if (!(gate > parameters_.overlap_gate) ||
        (holder && !(holder->distance > detection.distance))) {
        detection.distance = 0.0f;
        return;
    }
    if (holder) {
        holder->track = nullptr;
        holder->distance = 0.0f;
    }
    detection.track = track;
    track->match = n;
}

void Tracker::start_tracks() {
    for (std::size_t n = 0; n < detections_.size(); ++n) {
        Detection& detection = detections_[n];
        if (detection.track || static_cast<int>(tracks_.size()) >= capacity_ || !take_blocks(1)) {
            continue;
        }
        Track& track = tracks_.emplace_back();
        track.category = detection.category;
        track.now = detection.box;
        track.score = detection.score;
        track.match = static_cast<int>(n);
        detection.track = &track;
    }
}

void Tracker::update() {
    for (auto track = tracks_.begin(); track != tracks_.end();) {
        if (track->match >= 0) {
            match(*track);
            ++track;
        } else if (miss(*track)) {
            track = tracks_.erase(track);
        } else {
            ++track;
        }
    }
}

void Tracker::match(Track& track) {
    const Detection& detection = detections_[static_cast<std::size_t>(track.match)];
    track.before = track.now;
    track.category = detection.category;
    track.now = detection.box;
    track.score = detection.score;
    track.misses = 0;
    const int counted = track.matches;
    const bool beyond_counting = counted == INT_MAX;
    track.matches = one_more(counted);
    const bool beyond = beyond_counting || track.matches > parameters_.stable;
    if (!beyond && track.matches < parameters_.stable) {
        return;
    }
    if (beyond && track.filter) {
        correct(track);
    } else if (!confirm(track)) {
        track.matches = counted;
    }
}

bool Tracker::confirm(Track& track) {
    if (!take_blocks(2)) {
        return false;
    }
    track.id = next_id_;
    next_id_ = next_id_ == LAST_ID ? 1 : next_id_ + 1;
    track.filter = std::make_unique<Kalman>(8, 4, motion_.A, motion_.H, motion_.Q, motion_.R);
    setidentity(track.filter->P_post);
    const std::array<float, 4> now = {track.now.x, track.now.y, track.now.w, track.now.h};
    const std::array<float, 4> before = {track.before.x, track.before.y, track.before.w,
                                         track.before.h};
    for (std::size_t k = 0; k < 4; ++k) {
        set(track.filter->x_post, STATE_OF_BOX[k], 0, now[k]);
        set(track.filter->x_post, STATE_OF_BOX[k] + 2, 0, before[k]);
    }
    return true;
}

void Tracker::refuse_block(int n, bool lasting) {
    until_refusal_ = n;
    lasting_refusal_ = lasting;
}

bool Tracker::take_blocks(int count) {
    for (; count > 0; --count) {
        if (until_refusal_ == 1) {
            until_refusal_ = lasting_refusal_ ? 1 : 0;
            return false;
        }
        until_refusal_ -= until_refusal_ > 0;
    }
    return true;
}

void Tracker::correct(Track& track) {
    track.observed = {track.now.x, track.now.y, track.now.w, track.now.h};
    unsigned char bytes[sizeof track.observed];
    std::memcpy(bytes, track.observed.data(), sizeof bytes);
    track.filter->correct(header(F32, 4, 1, bytes));
    track.now = box_of_state(track.filter->x_post);
}

bool Tracker::miss(Track& track) const {
    const bool beyond_counting = track.misses == INT_MAX;
    track.misses = one_more(track.misses);
    if (beyond_counting || track.misses > parameters_.removal) {
        return true;
    }
    if (track.confirmed()) {
        return false;
    }
    if (track.misses == 4 || track.misses == 5) {
        track.matches = 0;
    }
    return track.misses > 5;
}

void Tracker::report(float (*output)[8]) const {
    int n = 0;
    for (const Track& track : tracks_) {
        if (!track.confirmed() || track.misses >= 3) {
            continue;
        }
        const Box& box = track.now;
        const std::array<float, 8> row = {static_cast<float>(track.id),
                                          static_cast<float>(track.category),
                                          box.x - box.w * 0.5f,
                                          box.y - box.h * 0.5f,
                                          box.x + box.w * 0.5f,
                                          box.y + box.h * 0.5f,
                                          track.score,
                                          static_cast<float>(track.match)};
        std::copy(row.begin(), row.end(), output[n]);
        if (++n == capacity_) {
            return;
        }
    }
    if (n < capacity_) {
        output[n][0] = -1.0f;
    }
}

} // namespace model
