// What holds of a tracker between any two calls, whatever a host passed to them.
#ifndef LIBIV_TESTS_TRACKER_INVARIANTS_H
#define LIBIV_TESTS_TRACKER_INVARIANTS_H

#include "iv_tracker.h"

namespace test {

/// Fails unless the ring, the counters, the ids, the associations and the filters of a tracker whose
/// latest call was a frame agree with one another.
void expect_sound(const iv::internal::tracker_t& tracker);

} // namespace test

#endif
