// The matrix record: headers, storage, clearing and printing.

#include <cstdio>
#include <cstdlib>

#include "iv_matrix/element.h"

using namespace iv::internal;

// Kalman filters and hosts lay out headers and values by hand.
static_assert(offsetof(iv_mat_t, type) == 0 && offsetof(iv_mat_t, rows) == 4 &&
                  offsetof(iv_mat_t, cols) == 8 && offsetof(iv_mat_t, step) == 12 &&
                  offsetof(iv_mat_t, data) == 16,
              "the header is four 32-bit integers and a pointer");
static_assert(sizeof(iv_mat_t) == 16 + sizeof(void*), "values start right behind the header");

namespace {

/// Bytes of one element, its channels included.
int element_size(int type) {
    return IV_MAT_CN(type) * IV_ELEM_SIZE1(type);
}

} // namespace

iv_mat_t* iv_mat_initheader(iv_mat_t* mat, int rows, int cols, int type, void* data) {
    if (!mat) {
        return nullptr;
    }
    mat->type = type;
    mat->rows = rows;
    mat->cols = cols;
    mat->step = wrap_mul(element_size(type), cols);
    mat->data.p = static_cast<u08_t*>(data);
    return mat;
}

iv_mat_t* iv_mat_create(int rows, int cols, int type) {
    // A negative count is widened with its sign: the request becomes huge and fails.
    const int bytes = wrap_mul(wrap_mul(element_size(type), rows), cols);
    void* block = std::malloc(static_cast<std::size_t>(bytes) + sizeof(iv_mat_t));
    if (!block) {
        return nullptr;
    }
    iv_mat_t* mat = static_cast<iv_mat_t*>(block);
    return iv_mat_initheader(mat, rows, cols, type, mat + 1);
}

void iv_mat_release(iv_mat_t* mat) {
    // The position alone marks a matrix made by iv_mat_create: hosts may build the same by hand.
    if (mat && mat->data.p == reinterpret_cast<u08_t*>(mat + 1)) {
        std::free(mat);
    }
}

void iv_mat_setzero(iv_mat_t* mat) {
    const int bytes = wrap_mul(mat->rows, mat->step);
    if (bytes != 0) { // memset takes no null pointer, not even for nothing
        std::memset(mat->data.p, 0, static_cast<std::size_t>(bytes));
    }
}

void iv_mat_print(char* name, iv_mat_t* mat) {
    if (name) {
        std::printf("%s=\n", name);
    }
    const std::ptrdiff_t pitch = mat->step / IV_ELEM_SIZE1(mat->type);
    for (std::ptrdiff_t i = 0; i < mat->rows; ++i) {
        // Exactly `cols` values, whatever the channels: a diagnostic look at the storage.
        for (std::ptrdiff_t j = 0; j < mat->cols; ++j) {
            const std::ptrdiff_t at = i * pitch + j;
            switch (IV_MAT_DEPTH(mat->type)) {
                case IV_8U:
                    std::printf(" %3d", cells<u08_t>(mat)[at].value);
                    break;
                case IV_8S: // as a character
                    std::printf(" %c", cells<u08_t>(mat)[at].value);
                    break;
                case IV_16U: // through the signed view: 65535 prints as -1
                case IV_16S:
                    std::printf(" %6d", cells<s16_t>(mat)[at].value);
                    break;
                case IV_32S:
                    std::printf(" %11d", cells<s32_t>(mat)[at].value);
                    break;
                case IV_32F:
                    std::printf(" %10f", static_cast<double>(cells<f32_t>(mat)[at].value));
                    break;
                case IV_64S:
                    std::printf(" %11lld", cells<s64_t>(mat)[at].value);
                    break;
                default:
                    std::printf(" %10f", cells<f64_t>(mat)[at].value);
                    break;
            }
        }
        std::putchar('\n');
    }
}
