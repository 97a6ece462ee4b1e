#include "measure.h"

#include <time.h>

#include <algorithm>
#include <numeric>
#include <random>

namespace bench {
namespace {

/// Time of this thread on the processor: others that run on the machine do not count.
double now() {
    timespec time;
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
    return static_cast<double>(time.tv_sec) + 1e-9 * static_cast<double>(time.tv_nsec);
}

double seconds(const Entrant& entrant, long times) {
    const double start = now();
    entrant.run(times);
    return now() - start;
}

/// Runs that fill a batch. Warms up, too. The shorter of two attempts counts: an interruption taken
/// for the work would leave a batch of a few runs, most of whose time is the clock's.
long runs_per_batch(const Entrant& entrant, double batch_seconds) {
    long times = 1;
    for (;;) {
        const double spent = std::min(seconds(entrant, times), seconds(entrant, times));
        if (spent >= batch_seconds) {
            return times;
        }
        const double wanted = static_cast<double>(times) * batch_seconds / std::max(spent, 1e-9);
        times = std::clamp(static_cast<long>(wanted * 1.1), times + 1, times * 10);
    }
}

/// One entrant's course through the rounds; a sample of 0 stands for a round without it.
struct Course {
    long times;
    double spent = 0.0;
    int rounds = 0;
    std::vector<double> samples;

    bool over(const Effort& effort) const { return spent >= effort.entrant_seconds && rounds >= 3; }
};

void run_round(const Entrant& entrant, Course& course, const Effort& effort) {
    if (course.over(effort)) {
        course.samples.push_back(0.0);
        return;
    }
    if (course.times > 1) {
        entrant.run(1); // its code comes back into the caches
    }
    const double spent = seconds(entrant, course.times);
    course.spent += spent;
    ++course.rounds;
    course.samples.push_back(spent / static_cast<double>(course.times) * entrant.scale);
}

Timing summary(const Entrant& entrant, const Course& course, const Course& first) {
    std::vector<double> times;
    std::vector<double> ratios;
    for (std::size_t i = 0; i < course.samples.size(); ++i) {
        if (course.samples[i] > 0.0) {
            times.push_back(course.samples[i]);
            if (first.samples[i] > 0.0) {
                ratios.push_back(course.samples[i] / first.samples[i]);
            }
        }
    }
    return {entrant.name, entrant.group, 1e9 * median(times), median(ratios)};
}

} // namespace

double median(std::vector<double> values) {
    if (values.empty()) {
        return 0.0;
    }
    const std::size_t middle = values.size() / 2;
    std::sort(values.begin(), values.end());
    return values.size() % 2 == 1 ? values[middle] : (values[middle - 1] + values[middle]) / 2.0;
}

std::vector<Timing> measure(const Entrants& entrants, const Effort& effort) {
    std::vector<Course> courses;
    for (const Entrant& entrant : entrants) {
        courses.push_back({runs_per_batch(entrant, effort.batch_seconds), 0.0, 0, {}});
    }
    std::vector<std::size_t> order(entrants.size());
    std::iota(order.begin(), order.end(), std::size_t{0});
    std::mt19937 random;
    for (int round = 0; round < effort.rounds && !courses[0].over(effort); ++round) {
        std::shuffle(order.begin(), order.end(), random);
        for (const std::size_t i : order) {
            run_round(entrants[i], courses[i], effort);
        }
    }
    std::vector<Timing> timings;
    for (std::size_t i = 0; i < entrants.size(); ++i) {
        timings.push_back(summary(entrants[i], courses[i], courses[0]));
    }
    return timings;
}

} // namespace bench
