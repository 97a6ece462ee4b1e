#include "session.h"

#include <stdexcept>

namespace bench {

void Session::add(const Row& row, const Measurement& measurement) {
    const std::string name = row.name + (row.offset ? "/+" + std::to_string(row.offset) : "");
    if (!std::regex_search(name, filter_)) {
        return;
    }
    rows_.push_back(row);
    Row& kept = rows_.back();
    const auto run = [&kept, measurement, this](benchmark::State& state) {
        for (auto iteration : state) {
            static_cast<void>(iteration);
            try {
                measurement(kept, effort_);
            } catch (const std::runtime_error& error) {
                kept.error = error.what();
                state.SkipWithError(error.what());
                break;
            }
            state.SetIterationTime(kept.libiv_ns() * 1e-9);
        }
        if (const Timing* best = kept.error.empty() ? best_peer(kept) : nullptr) {
            state.counters["peer_ns"] = best->ns;
            state.counters["r"] = best->ratio;
            state.SetLabel(best->name);
        }
    };
    benchmark::RegisterBenchmark(name.c_str(), run)->Iterations(1)->UseManualTime();
}

std::vector<Row> Session::rows() const {
    std::vector<Row> ran;
    for (const Row& row : rows_) {
        if (!row.timings.empty() || !row.error.empty()) {
            ran.push_back(row);
        }
    }
    return ran;
}

} // namespace bench
