// The scalar model of the tests: what the library's bits are checked against, and the baseline.

#include <cstring>
#include <memory>

#include "depth.h"
#include "model/kalman.h"
#include "peers.h"

namespace bench {
namespace {

template <class Work>
void enter(Entrants& entrants, Work work) {
    entrants.push_back({"model", Group::BASELINE, repeat(work)});
}

template <class T>
model::Mat view(int rows, int cols, T* data) {
    return model::header(depth_of<T>(), rows, cols, reinterpret_cast<unsigned char*>(data));
}

template <class T>
void enter_task(const Product<T>& p, Entrants& entrants) {
    const int flags = p.mode == Mode::FIRST_TRANSPOSED    ? model::TRANSPOSED_FIRST
                      : p.mode == Mode::SECOND_TRANSPOSED ? model::TRANSPOSED_SECOND
                                                          : 0;
    enter(entrants, [a = view(p.a_rows(), p.a_cols(), p.a), b = view(p.b_rows(), p.b_cols(), p.b),
                     c = view(p.m, p.n, p.c), flags] { model::mul(a, b, c, flags); });
}

void enter_task(const Inverse& task, Entrants& entrants) {
    enter(entrants, [a = view(task.n, task.n, task.a), c = view(task.n, task.n, task.c)] {
        model::inv(a, c);
    });
}

template <class T>
void enter_task(const Elementwise<T>& task, Entrants& entrants) {
    const model::Mat a = view(1, task.count, task.a);
    const model::Mat b = view(1, task.count, task.b);
    const model::Mat c = view(1, task.count, task.c);
    switch (task.operation) {
        case Operation::ADD:
            return enter(entrants, [=] { model::add(a, b, c); });
        case Operation::SUB:
            return enter(entrants, [=] { model::sub(a, b, c); });
        case Operation::SCALE:
            return enter(entrants, [=, factor = task.factor] {
                model::scale(reinterpret_cast<const unsigned char*>(&factor), a, c);
            });
        case Operation::NEG:
            return enter(entrants, [=] { model::neg(a, c); });
        case Operation::ONE:
            return enter(entrants, [=] { model::setone(c); });
    }
}

template <class T>
void enter_task(const Transpose<T>& task, Entrants& entrants) {
    enter(entrants, [a = view(task.n, task.n, task.a), c = view(task.n, task.n, task.c)] {
        model::transpose(a, c);
    });
}

void fill(const model::Mat& mat, const float* values) {
    std::memcpy(mat.data, values,
                static_cast<std::size_t>(mat.rows) * static_cast<std::size_t>(mat.step));
}

void enter_task(const Filter& task, Entrants& entrants) {
    const auto filter = std::make_shared<model::Kalman>(task.ns, task.nm);
    fill(filter->A, task.A);
    fill(filter->H, task.H);
    fill(filter->Q, task.Q);
    fill(filter->R, task.R);
    model::setidentity(filter->P_post);
    const auto advance = [filter, task, step = 0u,
                          z = std::vector<float>(static_cast<std::size_t>(task.nm))]() mutable {
        std::memcpy(z.data(), task.measurement(step++), z.size() * sizeof(float));
        filter->predict();
        filter->correct(view(task.nm, 1, z.data()));
    };
    const auto show = [filter, task] {
        std::memcpy(task.x, filter->x_post.data, static_cast<std::size_t>(task.ns) * sizeof(float));
    };
    entrants.push_back({"model", Group::BASELINE, repeat(advance), show});
}

} // namespace

void enter_model(const Task& task, Entrants& entrants) {
    std::visit([&](const auto& t) { enter_task(t, entrants); }, task);
}

} // namespace bench
