// The tracker over thousands of frames of random scenes and parameters against the model: every
// output row, and after every frame the whole ring.
#include <gtest/gtest.h>

#include <climits>
#include <cmath>
#include <string>

#include "model/scene.h"
#include "model/tracker_pair.h"
#include "model/twin.h"
#include "support/bits.h"

namespace {

using iv::internal::trk_obj_t;
using model::Track;
using test::Events;
using test::Random;
using test::TrackerPair;

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
