// The header without exceptions, in one program with the header that has them.
#include "optionals.h"

#include <gtest/gtest.h>

#include "support/allocations.h"

namespace {

TEST(HppOptionals, HoldWhatIsMade) {
    EXPECT_STREQ(test::optionals_hold_what_is_made(), nullptr);
}

TEST(HppOptionals, AreEmptyWhereOperandsDoNotFit) {
    EXPECT_STREQ(test::optionals_are_empty_where_operands_do_not_fit(), nullptr);
}

TEST(HppOptionals, AreEmptyWhileMemoryIsOut) {
    test::Allocations allocations;
    allocations.fail_from(1);
    EXPECT_STREQ(test::optionals_are_empty_while_memory_is_out(), nullptr);
}

} // namespace
