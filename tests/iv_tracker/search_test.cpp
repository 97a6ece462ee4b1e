// The search for the nearest track: the scan and the grid against one plain loop over the tracks.
#include "iv_tracker/search.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <climits>
#include <cmath>
#include <memory>
#include <vector>

#include "support/bits.h"
#include "support/guarded.h"
#include "support/levels.h"
#include "support/matrix.h"
#include "support/random.h"

namespace {

using namespace iv::internal;
using test::Guarded;
using test::INFINITE;
using test::NOT_A_NUMBER;
using test::Random;

/// The side of the grid's cells: the tests put centres on both sides of the borders.
constexpr float SIDE = 32.0f;

struct Centre {
    float x, y;
    int c = 1;
};

/// A search filled with predicted tracks, in scratch memory of exactly the size that it asks for.
class Tracks {
  public:
    explicit Tracks(const std::vector<Centre>& centres)
        : centres_(centres),
          records_(centres.size()),
          memory_(std::make_unique<Guarded>(search_bytes(static_cast<int>(centres.size())))) {
        search_init(&search_, memory_->data(), static_cast<int>(centres.size()));
        for (std::size_t i = 0; i < centres.size(); ++i) {
            records_[i].pr_x = centres[i].x;
            records_[i].pr_y = centres[i].y;
            records_[i].c = centres[i].c;
            search_add(&search_, &records_[i]);
        }
        search_index(&search_); // for the scan, and for the grid where there are many
        fill_grid(&search_);
    }

    const search_t& search() const { return search_; }

    /// The place of the track that both ways find, -1 for none. They have to agree with a loop that
    /// looks at all tracks.
    int nearest(const Centre& at, bool any_class = false) const {
        int expected = -1;
        float distance = 100.0f;
        for (std::size_t i = 0; i < centres_.size(); ++i) {
            const float dx = centres_[i].x - at.x;
            const float dy = centres_[i].y - at.y;
            const float dx2 = dx * dx;
            const float dy2 = dy * dy;
            const float d = dx2 + dy2;
            if ((any_class || centres_[i].c == at.c) && d < distance) {
                expected = static_cast<int>(i);
                distance = d;
            }
        }
        const det_obj_t det = {at.c, at.x, at.y, 4, 4, 0.5f};
        expect_found(expected, distance, nearest_by_scan(search_, det, any_class), at, "scan");
        expect_found(expected, distance, nearest_by_grid(search_, det, any_class), at, "grid");
        return expected;
    }

  private:
    static void expect_found(int place, float distance, const Nearest& found, const Centre& at,
                             const char* way) {
        EXPECT_EQ(place, found.age)
            << way << ", from " << test::show(at.x) << ", " << test::show(at.y);
        EXPECT_PRED_FORMAT2(test::SameBits, distance, found.d) << way;
    }

    std::vector<Centre> centres_;
    std::vector<trk_obj_t> records_;
    std::unique_ptr<Guarded> memory_;
    search_t search_ = {};
};

constexpr int NONE = -1;

TEST(TrackerSearch, BothWaysFindTheSameInRandomScenes) {
    Random random(test::seed() + 90);
    int found = 0;
    int missed = 0;
    for (const int count : {0, 1, 2, 3, 20, GRID_PAYS, 300, 2000}) {
        for (const float side : {5.0f, 100.0f, 1000.0f}) {
            for (const float origin : {0.0f, -side / 2, -5000.0f, 3e5f}) {
                // On a grid of halves distances are often equal.
                const bool halves = random.chance(0.5f);
                const auto centre = [&] {
                    const auto value = [&] {
                        const float v = origin + random.uniform(0.0f, side);
                        return halves ? std::floor(v * 2.0f) * 0.5f : v;
                    };
                    return Centre{value(), value(), random.between(1, 3)};
                };
                std::vector<Centre> centres;
                while (static_cast<int>(centres.size()) < count) {
                    centres.push_back(centre());
                }
                const Tracks tracks(centres);
                for (int n = 0; n < 60 && !HasFailure(); ++n) {
                    (tracks.nearest(centre(), n % 3 == 0) == NONE ? missed : found) += 1;
                }
            }
        }
    }
    EXPECT_GT(found, 1000);
    EXPECT_GT(missed, 1000);
}

TEST(TrackerSearch, OfEquallyNearTracksInFourCellsTheOldestIsFound) {
    std::array<Centre, 4> around = {Centre{SIDE - 3, SIDE - 4}, Centre{SIDE + 3, SIDE - 4},
                                    Centre{SIDE - 3, SIDE + 4}, Centre{SIDE + 3, SIDE + 4}};
    std::array<int, 4> order = {0, 1, 2, 3};
    do {
        std::vector<Centre> centres;
        for (const int i : order) {
            centres.push_back(around.at(static_cast<std::size_t>(i)));
        }
        EXPECT_EQ(Tracks(centres).nearest({SIDE, SIDE}), 0);
        // Behind a track of another class, far ones, and the same centres once more.
        centres.insert(centres.begin(), {{SIDE, SIDE, 2}, {999, 999}});
        centres.insert(centres.end(), around.begin(), around.end());
        EXPECT_EQ(Tracks(centres).nearest({SIDE, SIDE}), 2);
    } while (std::next_permutation(order.begin(), order.end()));
}

TEST(TrackerSearch, NearestTrackMayBeInAnyOfFourCells) {
    for (const float dx : {-3.0f, 3.0f}) {
        for (const float dy : {-4.0f, 4.0f}) {
            const Tracks tracks({{SIDE + 6, SIDE + 6},
                                 {SIDE - 6, SIDE + 6},
                                 {SIDE + 6, SIDE - 6},
                                 {SIDE - 6, SIDE - 6},
                                 {SIDE + dx, SIDE + dy}});
            EXPECT_EQ(tracks.nearest({SIDE, SIDE}), 4) << dx << ", " << dy;
        }
    }
}

// Tracks 64 apart, so that no detection has more than one candidate and buckets are hardly shared.
TEST(TrackerSearch, ReachIsTheSameAcrossTheBordersOfAllCells) {
    const float below_ten = 9.984375f;
    for (const float offset : {-31.0f, -10.0f, -9.75f, -0.25f, -0.0f, 0.25f, 9.75f, 10.0f, 30.5f}) {
        std::vector<Centre> row;
        std::vector<Centre> column;
        for (int i = -150; i < 150; ++i) {
            const float place = static_cast<float>(i) * 2 * SIDE + offset;
            row.push_back({place, offset});
            column.push_back({offset, place});
        }
        const Tracks in_a_row(row);
        const Tracks in_a_column(column);
        for (int i = 0; i < 300; ++i) {
            const Centre& r = row.at(static_cast<std::size_t>(i));
            const Centre& c = column.at(static_cast<std::size_t>(i));
            for (const float sign : {-1.0f, 1.0f}) {
                ASSERT_EQ(in_a_row.nearest({r.x + sign * below_ten, r.y}), i);
                ASSERT_EQ(in_a_row.nearest({r.x, r.y + sign * below_ten}), i);
                ASSERT_EQ(in_a_row.nearest({r.x + sign * 10, r.y}), NONE);
                ASSERT_EQ(in_a_column.nearest({c.x + sign * below_ten, c.y}), i);
                ASSERT_EQ(in_a_column.nearest({c.x, c.y + sign * below_ten}), i);
                ASSERT_EQ(in_a_column.nearest({c.x, c.y + sign * 10}), NONE);
            }
        }
    }
}

// A single track has two buckets: of any two cells side by side one is at the end of the table, and
// for every other border the row goes on at its start.
TEST(TrackerSearch, RowMayRunOverTheEndOfTheTable) {
    for (int cell = -40; cell <= 40; ++cell) {
        const float border = static_cast<float>(cell) * SIDE;
        const Tracks left({{border - 1, 5}});
        EXPECT_EQ(left.nearest({border + 1, 5}), 0) << border;
        const Tracks right({{border + 1, 5}});
        EXPECT_EQ(right.nearest({border - 1, 5}), 0) << border;
    }
}

TEST(TrackerSearch, NeighbouringFloatsAreFoundAtEveryMagnitude) {
    int found = 0;
    for (int exponent = -149; exponent <= 127; ++exponent) {
        for (const float sign : {-1.0f, 1.0f}) {
            // Around a power of two the floats above it are twice as far apart as those below.
            std::vector<float> values = {std::ldexp(sign, exponent)};
            for (int i = 0; i < 6; ++i) {
                values.push_back(std::nextafter(values.back(), sign * INFINITE));
                values.insert(values.begin(), std::nextafter(values.front(), 0.0f));
            }
            std::vector<Centre> centres;
            for (const float value : values) {
                centres.push_back({value, 5.0f});
                centres.push_back({-5.0f, value});
                centres.push_back({value, -value});
            }
            const Tracks tracks(centres);
            for (const Centre& centre : centres) {
                found += tracks.nearest(centre) != NONE;
                tracks.nearest({centre.x + 7.0f, centre.y});
                tracks.nearest({centre.x, centre.y - 9.0f});
            }
            ASSERT_FALSE(HasFailure()) << "2^" << exponent;
        }
    }
    EXPECT_EQ(found, 277 * 2 * 13 * 3) << "each finds itself, or an older one at the same place";
}

// From 2^27 on the neighbours of a centre are further away than it reaches, so that the rows of its
// reach may be two apart if cells do not divide the numbers evenly.
TEST(TrackerSearch, CentresAreFoundWhereFloatsAreAsCoarseAsTheReach) {
    Random random(test::seed() + 92);
    for (int exponent = 22; exponent <= 29; ++exponent) {
        std::vector<Centre> centres;
        for (int i = 0; i < 1000; ++i) {
            const float there = std::ldexp(random.uniform(1.0f, 2.0f), exponent);
            const float sign = random.chance(0.5f) ? -1.0f : 1.0f;
            centres.push_back(i % 2 ? Centre{sign * there, 5} : Centre{5, sign * there});
        }
        const Tracks tracks(centres);
        for (const Centre& centre : centres) {
            ASSERT_NE(tracks.nearest(centre), NONE) << "2^" << exponent;
        }
    }
}

TEST(TrackerSearch, HugeCentresAreFound) {
    for (const float huge : {1e8f, 1e12f, 1e20f, 3e38f, 0x1p35f, 0x1p36f, 0x1.fffffep127f}) {
        const Tracks tracks({{huge, 0}, {-huge, 0}, {0, huge}, {0, -huge}, {huge, huge}});
        EXPECT_EQ(tracks.nearest({huge, 0}), 0);
        EXPECT_EQ(tracks.nearest({-huge, 3}), 1);
        EXPECT_EQ(tracks.nearest({-4, huge}), 2);
        EXPECT_EQ(tracks.nearest({0, -huge}), 3);
        EXPECT_EQ(tracks.nearest({huge, huge}), 4);
        EXPECT_EQ(tracks.nearest({-huge, huge}), NONE);
        EXPECT_EQ(tracks.nearest({huge / 2, 0}), NONE);
    }
}

TEST(TrackerSearch, CentresThatAreNoNumbersNeitherFindNorAreFound) {
    const std::vector<Centre> strange = {{NOT_A_NUMBER, 5},    {5, NOT_A_NUMBER},
                                         {-NOT_A_NUMBER, 5},   {INFINITE, 5},
                                         {-INFINITE, 5},       {5, INFINITE},
                                         {5, -INFINITE},       {INFINITE, NOT_A_NUMBER},
                                         {INFINITE, INFINITE}, {NOT_A_NUMBER, NOT_A_NUMBER}};
    std::vector<Centre> centres = strange;
    centres.push_back({5, 5});
    centres.push_back({3e38f, -3e38f});
    const Tracks tracks(centres);
    for (const Centre& centre : strange) {
        EXPECT_EQ(tracks.nearest(centre), NONE) << centre.x << ", " << centre.y;
        EXPECT_EQ(tracks.nearest(centre, true), NONE) << centre.x << ", " << centre.y;
    }
    EXPECT_EQ(tracks.nearest({4, 5}), 10);
    EXPECT_EQ(tracks.nearest({3e38f, -3e38f}), 11);
}

TEST(TrackerSearch, DenseCellKeepsDistancesAndOrder) {
    Random random(test::seed() + 91);
    std::vector<Centre> centres;
    for (int i = 0; i < 3000; ++i) {
        centres.push_back({std::floor(random.uniform(0.0f, 31.0f)),
                           std::floor(random.uniform(0.0f, 31.0f)), random.between(1, 40)});
    }
    const Tracks tracks(centres);
    for (int n = 0; n < 300 && !HasFailure(); ++n) {
        const Centre at{random.uniform(-11.0f, 42.0f), std::floor(random.uniform(-11.0f, 42.0f)),
                        random.between(1, 40)};
        tracks.nearest(at);
        tracks.nearest(at, true);
    }
}

TEST(TrackerSearch, ClassesAreComparedUnlessAnyWillDo) {
    const Tracks tracks({{0, 0, 1}, {3, 0, 2}, {4, 0, INT_MIN}});
    EXPECT_EQ(tracks.nearest({1, 0, 2}), 1);
    EXPECT_EQ(tracks.nearest({1, 0, INT_MIN}), 2);
    EXPECT_EQ(tracks.nearest({1, 0, 3}), NONE);
    EXPECT_EQ(tracks.nearest({1, 0, 3}, true), 0);
}

TEST(TrackerSearch, MemoryEndsWhereTheArraysEnd) {
    for (int capacity = 0; capacity <= 300; ++capacity) {
        Guarded memory(search_bytes(capacity));
        search_t search = {};
        search_init(&search, memory.data(), capacity);
        int buckets = 2;
        while (buckets < capacity) {
            buckets *= 2;
        }
        EXPECT_EQ(static_cast<void*>(search.starts + buckets + 1), memory.data() + memory.size());
    }
}

// By the scan below GRID_PAYS, by the grid from there on.
TEST(TrackerSearch, WhatIsMadeReadyIsWhatIsSearched) {
    for (int count = GRID_PAYS - 2; count <= GRID_PAYS + 2; ++count) {
        Guarded memory(search_bytes(count));
        std::vector<trk_obj_t> records(static_cast<std::size_t>(count));
        search_t search = {};
        search.buckets = 2;
        search_init(&search, memory.data(), count);
        float x = 0;
        for (trk_obj_t& record : records) {
            record.pr_x = x += 20;
            search_add(&search, &record);
        }
        std::fill_n(search.starts, 3, 0u);
        search_index(&search);
        for (int age = 0; age < count; ++age) {
            const det_obj_t det = {0, search.ring.x[age], 1, 4, 4, 0.5f};
            EXPECT_EQ(search_nearest(search, det, false).age, age) << "of " << count;
        }
    }
}

TEST(TrackerSearch, EveryFillChoosesAnewAsManyBucketsAsTracks) {
    const Tracks tracks(std::vector<Centre>(300, Centre{5, 5}));
    search_t search = tracks.search();
    struct Size {
        int tracks;
        unsigned buckets;
    };
    for (const Size& size : {Size{300, 512}, Size{256, 256}, Size{257, 512}, Size{3, 4}, Size{2, 2},
                             Size{0, 2}, Size{129, 256}}) {
        search.count = size.tracks;
        fill_grid(&search);
        EXPECT_EQ(search.buckets, size.buckets) << size.tracks << " tracks";
        EXPECT_EQ(0xffffffffu >> search.row_bits, size.buckets - 1) << "rows start in all of them";
    }
}

#ifdef IV_DISPATCH

int ranges_asked;
unsigned tracks_asked;

// Of enough buckets few rows reach the end of the table and go on at its start.
TEST(TrackerSearch, GridIsAskedForTwoRowsInOnePieceEachWithinReach) {
    Kernels counting = kernels();
    counting.nearest = [](const Centres&, const Range* ranges, int count, const Target&) {
        ranges_asked = count;
        tracks_asked = 0;
        for (int i = 0; i < count; ++i) {
            tracks_asked += ranges[i].end - ranges[i].first;
        }
        return NO_TRACK;
    };
    const Tracks tracks(std::vector<Centre>(1000, Centre{5, 5}));
    const test::ForcedLevel forced(counting);
    int in_pieces = 0;
    int with_tracks = 0;
    for (int cell = 2; cell < 102; ++cell) {
        // In the middle of its cell the reach leaves it in neither direction, at a corner in both.
        const float middle = (static_cast<float>(cell) + 0.5f) * SIDE;
        const float corner = static_cast<float>(cell) * SIDE;
        for (const Centre& at : {Centre{middle, middle}, Centre{corner, corner}, Centre{5, middle},
                                 Centre{5, corner}}) {
            nearest_by_grid(tracks.search(), {1, at.x, at.y, 4, 4, 0.5f}, false);
            EXPECT_GE(ranges_asked, 2);
            EXPECT_LE(ranges_asked, at.x == corner ? 4 : 2);
            in_pieces += ranges_asked > 2;
            with_tracks += tracks_asked > 0; // of another cell in the same bucket
        }
    }
    EXPECT_LT(in_pieces, 10);
    EXPECT_LT(with_tracks, 10);
}

#endif

TEST(TrackerSearch, MemoryGrowsInProportionAndNeverOverflows) {
    EXPECT_EQ(search_bytes(-1), search_bytes(0));
    EXPECT_EQ(search_bytes(INT_MIN), search_bytes(0));
    for (int capacity = 1; capacity < 1 << 30; capacity *= 3) {
        EXPECT_GE(search_bytes(capacity), 60 * static_cast<std::size_t>(capacity));
        EXPECT_LE(search_bytes(capacity), 64 * static_cast<std::size_t>(capacity) + 512);
    }
    EXPECT_GT(search_bytes(INT_MAX), std::size_t{INT_MAX} * 60);
}

} // namespace
