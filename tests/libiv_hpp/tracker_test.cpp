// Trackers: the rows of the C calls, any class, full frames, and what is left at the end.
#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <cstdint>
#include <libiv.hpp>
#include <limits>
#include <set>
#include <type_traits>
#include <vector>

#include "model/scene.h"
#include "support/allocations.h"
#include "support/bits.h"

namespace {

using iv::Detection;
using iv::Track;
using iv::Tracker;
using iv::TrackerOptions;
using iv::Tuning;
using test::Allocations;

static_assert(!std::is_copy_constructible_v<Tracker>);
static_assert(std::is_nothrow_move_constructible_v<Tracker>);
static_assert(std::is_nothrow_move_assignable_v<Tracker>);
static_assert(std::is_convertible_v<std::vector<Detection>&, iv::Span<const Detection>>);
static_assert(std::is_convertible_v<const std::array<Detection, 3>&, iv::Span<const Detection>>);
static_assert(!std::is_convertible_v<std::vector<Track>&, iv::Span<const Detection>>);

/// Pixels that are the library's units, and tracks from the first frame on.
TrackerOptions plain_options(int capacity = 16) {
    TrackerOptions options;
    options.width = options.units = 64;
    options.capacity = capacity;
    options.tuning.stable = 1;
    return options;
}

/// An object of 4 x 4 that stands still.
Detection still(std::int64_t class_number, double x, float score = 0.5f) {
    return {class_number, {x, 10, x + 4, 14}, score};
}

std::vector<int> detections_of(iv::Span<const Track> tracks) {
    std::vector<int> result;
    for (const Track& track : tracks) {
        result.push_back(track.detection);
    }
    return result;
}

/// The library called as C does it, with rows of whatever the classes are.
class CalledAsC {
  public:
    explicit CalledAsC(const TrackerOptions& options)
        : output_(static_cast<std::size_t>(options.capacity)),
          tuning_(options.tuning),
          handle_(iv_tracker_create(1, 1, options.capacity, tuning_.distance, tuning_.overlap,
                                    tuning_.stable, tuning_.removal, tuning_.ignore_class)) {}
    ~CalledAsC() {
        tuning_.removal = 0;
        tune(tuning_);
        test::Rows none(1);
        process(none);
        iv_tracker_release(handle_);
    }
    CalledAsC(const CalledAsC&) = delete;
    CalledAsC& operator=(const CalledAsC&) = delete;

    void tune(const Tuning& tuning) {
        tuning_ = tuning;
        iv_tracker_set_params(handle_, tuning.distance, tuning.overlap, tuning.stable,
                              tuning.removal, tuning.ignore_class);
    }

    const std::vector<std::array<float, 8>>& process(test::Rows& rows) {
        iv_tracker_process(handle_, reinterpret_cast<float(*)[6]>(rows.data()),
                           reinterpret_cast<float(*)[8]>(output_.data()));
        return output_;
    }

  private:
    std::vector<std::array<float, 8>> output_;
    Tuning tuning_;
    void* handle_;
};

/// The rows in front of the one that ends them. Class c of the library is what `class_of` says.
template <class ClassOf>
std::vector<Detection> detections_in(const test::Rows& rows, std::size_t capacity,
                                     ClassOf class_of) {
    std::vector<Detection> detections;
    for (std::size_t n = 0; n < capacity && rows[n][0] != 0; ++n) {
        const auto& row = rows[n];
        detections.push_back({class_of(static_cast<int>(row[0])),
                              {static_cast<double>(row[1]), static_cast<double>(row[2]),
                               static_cast<double>(row[3]), static_cast<double>(row[4])},
                              row[5]});
    }
    return detections;
}

void expect_same(float expected, double actual) {
    EXPECT_PRED_FORMAT2(test::SameNumber, static_cast<double>(expected), actual);
}

template <class ClassOf>
void expect_same(const std::vector<std::array<float, 8>>& rows, iv::Span<const Track> tracks,
                 ClassOf class_of) {
    ASSERT_LE(tracks.size(), rows.size());
    for (std::size_t n = 0; n < tracks.size(); ++n) {
        const Track& track = tracks[n];
        EXPECT_EQ(rows[n][0], static_cast<float>(track.id));
        EXPECT_EQ(class_of(static_cast<int>(rows[n][1])), track.class_number);
        expect_same(rows[n][2], track.box.left);
        expect_same(rows[n][3], track.box.top);
        expect_same(rows[n][4], track.box.right);
        expect_same(rows[n][5], track.box.bottom);
        EXPECT_PRED_FORMAT2(test::SameBits, rows[n][6], track.score);
        EXPECT_EQ(rows[n][7], static_cast<float>(track.detection));
        EXPECT_EQ(rows[n][7] == -1, track.is_coasting());
    }
    EXPECT_TRUE(tracks.size() == rows.size() || rows[tracks.size()][0] == -1);
}

TEST(HppTracker, FramesGiveTheBitsOfTheCCallsForAnyClasses) {
    const std::int64_t odd_classes[] = {0, -7, std::numeric_limits<std::int64_t>::min(),
                                        std::numeric_limits<std::int64_t>::max(), 1LL << 40};
    const auto class_of = [&](int number) {
        return number >= 0 && number < 5 ? odd_classes[number] : std::int64_t{number};
    };
    test::Random random(21);
    std::size_t reported = 0;
    for (const int capacity : {1, 12, 60}) {
        for (const bool ignore_class : {false, true}) {
            TrackerOptions options = plain_options(capacity);
            options.tuning.stable = 3;
            options.tuning.ignore_class = ignore_class;
            CalledAsC expected(options);
            auto tracker = Tracker::create(options);
            test::Scene scene(random, 20, capacity, 0.0f);
            for (int frame = 0; frame < 150; ++frame) {
                if (frame == 100) {
                    options.tuning = {0.5f, 0.3f, 2, 4, ignore_class};
                    expected.tune(options.tuning);
                    tracker.tune(options.tuning);
                }
                test::Rows rows = scene.next_frame();
                const auto tracks =
                    tracker.process(detections_in(rows, tracker.capacity(), class_of));
                expect_same(expected.process(rows), tracks, class_of);
                reported += tracks.size();
            }
        }
    }
    EXPECT_GT(reported, 1000u);
}

TEST(HppTracker, ManyClassesKeepTheirNumbers) {
    test::Random random(8);
    std::vector<Detection> detections;
    for (int n = 0; n < 500; ++n) {
        detections.push_back(still(static_cast<std::int64_t>(random.bits()), 20.0 * n));
    }
    auto tracker = Tracker::create(plain_options(500));
    for (int frame = 0; frame < 2; ++frame) {
        const auto tracks = tracker.process(detections);
        ASSERT_EQ(tracks.size(), 500u);
        for (std::size_t n = 0; n < tracks.size(); ++n) {
            EXPECT_EQ(tracks[n].class_number, detections[n].class_number);
            EXPECT_EQ(tracks[n].id, static_cast<int>(n) + 1);
        }
    }
}

TEST(HppTracker, ScaleIsFromPixelsToUnitsAndBack) {
    TrackerOptions options = plain_options();
    options.width = 1920;
    auto tracker = Tracker::create(options);
    const Detection detection = {0, {960, 30, 1020, 90.5}, 0.5f};
    EXPECT_EQ(tracker.process({detection})[0].id, 1);
    // 10 units are 300 pixels: what jumps by less is the same object when boxes overlap.
    const auto jumped = [&](double by) { return Detection{0, {960 + by, 30, 1020 + by, 90.5}, 1}; };
    const auto tracks = tracker.process({jumped(25)});
    ASSERT_EQ(tracks.size(), 1u);
    EXPECT_EQ(tracks[0].id, 1);
    EXPECT_NEAR(tracks[0].box.top, 30, 1e-4);
    EXPECT_NEAR(tracks[0].box.bottom, 90.5, 1e-4);
    EXPECT_EQ(tracker.process({jumped(500)})[1].id, 2);

    // The same pixels as units: nothing is near enough.
    auto unscaled = Tracker::create(plain_options());
    unscaled.process({detection});
    EXPECT_EQ(unscaled.process({jumped(25)})[1].id, 2);
}

TEST(HppTracker, OfACrowdTheHighestScoresAreTakenInTheirOrder) {
    auto tracker = Tracker::create(plain_options(3));
    const std::vector<Detection> crowd = {still(0, 0, 0.5f), still(0, 20, 0.9f), still(0, 40, 0.1f),
                                          still(0, 60, 0.7f), still(0, 80, 0.2f)};
    EXPECT_EQ(detections_of(tracker.process(crowd)), (std::vector<int>{0, 1, 3}));
    EXPECT_EQ(tracker.dropped(), 2u);
    EXPECT_EQ(detections_of(tracker.process({crowd[3]})), (std::vector<int>{-1, -1, 0}));
    EXPECT_EQ(tracker.dropped(), 0u);
    EXPECT_EQ(tracker.capacity(), 3u);
}

TEST(HppTracker, OfEqualScoresTheEarlierAreTakenAndNaNIsTheLowest) {
    constexpr float NOT_A_NUMBER = std::numeric_limits<float>::quiet_NaN();
    auto tracker = Tracker::create(plain_options(2));
    EXPECT_EQ(detections_of(tracker.process({still(0, 0, NOT_A_NUMBER), still(0, 20, 0.5f),
                                             still(0, 40, 0.5f), still(0, 60, 0.5f)})),
              (std::vector<int>{1, 2}));
}

TEST(HppTracker, ACrowdIsTrackedAsItsBestDetectionsAlone) {
    test::Random random(31);
    auto tracker = Tracker::create(plain_options(20));
    auto alone = Tracker::create(plain_options(20));
    for (int frame = 0; frame < 50; ++frame) {
        std::vector<Detection> crowd, best;
        std::vector<std::size_t> order;
        for (std::size_t n = 0; n < 60; ++n) {
            crowd.push_back(still(random.between(0, 2), 10.0 * static_cast<double>(n),
                                  static_cast<float>(random.between(0, 9))));
            order.push_back(n);
        }
        std::stable_sort(order.begin(), order.end(), [&](std::size_t a, std::size_t b) {
            return crowd[a].score > crowd[b].score;
        });
        order.resize(20);
        std::sort(order.begin(), order.end());
        for (const std::size_t n : order) {
            best.push_back(crowd[n]);
        }
        const auto tracks = tracker.process(crowd);
        const auto expected = alone.process(best);
        ASSERT_EQ(tracks.size(), expected.size());
        for (std::size_t n = 0; n < tracks.size(); ++n) {
            EXPECT_EQ(tracks[n].id, expected[n].id);
            EXPECT_EQ(tracks[n].box.left, expected[n].box.left);
            const int among_best = expected[n].detection;
            EXPECT_EQ(tracks[n].detection,
                      among_best == iv::NO_DETECTION
                          ? iv::NO_DETECTION
                          : static_cast<int>(order[static_cast<std::size_t>(among_best)]));
        }
    }
}

TEST(HppTracker, SteadyFrameAllocatesNothing) {
    auto tracker = Tracker::create(plain_options(2));
    const std::vector<Detection> crowd = {still(0, 0), still(-5, 20), still(0, 40)};
    const std::vector<Detection> one = {still(0, 0)};
    tracker.process(crowd);
    Allocations allocations(Allocations::Keep::COUNTS);
    for (const auto* frame : {&crowd, &one, &crowd}) {
        EXPECT_FALSE(tracker.process(*frame).empty());
    }
    EXPECT_EQ(allocations.made(), 0);
    EXPECT_EQ(allocations.made_by_new(), 0);
}

TEST(HppTracker, OnlyTheFourMatricesOfTheModelStayAllocated) {
    Allocations allocations;
    std::size_t left = 0;
    {
        auto tracker = Tracker::create(plain_options(7));
        for (std::size_t n = 4; n < 8; ++n) { // creation makes them last
            left += allocations.sizes().at(n);
        }
        tracker.process({still(0, 0), still(0, 20), still(3, 40)});
        tracker.process({still(0, 0), still(9, 60)});
    }
    EXPECT_EQ(allocations.made() - allocations.freed(), 4);
    EXPECT_EQ(left, 800u);
}

TEST(HppTracker, TrackersMoveWithTheirTracks) {
    Allocations allocations;
    {
        auto first = Tracker::create(plain_options());
        first.process({still(4, 0)});
        Tracker second = std::move(first);
        EXPECT_EQ(second.process({still(4, 0)})[0].id, 1);
        first = Tracker::create(plain_options());
        first.process({still(5, 0), still(6, 20)});
        second = std::move(first);
        const auto tracks = second.process({still(6, 20)});
        EXPECT_EQ(tracks[1].id, 2);
        EXPECT_EQ(tracks[1].class_number, 6);
    }
    EXPECT_EQ(allocations.made() - allocations.freed(), 8);
}

TEST(HppTracker, EveryFailedAllocationOfACreationIsBadAllocAndLeavesNothing) {
    for (int failing = 1; failing <= 8; ++failing) {
        Allocations allocations;
        allocations.fail_nth(failing);
        EXPECT_THROW((void)Tracker::create(plain_options()), std::bad_alloc);
        EXPECT_EQ(allocations.made(), allocations.freed());
    }
    Allocations allocations;
    allocations.fail_new();
    EXPECT_THROW((void)Tracker::create(plain_options()), std::bad_alloc);
}

TEST(HppTracker, FrameWhoseClassesFindNoMemoryIsNotTaken) {
    auto tracker = Tracker::create(plain_options());
    tracker.process({still(0, 0)});
    {
        Allocations allocations;
        allocations.fail_new(); // the table of classes grows behind 32 of them
        EXPECT_THROW(
            for (int c = 1; c < 100; ++c) {
                tracker.process({still(0, 0), still(c, 20)});
            },
            std::bad_alloc);
    }
    const auto tracks = tracker.process({still(0, 0), still(99, 40)});
    EXPECT_EQ(tracks[0].id, 1);
    EXPECT_EQ(tracks[0].class_number, 0);
    EXPECT_EQ(tracks[tracks.size() - 1].class_number, 99);
}

TEST(HppTracker, OptionsOutOfTheirRangesAreRefused) {
    const auto message = [](TrackerOptions options) -> std::string {
        try {
            (void)Tracker::create(options);
            return "accepted";
        } catch (const std::invalid_argument& error) {
            return error.what();
        }
    };
    const auto with = [&](auto TrackerOptions::*value, auto to) {
        TrackerOptions options = plain_options();
        options.*value = to;
        return message(options);
    };
    const auto tuned = [&](auto Tuning::*value, auto to) {
        TrackerOptions options = plain_options();
        options.tuning.*value = to;
        return message(options);
    };
    constexpr float NOT_A_NUMBER = std::numeric_limits<float>::quiet_NaN();
    EXPECT_EQ(message({}), "width: 0: expected the width of the image in pixels");
    EXPECT_EQ(with(&TrackerOptions::width, std::numeric_limits<double>::infinity()),
              "units / width: 0: expected between 1e-12 and 1e12 units a pixel");
    EXPECT_EQ(with(&TrackerOptions::units, 0.0),
              "units / width: 0: expected between 1e-12 and 1e12 units a pixel");
    EXPECT_EQ(with(&TrackerOptions::capacity, 0), "capacity: 0: expected 1 to 16777216");
    EXPECT_EQ(with(&TrackerOptions::capacity, 16777217),
              "capacity: 1.67772e+07: expected 1 to 16777216");
    EXPECT_EQ(tuned(&Tuning::distance, 1.5f), "distance: 1.5: expected 0 to 1");
    EXPECT_EQ(tuned(&Tuning::overlap, -0.5f), "overlap: -0.5: expected 0 to 1");
    EXPECT_NE(tuned(&Tuning::overlap, NOT_A_NUMBER), "accepted");
    EXPECT_EQ(tuned(&Tuning::stable, 0), "stable: 0: expected at least 1");
    EXPECT_EQ(tuned(&Tuning::removal, 0), "removal: 0: expected at least 1");
    EXPECT_EQ(message(plain_options()), "accepted");
}

// The library would confirm young tracks a second time, and never free their first filters.
TEST(HppTracker, TuningMayLowerStableFramesButNotRaiseThem) {
    Allocations allocations;
    {
        TrackerOptions options = plain_options();
        options.tuning.stable = 3;
        auto tracker = Tracker::create(options);
        tracker.process({still(0, 0)});
        options.tuning.stable = 1;
        tracker.tune(options.tuning);
        EXPECT_EQ(tracker.process({still(0, 0)})[0].id, 1);
        options.tuning.stable = 3;
        EXPECT_THROW(tracker.tune(options.tuning), std::invalid_argument);
        EXPECT_EQ(tracker.process({still(0, 0)})[0].id, 1);
    }
    EXPECT_EQ(allocations.made() - allocations.freed(), 4);
}

} // namespace
