#include "model/library.h"

#include <utility>

#include "support/failure.h"

namespace model {
namespace {

using Matrix3 = float (*)[3];

/// The kernels take plain arrays; std::array has the same layout.
Matrix3 plain(Mat3& a) {
    return reinterpret_cast<Matrix3>(&a);
}

using Rows = float (*)[6];

/// The library's prototypes lack `const` where they only read.
Rows writable(const float (*rows)[6]) {
    return const_cast<Rows>(rows);
}

} // namespace

Record::Record(const Mat& mat) : record_{mat.type, mat.rows, mat.cols, mat.step, {mat.data}} {
    original_ = record_;
}

Record::~Record() {
    after_call();
    if (std::memcmp(&record_, &original_, sizeof record_) != 0) {
        test::fail("a header was written");
    }
}

Mat mat_of(const iv_mat_t& record) {
    return {record.type, record.rows, record.cols, record.step, record.data.p};
}

std::array<Mat, 14> LibraryFilter::matrices(const iv_kalman_t& k) {
    return {mat_of(*k.x_pre), mat_of(*k.x_post), mat_of(*k.P_pre), mat_of(*k.P_post),
            mat_of(*k.K),     mat_of(*k.temp1),  mat_of(*k.temp2), mat_of(*k.temp3),
            mat_of(*k.temp4), mat_of(*k.temp5),  mat_of(*k.A),     mat_of(*k.H),
            mat_of(*k.Q),     mat_of(*k.R)};
}

LibraryTracker::LibraryTracker(int capacity, const Parameters& p)
    : record_(static_cast<iv::internal::tracker_t*>(
          iv_tracker_create(640, 480, capacity, p.distance_gate, p.overlap_gate, p.stable,
                            p.removal, p.ignore_class))),
      parameters_(p) {}

LibraryTracker::~LibraryTracker() {
    const float none[1][6] = {};
    parameters_.removal = 0;
    set_params(parameters_);
    process(none, nullptr);
    if (record_->track_count != 0) {
        test::fail("a tracker without tracks counts " + std::to_string(record_->track_count));
    }
    for (iv_mat_t* matrix : {record_->A, record_->H, record_->Q, record_->R}) {
        iv_mat_release(matrix);
    }
    iv_tracker_release(record_);
}

void LibraryTracker::set_params(const Parameters& p) {
    parameters_ = p;
    iv_tracker_set_params(record_, p.distance_gate, p.overlap_gate, p.stable, p.removal,
                          p.ignore_class);
}

void LibraryTracker::process(const float (*rows)[6], float (*output)[8]) {
    struct Filter {
        iv::internal::trk_obj_t* track;
        iv_kalman_t* kalman;
        iv_mat_t* obv;
    };
    std::vector<Filter> filters;
    for (iv::internal::trk_obj_t* track : tracks()) {
        filters.push_back({track, track->kalman, track->obv});
    }
    iv_tracker_process(record_, writable(rows), output);
    after_call();
    for (iv::internal::trk_obj_t* track : tracks()) {
        for (const Filter& filter : filters) {
            if (filter.track == track && filter.kalman && filter.kalman != track->kalman) {
                iv_kalman_release(filter.kalman);
                iv_mat_release(filter.obv);
            }
        }
    }
}

std::vector<iv::internal::trk_obj_t*> LibraryTracker::tracks() const {
    std::vector<iv::internal::trk_obj_t*> found;
    const iv::internal::list_head* const head = &record_->track_list;
    for (iv::internal::list_head* link = head->next; link != head; link = link->next) {
        found.push_back(reinterpret_cast<iv::internal::trk_obj_t*>(link));
    }
    return found;
}

Mat3 Library::matmult(Mat3 a, Mat3 b) {
    Mat3 c;
    _matmult_3x3(plain(a), plain(b), plain(c));
    return c;
}

Mat3 Library::matmult_t(Mat3 a, Mat3 b) {
    Mat3 c;
    _matmult_3x3t(plain(a), plain(b), plain(c));
    return c;
}

Vec3 Library::matmult_vec(Mat3 a, Vec3 x) {
    Vec3 y;
    _matmult_3x3vec(plain(a), x.data(), y.data());
    return y;
}

Vec3 Library::matmult_tvec(Mat3 a, Vec3 x) {
    Vec3 y;
    _matmult_3x3tvec(plain(a), x.data(), y.data());
    return y;
}

Mat3 Library::matneg(Mat3 a) {
    _matneg_3x3(plain(a));
    return a;
}

float Library::matdet(Mat3 a) {
    return _matdet_3x3(plain(a));
}

Mat3 Library::vecoutp(Vec3 x, Vec3 y) {
    Mat3 o;
    _vecoutp_3(x.data(), y.data(), plain(o));
    return o;
}

Vec3 Library::veccrossp(Vec3 x, Vec3 y) {
    Vec3 z;
    _veccrossp_3(x.data(), y.data(), z.data());
    return z;
}

float Library::vecdotp(Vec3 x, Vec3 y) {
    return _vecdotp_3(x.data(), y.data());
}

} // namespace model
