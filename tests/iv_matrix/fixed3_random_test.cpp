// The fixed-size kernels on random values against the model.
#include <gtest/gtest.h>

#include <string>

#include "model/library.h"
#include "model/twin.h"
#include "support/bits.h"

namespace {

using model::Library;
using model::Mat3;
using model::Scalar;
using model::Vec3;
using test::NanRule;
using test::Random;

void compare(float expected, float actual, NanRule rule, const std::string& place) {
    const bool same = rule == NanRule::PRODUCED ? test::same_number(expected, actual)
                                                : test::bits(expected) == test::bits(actual);
    EXPECT_TRUE(same) << place << "\n  is       " << test::show(actual) << "\n  expected "
                      << test::show(expected);
}

template <class Part>
void compare(const std::array<Part, 3>& expected, const std::array<Part, 3>& actual, NanRule rule,
             const std::string& place) {
    for (std::size_t i = 0; i < 3; ++i) {
        compare(expected[i], actual[i], rule, place + "[" + std::to_string(i) + "]");
    }
}

Vec3 random_vector(Random& random, float hostile) {
    Vec3 x;
    for (float& value : x) {
        unsigned char bytes[4];
        test::random_value(random, model::F32, hostile, bytes);
        value = model::load<float>(bytes, 0);
        // Sums that cancel show in which order and how often they were rounded.
        value *= random.chance(0.2f) ? 16777216.0f : 1.0f;
    }
    return x;
}

Mat3 random_matrix(Random& random, float hostile) {
    return {random_vector(random, hostile), random_vector(random, hostile),
            random_vector(random, hostile)};
}

TEST(Fixed3Random, EveryKernelGivesTheModelsBits) {
    Random random(test::seed() + 50);
    const NanRule produced = NanRule::PRODUCED;
    for (int round = 0; round < test::rounds(5000) && !HasFailure(); ++round) {
        SCOPED_TRACE(round);
        const float hostile = test::random_hostility(random);
        const Mat3 a = random_matrix(random, hostile);
        const Mat3 b = random.chance(0.1f) ? a : random_matrix(random, hostile);
        const Vec3 x = random_vector(random, hostile);
        const Vec3 y = random.chance(0.1f) ? x : random_vector(random, hostile);
        compare(Scalar::matmult(a, b), Library::matmult(a, b), produced, "A B");
        compare(Scalar::matmult_t(a, b), Library::matmult_t(a, b), produced, "A B'");
        compare(Scalar::matmult_vec(a, x), Library::matmult_vec(a, x), produced, "A x");
        compare(Scalar::matmult_tvec(a, x), Library::matmult_tvec(a, x), produced, "A' x");
        compare(Scalar::matneg(a), Library::matneg(a), NanRule::COPIED, "-A");
        compare(Scalar::matdet(a), Library::matdet(a), produced, "det A");
        compare(Scalar::vecoutp(x, y), Library::vecoutp(x, y), produced, "x y'");
        compare(Scalar::veccrossp(x, y), Library::veccrossp(x, y), produced, "x cross y");
        compare(Scalar::vecdotp(x, y), Library::vecdotp(x, y), produced, "x dot y");
    }
}

TEST(Fixed3Random, InputsMayBeTheSameArray) {
    Random random(test::seed() + 51);
    for (int round = 0; round < test::rounds(300) && !HasFailure(); ++round) {
        Mat3 a = random_matrix(random, 0.0f);
        Mat3 c;
        const auto plain = [](Mat3& m) { return reinterpret_cast<float(*)[3]>(&m); };
        _matmult_3x3(plain(a), plain(a), plain(c));
        compare(Scalar::matmult(a, a), c, NanRule::PRODUCED, "A A");
        _matmult_3x3t(plain(a), plain(a), plain(c));
        compare(Scalar::matmult_t(a, a), c, NanRule::PRODUCED, "A A'");
    }
}

} // namespace
