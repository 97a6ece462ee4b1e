#include "iv_tracker/search.h"

#include <cstdint>
#include <cstring>

namespace iv::internal {
namespace {

/// Side of a cell: a power of two, so that division by it is exact, and wider than the reach to
/// both sides, so that the reach touches two cells in each direction at most.
constexpr float CELL = 32.0f;

/// The square root of MAX_DISTANCE.
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

centres_t take_centres(unsigned char** memory, std::size_t count) {
    return {take<float>(memory, count), take<float>(memory, count), take<int>(memory, count),
            take<int>(memory, count)};
}

/// Centres first..end - 1.
struct range_t {
    unsigned first, end;
};

/// Distance first, then age, as one number that orders them: squared distances are not negative,
/// so their bits order them, and a NaN is beyond all numbers.
std::uint64_t key_of(float d, int age) {
    std::uint32_t bits;
    std::memcpy(&bits, &d, sizeof bits);
    return std::uint64_t{bits} << 32 | static_cast<std::uint32_t>(age);
}

/// The nearest of the centres in the ranges: plain single precision, and no branch depends on a
/// centre, since none could be foretold.
nearest_t nearest(const centres_t& centres, const range_t* ranges, int count, const det_obj_t& det,
                  bool any_class) {
    const std::uint64_t none =
        key_of(MAX_DISTANCE, 0); // at this distance even the oldest is not less
    std::uint64_t best = none;
    for (const range_t* range = ranges; range != ranges + count; ++range) {
        for (unsigned i = range->first; i < range->end; ++i) {
            const float dx = centres.x[i] - det.x;
            const float dy = centres.y[i] - det.y;
            const std::uint64_t key = key_of(dx * dx + dy * dy, centres.age[i]);
            const bool nearer = key < best;
            best = nearer & (any_class | (centres.c[i] == det.c)) ? key : best;
        }
    }
    nearest_t result;
    if (best != none) {
        const std::uint32_t bits = static_cast<std::uint32_t>(best >> 32);
        std::memcpy(&result.d, &bits, sizeof bits);
        result.age = static_cast<int>(static_cast<std::uint32_t>(best));
    }
    return result;
}

} // namespace

std::size_t search_bytes(int capacity) {
    const std::size_t count = at_least_none(capacity);
    return count * (sizeof(trk_obj_t*) + 4 * sizeof(float) + 4 * sizeof(int)) +
           (std::size_t{buckets_for(at_least_none(capacity))} + 1) * sizeof(unsigned);
}

void search_init(search_t* search, void* memory, int capacity) {
    const std::size_t count = at_least_none(capacity);
    unsigned char* cursor = static_cast<unsigned char*>(memory);
    search->tracks = take<trk_obj_t*>(&cursor, count);
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
}

nearest_t nearest_by_scan(const search_t& search, const det_obj_t& det, bool any_class) {
    const range_t all = {0, static_cast<unsigned>(search.count)};
    return nearest(search.ring, &all, 1, det, any_class);
}

// A track that the scan finds has a squared distance below 100 as computed. Rounding never turns
// an order around, so the true difference of the coordinates is below 10 in both directions, both
// being finite: the centre lies, again in the order of rounded values, between the detection's
// centre less and plus 10, and its cell between theirs. Those two are the same cell or neighbours,
// for even where floats are coarse the two are 32 apart at most. Other tracks of the same buckets
// do no harm: they are measured as the scan measures them.
nearest_t nearest_by_grid(const search_t& search, const det_obj_t& det, bool any_class) {
    const int left = cell_of(det.x - REACH);
    const int right = cell_of(det.x + REACH);
    // When both rows are the same it is searched twice: cheaper than a branch.
    const int rows[2] = {cell_of(det.y - REACH), cell_of(det.y + REACH)};
    range_t ranges[4];
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
    return nearest(search.grid, ranges, count, det, any_class);
}

void search_index(search_t* search) {
    if (search->count >= GRID_PAYS) {
        fill_grid(search);
    }
}

nearest_t search_nearest(const search_t& search, const det_obj_t& det, bool any_class) {
    return search.count >= GRID_PAYS ? nearest_by_grid(search, det, any_class)
                                     : nearest_by_scan(search, det, any_class);
}

} // namespace iv::internal
