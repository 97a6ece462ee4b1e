#include "row.h"

#include <algorithm>
#include <cmath>
#include <regex>

namespace bench {
namespace {

bool is_peer(const Timing& timing, const std::vector<std::string>& against) {
    if (against.empty()) {
        return timing.group == Group::RUN_TIME || timing.group == Group::COMPILE_TIME;
    }
    return std::any_of(against.begin(), against.end(), [&](const std::string& beginning) {
        return timing.name.compare(0, beginning.size(), beginning) == 0;
    });
}

template <class Wanted>
const Timing* smallest_ratio(const Row& row, Wanted wanted) {
    const Timing* best = nullptr;
    for (const Timing& timing : row.timings) {
        if (wanted(timing) && (!best || timing.ratio < best->ratio)) {
            best = &timing;
        }
    }
    return best;
}

} // namespace

const Timing* best_peer(const Row& row, const std::vector<std::string>& against) {
    return smallest_ratio(row, [&](const Timing& timing) { return is_peer(timing, against); });
}

const Timing* best_of(const Row& row, Group group) {
    return smallest_ratio(row, [&](const Timing& timing) { return timing.group == group; });
}

bool meets_must(const Row& row, const Demand& demand) {
    const Timing* best = best_peer(row, demand.against);
    const bool near = best && demand.slack_ns > 0.0 && row.libiv_ns() <= best->ns + demand.slack_ns;
    return demand.must == 0.0 || near || (best && best->ratio >= demand.must);
}

bool meets_aim(const Row& row, const Demand& demand) {
    const Timing* best = best_peer(row, demand.against);
    return demand.aim == 0.0 || (best && best->ratio >= demand.aim);
}

bool misses_must(const Row& row) {
    return !row.error.empty() ||
           std::any_of(row.demands.begin(), row.demands.end(),
                       [&](const Demand& demand) { return !meets_must(row, demand); });
}

double mean_ratio(const std::vector<Row>& rows, const MeanDemand& demand) {
    double sum = 0.0;
    int count = 0;
    for (const Row& row : rows) {
        const bool named =
            std::any_of(demand.rows.begin(), demand.rows.end(), [&](const std::string& names) {
                return std::regex_match(row.name, std::regex(names));
            });
        const Timing* best = named && row.offset == 0 ? best_peer(row, demand.against) : nullptr;
        if (best) {
            sum += std::log(best->ratio);
            ++count;
        }
    }
    return count > 0 ? std::exp(sum / count) : 0.0;
}

} // namespace bench
