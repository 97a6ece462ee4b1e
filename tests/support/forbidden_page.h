// Memory that ends where nothing may be read: shows that a value is looked at, or that it is not.
#ifndef LIBIV_TESTS_FORBIDDEN_PAGE_H
#define LIBIV_TESTS_FORBIDDEN_PAGE_H

#include <sys/mman.h>
#include <unistd.h>

#include <cstddef>
#include <stdexcept>

namespace test {

class ForbiddenPage {
  public:
    ForbiddenPage() : size_(static_cast<std::size_t>(sysconf(_SC_PAGESIZE))) {
        void* pages =
            mmap(nullptr, 2 * size_, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        if (pages == MAP_FAILED) {
            throw std::runtime_error("mmap");
        }
        begin_ = static_cast<unsigned char*>(pages);
        if (mprotect(begin_ + size_, size_, PROT_NONE) != 0) {
            throw std::runtime_error("mprotect");
        }
    }
    ~ForbiddenPage() { munmap(begin_, 2 * size_); }
    ForbiddenPage(const ForbiddenPage&) = delete;
    ForbiddenPage& operator=(const ForbiddenPage&) = delete;

    /// The first byte that may not be read; `bytes` in front of it may.
    void* end(std::size_t bytes = 0) const { return begin_ + size_ - bytes; }

  private:
    std::size_t size_;
    unsigned char* begin_;
};

} // namespace test

#endif
