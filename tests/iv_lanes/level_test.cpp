// Which kernels the library works with.
#include <gtest/gtest.h>

#include <cstring>
#include <set>
#include <string>

#include "_libiv.h"
#include "support/levels.h"

namespace {

using iv::internal::Kernels;

TEST(Level, EveryTableHasANameOfItsOwnAndNoGap) {
    std::set<std::string> names;
    for (const Kernels* level : test::levels()) {
        EXPECT_TRUE(names.insert(level->level).second) << level->level;
        EXPECT_EQ(level, test::level_named(level->level));
        // A table holds a name, then nothing but kernels.
        void* places[sizeof(Kernels) / sizeof(void*)];
        static_assert(sizeof places == sizeof *level);
        std::memcpy(places, level, sizeof places);
        for (const void* place : places) {
            EXPECT_NE(place, nullptr) << level->level;
        }
    }
}

#ifdef IV_DISPATCH

TEST(Level, RunsWhereTheCompilersOwnIdentificationSaysSo) {
    const bool v3 = __builtin_cpu_supports("avx2") && __builtin_cpu_supports("fma");
    const bool v4 = v3 && __builtin_cpu_supports("bmi2") && __builtin_cpu_supports("avx512f") &&
                    __builtin_cpu_supports("avx512bw") && __builtin_cpu_supports("avx512dq") &&
                    __builtin_cpu_supports("avx512vl");
    EXPECT_TRUE(test::runs(iv::internal::KERNELS_BASELINE));
    EXPECT_EQ(test::runs(iv::internal::KERNELS_V3), v3);
    EXPECT_EQ(test::runs(iv::internal::KERNELS_V4), v4);
}

TEST(Level, FirstUseChoosesTheBestThatTheCpuRuns) {
    const Kernels* best = nullptr;
    for (const Kernels* level : test::levels()) {
        best = test::runs(*level) ? level : best;
    }
    const test::ForcedLevel restored(*best);
    iv::internal::chosen_kernels = nullptr;
    EXPECT_EQ(&iv::internal::kernels(), best);
    EXPECT_EQ(iv::internal::chosen_kernels, best) << "remembered";
}

int calls;

TEST(Level, ForcedTableIsTheOneThatComputes) {
    Kernels counting = iv::internal::KERNELS_BASELINE;
    counting.product[IV_32F][iv::internal::PLUS] = [](const iv::internal::Product&) { ++calls; };
    float value = 2.0f;
    iv_mat_t mat;
    iv_mat_initheader(&mat, 1, 1, IV_32F, &value);
    iv_mat_t row;
    float two[2] = {1.0f, 1.0f};
    iv_mat_initheader(&row, 1, 2, IV_32F, two);
    calls = 0;
    {
        const test::ForcedLevel forced(counting);
        iv_mat_mul(&mat, &row, &row, 0);
    }
    EXPECT_EQ(calls, 1);
    EXPECT_EQ(two[1], 1.0f);
    iv_mat_mul(&mat, &row, &row, 0);
    EXPECT_EQ(calls, 1);
    EXPECT_EQ(two[1], 2.0f);
}

#endif

} // namespace
