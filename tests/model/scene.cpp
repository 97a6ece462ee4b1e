#include "model/scene.h"

#include <algorithm>
#include <climits>
#include <cmath>
#include <limits>

namespace test {
namespace {

void set(const model::Mat& mat, int row, int col, float value) {
    model::store(mat.data, std::ptrdiff_t{row} * mat.cols + col, value);
}

template <std::size_t N, class T>
T one_of(Random& random, const T (&values)[N]) {
    return values[random.bits() % N];
}

} // namespace

MatrixKind random_matrix_kind(Random& random) {
    return static_cast<MatrixKind>(random.between(0, static_cast<int>(MatrixKind::DOMINANT)));
}

void make_difficult(Random& random, MatrixKind kind, const model::Mat& mat) {
    const int n = std::max(mat.rows, 0);
    const auto at = [&](int i, int j) { return std::ptrdiff_t{i} * n + j; };
    for (int i = 0; i < n; ++i) {
        for (int j = 0; j < n; ++j) {
            if (kind == MatrixKind::SMALL_INTEGERS) {
                model::store(mat.data, at(i, j), static_cast<float>(random.between(-1, 1)));
            } else if (kind == MatrixKind::SPARSE && random.chance(0.7f)) {
                model::store(mat.data, at(i, j), random.chance(0.5f) ? 0.0f : -0.0f);
            } else if (kind == MatrixKind::LAST_ROW_TWICE && n > 1 && i == n - 1) {
                model::store(mat.data, at(i, j), model::load<float>(mat.data, at(0, j)));
            } else if (kind == MatrixKind::TINY_PIVOTS && i == j) {
                model::store(mat.data, at(i, j), one_of(random, {1e-45f, 1e-38f, 1e-20f, -1e-7f}));
            } else if (kind == MatrixKind::DOMINANT && i == j) {
                model::store(mat.data, at(i, j), random.uniform(100.0f, 900.0f));
            }
        }
    }
}

void make_filter_model(Random& random, const std::array<model::Mat, 14>& filter) {
    const float spread = random.uniform(0.1f, 1.2f);
    for (const std::size_t k : {std::size_t{10}, std::size_t{11}}) {
        for (int i = 0; i < filter[k].rows; ++i) {
            for (int j = 0; j < filter[k].cols; ++j) {
                const float value = random.chance(0.6f) ? random.uniform(-spread, spread) : 0.0f;
                set(filter[k], i, j, value + (i == j ? 0.5f : 0.0f));
            }
        }
    }
    const float noise = random.chance(0.1f) ? 0.0f : random.uniform(0.01f, 2.0f);
    for (const std::size_t k : {std::size_t{12}, std::size_t{13}}) {
        for (int i = 0; i < filter[k].rows; ++i) {
            for (int j = 0; j < filter[k].cols; ++j) {
                set(filter[k], i, j,
                    i == j ? noise : (random.chance(0.1f) ? noise * 0.125f : 0.0f));
            }
        }
    }
    for (int i = 0; i < filter[1].rows; ++i) {
        set(filter[1], i, 0, random.uniform(-10.0f, 10.0f));
    }
    model::setidentity(filter[3]);
}

Scene::Scene(Random& random, int objects, int capacity, float hostile, float spread)
    : random_(random),
      capacity_(capacity),
      hostile_(hostile),
      spread_(spread),
      noise_(random.uniform(0.0f, 0.6f)),
      miss_(random.uniform(0.0f, 0.5f)),
      grid_(random.chance(0.3f)) {
    for (int i = 0; i < objects; ++i) {
        objects_.push_back(new_object());
    }
}

Scene::Object Scene::new_object() {
    return {random_.between(1, 3),
            random_.uniform(0.0f, 40.0f * spread_),
            random_.uniform(0.0f, 30.0f * spread_),
            random_.uniform(0.5f, 9.0f),
            random_.uniform(0.5f, 9.0f),
            random_.uniform(-1.0f, 1.0f),
            random_.uniform(-1.0f, 1.0f)};
}

std::array<float, 6> Scene::seen(const Object& object) {
    const auto measured = [&](float value) {
        const float noisy = value + random_.uniform(-noise_, noise_);
        return grid_ ? std::floor(noisy * 2.0f) * 0.5f : noisy;
    };
    const float left = measured(object.x);
    const float top = measured(object.y);
    const float right = measured(left + object.w);
    const float bottom = measured(top + object.h);
    const int category = random_.chance(0.03f) ? random_.between(-2, 4) : object.category;
    const float fraction = random_.chance(0.1f) ? random_.uniform(0.0f, 0.9f) : 0.0f;
    return {static_cast<float>(category) + fraction,
            left,
            top,
            right,
            bottom,
            random_.uniform(0.0f, 1.0f)};
}

std::array<float, 6> Scene::false_alarm() {
    return seen(new_object());
}

void Scene::make_hostile(std::array<float, 6>& row) {
    using Limits = std::numeric_limits<float>;
    const float inf = Limits::infinity();
    float& value = row.at(static_cast<std::size_t>(random_.between(0, 5)));
    value = one_of(random_, {Limits::quiet_NaN(), -Limits::quiet_NaN(), inf, -inf, 3e38f, -3e38f,
                             1e10f, -1e10f, 1e-45f, -0.0f, 0.5f, -0.5f, 2147483520.0f,
                             2147483648.0f, -2147483648.0f, 1e19f});
}

Rows Scene::next_frame() {
    Rows rows;
    for (Object& object : objects_) {
        object.x += object.vx;
        object.y += object.vy;
        if (random_.chance(0.01f)) {
            object = new_object();
        } else if (random_.chance(0.03f)) {
            object.vx = random_.uniform(-2.0f, 2.0f);
        }
        if (!random_.chance(miss_)) {
            rows.push_back(seen(object));
        }
    }
    while (random_.chance(0.3f)) {
        rows.push_back(false_alarm());
    }
    if (!rows.empty() && random_.chance(0.1f)) {
        rows.push_back(rows[static_cast<std::size_t>(random_.bits() % rows.size())]);
    }
    for (auto& row : rows) {
        if (random_.chance(hostile_)) {
            make_hostile(row);
        }
    }
    for (std::size_t i = rows.size(); i > 1; --i) {
        std::swap(rows[i - 1], rows[static_cast<std::size_t>(random_.bits() % i)]);
    }
    const float end = random_.chance(0.5f) ? 0.0f : -0.0f;
    rows.push_back({end, 1.0f, 2.0f, 3.0f, 4.0f, 5.0f});
    rows.resize(std::max(rows.size(), static_cast<std::size_t>(capacity_) + 1),
                {1.0f, 1.0f, 2.0f, 3.0f, 4.0f, 5.0f});
    return rows;
}

model::Parameters random_parameters(Random& random) {
    const float nan = std::numeric_limits<float>::quiet_NaN();
    model::Parameters p{random.uniform(0.0f, 1.0f), random.uniform(0.0f, 0.5f),
                        random.between(1, 5), random.between(1, 12), random.chance(0.3f) ? 7 : 0};
    if (random.chance(0.3f)) { // reached exactly by boxes on a grid
        p.distance_gate = one_of(random, {0.0625f, 0.125f, 0.25f, 0.5f, 1.0f});
        p.overlap_gate = one_of(random, {0.0f, 0.25f, 0.5f});
    }
    if (random.chance(0.15f)) {
        p.distance_gate = one_of(random, {-1.0f, 0.0f, 1.0f, 4.0f, 99.0f, 1e30f, nan});
    }
    if (random.chance(0.15f)) {
        p.overlap_gate = one_of(random, {-2.0f, -0.5f, 0.0f, 0.9f, 1.0f, 1.5f, nan});
    }
    if (random.chance(0.15f)) {
        p.stable = one_of(random, {INT_MIN, -3, 0, 8, 20, INT_MAX});
    }
    if (random.chance(0.15f)) {
        p.removal = one_of(random, {INT_MIN, -1, 0, 2, 40, INT_MAX});
    }
    return p;
}

} // namespace test
