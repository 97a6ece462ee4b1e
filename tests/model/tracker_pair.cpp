#include "model/tracker_pair.h"

#include <map>
#include <string>

#include "model/twin.h"
#include "support/bits.h"

namespace test {

using iv::internal::tracker_t;
using iv::internal::trk_obj_t;
using model::Track;

void TrackerPair::process(const Rows& rows, bool report, Events& events) {
    const std::size_t size = static_cast<std::size_t>(capacity_) * 8 * sizeof(float);
    Guarded expected(size);
    Guarded actual(size);
    const auto output = [&](Guarded& block) {
        return report ? reinterpret_cast<Output>(block.data()) : nullptr;
    };
    const auto input = reinterpret_cast<const float(*)[6]>(rows.data());
    const int next_id = model_.next_id();
    std::map<const Track*, int> ids;
    for (const Track& track : model_.tracks()) {
        ids[&track] = track.id;
    }
    model_.process(input, output(expected));
    library_.process(input, output(actual));
    compare_rows(expected, actual);
    compare_state();
    if (report) {
        count_rows(expected, events);
    }
    events.confirmations += model_.next_id() - next_id;
    events.full_rings += static_cast<int>(model_.tracks().size()) == capacity_;
    for (const Track& track : model_.tracks()) {
        const auto before = ids.find(&track);
        events.second_confirmations +=
            before != ids.end() && before->second >= 0 && before->second != track.id;
    }
    for (const model::Detection& detection : model_.detections()) {
        const bool associated = detection.track && ids.count(detection.track) > 0;
        events.turned_away += detection.distance == 0.0f && !associated;
    }
}

/// Bit for bit, columns and rows that nobody writes included; a score is only copied.
void TrackerPair::compare_rows(const Guarded& expected, const Guarded& actual) const {
    for (int i = 0; i < capacity_ * 8; ++i) {
        const auto wanted = model::load<float>(expected.data(), i);
        const auto got = model::load<float>(actual.data(), i);
        const std::string place =
            "row " + std::to_string(i / 8) + ", column " + std::to_string(i % 8);
        if (i % 8 == 6) {
            ASSERT_PRED_FORMAT2(SameBits, wanted, got) << place;
        } else {
            ASSERT_PRED_FORMAT2(SameNumber, wanted, got) << place;
        }
    }
}

void TrackerPair::count_rows(const Guarded& output, Events& events) const {
    int n = 0;
    while (n < capacity_ && model::load<float>(output.data(), n * 8) != -1.0f) {
        events.coasting_rows += model::load<float>(output.data(), n * 8 + 7) == -1.0f;
        ++n;
    }
    events.rows += n;
    events.full_outputs += n == capacity_;
}

void TrackerPair::compare_state() {
    const tracker_t& record = library_.record();
    ASSERT_EQ(static_cast<int>(model_.tracks().size()), record.track_count);
    ASSERT_EQ(model_.next_id(), record.tid);
    ASSERT_EQ(static_cast<int>(model_.detections().size()), record.ncurobjs);
    const std::vector<trk_obj_t*> tracks = library_.tracks();
    ASSERT_EQ(model_.tracks().size(), tracks.size());
    std::size_t n = 0;
    for (const Track& expected : model_.tracks()) {
        SCOPED_TRACE("track " + std::to_string(n) + " of the ring");
        compare_track(expected, *tracks[n]);
        ++n;
    }
    compare_detections();
}

/// Which track each detection ended with, and the distance that is kept of it.
void TrackerPair::compare_detections() {
    const std::vector<trk_obj_t*> tracks = library_.tracks();
    for (std::size_t n = 0; n < model_.detections().size(); ++n) {
        SCOPED_TRACE("detection " + std::to_string(n));
        const model::Detection& detection = model_.detections()[n];
        const trk_obj_t* expected = nullptr;
        std::size_t place = 0;
        for (const Track& track : model_.tracks()) {
            expected = &track == detection.track ? tracks[place] : expected;
            ++place;
        }
        ASSERT_EQ(expected, library_.record().match_obj[n]);
        ASSERT_PRED_FORMAT2(SameNumber, detection.distance, library_.record().match_score[n]);
        const iv::internal::det_obj_t& actual = library_.record().cur_obj[n];
        ASSERT_EQ(detection.category, actual.c);
        ASSERT_PRED_FORMAT2(SameNumber, detection.box.x, actual.x);
        ASSERT_PRED_FORMAT2(SameNumber, detection.box.y, actual.y);
        ASSERT_PRED_FORMAT2(SameNumber, detection.box.w, actual.w);
        ASSERT_PRED_FORMAT2(SameNumber, detection.box.h, actual.h);
        ASSERT_PRED_FORMAT2(SameBits, detection.score, actual.s);
    }
}

namespace {

void compare_box(const model::Box& expected, float x, float y, float w, float h) {
    ASSERT_PRED_FORMAT2(SameNumber, expected.x, x);
    ASSERT_PRED_FORMAT2(SameNumber, expected.y, y);
    ASSERT_PRED_FORMAT2(SameNumber, expected.w, w);
    ASSERT_PRED_FORMAT2(SameNumber, expected.h, h);
}

} // namespace

void TrackerPair::compare_track(const Track& expected, const trk_obj_t& actual) {
    ASSERT_EQ(0, actual.state);
    ASSERT_EQ(expected.id, actual.id);
    ASSERT_EQ(expected.category, actual.c);
    ASSERT_EQ(expected.match, actual.match_idx);
    ASSERT_EQ(expected.misses, actual.miss_count);
    ASSERT_EQ(expected.matches, actual.match_count);
    ASSERT_PRED_FORMAT2(SameBits, expected.score, actual.s);
    compare_box(expected.now, actual.x, actual.y, actual.w, actual.h);
    compare_box(expected.before, actual.px, actual.py, actual.pw, actual.ph);
    compare_box(expected.predicted, actual.pr_x, actual.pr_y, actual.pr_w, actual.pr_h);
    ASSERT_EQ(expected.filter != nullptr, actual.kalman != nullptr);
    ASSERT_EQ(expected.filter != nullptr, actual.obv != nullptr);
    if (expected.filter) {
        compare_filter(expected, actual);
    }
}

void TrackerPair::compare_filter(const Track& expected, const trk_obj_t& actual) {
    const auto wanted = expected.filter->matrices();
    const auto got = model::LibraryFilter::matrices(*actual.kalman);
    for (std::size_t i = 0; i < wanted.size(); ++i) {
        SCOPED_TRACE("matrix " + std::to_string(i) + " of its filter");
        expect_same_values(wanted[i], got[i], NanRule::PRODUCED);
    }
}

} // namespace test
