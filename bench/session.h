// A run of the benchmark: the rows that Google Benchmark selects, and what came of them.
#ifndef LIBIV_BENCH_SESSION_H
#define LIBIV_BENCH_SESSION_H

#include <deque>
#include <regex>

#include "row.h"
#include "task.h"

namespace bench {

/// Fills the row's timings; throws std::runtime_error if an entrant computes something else.
using Measurement = std::function<void(Row&, const Effort&)>;

class Session {
  public:
    /// Only rows whose names contain a match of `filter` take part.
    Session(const Effort& effort, const std::string& filter) : effort_(effort), filter_(filter) {}
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;

    /// Registers a row under its name, with "/+24" behind it when its operands lie 24 bytes past.
    void add(const Row& row, const Measurement& measurement);

    void add_mean(const MeanDemand& demand) { means_.push_back(demand); }

    /// The rows that ran.
    std::vector<Row> rows() const;
    const std::vector<MeanDemand>& means() const { return means_; }

  private:
    Effort effort_;
    std::regex filter_;
    std::deque<Row> rows_; ///< registered benchmarks refer to them
    std::vector<MeanDemand> means_;
};

// One file in workloads/ each.
void add_products(Session& session);
void add_inverses(Session& session);
void add_elementwise(Session& session);
void add_transposes(Session& session);
void add_filters(Session& session);
void add_dispatch(Session& session);
void add_tracker(Session& session);

/// What tracker time per object is compared with: one step of an 8/4 filter with the same
/// equations.
Filter tracker_filter();

} // namespace bench

#endif
