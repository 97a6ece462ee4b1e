// The result of a run: a table to read, JSON to draw from.
#ifndef LIBIV_BENCH_RESULT_H
#define LIBIV_BENCH_RESULT_H

#include <nlohmann/json.hpp>

#include "session.h"

namespace bench {

/// Machine, compiler, flags, versions.
nlohmann::ordered_json environment();

/// How the tracker's time of a frame grows with the objects in it, from 100 to 10,000: the slope in
/// a plot of logarithms. 0 without those rows.
double tracker_growth(const std::vector<Row>& rows);

nlohmann::ordered_json to_json(const Session& session);

/// A summary of what was missed, then one table a workload.
std::string to_markdown(const Session& session);

/// Rows of which a must is missed, or that failed.
int missed_musts(const std::vector<Row>& rows);

} // namespace bench

#endif
