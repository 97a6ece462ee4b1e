// Element-wise arithmetic: one pass over the flat array of values.

#include "iv_matrix/element.h"

using namespace iv::internal;

namespace {

bool same_type_and_shape(const iv_mat_t* a, const iv_mat_t* b) {
    return a->type == b->type && same_shape(a, b);
}

// Storage may overlap: each value is read just before its result is written, in ascending order,
// and nothing here may promise the compiler otherwise.

/// dst[i] = op(src[i])
template <class T, class Op>
void map(const iv_mat_t* src, iv_mat_t* dst, Op op) {
    const Cell<T>* in = cells<T>(src);
    Cell<T>* out = cells<T>(dst);
    const int count = value_count(src);
    for (int i = 0; i < count; ++i) {
        out[i].value = op(in[i].value);
    }
}

/// dst[i] = op(src1[i], src2[i])
template <class T, class Op>
void combine(const iv_mat_t* src1, const iv_mat_t* src2, iv_mat_t* dst, Op op) {
    const Cell<T>* left = cells<T>(src1);
    const Cell<T>* right = cells<T>(src2);
    Cell<T>* out = cells<T>(dst);
    const int count = value_count(src1);
    for (int i = 0; i < count; ++i) {
        out[i].value = op(left[i].value, right[i].value);
    }
}

} // namespace

void iv_mat_neg(iv_mat_t* src, iv_mat_t* dst) {
    if (!same_type_and_shape(src, dst)) {
        return;
    }
    visit_depth(src->type, [src, dst](auto tag) {
        using T = TypeOf<decltype(tag)>;
        // Unsigned values have no negation: the destination keeps what it holds.
        if constexpr (std::is_signed_v<T>) {
            map<T>(src, dst, Arithmetic<T>::neg);
        }
    });
}

void iv_mat_scale(void* pval, iv_mat_t* src, iv_mat_t* dst) {
    if (!same_type_and_shape(src, dst)) {
        return;
    }
    visit_depth(src->type, [pval, src, dst](auto tag) {
        using T = TypeOf<decltype(tag)>;
        // Read once, before anything is written, and also for an empty matrix: the value may lie in
        // the destination, and a compiler may not move the read.
        const T factor = static_cast<const volatile Cell<T>*>(pval)->value;
        map<T>(src, dst, [factor](T value) { return Arithmetic<T>::mul(value, factor); });
    });
}

void iv_mat_add(iv_mat_t* src1, iv_mat_t* src2, iv_mat_t* dst) {
    if (!same_type_and_shape(src1, src2) || !same_type_and_shape(src1, dst)) {
        return;
    }
    visit_depth(src1->type, [=](auto tag) {
        using T = TypeOf<decltype(tag)>;
        combine<T>(src1, src2, dst, Arithmetic<T>::add);
    });
}

void iv_mat_sub(iv_mat_t* src1, iv_mat_t* src2, iv_mat_t* dst) {
    if (!same_type_and_shape(src1, src2) || !same_type_and_shape(src1, dst)) {
        return;
    }
    visit_depth(src1->type, [=](auto tag) {
        using T = TypeOf<decltype(tag)>;
        combine<T>(src1, src2, dst, Arithmetic<T>::sub);
    });
}
