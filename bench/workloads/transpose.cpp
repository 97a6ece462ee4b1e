// Transposes of square matrices.

#include "depth.h"
#include "operands.h"
#include "peers.h"
#include "session.h"

namespace bench {
namespace {

template <class T>
void measure_transpose(Row& row, const Effort& effort, int n) {
    const std::size_t count = static_cast<std::size_t>(n) * static_cast<std::size_t>(n);
    Operands operands(row.offset);
    const Transpose<T> task{n, operands.random<T>(count), operands.place<T>(count)};
    const Entrants entrants = everyone(task);
    check(entrants, 1, task.c, count, 0.0);
    row.timings = measure(entrants, effort);
}

template <class T>
void add_type(Session& session, double must) {
    for (const int n : {32, 64, 128, 256, 512, 1024}) {
        for (const int offset : {0, 24}) {
            Row row{"transpose/" + type_name<T>() + "/" + std::to_string(n), offset};
            if (offset == 0) {
                row.demands = {{must, 0.0}};
            }
            session.add(row,
                        [n](Row& r, const Effort& effort) { measure_transpose<T>(r, effort, n); });
        }
    }
}

} // namespace

void add_transposes(Session& session) {
    add_type<u08_t>(session, 2.0);
    add_type<u16_t>(session, 2.0);
    add_type<f32_t>(session, 0.9);
    add_type<f64_t>(session, 1.2);
    session.add_mean({"transpose of u8 and u16", {"transpose/u.*"}, 3.0});
    session.add_mean({"transpose of f32", {"transpose/f32/.*"}, 1.2});
    session.add_mean({"transpose of f64", {"transpose/f64/.*"}, 1.4});
}

} // namespace bench
