// Whoever takes part in a row of the benchmark: the library, its peers, the model, the limits.
#ifndef LIBIV_BENCH_ENTRANT_H
#define LIBIV_BENCH_ENTRANT_H

#include <benchmark/benchmark.h>

#include <functional>
#include <string>
#include <vector>

namespace bench {

enum class Group {
    LIBIV,
    RUN_TIME,     ///< a peer that learns sizes from its arguments, as the library does
    COMPILE_TIME, ///< a peer whose code was made for this one size
    REPORTED,     ///< timed, but computes something else: never the best peer
    BASELINE,     ///< the scalar model of the tests
    LIMIT         ///< what the machine allows: a copy, the multiply-add peak
};

struct Entrant {
    std::string name;
    Group group;
    std::function<void(long)> run;   ///< does the work that many times
    std::function<void()> show = {}; ///< brings the result to the task's place, if it is not there
    double scale = 1.0;              ///< what is reported is time per run times this
};

using Entrants = std::vector<Entrant>;

/// The loop is part of the work's own code, so that nothing but the work is called in it.
template <class Work>
std::function<void(long)> repeat(Work work) {
    return [work](long times) mutable {
        for (; times > 0; --times) {
            work();
            benchmark::ClobberMemory();
        }
    };
}

} // namespace bench

#endif
