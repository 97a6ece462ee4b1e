// What finding the right code costs a call: the shortest call there is, beside one that is refused
// before anything is looked up. The difference bounds the cost from above.

#include "peers.h"
#include "session.h"

namespace bench {

void add_dispatch(Session& session) {
    const Row row{"dispatch/add/1", 0, {{1.0, 0.0, {"refused"}, 2.0}}};
    session.add(row, [](Row& r, const Effort& effort) {
        s32_t values[3] = {1, 2, 3};
        const Elementwise<s32_t> task{Operation::ADD, 1, &values[0], &values[1], &values[2], 0};
        Entrants entrants;
        enter_libiv(task, entrants);
        enter_model(task, entrants);
        enter_libiv(Elementwise<s32_t>{Operation::ADD, 0, values, values, values, 0}, entrants);
        entrants.back().name = "refused";
        entrants.back().group = Group::REPORTED;
        r.timings = measure(entrants, effort);
    });
}

} // namespace bench
