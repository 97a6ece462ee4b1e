#include "result.h"

#include <fmt/format.h>

#include <cmath>
#include <fstream>

#include "peers.h"

namespace bench {
namespace {

using Json = nlohmann::ordered_json;

std::string cpu_name() {
    std::ifstream file("/proc/cpuinfo");
    std::string line;
    while (std::getline(file, line)) {
        if (line.rfind("model name", 0) == 0) {
            return line.substr(line.find(": ") + 2);
        }
    }
    return "unknown";
}

std::string time_text(double ns) {
    return ns < 99.5 ? fmt::format("{:.1f}", ns) : fmt::format("{:.0f}", ns);
}

std::string peer_text(const Timing* peer) {
    return peer ? fmt::format("{} {} | {:.2f}", peer->name, time_text(peer->ns), peer->ratio)
                : "- | -";
}

using Meets = bool (*)(const Row&, const Demand&);

/// The wanted r's of a row, those of musts or of aims; if there are several, whom each is against
/// and what it is.
std::string targets_text(const Row& row, double Demand::*wanted, Meets meets) {
    std::string text;
    for (const Demand& demand : row.demands) {
        if (demand.*wanted == 0.0) {
            continue;
        }
        text += fmt::format("{}{:.2f}", text.empty() ? "" : ", ", demand.*wanted);
        const Timing* best = best_peer(row, demand.against);
        if (row.demands.size() > 1 && best) {
            text += fmt::format(" ({}: {:.2f})", demand.against.at(0), best->ratio);
        }
        text += meets(row, demand) ? "" : " **missed**";
    }
    return text.empty() ? "-" : text;
}

std::string musts_text(const Row& row) {
    return targets_text(row, &Demand::must, meets_must);
}

std::string title(const Row& row) {
    return row.offset ? fmt::format("{} +{}", row.name, row.offset) : row.name;
}

/// What the row's twin on unaligned addresses says: its time, r against the best peer, a miss.
std::string unaligned_text(const Row& row, const std::vector<Row>& rows) {
    for (const Row& twin : rows) {
        if (twin.name == row.name && twin.offset != 0 && twin.error.empty()) {
            const Timing* best = best_peer(twin);
            return fmt::format("{} | {:.2f}{}", time_text(twin.libiv_ns()),
                               best ? best->ratio : 0.0, misses_must(twin) ? " **missed**" : "");
        }
    }
    return "- | -";
}

std::string table_line(const Row& row, const std::vector<Row>& rows) {
    const Timing* limit = best_of(row, Group::LIMIT);
    const Timing* baseline = best_of(row, Group::BASELINE);
    return fmt::format("| {} | {} | {} | {} | {} | {} | {} | {} | {} |\n", row.name,
                       time_text(row.libiv_ns()), peer_text(best_of(row, Group::RUN_TIME)),
                       peer_text(best_of(row, Group::COMPILE_TIME)),
                       limit ? fmt::format("{:.0f} %", 100 * limit->ratio) : "-",
                       baseline ? fmt::format("{:.1f}", baseline->ratio) : "-", musts_text(row),
                       targets_text(row, &Demand::aim, meets_aim), unaligned_text(row, rows));
}

std::string tables(const std::vector<Row>& rows) {
    std::string text;
    std::string workload;
    for (const Row& row : rows) {
        if (row.offset != 0 || !row.error.empty()) {
            continue;
        }
        if (row.workload() != workload) {
            workload = row.workload();
            text += fmt::format(
                "\n## {}\n\n"
                "| row | libiv ns | best peer, size at run time: ns | r | best peer, size at "
                "compile time: ns | r | of the limit | model: r | must | aim | +24: libiv ns | r "
                "|\n"
                "|---|---:|---|---:|---|---:|---:|---:|---|---|---:|---:|\n",
                workload);
        }
        text += table_line(row, rows);
    }
    return text;
}

/// The tracker's time for a frame of n objects, or 0 without that row.
double frame_ns(const std::vector<Row>& rows, int n) {
    for (const Row& row : rows) {
        if (row.name == "tracker/" + std::to_string(n) && row.error.empty()) {
            return n * row.libiv_ns();
        }
    }
    return 0.0;
}

std::string summary(const Session& session) {
    const std::vector<Row> rows = session.rows();
    std::string text = "## Summary\n\n";
    int with_must = 0;
    for (const Row& row : rows) {
        with_must += row.demands.empty() ? 0 : 1;
    }
    text += fmt::format("{} rows, {} with a target; {} miss a must.\n\n", rows.size(), with_must,
                        missed_musts(rows));
    for (const Row& row : rows) {
        if (misses_must(row)) {
            const Timing* best =
                row.error.empty() ? best_peer(row, row.demands[0].against) : nullptr;
            text +=
                fmt::format("- {}: {}\n", title(row),
                            best ? fmt::format("r = {:.2f}, must {}", best->ratio, musts_text(row))
                                 : row.error);
        }
    }
    text += "\n| geometric mean of r | is | aim |\n|---|---:|---:|\n";
    for (const MeanDemand& demand : session.means()) {
        const double mean = mean_ratio(rows, demand);
        if (mean > 0.0) {
            text += fmt::format("| {} | {:.2f} | {:.2f}{} |\n", demand.title, mean, demand.aim,
                                mean < demand.aim ? " **missed**" : "");
        }
    }
    if (const double growth = tracker_growth(rows); growth > 0.0) {
        const double frame_ms = frame_ns(rows, 10000) * 1e-6;
        text += fmt::format(
            "\nTracker: time of a frame grows with N^{:.2f} from 100 to 10,000 "
            "objects; a frame of 10,000 takes {:.1f} ms (must: N^1.15 or 2.5 ms{}; "
            "aim: 2 ms{}).\n",
            growth, frame_ms, growth > 1.15 && frame_ms > 2.5 ? " **missed**" : "",
            frame_ms > 2.0 ? " **missed**" : "");
    }
    return text;
}

Json timing_json(const Timing& timing) {
    constexpr const char* groups[] = {"libiv",    "run time", "compile time",
                                      "reported", "baseline", "limit"};
    return {{"name", timing.name},
            {"group", groups[static_cast<int>(timing.group)]},
            {"ns", timing.ns},
            {"ratio", timing.ratio}};
}

Json row_json(const Row& row) {
    Json json = {{"name", row.name}, {"offset", row.offset}};
    if (!row.error.empty()) {
        json["error"] = row.error;
        return json;
    }
    for (const Demand& demand : row.demands) {
        json["targets"].push_back({{"against", demand.against},
                                   {"must", demand.must},
                                   {"must_met", meets_must(row, demand)},
                                   {"aim", demand.aim},
                                   {"aim_met", meets_aim(row, demand)}});
    }
    for (const Timing& timing : row.timings) {
        json["entrants"].push_back(timing_json(timing));
    }
    return json;
}

} // namespace

Json environment() {
    const benchmark::CPUInfo& cpu = benchmark::CPUInfo::Get();
    return {{"cpu", cpu_name()},
            {"cpus", cpu.num_cpus},
            {"compiler", "gcc " __VERSION__},
            {"library_flags", LIBRARY_FLAGS},
            {"peer_flags", PEER_FLAGS ", and the same with -mno-avx512f"},
            {"peers",
             {"Eigen " EIGEN_VERSION, openblas_version(), libxsmm_version(), opencv_version()}}};
}

double tracker_growth(const std::vector<Row>& rows) {
    double count = 0, x = 0, y = 0, xx = 0, xy = 0;
    for (const int n : {100, 300, 1000, 3000, 10000}) {
        const double time = frame_ns(rows, n);
        if (time == 0.0) {
            return 0.0;
        }
        const double log_n = std::log(n);
        const double log_time = std::log(time);
        count += 1;
        x += log_n;
        y += log_time;
        xx += log_n * log_n;
        xy += log_n * log_time;
    }
    return (count * xy - x * y) / (count * xx - x * x);
}

int missed_musts(const std::vector<Row>& rows) {
    int missed = 0;
    for (const Row& row : rows) {
        missed += misses_must(row) ? 1 : 0;
    }
    return missed;
}

Json to_json(const Session& session) {
    const std::vector<Row> rows = session.rows();
    Json json = {{"environment", environment()}};
    for (const Row& row : rows) {
        json["rows"].push_back(row_json(row));
    }
    for (const MeanDemand& demand : session.means()) {
        json["means"].push_back(
            {{"title", demand.title}, {"mean", mean_ratio(rows, demand)}, {"aim", demand.aim}});
    }
    json["tracker_growth"] = tracker_growth(rows);
    return json;
}

std::string to_markdown(const Session& session) {
    const Json machine = environment();
    std::string text = fmt::format("| | |\n|---|---|\n| CPU | {}, {} cores |\n| compiler | {} |\n",
                                   machine["cpu"].get<std::string>(), machine["cpus"].get<int>(),
                                   machine["compiler"].get<std::string>());
    text += fmt::format("| library's flags | `{}` |\n| peers' flags | `{}` |\n",
                        machine["library_flags"].get<std::string>(),
                        machine["peer_flags"].get<std::string>());
    for (const Json& peer : machine["peers"]) {
        text += fmt::format("| peer | {} |\n", peer.get<std::string>());
    }
    return text + "\n" + summary(session) + tables(session.rows());
}

} // namespace bench
