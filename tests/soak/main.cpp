// One tracker for a very long time: objects that come and go, hostile rows, parameters that change,
// ids that start again, counters at their limits. After every frame its ring, its rows and the
// balance of its allocations have to be in order, and after a warm-up its memory stays flat.
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <climits>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <iterator>
#include <memory>
#include <string>
#include <vector>

#include "model/library.h"
#include "model/scene.h"
#include "progress.h"
#include "support/allocations.h"
#include "support/bits.h"

namespace {

using iv::internal::list_head;
using iv::internal::MAX_TRACK_ID;
using iv::internal::trk_obj_t;
using test::Random;

constexpr int CAPACITY = 64;
constexpr int REPORTED_MISSES = 3;
constexpr int TENTATIVE_MISSES = 5;
/// Blocks of an instance: record, three arrays, four matrices.
constexpr int INSTANCE_BLOCKS = 8;
/// From here the ids start again soon.
constexpr int FIRST_ID = MAX_TRACK_ID - 300;

/// Enough to warm up.
constexpr long long LEAST_FRAMES = 10000;

struct Options {
    long long frames = 1000000;
    std::uint64_t seed = 20210621;
    long long slack = 256; ///< KiB that the memory may grow by after the warm-up
};

[[noreturn]] void refuse(const std::string& what) {
    std::fprintf(
        stderr,
        "%s\nusage: libiv_soak [--frames N] [--seed N] [--slack KIB], N of frames at least 10000\n",
        what.c_str());
    std::exit(2);
}

Options read_options(int argc, char** argv) {
    Options options;
    for (int i = 1; i < argc; i += 2) {
        const std::string name = argv[i];
        char* end = nullptr;
        const long long value = i + 1 < argc ? std::strtoll(argv[i + 1], &end, 10) : -1;
        if (!end || *end != '\0' || end == argv[i + 1] || value < 0) {
            refuse(name + ": expected a number behind it");
        } else if (name == "--frames" && value >= LEAST_FRAMES) {
            options.frames = value;
        } else if (name == "--seed") {
            options.seed = static_cast<std::uint64_t>(value);
        } else if (name == "--slack") {
            options.slack = value;
        } else {
            refuse(name + " " + argv[i + 1] + ": no such option or value");
        }
    }
    return options;
}

/// KiB of memory that this process alone has in use.
long long own_memory() {
    long long size = 0;
    long long resident = 0;
    long long shared = 0;
    std::FILE* file = std::fopen("/proc/self/statm", "r");
    if (!file || std::fscanf(file, "%lld %lld %lld", &size, &resident, &shared) != 3) {
        std::fprintf(stderr, "/proc/self/statm cannot be read\n");
        std::exit(1);
    }
    std::fclose(file);
    return (resident - shared) * (sysconf(_SC_PAGESIZE) / 1024);
}

/// The parameters that hosts set, and some that creation would clamp.
model::Parameters host_parameters(Random& random) {
    return {random.uniform(0.0f, 1.0f), random.uniform(0.0f, 0.4f), random.between(-1, 6),
            random.between(-1, 15), random.chance(0.2f) ? 1 : 0};
}

/// An object that stands far from all others and is seen in every frame.
constexpr int VETERAN_CLASS = 99;
constexpr float VETERAN_CENTRE = -30000.0f;
constexpr std::array<float, 6> VETERAN = {VETERAN_CLASS,         VETERAN_CENTRE - 2.0f,
                                          VETERAN_CENTRE - 2.0f, VETERAN_CENTRE + 2.0f,
                                          VETERAN_CENTRE + 2.0f, 0.75f};
/// The frame from which on its matches are counted up to their limit.
constexpr long long VETERAN_FROM = 100;

/// What no row holds.
constexpr float UNWRITTEN = -77.0f;

class Soak {
  public:
    explicit Soak(const Options& options)
        : options_(options),
          random_(options.seed),
          allocations_(test::Allocations::Keep::COUNTS),
          tracker_(CAPACITY, {1.0f, 0.1f, 2, 5, 0}) {
        tracker_.record().tid = FIRST_ID;
    }

    void run();
    void print() const;

  private:
    struct Known {
        const trk_obj_t* track;
        int id;
    };

    void next_frame();
    void check_ring();
    void check_ids();
    void check_rows();
    void check_blocks();
    void check_veteran();
    void check_memory();

    /// Ends the program unless `holds`.
    void demand(bool holds, const char* what) const {
        if (!holds) {
            std::fprintf(stderr, "\nframe %lld, seed %llu: NOT TRUE: %s\n", frame_,
                         static_cast<unsigned long long>(options_.seed), what);
            std::exit(1);
        }
    }

    const iv::internal::tracker_t& record() { return tracker_.record(); }

    Options options_;
    Random random_;
    test::Allocations allocations_;
    model::LibraryTracker tracker_;
    std::unique_ptr<test::Scene> scene_;
    std::vector<trk_obj_t*> tracks_; ///< after the frame
    std::vector<Known> known_;       ///< before it
    float output_[CAPACITY + 1][8] = {};
    bool reported_ = true;
    std::vector<int> ids_;
    int tid_before_ = FIRST_ID;

    long long frame_ = 0;
    long long rows_ = 0;
    long long ids_given_ = 0;
    long long wraps_ = 0;
    long long births_ = 0;
    long long changes_ = 0;
    int veteran_id_ = 0;
    long long veteran_met_ = 0; ///< how often its id was given to another
    long long memory_ = 0;      ///< after the warm-up
    long long most_memory_ = 0;
    double seconds_ = 0.0;
};

void Soak::run() {
    const auto start = std::chrono::steady_clock::now();
    ivtrack::Progress progress(true, static_cast<std::size_t>(options_.frames));
    for (frame_ = 0; frame_ < options_.frames; ++frame_) {
        next_frame();
        check_ring();
        check_ids();
        check_rows();
        check_blocks();
        check_veteran();
        if (frame_ % 1000 == 999) {
            check_memory();
        }
        progress.update(static_cast<std::size_t>(frame_));
    }
    demand(wraps_ > 0, "the ids have started again");
    const std::chrono::duration<double> elapsed = std::chrono::steady_clock::now() - start;
    seconds_ = elapsed.count();
}

void Soak::next_frame() {
    if (frame_ % 10000 == 0) {
        scene_ = std::make_unique<test::Scene>(random_, random_.between(15, 55), CAPACITY, 0.002f,
                                               random_.uniform(1.0f, 4.0f));
    }
    if (random_.chance(0.01f)) {
        ++changes_;
        tracker_.set_params(host_parameters(random_));
    }
    test::Rows rows = scene_->next_frame();
    rows.insert(rows.begin(), VETERAN);
    known_.clear();
    for (const trk_obj_t* track : tracks_) {
        known_.push_back({track, track->id});
    }
    tid_before_ = record().tid;
    for (auto& row : output_) {
        std::fill(std::begin(row), std::end(row), UNWRITTEN);
    }
    reported_ = !random_.chance(0.02f);
    tracker_.process(reinterpret_cast<const float(*)[6]>(rows.data()),
                     reported_ ? output_ : nullptr);
    tracks_ = tracker_.tracks();
}

void Soak::check_ring() {
    demand(static_cast<int>(tracks_.size()) == record().track_count, "the ring holds its count");
    demand(record().track_count <= CAPACITY, "there are no more tracks than the capacity");
    const list_head* before = &record().track_list;
    for (const trk_obj_t* track : tracks_) {
        demand(track->list.prev == before, "links lead back as they lead on");
        before = &track->list;
        const bool confirmed = track->id >= 0;
        demand(confirmed == (track->kalman != nullptr) && confirmed == (track->obv != nullptr),
               "a track has a filter and a measurement if it is confirmed, and only then");
        demand(track->match_count >= 0 && track->miss_count >= 0, "no count is negative");
        demand((track->match_idx >= 0) == (track->miss_count == 0),
               "a track has either a detection or a miss");
        demand(confirmed || track->miss_count <= TENTATIVE_MISSES,
               "a tentative track goes at its sixth miss");
        demand(track->match_idx < record().ncurobjs &&
                   (track->match_idx < 0 || record().match_obj[track->match_idx] == track),
               "a track and its detection know each other");
    }
    demand(record().track_list.prev == before, "the ring is closed");
}

/// New ids follow one another in the order of the ring, and no two tracks share one, but for the
/// oldest: it lives on while all ids are given, and its own is given again.
void Soak::check_ids() {
    int next = tid_before_;
    auto known = known_.begin();
    ids_.clear();
    for (const trk_obj_t* track : tracks_) {
        // Both lists are in the order of the ring: what is skipped has gone, what is left is new.
        known = std::find_if(known, known_.end(), [&](const Known& k) { return k.track == track; });
        births_ += known == known_.end();
        const int id_before = known == known_.end() ? -1 : known->id;
        if (track->id >= 0) {
            ids_.push_back(track->id);
            veteran_met_ += track->id == veteran_id_ && track->id != id_before;
        }
        if (track->id == id_before) {
            continue;
        }
        demand(track->id == next, "ids have no gap");
        wraps_ += next == MAX_TRACK_ID;
        next = next == MAX_TRACK_ID ? 1 : next + 1;
        ++ids_given_;
    }
    demand(record().tid == next, "the next id follows the last one given");
    if (!ids_.empty()) {
        std::sort(ids_.begin() + 1, ids_.end());
        demand(std::adjacent_find(ids_.begin() + 1, ids_.end()) == ids_.end(),
               "no two tracks but the oldest share an id");
    }
}

void Soak::check_rows() {
    demand(std::all_of(std::begin(output_[CAPACITY]), std::end(output_[CAPACITY]),
                       [](float value) { return value == UNWRITTEN; }),
           "nothing is written behind the capacity");
    if (!reported_) {
        demand(output_[0][0] == UNWRITTEN, "nothing is written without an output");
        return;
    }
    int n = 0;
    for (const trk_obj_t* track : tracks_) {
        if (track->id < 0 || track->miss_count >= REPORTED_MISSES) {
            continue;
        }
        const float* row = output_[n];
        const float expected[8] = {static_cast<float>(track->id),
                                   static_cast<float>(track->c),
                                   track->x - track->w * 0.5f,
                                   track->y - track->h * 0.5f,
                                   track->x + track->w * 0.5f,
                                   track->y + track->h * 0.5f,
                                   track->s,
                                   static_cast<float>(track->match_idx)};
        demand(std::equal(row, row + 8, expected, test::same_number<float>),
               "a row is what its track says");
        ++n;
    }
    demand(n == CAPACITY || output_[n][0] == -1.0f, "the rows end where the tracks do");
    rows_ += n;
}

/// What the contract leaves behind at a second confirmation is freed by the class around the
/// tracker.
void Soak::check_blocks() {
    const auto confirmed = static_cast<int>(ids_.size());
    demand(allocations_.made() - allocations_.freed() ==
               INSTANCE_BLOCKS + record().track_count + 2 * confirmed,
           "a track is one block, a confirmed one three");
}

/// The oldest track is never missed; its count of matches rests at the limit from half-time on.
void Soak::check_veteran() {
    trk_obj_t* veteran = tracks_.front();
    demand(veteran->c == VETERAN_CLASS, "an object that is always seen keeps its track");
    if (frame_ < VETERAN_FROM) {
        return;
    }
    const auto age = frame_ - VETERAN_FROM;
    const auto half = (options_.frames - VETERAN_FROM) / 2;
    if (age == 0) {
        veteran_id_ = veteran->id;
        veteran->match_count = static_cast<int>(INT_MAX - half);
    }
    demand(veteran->id == veteran_id_, "an object that is always seen keeps its id");
    demand(veteran->match_count == std::min<long long>(INT_MAX - half + age, INT_MAX),
           "matches are counted up to the limit and rest there");
    demand(std::fabs(veteran->x - VETERAN_CENTRE) < 0.125f, "a track at the limit is corrected");
}

void Soak::check_memory() {
    const long long memory = own_memory();
    if (frame_ <= options_.frames / 10) {
        memory_ = memory;
    }
    most_memory_ = std::max(most_memory_, memory);
    demand(memory_ == 0 || memory <= memory_ + options_.slack, "memory is flat after the warm-up");
}

void Soak::print() const {
    std::printf("%lld frames in %.1f s: %.0f frames/s\n", frame_, seconds_,
                static_cast<double>(frame_) / seconds_);
    std::printf("%lld rows, %lld tracks started, %lld ids given, which started again %lld times\n",
                rows_, births_, ids_given_, wraps_);
    std::printf("%lld times to a track beside the oldest, which had that id from the start\n",
                veteran_met_);
    std::printf("%lld changes of parameters\n", changes_);
    std::printf("%d blocks allocated, %d freed\n", allocations_.made(), allocations_.freed());
    std::printf("memory: %lld KiB after a tenth of the frames, %lld KiB at most\n", memory_,
                most_memory_);
}

} // namespace

int main(int argc, char** argv) {
    Soak soak(read_options(argc, argv));
    soak.run();
    soak.print();
}
