#ifndef LIBIV_KALMAN_H
#define LIBIV_KALMAN_H

namespace iv::internal {

/// Matrices in a filter's block at the most: ten of its own and the four of its model.
constexpr int MAX_KALMAN_MATRICES = 14;

/// Fills the tables with bytes (header and values), rows and columns of each matrix in field order
/// and returns how many there are: 10 with a caller's model (`flag` non-zero), else 14.
int getmsizes(int* msizes, int* mrows, int* mcols, int ns, int nm, int flag);

} // namespace iv::internal

#endif
