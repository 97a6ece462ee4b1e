// What finding the right code costs a call: the shortest call there is, beside one that is refused
// before anything is looked up. The difference bounds the cost from above.

#include "_libiv.h"
#include "session.h"

namespace bench {

void add_dispatch(Session& session) {
    const Row row{"dispatch/add/1", 0, {{1.0, 0.0, {"refused"}, 2.0}}};
    session.add(row, [](Row& r, const Effort& effort) {
        s32_t values[3] = {1, 2, 3};
        iv_mat_t a, b, c;
        iv_mat_initheader(&a, 1, 1, IV_32S, &values[0]);
        iv_mat_initheader(&b, 1, 1, IV_32S, &values[1]);
        iv_mat_initheader(&c, 1, 1, IV_32S, &values[2]);
        iv_mat_t other = b;
        other.type = IV_32F;
        const Entrants entrants = {
            {"libiv", Group::LIBIV, repeat([=]() mutable { iv_mat_add(&a, &b, &c); })},
            {"refused", Group::REPORTED, repeat([=]() mutable { iv_mat_add(&a, &other, &c); })}};
        r.timings = measure(entrants, effort);
    });
}

} // namespace bench
