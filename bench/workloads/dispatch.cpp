// What finding the right kernels costs each call of the library, beside nothing at all.

#include <benchmark/benchmark.h>

#include "iv_lanes/kernels.h"
#include "session.h"

namespace bench {

void add_dispatch(Session& session) {
    const Row row{"dispatch/choice", 0, {{1.0, 0.0, {"nothing"}, 2.0}}};
    session.add(row, [](Row& r, const Effort& effort) {
        const auto choose = [] { benchmark::DoNotOptimize(iv::internal::kernels().level); };
        const auto do_nothing = [] {};
        const Entrants entrants = {{"libiv", Group::LIBIV, repeat(choose)},
                                   {"nothing", Group::REPORTED, repeat(do_nothing)}};
        r.timings = measure(entrants, effort);
    });
}

} // namespace bench
