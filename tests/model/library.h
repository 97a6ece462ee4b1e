// The library and the model behind one face, so that a test is written once and runs on both.
#ifndef LIBIV_TESTS_MODEL_LIBRARY_H
#define LIBIV_TESTS_MODEL_LIBRARY_H

#include <memory>

#include "_libiv.h"
#include "iv_tracker.h"
#include "model/fixed3.h"
#include "model/kalman.h"
#include "model/matrix.h"
#include "model/tracker.h"

namespace model {

/// What is to happen after each call of a function of the library that has kernels, before anything
/// else runs.
inline void (*after_call)() = [] {};

/// A matrix as the library sees it; at its end, its header has to be as it was at the start.
class Record {
  public:
    explicit Record(const Mat& mat);
    Record(const Record&) = delete;
    Record& operator=(const Record&) = delete;
    ~Record();

    iv_mat_t* get() { return &record_; }

  private:
    iv_mat_t record_;
    iv_mat_t original_;
};

Mat mat_of(const iv_mat_t& record);

/// A filter of the library with a model of its own.
class LibraryFilter {
  public:
    LibraryFilter(int ns, int nm)
        : kalman_(iv_kalman_create(ns, nm, 0, nullptr, nullptr, nullptr, nullptr)) {}
    /// A filter that refers to the caller's model.
    LibraryFilter(int ns, int nm, int flag, iv_mat_t* A, iv_mat_t* H, iv_mat_t* Q, iv_mat_t* R)
        : kalman_(iv_kalman_create(ns, nm, flag, A, H, Q, R)) {}
    LibraryFilter(const LibraryFilter&) = delete;
    LibraryFilter& operator=(const LibraryFilter&) = delete;
    ~LibraryFilter() { iv_kalman_release(kalman_); }

    void predict() {
        iv_kalman_predict(kalman_);
        after_call();
    }
    void correct(const Mat& z) { iv_kalman_correct(kalman_, Record(z).get()); }
    std::array<Mat, 14> matrices() const { return matrices(*kalman_); }
    const iv_kalman_t& record() const { return *kalman_; }
    iv_kalman_t& record() { return *kalman_; }

    static std::array<Mat, 14> matrices(const iv_kalman_t& kalman);

  private:
    iv_kalman_t* kalman_;
};

/// A tracker of the library that leaves nothing allocated: what the contract leaves behind at a
/// second confirmation and at release is freed from here.
class LibraryTracker {
  public:
    LibraryTracker(int capacity, const Parameters& parameters);
    LibraryTracker(const LibraryTracker&) = delete;
    LibraryTracker& operator=(const LibraryTracker&) = delete;
    ~LibraryTracker();

    void set_params(const Parameters& parameters);
    void process(const float (*rows)[6], float (*output)[8]);
    void set_next_id(int id) { record_->tid = id; }

    iv::internal::tracker_t& record() { return *record_; }
    std::vector<iv::internal::trk_obj_t*> tracks() const;

  private:
    iv::internal::tracker_t* record_;
    Parameters parameters_;
};

/// Calls the library.
struct Library {
    static constexpr const char* NAME = "library";
    using Filter = LibraryFilter;
    using Tracking = LibraryTracker;

    static void setzero(const Mat& mat) { iv_mat_setzero(Record(mat).get()); }
    static void setidentity(const Mat& mat) { iv_mat_setidentity(Record(mat).get()); }
    static void setdiagonal(unsigned char* values, const Mat& mat) {
        iv_mat_setdiagonal(values, Record(mat).get());
    }
    static void setone(const Mat& mat) { iv_mat_setone(Record(mat).get()); }

    static void neg(const Mat& src, const Mat& dst) {
        iv_mat_neg(Record(src).get(), Record(dst).get());
    }
    static void scale(unsigned char* value, const Mat& src, const Mat& dst) {
        iv_mat_scale(value, Record(src).get(), Record(dst).get());
    }
    static void add(const Mat& src1, const Mat& src2, const Mat& dst) {
        iv_mat_add(Record(src1).get(), Record(src2).get(), Record(dst).get());
    }
    static void sub(const Mat& src1, const Mat& src2, const Mat& dst) {
        iv_mat_sub(Record(src1).get(), Record(src2).get(), Record(dst).get());
    }
    static void transpose(const Mat& src, const Mat& dst) {
        iv_mat_transpose(Record(src).get(), Record(dst).get());
    }

    static void mul(const Mat& src1, const Mat& src2, const Mat& dst, int flags) {
        iv_mat_mul(Record(src1).get(), Record(src2).get(), Record(dst).get(), flags);
    }
    static void muladd(const Mat& src1, const Mat& src2, const Mat& src3, const Mat& dst,
                       int flags) {
        iv_mat_muladd(Record(src1).get(), Record(src2).get(), Record(src3).get(), Record(dst).get(),
                      flags);
    }
    static void submul(const Mat* src1, const Mat& src2, const Mat& src3, const Mat& dst,
                       int flag) {
        Record first(src1 ? *src1 : Mat{});
        iv_mat_submul(src1 ? first.get() : nullptr, Record(src2).get(), Record(src3).get(),
                      Record(dst).get(), flag);
    }
    static int inv(const Mat& src, const Mat& dst) {
        return iv_mat_inv(Record(src).get(), Record(dst).get());
    }

    static Mat3 matmult(Mat3 a, Mat3 b);
    static Mat3 matmult_t(Mat3 a, Mat3 b);
    static Vec3 matmult_vec(Mat3 a, Vec3 x);
    static Vec3 matmult_tvec(Mat3 a, Vec3 x);
    static Mat3 matneg(Mat3 a);
    static float matdet(Mat3 a);
    static Mat3 vecoutp(Vec3 x, Vec3 y);
    static Vec3 veccrossp(Vec3 x, Vec3 y);
    static float vecdotp(Vec3 x, Vec3 y);
};

/// Calls the model.
struct Scalar {
    static constexpr const char* NAME = "model";
    using Filter = Kalman;
    using Tracking = Tracker;

    static constexpr auto& setzero = model::setzero;
    static constexpr auto& setidentity = model::setidentity;
    static constexpr auto& setdiagonal = model::setdiagonal;
    static constexpr auto& setone = model::setone;
    static constexpr auto& neg = model::neg;
    static constexpr auto& scale = model::scale;
    static constexpr auto& add = model::add;
    static constexpr auto& sub = model::sub;
    static constexpr auto& transpose = model::transpose;
    static constexpr auto& mul = model::mul;
    static constexpr auto& muladd = model::muladd;
    static constexpr auto& submul = model::submul;
    static constexpr auto& inv = model::inv;
    static constexpr auto& matmult = model::matmult;
    static constexpr auto& matmult_t = model::matmult_t;
    static constexpr auto& matmult_vec = model::matmult_vec;
    static constexpr auto& matmult_tvec = model::matmult_tvec;
    static constexpr auto& matneg = model::matneg;
    static constexpr auto& matdet = model::matdet;
    static constexpr auto& vecoutp = model::vecoutp;
    static constexpr auto& veccrossp = model::veccrossp;
    static constexpr auto& vecdotp = model::vecdotp;
};

} // namespace model

#endif
