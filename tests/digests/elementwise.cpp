// Everything that sees storage as a flat array: arithmetic, transpose, fills.
#include "digests/corpus.h"

namespace digests {
namespace {

using model::Mat;
using test::Random;

template <class Side>
void small_shapes(Digests& digests, int type, const std::string& suffix) {
    Random random(0x2002);
    for (int round = 0; round < 120; ++round) {
        const float hostile = HOSTILE[round % 4];
        const int rows = random.between(1, 12);
        const int cols = random.between(1, 12);
        const Values a(random, type, rows, cols, hostile);
        Values b(random, type, rows, cols, hostile);
        const Values d(random, type, rows, cols, 0.0f);
        const auto add_to = [&](const char* name) {
            Digest& digest = digests[name + suffix];
            digest.begin(round_of(round, rows, cols));
            digest.add(d.mat());
        };
        Side::neg(a.mat(), d.mat());
        add_to("neg");
        Side::scale(b.data(), a.mat(), d.mat());
        add_to("scale");
        Side::add(a.mat(), b.mat(), d.mat());
        add_to("add");
        Side::sub(a.mat(), b.mat(), d.mat());
        add_to("sub");
    }
}

int with_channels(int depth, int channels) {
    return depth | (channels - 1) << 3;
}

/// Every depth, with channels, at any address; the destination apart from the sources, in their
/// place, or some values before or behind.
template <class Side>
void overlaps(Digests& digests, int depth) {
    Random random(0x8008);
    for (int round = 0; round < 80; ++round) {
        const float hostile = HOSTILE[round % 4] * 2.0f;
        const int type = with_channels(depth, random.between(1, 4));
        const int rows = random.between(1, 9);
        const int cols = random.between(1, 17);
        constexpr int most = 6;
        const int shift = random.between(0, most);
        const int misaligned = random.between(0, 15);
        for (const char* name : {"neg", "scale", "add", "sub"}) {
            Values a(random, type, rows, cols, hostile, misaligned, most);
            Values b(random, type, rows, cols, hostile, misaligned / 2);
            const Values apart(random, type, rows, cols, 0.0f, misaligned / 3);
            const auto shifted = [&](int by) {
                return model::header(type, rows, cols, a.data() + by * model::value_size(type));
            };
            const bool behind = round % 3 == 2;
            const Mat source = behind ? shifted(0) : shifted(shift);
            const Mat d = round % 3 == 0 ? apart.mat() : behind ? shifted(shift) : shifted(0);
            if (name[0] == 'n') {
                Side::neg(source, d);
            } else if (name == std::string("scale")) {
                Side::scale(b.data(), source, d);
            } else if (name[0] == 'a') {
                Side::add(round % 2 ? b.mat() : source, round % 2 ? source : b.mat(), d);
            } else {
                Side::sub(round % 2 ? b.mat() : source, round % 2 ? source : b.mat(), d);
            }
            Digest& digest = digests[std::string("elementwise/") + DEPTHS[depth] + '/' + name];
            digest.begin(round_of(round, rows, cols, model::channels_of(type)) + ", " +
                         std::to_string(shift) + (behind ? " values behind" : " values before"));
            if (name[0] == 'n') {
                digest.add_copied(d);
            } else {
                digest.add(d);
            }
        }
    }
}

template <class Side>
void transposes(Digests& digests, int depth) {
    Digest& digest = digests[std::string("transpose/") + DEPTHS[depth]];
    Random random(0x9009);
    for (int round = 0; round < 60; ++round) {
        const int type = with_channels(depth, round % 2 ? 1 : random.between(1, 9));
        const int rows = random.between(1, round % 8 == 7 ? 70 : 20);
        const int cols = round % 4 == 0 ? rows : random.between(1, 35);
        const Values a(random, type, rows, cols, 0.1f, random.between(0, 15));
        const Values apart(random, type, cols, rows, 0.0f, random.between(0, 15));
        const Mat& d = round % 4 == 0 ? a.mat() : apart.mat();
        Side::transpose(a.mat(), d);
        digest.begin(round_of(round, rows, cols, model::channels_of(type)));
        digest.add_copied(d);
    }
}

/// The storage around what a fill writes counts, too.
template <class Side>
void fills(Digests& digests, int depth) {
    Random random(0xa00a);
    for (int round = 0; round < 60; ++round) {
        const int channels = random.between(1, 3);
        const int type = with_channels(depth, channels);
        const int rows = random.between(0, 20);
        const int cols = random.between(0, 20);
        const int beyond = (cols + 1) * channels; // as many as an empty matrix may write
        const int misaligned = random.between(0, 15);
        for (const char* name : {"identity", "diagonal", "one", "zero"}) {
            Values d(random, type, rows, cols, 0.1f, misaligned, beyond);
            Values diagonal(random, type, 1, 20, 0.3f, misaligned / 2);
            if (name[0] == 'i') {
                Side::setidentity(d.mat());
            } else if (name[0] == 'd') {
                Side::setdiagonal(diagonal.data(), d.mat());
            } else if (name[0] == 'o') {
                Side::setone(d.mat());
            } else {
                Side::setzero(d.mat());
            }
            Digest& digest = digests[std::string("fill/") + DEPTHS[depth] + '/' + name];
            digest.begin(round_of(round, rows, cols, channels));
            const int values = rows * cols * channels + beyond;
            digest.add_copied(model::header(depth, 1, values, d.data()));
        }
    }
}

} // namespace

template <class Side>
void digest_elementwise(Digests& digests) {
    small_shapes<Side>(digests, model::F32, "_f32");
    small_shapes<Side>(digests, model::F64, "_f64");
    for (int depth = 0; depth < 8; ++depth) {
        overlaps<Side>(digests, depth);
        transposes<Side>(digests, depth);
        fills<Side>(digests, depth);
    }
}

IV_DIGESTS_OF(digest_elementwise);

} // namespace digests
