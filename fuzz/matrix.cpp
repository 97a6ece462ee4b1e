// Sequences of matrix calls on one arena of bytes, made by the library on one copy and by the model
// on another. Headers, types, flags, steps and overlaps are the input's; what the contract leaves
// out, such as a product that overwrites its factor, is passed over.
#include <gtest/gtest.h>

#include <array>
#include <climits>
#include <initializer_list>
#include <memory>
#include <optional>
#include <string>

#include "fresh_library.h"
#include "model/twin.h"
#include "support/bits.h"
#include "support/output_capture.h"
#include "targets.h"

namespace fuzz {
namespace {

using model::Library;
using model::Mat;
using model::Scalar;
using test::NanRule;
using Size = std::int64_t;

constexpr int LARGEST_ARENA = 8192;
/// Values touched by the calls of one input, about, so that no input takes long.
constexpr Size MOST_WORK = 20000;

/// A matrix somewhere in the arena.
struct Operand {
    Mat mat{};
    Size extent = 0; ///< bytes that a call may touch
    Size offset = 0;
};

/// Bytes on the heap, right behind which an address sanitizer watches. In front of them, within the
/// same block, are up to 15 more, so that they start at any alignment.
class Arena {
  public:
    Arena(Size size, Size misaligned)
        : front_(misaligned),
          size_(front_ + size),
          bytes_(std::make_unique<unsigned char[]>(static_cast<std::size_t>(size_))) {}

    unsigned char* data() { return bytes_.get() + front_; }
    bool same_bytes(const Arena& other) const {
        return std::memcmp(bytes_.get(), other.bytes_.get(), static_cast<std::size_t>(size_)) == 0;
    }

  private:
    Size front_;
    Size size_;
    std::unique_ptr<unsigned char[]> bytes_;
};

Size value_bytes(int type) {
    return model::value_size(type);
}

Size flat_bytes(const Mat& mat) {
    return std::max(0, model::flat_count(mat)) * value_bytes(mat.type);
}

/// The values of a matrix, as far as a call may touch them, in one row.
Operand values_of(const Operand& operand) {
    const Size size = value_bytes(operand.mat.type);
    const Size count = std::min(flat_bytes(operand.mat), operand.extent) / size;
    const int type = model::depth_of(operand.mat.type);
    return {model::header(type, 1, static_cast<int>(count), nullptr), operand.extent,
            operand.offset};
}

/// Bytes of rows x cols values, none where a length is not positive.
Size area_bytes(const Mat& mat) {
    const Size values = mat.rows > 0 && mat.cols > 0 ? Size{mat.rows} * mat.cols : 0;
    return std::min(values, Size{LARGEST_ARENA + 1}) * value_bytes(mat.type);
}

/// Whether a walk along rows and columns takes long, even where it comes by nothing.
bool is_huge(const Mat& mat) {
    return std::max(std::abs(Size{mat.rows}), std::abs(Size{mat.cols})) > 1000;
}

/// Bytes that a fill of the diagonal walks over.
Size diagonal_bytes(const Mat& mat) {
    const Size rows = mat.rows;
    const Size cols = mat.cols;
    const Size n = std::min(rows, cols);
    Size elements = n > 1 ? 1 + (n - 1) * (cols + 1) : 1;
    elements += std::max(Size{0}, rows * cols - ((n - 1) * cols + n));
    return elements * model::channels_of(mat.type) * value_bytes(mat.type);
}

class Machine {
  public:
    explicit Machine(Bytes& in)
        : in_(in),
          size_(in.between(0, LARGEST_ARENA)),
          misaligned_(in.between(0, 15)),
          library_(size_, misaligned_),
          model_(size_, misaligned_) {
        fill(0, size_);
    }

    void run() {
        while (!in_.empty() && work_ < MOST_WORK) {
            call();
        }
    }

  private:
    using Call = void (Machine::*)();

    void call() {
        static constexpr Call CALLS[] = {
            &Machine::product,     &Machine::product,     &Machine::product, &Machine::elementwise,
            &Machine::elementwise, &Machine::elementwise, &Machine::fills,   &Machine::transpose,
            &Machine::transpose,   &Machine::inverse,     &Machine::inverse, &Machine::print,
            &Machine::init_header, &Machine::create,      &Machine::fixed3,  &Machine::poke,
            &Machine::refill};
        description_ = nullptr;
        spoiled_ = false;
        work_ += 50;
        (this->*in_.one_of(CALLS))();
    }

    // What the input decides.

    int type() {
        const unsigned kind = in_.byte();
        unsigned code = kind % 8;
        if (kind >= 128) {
            code |= in_.byte() % 32 << 3;
        }
        if (kind >= 224) {
            code |= in_.raw<std::uint32_t>() & 0xffffff00u;
        }
        return static_cast<int>(code);
    }

    /// One channel, but rarely.
    int product_type() {
        const int code = type();
        return in_.chance(16) ? code : code & ~0xf8;
    }

    /// Mostly up to 12, rarely below 0, up to 45 or so long that a kernel cuts it into blocks.
    int length() {
        const int kind = in_.between(0, 255);
        if (kind < 208) {
            return kind % 13;
        }
        if (kind < 248) {
            return kind < 215 ? 207 - kind : kind - 202;
        }
        return in_.between(40, 700);
    }

    /// Any lengths, or huge ones whose count of values wraps around to a small one.
    Mat any_shape(int code) {
        if (!in_.chance(16)) {
            const int rows = length();
            return model::header(code, rows, length(), nullptr);
        }
        const std::uint32_t rows = in_.raw<std::uint32_t>() | 1;
        std::uint32_t inverse = rows; // modulo 2^32, by Newton's iteration
        for (int i = 0; i < 4; ++i) {
            inverse *= 2 - rows * inverse;
        }
        const std::uint32_t cols = in_.byte() * inverse;
        return model::header(code, static_cast<int>(rows), static_cast<int>(cols), nullptr);
    }

    int any_step() { return in_.between(-40, 140); }

    /// Rarely changes one field of one operand, so that it fits no other any more.
    void spoil(std::initializer_list<Operand*> operands) {
        if (!in_.chance(24)) {
            return;
        }
        Mat& mat = (*(operands.begin() + in_.byte() % operands.size()))->mat;
        const Mat before = mat;
        const unsigned field = in_.byte();
        int& length = field % 2 == 0 ? mat.rows : mat.cols;
        if (field % 3 == 0) {
            mat.type ^= 1 << in_.byte() % 31;
        } else if (field < 200) {
            length = model::sum(length, in_.between(0, 1) * 2 - 1);
        } else {
            length = in_.raw<int>();
        }
        spoiled_ = mat.type != before.type || mat.rows != before.rows || mat.cols != before.cols;
    }

    /// A place for `bytes` within begin..end, or nothing.
    std::optional<Size> place(Size bytes, Size begin, Size end) {
        const Size slack = end - begin - bytes;
        if (slack < 0) {
            return std::nullopt;
        }
        const unsigned kind = in_.byte();
        if (kind < 80) { // flush with the end, where reading too far is noticed
            return begin + slack;
        }
        return begin + (kind < 128 ? 0 : in_.raw<std::uint16_t>() % (slack + 1));
    }

    /// Places operands anywhere in the arena, often near the first one. False: no room.
    bool place(std::initializer_list<Operand*> operands) {
        const Operand* first = *operands.begin();
        for (Operand* operand : operands) {
            const auto found = place(operand->extent, 0, size_);
            if (!found) {
                return false;
            }
            operand->offset = *found;
            if (operand != first && in_.chance(128)) {
                const Size step = in_.chance(64) ? 1 : value_bytes(operand->mat.type);
                const Size near = first->offset + in_.between(-12, 12) * step;
                operand->offset = std::clamp(near, Size{0}, size_ - operand->extent);
            }
        }
        return true;
    }

    // Calls on both sides.

    static Mat at(Arena& arena, const Operand& operand) {
        Mat mat = operand.mat;
        mat.data = arena.data() + operand.offset;
        return mat;
    }

    /// `work(side, at)` with the library and with the model; then everything has to be the same.
    /// The rule concerns the values of `dst`.
    template <class Work>
    void run(const char* description, const Operand& dst, NanRule rule, Work work) {
        description_ = description;
        work(Library{}, [this](const Operand& operand) { return at(library_, operand); });
        work(Scalar{}, [this](const Operand& operand) { return at(model_, operand); });
        compare(dst, rule);
    }

    void compare(const Operand& dst, NanRule rule) {
        if (library_.same_bytes(model_)) {
            return;
        }
        if (rule == NanRule::PRODUCED && !spoiled_) {
            test::adopt_nans(at(library_, values_of(dst)), at(model_, values_of(dst)));
        }
        if (!library_.same_bytes(model_)) {
            report(dst);
        }
    }

    /// Fails on the first difference.
    void report(const Operand& dst) {
        Size i = -misaligned_;
        while (library_.data()[i] == model_.data()[i]) {
            ++i;
        }
        const Mat& mat = dst.mat;
        ADD_FAILURE() << description_ << " to type " << mat.type << ", " << mat.rows << " x "
                      << mat.cols << " (" << (spoiled_ ? "does not fit" : "fits") << "), level "
                      << iv::internal::kernels().level << ": byte " << i - dst.offset
                      << " from the start of the destination is " << +library_.data()[i]
                      << ", expected " << +model_.data()[i];
    }

    /// Whether a value of `dst` may be read back through `src` at another alignment: a NaN that
    /// arithmetic produced is then a number of any value.
    static bool reads_parts(const Operand& src, const Operand& dst) {
        const Size size = value_bytes(dst.mat.type);
        const bool apart =
            src.offset + src.extent <= dst.offset || dst.offset + dst.extent <= src.offset;
        return !apart && (src.offset - dst.offset) % size != 0;
    }

    void elementwise() {
        const int operation = in_.between(0, 3); // neg, scale, add, sub
        Operand src1{any_shape(type())};
        src1.extent = flat_bytes(src1.mat);
        Operand src2 = src1;
        Operand dst = src1;
        if (operation == 1) {
            src2.extent = value_bytes(src1.mat.type); // the factor
        }
        if (!place({&src1, &src2, &dst})) {
            return;
        }
        for (Operand* operand : {&src1, &src2, &dst}) {
            operand->mat.step = any_step();
        }
        if (operation >= 2) {
            spoil({&src1, &src2, &dst});
        } else {
            spoil({&src1, &dst});
        }
        work_ += src1.extent;
        const auto apply = [&](auto side, auto at) {
            switch (operation) {
                case 0:
                    return side.neg(at(src1), at(dst));
                case 1:
                    return side.scale(at(src2).data, at(src1), at(dst));
                case 2:
                    return side.add(at(src1), at(src2), at(dst));
                default:
                    return side.sub(at(src1), at(src2), at(dst));
            }
        };
        static constexpr const char* NAMES[] = {"neg", "scale", "add", "sub"};
        const bool parts = reads_parts(src1, dst) || (operation >= 2 && reads_parts(src2, dst));
        if (operation == 0 || spoiled_ || !parts) {
            const NanRule rule = operation == 0 ? NanRule::COPIED : NanRule::PRODUCED;
            return run(NAMES[operation], dst, rule, apply);
        }
        apply(Library{}, [this](const Operand& operand) { return at(library_, operand); });
        apply(Scalar{}, [this](const Operand& operand) { return at(model_, operand); });
        if (test::holds_nan(at(model_, values_of(dst)))) {
            std::memcpy(at(model_, dst).data, at(library_, dst).data,
                        static_cast<std::size_t>(dst.extent));
        }
        description_ = NAMES[operation];
        compare(dst, NanRule::PRODUCED);
    }

    void fills() {
        const int operation = in_.between(0, 3); // zero, identity, diagonal, one
        Operand mat{any_shape(type())};
        mat.mat.step = operation == 0 ? in_.between(0, 140) : any_step();
        Operand values = mat;
        values.extent = value_bytes(mat.mat.type);
        if (operation == 0) {
            mat.extent = model::product32(mat.mat.rows, mat.mat.step);
        } else if (operation == 3) {
            mat.extent = flat_bytes(mat.mat);
        } else {
            if (is_huge(mat.mat)) {
                return;
            }
            mat.extent = diagonal_bytes(mat.mat);
            values.extent *= std::max(1, std::min(mat.mat.rows, mat.mat.cols));
        }
        if (mat.extent < 0 || !place({&mat, &values})) {
            return;
        }
        work_ += mat.extent;
        static constexpr const char* NAMES[] = {"setzero", "setidentity", "setdiagonal", "setone"};
        run(NAMES[operation], mat, NanRule::COPIED, [&](auto side, auto at) {
            switch (operation) {
                case 0:
                    return side.setzero(at(mat));
                case 1:
                    return side.setidentity(at(mat));
                case 2:
                    return side.setdiagonal(at(values).data, at(mat));
                default:
                    return side.setone(at(mat));
            }
        });
    }

    void transpose() {
        Operand src{any_shape(type())};
        src.extent = area_bytes(src.mat) * model::channels_of(src.mat.type);
        Operand dst{model::header(src.mat.type, src.mat.cols, src.mat.rows, nullptr), src.extent};
        if (is_huge(src.mat) || !place({&src, &dst})) {
            return;
        }
        src.mat.step = any_step();
        dst.mat.step = any_step();
        spoil({&src, &dst});
        work_ += src.extent;
        run("transpose", dst, NanRule::COPIED,
            [&](auto side, auto at) { side.transpose(at(src), at(dst)); });
    }

    enum Product { MUL, MULADD, SUBMUL };

    /// dst = a b, addend + a b, addend - a b
    void product() {
        const auto kind = static_cast<Product>(in_.between(MUL, SUBMUL));
        const int code = product_type();
        const int flags = in_.chance(32) ? in_.raw<int>() : in_.between(0, 31);
        const bool first = kind == MUL && (flags & 1) != 0;
        const bool second = kind != SUBMUL && !first && (flags & 2) != 0;
        const bool identity = kind == SUBMUL && (flags & 16) != 0;
        const int rows = length();
        const int cols = length();
        const int inner = kind == MUL ? std::max(1, length()) : length();
        const auto shaped = [code](bool transposed, int r, int c) {
            return Operand{model::header(code, transposed ? c : r, transposed ? r : c, nullptr)};
        };
        Operand a = shaped(first, rows, inner);
        Operand b = shaped(second, inner, cols);
        Operand addend = shaped(false, rows, cols);
        Operand dst = addend;
        for (Operand* operand : {&a, &b, &addend, &dst}) {
            operand->extent = area_bytes(operand->mat);
            operand->mat.step = in_.chance(64) ? any_step() : operand->mat.step;
        }
        if ((kind == MULADD && !second) || (kind == SUBMUL && !identity)) {
            const Size copied =
                model::product32(rows, kind == MULADD ? b.mat.step : addend.mat.step);
            if (copied < 0) {
                return;
            }
            addend.extent = std::max(addend.extent, copied);
            dst.extent = std::max(dst.extent, copied);
        } else if (identity) {
            dst.extent = std::max(dst.extent, diagonal_bytes(dst.mat));
        }
        if (!place_product({&a, &b, &addend}, addend, dst)) {
            return;
        }
        const bool null = identity && in_.chance(128);
        if (kind == MUL) {
            spoil({&a, &b, &dst});
        } else if (identity) {
            addend.mat.rows = length(); // not looked at
            spoil({&a, &b, &dst});
        } else {
            spoil({&a, &b, &addend, &dst});
        }
        work_ += Size{std::max(0, rows)} * std::max(1, cols) * std::max(1, inner);
        static constexpr const char* NAMES[] = {"mul", "muladd", "submul"};
        const NanRule rule = inner > 0 ? NanRule::PRODUCED : NanRule::COPIED;
        run(NAMES[kind], dst, rule, [&](auto side, auto at) {
            const Mat minuend = at(addend);
            switch (kind) {
                case MUL:
                    return side.mul(at(a), at(b), at(dst), flags);
                case MULADD:
                    return side.muladd(at(a), at(b), at(addend), at(dst), flags);
                case SUBMUL:
                    return side.submul(null ? nullptr : &minuend, at(a), at(b), at(dst), flags);
            }
        });
    }

    /// The result lies at one end of the arena, what is read anywhere in the rest. The addend may be
    /// the result.
    bool place_product(std::initializer_list<Operand*> sources, Operand& addend, Operand& dst) {
        if (dst.extent > size_) {
            return false;
        }
        const bool at_end = in_.chance(128);
        dst.offset = at_end ? size_ - dst.extent : 0;
        const Size begin = at_end ? 0 : dst.extent;
        const Size end = at_end ? dst.offset : size_;
        for (Operand* source : sources) {
            const auto found = place(source->extent, begin, end);
            if (!found) {
                return false;
            }
            source->offset = *found;
        }
        if (in_.chance(64)) {
            addend.offset = dst.offset;
        }
        return true;
    }

    void inverse() {
        const int code = in_.chance(16) ? type() : +model::F32;
        const int n = length();
        const int cols = in_.chance(16) ? length() : n;
        Operand src{model::header(code, n, cols, nullptr), 4 * Size{n} * std::max(0, n)};
        Operand dst = src;
        if (!place({&src, &dst})) {
            return;
        }
        Operand result = dst; // square whatever the columns
        result.mat.cols = n;
        if (in_.chance(64)) { // zero pivots on the way
            make_sparse(src);
        }
        spoil({&src, &dst});
        work_ += n > 0 && n <= 40 ? Size{n} * n * n : 0;
        int status[2];
        int* next = status;
        run("inv", result, NanRule::PRODUCED,
            [&](auto side, auto at) { *next++ = side.inv(at(src), at(dst)); });
        EXPECT_EQ(status[0], status[1]) << "of an inverse of order " << n;
    }

    /// Small whole numbers, most of them zero.
    void make_sparse(const Operand& operand) {
        test::Random random(in_.raw<std::uint16_t>());
        for (Size i = 0; i < operand.extent / 4; ++i) {
            const auto value = static_cast<float>(random.chance(0.5f) ? random.between(-1, 1) : 0);
            store_both(operand.offset + 4 * i, &value, sizeof value);
        }
    }

    /// At most once an input: standard output is a file meanwhile.
    void print() {
        const int code = type();
        const int rows = in_.between(-1, 6);
        const int cols = in_.between(-1, 6);
        Operand mat{model::header(code, rows, cols, nullptr)};
        mat.mat.step = in_.chance(128) ? any_step() : mat.mat.step;
        const Size pitch = mat.mat.step / model::value_size(mat.mat.type);
        const Size last = pitch * std::max(0, mat.mat.rows - 1);
        const Size values = std::abs(last) + std::max(0, mat.mat.cols);
        mat.extent = values * value_bytes(mat.mat.type);
        if (printed_ || !place({&mat})) {
            return;
        }
        printed_ = true;
        if (last < 0) {
            mat.offset -= last * value_bytes(mat.mat.type);
        }
        char name[] = "A %d";
        char* const shown = in_.chance(128) ? nullptr : name;
        model::Record record(at(library_, mat));
        std::string text;
        {
            test::OutputCapture capture;
            iv_mat_print(shown, record.get());
            text = capture.text();
        }
        EXPECT_EQ(model::print(shown, at(model_, mat)), text);
    }

    void init_header() {
        const int rows = in_.raw<int>();
        const int cols = in_.raw<int>();
        const int code = in_.raw<int>();
        iv_mat_t record;
        EXPECT_EQ(iv_mat_initheader(&record, rows, cols, code, library_.data()), &record);
        expect_header(model::header(code, rows, cols, library_.data()), record);
        EXPECT_EQ(iv_mat_initheader(nullptr, rows, cols, code, library_.data()), nullptr);
        iv_mat_release(&record);
    }

    static void expect_header(const Mat& expected, const iv_mat_t& actual) {
        EXPECT_EQ(expected.type, actual.type);
        EXPECT_EQ(expected.rows, actual.rows);
        EXPECT_EQ(expected.cols, actual.cols);
        EXPECT_EQ(expected.step, actual.step);
        EXPECT_EQ(expected.data, actual.data.p);
    }

    /// A matrix of the library's own holds as many bytes as its shape says, and no fewer are freed.
    void create() {
        const Mat shape = any_shape(type());
        const int bytes = model::product32(
            model::product32(model::channels_of(shape.type) * model::value_size(shape.type),
                             shape.rows),
            shape.cols);
        if (shape.rows < 0 || shape.cols < 0 || bytes < 0 || bytes > LARGEST_ARENA) {
            return;
        }
        iv_mat_t* mat = iv_mat_create(shape.rows, shape.cols, shape.type);
        ASSERT_NE(mat, nullptr);
        expect_header(model::header(shape.type, shape.rows, shape.cols,
                                    reinterpret_cast<unsigned char*>(mat + 1)),
                      *mat);
        std::memset(mat->data.p, 0x5a, static_cast<std::size_t>(bytes));
        if (in_.chance(128)) {
            iv_mat_t elsewhere = *mat;
            iv_mat_release(&elsewhere);
        }
        iv_mat_release(mat);
        iv_mat_release(nullptr);
    }

    /// One of the nine fixed-size kernels, on values of the arena.
    void fixed3() {
        Operand a{model::header(model::F32, 3, 3, nullptr), 36};
        Operand b = a;
        Operand dst = a;
        if (!place({&a, &b, &dst})) {
            return;
        }
        const auto m = load_array<model::Mat3>(a);
        const auto n = load_array<model::Mat3>(b);
        const auto both = [&](auto kernel, bool copied = false) {
            auto actual = kernel(Library{});
            auto expected = kernel(Scalar{});
            float values[2][9] = {};
            std::memcpy(values[0], &actual, sizeof actual);
            std::memcpy(values[1], &expected, sizeof expected);
            for (int i = 0; i < 9; ++i) {
                const float is = values[0][i];
                const float wanted = values[1][i];
                EXPECT_TRUE(copied ? test::bits(is) == test::bits(wanted)
                                   : test::same_number(is, wanted))
                    << "value " << i << " of a fixed-size kernel\n  is       " << test::show(is)
                    << "\n  expected " << test::show(wanted);
            }
            store_both(dst.offset, values[0], sizeof values[0]);
        };
        switch (in_.between(0, 8)) {
            case 0:
                return both([&](auto side) { return side.matmult(m, n); });
            case 1:
                return both([&](auto side) { return side.matmult_t(m, n); });
            case 2:
                return both([&](auto side) { return side.matmult_vec(m, n[0]); });
            case 3:
                return both([&](auto side) { return side.matmult_tvec(m, n[0]); });
            case 4:
                return both([&](auto side) { return side.matneg(m); }, true);
            case 5:
                return both([&](auto side) { return side.matdet(m); });
            case 6:
                return both([&](auto side) { return side.vecoutp(m[0], n[0]); });
            case 7:
                return both([&](auto side) { return side.veccrossp(m[0], n[0]); });
            default:
                return both([&](auto side) { return side.vecdotp(m[0], n[0]); });
        }
    }

    template <class Array>
    Array load_array(const Operand& operand) {
        Array array;
        std::memcpy(&array, model_.data() + operand.offset, sizeof array);
        return array;
    }

    // The arena's contents.

    void store_both(Size offset, const void* bytes, std::size_t size) {
        std::memcpy(library_.data() + offset, bytes, size);
        std::memcpy(model_.data() + offset, bytes, size);
    }

    /// One float of the input's choice.
    void poke() {
        if (const auto offset = place(sizeof(float), 0, size_)) {
            const float value = in_.number();
            store_both(*offset, &value, sizeof value);
        }
    }

    void refill() {
        const Size bytes = in_.between(0, LARGEST_ARENA) % (size_ + 1);
        fill(*place(bytes, 0, size_), bytes);
    }

    /// Some values of a depth, over and over.
    void fill(Size offset, Size bytes) {
        constexpr Size PERIOD = 67;
        const int code = in_.between(0, 7);
        const float hostile = in_.chance(64) ? 0.1f : 0.0f;
        test::Random random(in_.raw<std::uint16_t>());
        unsigned char values[PERIOD * 8];
        const Size size = value_bytes(code);
        for (Size i = 0; i < PERIOD; ++i) {
            test::random_value(random, code, hostile, values + i * size);
        }
        while (bytes > 0) {
            const Size some = std::min(bytes, PERIOD * size);
            store_both(offset, values, static_cast<std::size_t>(some));
            offset += some;
            bytes -= some;
        }
    }

    Bytes& in_;
    Size size_;
    Size misaligned_;
    Arena library_;
    Arena model_;
    Size work_ = 0;
    const char* description_ = nullptr; ///< of the call
    bool spoiled_ = false;              ///< the operands of the call do not fit
    bool printed_ = false;
};

} // namespace

void matrix(Bytes in) {
    const FreshLibrary fresh(in);
    Machine(in).run();
}

} // namespace fuzz
