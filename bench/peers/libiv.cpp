// The library itself, called as a host calls it.

#include <cstring>
#include <memory>

#include "depth.h"
#include "peers.h"

namespace bench {
namespace {

template <class Work>
void enter(Entrants& entrants, Work work) {
    entrants.push_back({"libiv", Group::LIBIV, repeat(work)});
}

template <class T>
iv_mat_t view(int rows, int cols, T* data) {
    iv_mat_t mat;
    iv_mat_initheader(&mat, rows, cols, depth_of<T>(), data);
    return mat;
}

template <class T>
void enter_task(const Product<T>& p, Entrants& entrants) {
    const int flags = p.mode == Mode::FIRST_TRANSPOSED    ? IV_MAT_TRANS_SRC1
                      : p.mode == Mode::SECOND_TRANSPOSED ? IV_MAT_TRANS_SRC2
                                                          : 0;
    enter(entrants, [a = view(p.a_rows(), p.a_cols(), p.a), b = view(p.b_rows(), p.b_cols(), p.b),
                     c = view(p.m, p.n, p.c), flags]() mutable { iv_mat_mul(&a, &b, &c, flags); });
}

void enter_task(const Inverse& task, Entrants& entrants) {
    enter(entrants, [a = view(task.n, task.n, task.a), c = view(task.n, task.n, task.c)]() mutable {
        iv_mat_inv(&a, &c);
    });
}

template <class T>
void enter_task(const Elementwise<T>& task, Entrants& entrants) {
    const iv_mat_t a_view = view(1, task.count, task.a);
    const iv_mat_t b_view = view(1, task.count, task.b);
    const iv_mat_t c_view = view(1, task.count, task.c);
    switch (task.operation) {
        case Operation::ADD:
            return enter(entrants, [a = a_view, b = b_view, c = c_view]() mutable {
                iv_mat_add(&a, &b, &c);
            });
        case Operation::SUB:
            return enter(entrants, [a = a_view, b = b_view, c = c_view]() mutable {
                iv_mat_sub(&a, &b, &c);
            });
        case Operation::SCALE:
            return enter(entrants, [a = a_view, c = c_view, factor = task.factor]() mutable {
                iv_mat_scale(&factor, &a, &c);
            });
        case Operation::NEG:
            return enter(entrants, [a = a_view, c = c_view]() mutable { iv_mat_neg(&a, &c); });
        case Operation::ONE:
            return enter(entrants, [c = c_view]() mutable { iv_mat_setone(&c); });
    }
}

template <class T>
void enter_task(const Transpose<T>& task, Entrants& entrants) {
    enter(entrants, [a = view(task.n, task.n, task.a), c = view(task.n, task.n, task.c)]() mutable {
        iv_mat_transpose(&a, &c);
    });
}

void fill(const iv_mat_t* mat, const float* values) {
    std::memcpy(mat->data.f, values,
                static_cast<std::size_t>(mat->rows) * static_cast<std::size_t>(mat->step));
}

void enter_task(const Filter& task, Entrants& entrants) {
    const std::shared_ptr<iv_kalman_t> filter(
        iv_kalman_create(task.ns, task.nm, 0, nullptr, nullptr, nullptr, nullptr),
        iv_kalman_release);
    fill(filter->A, task.A);
    fill(filter->H, task.H);
    fill(filter->Q, task.Q);
    fill(filter->R, task.R);
    iv_mat_setidentity(filter->P_post);
    const auto advance = [filter, task, step = 0u,
                          z = std::vector<float>(static_cast<std::size_t>(task.nm))]() mutable {
        const std::size_t bytes = z.size() * sizeof(float);
        std::memcpy(z.data(), task.measurement(step++), bytes);
        iv_mat_t measurement = view(task.nm, 1, z.data());
        iv_kalman_predict(filter.get());
        iv_kalman_correct(filter.get(), &measurement);
    };
    const auto show = [filter, task] {
        std::memcpy(task.x, filter->x_post->data.f,
                    static_cast<std::size_t>(task.ns) * sizeof(float));
    };
    entrants.push_back({"libiv", Group::LIBIV, repeat(advance), show});
}

} // namespace

void enter_libiv(const Task& task, Entrants& entrants) {
    std::visit([&](const auto& t) { enter_task(t, entrants); }, task);
}

} // namespace bench
