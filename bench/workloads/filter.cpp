// Predict and correct as a dependent sequence on one filter.

#include "operands.h"
#include "peers.h"
#include "session.h"

namespace bench {
namespace {

/// Places and velocities, as many of each as there are measurements; places are measured.
class Motion {
  public:
    Motion(int ns, int nm)
        : ns_(ns),
          A_(square(ns, 1.0f)),
          H_(static_cast<std::size_t>(ns) * static_cast<std::size_t>(nm)),
          Q_(square(ns, 0.1f)),
          R_(square(nm, 1.0f)),
          x_(static_cast<std::size_t>(ns)) {
        for (int i = 0; i < nm; ++i) {
            A_[static_cast<std::size_t>(i * ns + nm + i)] = 1.0f;
            H_[static_cast<std::size_t>(i * ns + i)] = 1.0f;
        }
        const std::size_t count = static_cast<std::size_t>(Filter::MEASUREMENTS * nm);
        const float* const random = operands_.random<float>(count);
        task_ = {ns, nm, A_.data(), H_.data(), Q_.data(), R_.data(), random, x_.data()};
    }
    Motion(const Motion&) = delete;
    Motion& operator=(const Motion&) = delete;

    const Filter& task() const { return task_; }

  private:
    static std::vector<float> square(int n, float diagonal) {
        std::vector<float> values(static_cast<std::size_t>(n) * static_cast<std::size_t>(n));
        for (int i = 0; i < n; ++i) {
            values[static_cast<std::size_t>(i * n + i)] = diagonal;
        }
        return values;
    }

    int ns_;
    std::vector<float> A_, H_, Q_, R_, x_;
    Operands operands_{0};
    Filter task_;
};

void measure_filter(Row& row, const Effort& effort, int ns, int nm) {
    const Motion motion(ns, nm);
    const Entrants entrants = everyone(motion.task());
    check(entrants, 20, motion.task().x, static_cast<std::size_t>(ns), 1e-4);
    row.timings = measure(entrants, effort);
}

} // namespace

Filter tracker_filter() {
    static const Motion motion(8, 4);
    return motion.task();
}

void add_filters(Session& session) {
    const auto add = [&](int ns, int nm, const std::vector<Demand>& demands) {
        session.add({"filter/" + std::to_string(ns) + "/" + std::to_string(nm), 0, demands},
                    [ns, nm](Row& r, const Effort& effort) { measure_filter(r, effort, ns, nm); });
    };
    add(8, 4,
        {{1.6, 0.0, {"Eigen fixed"}},
         {8.0, 0.0, {"Eigen dynamic"}},
         {20.0, 0.0, {"OpenCV"}},
         {0.0, 1.0, {"Eigen idiomatic"}}});
    add(16, 8, {{1.4, 2.0}});
    add(32, 16, {{1.4, 1.8}});
}

} // namespace bench
