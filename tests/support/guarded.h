// Storage with guard bytes around it, for every destination that a test hands to the library.
#ifndef LIBIV_TESTS_GUARDED_H
#define LIBIV_TESTS_GUARDED_H

#include <gtest/gtest.h>

#include <cstddef>
#include <vector>

namespace test {

/// A block of bytes that notices, at the latest when it goes, that something was written beside it.
/// Its values start `misaligned` bytes behind a multiple of 16. Filled with the guard pattern.
class Guarded {
  public:
    static constexpr unsigned char PATTERN = 0xa5;

    explicit Guarded(std::size_t size, std::size_t misaligned = 0)
        : front_(GUARD + misaligned), size_(size), bytes_(front_ + size + GUARD, PATTERN) {}
    Guarded(const Guarded&) = delete;
    Guarded& operator=(const Guarded&) = delete;
    ~Guarded() { expect_intact(); }

    unsigned char* data() { return bytes_.data() + front_; }
    const unsigned char* data() const { return bytes_.data() + front_; }
    std::size_t size() const { return size_; }

    /// Fails the running test when a guard byte changed.
    void expect_intact() const {
        for (std::size_t i = 0; i < bytes_.size(); ++i) {
            if (i == front_ && size_ > 0) {
                i += size_ - 1;
            } else if (bytes_[i] != PATTERN) {
                ADD_FAILURE() << "guard byte at offset "
                              << static_cast<std::ptrdiff_t>(i) -
                                     static_cast<std::ptrdiff_t>(front_)
                              << " of a block of " << size_ << " bytes holds " << +bytes_[i];
                return;
            }
        }
    }

  private:
    static constexpr std::size_t GUARD = 64;

    std::size_t front_;
    std::size_t size_;
    std::vector<unsigned char> bytes_;
};

} // namespace test

#endif
