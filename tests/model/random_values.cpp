#include "model/random_values.h"

#include <algorithm>
#include <cstdlib>
#include <iterator>
#include <limits>

#include "model/values.h"
#include "support/number.h"

namespace test {
namespace {

template <class T>
T special_value(Random& random) {
    using Limits = std::numeric_limits<T>;
    const T values[] = {Limits::quiet_NaN(),
                        -Limits::quiet_NaN(),
                        Limits::signaling_NaN(),
                        Limits::infinity(),
                        -Limits::infinity(),
                        Limits::denorm_min(),
                        -Limits::denorm_min(),
                        Limits::min(),
                        Limits::min() * T{0.75},
                        Limits::max(),
                        Limits::lowest(),
                        T{0},
                        -T{0},
                        T{1} + Limits::epsilon()};
    return values[random.bits() % std::size(values)];
}

template <class T>
void random_number(Random& random, float hostile, unsigned char* out) {
    if constexpr (std::is_floating_point_v<T>) {
        if (random.chance(hostile)) {
            if (random.chance(0.7f)) {
                model::store(out, 0, special_value<T>(random));
            } else {
                using Bits = decltype(test::bits(T{}));
                model::store(out, 0, static_cast<Bits>(random.bits()));
            }
        } else if (random.chance(0.3f)) {
            model::store(out, 0, static_cast<T>(random.between(-3, 3)));
        } else {
            const T high = static_cast<T>(random.uniform(-8.0f, 8.0f));
            const T low = static_cast<T>(random.uniform(-1.0f, 1.0f));
            model::store(out, 0, high + low / T{16777216});
        }
    } else {
        using Limits = std::numeric_limits<T>;
        const T edges[] = {Limits::min(), Limits::max(), T{0}, T{1}, static_cast<T>(-1)};
        model::store(out, 0,
                     random.chance(0.2f) ? edges[random.bits() % std::size(edges)]
                                         : static_cast<T>(random.bits()));
    }
}

} // namespace

int rounds(int count) {
    static const double scale = [] {
        const char* text = std::getenv("LIBIV_TEST_SCALE");
        return text ? std::atof(text) : 1.0;
    }();
    return std::max(1, static_cast<int>(count * scale));
}

int random_type(Random& random) {
    const int low = random.between(0, 255);
    return random.chance(0.9f) ? low : low | static_cast<int>(random.bits() << 8 & 0xffffff00u);
}

int random_length(Random& random, int least) {
    if (random.chance(0.04f)) {
        return random.between(least, 45);
    }
    return random.between(least, random.chance(0.5f) ? 5 : 12);
}

void random_value(Random& random, int type, float hostile, unsigned char* out) {
    unsigned char value[8];
    model::with_depth(type, [&](auto zero) {
        random_number<decltype(zero)>(random, hostile, value);
        std::memcpy(out, value, sizeof zero);
    });
}

float random_hostility(Random& random) {
    const float choices[] = {0.0f, 0.0f, 0.01f, 0.1f, 0.5f};
    return choices[random.bits() % std::size(choices)];
}

} // namespace test
