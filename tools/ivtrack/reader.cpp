#include "reader.h"

#include <fmt/format.h>

#include <cfloat>
#include <cmath>

namespace ivtrack {
namespace {

// Far beyond any image, and small enough that no scale which the program accepts, and no prediction
// of the filter, takes a coordinate out of single precision.
constexpr double LARGEST_COORDINATE = 1e18;

} // namespace

bool is_image_width(double pixels) {
    return pixels >= 1 && pixels <= 1e9;
}

void check_box(const Box& box) {
    for (const double coordinate : {box.left, box.top, box.right, box.bottom}) {
        // Written so that a NaN fails too.
        if (!(std::fabs(coordinate) <= LARGEST_COORDINATE)) {
            throw BadValue{fmt::format("{}", coordinate),
                           fmt::format("a coordinate between {} and {}", -LARGEST_COORDINATE,
                                       LARGEST_COORDINATE)};
        }
    }
    if (box.right < box.left || box.bottom < box.top) {
        throw BadValue{fmt::format("{},{},{},{}", box.left, box.top, box.right, box.bottom),
                       "a box x1,y1,x2,y2 with x1 <= x2 and y1 <= y2"};
    }
}

float checked_score(double score) {
    if (!(std::fabs(score) <= static_cast<double>(FLT_MAX))) {
        throw BadValue{fmt::format("{}", score), "a score that single precision can hold"};
    }
    return static_cast<float>(score);
}

} // namespace ivtrack
