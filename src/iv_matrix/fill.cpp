// Fills: identity, diagonal, ones.

#include <climits>

#include "iv_lanes/kernels.h"
#include "iv_matrix/element.h"

using namespace iv::internal;

namespace {

/// Eight bytes of ones, by depth. In any byte order the first bytes are a one.
constexpr std::uint64_t ONES[8] = {0x0101010101010101, 0x0101010101010101, 0x0001000100010001,
                                   0x0001000100010001, 0x0000000100000001, 0x3F8000003F800000,
                                   0x0000000000000001, 0x3FF0000000000000};

/// The definition: writes the diagonal and the zeros around it in one forward pass over channel 0
/// of every element. Each value of the diagonal is read just before it is written: they may lie in
/// the matrix.
[[gnu::noinline]] void walk_diagonal(const u08_t* values, std::ptrdiff_t step,
                                     const iv_mat_t* mat) {
    const int rows = mat->rows;
    const int cols = mat->cols;
    const int n = rows <= cols ? rows : cols;
    const std::ptrdiff_t size = IV_ELEM_SIZE1(mat->type);
    const std::uint64_t zero = 0;
    u08_t* cursor = mat->data.p;
    const auto write = [&cursor, size, element = IV_MAT_CN(mat->type) * size](const void* value) {
        copy_value(cursor, value, size);
        cursor += element;
    };

    write(values); // unconditional: an empty matrix gets its first element written too
    for (int k = 1; k < n; ++k) {
        for (int j = 0; j < cols; ++j) {
            write(&zero);
        }
        values += step;
        write(values);
    }
    const int total = wrap_mul(rows, cols);
    for (int t = wrap_add(wrap_mul(wrap_add(n, -1), cols), n); t < total; ++t) {
        write(&zero);
    }
}

/// Writes values that lie `step` bytes apart to the diagonal, and zeros around it.
void set_diagonal(const void* diagonal, std::ptrdiff_t step, const iv_mat_t* mat) {
    const auto* values = static_cast<const u08_t*>(diagonal);
    const std::ptrdiff_t rows = mat->rows;
    const std::ptrdiff_t cols = mat->cols;
    const std::ptrdiff_t n = rows <= cols ? rows : cols;
    const std::ptrdiff_t size = IV_ELEM_SIZE1(mat->type);
    const bool simple = IV_MAT_CN(mat->type) == 1 && n >= 1 && rows * cols <= INT_MAX;
    const std::ptrdiff_t bytes = simple ? rows * cols * size : 0;
    if (!simple || overlap(values, n * size, mat->data.p, bytes)) {
        return walk_diagonal(values, step, mat);
    }
    std::memset(mat->data.p, 0, static_cast<std::size_t>(bytes));
    for (std::ptrdiff_t k = 0; k < n; ++k) {
        copy_value(mat->data.p + k * (cols + 1) * size, values + k * step, size);
    }
}

} // namespace

void iv_mat_setidentity(iv_mat_t* mat) {
    set_diagonal(&ONES[IV_MAT_DEPTH(mat->type)], 0, mat);
}

void iv_mat_setdiagonal(void* pvals, iv_mat_t* mat) {
    set_diagonal(pvals, IV_ELEM_SIZE1(mat->type), mat);
}

void iv_mat_setone(iv_mat_t* mat) {
    const std::uint64_t& ones = ONES[IV_MAT_DEPTH(mat->type)];
    const std::ptrdiff_t size = IV_ELEM_SIZE1(mat->type);
    const std::ptrdiff_t bytes = value_count(mat) * size;
    if (bytes >= kernels().width) {
        return kernels().fill(nullptr, &ones, mat->data.p, bytes);
    }
    for (std::ptrdiff_t i = 0; i < bytes; i += size) {
        copy_value(mat->data.p + i, &ones, size);
    }
}
