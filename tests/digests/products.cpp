#include "digests/corpus.h"

namespace digests {
namespace {

using model::Mat;
using test::Random;

/// A product as it is called, with the names of its digest in both parts.
struct Mode {
    const char* name;
    const char* short_name;
    bool first_transposed, second_transposed;
};

constexpr Mode MODES[] = {
    {"AB", "mul", false, false},
    {"A'B", "mul_trans_src1", true, false},
    {"AB'", "mul_trans_src2", false, true},
    {"E+AB", "muladd", false, false},
    {"E+AB'", "muladd_trans_src2", false, true},
    {"E-AB", "submul", false, false},
    {"I-AB", "submul_identity", false, false},
};

template <class Side>
void multiply(int mode, const Mat& a, const Mat& b, const Mat& e, const Mat& d) {
    switch (mode) {
        case 0:
            return Side::mul(a, b, d, 0);
        case 1:
            return Side::mul(a, b, d, model::TRANSPOSED_FIRST);
        case 2:
            return Side::mul(a, b, d, model::TRANSPOSED_SECOND);
        case 3:
            return Side::muladd(a, b, e, d, 0);
        case 4:
            return Side::muladd(a, b, e, d, model::TRANSPOSED_SECOND);
        case 5:
            return Side::submul(&e, a, b, d, 0);
        default:
            return Side::submul(nullptr, a, b, d, model::IDENTITY_FIRST);
    }
}

/// The products of one shape per round, in every mode.
template <class Side>
void small_shapes(Digests& digests, int type, const std::string& suffix) {
    Random random(0x1001);
    for (int round = 0; round < 120; ++round) {
        const float hostile = HOSTILE[round % 4];
        const int rows = random.between(1, 12);
        const int inner = random.between(1, 12);
        const int cols = random.between(1, 12);
        const Values a(random, type, rows, inner, hostile);
        const Values a_transposed(random, type, inner, rows, hostile);
        const Values b(random, type, inner, cols, hostile);
        const Values b_transposed(random, type, cols, inner, hostile);
        const Values e(random, type, rows, cols, hostile);
        const Values d(random, type, rows, cols, 0.0f);
        int number = 0;
        for (const Mode& mode : MODES) {
            Digest& digest = digests[mode.short_name + suffix];
            digest.begin(round_of(round, rows, inner, cols));
            multiply<Side>(number++, mode.first_transposed ? a_transposed.mat() : a.mat(),
                           mode.second_transposed ? b_transposed.mat() : b.mat(), e.mat(), d.mat());
            digest.add(d.mat());
        }
    }
}

/// Around the widths of registers.
int odd_length(Random& random) {
    constexpr int lengths[] = {1, 2, 3, 4, 5, 7, 8, 9, 13, 15, 16, 17, 24, 31, 33};
    return lengths[random.bits() % std::size(lengths)];
}

/// Every depth and mode: odd shapes, then thin ones that are longer than what kernels take at once;
/// at any address, the sums in place of what they start from at times.
template <class Side>
void odd_shapes(Digests& digests, int depth) {
    constexpr int rounds = 36;
    constexpr int long_rounds = 6;
    Random random(0x7007);
    for (int round = 0; round < rounds; ++round) {
        const bool is_long = round >= rounds - long_rounds;
        const int type = depth | (round % 8 == 7 ? 1 << 8 : 0);
        const float hostile = HOSTILE[round % 4] * 2.0f;
        const int rows = is_long ? random.between(1, 3) : odd_length(random);
        const int inner = is_long ? random.between(120, 300) : odd_length(random);
        const int cols = is_long && round % 2 ? random.between(60, 140) : odd_length(random);
        int number = 0;
        for (const Mode& mode : MODES) {
            const int misaligned = random.between(0, 15);
            const Values a(random, type, mode.first_transposed ? inner : rows,
                           mode.first_transposed ? rows : inner, hostile, misaligned);
            const Values b(random, type, mode.second_transposed ? cols : inner,
                           mode.second_transposed ? inner : cols, hostile, misaligned / 2);
            const Values e(random, type, rows, cols, hostile, misaligned / 3);
            const Values d(random, type, rows, cols, 0.0f, misaligned / 5);
            const Mat& result = number >= 3 && round % 3 == 0 ? e.mat() : d.mat();
            Digest& digest = digests[std::string("product/") + DEPTHS[depth] + '/' + mode.name];
            digest.begin(round_of(round, rows, inner, cols));
            multiply<Side>(number++, a.mat(), b.mat(), e.mat(), result);
            digest.add(result);
        }
    }
}

} // namespace

template <class Side>
void digest_products(Digests& digests) {
    small_shapes<Side>(digests, model::F32, "_f32");
    small_shapes<Side>(digests, model::F64, "_f64");
    for (int depth = 0; depth < 8; ++depth) {
        odd_shapes<Side>(digests, depth);
    }
}

IV_DIGESTS_OF(digest_products);

} // namespace digests
