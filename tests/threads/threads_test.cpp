// What a host with threads may do, and what it may not. Every build compares the results with those
// of one thread; the thread sanitizer also tells whether there is a race, and that there is one
// where the lock is left out.
#include <gtest/gtest.h>

#include <array>
#include <cstdlib>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "_libiv.h"
#include "iv_lanes/kernels.h"

namespace {

#if defined(__SANITIZE_THREAD__)
#define IV_RACES_ARE_SEEN 1
#elif defined(__has_feature)
#if __has_feature(thread_sanitizer)
#define IV_RACES_ARE_SEEN 1
#endif
#endif
#ifdef IV_RACES_ARE_SEEN
constexpr bool RACES_ARE_SEEN = true;
#else
constexpr bool RACES_ARE_SEEN = false;
#endif

constexpr int THREADS = 4;

struct Free {
    void operator()(iv_mat_t* mat) const { iv_mat_release(mat); }
    void operator()(iv_kalman_t* kalman) const { iv_kalman_release(kalman); }
};
using Matrix = std::unique_ptr<iv_mat_t, Free>;
using Filter = std::unique_ptr<iv_kalman_t, Free>;

Matrix matrix(int rows, int cols, float diagonal, float rest) {
    Matrix mat(iv_mat_create(rows, cols, IV_32F));
    for (int i = 0; i < rows * cols; ++i) {
        mat->data.f[i] = i / cols == i % cols ? diagonal : rest;
    }
    return mat;
}

/// What all threads read and none writes.
struct Shared {
    Matrix A = matrix(8, 8, 1.0f, 0.0625f), H = matrix(4, 8, 1.0f, 0.0f);
    Matrix Q = matrix(8, 8, 0.125f, 0.0f), R = matrix(4, 4, 1.0f, 0.0f);
    Matrix factor = matrix(20, 20, 3.0f, 0.25f);
};

/// The lock that the host puts around the calls that share the inverse's work area, or none.
class Gate {
  public:
    explicit Gate(std::mutex* mutex) : mutex_(mutex) {}

    void pass(const std::function<void()>& call) const {
        if (mutex_) {
            const std::lock_guard<std::mutex> lock(*mutex_);
            call();
        } else {
            call();
        }
    }

  private:
    std::mutex* mutex_;
};

using Results = std::vector<float>;

void append(Results& results, const iv_mat_t* mat) {
    results.insert(results.end(), mat->data.f, mat->data.f + mat->rows * mat->cols);
}

/// A camera: its own tracker, and objects that move.
class Camera {
  public:
    explicit Camera(int number)
        : number_(static_cast<float>(number)),
          tracker_(iv_tracker_create(64, 48, ROWS, 1, 0.1f, 2, 2, 0)) {}
    ~Camera() { iv_tracker_release(tracker_); }
    Camera(const Camera&) = delete;
    Camera& operator=(const Camera&) = delete;

    void set_params(int frame) const {
        iv_tracker_set_params(tracker_, 1, 0.125f, 2, frame % 2 + 1, frame % 3 == 0);
    }

    void process(int frame, Results& results) {
        std::array<float[6], ROWS + 1> input{};
        for (int k = 0; k < OBJECTS; ++k) {
            const float x =
                15.0f * static_cast<float>(k) + number_ + 0.25f * static_cast<float>(frame);
            const float row[6] = {1, x, 10, x + 4, 16, 0.5f};
            std::copy(row, row + 6, input[static_cast<std::size_t>(k)]);
        }
        std::array<float[8], ROWS> output{};
        iv_tracker_process(tracker_, input.data(), output.data());
        for (std::size_t n = 0; n < ROWS && output[n][0] != -1.0f; ++n) {
            results.insert(results.end(), output[n], output[n] + 8);
        }
    }

    /// Lets all tracks go.
    void close() {
        iv_tracker_set_params(tracker_, 1, 0.125f, 2, 0, 0);
        float none[1][6] = {};
        iv_tracker_process(tracker_, none, nullptr);
    }

  private:
    static constexpr int ROWS = 8;
    static constexpr int OBJECTS = 5;

    float number_;
    void* tracker_;
};

/// Everything that one thread of a host does with its own tracker, filter and matrices.
Results work(int number, const Shared& shared, const Gate& gate) {
    Results results;
    Camera camera(number);
    const Filter filter(
        iv_kalman_create(8, 4, 1, shared.A.get(), shared.H.get(), shared.Q.get(), shared.R.get()));
    iv_mat_setidentity(filter->P_post);
    const Matrix z = matrix(4, 1, static_cast<float>(number + 1), 2.0f);
    const Matrix product = matrix(20, 20, 0.0f, 0.0f);
    const Matrix inverse = matrix(20, 20, 0.0f, 0.0f);
    for (int frame = 0; frame < 40; ++frame) {
        camera.set_params(frame);
        gate.pass([&] { camera.process(frame, results); });

        iv_kalman_predict(filter.get());
        gate.pass([&] { iv_kalman_correct(filter.get(), z.get()); });
        append(results, filter->x_post);

        iv_mat_mul(shared.factor.get(), shared.factor.get(), product.get(), frame % 3);
        iv_mat_scale(&z->data.f[0], product.get(), product.get());
        product->data.f[0] += 1.0f;
        gate.pass([&] { iv_mat_inv(product.get(), inverse.get()); });
        append(results, inverse.get());
    }
    gate.pass([&] { camera.close(); });
    return results;
}

/// Runs one call of `task` with each number, all at once.
void run_threads(int count, const std::function<void(int)>& task) {
    std::vector<std::thread> threads;
    threads.reserve(static_cast<std::size_t>(count));
    for (int number = 0; number < count; ++number) {
        threads.emplace_back(task, number);
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
}

/// While one lives, the library works with the plainest kernels. The sanitizer overlooks accesses of more
/// than 16 bytes, and these have none.
class PlainKernels {
#ifdef IV_DISPATCH
  public:
    PlainKernels() {
        iv::internal::chosen_kernels = &iv::internal::KERNELS_BASELINE;
    }
    ~PlainKernels() {
        iv::internal::chosen_kernels = before_;
    }
    PlainKernels(const PlainKernels&) = delete;
    PlainKernels& operator=(const PlainKernels&) = delete;

  private:
    const iv::internal::Kernels* before_ = iv::internal::chosen_kernels;
#endif
};

/// With the kernels that the threads choose, then with those that the sanitizer sees through.
void check_twice(const std::function<void()>& check) {
    check();
    [[maybe_unused]] const PlainKernels plain{};
    check();
}

void check_one_mutex_is_enough() {
    const Shared shared;
    std::mutex mutex;
    std::vector<Results> results(THREADS);
    run_threads(THREADS, [&](int number) {
        results[static_cast<std::size_t>(number)] = work(number, shared, Gate(&mutex));
    });
    for (int number = 0; number < THREADS; ++number) {
        const Results alone = work(number, shared, Gate(nullptr));
        EXPECT_FALSE(alone.empty());
        EXPECT_EQ(results[static_cast<std::size_t>(number)], alone) << "thread " << number;
    }
}

TEST(Threads, OneMutexAroundTheCallsThatShareTheWorkAreaIsEnough) {
    check_twice(check_one_mutex_is_enough);
}

/// Everything but the three calls that share the work area.
Results work_without_inverse(int number, const Shared& shared) {
    Results results;
    const auto n = static_cast<float>(number);
    for (int round = 0; round < 20; ++round) {
        const Camera camera(number);
        camera.set_params(round);
        const Filter filter(iv_kalman_create(8, 4, 1, shared.A.get(), shared.H.get(),
                                             shared.Q.get(), shared.R.get()));
        iv_mat_setidentity(filter->P_post);
        iv_kalman_predict(filter.get());
        append(results, filter->P_pre);

        const Matrix a = matrix(20, 20, n, 1.0f);
        const Matrix b = matrix(20, 20, 0.0f, 0.0f);
        iv_mat_setone(b.get());
        iv_mat_add(a.get(), b.get(), b.get());
        iv_mat_sub(b.get(), shared.factor.get(), b.get());
        iv_mat_neg(b.get(), b.get());
        iv_mat_transpose(b.get(), a.get());
        iv_mat_muladd(a.get(), shared.factor.get(), b.get(), b.get(), IV_MAT_TRANS_SRC2);
        iv_mat_submul(shared.factor.get(), a.get(), a.get(), b.get(), 0);
        append(results, b.get());
        float x[3] = {n, 1, 2}, y[3] = {2, n, 1}, cross[3];
        _veccrossp_3(x, y, cross);
        results.insert(results.end(), cross, cross + 3);
        iv_mat_setzero(a.get());
    }
    return results;
}

void check_everything_else_needs_no_lock() {
    const Shared shared;
    std::vector<Results> results(THREADS);
    run_threads(THREADS, [&](int number) {
        results[static_cast<std::size_t>(number)] = work_without_inverse(number, shared);
    });
    for (int number = 0; number < THREADS; ++number) {
        EXPECT_EQ(results[static_cast<std::size_t>(number)], work_without_inverse(number, shared));
    }
}

TEST(Threads, EverythingElseNeedsNoLockOnDataOfItsOwn) {
    check_twice(check_everything_else_needs_no_lock);
}

/// A call that shares the work area, on data of its own.
struct Sharing {
    std::string name;
    std::function<void(const Shared&, const Gate&)> call;
};

void invert(const Shared& shared, const Gate& gate) {
    const Matrix inverse = matrix(20, 20, 0.0f, 0.0f);
    gate.pass([&] { iv_mat_inv(shared.factor.get(), inverse.get()); });
}

void correct(const Shared& shared, const Gate& gate) {
    const Filter filter(
        iv_kalman_create(8, 4, 1, shared.A.get(), shared.H.get(), shared.Q.get(), shared.R.get()));
    const Matrix z = matrix(4, 1, 1.0f, 2.0f);
    iv_kalman_predict(filter.get());
    gate.pass([&] { iv_kalman_correct(filter.get(), z.get()); });
}

void track(const Shared&, const Gate& gate) {
    Camera camera(0);
    Results results;
    for (int frame = 0; frame < 4; ++frame) {
        gate.pass([&] { camera.process(frame, results); });
    }
    gate.pass([&] { camera.close(); });
}

const std::vector<Sharing>& sharing() {
    static const std::vector<Sharing> all{
        {"iv_mat_inv", invert}, {"iv_kalman_correct", correct}, {"iv_tracker_process", track}};
    return all;
}

/// Two threads, one call each; then the process ends.
[[noreturn]] void run_pair(const Sharing& one, const Sharing& other, std::mutex* mutex) {
    const Shared shared;
    const Gate gate(mutex);
    run_threads(2, [&](int number) { (number == 0 ? one : other).call(shared, gate); });
    std::exit(0);
}

/// One tracker on two threads: one takes frames, one changes parameters.
[[noreturn]] void run_one_tracker_on_two_threads() {
    Camera camera(0);
    Results results;
    run_threads(2, [&](int number) {
        for (int frame = 0; frame < 4; ++frame) {
            number == 0 ? camera.process(frame, results) : camera.set_params(frame);
        }
    });
    std::exit(0);
}

/// The status with which the thread sanitizer ends a process that had a race.
constexpr int RACED = 66;

void for_each_pair(const std::function<void(const Sharing&, const Sharing&)>& check) {
    for (std::size_t i = 0; i < sharing().size(); ++i) {
        for (std::size_t j = i; j < sharing().size(); ++j) {
            SCOPED_TRACE(sharing()[i].name + " beside " + sharing()[j].name);
            check(sharing()[i], sharing()[j]);
        }
    }
}

/// Processes that may race start afresh: a forked one has the threads of its parent in its memory.
class Races : public testing::Test {
  protected:
    void SetUp() override {
        if (!RACES_ARE_SEEN) {
            GTEST_SKIP() << "only the thread sanitizer sees it: ./dev test tsan";
        }
        GTEST_FLAG_SET(death_test_style, "threadsafe");
    }

  private:
    [[maybe_unused]] const PlainKernels plain_{};
};

TEST_F(Races, WithoutTheMutexEveryTwoOfTheseCallsAreADataRace) {
    std::mutex mutex;
    for_each_pair([&](const Sharing& one, const Sharing& other) {
        EXPECT_EXIT(run_pair(one, other, nullptr), testing::ExitedWithCode(RACED), "data race");
        EXPECT_EXIT(run_pair(one, other, &mutex), testing::ExitedWithCode(0), "");
    });
}

TEST_F(Races, OneTrackerOnTwoThreadsIsADataRace) {
    EXPECT_EXIT(run_one_tracker_on_two_threads(), testing::ExitedWithCode(RACED), "data race");
}

} // namespace
