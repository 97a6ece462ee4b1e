#include "digests/corpus.h"
#include "model/scene.h"

namespace digests {
namespace {

using test::Random;

/// A matrix hard to invert or not, inverted in place.
template <class Side>
void invert_one(Digest& digest, Random& random, int round, int n, float hostile) {
    const test::MatrixKind kind = test::random_matrix_kind(random);
    const Values a(random, model::F32, n, n, hostile);
    test::make_difficult(random, kind, a.mat());
    Side::inv(a.mat(), a.mat());
    digest.begin(round_of(round, n, n));
    digest.add(a.mat());
}

/// One order after the other, so that what a call leaves in the work area meets every other order.
template <class Side>
void orders(Digests& digests, const std::string& name, int least, int most, int rounds) {
    test::wash_work_area(Side{});
    Digest& digest = digests["inverse/" + name];
    Random random(0xb00b);
    for (int round = 0; round < rounds; ++round) {
        const int n = random.between(least, most);
        const Values a(random, model::F32, n, n, HOSTILE[round % 4], random.between(0, 15));
        const Values d(random, model::F32, n, n, 0.0f, random.between(0, 15));
        test::make_difficult(random, test::random_matrix_kind(random), a.mat());
        Side::inv(a.mat(), d.mat());
        digest.begin(round_of(round, n, n));
        digest.add(d.mat());
    }
}

} // namespace

template <class Side>
void digest_inverse(Digests& digests) {
    test::wash_work_area(Side{});
    Random random(0x3003);
    for (int round = 0; round < 300; ++round) {
        const int n = round % 50 == 49 ? random.between(35, 40) : random.between(1, 8);
        invert_one<Side>(digests["inv"], random, round, n, HOSTILE[round % 4]);
    }
    orders<Side>(digests, "1 to 4", 1, 4, 200);
    orders<Side>(digests, "5 to 16", 5, 16, 80);
    orders<Side>(digests, "17 to 40", 17, 40, 24);
}

IV_DIGESTS_OF(digest_inverse);

} // namespace digests
