// The most fused multiply-adds that the machine does: the limit of the float products. Compiled
// twice, with the widest vectors of each build.

#include "peers.h"

namespace bench::PEER_BUILD {
namespace {

#ifdef __AVX512F__
constexpr int VECTOR_BYTES = 64;
#else
constexpr int VECTOR_BYTES = 32;
#endif

/// Enough sums at a time to hide the latency of each, few enough to stay in registers.
constexpr int SUMS = 12;

template <class T>
void multiply_add(long count) {
    typedef T Vector __attribute__((vector_size(VECTOR_BYTES)));
    volatile T one = T{1}; // g++ 12 loses the value of a variable given to DoNotOptimize
    const Vector factor = Vector{} + one;
    Vector sums[SUMS] = {};
    benchmark::DoNotOptimize(sums); // or the compiler sees that all of them are the same
    for (long done = 0; done < count; done += SUMS * VECTOR_BYTES / static_cast<int>(sizeof(T))) {
#pragma GCC unroll 12
        for (Vector& sum : sums) {
            sum = sum * factor + factor;
        }
    }
    benchmark::DoNotOptimize(sums);
}

template <class T>
void enter_task(const T&, Entrants&) {}

template <class T>
void enter_product(const Product<T>& p, Entrants& entrants) {
    const long count = static_cast<long>(p.m) * p.n * p.k;
    entrants.push_back({std::string("peak") + PEER_SUFFIX, Group::LIMIT,
                        [=](long times) { multiply_add<T>(times * count); }});
}

void enter_task(const Product<f32_t>& p, Entrants& entrants) {
    enter_product(p, entrants);
}

void enter_task(const Product<f64_t>& p, Entrants& entrants) {
    enter_product(p, entrants);
}

} // namespace

void enter_peak(const Task& task, Entrants& entrants) {
    std::visit([&](const auto& t) { enter_task(t, entrants); }, task);
}

} // namespace bench::PEER_BUILD
