#include "support/allocations.h"

#include <cstdlib>
#include <new>
#include <utility>

namespace test {
namespace {

struct Counters {
    int made = 0;
    int freed = 0;
    int until_failure = 0;
    bool lasting = false;
    bool keeps_lists = true;
    int made_by_new = 0;
    bool new_fails = false;
    std::vector<void*> freed_blocks;
    std::vector<std::size_t> sizes;
};

Counters* counters = nullptr;

/// Records a request; false when it has to fail.
bool record(std::size_t size) {
    if (!counters) {
        return true;
    }
    if (counters->keeps_lists) {
        counters->sizes.push_back(size);
    }
    if (counters->until_failure != 1) {
        counters->until_failure -= counters->until_failure > 0;
        return true;
    }
    counters->until_failure = counters->lasting ? 1 : 0;
    return false;
}

void* count(void* block) {
    if (counters && block) {
        ++counters->made;
    }
    return block;
}

} // namespace

Allocations::Allocations(Keep keep) {
    counters = new Counters;
    counters->keeps_lists = keep == Keep::LISTS;
}

Allocations::~Allocations() {
    delete counters;
    counters = nullptr;
}

int Allocations::made() const {
    return counters->made;
}
int Allocations::freed() const {
    return counters->freed;
}
const std::vector<void*>& Allocations::freed_blocks() const {
    return counters->freed_blocks;
}
const std::vector<std::size_t>& Allocations::sizes() const {
    return counters->sizes;
}
int Allocations::made_by_new() const {
    return counters->made_by_new;
}
void Allocations::fail_new() {
    counters->new_fails = true;
}
void Allocations::fail_nth(int n) {
    counters->until_failure = n;
    counters->lasting = false;
}
void Allocations::fail_from(int n) {
    counters->until_failure = n;
    counters->lasting = true;
}

} // namespace test

// The linker sends the library's calls here and knows the originals as __real_*.
extern "C" {
void* __real_malloc(std::size_t size);
void* __real_calloc(std::size_t number, std::size_t size);
void __real_free(void* block);
void* __wrap_malloc(std::size_t size);
void* __wrap_calloc(std::size_t number, std::size_t size);
void __wrap_free(void* block);

void* __wrap_malloc(std::size_t size) {
    return test::record(size) ? test::count(__real_malloc(size)) : nullptr;
}

void* __wrap_calloc(std::size_t number, std::size_t size) {
    std::size_t bytes;
    // A size that overflows is refused here as calloc does: checkers take it for a mistake.
    const bool overflows = __builtin_mul_overflow(number, size, &bytes);
    const bool granted = test::record(bytes);
    return granted && !overflows ? test::count(__real_calloc(number, size)) : nullptr;
}

void __wrap_free(void* block) {
    if (test::counters && block) {
        ++test::counters->freed;
        if (test::counters->keeps_lists) {
            test::counters->freed_blocks.push_back(block);
        }
    }
    __real_free(block);
}
}

// All forms, since a checker has each of its own.
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
    const bool fails = test::counters && std::exchange(test::counters->new_fails, false);
    void* block = fails ? nullptr : __real_malloc(size != 0 ? size : 1);
    if (test::counters && block) {
        ++test::counters->made_by_new;
    }
    return block;
}
void* operator new(std::size_t size) {
    void* block = operator new(size, std::nothrow);
    if (!block) {
        throw std::bad_alloc();
    }
    return block;
}
void* operator new[](std::size_t size, const std::nothrow_t&) noexcept {
    return operator new(size, std::nothrow);
}
void* operator new[](std::size_t size) {
    return operator new(size);
}
void operator delete(void* block) noexcept {
    __real_free(block);
}
void operator delete(void* block, std::size_t) noexcept {
    __real_free(block);
}
void operator delete[](void* block) noexcept {
    __real_free(block);
}
void operator delete[](void* block, std::size_t) noexcept {
    __real_free(block);
}
