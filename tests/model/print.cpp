// The diagnostic printer, its columns padded by hand.
#include <cstdio>

#include "model/matrix.h"

namespace model {
namespace {

std::string text_of(double value) {
    char text[400];
    std::snprintf(text, sizeof text, "%f", value);
    return text;
}

std::string text_of(float value) {
    return text_of(wide(value));
}

template <class T, std::enable_if_t<std::is_integral_v<T>, int> = 0>
std::string text_of(T value) {
    return std::to_string(value);
}

std::string text_of(std::int8_t value) {
    return std::string(1, static_cast<char>(value));
}

/// By depth.
constexpr std::size_t WIDTH[] = {3, 1, 6, 6, 11, 10, 11, 10};

} // namespace

std::string print(const char* name, const Mat& mat) {
    std::string text = name ? std::string(name) + "=\n" : "";
    const int pitch = mat.step / value_size(mat.type);
    for (int i = 0; i < mat.rows; ++i) {
        for (int j = 0; j < mat.cols; ++j) {
            const std::string value = with_depth(mat.type, [&](auto zero) {
                using T = decltype(zero);
                // Unsigned words are looked at as signed ones.
                using Seen = std::conditional_t<std::is_same_v<T, std::uint16_t>, std::int16_t, T>;
                return text_of(load<Seen>(mat.data, std::ptrdiff_t{i} * pitch + j));
            });
            const std::size_t width = WIDTH[depth_of(mat.type)];
            text += std::string(1 + (value.size() < width ? width - value.size() : 0), ' ') + value;
        }
        text += '\n';
    }
    return text;
}

} // namespace model
