#include "model/twin.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <utility>

#include "support/bits.h"

namespace test {

void Twin::append_random_bytes(std::size_t count) {
    for (std::size_t i = 0; i < count; ++i) {
        bytes_.push_back(static_cast<unsigned char>(random_.bits()));
    }
}

Operand Twin::place(int type, int rows, int cols, std::size_t bytes) {
    append_random_bytes(1 + random_.bits() % 24);
    const Operand operand = over(bytes_.size(), type, rows, cols);
    const auto size = static_cast<std::size_t>(model::value_size(type));
    const auto packed = static_cast<std::size_t>(
        rows > 0 && cols > 0 ? std::int64_t{rows} * cols * model::channels_of(type) : 0);
    const std::size_t count = std::max(packed, (bytes + size - 1) / size);
    bytes_.resize(bytes_.size() + count * size);
    for (std::size_t i = 0; i < count; ++i) {
        random_value(random_, type, hostile_, bytes_.data() + operand.offset + i * size);
    }
    return operand;
}

Operand Twin::place_destination(int type, int rows, int cols, std::size_t bytes) {
    const float hostile = std::exchange(hostile_, 0.0f);
    const Operand operand = place(type, rows, cols, bytes);
    hostile_ = hostile;
    return operand;
}

Operand Twin::over(std::size_t offset, int type, int rows, int cols) {
    return {model::header(type, rows, cols, nullptr), offset};
}

std::unique_ptr<Guarded> Twin::copy(std::size_t misaligned) const {
    auto side = std::make_unique<Guarded>(bytes_.size(), misaligned);
    std::copy(bytes_.begin(), bytes_.end(), side->data());
    return side;
}

model::Mat Twin::at(Guarded& side, const Operand& operand) {
    model::Mat mat = operand.mat;
    mat.data = side.data() + operand.offset;
    return mat;
}

void Twin::expect_same(const Operand& dst, NanRule rule) const {
    const model::Mat expected = at(*model_, dst);
    const model::Mat actual = at(*library_, dst);
    if (rule == NanRule::PRODUCED) {
        expect_same_values(expected, actual, rule);
    }
    const int values = std::max(0, model::flat_count(dst.mat));
    const std::size_t end =
        dst.offset + static_cast<std::size_t>(values) *
                         static_cast<std::size_t>(model::value_size(dst.mat.type));
    for (std::size_t i = 0; i < bytes_.size(); ++i) {
        if (rule == NanRule::PRODUCED && i >= dst.offset && i < end) {
            continue;
        }
        ASSERT_EQ(+model_->data()[i], +library_->data()[i])
            << "byte " << static_cast<std::ptrdiff_t>(i) - static_cast<std::ptrdiff_t>(dst.offset)
            << " from the start of the destination, which ends at byte " << end - dst.offset;
    }
}

void Twin::expect_untouched() const {
    for (std::size_t i = 0; i < bytes_.size(); ++i) {
        ASSERT_EQ(+bytes_[i], +library_->data()[i]) << "byte " << i << " was written";
    }
}

bool Twin::produced_nan(const Operand& dst) const {
    return holds_nan(at(*model_, dst));
}

bool holds_nan(const model::Mat& mat) {
    return model::with_depth(mat.type, [&](auto zero) {
        for (int i = 0; i < model::flat_count(mat); ++i) {
            const auto value = model::load<decltype(zero)>(mat.data, i);
            if (value != value) {
                return true;
            }
        }
        return false;
    });
}

bool same_bytes(const model::Mat& a, const model::Mat& b) {
    const auto values = static_cast<std::size_t>(std::max(0, model::flat_count(a)));
    const auto size = static_cast<std::size_t>(model::value_size(a.type));
    return std::memcmp(a.data, b.data, values * size) == 0;
}

void expect_same_matrices(const std::array<model::Mat, 14>& expected,
                          const std::array<model::Mat, 14>& actual) {
    for (std::size_t i = 0; i < expected.size(); ++i) {
        ASSERT_EQ(expected[i].type, actual[i].type) << "matrix " << i;
        ASSERT_EQ(expected[i].rows, actual[i].rows) << "matrix " << i;
        ASSERT_EQ(expected[i].cols, actual[i].cols) << "matrix " << i;
        ASSERT_EQ(expected[i].step, actual[i].step) << "matrix " << i;
        if (!same_bytes(expected[i], actual[i])) {
            SCOPED_TRACE(testing::Message() << "matrix " << i);
            expect_same_values(expected[i], actual[i], NanRule::PRODUCED);
        }
    }
}

void expect_same_values(const model::Mat& expected, const model::Mat& actual, NanRule rule) {
    model::with_depth(expected.type, [&](auto zero) {
        using T = decltype(zero);
        for (int i = 0; i < model::flat_count(expected); ++i) {
            const T wanted = model::load<T>(expected.data, i);
            const T got = model::load<T>(actual.data, i);
            const bool same =
                rule == NanRule::PRODUCED ? same_number(wanted, got) : bits(wanted) == bits(got);
            ASSERT_TRUE(same) << "value " << i << " of " << expected.rows << " x " << expected.cols
                              << " of type " << expected.type << "\n  is       " << show(got)
                              << "\n  expected " << show(wanted);
        }
    });
}

void adopt_nans(const model::Mat& from, const model::Mat& to) {
    model::with_depth(from.type, [&](auto zero) {
        using T = decltype(zero);
        for (int i = 0; i < model::flat_count(from); ++i) {
            const T value = model::load<T>(from.data, i);
            if (value != value && same_number(value, model::load<T>(to.data, i))) {
                model::store(to.data, i, value);
            }
        }
    });
}

} // namespace test
