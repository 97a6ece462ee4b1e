#include "model/kalman.h"

namespace model {

Mat Kalman::make(int rows, int cols) {
    storage_.emplace_back(static_cast<std::size_t>(rows * cols + 1) * sizeof(float));
    return header(F32, rows, cols, storage_.back().data());
}

Kalman::Kalman(int ns, int nm) : Kalman(ns, nm, Mat{}, Mat{}, Mat{}, Mat{}) {
    A = make(ns, ns);
    H = make(nm, ns);
    Q = make(ns, ns);
    R = make(nm, nm);
}

Kalman::Kalman(int ns, int nm, const Mat& transition, const Mat& measurement,
               const Mat& process_noise, const Mat& measurement_noise)
    : x_pre(make(ns, 1)),
      x_post(make(ns, 1)),
      P_pre(make(ns, ns)),
      P_post(make(ns, ns)),
      K(make(ns, nm)),
      temp1(make(ns, ns)),
      temp2(make(ns, nm)),
      temp3(make(nm, nm)),
      temp4(make(nm, nm)),
      temp5(make(nm, 1)),
      A(transition),
      H(measurement),
      Q(process_noise),
      R(measurement_noise) {}

void Kalman::predict() {
    mul(A, x_post, x_pre, 0);
    mul(A, P_post, temp1, TRANSPOSED_SECOND);
    muladd(temp1, A, Q, P_pre, TRANSPOSED_SECOND);
}

void Kalman::correct(const Mat& z) {
    mul(P_pre, H, temp2, TRANSPOSED_SECOND);
    muladd(H, temp2, R, temp3, 0);
    inv(temp3, temp4);
    mul(temp2, temp4, K, TRANSPOSED_SECOND);
    submul(&z, H, x_pre, temp5, 0);
    muladd(K, temp5, x_pre, x_post, 0);
    submul(nullptr, K, H, temp1, IDENTITY_FIRST);
    mul(temp1, P_pre, P_post, TRANSPOSED_SECOND);
}

std::array<Mat, 14> Kalman::matrices() const {
    return {x_pre, x_post, P_pre, P_post, K, temp1, temp2, temp3, temp4, temp5, A, H, Q, R};
}

} // namespace model
