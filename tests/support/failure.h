// Failures seen by what tests and other programs share.
#ifndef LIBIV_TESTS_FAILURE_H
#define LIBIV_TESTS_FAILURE_H

#include <string>

namespace test {

/// Fails the running test; each program without tests defines its own.
void fail(const std::string& message);

} // namespace test

#endif
