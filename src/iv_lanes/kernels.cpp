// The table of kernels of one instruction set: compiled once for each, with IV_KERNELS the name of
// the table and IV_LEVEL the name of the set.

#include "iv_lanes/kernels.h"

// g++ takes the constant bounds of arrays in templates for conversions.
#pragma GCC diagnostic ignored "-Wsign-conversion"

#include "iv_matrix/product_kernel.h"
#include "iv_tracker/nearest_kernel.h"

namespace iv::internal {

#define IV_PRODUCTS(T) \
    { product<T, PLUS>, product<T, MINUS>, product<T, PLUS_TRANSPOSED> }

const Kernels IV_KERNELS = {
    IV_LEVEL,
    {IV_PRODUCTS(std::uint8_t), IV_PRODUCTS(std::uint8_t), IV_PRODUCTS(std::uint16_t),
     IV_PRODUCTS(std::uint16_t), IV_PRODUCTS(std::uint32_t), IV_PRODUCTS(float),
     IV_PRODUCTS(std::uint64_t), IV_PRODUCTS(double)},
    nearest,
};

} // namespace iv::internal
