#ifndef LIBIV_KALMAN_H
#define LIBIV_KALMAN_H

#include "_libiv.h"

namespace iv::internal {

/// Matrices in a filter's block at the most: ten of its own and the four of its model.
constexpr int MAX_KALMAN_MATRICES = 14;

/// Fills the tables with bytes (header and values), rows and columns of each matrix in field order
/// and returns how many there are: 10 with a caller's model (`flag` non-zero), else 14.
int getmsizes(int* msizes, int* mrows, int* mcols, int ns, int nm, int flag);

// The two halves of a prediction: x_pre, then temp1 and P_pre. Neither needs the other.
void predict_state(iv_kalman_t* kalman);
void predict_covariance(iv_kalman_t* kalman);

} // namespace iv::internal

#endif
