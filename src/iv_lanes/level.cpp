// Which kernels this machine runs.

#include "iv_lanes/kernels.h"

#ifdef IV_DISPATCH

#include <cpuid.h>
#include <immintrin.h>

namespace iv::internal {
namespace {

struct Registers {
    unsigned eax, ebx, ecx, edx;
};

/// The answer of the CPU to a question, all zero where it does not know it.
Registers identify(unsigned leaf) {
    Registers r{};
    __get_cpuid_count(leaf, 0, &r.eax, &r.ebx, &r.ecx, &r.edx);
    return r;
}

constexpr bool all(unsigned value, unsigned bits) {
    return (value & bits) == bits;
}

/// The register states that the operating system saves.
[[gnu::target("xsave")]] unsigned saved_states() {
    return static_cast<unsigned>(_xgetbv(0));
}

constexpr unsigned STATES_AVX = 0x06;    // SSE and AVX registers
constexpr unsigned STATES_AVX512 = 0xE6; // and masks, upper halves, upper registers

} // namespace

const Kernels* chosen_kernels;

bool runs(const Kernels& level) {
    if (&level == &KERNELS_BASELINE) {
        return true;
    }
    const Registers basic = identify(1);
    const Registers extended = identify(7);
    // Not covered: a machine has one answer
    if (!all(basic.ecx, bit_OSXSAVE | bit_FMA) || !all(extended.ebx, bit_AVX2)) {
        return false;
    }
    if (&level == &KERNELS_V3) {
        return all(saved_states(), STATES_AVX);
    }
    constexpr unsigned avx512 = bit_AVX512F | bit_AVX512BW | bit_AVX512DQ | bit_AVX512VL | bit_BMI2;
    // Not covered: a machine has one answer
    return all(extended.ebx, avx512) && all(saved_states(), STATES_AVX512);
}

const Kernels& choose_kernels() {
    const Kernels* const levels[] = {&KERNELS_BASELINE, &KERNELS_V3, &KERNELS_V4};
    const Kernels* best = nullptr;
    for (const Kernels* level : levels) {
        best = runs(*level) ? level : best; // Not covered: a machine has one answer
    }
    __atomic_store_n(&chosen_kernels, best, __ATOMIC_RELAXED);
    return *best;
}

} // namespace iv::internal

#endif
