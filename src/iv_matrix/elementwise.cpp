// Element-wise arithmetic: one pass over the flat array of values.
//
// What storage may overlap fixes the results: each value is read just before its result is written,
// in ascending order. The loops here say so, and elementwise_kernel.h computes what no order can
// tell from that.

#include "iv_lanes/kernels.h"
#include "iv_matrix/element.h"

using namespace iv::internal;

namespace {

bool same_type_and_shape(const iv_mat_t* a, const iv_mat_t* b) {
    return a->type == b->type && same_shape(a, b);
}

/// Whether what is written to `d` is read from `s` later: d starts within s. Where both start
/// together or d starts below, every byte is read before it is written, however wide the reads are.
bool is_read_later(const void* d, const void* s, std::ptrdiff_t bytes) {
    const auto distance = reinterpret_cast<std::uintptr_t>(d) - reinterpret_cast<std::uintptr_t>(s);
    return distance - 1 < static_cast<std::uintptr_t>(bytes) - 1;
}

/// The definition: one value after the other. Volatile, or else the compiler adds vector code of its
/// own for operands that do not overlap.
template <class T>
void one_by_one(ElementwiseOperation operation, const void* src1, const void* src2, void* dst,
                std::ptrdiff_t count) {
    const auto* a = static_cast<const volatile Cell<T>*>(src1);
    const auto* b = static_cast<const volatile Cell<T>*>(src2);
    auto* d = static_cast<volatile Cell<T>*>(dst);
    for (; count > 0; --count, ++a, ++d) {
        const T value = a->value;
        switch (operation) {
            case NEG:
                d->value = Arithmetic<T>::neg(value);
                break;
            case SCALE:
                d->value = Arithmetic<T>::mul(value, b->value);
                break;
            case ADD:
                d->value = Arithmetic<T>::add(value, (b++)->value);
                break;
            default:
                d->value = Arithmetic<T>::sub(value, (b++)->value);
        }
    }
}

/// The same for values of any type. Rare, and kept apart: the way to the kernels is to be short.
[[gnu::noinline]] void one_by_one(int type, ElementwiseOperation operation, const void* a,
                                  const void* b, void* d, std::ptrdiff_t count) {
    visit_depth(type, [=](auto tag) {
        // Signed and unsigned integers share: the low bits are the same.
        using T = TypeOf<decltype(tag)>;
        one_by_one<std::conditional_t<std::is_integral_v<T>, BitsOf<T>, T>>(operation, a, b, d,
                                                                            count);
    });
}

/// dst = src1 operation b. One function for each operation: of few values it is most of the time.
template <ElementwiseOperation OPERATION>
void compute(const iv_mat_t* src1, const void* b, const iv_mat_t* dst) {
    const Kernels& table = kernels();
    const void* a = src1->data.p;
    void* d = dst->data.p;
    const std::ptrdiff_t count = value_count(src1);
    const std::ptrdiff_t bytes = count * IV_ELEM_SIZE1(src1->type);
    constexpr bool two_sources = OPERATION == ADD || OPERATION == SUB;
    if (bytes >= table.width && !is_read_later(d, a, bytes) &&
        !(two_sources && is_read_later(d, b, bytes))) {
        return table.elementwise[IV_MAT_DEPTH(src1->type)][OPERATION](a, b, d, bytes);
    }
    one_by_one(src1->type, OPERATION, a, b, d, count);
}

} // namespace

void iv_mat_neg(iv_mat_t* src, iv_mat_t* dst) {
    // Unsigned values have no negation: the destination keeps what it holds.
    const int depth = IV_MAT_DEPTH(src->type);
    if (!same_type_and_shape(src, dst) || depth == IV_8U || depth == IV_16U) {
        return;
    }
    compute<NEG>(src, nullptr, dst);
}

void iv_mat_scale(void* pval, iv_mat_t* src, iv_mat_t* dst) {
    if (!same_type_and_shape(src, dst)) {
        return;
    }
    // Read once, before anything is written, and also for an empty matrix: the value may lie in the
    // destination, and a compiler may not move the read.
    std::uint64_t factor = 0;
    visit_depth(src->type, [&factor, pval](auto tag) {
        using Bits = BitsOf<TypeOf<decltype(tag)>>;
        const Bits value = static_cast<const volatile Cell<Bits>*>(pval)->value;
        std::memcpy(&factor, &value, sizeof value);
    });
    compute<SCALE>(src, &factor, dst);
}

void iv_mat_add(iv_mat_t* src1, iv_mat_t* src2, iv_mat_t* dst) {
    if (same_type_and_shape(src1, src2) && same_type_and_shape(src1, dst)) {
        compute<ADD>(src1, src2->data.p, dst);
    }
}

void iv_mat_sub(iv_mat_t* src1, iv_mat_t* src2, iv_mat_t* dst) {
    if (same_type_and_shape(src1, src2) && same_type_and_shape(src1, dst)) {
        compute<SUB>(src1, src2->data.p, dst);
    }
}
