#include "iv_tracker/search.h"

#include <algorithm>
#include <cstring>
#include <limits>

namespace iv::internal {
namespace {

/// Side of a cell: a power of two, so that division by it is exact, and wider than the reach to
/// both sides, so that the reach touches two cells in each direction at most.
constexpr float CELL = 32.0f;

/// No association reaches this far: the square root of NO_TRACK.d.
constexpr float REACH = 10.0f;

/// Centres beyond this many cells share the outermost cell: as far as an int goes.
constexpr float OUTERMOST_CELL = 0x1p30f;

/// The cell of a coordinate: it never falls when the coordinate rises, and is defined for
/// infinities and NaN. Rounds toward zero, so the cell around zero is twice as wide.
int cell_of(float coordinate) {
    const float cells = coordinate * (1.0f / CELL);
    const float not_below = cells > -OUTERMOST_CELL ? cells : -OUTERMOST_CELL;
    return static_cast<int>(not_below < OUTERMOST_CELL ? not_below : OUTERMOST_CELL);
}

/// Cells of a row have buckets side by side, and rows start far from each other.
unsigned bucket_of(const search_t& search, int column, int row) {
    const unsigned row_start = (static_cast<unsigned>(row) * 0x9e3779b9u) >> search.row_bits;
    return (row_start + static_cast<unsigned>(column)) & (search.buckets - 1);
}

unsigned bucket_of_track(const search_t& search, int age) {
    return bucket_of(search, cell_of(search.ring.x[age]), cell_of(search.ring.y[age]));
}

/// Enough for one track a bucket.
unsigned buckets_for(unsigned count) {
    unsigned buckets = 2;
    while (buckets < count) {
        buckets *= 2;
    }
    return buckets;
}

unsigned at_least_none(int capacity) {
    return capacity < 0 ? 0 : static_cast<unsigned>(capacity);
}

/// The next `count` values of the memory.
template <class T>
T* take(unsigned char** memory, std::size_t count) {
    T* values = reinterpret_cast<T*>(static_cast<void*>(*memory));
    *memory += count * sizeof(T);
    return values;
}

Centres take_centres(unsigned char** memory, std::size_t count) {
    return {take<float>(memory, count), take<float>(memory, count), take<int>(memory, count),
            take<int>(memory, count)};
}

/// Writes what the kernel needs behind the last track.
void close(Centres* centres, int count) {
    std::fill_n(centres->x + count, CENTRES_BEYOND, std::numeric_limits<float>::quiet_NaN());
}

Target target_of(const det_obj_t& det, bool any_class) {
    return {det.x, det.y, det.c, any_class ? 0 : -1};
}

} // namespace

std::size_t search_bytes(int capacity) {
    const std::size_t count = std::size_t{at_least_none(capacity)} + CENTRES_BEYOND;
    return count * (sizeof(Owned) + 4 * sizeof(float) + 4 * sizeof(int)) +
           (std::size_t{buckets_for(at_least_none(capacity))} + 1) * sizeof(unsigned);
}

void search_init(search_t* search, void* memory, int capacity) {
    const std::size_t count = std::size_t{at_least_none(capacity)} + CENTRES_BEYOND;
    unsigned char* cursor = static_cast<unsigned char*>(memory);
    search->tracks = take<Owned>(&cursor, count);
    search->ring = take_centres(&cursor, count);
    search->grid = take_centres(&cursor, count);
    search->starts = take<unsigned>(&cursor, buckets_for(at_least_none(capacity)) + 1);
}

void fill_grid(search_t* search) {
    const unsigned count = static_cast<unsigned>(search->count);
    search->row_bits = 31;
    search->buckets = 2;
    while (search->buckets < count) {
        search->buckets *= 2;
        --search->row_bits;
    }
    // Counts, then ends, then, as tracks are put in from the youngest to the oldest, starts.
    unsigned* starts = search->starts;
    std::memset(starts, 0, search->buckets * sizeof *starts);
    for (int age = 0; age < search->count; ++age) {
        ++starts[bucket_of_track(*search, age)];
    }
    for (unsigned bucket = 1; bucket < search->buckets; ++bucket) {
        starts[bucket] += starts[bucket - 1];
    }
    starts[search->buckets] = count;
    for (int age = search->count - 1; age >= 0; --age) {
        const unsigned place = --starts[bucket_of_track(*search, age)];
        search->grid.x[place] = search->ring.x[age];
        search->grid.y[place] = search->ring.y[age];
        search->grid.c[place] = search->ring.c[age];
        search->grid.age[place] = age;
    }
    close(&search->grid, search->count);
}

Nearest nearest_by_scan(const search_t& search, const det_obj_t& det, bool any_class) {
    const Range all = {0, static_cast<unsigned>(search.count)};
    return kernels().nearest(search.ring, &all, 1, target_of(det, any_class));
}

// A track that the scan finds has a squared distance below 100 as computed. Rounding never turns
// an order around, so the true difference of the coordinates is below 10 in both directions, both
// being finite: the centre lies, again in the order of rounded values, between the detection's
// centre less and plus 10, and its cell between theirs. Those two are the same cell or neighbours,
// for even where floats are coarse the two are 32 apart at most. Other tracks of the same buckets
// do no harm: they are measured as the scan measures them.
Nearest nearest_by_grid(const search_t& search, const det_obj_t& det, bool any_class) {
    const int left = cell_of(det.x - REACH);
    const int right = cell_of(det.x + REACH);
    // When both rows are the same it is searched twice: cheaper than a branch.
    const int rows[2] = {cell_of(det.y - REACH), cell_of(det.y + REACH)};
    Range ranges[4];
    int count = 0;
    for (const int row : rows) {
        unsigned first = bucket_of(search, left, row);
        const unsigned last = bucket_of(search, right, row);
        if (last < first) { // the row goes on at the start of the table
            ranges[count++] = {search.starts[first], search.starts[search.buckets]};
            first = 0;
        }
        ranges[count++] = {search.starts[first], search.starts[last + 1]};
    }
    return kernels().nearest(search.grid, ranges, count, target_of(det, any_class));
}

void search_index(search_t* search) {
    if (search->count >= GRID_PAYS) {
        fill_grid(search);
    } else {
        close(&search->ring, search->count);
    }
}

Nearest search_nearest(const search_t& search, const det_obj_t& det, bool any_class) {
    return search.count >= GRID_PAYS ? nearest_by_grid(search, det, any_class)
                                     : nearest_by_scan(search, det, any_class);
}

} // namespace iv::internal
