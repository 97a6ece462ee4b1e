// The inverse with the work area that outlives its calls.
#ifndef LIBIV_TESTS_MODEL_INVERSE_H
#define LIBIV_TESTS_MODEL_INVERSE_H

#include <array>

#include "model/matrix.h"

namespace model {

/// What the library keeps once per process.
class InverseArea {
  public:
    static constexpr int MAX_ORDER = 40;

    /// The status; `dst` may be `src`.
    int invert(const Mat& src, const Mat& dst);

  private:
    using Row = std::array<float, 2 * MAX_ORDER>;

    float& at(int row, int col) {
        return rows_.at(static_cast<std::size_t>(row)).at(static_cast<std::size_t>(col));
    }
    void build(const unsigned char* src, int n);
    void repair_zero_pivot(int i, int n);
    void eliminate(int i, int n);
    void normalise(int n);

    /// The row behind the last one holds zeros whenever a call starts.
    std::array<Row, MAX_ORDER + 1> rows_{};
};

/// The area behind model::inv.
InverseArea& inverse_area();

} // namespace model

#endif
