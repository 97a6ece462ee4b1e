/*
 * The kernels: what runs per element of the operations whose speed matters, one table for each
 * instruction set. The operations check their operands, the kernels compute.
 */
#ifndef LIBIV_KERNELS_H
#define LIBIV_KERNELS_H

#include <cstddef>

namespace iv::internal {

/// d = start + sign * a * b, where a is any strided matrix and the others lie packed.
struct Product {
    const void* a;               ///< rows x inner
    std::ptrdiff_t a_row, a_col; ///< values from one row of a to the next, one column to the next
    const void* b;               ///< inner x cols, or cols x inner where it is read transposed
    std::ptrdiff_t b_row;        ///< values from one row of b to the next
    const void* start;           ///< rows x cols, may be d; null: sums start from their first term
    void* d;                     ///< rows x cols
    std::ptrdiff_t rows, cols;
    std::ptrdiff_t inner; ///< index summed over, ascending
};

/// How a product reads its second factor and what it does with the terms.
enum ProductMode { PLUS, MINUS, PLUS_TRANSPOSED, PRODUCT_MODES };

struct Kernels {
    const char* level; ///< name of the instruction set
    /// By depth and mode. Signed and unsigned integers share: the low bits are the same.
    void (*product[8][PRODUCT_MODES])(const Product&);
};

#if defined(__x86_64__)
extern const Kernels KERNELS_BASELINE;
extern const Kernels KERNELS_V3; ///< AVX2 and FMA
extern const Kernels KERNELS_V4; ///< AVX-512: F, BW, DQ and VL

/// Finds the best table for this machine and remembers it.
const Kernels& choose_kernels();
extern const Kernels* chosen_kernels;

/// The kernels of this machine. Threads may race to the first call: they all store the same.
inline const Kernels& kernels() {
    const Kernels* chosen = __atomic_load_n(&chosen_kernels, __ATOMIC_RELAXED);
    return chosen ? *chosen : choose_kernels();
}
#else
extern const Kernels KERNELS_BASELINE;

inline const Kernels& kernels() {
    return KERNELS_BASELINE;
}
#endif

} // namespace iv::internal

#endif
