#ifndef LIBIV_MATRIX_INVERSE_H
#define LIBIV_MATRIX_INVERSE_H

namespace iv::internal {

/// The highest order that can be inverted.
constexpr int MAX_INVERSE_ORDER = 40;

/// Writes the inverse of the n x n floats at `A` to `inv`, which may be `A`. Returns -1 iff n is
/// above MAX_INVERSE_ORDER, with nothing written, else 0. Not reentrant: works in one static area.
int _matinv_nxn(int n, float* A, float* inv);

} // namespace iv::internal

#endif
