// Random values that are the same on every machine and with every standard library.
#ifndef LIBIV_TESTS_RANDOM_H
#define LIBIV_TESTS_RANDOM_H

#include <cstdint>

namespace test {

/// The splitmix64 generator: any seed is a good seed.
class Random {
  public:
    explicit Random(std::uint64_t seed) : state_(seed) {}

    std::uint64_t bits() {
        state_ += 0x9e3779b97f4a7c15u;
        std::uint64_t z = state_;
        z = (z ^ (z >> 30)) * 0xbf58476d1ce4e5b9u;
        z = (z ^ (z >> 27)) * 0x94d049bb133111ebu;
        return z ^ (z >> 31);
    }

    /// An integer of low..high, both included.
    int between(int low, int high) {
        const std::uint64_t count = static_cast<std::uint64_t>(std::int64_t{high} - low + 1);
        return static_cast<int>(low + static_cast<std::int64_t>(bits() % count));
    }

    /// A number of [low, high).
    float uniform(float low, float high) {
        const float unit = static_cast<float>(bits() >> 40) * (1.0f / 16777216.0f);
        return low + (high - low) * unit;
    }

    bool chance(float probability) { return uniform(0.0f, 1.0f) < probability; }

  private:
    std::uint64_t state_;
};

/// The seed of the random tests: LIBIV_TEST_SEED of the environment, else a fixed one. Printed
/// once.
std::uint64_t seed();

} // namespace test

#endif
