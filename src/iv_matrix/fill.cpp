// Fills: identity, diagonal, ones.

#include "iv_matrix/element.h"

using namespace iv::internal;

namespace {

/// Writes the diagonal and the zeros around it in one forward pass over channel 0 of every element.
/// `diagonal(k)` is the value at (k, k).
template <class T, class Diagonal>
void walk_diagonal(iv_mat_t* mat, Diagonal diagonal) {
    const int rows = mat->rows;
    const int cols = mat->cols;
    const int n = rows <= cols ? rows : cols;
    Cell<T>* cursor = cells<T>(mat);
    const auto write = [&cursor, channels = IV_MAT_CN(mat->type)](T value) {
        cursor->value = value;
        cursor += channels;
    };

    write(diagonal(0)); // unconditional: an empty matrix gets its first element written too
    for (int k = 1; k < n; ++k) {
        for (int j = 0; j < cols; ++j) {
            write(T{0});
        }
        write(diagonal(k));
    }
    const int total = wrap_mul(rows, cols);
    for (int t = wrap_add(wrap_mul(wrap_add(n, -1), cols), n); t < total; ++t) {
        write(T{0});
    }
}

} // namespace

void iv_mat_setidentity(iv_mat_t* mat) {
    visit_depth(mat->type, [mat](auto tag) {
        using T = TypeOf<decltype(tag)>;
        walk_diagonal<T>(mat, [](int) { return T{1}; });
    });
}

void iv_mat_setdiagonal(void* pvals, iv_mat_t* mat) {
    visit_depth(mat->type, [pvals, mat](auto tag) {
        using Bits = BitsOf<TypeOf<decltype(tag)>>;
        const auto* values = static_cast<const Cell<Bits>*>(pvals);
        walk_diagonal<Bits>(mat, [values](int k) { return values[k].value; });
    });
}

void iv_mat_setone(iv_mat_t* mat) {
    visit_depth(mat->type, [mat](auto tag) {
        using T = TypeOf<decltype(tag)>;
        Cell<T>* values = cells<T>(mat);
        const int count = value_count(mat);
        for (int i = 0; i < count; ++i) {
            values[i].value = T{1};
        }
    });
}
