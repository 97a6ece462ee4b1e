/*
 * Element-wise arithmetic and fills as instructions: one pass over flat arrays, a register at a
 * time.
 */
#ifndef LIBIV_MATRIX_ELEMENTWISE_KERNEL_H
#define LIBIV_MATRIX_ELEMENTWISE_KERNEL_H

#include "iv_lanes/kernels.h"
#include "iv_lanes/lanes.h"

namespace iv::internal {
namespace {

/// Registers of a turn of the loop, and how many of them are computed before the first is stored:
/// some CPUs would wait for each alone, those with wide registers do better without a queue.
constexpr int TURN = 4;
constexpr int AHEAD = WIDE == PIECE ? TURN : 1;

/// Bytes of arrays of which too little stays in the nearest cache.
constexpr std::ptrdiff_t FAR = std::ptrdiff_t{64} * 1024;

template <ElementwiseOperation OPERATION>
constexpr bool TWO_SOURCES = OPERATION == ADD || OPERATION == SUB;

/// d[i] = operation(a[i], b[i]) over `bytes` bytes, at least a register, which has WIDTH bytes.
///
/// Registers are stored in ascending order, each after the next one is loaded. So the second may
/// start where stores are aligned and the last where it ends with the array: what overlaps is
/// written twice, but not read in between, and d may be a source.
template <class T, ElementwiseOperation OPERATION, int WIDTH>
// One function, so that its loops share their ends. NOLINTNEXTLINE(readability-function-size)
void pass_over(const void* a, const void* b, void* d, std::ptrdiff_t bytes) {
    using L = Lanes<T, WIDTH>;
    using Stored = typename L::Stored;
    T value{};
    if constexpr (OPERATION == FILL || OPERATION == SCALE) {
        std::memcpy(&value, b, sizeof value);
    }
    const auto factor = L::broadcast(value);
    const auto result = [=](const std::uint8_t* left, const std::uint8_t* right)
                            IV_INLINED -> Stored {
        if constexpr (OPERATION == FILL) {
            return splat<Stored>(value);
        } else if constexpr (OPERATION == SCALE) {
            return L::stored(L::product(factor, L::computed(load_whole<Stored>(left))));
        } else if constexpr (OPERATION == NEG) {
            return -load_whole<Stored>(left);
        } else if constexpr (OPERATION == ADD) {
            return load_whole<Stored>(left) + load_whole<Stored>(right);
        } else {
            return load_whole<Stored>(left) - load_whole<Stored>(right);
        }
    };

    // A source that an operation lacks is any array: nothing is loaded from it.
    const auto* left = static_cast<const std::uint8_t*>(OPERATION == FILL ? d : a);
    const auto* right = TWO_SOURCES<OPERATION> ? static_cast<const std::uint8_t*>(b) : left;
    const auto* const last_left = left + bytes - WIDTH;
    const auto* const last_right = right + bytes - WIDTH;
    auto* ready_for = static_cast<std::uint8_t*>(d); // where the register goes that is ready
    auto* next = ready_for;
    auto* const end = next + bytes - WIDTH;
    Stored ready = result(left, right);
    const auto advance = [&](std::ptrdiff_t by) IV_INLINED {
        left += by;
        right += by;
        next += by;
    };
    // Whole values, should none be aligned. Of two registers or fewer there is nothing between, or
    // else the last would be loaded from what the first had been stored to.
    constexpr std::uintptr_t whole_values = -sizeof(T);
    const std::uintptr_t unaligned =
        bytes <= std::ptrdiff_t{2} * WIDTH ? 0 : reinterpret_cast<std::uintptr_t>(d) % WIDTH;
    advance(static_cast<std::ptrdiff_t>((WIDTH - unaligned) & whole_values));
    while (end - next > std::ptrdiff_t{TURN - 1} * WIDTH) {
        each<TURN / AHEAD>([&](auto group) IV_INLINED {
            Stored results[AHEAD];
            each<AHEAD>([&](auto v) IV_INLINED {
                constexpr int i = (group * AHEAD + v) * WIDTH;
                results[v] = result(left + i, right + i);
            });
            each<AHEAD>([&](auto v) IV_INLINED {
                store_whole(ready_for, ready);
                ready = results[v];
                ready_for = next + (group * AHEAD + v) * WIDTH;
            });
        });
        advance(TURN * WIDTH);
    }
    while (next < end) {
        const Stored one = result(left, right);
        store_whole(ready_for, ready);
        ready = one;
        ready_for = next;
        advance(WIDTH);
    }
    const Stored last = result(last_left, last_right);
    store_whole(ready_for, ready);
    store_whole(end, last);
}

/// By whole registers where the arrays are near. Measured, farther ones come sooner by half registers.
template <class T, ElementwiseOperation OPERATION>
void elementwise(const void* a, const void* b, void* d, std::ptrdiff_t bytes) {
    if constexpr (NARROW < WIDE && OPERATION != FILL) {
        if (bytes >= FAR / (TWO_SOURCES<OPERATION> ? 3 : 2)) {
            return pass_over<T, OPERATION, NARROW>(a, b, d, bytes);
        }
    }
    pass_over<T, OPERATION, WIDE>(a, b, d, bytes);
}

} // namespace
} // namespace iv::internal

#endif
