// libxsmm: a kernel generated for one shape, looked up before it is timed.

#include <libxsmm.h>

#include "peers.h"

namespace bench {
namespace {

template <class T>
void enter_task(const T&, Entrants&) {}

/// Columns first, so the factors change places; its kernels cannot transpose what is b here.
template <class T, class Look>
void enter_product(const Product<T>& p, Look look_up, Entrants& entrants) {
    const libxsmm_blasint b_step = p.b_cols();
    const libxsmm_blasint a_step = p.a_cols();
    const libxsmm_blasint c_step = p.n;
    const T alpha{1};
    const T beta{0};
    const int flags =
        p.mode == Mode::FIRST_TRANSPOSED ? LIBXSMM_GEMM_FLAG_TRANS_B : LIBXSMM_GEMM_FLAG_NONE;
    const int prefetch = LIBXSMM_GEMM_PREFETCH_NONE;
    const auto kernel =
        p.mode == Mode::SECOND_TRANSPOSED
            ? nullptr
            : look_up(p.n, p.m, p.k, &b_step, &a_step, &c_step, &alpha, &beta, &flags, &prefetch);
    if (kernel) {
        entrants.push_back(
            {"libxsmm", Group::COMPILE_TIME, repeat([=] { kernel(p.b, p.a, p.c); })});
    }
}

void enter_task(const Product<f32_t>& p, Entrants& entrants) {
    enter_product(p, libxsmm_smmdispatch, entrants);
}

void enter_task(const Product<f64_t>& p, Entrants& entrants) {
    enter_product(p, libxsmm_dmmdispatch, entrants);
}

} // namespace

void enter_libxsmm(const Task& task, Entrants& entrants) {
    std::visit([&](const auto& t) { enter_task(t, entrants); }, task);
}

std::string libxsmm_version() {
    libxsmm_init();
    return std::string("libxsmm " LIBXSMM_VERSION ", code for ") + libxsmm_get_target_arch();
}

} // namespace bench
