// Products: the float types in all modes and sizes, four integer types.

#include <limits>

#include "depth.h"
#include "operands.h"
#include "peers.h"
#include "session.h"

namespace bench {
namespace {

/// Operands that are not aligned may cost this much.
constexpr double UNALIGNED = 0.97;

struct Shape {
    int m, k, n;

    std::string name() const {
        return m == k && k == n ? std::to_string(n)
                                : std::to_string(m) + "x" + std::to_string(k) + "*" +
                                      std::to_string(k) + "x" + std::to_string(n);
    }
};

const char* name_of(Mode mode) {
    return mode == Mode::PLAIN ? "AB" : mode == Mode::FIRST_TRANSPOSED ? "AtB" : "ABt";
}

template <class T>
void measure_product(Row& row, const Effort& effort, Mode mode, const Shape& shape) {
    const auto size = [](int rows, int cols) {
        return static_cast<std::size_t>(rows) * static_cast<std::size_t>(cols);
    };
    Operands operands(row.offset);
    const Product<T> task{mode,
                          shape.m,
                          shape.k,
                          shape.n,
                          operands.random<T>(size(shape.m, shape.k)),
                          operands.random<T>(size(shape.k, shape.n)),
                          operands.place<T>(size(shape.m, shape.n))};
    const double tolerance =
        std::is_floating_point_v<T>
            ? 4.0 * shape.k * static_cast<double>(std::numeric_limits<T>::epsilon())
            : 0.0;
    Entrants entrants = everyone(task);
    check(entrants, 1, task.c, size(shape.m, shape.n), tolerance);
    row.timings = measure(entrants, effort);
}

template <class T>
void add_product(Session& session, Mode mode, const Shape& shape, Demand demand) {
    for (const int offset : {0, 24}) {
        Row row{"product/" + type_name<T>() + "/" + name_of(mode) + "/" + shape.name(), offset};
        if (demand.must > 0.0) {
            const double less = offset ? UNALIGNED : 1.0;
            row.demands = {{demand.must * less, demand.aim * less, demand.against}};
        }
        session.add(row, [mode, shape](Row& r, const Effort& effort) {
            measure_product<T>(r, effort, mode, shape);
        });
    }
}

/// For A B and A' B.
Demand demand_of(const Shape& shape) {
    if (shape.m <= 12) {
        return {1.4, 0.0, {"Eigen dynamic", "OpenBLAS", "OpenCV"}};
    }
    return shape.m <= 128 ? Demand{0.90, 0.97} : Demand{0.75, 0.95};
}

/// For A B'.
Demand second_transposed_demand_of(int n, bool is_double) {
    switch (n) {
        case 8:
        case 16:
            return {2.0, 2.5};
        case 24:
        case 32:
        case 48:
            return {is_double && n == 32 ? 1.2 : 1.4, 1.6};
        case 64:
        case 96:
        case 128:
            return {1.1, 1.25};
        case 256:
        case 512:
            return {0.7, 1.0};
        default:
            return {0.0, 0.0};
    }
}

template <class T>
void add_float_products(Session& session) {
    const auto sizes = {2, 3, 4, 6, 8, 12, 16, 24, 32, 48, 64, 96, 128, 256, 512};
    for (const Mode mode : {Mode::PLAIN, Mode::FIRST_TRANSPOSED}) {
        for (const int n : sizes) {
            add_product<T>(session, mode, {n, n, n}, demand_of({n, n, n}));
        }
        for (const Shape& shape : {Shape{8, 8, 1}, Shape{8, 8, 4}, Shape{4, 8, 4}}) {
            add_product<T>(session, mode, shape, demand_of(shape));
        }
    }
    for (const int n : sizes) {
        add_product<T>(session, Mode::SECOND_TRANSPOSED, {n, n, n},
                       second_transposed_demand_of(n, sizeof(T) == 8));
    }
}

template <class T>
void add_integer_products(Session& session) {
    for (const int n : {8, 32, 128}) {
        add_product<T>(session, Mode::PLAIN, {n, n, n}, {3.0, 0.0});
    }
}

} // namespace

void add_products(Session& session) {
    add_float_products<f32_t>(session);
    add_float_products<f64_t>(session);
    session.add_mean({"float products up to 12, against peers made for the size",
                      {"product/f.*/At?B/([2-8]|12|.*x.*)"},
                      0.75,
                      {"Eigen fixed", "libxsmm"}});
    add_integer_products<u08_t>(session);
    add_integer_products<s16_t>(session);
    add_integer_products<s32_t>(session);
    add_integer_products<s64_t>(session);
    session.add_mean({"integer products", {"product/[us].*"}, 5.0});
}

} // namespace bench
