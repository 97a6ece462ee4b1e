// Intersection over union of boxes in centre form.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "iv_tracker.h"

namespace {

using iv::internal::box_iou;
using iv::internal::box_t;

/// The overlap of two boxes, which does not depend on their order.
float iou(const box_t& a, const box_t& b) {
    const float result = box_iou(a, b);
    const float exchanged = box_iou(b, a);
    EXPECT_TRUE(result == exchanged || (std::isnan(result) && std::isnan(exchanged)));
    return result;
}

TEST(TrackerOverlap, EqualBoxesOverlapWholly) {
    EXPECT_EQ(iou({5, -3, 4, 2}, {5, -3, 4, 2}), 1.0f);
}

TEST(TrackerOverlap, SmallBoxesOverlapLikeLargeOnes) {
    EXPECT_EQ(iou({0, 0, 0.25f, 0.5f}, {0, 0, 0.25f, 0.5f}), 1.0f);
    EXPECT_EQ(iou({0, 0, 0.25f, 8}, {0, 0, 8, 0.25f}), 0.0625f / 3.9375f);
}

TEST(TrackerOverlap, BoxesApartDoNotOverlap) {
    EXPECT_EQ(iou({0, 0, 2, 2}, {5, 0, 2, 2}), 0.0f);
    EXPECT_EQ(iou({0, 0, 2, 2}, {0, 5, 2, 2}), 0.0f);
    EXPECT_EQ(iou({0, 0, 2, 2}, {5, 5, 2, 2}), 0.0f) << "two negative overlaps have no area";
}

TEST(TrackerOverlap, TouchingBoxesDoNotOverlap) {
    EXPECT_EQ(iou({0, 0, 2, 2}, {2, 0, 2, 2}), 0.0f);
    EXPECT_EQ(iou({0, 0, 2, 2}, {0, 2, 2, 2}), 0.0f);
}

TEST(TrackerOverlap, TouchingBoxesOfInfiniteLengthDoNotOverlap) {
    const float infinite = std::numeric_limits<float>::infinity();
    EXPECT_EQ(iou({0, 0, infinite, 2}, {0, 2, infinite, 2}), 0.0f);
    EXPECT_EQ(iou({0, 0, 2, infinite}, {2, 0, 2, infinite}), 0.0f);
}

TEST(TrackerOverlap, NestedBoxesOverlapByTheRatioOfTheirAreas) {
    EXPECT_EQ(iou({0, 0, 4, 4}, {0, 0, 2, 2}), 0.25f);
    EXPECT_EQ(iou({0, 0, 4, 4}, {1, -1, 2, 2}), 0.25f);
}

TEST(TrackerOverlap, PartialOverlapIsOverTheUnion) {
    EXPECT_EQ(iou({0, 0, 4, 4}, {2, 0, 4, 4}), 8.0f / 24.0f);
    EXPECT_EQ(iou({0, 0, 4, 2}, {1, 1, 4, 2}), 3.0f / 13.0f);
    EXPECT_EQ(iou({0, 0, 2, 8}, {0, 0, 8, 2}), 4.0f / 28.0f);
}

TEST(TrackerOverlap, TwoBoxesWithoutAreaGiveNaN) {
    EXPECT_TRUE(std::isnan(iou({0, 0, 0, 0}, {0, 0, 0, 0})));
    EXPECT_TRUE(std::isnan(iou({0, 0, 0, 5}, {9, 0, 5, 0})));
}

TEST(TrackerOverlap, OneBoxWithoutAreaGivesZero) {
    EXPECT_EQ(iou({0, 0, 0, 0}, {0, 0, 4, 4}), 0.0f);
}

TEST(TrackerOverlap, NegativeWidthHasNegativeAreaAndNoIntersection) {
    EXPECT_EQ(iou({0, 0, -2, 2}, {0, 0, 4, 2}), 0.0f);
    EXPECT_TRUE(std::isnan(iou({0, 0, -2, 2}, {0, 0, 2, 2}))) << "the areas cancel";
}

TEST(TrackerOverlap, EdgesAreSinglePrecision) {
    const box_t tiny = {1, 1, 0x1p-24f, 0x1p-24f};
    EXPECT_EQ(iou(tiny, tiny), 0.0f) << "both edges round to the centre";
}

} // namespace
