#ifndef LIBIV_MATRIX_INVERSE_H
#define LIBIV_MATRIX_INVERSE_H

namespace iv::internal {

/// The highest order that can be inverted.
constexpr int MAX_INVERSE_ORDER = 40;

/// Augmented rows: the matrix half in columns 0 to n - 1, the identity half in n to 2n - 1. It
/// outlives the calls: where the last pivot of order r is zero, row r comes in as an earlier call
/// left it, from column r - 1 to column 2r - 1. So much of each row is part of every result, the
/// rest is free; whole registers reach up to 16 columns behind. The spare last row stays zero.
struct WorkArea {
    alignas(64) float rows[MAX_INVERSE_ORDER + 1][2 * MAX_INVERSE_ORDER + 16];
};

/// The one that all calls share.
WorkArea& inverse_work_area();

/// Writes the inverse of the n x n floats at `A` to `inv`, which may be `A`. Returns -1 iff n is
/// above MAX_INVERSE_ORDER, with nothing written, else 0. Not reentrant: works in one static area.
int _matinv_nxn(int n, float* A, float* inv);

} // namespace iv::internal

#endif
