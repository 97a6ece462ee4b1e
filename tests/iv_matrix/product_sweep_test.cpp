// Products of every shape to 40 and of larger odd ones, in every mode and depth, with the kernels of
// every level against the model. No operand may be left by a byte: they lie between forbidden pages.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <vector>

#include "model/twin.h"
#include "support/forbidden_page.h"
#include "support/levels.h"
#include "support/matrix.h"

namespace {

using iv::internal::Kernels;
using model::Mat;
using test::Random;

/// Whatever a test visits by number: all of it, or a share spread over it; beyond all, again.
template <class Visit>
void sweep(int count, Visit visit) {
    constexpr int stride = 1039; // prime to every count here, so that all are met
    const int visits = test::rounds(std::max(1, static_cast<int>(count * LIBIV_SWEEP_SHARE)));
    for (int n = 0; n < visits && !testing::Test::HasFailure(); ++n) {
        visit(static_cast<int>(std::int64_t{n} * stride % count), n / count);
    }
}

enum Mode { MUL, MUL_FIRST, MUL_SECOND, MULADD, MULADD_SECOND, SUBMUL, SUBMUL_IDENTITY, MODES };

struct Shape {
    int rows, inner, cols;
};

template <class Side>
void compute(Side side, Mode mode, const Mat& a, const Mat& b, const Mat& e, const Mat& d) {
    switch (mode) {
        case MUL:
            return side.mul(a, b, d, 0);
        case MUL_FIRST:
            return side.mul(a, b, d, model::TRANSPOSED_FIRST);
        case MUL_SECOND:
            return side.mul(a, b, d, model::TRANSPOSED_SECOND);
        case MULADD:
            return side.muladd(a, b, e, d, 0);
        case MULADD_SECOND:
            return side.muladd(a, b, e, d, model::TRANSPOSED_SECOND);
        case SUBMUL:
            return side.submul(&e, a, b, d, 0);
        default:
            return side.submul(nullptr, a, b, d, model::IDENTITY_FIRST);
    }
}

/// Values of one kind, ready to be copied from any place.
class Pool {
  public:
    enum Kind { USUAL, HOSTILE, TINY, ZEROS, KINDS };

    Pool(Random& random, int type, Kind kind)
        : size_(static_cast<std::size_t>(model::value_size(type))) {
        bytes_.resize(COUNT * size_);
        for (std::size_t i = 0; i < COUNT; ++i) {
            unsigned char* value = bytes_.data() + i * size_;
            test::random_value(random, type, kind == HOSTILE ? 0.01f : 0.0f, value);
            model::with_depth(type, [&](auto zero) { turn(random, kind, zero, value); });
        }
    }

    void copy(Random& random, unsigned char* to, std::size_t bytes) const {
        while (bytes > 0) {
            const std::size_t first = random.bits() % COUNT * size_;
            const std::size_t part = std::min(bytes, bytes_.size() - first);
            std::memcpy(to, bytes_.data() + first, part);
            to += part;
            bytes -= part;
        }
    }

  private:
    static constexpr std::size_t COUNT = 5000;

    template <class T>
    static void turn(Random& random, Kind kind, T, unsigned char* value) {
        if constexpr (std::is_floating_point_v<T>) {
            if (kind == TINY) { // products and sums are subnormal
                const T scale = sizeof(T) == 4 ? static_cast<T>(1e-20) : static_cast<T>(1e-160);
                model::store(value, 0, model::load<T>(value, 0) * scale);
            } else if (kind == ZEROS) {
                const T choices[] = {T{0}, -T{0}, T{0}, -T{0}, T{1}, T{-1}};
                model::store(value, 0, choices[random.bits() % std::size(choices)]);
            }
        }
    }

    std::size_t size_;
    std::vector<unsigned char> bytes_;
};

/// Storage for one operand, which lies at either end of its memory or at any address before the end.
class Place {
  public:
    explicit Place(std::size_t room) : memory_(room + MARGIN) {
        std::memset(memory_.begin(), PATTERN,
                    static_cast<std::size_t>(memory_.end() - memory_.begin()));
    }

    Mat put(int type, int rows, int cols, unsigned number) {
        size_ = static_cast<std::size_t>(rows * cols * model::value_size(type));
        if (number % 4 == 1) {
            data_ = memory_.begin();
        } else {
            data_ = memory_.end(size_ + (number % 4 == 3 ? number / 4 % MARGIN : 0));
        }
        return model::header(type, rows, cols, data_);
    }

    std::size_t size() const { return size_; }

    /// Whether the bytes around the operand are as they were.
    bool intact() const {
        const auto untouched = [](unsigned char byte) { return byte == PATTERN; };
        const auto before = std::min<std::ptrdiff_t>(MARGIN, data_ - memory_.begin());
        const auto behind = std::min<std::ptrdiff_t>(MARGIN, memory_.end(size_) - data_);
        return std::all_of(data_ - before, data_, untouched) &&
               std::all_of(data_ + size_, data_ + size_ + behind, untouched);
    }

    void forget() { std::memset(data_, PATTERN, size_); }

  private:
    static constexpr unsigned MARGIN = 64;
    static constexpr unsigned char PATTERN = 0xa5;

    test::ForbiddenPage memory_;
    unsigned char* data_ = nullptr;
    std::size_t size_ = 0;
};

/// The operands of one product after the other.
class Bench {
  public:
    Bench(int type, std::uint64_t salt, std::size_t room)
        : type_(type),
          random_(test::seed() + salt),
          a_(room),
          b_(room),
          e_(room),
          d_(room),
          expected_(room) {
        for (int kind = 0; kind < Pool::KINDS; ++kind) {
            pools_.emplace_back(random_, type, static_cast<Pool::Kind>(kind));
        }
    }

    /// Computes one product with the model, and with each level that the CPU runs.
    void compare(Mode mode, const Shape& n) {
        const unsigned number = count_++;
        const Pool& pool = pools_[number / 3 % pools_.size()];
        const bool first = mode == MUL_FIRST;
        const bool second = mode == MUL_SECOND || mode == MULADD_SECOND;
        const auto bits = [&] { return static_cast<unsigned>(random_.bits() >> 40); };
        const Mat a = a_.put(type_, first ? n.inner : n.rows, first ? n.rows : n.inner, number);
        const Mat b = b_.put(type_, second ? n.cols : n.inner, second ? n.inner : n.cols, bits());
        const Mat e = e_.put(type_, n.rows, n.cols, bits());
        const Mat d = d_.put(type_, n.rows, n.cols, bits());
        const Mat expected = expected_.put(type_, n.rows, n.cols, 0);
        pool.copy(random_, a.data, a_.size());
        pool.copy(random_, b.data, b_.size());
        pool.copy(random_, e.data, e_.size());
        compute(model::Scalar{}, mode, a, b, e, expected);
        const bool in_place = random_.chance(0.3f); // sums start in the destination itself
        for (const Kernels* level : test::levels()) {
            if (!test::runs(*level)) {
                continue;
            }
            const test::ForcedLevel forced(*level);
            std::memcpy(d.data, e.data, d_.size());
            compute(model::Library{}, mode, a, b, in_place ? d : e, d);
            if (std::memcmp(d.data, expected.data, d_.size()) != 0) {
                test::expect_same_values(expected, d, test::NanRule::PRODUCED);
            }
            EXPECT_TRUE(d_.intact()) << "bytes around the destination";
            if (testing::Test::HasFailure()) {
                FAIL() << "level " << level->level << ", mode " << mode << ", " << n.rows << " x "
                       << n.inner << " x " << n.cols << ", product " << number
                       << (in_place ? ", in place" : "");
            }
        }
        d_.forget();
        a_.forget();
        b_.forget();
        e_.forget();
    }

  private:
    int type_;
    Random random_;
    std::vector<Pool> pools_;
    Place a_, b_, e_, d_, expected_;
    unsigned count_ = 0;
};

template <typename D>
class ProductSweep : public ::testing::Test {};
TYPED_TEST_SUITE(ProductSweep, test::AllDepths, test::DepthNames);

/// All pairs of rows and columns, the inner length cycling; LIBIV_TEST_SCALE=40 makes it all triples.
TYPED_TEST(ProductSweep, EveryShapeTo40InEveryModeGivesTheModelsBits) {
    constexpr int longest = 40;
    Bench bench(TypeParam::code, 200 + TypeParam::code, longest * longest * sizeof(f64_t));
    sweep(longest * longest, [&](int pair, int pass) {
        for (int mode = 0; mode < MODES; ++mode) {
            const int rows = 1 + pair / longest;
            const int cols = 1 + pair % longest;
            const int inner = 1 + (pair + rows + 13 * mode + pass) % longest;
            bench.compare(static_cast<Mode>(mode), {rows, inner, cols});
        }
    });
}

TYPED_TEST(ProductSweep, LargerOddShapesInEveryModeGiveTheModelsBits) {
    const Shape shapes[] = {
        {65, 130, 257}, {257, 65, 130}, {1, 300, 1},  {300, 1, 300}, {1, 1, 1000},    {1000, 1, 1},
        {33, 1000, 17}, {4, 256, 65},   {5, 257, 64}, {3, 513, 66},  {129, 128, 127}, {2, 770, 41},
        {1, 129, 300},  {300, 129, 1},  {8, 255, 96}, {600, 26, 34}, {7, 47, 65}};
    Bench bench(TypeParam::code, 210 + TypeParam::code, 300 * 300 * sizeof(f64_t));
    const int count = static_cast<int>(std::size(shapes));
    sweep(count * MODES,
          [&](int n, int) { bench.compare(static_cast<Mode>(n % MODES), shapes[n / MODES]); });
}

} // namespace
