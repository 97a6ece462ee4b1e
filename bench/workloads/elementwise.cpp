// Sums, differences, scaling, negation and fills of 256 to 65,536 values.

#include "depth.h"
#include "operands.h"
#include "peers.h"
#include "session.h"

namespace bench {
namespace {

constexpr std::size_t L1_BYTES = 32 * 1024;

const char* name_of(Operation operation) {
    constexpr const char* names[] = {"add", "sub", "scale", "neg", "one"};
    return names[static_cast<int>(operation)];
}

template <class T>
void measure_elementwise(Row& row, const Effort& effort, Operation operation, int count) {
    const std::size_t size = static_cast<std::size_t>(count);
    Operands operands(row.offset);
    const Elementwise<T> task{operation,
                              count,
                              operands.random<T>(size),
                              operands.random<T>(size),
                              operands.place<T>(size),
                              T{3}};
    const Entrants entrants = everyone(task);
    check(entrants, 1, task.c, size, 1e-6);
    row.timings = measure(entrants, effort);
}

template <class T>
void add_type(Session& session) {
    for (const Operation operation :
         {Operation::ADD, Operation::SUB, Operation::SCALE, Operation::NEG, Operation::ONE}) {
        if (operation == Operation::NEG && std::is_unsigned_v<T>) {
            continue; // the library leaves unsigned values alone
        }
        for (const int count : {256, 1024, 4096, 16384, 65536}) {
            for (const int offset : {0, 24}) {
                Row row{"elementwise/" + type_name<T>() + "/" + name_of(operation) + "/" +
                            std::to_string(count),
                        offset};
                const bool in_l1 = 3 * sizeof(T) * static_cast<std::size_t>(count) <= L1_BYTES;
                if (offset == 0) {
                    row.demands = {{count >= 4096 ? 0.95 : 1.0,
                                    in_l1 ? 1.1 : 0.0,
                                    {},
                                    count >= 4096 ? 0.0 : 3.0}};
                }
                session.add(row, [operation, count](Row& r, const Effort& effort) {
                    measure_elementwise<T>(r, effort, operation, count);
                });
            }
        }
    }
}

} // namespace

void add_elementwise(Session& session) {
    add_type<f32_t>(session);
    add_type<f64_t>(session);
    add_type<u08_t>(session);
    add_type<s16_t>(session);
    add_type<s32_t>(session);
}

} // namespace bench
