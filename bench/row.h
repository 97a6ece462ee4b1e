// One row of the result: what was measured, what is demanded, and whether that holds.
#ifndef LIBIV_BENCH_ROW_H
#define LIBIV_BENCH_ROW_H

#include "measure.h"

namespace bench {

/// A target for r = peer's time / libiv's time.
struct Demand {
    double must;                           ///< 0: nothing
    double aim;                            ///< 0: nothing
    std::vector<std::string> against = {}; ///< beginnings of names; empty: every peer
    double slack_ns = 0.0; ///< a must is met, too, by no more than this behind the peer
};

struct Row {
    std::string name; ///< workload/type/.../size
    int offset;       ///< bytes from a 64-byte boundary to the operands
    std::vector<Demand> demands = {};
    std::vector<Timing> timings = {}; ///< libiv first
    std::string error = {};           ///< empty, or why there are no timings

    std::string workload() const { return name.substr(0, name.find('/')); }
    double libiv_ns() const { return timings.front().ns; }
};

/// The peer with the smallest ratio among the named ones, or among all, or null.
const Timing* best_peer(const Row& row, const std::vector<std::string>& against = {});
/// The same among those of one group.
const Timing* best_of(const Row& row, Group group);
bool meets_must(const Row& row, const Demand& demand);
bool meets_aim(const Row& row, const Demand& demand);
/// Whether it failed or misses the must of any demand.
bool misses_must(const Row& row);

/// A target for the geometric mean of r over rows, those that begin with one of `rows`.
struct MeanDemand {
    std::string title;
    std::vector<std::string> rows; ///< regular expressions for whole names
    double aim;
    std::vector<std::string> against = {};
};

/// The geometric mean over the aligned rows, or 0 without any.
double mean_ratio(const std::vector<Row>& rows, const MeanDemand& demand);

} // namespace bench

#endif
