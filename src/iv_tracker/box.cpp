// Overlap of boxes in centre form.

#include "iv_tracker.h"

namespace iv::internal {
namespace {

/// Length of the intersection of two intervals given by centre and length; negative when they are
/// apart.
float overlap(float x1, float w1, float x2, float w2) {
    const float left1 = x1 - w1 * 0.5f;
    const float left2 = x2 - w2 * 0.5f;
    const float right1 = x1 + w1 * 0.5f;
    const float right2 = x2 + w2 * 0.5f;
    const float left = left1 > left2 ? left1 : left2;
    const float right = right1 < right2 ? right1 : right2;
    return right - left;
}

float box_intersection(const box_t& a, const box_t& b) {
    const float w = overlap(a.x, a.w, b.x, b.w);
    const float h = overlap(a.y, a.h, b.y, b.h);
    return w > 0.0f && h > 0.0f ? w * h : 0.0f;
}

} // namespace

float box_iou(const box_t& a, const box_t& b) {
    const float inter = box_intersection(a, b);
    return inter / (a.w * a.h + b.w * b.h - inter);
}

} // namespace iv::internal
