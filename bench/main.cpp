// Runs the benchmark and writes results.md and results.json.

#include <fmt/format.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <cstdlib>
#include <fstream>

#include "result.h"

namespace {

/// OpenBLAS reads its environment before main: if it would be held to one kernel or many threads,
/// the program starts again without that.
void restart_unhampered(char** argv) {
    bool hampered = false;
    for (const char* name :
         {"OPENBLAS_CORETYPE", "OPENBLAS_NUM_THREADS", "OMP_NUM_THREADS", "GOTO_NUM_THREADS"}) {
        hampered |= std::getenv(name) != nullptr;
        unsetenv(name);
    }
    if (hampered) {
        execv("/proc/self/exe", argv);
    }
}

/// One line a row, as soon as it is measured.
class Progress : public benchmark::BenchmarkReporter {
  public:
    bool ReportContext(const Context&) override {
        fmt::print("{:<28} {:>12}  {:>12} {:>6}  {}\n", "row", "libiv ns", "peer ns", "r",
                   "best peer");
        return true;
    }

    void ReportRuns(const std::vector<Run>& runs) override {
        for (const Run& run : runs) {
            if (run.error_occurred) {
                fmt::print("{:<28} failed: {}\n", short_name(run), run.error_message);
            } else if (run.report_label.empty()) {
                fmt::print("{:<28} {:>12.1f}\n", short_name(run), run.GetAdjustedRealTime());
            } else {
                fmt::print("{:<28} {:>12.1f}  {:>12.1f} {:>6.2f}  {}\n", short_name(run),
                           run.GetAdjustedRealTime(), run.counters.at("peer_ns").value,
                           run.counters.at("r").value, run.report_label);
            }
            std::fflush(stdout);
        }
    }

  private:
    static std::string short_name(const Run& run) { return run.run_name.function_name; }
};

bool write(const std::string& path, const std::string& text) {
    std::ofstream file(path);
    file << text;
    file.close();
    if (!file) {
        fmt::print(stderr, "libiv_bench: cannot write {}\n", path);
    }
    return static_cast<bool>(file);
}

} // namespace

int main(int argc, char** argv) {
    restart_unhampered(argv);
    bench::Effort effort;
    std::string directory = ".";
    std::string filter;
    benchmark::Initialize(&argc, argv);
    CLI::App options(
        "Measures libiv beside its peers; takes the options of Google Benchmark, too.");
    options.add_option("--filter", filter, "Regular expression: rows to run (default: all)");
    options.add_option("--rounds", effort.rounds, "Rounds of a row")->capture_default_str();
    options.add_option("--batch", effort.batch_seconds, "Seconds of an entrant in a round")
        ->capture_default_str();
    options.add_option("--results", directory, "Directory for results.md and results.json")
        ->capture_default_str();
    CLI11_PARSE(options, argc, argv);

    bench::Session session(effort, filter);
    bench::add_products(session);
    bench::add_inverses(session);
    bench::add_elementwise(session);
    bench::add_transposes(session);
    bench::add_filters(session);
    bench::add_dispatch(session);
    bench::add_tracker(session);
    Progress progress;
    benchmark::RunSpecifiedBenchmarks(&progress);
    if (session.rows().empty()) {
        return 0; // listed only
    }
    const bool written = write(directory + "/results.md", bench::to_markdown(session)) &&
                         write(directory + "/results.json", bench::to_json(session).dump(1) + "\n");
    fmt::print("{} rows, {} miss a must; see {}/results.md\n", session.rows().size(),
               bench::missed_musts(session.rows()), directory);
    for (const bench::Row& row : session.rows()) {
        if (!row.error.empty()) {
            return 1;
        }
    }
    return written ? 0 : 1;
}
