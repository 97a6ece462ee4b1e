// What a row asks for. All entrants read and write the same addresses, but for filters, whose state
// is their own.
#ifndef LIBIV_BENCH_TASK_H
#define LIBIV_BENCH_TASK_H

#include <variant>

#include "libiv.h"

namespace bench {

enum class Mode { PLAIN, FIRST_TRANSPOSED, SECOND_TRANSPOSED };

/// c = a * b, m x n, inner dimension k.
template <class T>
struct Product {
    Mode mode;
    int m, k, n;
    T* a;
    T* b;
    T* c;

    int a_rows() const { return mode == Mode::FIRST_TRANSPOSED ? k : m; }
    int a_cols() const { return mode == Mode::FIRST_TRANSPOSED ? m : k; }
    int b_rows() const { return mode == Mode::SECOND_TRANSPOSED ? n : k; }
    int b_cols() const { return mode == Mode::SECOND_TRANSPOSED ? k : n; }
};

/// c = inverse of a, n x n.
struct Inverse {
    int n;
    float* a;
    float* c;
};

enum class Operation { ADD, SUB, SCALE, NEG, ONE };

/// c = a + b, a - b, a * factor, -a, or 1.
template <class T>
struct Elementwise {
    Operation operation;
    int count;
    T* a;
    T* b;
    T* c;
    T factor;
};

/// c = transpose of a, n x n.
template <class T>
struct Transpose {
    int n;
    T* a;
    T* c;
};

/// Predict and correct, again and again, from state zero and covariance one; `measurements` are
/// taken in turn. The matrices are row-major.
struct Filter {
    static constexpr int MEASUREMENTS = 16;
    int ns, nm;
    const float *A, *H, *Q, *R, *measurements;
    float* x; ///< where an entrant shows its estimate

    const float* measurement(unsigned step) const {
        return measurements + step % MEASUREMENTS * static_cast<unsigned>(nm);
    }
};

using Task =
    std::variant<Product<f32_t>, Product<f64_t>, Product<u08_t>, Product<s16_t>, Product<s32_t>,
                 Product<s64_t>, Inverse, Elementwise<f32_t>, Elementwise<f64_t>,
                 Elementwise<u08_t>, Elementwise<s16_t>, Elementwise<s32_t>, Transpose<u08_t>,
                 Transpose<u16_t>, Transpose<f32_t>, Transpose<f64_t>, Filter>;

} // namespace bench

#endif
