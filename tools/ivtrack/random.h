// Random numbers that are the same on every machine: integers and exact operations alone.
#ifndef IVTRACK_RANDOM_H
#define IVTRACK_RANDOM_H

#include <cstdint>

namespace ivtrack {

/// The splitmix64 generator.
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

    /// Uniform in [low, high).
    double uniform(double low, double high) {
        const double unit = static_cast<double>(bits() >> 11) * 0x1p-53;
        return low + (high - low) * unit;
    }

    bool chance(double probability) { return uniform(0, 1) < probability; }

    /// Mean 0, standard deviation 1, never beyond 3.5: the sum of four uniform numbers, scaled.
    double noise() {
        constexpr double SQUARE_ROOT_OF_3 = 1.7320508075688772;
        double sum = 0;
        for (int n = 0; n < 4; ++n) {
            sum += uniform(-0.5, 0.5);
        }
        return sum * SQUARE_ROOT_OF_3;
    }

  private:
    std::uint64_t state_;
};

} // namespace ivtrack

#endif
