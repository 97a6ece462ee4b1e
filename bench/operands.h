// Where operands lie, what they hold, and what has to come out.
#ifndef LIBIV_BENCH_OPERANDS_H
#define LIBIV_BENCH_OPERANDS_H

#include <cmath>
#include <cstdint>
#include <cstring>
#include <memory>
#include <random>
#include <stdexcept>
#include <type_traits>
#include <vector>

#include "entrant.h"

namespace bench {

/// Operands at `offset` bytes behind a 64-byte boundary. Each starts elsewhere within its page,
/// because stores slow down loads that follow at the same place of another page.
class Operands {
  public:
    explicit Operands(int offset) : offset_(static_cast<std::size_t>(offset)) {}

    template <class T>
    T* place(std::size_t count) {
        const std::size_t stagger = 1344 * blocks_.size();
        blocks_.emplace_back(count * sizeof(T) + offset_ + stagger + PAGE);
        const auto address = reinterpret_cast<std::uintptr_t>(blocks_.back().data());
        const std::size_t to_page = (PAGE - address % PAGE) % PAGE;
        return reinterpret_cast<T*>(blocks_.back().data() + to_page + stagger + offset_);
    }

    /// The same, with values of -1 to 1, or small integers.
    template <class T>
    T* random(std::size_t count) {
        T* const values = place<T>(count);
        for (std::size_t i = 0; i < count; ++i) {
            const int random = static_cast<int>(generator_() % 2001) - 1000;
            if constexpr (std::is_floating_point_v<T>) {
                values[i] = static_cast<T>(random) / 1000;
            } else {
                values[i] = static_cast<T>(random % 10);
            }
        }
        return values;
    }

  private:
    static constexpr std::size_t PAGE = 4096;
    std::size_t offset_;
    std::vector<std::vector<unsigned char>> blocks_;
    std::mt19937 generator_;
};

/// Lets every entrant do the work so many times and compares: the library with the model to the
/// bit, the others within `tolerance` of each value's size or of one.
template <class T>
void check(const Entrants& entrants, long times, T* result, std::size_t count, double tolerance) {
    std::vector<T> expected;
    const auto run = [&](const Entrant& entrant) {
        std::memset(static_cast<void*>(result), 0x55, count * sizeof(T));
        entrant.run(times);
        if (entrant.show) {
            entrant.show();
        }
    };
    for (const Entrant& entrant : entrants) {
        if (entrant.group == Group::BASELINE) {
            run(entrant);
            expected.assign(result, result + count);
        }
    }
    for (const Entrant& entrant : entrants) {
        if (entrant.group == Group::BASELINE || entrant.group == Group::LIMIT) {
            continue;
        }
        run(entrant);
        for (std::size_t i = 0; i < count; ++i) {
            const double got = static_cast<double>(result[i]);
            const double wanted = static_cast<double>(expected.at(i));
            const bool same = std::memcmp(&result[i], &expected[i], sizeof(T)) == 0;
            const bool near = std::abs(got - wanted) <= tolerance * std::max(1.0, std::abs(wanted));
            if (!same && (entrant.group == Group::LIBIV || !near)) {
                throw std::runtime_error(entrant.name + ": value " + std::to_string(i) + " is " +
                                         std::to_string(got) + ", expected " +
                                         std::to_string(wanted));
            }
        }
    }
}

} // namespace bench

#endif
