// The digests, and canaries for what would change all of them.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <fstream>

#include "digests/corpus.h"
#include "iv_tracker.h"
#include "model/library.h"
#include "support/bits.h"

#ifndef LIBIV_DIGESTS
#define LIBIV_DIGESTS "tests/digests.txt"
#endif

namespace {

using Values = std::map<std::string, std::uint64_t>;

template <class Side>
Values digests_of() {
    digests::Digests all;
    digests::digest_all<Side>(all);
    return all.values();
}

void expect_the_files_digests(const Values& actual, const char* side) {
    if (!test::keeps_the_sign_of_a_zero()) {
        GTEST_SKIP() << "digests hold the signs of zeros, which this machine loses";
    }
    for (const std::string& line : digests::differences(digests::read(LIBIV_DIGESTS), actual)) {
        ADD_FAILURE() << side << ": " << line;
    }
}

/// The file is the model's word: LIBIV_WRITE_DIGESTS names a file to write it to.
TEST(Digest, ModelGivesTheSameBitsInEveryBuild) {
    const Values values = digests_of<model::Scalar>();
    if (const char* path = std::getenv("LIBIV_WRITE_DIGESTS")) {
        std::ofstream file(path);
        for (const auto& [name, value] : values) {
            file << name << ' ' << digests::hexadecimal(value) << '\n';
        }
        ASSERT_TRUE(file.flush()) << "cannot write " << path;
        GTEST_SKIP() << "wrote " << path;
    }
    expect_the_files_digests(values, model::Scalar::NAME);
}

TEST(Digest, LibraryGivesTheSameBitsInEveryBuild) {
    expect_the_files_digests(digests_of<model::Library>(), model::Library::NAME);
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
