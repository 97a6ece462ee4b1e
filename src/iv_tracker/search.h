/*
 * The search for the predicted track nearest to a detection, and its scratch memory. What it reads
 * of the tracks is copied into contiguous arrays once a frame; few tracks are then scanned from end
 * to end, many are looked up in a grid. Both ways find the same track at the same distance.
 */
#ifndef LIBIV_TRACKER_SEARCH_H
#define LIBIV_TRACKER_SEARCH_H

#include "iv_lanes/kernels.h"
#include "iv_tracker.h"

namespace iv::internal {

/// A track and what it owned when the frame began.
struct Owned {
    trk_obj_t* obj;
    const iv_kalman_t* kalman;
    const iv_mat_t* obv;
};

struct search_t {
    Owned* tracks; ///< the tracks of this frame, oldest first
    int count;
    Centres ring;     ///< of the tracks, in their order
    Centres grid;     ///< the same in order of buckets; within a bucket in order of age
    unsigned* starts; ///< where each bucket starts in `grid`, and behind the last one the count
    unsigned buckets; ///< a power of two, at least two
    int row_bits;     ///< by how much a row's hash is shifted to become a bucket
};

/// Bytes of scratch memory for that many tracks; as for none when the capacity is negative.
std::size_t search_bytes(int capacity);

/// Lays the arrays out in `memory`, which is aligned for pointers.
void search_init(search_t* search, void* memory, int capacity);

/// Adds a predicted track behind those that were added before.
inline void search_add(search_t* search, trk_obj_t* obj) {
    const int age = search->count++;
    search->tracks[age] = {obj, obj->kalman, obj->obv};
    search->ring.x[age] = obj->pr_x;
    search->ring.y[age] = obj->pr_y;
    search->ring.c[age] = obj->c;
    search->ring.age[age] = age;
}

/// Makes what was added ready to be searched.
void search_index(search_t* search);

/// The nearest of the tracks of the detection's class, or of any class; of equally near ones the
/// oldest.
Nearest search_nearest(const search_t& search, const det_obj_t& det, bool any_class);

// What search_index and search_nearest choose from, by the number of tracks.
void fill_grid(search_t* search);
Nearest nearest_by_scan(const search_t& search, const det_obj_t& det, bool any_class);
Nearest nearest_by_grid(const search_t& search, const det_obj_t& det, bool any_class);

/// From this many tracks on the grid is used. Measured on Zen 5, a detection in the grid costs
/// 25 ns, its filling included, and the scan as much from 96 tracks with eight lanes, from 40 with
/// four.
constexpr int GRID_PAYS = 64;

/// The block of an instance starts with these two; the arrays of the search are behind them.
struct instance_t {
    tracker_t record;
    search_t search;
};

inline search_t* search_of(tracker_t* tracker) {
    return &reinterpret_cast<instance_t*>(tracker)->search;
}

} // namespace iv::internal

#endif
