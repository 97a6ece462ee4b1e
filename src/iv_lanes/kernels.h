/*
 * The kernels: what runs per element of the operations whose speed matters, one table for each
 * instruction set. The operations check their operands, the kernels compute.
 */
#ifndef LIBIV_KERNELS_H
#define LIBIV_KERNELS_H

#include <cstddef>
#include <cstdint>

#include "_libiv.h"

namespace iv::internal {

struct WorkArea;

/// Some columns and terms of a product: where they start, and how many there are.
struct ProductPart {
    const void* a;     ///< rows x inner
    const void* b;     ///< inner x cols, or cols x inner where it is read transposed
    const void* start; ///< rows x cols, may be d; null: sums start from their first term
    void* d;           ///< rows x cols
    std::ptrdiff_t cols;
    std::ptrdiff_t inner; ///< index summed over, ascending
};

/// d = start + sign * a * b
struct Product {
    ProductPart all;
    std::ptrdiff_t a_row, a_col; ///< values from one row of a to the next, one column to the next
    std::ptrdiff_t b_row;        ///< values from one row of b to the next
    std::ptrdiff_t d_row;        ///< values from one row of d, and of start, to the next
    std::ptrdiff_t rows;         ///< of a and d
    std::uint64_t flip;          ///< how integers subtract: all ones if they do, else zero
};

/// How a product reads its second factor and what it does with the terms.
enum ProductMode { PLUS, MINUS, PLUS_TRANSPOSED, PRODUCT_MODES };

using ProductKernel = void(const Product&);

/// d[i] = operation(a[i], b[i]) over flat arrays of `bytes` bytes, at least Kernels::width, of which
/// d starts at or before a source or does not overlap it. The b of a scaling is one value, a
/// negation has none.
using Elementwise = void(const void* a, const void* b, void* d, std::ptrdiff_t bytes);

enum ElementwiseOperation { NEG, SCALE, ADD, SUB, ELEMENTWISE_OPERATIONS, FILL };

/// Predicted tracks, one array a field. Of the CENTRES_BEYOND places behind the last track x is NaN.
struct Centres {
    float* x; ///< centre
    float* y;
    std::int32_t* c;   ///< class
    std::int32_t* age; ///< place among the tracks: 0 is the oldest
};

/// Places behind the last track that a kernel may read.
constexpr int CENTRES_BEYOND = 8;

/// Places first..end - 1.
struct Range {
    unsigned first, end;
};

/// What the nearest track is wanted of.
struct Target {
    float x, y;
    std::int32_t c;
    std::int32_t class_bits; ///< bits of the class that have to agree: all or none
};

/// A track by its age, and its squared distance.
struct Nearest {
    float d;
    std::int32_t age;
};

/// No track, at the squared distance that every track has to stay below.
constexpr Nearest NO_TRACK = {100.0f, -1};

struct Kernels {
    const char* level;    ///< name of the instruction set
    std::ptrdiff_t width; ///< bytes of a register
    /// By depth and mode. Signed and unsigned integers share: the low bits are the same.
    ProductKernel* product[8][PRODUCT_MODES];
    /// By depth and operation, shared likewise.
    Elementwise* elementwise[8][ELEMENTWISE_OPERATIONS];
    Elementwise* fill; ///< d[i] = *b, in 64-bit words; the last may be cut
    /// By the logarithm of an element's size. src is rows x cols, dst does not overlap it; the
    /// elements of a row have 16 bytes at least, and so those of a column.
    void (*transpose[4])(const void* src, void* dst, std::ptrdiff_t rows, std::ptrdiff_t cols);
    // The equations of a filter with 8 states and 4 measured values, storage as created. They return
    // false, with nothing written, where these kernels do not have what the equations give.
    bool (*predict_state)(const iv_kalman_t&);
    bool (*predict_covariance)(const iv_kalman_t&);
    bool (*correct)(const iv_kalman_t&, const float* measurement, WorkArea&);
    /// Inverts the n x n floats at `from`, 1 to MAX_INVERSE_ORDER, into `to`, which may be `from`.
    void (*invert)(WorkArea&, int n, const void* from, void* to);
    /// The nearest track in the ranges, or NO_TRACK; of equally near ones the oldest. Tracks outside
    /// of the ranges may be found, too.
    Nearest (*nearest)(const Centres&, const Range* ranges, int count, const Target&);
};

#ifdef IV_DISPATCH
extern const Kernels KERNELS_BASELINE;
extern const Kernels KERNELS_V3; ///< AVX2 and FMA
extern const Kernels KERNELS_V4; ///< AVX-512: F, BW, DQ and VL

/// Whether this machine has the instructions of a table.
bool runs(const Kernels& level);

/// Finds the best table for this machine and remembers it.
const Kernels& choose_kernels();
extern const Kernels* chosen_kernels;

/// The kernels of this machine. Threads may race to the first call: they all store the same.
inline const Kernels& kernels() {
    const Kernels* chosen = __atomic_load_n(&chosen_kernels, __ATOMIC_RELAXED);
    return __builtin_expect(chosen != nullptr, 1) ? *chosen : choose_kernels();
}
#else
extern const Kernels KERNELS_BASELINE;

inline const Kernels& kernels() {
    return KERNELS_BASELINE;
}
#endif

} // namespace iv::internal

#endif
