// The inverse of well-conditioned matrices.

#include "operands.h"
#include "peers.h"
#include "session.h"

namespace bench {
namespace {

void measure_inverse(Row& row, const Effort& effort, int n) {
    const std::size_t count = static_cast<std::size_t>(n) * static_cast<std::size_t>(n);
    Operands operands(row.offset);
    const Inverse task{n, operands.random<float>(count), operands.place<float>(count)};
    for (int i = 0; i < n; ++i) {
        task.a[i * n + i] += static_cast<float>(n);
    }
    const Entrants entrants = everyone(task);
    check(entrants, 1, task.c, count, 1e-5);
    row.timings = measure(entrants, effort);
}

} // namespace

void add_inverses(Session& session) {
    for (int n = 4; n <= 40; n += n < 16 ? 1 : 2) {
        for (const int offset : {0, 24}) {
            Row row{"inverse/f32/" + std::to_string(n), offset};
            if (offset == 0 && n == 4) {
                row.demands = {
                    {2.0, 0.0, {"Eigen dynamic", "Eigen fixed", "loops", "OpenBLAS", "OpenCV"}}};
            } else if (offset == 0 && n >= 6) {
                row.demands = {{1.3, 0.0}};
            }
            session.add(row, [n](Row& r, const Effort& effort) { measure_inverse(r, effort, n); });
        }
    }
    session.add_mean({"inverse of order 12 to 40", {"inverse/f32/(1[2-9]|[234].)"}, 1.8});
}

} // namespace bench
