// OpenBLAS, with the kernels that it chooses itself.

#include <cblas.h>

#include <algorithm>
#include <vector>

#include "peers.h"

extern "C" {
void sgetrf_(int* m, int* n, float* a, int* lda, int* pivots, int* info);
void sgetri_(int* n, float* a, int* lda, int* pivots, float* work, int* work_size, int* info);
}

namespace bench {
namespace {

template <class Work>
void enter(Entrants& entrants, Work work) {
    entrants.push_back({"OpenBLAS", Group::RUN_TIME, repeat(work)});
}

template <class T>
void enter_task(const T&, Entrants&) {}

template <class T, class Gemm>
void enter_product(const Product<T>& p, Gemm gemm, Entrants& entrants) {
    const auto first = p.mode == Mode::FIRST_TRANSPOSED ? CblasTrans : CblasNoTrans;
    const auto second = p.mode == Mode::SECOND_TRANSPOSED ? CblasTrans : CblasNoTrans;
    enter(entrants, [=] {
        gemm(CblasRowMajor, first, second, p.m, p.n, p.k, T{1}, p.a, p.a_cols(), p.b, p.b_cols(),
             T{0}, p.c, p.n);
    });
}

void enter_task(const Product<f32_t>& p, Entrants& entrants) {
    enter_product(p, cblas_sgemm, entrants);
}

void enter_task(const Product<f64_t>& p, Entrants& entrants) {
    enter_product(p, cblas_dgemm, entrants);
}

void enter_task(const Inverse& task, Entrants& entrants) {
    enter(entrants, [task, pivots = std::vector<int>(static_cast<std::size_t>(task.n)),
                     work = std::vector<float>(static_cast<std::size_t>(task.n) * 64)]() mutable {
        int n = task.n;
        int size = n * 64;
        int info;
        std::copy_n(task.a, n * n, task.c);
        sgetrf_(&n, &n, task.c, &n, pivots.data(), &info);
        sgetri_(&n, task.c, &n, pivots.data(), work.data(), &size, &info);
    });
}

template <class T, class Copy>
void enter_transpose(const Transpose<T>& task, Copy copy, Entrants& entrants) {
    enter(entrants, [=] {
        const auto n = static_cast<blasint>(task.n);
        copy(CblasRowMajor, CblasTrans, n, n, T{1}, task.a, n, task.c, n);
    });
}

void enter_task(const Transpose<f32_t>& task, Entrants& entrants) {
    enter_transpose(task, cblas_somatcopy, entrants);
}

void enter_task(const Transpose<f64_t>& task, Entrants& entrants) {
    enter_transpose(task, cblas_domatcopy, entrants);
}

} // namespace

void enter_openblas(const Task& task, Entrants& entrants) {
    openblas_set_num_threads(1);
    std::visit([&](const auto& t) { enter_task(t, entrants); }, task);
}

std::string openblas_version() {
    return std::string(openblas_get_config()) + ", kernels for " + openblas_get_corename();
}

} // namespace bench
