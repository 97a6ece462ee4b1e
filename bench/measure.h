// Times entrants side by side: in every round each of them runs one short batch, in a new order,
// so that whatever disturbs the machine disturbs all alike. Ratios are taken within a round; what
// counts is their median.
#ifndef LIBIV_BENCH_MEASURE_H
#define LIBIV_BENCH_MEASURE_H

#include "entrant.h"

namespace bench {

struct Effort {
    int rounds = 25;
    double batch_seconds = 250e-6; ///< one entrant's share of a round, at least one run
    double entrant_seconds = 0.25; ///< slow entrants drop out after this and three rounds
};

struct Timing {
    std::string name;
    Group group;
    double ns;    ///< median time of one run
    double ratio; ///< median over the rounds of this time divided by the first entrant's
};

/// In the order of the entrants; the first one is the library.
std::vector<Timing> measure(const Entrants& entrants, const Effort& effort);

double median(std::vector<double> values);

} // namespace bench

#endif
