// Memory between places where nothing may be read: shows that a value is looked at, or that it is
// not.
#ifndef LIBIV_TESTS_FORBIDDEN_PAGE_H
#define LIBIV_TESTS_FORBIDDEN_PAGE_H

#include <sys/mman.h>
#include <unistd.h>

#include <cstddef>
#include <stdexcept>

namespace test {

/// A forbidden page, room for at least so many bytes, and a forbidden page.
class ForbiddenPage {
  public:
    explicit ForbiddenPage(std::size_t room = 1)
        : page_(static_cast<std::size_t>(sysconf(_SC_PAGESIZE))),
          room_((room + page_ - 1) / page_ * page_) {
        void* pages =
            mmap(nullptr, room_ + 2 * page_, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        if (pages == MAP_FAILED) {
            throw std::runtime_error("mmap");
        }
        begin_ = static_cast<unsigned char*>(pages) + page_;
        if (mprotect(begin_, room_, PROT_READ | PROT_WRITE) != 0) {
            throw std::runtime_error("mprotect");
        }
    }
    ~ForbiddenPage() { munmap(begin_ - page_, room_ + 2 * page_); }
    ForbiddenPage(const ForbiddenPage&) = delete;
    ForbiddenPage& operator=(const ForbiddenPage&) = delete;

    /// The first byte that may be read.
    unsigned char* begin() const { return begin_; }
    /// The first byte behind that may not be read; `bytes` in front of it may.
    unsigned char* end(std::size_t bytes = 0) const { return begin_ + room_ - bytes; }

  private:
    std::size_t page_;
    std::size_t room_;
    unsigned char* begin_;
};

} // namespace test

#endif
