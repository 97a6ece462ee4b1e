// The nine kernels on 3x3 matrices and 3-vectors.
#ifndef LIBIV_TESTS_MODEL_FIXED3_H
#define LIBIV_TESTS_MODEL_FIXED3_H

#include <array>

namespace model {

using Vec3 = std::array<float, 3>;
using Mat3 = std::array<Vec3, 3>;

Mat3 matmult(const Mat3& a, const Mat3& b);
Mat3 matmult_t(const Mat3& a, const Mat3& b);
Vec3 matmult_vec(const Mat3& a, const Vec3& x);
Vec3 matmult_tvec(const Mat3& a, const Vec3& x);
Mat3 matneg(const Mat3& a);
float matdet(const Mat3& a);
Mat3 vecoutp(const Vec3& x, const Vec3& y);
Vec3 veccrossp(const Vec3& x, const Vec3& y);
float vecdotp(const Vec3& x, const Vec3& y);

} // namespace model

#endif
