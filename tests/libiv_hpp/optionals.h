// What optionals.cpp finds, which is compiled without exceptions and run-time type information and
// so without the test framework.
#ifndef LIBIV_TESTS_OPTIONALS_H
#define LIBIV_TESTS_OPTIONALS_H

namespace test {

/// Each is null, or says what is not so.
const char* optionals_hold_what_is_made();
const char* optionals_are_empty_where_operands_do_not_fit();
const char* optionals_are_empty_while_memory_is_out();

} // namespace test

#endif
