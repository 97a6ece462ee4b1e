// Counts the library's allocations and makes chosen ones fail.
//
// The tests link the static library with malloc, calloc and free wrapped, so that only its own
// calls (and those of the test's C code) pass through here. What C++ code makes with `new` is counted
// apart.
#ifndef LIBIV_TESTS_ALLOCATIONS_H
#define LIBIV_TESTS_ALLOCATIONS_H

#include <cstddef>
#include <vector>

namespace test {

/// While one lives, it counts. Not nested.
class Allocations {
  public:
    enum class Keep {
        LISTS, ///< everything
        COUNTS ///< no lists, so that nothing grows
    };
    explicit Allocations(Keep keep = Keep::LISTS);
    ~Allocations();
    Allocations(const Allocations&) = delete;
    Allocations& operator=(const Allocations&) = delete;

    /// Blocks asked for by malloc and calloc that succeeded.
    int made() const;
    /// Blocks freed; free(NULL) does not count.
    int freed() const;
    /// Pointers passed to free, in order.
    const std::vector<void*>& freed_blocks() const;
    /// Sizes asked for (calloc: count times size), in order, those that failed included.
    const std::vector<std::size_t>& sizes() const;

    /// Blocks that `new` made, the test's own included.
    int made_by_new() const;
    /// Lets the next `new` fail.
    void fail_new();

    /// Lets the nth allocation from now on fail (1: the next one), and that one alone. 0: none.
    void fail_nth(int n);
    /// Lets the nth allocation from now on fail, and all behind it until either is called again.
    void fail_from(int n);
};

} // namespace test

#endif
