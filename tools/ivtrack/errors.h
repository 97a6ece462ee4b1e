// What ends the program early, and the exit status that goes with it.
#ifndef IVTRACK_ERRORS_H
#define IVTRACK_ERRORS_H

#include <stdexcept>
#include <string>

namespace ivtrack {

constexpr int EXIT_SYSTEM_FAILED = 1;
constexpr int EXIT_BAD_INPUT = 2;

/// Wrong usage or bad input: the caller can mend it. Exit status 2.
class BadInput : public std::runtime_error {
    using std::runtime_error::runtime_error;
};

/// The system refused to open, read, write or allocate. Exit status 1.
class SystemFailure : public std::runtime_error {
    using std::runtime_error::runtime_error;
};

/// A value of the input that cannot be used, before it is known where it stands.
struct BadValue {
    std::string value;    ///< as it stands in the input
    std::string expected; ///< what should have been there
};

} // namespace ivtrack

#endif
