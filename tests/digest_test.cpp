// One number for each function that computes with floats, the same from every compiler, at every
// optimisation and on every machine.
#include <gtest/gtest.h>

#include <cinttypes>
#include <cstdlib>
#include <fstream>
#include <map>
#include <string>

#include "model/scene.h"
#include "model/twin.h"
#include "support/bits.h"

#ifndef LIBIV_DIGESTS
#define LIBIV_DIGESTS "tests/digests.txt"
#endif

namespace {

using model::Mat;
using test::Random;

/// 64-bit FNV-1a over the bytes of canonical bits, lowest byte first.
class Digest {
  public:
    template <class T>
    void add(T value) {
        auto bits = test::canonical_bits(value);
        for (std::size_t i = 0; i < sizeof bits; ++i) {
            state_ = (state_ ^ static_cast<std::uint8_t>(bits)) * 0x100000001b3u;
            bits = static_cast<decltype(bits)>(bits >> 8);
        }
    }
    template <class T>
    void add(const std::array<T, 3>& values) {
        for (const T& value : values) {
            add(value);
        }
    }
    void add(const Mat& mat) {
        model::with_depth(mat.type, [&](auto zero) {
            for (int i = 0; i < model::flat_count(mat); ++i) {
                add_number(model::load<decltype(zero)>(mat.data, i));
            }
        });
    }
    std::uint64_t value() const { return state_; }

  private:
    template <class T>
    void add_number(T value) {
        if constexpr (std::is_floating_point_v<T>) {
            add(value);
        }
    }

    std::uint64_t state_ = 0xcbf29ce484222325u;
};

using Digests = std::map<std::string, std::uint64_t>;

/// A packed matrix of random values that owns them.
class Values {
  public:
    Values(Random& random, int type, int rows, int cols, float hostile)
        : bytes_(static_cast<std::size_t>(rows * cols * model::value_size(type))),
          mat_(model::header(type, rows, cols, bytes_.data())) {
        for (int i = 0; i < rows * cols; ++i) {
            test::random_value(random, type, hostile, bytes_.data() + i * model::value_size(type));
        }
    }
    Values(const Values&) = delete;
    Values& operator=(const Values&) = delete;

    const Mat& mat() const { return mat_; }
    unsigned char* data() { return bytes_.data(); }

  private:
    std::vector<unsigned char> bytes_;
    Mat mat_;
};

constexpr float HOSTILE[] = {0.0f, 0.0f, 0.0f, 0.02f};

/// The products of one shape per round, in every mode.
template <class Side>
void digest_products(Digests& digests, int type, const std::string& suffix) {
    Digest products[3], sums[2], differences[2];
    Random random(0x1001);
    for (int round = 0; round < 120; ++round) {
        const float hostile = HOSTILE[round % 4];
        const int rows = random.between(1, 12);
        const int inner = random.between(1, 12);
        const int cols = random.between(1, 12);
        Values a(random, type, rows, inner, hostile);
        Values a_transposed(random, type, inner, rows, hostile);
        Values b(random, type, inner, cols, hostile);
        Values b_transposed(random, type, cols, inner, hostile);
        Values e(random, type, rows, cols, hostile);
        Values d(random, type, rows, cols, 0.0f);
        Side::mul(a.mat(), b.mat(), d.mat(), 0);
        products[0].add(d.mat());
        Side::mul(a_transposed.mat(), b.mat(), d.mat(), 1);
        products[1].add(d.mat());
        Side::mul(a.mat(), b_transposed.mat(), d.mat(), 2);
        products[2].add(d.mat());
        Side::muladd(a.mat(), b.mat(), e.mat(), d.mat(), 0);
        sums[0].add(d.mat());
        Side::muladd(a.mat(), b_transposed.mat(), e.mat(), d.mat(), 2);
        sums[1].add(d.mat());
        Side::submul(&e.mat(), a.mat(), b.mat(), d.mat(), 0);
        differences[0].add(d.mat());
        Side::submul(nullptr, a.mat(), b.mat(), d.mat(), 16);
        differences[1].add(d.mat());
    }
    digests["mul" + suffix] = products[0].value();
    digests["mul_trans_src1" + suffix] = products[1].value();
    digests["mul_trans_src2" + suffix] = products[2].value();
    digests["muladd" + suffix] = sums[0].value();
    digests["muladd_trans_src2" + suffix] = sums[1].value();
    digests["submul" + suffix] = differences[0].value();
    digests["submul_identity" + suffix] = differences[1].value();
}

template <class Side>
void digest_elementwise(Digests& digests, int type, const std::string& suffix) {
    Digest neg, scale, add, sub;
    Random random(0x2002);
    for (int round = 0; round < 120; ++round) {
        const float hostile = HOSTILE[round % 4];
        const int rows = random.between(1, 12);
        const int cols = random.between(1, 12);
        Values a(random, type, rows, cols, hostile);
        Values b(random, type, rows, cols, hostile);
        Values d(random, type, rows, cols, 0.0f);
        Side::neg(a.mat(), d.mat());
        neg.add(d.mat());
        Side::scale(b.data(), a.mat(), d.mat());
        scale.add(d.mat());
        Side::add(a.mat(), b.mat(), d.mat());
        add.add(d.mat());
        Side::sub(a.mat(), b.mat(), d.mat());
        sub.add(d.mat());
    }
    digests["neg" + suffix] = neg.value();
    digests["scale" + suffix] = scale.value();
    digests["add" + suffix] = add.value();
    digests["sub" + suffix] = sub.value();
}

template <class Side>
void digest_inverse(Digests& digests) {
    test::wash_work_area(Side{});
    Digest inv;
    Random random(0x3003);
    for (int round = 0; round < 300; ++round) {
        const int n = round % 50 == 49 ? random.between(35, 40) : random.between(1, 8);
        const test::MatrixKind kind = test::random_matrix_kind(random);
        Values a(random, model::F32, n, n, HOSTILE[round % 4]);
        test::make_difficult(random, kind, a.mat());
        Side::inv(a.mat(), a.mat());
        inv.add(a.mat());
    }
    digests["inv"] = inv.value();
}

model::Vec3 random_vector(Random& random, float hostile) {
    Values values(random, model::F32, 1, 3, hostile);
    return {model::load<float>(values.data(), 0), model::load<float>(values.data(), 1),
            model::load<float>(values.data(), 2)};
}

template <class Side>
void digest_fixed3(Digests& digests) {
    std::map<std::string, Digest> kernels;
    Random random(0x4004);
    for (int round = 0; round < 300; ++round) {
        const float hostile = HOSTILE[round % 4];
        const auto vector = [&] { return random_vector(random, hostile); };
        const model::Mat3 a{vector(), vector(), vector()};
        const model::Mat3 b{vector(), vector(), vector()};
        const model::Vec3 x = vector();
        const model::Vec3 y = vector();
        kernels["_matmult_3x3"].add(Side::matmult(a, b));
        kernels["_matmult_3x3t"].add(Side::matmult_t(a, b));
        kernels["_matmult_3x3vec"].add(Side::matmult_vec(a, x));
        kernels["_matmult_3x3tvec"].add(Side::matmult_tvec(a, x));
        kernels["_matneg_3x3"].add(Side::matneg(a));
        kernels["_matdet_3x3"].add(Side::matdet(a));
        kernels["_vecoutp_3"].add(Side::vecoutp(x, y));
        kernels["_veccrossp_3"].add(Side::veccrossp(x, y));
        kernels["_vecdotp_3"].add(Side::vecdotp(x, y));
    }
    for (const auto& [name, digest] : kernels) {
        digests[name] = digest.value();
    }
}

template <class Side>
void digest_kalman(Digests& digests) {
    test::wash_work_area(Side{});
    Digest predict, correct;
    Random random(0x5005);
    for (int round = 0; round < 30; ++round) {
        const int ns = random.between(1, 10);
        const int nm = random.between(1, 6);
        typename Side::Filter filter(ns, nm);
        test::make_filter_model(random, filter.matrices());
        for (int step = 0; step < 15; ++step) {
            filter.predict();
            for (const Mat& mat : filter.matrices()) {
                predict.add(mat);
            }
            filter.correct(Values(random, model::F32, nm, 1, 0.0f).mat());
            for (const Mat& mat : filter.matrices()) {
                correct.add(mat);
            }
        }
    }
    digests["kalman_predict"] = predict.value();
    digests["kalman_correct"] = correct.value();
}

template <class Side>
void digest_tracker(Digests& digests, const std::string& name, float hostile) {
    Digest process;
    Random random(0x6006);
    for (int round = 0; round < 15; ++round) {
        const int capacity = random.between(2, 30);
        const int objects = random.between(1, 12);
        test::Scene scene(random, objects, capacity, hostile);
        typename Side::Tracking tracker(capacity, test::random_parameters(random));
        std::vector<std::array<float, 8>> output(static_cast<std::size_t>(capacity));
        for (int frame = 0; frame < 60; ++frame) {
            if (random.chance(0.03f)) {
                tracker.set_params(test::random_parameters(random));
            }
            const test::Rows rows = scene.next_frame();
            tracker.process(reinterpret_cast<const float(*)[6]>(rows.data()),
                            reinterpret_cast<float(*)[8]>(output.data()));
            for (const auto& row : output) {
                process.add(row[0]);
                if (row[0] == -1.0f) {
                    break;
                }
                for (const float value : row) {
                    process.add(value);
                }
            }
        }
    }
    digests[name] = process.value();
}

/// Every digest of one side, the last one over all others.
template <class Side>
Digests all_digests() {
    Digests digests;
    digest_products<Side>(digests, model::F32, "_f32");
    digest_products<Side>(digests, model::F64, "_f64");
    digest_elementwise<Side>(digests, model::F32, "_f32");
    digest_elementwise<Side>(digests, model::F64, "_f64");
    digest_inverse<Side>(digests);
    digest_fixed3<Side>(digests);
    digest_kalman<Side>(digests);
    digest_tracker<Side>(digests, "tracker_process", 0.0f);
    digest_tracker<Side>(digests, "tracker_process_hostile", 0.08f);
    Digest overall;
    for (const auto& [name, value] : digests) {
        overall.add(value);
    }
    digests["overall"] = overall.value();
    return digests;
}

std::string hexadecimal(std::uint64_t value) {
    char text[17];
    std::snprintf(text, sizeof text, "%016" PRIx64, value);
    return text;
}

void print(const Digests& digests) {
    for (const auto& [name, value] : digests) {
        std::printf("digest %s %s\n", name.c_str(), hexadecimal(value).c_str());
    }
}

Digests expected_digests() {
    std::ifstream file(LIBIV_DIGESTS);
    EXPECT_TRUE(file) << "cannot read " << LIBIV_DIGESTS;
    Digests digests;
    for (std::string name, value; file >> name >> value;) {
        digests[name] = std::stoull(value, nullptr, 16);
    }
    return digests;
}

void expect_the_files_digests(const Digests& actual, const char* side) {
    if (!test::keeps_the_sign_of_a_zero()) {
        GTEST_SKIP() << "digests hold the signs of zeros, which this machine loses";
    }
    const Digests expected = expected_digests();
    EXPECT_EQ(expected.size(), actual.size());
    for (const auto& [name, value] : actual) {
        const auto entry = expected.find(name);
        ASSERT_NE(entry, expected.end()) << name;
        EXPECT_EQ(hexadecimal(entry->second), hexadecimal(value)) << side << ", " << name;
    }
}

/// The file is the model's word: LIBIV_WRITE_DIGESTS names a file to write it to.
TEST(Digest, ModelGivesTheSameBitsInEveryBuild) {
    const Digests digests = all_digests<model::Scalar>();
    if (const char* path = std::getenv("LIBIV_WRITE_DIGESTS")) {
        std::ofstream file(path);
        for (const auto& [name, value] : digests) {
            file << name << ' ' << hexadecimal(value) << '\n';
        }
        ASSERT_TRUE(file.flush()) << "cannot write " << path;
        GTEST_SKIP() << "wrote " << path;
    }
    print(digests);
    expect_the_files_digests(digests, model::Scalar::NAME);
}

TEST(Digest, LibraryGivesTheSameBitsInEveryBuild) {
    const Digests digests = all_digests<model::Library>();
    print(digests);
    expect_the_files_digests(digests, model::Library::NAME);
}

/// The inputs are 0.6 and 1.7: fused, the second product is not rounded before it is added.
TEST(Canary, ThisBuildRoundsEveryProductBeforeItIsAdded) {
    volatile float x = 0.6f;
    volatile float y = 1.7f;
    const float a = x;
    const float b = y;
    EXPECT_PRED_FORMAT2(test::SameBits, std::uint32_t{0x40500000}, test::bits(a * a + b * b));
    EXPECT_PRED_FORMAT2(test::SameBits, std::uint32_t{0x40500001},
                        test::bits(std::fma(a, a, b * b)));
}

TEST(Canary, FusedMultiplyAddRoundsOnce) {
    volatile float x = 1.0f + 0x1p-12f;
    volatile float tail = 0x1p-60f;
    EXPECT_PRED_FORMAT2(test::SameBits, std::uint32_t{0x3f801001},
                        test::bits(std::fma(x, x, tail)));
}

/// Without this, comparisons take one zero for the other, and digests are not compared.
TEST(Canary, FusedMultiplyAddKeepsTheSignOfAZero) {
    EXPECT_TRUE(test::keeps_the_sign_of_a_zero());
}

TEST(Canary, LibraryRoundsOnceInFusedProducts) {
    float factor = 1.0f + 0x1p-12f;
    float addend = 0x1p-60f;
    float minuend = -0x1p-60f;
    float result = 0.0f;
    iv_mat_t a, e, m, d;
    iv_mat_initheader(&a, 1, 1, IV_32F, &factor);
    iv_mat_initheader(&e, 1, 1, IV_32F, &addend);
    iv_mat_initheader(&m, 1, 1, IV_32F, &minuend);
    iv_mat_initheader(&d, 1, 1, IV_32F, &result);
    for (const int flags : {0, IV_MAT_TRANS_SRC2}) {
        iv_mat_muladd(&a, &a, &e, &d, flags);
        EXPECT_PRED_FORMAT2(test::SameBits, std::uint32_t{0x3f801001}, test::bits(result));
    }
    iv_mat_submul(&m, &a, &a, &d, 0);
    EXPECT_PRED_FORMAT2(test::SameBits, std::uint32_t{0xbf801001}, test::bits(result));
}

/// Of these boxes, every way to fuse one of the three products gives another quotient.
TEST(Canary, LibraryRoundsEveryAreaOfAnOverlap) {
    const iv::internal::box_t a = {2.0f, 8.4f, 8.7f, 6.6f};
    const iv::internal::box_t b = {5.3f, 5.0f, 8.1f, 8.9f};
    EXPECT_PRED_FORMAT2(test::SameBits, std::uint32_t{0x3e53ab6a},
                        test::bits(iv::internal::box_iou(a, b)));
    EXPECT_PRED_FORMAT2(test::SameBits, std::uint32_t{0x3e53ab6a},
                        test::bits(iv::internal::box_iou(b, a)));
}

TEST(Canary, LibraryRoundsBothSquaresOfADistance) {
    model::LibraryTracker tracker(2, {1.0f, 0.1f, 3, 3, 0});
    const float first[2][6] = {{1.0f, 0.0f, 0.0f, 0.0f, 0.0f, 0.5f}, {}};
    const float second[2][6] = {{1.0f, 0.6f, 1.7f, 0.6f, 1.7f, 0.5f}, {}};
    tracker.set_params({4.0f, 0.1f, 3, 3, 0});
    tracker.process(first, nullptr);
    tracker.process(second, nullptr);
    EXPECT_PRED_FORMAT2(test::SameBits, 3.25f, tracker.record().match_score[0]);
}

} // namespace
