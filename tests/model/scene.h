// Random inputs that more than one test needs: difficult matrices, filters, detections of scenes.
#ifndef LIBIV_TESTS_MODEL_SCENE_H
#define LIBIV_TESTS_MODEL_SCENE_H

#include <array>
#include <vector>

#include "model/matrix.h"
#include "model/random_values.h"
#include "model/tracker.h"

namespace test {

/// What makes a matrix hard to invert.
enum class MatrixKind {
    AS_IT_IS,       ///< nothing
    SMALL_INTEGERS, ///< zero pivots on the way, singular often
    SPARSE,         ///< mostly zeros of both signs
    LAST_ROW_TWICE, ///< the last pivot becomes zero
    TINY_PIVOTS,    ///< a diagonal of denormals and such
    DOMINANT        ///< well-conditioned
};

MatrixKind random_matrix_kind(Random& random);

/// Rewrites the leading square of a single-precision matrix.
void make_difficult(Random& random, MatrixKind kind, const model::Mat& mat);

/// Fills the inverse's work area with known values, whatever was inverted before.
template <class Side>
void wash_work_area(Side) {
    std::vector<unsigned char> bytes(40 * 40 * sizeof(float));
    const model::Mat mat = model::header(model::F32, 40, 40, bytes.data());
    for (int i = 0; i < 40; ++i) {
        for (int j = 0; j < 40; ++j) {
            const int step = (7 * i + 3 * j) % 11 - 5;
            model::store(mat.data, i * 40 + j,
                         static_cast<float>(step) * 0.125f + (i == j ? 64.0f : 0.0f));
        }
    }
    Side::inv(mat, mat);
}

/// A random model for a filter: stable or not, with correlated noise, rarely degenerate.
void make_filter_model(Random& random, const std::array<model::Mat, 14>& filter);

/// One frame's detections, ended by a row of class 0 or full to the capacity.
using Rows = std::vector<std::array<float, 6>>;

/// Objects that move, vanish, come back and are seen with noise among false alarms.
class Scene {
  public:
    /// `spread` widens the field of 40 by 30 that objects appear in.
    Scene(Random& random, int objects, int capacity, float hostile, float spread = 1.0f);

    /// `capacity` + 1 rows at least.
    Rows next_frame();

  private:
    struct Object {
        int category;
        float x, y, w, h;
        float vx, vy;
    };

    Object new_object();
    std::array<float, 6> seen(const Object& object);
    std::array<float, 6> false_alarm();
    void make_hostile(std::array<float, 6>& row);

    Random& random_;
    int capacity_;
    float hostile_;
    float spread_;
    float noise_;
    float miss_;
    bool grid_; ///< edges at multiples of 0.5, so that distances and overlaps tie
    std::vector<Object> objects_;
};

/// Parameters of use and of none: gates off and on, counts of any size and sign.
model::Parameters random_parameters(Random& random);

} // namespace test

#endif
