// Comparison of numbers to the bit, with messages that show the numbers and the bits.
#ifndef LIBIV_TESTS_BITS_H
#define LIBIV_TESTS_BITS_H

#include <gtest/gtest.h>

#include "support/number.h"

namespace test {

template <class T>
testing::AssertionResult compared(bool same, const char* expected_text, const char* actual_text,
                                  T expected, T actual) {
    if (same) {
        return testing::AssertionSuccess();
    }
    return testing::AssertionFailure()
           << actual_text << "\n  is       " << show(actual) << "\n  expected " << show(expected)
           << ", from " << expected_text;
}

/// EXPECT_PRED_FORMAT2(test::SameBits, expected, actual): for values that are copied, NaNs
/// included.
template <class T>
testing::AssertionResult SameBits(const char* expected_text, const char* actual_text, T expected,
                                  T actual) {
    return compared(bits(expected) == bits(actual), expected_text, actual_text, expected, actual);
}

/// EXPECT_PRED_FORMAT2(test::SameNumber, expected, actual): to the bit, but any NaN equals any
/// other.
template <class T>
testing::AssertionResult SameNumber(const char* expected_text, const char* actual_text, T expected,
                                    T actual) {
    return compared(same_number(expected, actual), expected_text, actual_text, expected, actual);
}

} // namespace test

#endif
