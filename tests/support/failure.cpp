#include "support/failure.h"

#include <gtest/gtest.h>

namespace test {

void fail(const std::string& message) {
    ADD_FAILURE() << message;
}

} // namespace test
