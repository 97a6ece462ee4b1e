// The linear Kalman filter as eleven matrix steps.
#ifndef LIBIV_TESTS_MODEL_KALMAN_H
#define LIBIV_TESTS_MODEL_KALMAN_H

#include <array>
#include <vector>

#include "model/matrix.h"

namespace model {

class Kalman {
    /// Declared first: the matrices point into it.
    std::vector<std::vector<unsigned char>> storage_;

  public:
    /// A filter with a model of its own, all zero.
    Kalman(int ns, int nm);
    /// A filter that refers to somebody else's model.
    Kalman(int ns, int nm, const Mat& transition, const Mat& measurement, const Mat& process_noise,
           const Mat& measurement_noise);
    Kalman(const Kalman&) = delete;
    Kalman& operator=(const Kalman&) = delete;

    void predict();
    void correct(const Mat& z);

    /// All fourteen, in the order of the record.
    std::array<Mat, 14> matrices() const;

    Mat x_pre, x_post, P_pre, P_post, K, temp1, temp2, temp3, temp4, temp5;
    Mat A, H, Q, R;

  private:
    Mat make(int rows, int cols);
};

} // namespace model

#endif
