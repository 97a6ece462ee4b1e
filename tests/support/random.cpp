#include "support/random.h"

#include <cstdio>
#include <cstdlib>

namespace test {

std::uint64_t seed() {
    static const std::uint64_t value = [] {
        const char* text = std::getenv("LIBIV_TEST_SEED");
        const std::uint64_t chosen = text ? std::strtoull(text, nullptr, 0) : 20210621;
        std::printf("LIBIV_TEST_SEED=%llu\n", static_cast<unsigned long long>(chosen));
        return chosen;
    }();
    return value;
}

} // namespace test
