// Which track is fetched while a walk over the ring is at another one.
#include "iv_tracker/ahead.h"

#include <gtest/gtest.h>

#include <vector>

#include "support/guarded.h"

namespace {

using namespace iv::internal;
using test::Guarded;

/// What the last search noted of so many tracks.
class Noted {
  public:
    explicit Noted(int count)
        : tracks_(static_cast<std::size_t>(count)), memory_(search_bytes(count)) {
        search_init(&search_, memory_.data(), count);
        for (trk_obj_t& track : tracks_) {
            search_add(&search_, &track);
        }
    }

    Ahead ahead() const { return Ahead(search_); }

    trk_obj_t* track(int place) { return &tracks_[static_cast<std::size_t>(place)]; }

  private:
    std::vector<trk_obj_t> tracks_;
    Guarded memory_;
    search_t search_ = {};
};

constexpr int MANY = FETCHING_PAYS;

TEST(Ahead, FewTracksAreNotFetched) {
    Noted noted(MANY - 1);
    Ahead ahead = noted.ahead();
    for (int place = 0; place < MANY - 1; ++place) {
        EXPECT_EQ(ahead.after(noted.track(place)), nullptr) << place;
    }
}

TEST(Ahead, OfManyTheOneAFewPlacesOnIsUntilThereIsNone) {
    Noted noted(MANY);
    Ahead ahead = noted.ahead();
    for (int place = 0; place < MANY - Ahead::DISTANCE; ++place) {
        const Owned* later = ahead.after(noted.track(place));
        ASSERT_NE(later, nullptr) << place;
        EXPECT_EQ(later->obj, noted.track(place + Ahead::DISTANCE)) << place;
    }
    for (int place = MANY - Ahead::DISTANCE; place < MANY; ++place) {
        EXPECT_EQ(ahead.after(noted.track(place)), nullptr) << place;
    }
}

TEST(Ahead, TracksThatHaveGoneAreSteppedOver) {
    Noted noted(MANY);
    Ahead ahead = noted.ahead();
    for (const int place : {1, 5, 6, 100, MANY - Ahead::DISTANCE - 1}) {
        const Owned* later = ahead.after(noted.track(place));
        ASSERT_NE(later, nullptr) << place;
        EXPECT_EQ(later->obj, noted.track(place + Ahead::DISTANCE)) << place;
    }
    EXPECT_EQ(ahead.after(noted.track(MANY - 1)), nullptr);
}

TEST(Ahead, BehindATrackThatWasNotNotedNothingIsFetched) {
    Noted noted(MANY);
    Ahead ahead = noted.ahead();
    trk_obj_t young = {};
    EXPECT_EQ(ahead.after(&young), nullptr);
    EXPECT_EQ(ahead.after(noted.track(0)), nullptr) << "the walk has passed it";
}

TEST(Ahead, WhatTracksOwnIsNoted) {
    iv_kalman_t filter = {};
    iv_mat_t measurement = {};
    trk_obj_t track = {};
    track.kalman = &filter;
    track.obv = &measurement;
    Guarded memory(search_bytes(1));
    search_t search = {};
    search_init(&search, memory.data(), 1);
    search_add(&search, &track);
    EXPECT_EQ(search.tracks[0].obj, &track);
    EXPECT_EQ(search.tracks[0].kalman, &filter);
    EXPECT_EQ(search.tracks[0].obv, &measurement);
}

TEST(Ahead, AFilterStartsWithItsStateAndIsAsLongAsSaid) {
    iv_kalman_t* filter = iv_kalman_create(8, 4, 1, nullptr, nullptr, nullptr, nullptr);
    ASSERT_NE(filter, nullptr);
    const auto place = [filter](const void* p) {
        return static_cast<std::size_t>(static_cast<const char*>(p) -
                                        reinterpret_cast<const char*>(filter));
    };
    EXPECT_EQ(place(filter->P_pre), STATE_BYTES);
    EXPECT_EQ(place(filter->temp5->data.f + 4), FILTER_BYTES);
    iv_kalman_release(filter);
}

} // namespace
