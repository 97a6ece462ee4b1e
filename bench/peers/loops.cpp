// The loops that one writes without a library, left to the compiler. Compiled twice.
//
// Tasks are passed by value: stores of integers might change a size that is read through a
// reference, and would keep the compiler from using vectors.

#include <algorithm>

#include "peers.h"

namespace bench::PEER_BUILD {
namespace {

template <class Work>
void enter(Entrants& entrants, Work work) {
    entrants.push_back({std::string("loops") + PEER_SUFFIX, Group::RUN_TIME, repeat(work)});
}

/// c += a row of products, so that the innermost loop runs along the rows of b and c.
template <class T>
void multiply_rows(const Product<T> p, int a_row_step, int a_col_step) {
    const T* const __restrict a = p.a;
    const T* const __restrict b = p.b;
    T* const __restrict c = p.c;
    for (int i = 0; i < p.m; ++i) {
        std::fill_n(c + i * p.n, p.n, T{0});
        for (int k = 0; k < p.k; ++k) {
            const T factor = a[i * a_row_step + k * a_col_step];
            for (int j = 0; j < p.n; ++j) {
                c[i * p.n + j] = static_cast<T>(c[i * p.n + j] + factor * b[k * p.n + j]);
            }
        }
    }
}

template <class T>
void multiply_dots(const Product<T> p) {
    const T* const __restrict a = p.a;
    const T* const __restrict b = p.b;
    T* const __restrict c = p.c;
    for (int i = 0; i < p.m; ++i) {
        for (int j = 0; j < p.n; ++j) {
            T sum{0};
            for (int k = 0; k < p.k; ++k) {
                sum = static_cast<T>(sum + a[i * p.k + k] * b[j * p.k + k]);
            }
            c[i * p.n + j] = sum;
        }
    }
}

template <class T>
void enter_task(const Product<T>& p, Entrants& entrants) {
    switch (p.mode) {
        case Mode::PLAIN:
            return enter(entrants, [p] { multiply_rows(p, p.k, 1); });
        case Mode::FIRST_TRANSPOSED:
            return enter(entrants, [p] { multiply_rows(p, 1, p.m); });
        case Mode::SECOND_TRANSPOSED:
            return enter(entrants, [p] { multiply_dots(p); });
    }
}

/// Gauss-Jordan in place, in single precision, without a search for pivots.
void invert(const Inverse& task) {
    const int n = task.n;
    float* const c = task.c;
    std::copy_n(task.a, n * n, c);
    for (int i = 0; i < n; ++i) {
        float* const __restrict pivot = c + i * n;
        const float scale = 1.0f / pivot[i];
        pivot[i] = 1.0f;
        for (int k = 0; k < n; ++k) {
            pivot[k] *= scale;
        }
        for (int j = 0; j < n; ++j) {
            if (j == i) {
                continue;
            }
            float* const __restrict row = c + j * n;
            const float factor = row[i];
            row[i] = 0.0f;
            for (int k = 0; k < n; ++k) {
                row[k] -= factor * pivot[k];
            }
        }
    }
}

void enter_task(const Inverse& task, Entrants& entrants) {
    enter(entrants, [task] { invert(task); });
}

template <class T, class Value>
void for_each_value(const Elementwise<T> task, Value value) {
    const T* const __restrict a = task.a;
    const T* const __restrict b = task.b;
    T* const __restrict c = task.c;
    for (int i = 0; i < task.count; ++i) {
        c[i] = static_cast<T>(value(a[i], b[i]));
    }
}

template <class T>
void enter_task(const Elementwise<T>& task, Entrants& entrants) {
    switch (task.operation) {
        case Operation::ADD:
            return enter(entrants, [=] { for_each_value(task, [](T a, T b) { return a + b; }); });
        case Operation::SUB:
            return enter(entrants, [=] { for_each_value(task, [](T a, T b) { return a - b; }); });
        case Operation::SCALE:
            return enter(entrants, [=] {
                for_each_value(task, [factor = task.factor](T a, T) { return a * factor; });
            });
        case Operation::NEG:
            return enter(entrants, [=] { for_each_value(task, [](T a, T) { return -a; }); });
        case Operation::ONE:
            return enter(entrants, [=] { for_each_value(task, [](T, T) { return T{1}; }); });
    }
}

template <class T>
void enter_task(const Transpose<T>& task, Entrants& entrants) {
    enter(entrants, [task] {
        const int n = task.n;
        const T* const __restrict a = task.a;
        T* const __restrict c = task.c;
        for (int i = 0; i < n; ++i) {
            for (int j = 0; j < n; ++j) {
                c[i * n + j] = a[j * n + i];
            }
        }
    });
}

void enter_task(const Filter&, Entrants&) {}

} // namespace

void enter_loops(const Task& task, Entrants& entrants) {
    std::visit([&](const auto& t) { enter_task(t, entrants); }, task);
}

} // namespace bench::PEER_BUILD
