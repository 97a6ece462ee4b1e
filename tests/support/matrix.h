// Matrices for tests: packed, with guard bytes around the storage.
#ifndef LIBIV_TESTS_MATRIX_H
#define LIBIV_TESTS_MATRIX_H

#include <gtest/gtest.h>

#include <cstddef>
#include <cstring>
#include <limits>
#include <string>
#include <vector>

#include "_libiv.h"

namespace test {

/// One element depth: its scalar type and its code.
template <typename T, int CODE>
struct Depth {
    using Scalar = T;
    static constexpr int code = CODE;
};

using AllDepths = ::testing::Types<Depth<u08_t, IV_8U>, Depth<s08_t, IV_8S>, Depth<u16_t, IV_16U>,
                                   Depth<s16_t, IV_16S>, Depth<s32_t, IV_32S>, Depth<f32_t, IV_32F>,
                                   Depth<s64_t, IV_64S>, Depth<f64_t, IV_64F>>;

/// Names the typed tests by depth.
struct DepthNames {
    template <typename D>
    static std::string GetName(int) {
        constexpr const char* names[] = {"8U", "8S", "16U", "16S", "32S", "32F", "64S", "64F"};
        return names[D::code];
    }
};

/// A bit above the channel field: it changes no size, only the comparison of types.
constexpr int HIGH_TYPE_BIT = 1 << 8;

/// A header over storage of its own. The guards are compared when it goes.
template <typename T>
class Matrix {
  public:
    Matrix(int type, int rows, int cols, const std::vector<T>& values)
        : bytes_(values.size() * sizeof(T)), storage_(bytes_ + 2 * GUARD, GUARD_BYTE) {
        if (bytes_ != 0) {
            std::memcpy(data(), values.data(), bytes_);
        }
        iv_mat_initheader(&header_, rows, cols, type, data());
    }

    ~Matrix() {
        for (std::size_t i = 0; i < GUARD; ++i) {
            EXPECT_EQ(storage_[i], GUARD_BYTE) << "written " << GUARD - i << " bytes before";
            EXPECT_EQ(storage_[GUARD + bytes_ + i], GUARD_BYTE) << "written " << i << " behind";
        }
    }

    Matrix(const Matrix&) = delete;
    Matrix& operator=(const Matrix&) = delete;

    operator iv_mat_t*() { return &header_; }
    iv_mat_t* operator->() { return &header_; }

    std::vector<T> values() const {
        std::vector<T> result(bytes_ / sizeof(T));
        if (bytes_ != 0) {
            std::memcpy(result.data(), storage_.data() + GUARD, bytes_);
        }
        return result;
    }

  private:
    static constexpr std::size_t GUARD = 64;
    static constexpr unsigned char GUARD_BYTE = 0xa5;

    unsigned char* data() { return storage_.data() + GUARD; }

    std::size_t bytes_;
    std::vector<unsigned char> storage_;
    iv_mat_t header_ = {};
};

/// A single-precision matrix.
class FloatMatrix : public Matrix<float> {
  public:
    FloatMatrix(int rows, int cols, const std::vector<float>& values)
        : Matrix<float>(IV_32F, rows, cols, values) {}
};

/// The bits of a value, to compare signed zeros and NaNs.
inline unsigned int bits_of(float value) {
    unsigned int bits;
    std::memcpy(&bits, &value, sizeof bits);
    return bits;
}

inline unsigned long long bits_of(double value) {
    unsigned long long bits;
    std::memcpy(&bits, &value, sizeof bits);
    return bits;
}

inline float float_of(unsigned int bits) {
    float value;
    std::memcpy(&value, &bits, sizeof value);
    return value;
}

/// The values of a float matrix, as they are read through its header.
inline std::vector<float> floats_of(const iv_mat_t* mat) {
    const float* first = mat->data.f;
    return std::vector<float>(first, first + mat->rows * mat->cols);
}

/// Writes all values of a float matrix.
inline void fill(iv_mat_t* mat, const std::vector<float>& values) {
    ASSERT_EQ(values.size(), static_cast<std::size_t>(mat->rows * mat->cols));
    std::memcpy(mat->data.f, values.data(), values.size() * sizeof(float));
}

constexpr float NOT_A_NUMBER = std::numeric_limits<float>::quiet_NaN();
constexpr float INFINITE = std::numeric_limits<float>::infinity();

} // namespace test

#endif
