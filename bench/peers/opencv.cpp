// OpenCV's matrix functions and its Kalman filter, on one thread.

#include <cstring>
#include <memory>
#include <opencv2/core.hpp>
#include <opencv2/video/tracking.hpp>

#include "peers.h"

namespace bench {
namespace {

template <class Work>
void enter(Entrants& entrants, Work work) {
    entrants.push_back({"OpenCV", Group::RUN_TIME, repeat(work)});
}

template <class T>
cv::Mat view(int rows, int cols, T* data) {
    return cv::Mat(rows, cols, cv::DataType<T>::type, data);
}

template <class T>
void enter_task(const T&, Entrants&) {}

template <class T>
void enter_task(const Product<T>& p, Entrants& entrants) {
    if constexpr (std::is_floating_point_v<T>) {
        const int flags = p.mode == Mode::FIRST_TRANSPOSED    ? cv::GEMM_1_T
                          : p.mode == Mode::SECOND_TRANSPOSED ? cv::GEMM_2_T
                                                              : 0;
        enter(entrants, [a = view(p.a_rows(), p.a_cols(), p.a),
                         b = view(p.b_rows(), p.b_cols(), p.b), c = view(p.m, p.n, p.c),
                         flags]() mutable { cv::gemm(a, b, 1.0, cv::noArray(), 0.0, c, flags); });
    }
}

void enter_task(const Inverse& task, Entrants& entrants) {
    enter(entrants, [a = view(task.n, task.n, task.a), c = view(task.n, task.n, task.c)]() mutable {
        cv::invert(a, c, cv::DECOMP_LU);
    });
}

template <class T>
void enter_task(const Transpose<T>& task, Entrants& entrants) {
    enter(entrants, [a = view(task.n, task.n, task.a), c = view(task.n, task.n, task.c)]() mutable {
        cv::transpose(a, c);
    });
}

void fill(cv::Mat& mat, const float* values) {
    std::memcpy(mat.ptr(), values, mat.total() * sizeof(float));
}

void enter_task(const Filter& task, Entrants& entrants) {
    const auto filter = std::make_shared<cv::KalmanFilter>(task.ns, task.nm, 0, CV_32F);
    fill(filter->transitionMatrix, task.A);
    fill(filter->measurementMatrix, task.H);
    fill(filter->processNoiseCov, task.Q);
    fill(filter->measurementNoiseCov, task.R);
    cv::setIdentity(filter->errorCovPost);
    const auto advance = [filter, task, step = 0u, z = cv::Mat(task.nm, 1, CV_32F)]() mutable {
        fill(z, task.measurement(step++));
        filter->predict();
        filter->correct(z);
    };
    const auto show = [filter, task] {
        std::memcpy(task.x, filter->statePost.ptr(),
                    static_cast<std::size_t>(task.ns) * sizeof(float));
    };
    entrants.push_back({"OpenCV", Group::RUN_TIME, repeat(advance), show});
}

} // namespace

void enter_opencv(const Task& task, Entrants& entrants) {
    cv::setNumThreads(1);
    std::visit([&](const auto& t) { enter_task(t, entrants); }, task);
}

std::string opencv_version() {
    return "OpenCV " CV_VERSION;
}

} // namespace bench
