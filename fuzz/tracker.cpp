// Lives of two trackers side by side: created, given frames and tuning values of any numbers,
// released, and compared with the model after every frame.
#include <gtest/gtest.h>

#include <array>
#include <climits>
#include <memory>
#include <vector>

#include "fresh_library.h"
#include "model/tracker_pair.h"
#include "support/random.h"
#include "support/tracker_invariants.h"
#include "targets.h"

namespace fuzz {
namespace {

using Row = std::array<float, 6>;

/// Frames, and a share of what is in them, so that no input takes long.
constexpr int MOST_WORK = 120;

class Host {
  public:
    explicit Host(Bytes& in) : in_(in) {}

    void run() {
        while (!in_.empty() && work_ < MOST_WORK) {
            ++work_;
            std::unique_ptr<test::TrackerPair>& pair = pairs_[in_.chance(64) ? 1 : 0];
            const unsigned kind = in_.byte();
            if (!pair) {
                const int capacity = in_.chance(64) ? in_.between(9, 640) : in_.between(1, 8);
                pair = std::make_unique<test::TrackerPair>(capacity, parameters());
            } else if (kind < 208) {
                frame(*pair);
            } else if (kind < 232) {
                pair->set_params(parameters());
            } else if (kind < 240) {
                near_the_last_id(*pair);
            } else if (kind < 248) {
                near_the_last_count(*pair);
            } else {
                pair.reset();
            }
        }
    }

  private:
    model::Parameters parameters() {
        static constexpr int COUNTS[] = {0, -1, INT_MIN, INT_MAX, INT_MAX - 1, 40};
        const auto gate = [this] {
            return in_.chance(96) ? in_.number() : static_cast<float>(in_.between(0, 64)) / 64.0f;
        };
        const auto count = [this] {
            return in_.chance(48) ? in_.one_of(COUNTS) : in_.between(1, 12);
        };
        model::Parameters p{};
        p.distance_gate = gate();
        p.overlap_gate = gate();
        p.stable = count();
        p.removal = count();
        p.ignore_class = in_.chance(96) ? in_.between(-1, 2) : 0;
        return p;
    }

    void frame(test::TrackerPair& pair) {
        const unsigned kind = in_.byte();
        const bool few = kind < 240;
        const int most = kind < 252 ? 120 : 700;
        const int count =
            std::min(few ? static_cast<int>(kind % 7) : in_.between(0, most), pair.capacity());
        test::Rows rows = few ? some_rows(pair, count) : crowd(count);
        // The class behind the last row is read, too.
        const bool full = static_cast<int>(rows.size()) == pair.capacity();
        rows.push_back({full ? in_.number() : (in_.chance(128) ? -0.0f : 0.0f)});
        test::Events events;
        pair.process(rows, !in_.chance(16), events);
        test::expect_sound(pair.library().record());
        work_ += count / 8;
        for (const model::Track& track : pair.model().tracks()) {
            work_ += track.confirmed() ? 1 : 0;
        }
    }

    std::vector<Row> some_rows(test::TrackerPair& pair, int count) {
        std::vector<Row> rows;
        while (static_cast<int>(rows.size()) < count) {
            const unsigned kind = in_.byte() % 8;
            if (kind < 3) {
                rows.push_back(new_box());
            } else if (kind < 6 && !pair.model().tracks().empty()) {
                const auto& tracks = pair.model().tracks();
                const std::size_t which = in_.byte() % tracks.size();
                rows.push_back(
                    near(*std::next(tracks.begin(), static_cast<std::ptrdiff_t>(which))));
            } else if (kind == 6 && !rows.empty()) {
                rows.push_back(rows.back());
            } else {
                Row row;
                for (float& value : row) {
                    value = in_.number();
                }
                rows.push_back(row);
            }
        }
        return rows;
    }

    float category() {
        return in_.chance(16) ? in_.number() : static_cast<float>(in_.between(1, 3));
    }

    Row new_box() {
        Row row{category(), in_.number(), in_.number(), 0.0f, 0.0f, 0.5f};
        row[3] = row[1] + static_cast<float>(in_.between(-8, 60)) * 0.125f;
        row[4] = row[2] + static_cast<float>(in_.between(-8, 60)) * 0.125f;
        row[5] = in_.number();
        return row;
    }

    /// A box that a track may continue in.
    Row near(const model::Track& track) {
        const auto moved = [this](float value) {
            return value + static_cast<float>(in_.between(-16, 16)) * 0.0625f;
        };
        const model::Box& box = track.now;
        Row row{in_.chance(16) ? category() : static_cast<float>(track.category)};
        row[1] = moved(box.x - box.w * 0.5f);
        row[2] = moved(box.y - box.h * 0.5f);
        row[3] = moved(box.x + box.w * 0.5f);
        row[4] = moved(box.y + box.h * 0.5f);
        row[5] = 0.75f;
        return row;
    }

    /// Many boxes on a field, at nearly the same places in every crowd of the same seed.
    std::vector<Row> crowd(int count) {
        test::Random places(in_.byte());
        test::Random jitter(in_.byte());
        const float field = static_cast<float>(in_.between(1, 64));
        const float noise = static_cast<float>(in_.between(0, 32)) * 0.0625f;
        std::vector<Row> rows;
        for (int n = 0; n < count; ++n) {
            Row row{static_cast<float>(places.between(1, 2))};
            row[1] = places.uniform(0.0f, field) + jitter.uniform(-noise, noise);
            row[2] = places.uniform(0.0f, field) + jitter.uniform(-noise, noise);
            row[3] = row[1] + 2.0f;
            row[4] = row[2] + 3.0f;
            rows.push_back(row);
        }
        return rows;
    }

    /// As after a million confirmations. While tracks are confirmed, their ids would come again.
    void near_the_last_id(test::TrackerPair& pair) {
        for (const model::Track& track : pair.model().tracks()) {
            if (track.confirmed()) {
                return;
            }
        }
        const int id = iv::internal::MAX_TRACK_ID - in_.between(0, 3);
        pair.library().record().tid = id;
        pair.model().set_next_id(id);
    }

    /// As after years of frames.
    void near_the_last_count(test::TrackerPair& pair) {
        const std::vector<iv::internal::trk_obj_t*> tracks = pair.library().tracks();
        std::size_t n = 0;
        for (model::Track& track : pair.model().tracks()) {
            tracks[n]->match_count = track.matches = INT_MAX - in_.between(0, 2);
            if (in_.chance(128)) {
                tracks[n]->miss_count = track.misses = INT_MAX - in_.between(0, 2);
            }
            ++n;
        }
    }

    Bytes& in_;
    std::array<std::unique_ptr<test::TrackerPair>, 2> pairs_;
    int work_ = 0;
};

} // namespace

void tracker(Bytes in) {
    const FreshLibrary fresh(in);
    Host(in).run();
}

} // namespace fuzz
