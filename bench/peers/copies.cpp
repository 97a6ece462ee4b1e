// Copies and fills of the C library: the limit of what moves memory.

#include <cstring>

#include "peers.h"

namespace bench {
namespace {

template <class T>
void enter_task(const T&, Entrants&) {}

void enter_copy(const void* from, void* to, std::size_t bytes, double scale, Entrants& entrants) {
    entrants.push_back(
        {"memcpy", Group::LIMIT, repeat([=] { std::memcpy(to, from, bytes); }), {}, scale});
}

template <class T>
void enter_task(const Elementwise<T>& task, Entrants& entrants) {
    const std::size_t bytes = static_cast<std::size_t>(task.count) * sizeof(T);
    if (task.operation == Operation::ONE) {
        entrants.push_back(
            {"memset", Group::LIMIT, repeat([to = task.c, bytes] { std::memset(to, 1, bytes); })});
    } else {
        // A sum moves three arrays where a copy moves two.
        const bool two = task.operation == Operation::ADD || task.operation == Operation::SUB;
        enter_copy(task.a, task.c, bytes, two ? 1.5 : 1.0, entrants);
    }
}

template <class T>
void enter_task(const Transpose<T>& task, Entrants& entrants) {
    const std::size_t n = static_cast<std::size_t>(task.n);
    enter_copy(task.a, task.c, n * n * sizeof(T), 1.0, entrants);
}

} // namespace

void enter_copies(const Task& task, Entrants& entrants) {
    std::visit([&](const auto& t) { enter_task(t, entrants); }, task);
}

} // namespace bench
