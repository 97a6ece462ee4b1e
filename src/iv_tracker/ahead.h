/*
 * Fetches memory that a walk over the ring is about to meet. No cache holds many tracks, and where
 * the next one lies is read from the one before it: their latencies would add up. The last search
 * noted the addresses of all, in the ring's order, so that tracks further on are fetched while
 * those before them are at work. An address may be out of date: nothing behind it is read.
 */
#ifndef LIBIV_TRACKER_AHEAD_H
#define LIBIV_TRACKER_AHEAD_H

#include <cstdint>

#include "iv_tracker/search.h"

namespace iv::internal {

/// From this many tracks on it pays: fewer stay in a cache of two megabytes. Measured on an
/// x86-64 server with such a one.
constexpr int FETCHING_PAYS = 768;

class Ahead {
  public:
    explicit Ahead(const search_t& search)
        : place_(search.tracks),
          end_(search.tracks + (search.count >= FETCHING_PAYS ? search.count : 0)) {}

    /// The walk has come to `obj`: starts to fetch a later track, with so much of what it owns.
    void reach(const trk_obj_t* obj, std::size_t filter_bytes, std::size_t measurement_bytes) {
        const Owned* later = after(obj);
        if (!later) {
            return;
        }
        fetch(later->obj, sizeof(trk_obj_t));
        if (later->kalman) {
            fetch(later->kalman, filter_bytes);
            fetch(later->obv, measurement_bytes);
        }
    }

    /// The track to fetch when the walk has come to `obj`, or null; tracks before it have gone.
    const Owned* after(const trk_obj_t* obj) {
        while (place_ != end_ && place_->obj != obj) {
            ++place_;
        }
        return end_ - place_ > DISTANCE ? place_ + DISTANCE : nullptr;
    }

    static constexpr int DISTANCE = 4; ///< in tracks

  private:
    static void fetch(const void* block, std::size_t bytes) {
        constexpr std::uintptr_t line = 64;
        const char* start = static_cast<const char*>(block);
        const char* first = start - reinterpret_cast<std::uintptr_t>(start) % line;
        for (const char* at = first; at < start + bytes; at += line) {
            __builtin_prefetch(at, 1);
        }
    }

    const Owned* place_;
    const Owned* end_;
};

} // namespace iv::internal

#endif
