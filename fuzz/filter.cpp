// Filters of any size: predictions and corrections in any order, with matrices whose values,
// headers and places change in between, against the model.
#include <gtest/gtest.h>

#include <array>
#include <optional>
#include <vector>

#include "fresh_library.h"
#include "model/filter_pair.h"
#include "model/scene.h"
#include "targets.h"

namespace fuzz {
namespace {

using model::Kalman;
using model::Mat;
using Record = iv_kalman_t;

constexpr std::size_t MATRICES = 14;

/// The matrices of a filter in the order of its record, as the two sides call them.
enum Matrix { X_PRE, X_POST, P_PRE, P_POST, GAIN, TEMP1, TEMP2, TEMP3, TEMP4, TEMP5, A, H, Q, R };
constexpr std::array<iv_mat_t * Record::*, MATRICES> LIBRARY_FIELDS = {
    &Record::x_pre, &Record::x_post, &Record::P_pre, &Record::P_post, &Record::K,
    &Record::temp1, &Record::temp2,  &Record::temp3, &Record::temp4,  &Record::temp5,
    &Record::A,     &Record::H,      &Record::Q,     &Record::R};
constexpr std::array<Mat Kalman::*, MATRICES> MODEL_FIELDS = {
    &Kalman::x_pre, &Kalman::x_post, &Kalman::P_pre, &Kalman::P_post, &Kalman::K,
    &Kalman::temp1, &Kalman::temp2,  &Kalman::temp3, &Kalman::temp4,  &Kalman::temp5,
    &Kalman::A,     &Kalman::H,      &Kalman::Q,     &Kalman::R};

/// Often those that the library has kernels for, rarely the limit of the inverse. One state at
/// least: without any, a correction has no place for the first value of its identity.
struct Sizes {
    int ns, nm;

    explicit Sizes(Bytes& in) {
        const int kind = in.between(0, 255);
        ns = kind < 96 ? 8 : 1 + kind % 11;
        nm = kind < 96 ? 4 : in.between(0, 7);
        if (kind > 250) {
            ns = kind - 250;
            nm = 38 + nm % 4;
        }
    }
};

/// A model of the host's, and measurements: floats at any place in one stretch of memory, which
/// both sides read.
class Pool {
  public:
    Pool(Bytes& in, const Sizes& n) : bytes_(static_cast<std::size_t>(in.between(4, 4095))) {
        test::Random random(in.raw<std::uint16_t>());
        const float hostile = in.chance(48) ? 0.05f : 0.0f;
        for (std::size_t i = 0; i + 4 <= bytes_.size(); i += 4) {
            test::random_value(random, model::F32, hostile, bytes_.data() + i);
        }
        const int shapes[4][2] = {{n.ns, n.ns}, {n.nm, n.ns}, {n.ns, n.ns}, {n.nm, n.nm}};
        for (std::size_t k = 0; k < 4; ++k) {
            Mat mat = model::header(model::F32, shapes[k][0], shapes[k][1], nullptr);
            fits_ = place(in, mat, mat.rows * mat.cols * 4) && fits_;
            records_[k] = {mat.type, mat.rows, mat.cols, mat.step, {mat.data}};
        }
    }

    /// False: there is no room for it.
    bool has_model() const { return fits_; }
    std::array<iv_mat_t*, 4> model() {
        return {&records_[0], &records_[1], &records_[2], &records_[3]};
    }

    /// Somewhere in the memory. False: no room.
    bool place(Bytes& in, Mat& mat, int bytes) {
        const int slack = static_cast<int>(bytes_.size()) - bytes;
        if (slack < 0) {
            return false;
        }
        const bool flush = in.chance(128); // reading too far is noticed
        mat.data = bytes_.data() + (flush ? slack : in.between(0, slack));
        return true;
    }

  private:
    std::vector<unsigned char> bytes_;
    std::array<iv_mat_t, 4> records_{};
    bool fits_ = true;
};

class Life {
  public:
    explicit Life(Bytes& in) : in_(in), n_(in), pool_(in, n_) {
        const int flag = in.chance(96) ? in.between(-128, 127) : 0;
        if (flag != 0 && pool_.has_model()) {
            filters_.emplace(n_.ns, n_.nm, flag, pool_.model());
        } else {
            filters_.emplace(n_.ns, n_.nm);
            const auto seed = in.raw<std::uint16_t>();
            filters_->both([seed](auto& filter) {
                test::Random values(seed);
                test::make_filter_model(values, filter.matrices());
            });
        }
        for (std::size_t k = 0; k < MATRICES; ++k) {
            records_[k] = record().*LIBRARY_FIELDS[k];
            created_[k] = headers_[k] = filters_->model().*MODEL_FIELDS[k];
            stands_for_[k] = k;
        }
    }

    void run() {
        EXPECT_EQ(record().ns, n_.ns);
        EXPECT_EQ(record().nm, n_.nm);
        const int steps = n_.nm > 12 ? 4 : 16;
        compare();
        for (int step = 0; step < steps && !in_.empty(); ++step) {
            advance();
            compare();
        }
    }

  private:
    iv_kalman_t& record() { return filters_->library().record(); }

    void advance() {
        const unsigned kind = in_.byte() % 16;
        if (kind < 5) {
            filters_->both([](auto& filter) { filter.predict(); });
        } else if (kind < 10) {
            correct();
        } else if (kind < 13) {
            set_value();
        } else if (kind < 15) {
            change_header();
        } else {
            share_matrix();
        }
    }

    /// Headers are as the host left them, and all values the same.
    void compare() {
        for (std::size_t k = 0; k < MATRICES; ++k) {
            const Mat header = model::mat_of(*records_[k]);
            const Mat& wanted = headers_[k];
            ASSERT_TRUE(header.type == wanted.type && header.rows == wanted.rows &&
                        header.cols == wanted.cols && header.step == wanted.step)
                << "the header of matrix " << k << " was written";
            Mat actual = created_[k];
            actual.data = header.data;
            if (!test::same_bytes(created_[k], actual)) {
                SCOPED_TRACE(testing::Message()
                             << "matrix " << k << " of " << n_.ns << " states, " << n_.nm
                             << " measured values, level " << iv::internal::kernels().level);
                test::expect_same_values(created_[k], actual, test::NanRule::PRODUCED);
                test::adopt_nans(actual, created_[k]);
            }
        }
    }

    void correct() {
        Mat z = model::header(model::F32, n_.nm, 1, nullptr);
        if (!pool_.place(in_, z, 4 * n_.nm)) {
            return;
        }
        if (in_.chance(24)) {
            z.type = in_.between(0, 255);
        }
        if (in_.chance(24)) {
            int& length = in_.chance(128) ? z.rows : z.cols;
            length += in_.between(-1, 1);
        }
        z.step = in_.chance(24) ? in_.between(0, 4) : 4; // the innovation has room for so much
        filters_->both([&z](auto& filter) { filter.correct(z); });
    }

    /// One value of one matrix.
    void set_value() {
        const auto k = static_cast<std::size_t>(in_.between(X_PRE, R));
        const float value = in_.number();
        const int count = created_[k].rows * created_[k].cols;
        if (count > 0) {
            const int place = in_.between(0, count - 1);
            model::store(records_[k]->data.p, place, value);
            model::store(created_[k].data, place, value);
        }
    }

    /// A type of no larger values, fewer rows or columns, or another step: the storage stays large
    /// enough. Or all of the header as it was at first.
    void change_header() {
        const auto k = static_cast<std::size_t>(in_.between(X_PRE, R));
        Mat& header = headers_[k];
        switch (in_.between(0, 7)) {
            case 0:
                header.type ^= (1 << in_.between(0, 30)) & ~2;
                break;
            case 1:
                header.rows = in_.between(std::min(1, created_[k].rows), created_[k].rows);
                break;
            case 2:
                header.cols = in_.between(std::min(1, created_[k].cols), created_[k].cols);
                break;
            case 3:
            case 4: // of temp2 and temp5 sums copy so many bytes a row
                header.step = in_.between(0, k == TEMP2 ? 4 * n_.nm : 4);
                break;
            default:
                header = created_[k];
        }
        *records_[k] = {header.type, header.rows, header.cols, header.step, {records_[k]->data.p}};
        refer();
    }

    /// One matrix stands for another: any of the model for any, a sum for what it starts from, the
    /// inverted one for its inverse.
    void share_matrix() {
        struct Share {
            Matrix field, by;
        };
        static constexpr Share SUMS[] = {{Q, P_PRE}, {R, TEMP3}, {TEMP4, TEMP3}};
        Share share = in_.one_of(SUMS);
        if (in_.chance(128)) {
            share.field = static_cast<Matrix>(in_.between(A, R));
            share.by = static_cast<Matrix>(in_.between(A, R));
        }
        stands_for_[share.field] = share.by;
        refer();
    }

    void refer() {
        for (std::size_t k = 0; k < MATRICES; ++k) {
            record().*LIBRARY_FIELDS[k] = records_[stands_for_[k]];
            filters_->model().*MODEL_FIELDS[k] = headers_[stands_for_[k]];
        }
    }

    Bytes& in_;
    Sizes n_;
    Pool pool_;
    std::optional<test::FilterPair> filters_;
    std::array<iv_mat_t*, MATRICES> records_{};      ///< the library's
    std::array<Mat, MATRICES> headers_{};            ///< the model's, and what the records hold
    std::array<Mat, MATRICES> created_{};            ///< the model's at first
    std::array<std::size_t, MATRICES> stands_for_{}; ///< by which of them each field is filled
};

} // namespace

void filter(Bytes in) {
    const FreshLibrary fresh(in);
    Life(in).run();
}

} // namespace fuzz
