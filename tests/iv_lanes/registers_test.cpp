// The state that kernels leave the registers in.
#include <gtest/gtest.h>

#include "digests/corpus.h"
#include "model/library.h"
#include "support/levels.h"

#ifdef IV_DISPATCH
#include <cpuid.h>
#include <immintrin.h>
#endif

namespace {

#ifdef IV_DISPATCH

/// Of XGETBV(1): some of ymm0 to ymm15 have an upper half that is not zero.
constexpr unsigned UPPER_HALVES = 1U << 2;

[[gnu::target("xsave")]] bool upper_halves_are_in_use() {
    return (static_cast<unsigned>(_xgetbv(1)) & UPPER_HALVES) != 0;
}

[[gnu::target("avx")]] void put_at_rest() {
    _mm256_zeroupper();
}

/// Whether the CPU tells which registers are in use.
bool cpu_tells() {
    unsigned eax = 0;
    unsigned ebx = 0;
    unsigned ecx = 0;
    unsigned edx = 0;
    if (!test::runs(iv::internal::KERNELS_V3) ||
        !__get_cpuid_count(0xD, 1, &eax, &ebx, &ecx, &edx) || (eax & UPPER_HALVES) == 0) {
        return false;
    }
    put_at_rest();
    return !upper_halves_are_in_use();
}

#else // registers have no halves of their own

bool upper_halves_are_in_use() {
    return false;
}

void put_at_rest() {}

bool cpu_tells() {
    return false;
}

#endif

int calls;
int calls_that_leave_them_in_use;

class LevelRegisters : public ::testing::TestWithParam<const iv::internal::Kernels*> {};

/// What a host compiled for older instructions runs next would wait for them at every instruction.
TEST_P(LevelRegisters, EveryCallPutsTheUpperHalvesAtRest) {
#ifndef LIBIV_OPTIMIZED
    GTEST_SKIP() << "compilers do it where they optimise";
#endif
    if (!test::runs(*GetParam()) || !cpu_tells()) {
        GTEST_SKIP() << "this CPU lacks " << GetParam()->level << ", or does not tell";
    }
    const test::ForcedLevel forced(*GetParam());
    calls = 0;
    calls_that_leave_them_in_use = 0;
    model::after_call = [] {
        calls += 1;
        calls_that_leave_them_in_use += upper_halves_are_in_use() ? 1 : 0;
        put_at_rest();
    };
    digests::Digests all;
    digests::digest_all<model::Library>(all);
    model::after_call = [] {};
    EXPECT_GT(calls, 10000);
    EXPECT_EQ(calls_that_leave_them_in_use, 0);
}

INSTANTIATE_TEST_SUITE_P(Levels, LevelRegisters, ::testing::ValuesIn(test::levels()),
                         test::LevelName());

} // namespace
