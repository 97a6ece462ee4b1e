#include "digests/corpus.h"

namespace digests {
namespace {

using test::Random;

model::Vec3 random_vector(Random& random, float hostile) {
    const Values values(random, model::F32, 1, 3, hostile);
    return {model::load<float>(values.mat().data, 0), model::load<float>(values.mat().data, 1),
            model::load<float>(values.mat().data, 2)};
}

/// All kernels; `more` is the chance of hostile values beyond the usual.
template <class Side>
void kernels(Digests& digests, std::uint64_t seed, float more, const std::string& suffix) {
    Random random(seed);
    for (int round = 0; round < 300; ++round) {
        const auto vector = [&] { return random_vector(random, HOSTILE[round % 4] + more); };
        const model::Mat3 a{vector(), vector(), vector()};
        const model::Mat3 b{vector(), vector(), vector()};
        const model::Vec3 x = vector();
        const model::Vec3 y = vector();
        const auto add = [&](const char* name, const auto& value) {
            Digest& digest = digests[name + suffix];
            digest.begin(round_of(round));
            digest.add(value);
        };
        add("_matmult_3x3", Side::matmult(a, b));
        add("_matmult_3x3t", Side::matmult_t(a, b));
        add("_matmult_3x3vec", Side::matmult_vec(a, x));
        add("_matmult_3x3tvec", Side::matmult_tvec(a, x));
        add("_matneg_3x3", Side::matneg(a));
        add("_matdet_3x3", Side::matdet(a));
        add("_vecoutp_3", Side::vecoutp(x, y));
        add("_veccrossp_3", Side::veccrossp(x, y));
        add("_vecdotp_3", Side::vecdotp(x, y));
    }
}

} // namespace

template <class Side>
void digest_fixed3(Digests& digests) {
    kernels<Side>(digests, 0x4004, 0.0f, "");
    kernels<Side>(digests, 0xc00c, 0.2f, "/hostile");
}

IV_DIGESTS_OF(digest_fixed3);

} // namespace digests
