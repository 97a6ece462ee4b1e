// The table of kernels of one instruction set: compiled once for each, with IV_KERNELS the name of
// the table and IV_LEVEL the name of the set.

#include "iv_lanes/kernels.h"

// g++ takes the constant bounds of arrays in templates for conversions.
#pragma GCC diagnostic ignored "-Wsign-conversion"

#include "iv_kalman/pairs_kernel.h"
#include "iv_matrix/elementwise_kernel.h"
#include "iv_matrix/inverse_kernel.h"
#include "iv_matrix/product_kernel.h"
#include "iv_matrix/transpose_kernel.h"
#include "iv_tracker/nearest_kernel.h"

namespace iv::internal {

#define IV_PRODUCTS(T) \
    { product<T, PLUS>, product<T, MINUS>, product<T, PLUS_TRANSPOSED> }
#define IV_INTEGER_PRODUCTS(T) \
    { product<T, PLUS>, product<T, PLUS>, product<T, PLUS_TRANSPOSED> }

#define IV_ELEMENTWISE(T) \
    { elementwise<T, NEG>, elementwise<T, SCALE>, elementwise<T, ADD>, elementwise<T, SUB> }

const Kernels IV_KERNELS = {
    IV_LEVEL,
    WIDE,
    {IV_INTEGER_PRODUCTS(std::uint8_t), IV_INTEGER_PRODUCTS(std::uint8_t),
     IV_INTEGER_PRODUCTS(std::uint16_t), IV_INTEGER_PRODUCTS(std::uint16_t),
     IV_INTEGER_PRODUCTS(std::uint32_t), IV_PRODUCTS(float), IV_INTEGER_PRODUCTS(std::uint64_t),
     IV_PRODUCTS(double)},
    {IV_ELEMENTWISE(std::uint8_t), IV_ELEMENTWISE(std::uint8_t), IV_ELEMENTWISE(std::uint16_t),
     IV_ELEMENTWISE(std::uint16_t), IV_ELEMENTWISE(std::uint32_t), IV_ELEMENTWISE(float),
     IV_ELEMENTWISE(std::uint64_t), IV_ELEMENTWISE(double)},
    elementwise<std::uint64_t, FILL>,
    {transpose<std::uint8_t>, transpose<std::uint16_t>, transpose<std::uint32_t>,
     transpose<std::uint64_t>},
    predict_state,
    predict_covariance,
    correct,
    invert,
    nearest,
};

} // namespace iv::internal
