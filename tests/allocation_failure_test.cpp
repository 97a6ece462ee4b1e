// Every allocation of the library fails once, and then every one from there on. A refused track is
// a detection that comes a frame later, a refused confirmation a match that does not count; all
// else goes on as the model says, which is refused the same blocks.
#include <gtest/gtest.h>

#include <cstdio>
#include <optional>
#include <string>
#include <vector>

#include "iv_tracker/instance.h"
#include "model/tracker_pair.h"
#include "support/allocations.h"
#include "support/matrix.h"
#include "support/output_capture.h"

namespace {

using model::Parameters;
using test::Allocations;
using test::Detection;
using test::detection;
using test::Instance;
using test::Random;
using test::Rows;
using test::Settings;
using test::TrackRow;

/// Which allocations fail: one, or all from there on while memory is out.
struct Failure {
    int nth;
    bool lasting;
};

constexpr Failure NONE = {0, false};

void arm(Allocations& allocations, const Failure& failure) {
    if (failure.lasting) {
        allocations.fail_from(failure.nth);
    } else {
        allocations.fail_nth(failure.nth);
    }
}

int asked(const Allocations& allocations) {
    return static_cast<int>(allocations.sizes().size());
}

std::string name_of(const Failure& failure) {
    return std::string(failure.lasting ? "every allocation from number " : "allocation number ") +
           std::to_string(failure.nth) + " on fails";
}

/// How often it was tried, for a document to quote.
class Tally {
  public:
    void add(const std::string& what, int single, int lasting) {
        std::printf("%5d single and %5d lasting failures: %s\n", single, lasting, what.c_str());
        single_ += single;
        lasting_ += lasting;
    }

    void record() const {
        std::printf("%5d single and %5d lasting failures of an allocation\n", single_, lasting_);
        testing::Test::RecordProperty("single_failures", single_);
        testing::Test::RecordProperty("lasting_failures", lasting_);
    }

  private:
    int single_ = 0;
    int lasting_ = 0;
};

/// Tries every failure of a run: `run(failure)` gives how many allocations it asked for. Returns how
/// many those are while none fails.
template <class Run>
int fail_each(Tally& tally, const std::string& what, Run run) {
    SCOPED_TRACE(what);
    const int requests = run(NONE);
    for (const bool lasting : {false, true}) {
        for (int nth = 1; nth <= requests && !testing::Test::HasFailure(); ++nth) {
            SCOPED_TRACE(name_of({nth, lasting}));
            EXPECT_GE(run(Failure{nth, lasting}), nth) << "it was never asked for";
        }
    }
    tally.add(what, requests, requests);
    return requests;
}

/// More than a few: as many as the seed makes them.
constexpr int SOME = -1;

/// Frames of a tracker, and those of them in which allocations may fail.
struct Scenario {
    std::string name;
    int requests; ///< allocations of the frames in question while none fails
    int capacity;
    Parameters parameters;
    std::vector<Rows> frames;
    std::size_t first, last; ///< the frames in question
    std::optional<Parameters> changed{};
    std::size_t changed_at = 0; ///< the frame that is the first with the changed parameters
};

/// Runs both sides through all frames; returns the requests in the frames in question.
int run_scenario(const Scenario& scenario, const Failure& failure) {
    Allocations allocations;
    int before = 0;
    int behind = 0;
    int failed = 0;
    {
        test::TrackerPair trackers(scenario.capacity, scenario.parameters);
        test::Events events;
        for (std::size_t i = 0; i < scenario.frames.size() && !testing::Test::HasFailure(); ++i) {
            SCOPED_TRACE("frame " + std::to_string(i));
            if (scenario.changed && i == scenario.changed_at) {
                trackers.set_params(*scenario.changed);
            }
            if (i == scenario.first) {
                before = asked(allocations);
                arm(allocations, failure);
                trackers.model().refuse_block(failure.nth, failure.lasting);
            }
            trackers.process(scenario.frames[i], true, events);
            if (i == scenario.last) {
                behind = asked(allocations);
                failed = behind - allocations.made();
                arm(allocations, NONE);
                trackers.model().refuse_block(0, false);
            }
        }
    }
    EXPECT_EQ(allocations.made(), allocations.freed()) << "but for what the contract leaves";
    if (!failure.lasting) {
        EXPECT_EQ(failed, failure.nth == 0 ? 0 : 1);
    }
    return behind - before;
}

constexpr float APART = 30.0f;

/// Objects from `begin` to before `end`, far from each other, that move and grow a little.
Rows objects(int begin, int end, int frame) {
    Rows rows;
    for (int k = begin; k < end; ++k) {
        const auto t = static_cast<float>(frame);
        rows.push_back(detection(static_cast<float>(1 + k % 2), APART * static_cast<float>(k % 9),
                                 APART * static_cast<float>(k / 9) + 0.25f * t, 4.0f + 0.125f * t));
    }
    rows.push_back({});
    return rows;
}

std::vector<Rows> frames_of(int count, int end, int begin = 0) {
    std::vector<Rows> frames;
    for (int frame = 0; frame < count; ++frame) {
        frames.push_back(objects(begin, end, frame));
    }
    return frames;
}

constexpr Parameters stable_after(int matches) {
    return {1.0f, 0.1f, matches, 3, 0};
}

/// Five tracks are there; then others come, and two of the five go.
Scenario births(int tracks, int newcomers, int stable, int requests) {
    Scenario scenario{"births beside " + std::to_string(tracks) + " confirmed tracks",
                      requests,
                      tracks + newcomers + 2,
                      stable_after(stable),
                      frames_of(4, tracks),
                      4,
                      4};
    for (int frame = 4; frame < 11; ++frame) {
        scenario.frames.push_back(objects(2, tracks + newcomers, frame));
    }
    return scenario;
}

Scenario steady() {
    Scenario scenario{"steady frames", 0, 8, stable_after(2), frames_of(8, 6), 3, 11};
    for (int frame = 8; frame < 14; ++frame) {
        scenario.frames.push_back(objects(frame < 10 ? 6 : 3, 6, frame));
    }
    return scenario;
}

/// Crossing objects, misses, false alarms and a full ring, with parameters that change.
Scenario whole_scene(Random& random) {
    constexpr int FRAMES = 30;
    constexpr int CAPACITY = 16;
    test::Scene source(random, 12, CAPACITY, 0.0f, 2.0f);
    Scenario scenario{"a scene of " + std::to_string(FRAMES) + " frames",
                      SOME,
                      CAPACITY,
                      {1.0f, 0.05f, 2, 2, 0},
                      {},
                      0,
                      FRAMES - 1,
                      Parameters{1.0f, 0.0f, 5, 6, 1},
                      FRAMES / 2};
    for (int frame = 0; frame < FRAMES + 10; ++frame) {
        scenario.frames.push_back(source.next_frame());
    }
    return scenario;
}

std::vector<Scenario> scenarios() {
    std::vector<Scenario> all{
        {"first frame, confirmed at once", 24, 16, stable_after(1), frames_of(5, 8), 0, 0},
        {"first frame, tentative", 8, 16, stable_after(3), frames_of(6, 8), 0, 0},
        births(5, 6, 3, 6),
        births(70, 4, 1, 12),
        {"births beyond the capacity", 18, 6, stable_after(1), frames_of(4, 9), 0, 0},
        {"confirmations", 12, 16, stable_after(3), frames_of(8, 6), 2, 2},
        {"confirmations after a lowered count", 10, 8, stable_after(9), frames_of(7, 5), 3, 3,
         stable_after(2), 3},
        {"second confirmations", 10, 8, stable_after(1), frames_of(9, 5), 4, 4, stable_after(5), 2},
        steady(),
    };
    Random random(test::seed() + 90);
    for (int scene = 0; scene < test::rounds(static_cast<int>(3 * LIBIV_SWEEP_SHARE)); ++scene) {
        all.push_back(whole_scene(random));
    }
    return all;
}

int create_tracker(const Failure& failure) {
    Allocations allocations;
    arm(allocations, failure);
    void* handle = iv_tracker_create(64, 48, 5, 1, 0.5f, 3, 5, 0);
    const int requests = asked(allocations);
    if (failure.nth != 0) {
        EXPECT_EQ(handle, nullptr);
        EXPECT_EQ(allocations.freed(), allocations.made()) << "something stays";
    } else {
        iv_tracker_release(handle);
    }
    return requests;
}

int create_matrix(int type, const Failure& failure) {
    Allocations allocations;
    arm(allocations, failure);
    iv_mat_t* mat = iv_mat_create(3, 4, type);
    EXPECT_EQ(mat == nullptr, failure.nth != 0);
    iv_mat_release(mat);
    EXPECT_EQ(allocations.freed(), allocations.made());
    return asked(allocations);
}

int create_filter(int flag, const Failure& failure) {
    const std::vector<float> ones(64, 1.0f);
    test::FloatMatrix A(8, 8, ones), H(4, 8, {ones.begin(), ones.begin() + 32});
    test::FloatMatrix Q(8, 8, ones), R(4, 4, {ones.begin(), ones.begin() + 16});
    Allocations allocations;
    arm(allocations, failure);
    iv_kalman_t* kalman = iv_kalman_create(8, 4, flag, A, H, Q, R);
    EXPECT_EQ(kalman == nullptr, failure.nth != 0);
    iv_kalman_release(kalman);
    EXPECT_EQ(allocations.freed(), allocations.made());
    for (const test::FloatMatrix* mat : {&A, &H, &Q, &R}) {
        EXPECT_EQ(mat->values(), std::vector<float>(mat->values().size(), 1.0f));
    }
    return asked(allocations);
}

TEST(AllocationFailure, EachOneAloneAndAllFromEachOneOnLeaveTheRestAsTheModelSays) {
    Tally tally;
    for (int depth = IV_8U; depth <= IV_64F; ++depth) {
        const auto run = [depth](const Failure& failure) { return create_matrix(depth, failure); };
        EXPECT_EQ(fail_each(tally, "matrix of depth " + std::to_string(depth), run), 1);
    }
    for (const int flag : {0, 1}) {
        const auto run = [flag](const Failure& failure) { return create_filter(flag, failure); };
        const std::string whose = flag ? "a caller's" : "its own";
        EXPECT_EQ(fail_each(tally, "filter with " + whose + " model", run), 1);
    }
    EXPECT_EQ(fail_each(tally, "tracker", create_tracker), 8);
    for (const Scenario& scenario : scenarios()) {
        const auto run = [&](const Failure& failure) { return run_scenario(scenario, failure); };
        const int requests = fail_each(tally, scenario.name, run);
        if (scenario.requests == SOME) {
            EXPECT_GT(requests, 20);
        } else {
            EXPECT_EQ(requests, scenario.requests);
        }
        ASSERT_FALSE(HasFailure()) << "what was not tried is not counted";
    }
    tally.record();
}

TEST(AllocationFailure, OperationsOnMatricesAskForNoMemory) {
    for (const int n : {1, 4, 40}) {
        const std::vector<float> values(static_cast<std::size_t>(n * n), 2.0f);
        test::FloatMatrix a(n, n, values), b(n, n, values), d(n, n, values);
        float factor = 0.5f;
        test::OutputCapture output;
        Allocations allocations;
        allocations.fail_from(1);
        iv_mat_setzero(d);
        iv_mat_setidentity(a);
        iv_mat_setone(b);
        iv_mat_setdiagonal(b->data.p, a);
        iv_mat_neg(a, d);
        iv_mat_scale(&factor, a, d);
        iv_mat_add(a, b, d);
        iv_mat_sub(a, b, d);
        iv_mat_transpose(b, d);
        for (const int flags : {0, IV_MAT_TRANS_SRC1, IV_MAT_TRANS_SRC2}) {
            iv_mat_mul(a, b, d, flags);
            iv_mat_muladd(a, b, b, d, flags);
        }
        iv_mat_submul(a, b, b, d, 0);
        iv_mat_submul(nullptr, b, b, d, IV_MAT_IDENTITY_SRC1);
        EXPECT_EQ(iv_mat_inv(a, d), 0);
        iv_mat_print(nullptr, d);
        EXPECT_EQ(asked(allocations), 0);
        EXPECT_EQ(allocations.freed(), 0);
    }
}

TEST(AllocationFailure, SteadyFramesDoNotNoticeThatMemoryIsOut) {
    EXPECT_EQ(run_scenario(steady(), {1, true}), 0);
}

TEST(AllocationFailure, TrackerIsCreatedOnceMemoryIsBack) {
    for (int nth = 1; nth <= 8; ++nth) {
        {
            Allocations allocations;
            allocations.fail_from(nth);
            EXPECT_EQ(iv_tracker_create(64, 48, 5, 1, 0.5f, 1, 5, 0), nullptr);
        }
        Instance instance;
        EXPECT_EQ(test::ids(instance.process({detection(1, 10, 20)})), std::vector<int>{1});
    }
}

/// Two runs of the same objects, of which the last joins in a frame of its own. In the first run
/// one allocation of one frame fails.
class TwoRuns {
  public:
    explicit TwoRuns(int stable) : first_(settings(stable)), second_(settings(stable)) {}

    /// One frame with or without the last object. Returns the rows that are written.
    std::vector<TrackRow> first(int frame, bool last, int failing = 0) {
        Allocations allocations;
        allocations.fail_nth(failing);
        return first_.process(detections(frame, last));
    }
    std::vector<TrackRow> second(int frame, bool last) {
        return second_.process(detections(frame, last));
    }

  private:
    static Settings settings(int stable) {
        Settings result;
        result.fcnt_stable = stable;
        return result;
    }

    static std::vector<Detection> detections(int frame, bool last) {
        std::vector<Detection> rows = objects(0, last ? 4 : 3, frame);
        rows.pop_back();
        return rows;
    }

    Instance first_, second_;
};

TEST(AllocationFailure, RefusedTrackIsADetectionThatComesOneFrameLater) {
    TwoRuns runs(2);
    for (int frame = 0; frame < 12; ++frame) {
        const int failing = frame == 5 ? 1 : 0;
        EXPECT_EQ(runs.first(frame, frame >= 5, failing), runs.second(frame, frame >= 6)) << frame;
    }
}

TEST(AllocationFailure, RefusedConfirmationIsATrackThatStartedOneFrameLater) {
    for (const int failing : {1, 2}) {
        TwoRuns runs(3);
        for (int frame = 0; frame < 12; ++frame) {
            const std::vector<TrackRow> rows =
                runs.first(frame, frame >= 4, frame == 6 ? failing : 0);
            EXPECT_EQ(rows, runs.second(frame, frame >= 5)) << frame;
            EXPECT_EQ(rows.size(), frame < 2 ? 0u : frame < 7 ? 3u : 4u) << frame;
        }
    }
}

} // namespace
