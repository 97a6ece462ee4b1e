// The tracker over thousands of frames of random scenes and parameters against the model: every
// output row, and after every frame the whole ring.
#include <gtest/gtest.h>

#include <climits>
#include <cmath>
#include <map>
#include <string>

#include "model/scene.h"
#include "model/twin.h"
#include "support/bits.h"

namespace {

using iv::internal::tracker_t;
using iv::internal::trk_obj_t;
using model::LibraryTracker;
using model::Track;
using model::Tracker;
using test::NanRule;
using test::Random;

/// What a frame of the tests has seen happen, so that a run without some event is noticed.
struct Events {
    int rows = 0;
    int coasting_rows = 0;
    int confirmations = 0;
    int second_confirmations = 0;
    int turned_away = 0; // detections with a candidate that they did not get
    int full_outputs = 0;
    int full_rings = 0;
};

class TrackerPair {
  public:
    TrackerPair(int capacity, const model::Parameters& parameters)
        : capacity_(capacity), library_(capacity, parameters), model_(capacity, parameters) {}

    void set_params(const model::Parameters& parameters) {
        library_.set_params(parameters);
        model_.set_params(parameters);
    }

    /// One frame on both sides, and a comparison of everything.
    void process(const test::Rows& rows, bool report, Events& events);

    LibraryTracker& library() { return library_; }
    Tracker& model() { return model_; }

  private:
    using Output = float (*)[8];

    void compare_rows(const test::Guarded& expected, const test::Guarded& actual) const;
    void count_rows(const test::Guarded& output, Events& events) const;
    void compare_state();
    void compare_detections();
    static void compare_track(const Track& expected, const trk_obj_t& actual);
    static void compare_filter(const Track& expected, const trk_obj_t& actual);

    int capacity_;
    LibraryTracker library_;
    Tracker model_;
};

void TrackerPair::process(const test::Rows& rows, bool report, Events& events) {
    const std::size_t size = static_cast<std::size_t>(capacity_) * 8 * sizeof(float);
    test::Guarded expected(size);
    test::Guarded actual(size);
    const auto output = [&](test::Guarded& block) {
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
void TrackerPair::compare_rows(const test::Guarded& expected, const test::Guarded& actual) const {
    for (int i = 0; i < capacity_ * 8; ++i) {
        const auto wanted = model::load<float>(expected.data(), i);
        const auto got = model::load<float>(actual.data(), i);
        const std::string place =
            "row " + std::to_string(i / 8) + ", column " + std::to_string(i % 8);
        if (i % 8 == 6) {
            ASSERT_PRED_FORMAT2(test::SameBits, wanted, got) << place;
        } else {
            ASSERT_PRED_FORMAT2(test::SameNumber, wanted, got) << place;
        }
    }
}

void TrackerPair::count_rows(const test::Guarded& output, Events& events) const {
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
        ASSERT_PRED_FORMAT2(test::SameNumber, detection.distance, library_.record().match_score[n]);
        const iv::internal::det_obj_t& actual = library_.record().cur_obj[n];
        ASSERT_EQ(detection.category, actual.c);
        ASSERT_PRED_FORMAT2(test::SameNumber, detection.box.x, actual.x);
        ASSERT_PRED_FORMAT2(test::SameNumber, detection.box.y, actual.y);
        ASSERT_PRED_FORMAT2(test::SameNumber, detection.box.w, actual.w);
        ASSERT_PRED_FORMAT2(test::SameNumber, detection.box.h, actual.h);
        ASSERT_PRED_FORMAT2(test::SameBits, detection.score, actual.s);
    }
}

void compare_box(const model::Box& expected, float x, float y, float w, float h) {
    ASSERT_PRED_FORMAT2(test::SameNumber, expected.x, x);
    ASSERT_PRED_FORMAT2(test::SameNumber, expected.y, y);
    ASSERT_PRED_FORMAT2(test::SameNumber, expected.w, w);
    ASSERT_PRED_FORMAT2(test::SameNumber, expected.h, h);
}

void TrackerPair::compare_track(const Track& expected, const trk_obj_t& actual) {
    ASSERT_EQ(0, actual.state);
    ASSERT_EQ(expected.id, actual.id);
    ASSERT_EQ(expected.category, actual.c);
    ASSERT_EQ(expected.match, actual.match_idx);
    ASSERT_EQ(expected.misses, actual.miss_count);
    ASSERT_EQ(expected.matches, actual.match_count);
    ASSERT_PRED_FORMAT2(test::SameBits, expected.score, actual.s);
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
        test::expect_same_values(wanted[i], got[i], NanRule::PRODUCED);
    }
}

int random_capacity(Random& random) {
    return random.chance(0.3f) ? random.between(1, 4) : random.between(5, 40);
}

/// Scenes of `frames` frames each with parameters that change now and then.
Events run_scenes(std::uint64_t salt, int scenes, int frames, float hostile, bool any_params) {
    Random random(test::seed() + salt);
    Events events;
    for (int scene = 0; scene < scenes && !testing::Test::HasFailure(); ++scene) {
        const int capacity = random_capacity(random);
        const int objects = random.between(0, 14);
        test::Scene source(random, objects, capacity, hostile);
        TrackerPair trackers(capacity, test::random_parameters(random));
        for (int frame = 0; frame < frames && !testing::Test::HasFailure(); ++frame) {
            SCOPED_TRACE("scene " + std::to_string(scene) + ", frame " + std::to_string(frame));
            if (any_params && random.chance(0.05f)) {
                trackers.set_params(test::random_parameters(random));
            }
            const test::Rows rows = source.next_frame();
            trackers.process(rows, !random.chance(0.05f), events);
        }
    }
    return events;
}

TEST(TrackerRandom, ScenesWithFixedParametersGiveTheModelsRowsAndRing) {
    const Events events = run_scenes(70, test::rounds(40), 60, 0.0f, false);
    EXPECT_GT(events.rows, 0);
    EXPECT_GT(events.coasting_rows, 0);
    EXPECT_GT(events.confirmations, 0);
    EXPECT_GT(events.turned_away, 0);
}

TEST(TrackerRandom, ParametersOfAnyValueMayChangeBetweenFrames) {
    const Events events = run_scenes(71, test::rounds(40), 80, 0.0f, true);
    EXPECT_GT(events.confirmations, 0);
    EXPECT_GT(events.full_rings, 0);
    EXPECT_GT(events.full_outputs, 0);
}

TEST(TrackerRandom, HostileNumbersGiveTheModelsRowsAndRing) {
    const Events events = run_scenes(72, test::rounds(40), 60, 0.1f, true);
    EXPECT_GT(events.confirmations, 0);
}

// One track in some 8 by 8 units: many detections have several candidates.
TEST(TrackerRandom, CrowdsGiveTheModelsRowsAndRing) {
    Random random(test::seed() + 77);
    for (const int objects : {35, 60, 200, 700}) {
        const int capacity = objects + objects / 2;
        const float spread = std::sqrt(static_cast<float>(objects) / 18.0f);
        const float hostile = objects == 200 ? 0.02f : 0.0f;
        test::Scene source(random, objects, capacity, hostile, spread);
        model::Parameters parameters{1.0f, 0.1f, 2, 4, 0};
        TrackerPair trackers(capacity, parameters);
        Events events;
        for (int frame = 0; frame < 12 && !HasFailure(); ++frame) {
            SCOPED_TRACE(std::to_string(objects) + " objects, frame " + std::to_string(frame));
            parameters.ignore_class = frame % 4 == 3;
            trackers.set_params(parameters);
            trackers.process(source.next_frame(), true, events);
        }
        EXPECT_GT(events.rows, objects);
        EXPECT_GT(events.turned_away, objects / 10);
    }
}

TEST(TrackerRandom, TracksConfirmedAgainTakeNewIdsAndFilters) {
    Random random(test::seed() + 73);
    Events events;
    const model::Parameters early{1.0f, 0.0f, 1, 40, 1};
    const model::Parameters late{1.0f, 0.0f, 12, 40, 1};
    const float at[] = {3.0f, 14.0f, 30.0f};
    TrackerPair trackers(3, early);
    for (int frame = 0; frame < 40 && !HasFailure(); ++frame) {
        SCOPED_TRACE("frame " + std::to_string(frame));
        trackers.set_params(frame < 5 ? early : late);
        test::Rows rows;
        for (const float x : at) {
            const float jitter = random.uniform(-0.1f, 0.1f);
            rows.push_back({1.0f, x + jitter, x, x + 4.0f, x + 6.0f - jitter, 0.5f});
        }
        rows.push_back({});
        trackers.process(rows, true, events);
    }
    EXPECT_EQ(events.confirmations, 6);
    EXPECT_EQ(events.second_confirmations, 3);
}

TEST(TrackerRandom, IdsStartAgainBehindTheLastOne) {
    Random random(test::seed() + 74);
    test::Scene source(random, 10, 30, 0.0f);
    TrackerPair trackers(30, {1.0f, 0.1f, 1, 2, 0});
    trackers.library().record().tid = iv::internal::MAX_TRACK_ID - 5;
    trackers.model().set_next_id(1048574 - 5);
    Events events;
    for (int frame = 0; frame < 20 && !HasFailure(); ++frame) {
        SCOPED_TRACE("frame " + std::to_string(frame));
        trackers.process(source.next_frame(), true, events);
    }
    EXPECT_LT(trackers.model().next_id(), 1000);
}

TEST(TrackerRandom, CountersStayAtTheirLargestValue) {
    Random random(test::seed() + 75);
    test::Scene source(random, 6, 20, 0.0f);
    TrackerPair trackers(20, {1.0f, 0.1f, 2, 30, 0});
    Events events;
    for (int frame = 0; frame < 30 && !HasFailure(); ++frame) {
        SCOPED_TRACE("frame " + std::to_string(frame));
        if (frame == 10) {
            trackers.set_params({1.0f, 0.1f, 2, INT_MAX, 0});
            const std::vector<trk_obj_t*> tracks = trackers.library().tracks();
            std::size_t n = 0;
            for (Track& track : trackers.model().tracks()) {
                tracks[n]->match_count = track.matches = INT_MAX - static_cast<int>(n % 3);
                if (n % 2 == 1) {
                    tracks[n]->miss_count = track.misses = INT_MAX - static_cast<int>(n % 3);
                }
                ++n;
            }
        }
        trackers.process(source.next_frame(), true, events);
    }
}

TEST(TrackerRandom, OverlapOfRandomBoxesIsTheModels) {
    Random random(test::seed() + 76);
    int between = 0;
    for (int round = 0; round < test::rounds(20000) && !HasFailure(); ++round) {
        const auto box = [&] {
            model::Box b{random.uniform(-5.0f, 5.0f), random.uniform(-5.0f, 5.0f),
                         random.uniform(-1.0f, 9.0f), random.uniform(-1.0f, 9.0f)};
            if (random.chance(0.05f)) {
                unsigned char value[4];
                test::random_value(random, model::F32, 1.0f, value);
                (random.chance(0.5f) ? b.w : b.h) = model::load<float>(value, 0);
            }
            return b;
        };
        const model::Box a = box();
        const model::Box b = random.chance(0.05f) ? a : box();
        const float expected = model::intersection_over_union(a, b);
        const float actual = iv::internal::box_iou({a.x, a.y, a.w, a.h}, {b.x, b.y, b.w, b.h});
        ASSERT_PRED_FORMAT2(test::SameNumber, expected, actual);
        between += expected > 0.0f && expected < 1.0f;
    }
    EXPECT_GT(between, 0);
}

} // namespace
