/*
 * libiv for C++17: matrices, Kalman filters and trackers as objects, on the C interface alone.
 *
 * Include this and link the library. libiv.h is the manual of what is computed, and the results are
 * those of its calls, to the bit. What the objects add:
 *
 *  - Memory.  What owns something releases it; it can be moved, not copied. What was moved from may
 *             be assigned to and destroyed, a matrix is 0 x 0 then, and nothing else may be asked
 *             of it.
 *  - Errors.  A call whose operands do not fit throws std::invalid_argument, which says what was
 *             expected; a call that runs out of memory throws std::bad_alloc. Nothing is written
 *             then. Without exceptions (LIBIV_NO_EXCEPTIONS, which follows -fno-exceptions by
 *             itself) a `Result<T>` is a std::optional<T> that is empty then, and a `Done` is
 *             false. Run-time type information is not used.
 *  - Threads. As in libiv.h. inverse, invert, KalmanFilter::correct and Tracker::process share the
 *             inverse's work area: at most one of them may run at a time in the whole process. A
 *             tracker that ends, or is assigned to, counts as Tracker::process.
 */
#ifndef LIBIV_HPP
#define LIBIV_HPP

#include <algorithm>
#include <cassert>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <functional>
#include <initializer_list>
#include <iterator>
#include <limits>
#include <memory>
#include <new>
#include <optional>
#include <type_traits>
#include <utility>

#include "_libiv.h"

#if !defined(__cpp_exceptions) && !defined(LIBIV_NO_EXCEPTIONS)
#define LIBIV_NO_EXCEPTIONS
#endif

// Sources with and without exceptions may meet in one program, so their names differ.
#ifdef LIBIV_NO_EXCEPTIONS
#define LIBIV_ERRORS as_optionals
#define LIBIV_NODISCARD [[nodiscard]]
#else
#include <stdexcept>
#include <string>
#define LIBIV_ERRORS as_exceptions
#define LIBIV_NODISCARD
#endif

namespace iv {
inline namespace LIBIV_ERRORS {

/// What a call gives that may fail.
#ifdef LIBIV_NO_EXCEPTIONS
template <class T>
using Result = std::optional<T>;
#else
template <class T>
using Result = T;
#endif

/// What a call gives that may fail and makes nothing: whether it did what it is for.
class LIBIV_NODISCARD Done {
  public:
    /// Of what it says.
    constexpr explicit Done(bool done) noexcept : done_(done) {}
    /// What it says.
    constexpr explicit operator bool() const noexcept { return done_; }

  private:
    bool done_;
};

namespace detail {

/// Whether memory was granted; where errors are exceptions, it was.
inline bool granted(bool memory) {
#ifndef LIBIV_NO_EXCEPTIONS
    if (!memory) {
        throw std::bad_alloc();
    }
#endif
    return memory;
}

/// Whether a value is as expected; where errors are exceptions, it is.
inline bool expect(bool holds, [[maybe_unused]] const char* name, [[maybe_unused]] double value,
                   [[maybe_unused]] const char* expected) {
#ifndef LIBIV_NO_EXCEPTIONS
    if (!holds) {
        char message[200];
        std::snprintf(message, sizeof message, "%s: %g: expected %s", name, value, expected);
        throw std::invalid_argument(message);
    }
#endif
    return holds;
}

struct Shape {
    Shape(const iv_mat_t* mat) noexcept : rows(mat->rows), cols(mat->cols) {}
    Shape(int row_count, int col_count) noexcept : rows(row_count), cols(col_count) {}

    int rows, cols;
};

/// The same of matrices that have to fit together.
inline bool expect(bool holds, [[maybe_unused]] const char* call,
                   [[maybe_unused]] std::initializer_list<Shape> operands,
                   [[maybe_unused]] const char* expected) {
#ifndef LIBIV_NO_EXCEPTIONS
    if (!holds) {
        std::string message = call;
        for (const Shape& shape : operands) {
            message += " " + std::to_string(shape.rows) + "x" + std::to_string(shape.cols);
        }
        throw std::invalid_argument(message + ": expected " + expected);
    }
#endif
    return holds;
}

/// The depth of a scalar, by width and sign: long is one, whichever width it has.
template <class T>
constexpr int depth() {
    static_assert(std::is_arithmetic_v<T> && !std::is_same_v<T, bool> && !std::is_same_v<T, char> &&
                      sizeof(T) <= 8 && (std::is_signed_v<T> || sizeof(T) <= 2),
                  "expected float, double, a signed integer, or an unsigned one of 8 or 16 bits");
    if (std::is_floating_point_v<T>) {
        return sizeof(T) == 4 ? IV_32F : IV_64F;
    }
    constexpr int SIGNED[] = {0, IV_8S, IV_16S, 0, IV_32S, 0, 0, 0, IV_64S};
    constexpr int UNSIGNED[] = {0, IV_8U, IV_16U, 0, 0, 0, 0, 0, 0};
    return std::is_signed_v<T> ? SIGNED[sizeof(T)] : UNSIGNED[sizeof(T)];
}

/// A type that is not deduced from its argument.
template <class T>
struct Same {
    using type = T;
};
template <class T>
using same = typename Same<T>::type;

} // namespace detail

/* ------------------------------------------------------------------------------------------------
 * Matrices
 * ---------------------------------------------------------------------------------------------- */

/**
 * A dense row-major matrix, which owns its values or views those of the caller. As with pointers, a
 * Matrix<T> is also a Matrix<const T>, which is what calls take that only read.
 *
 * @code
 * auto a = iv::Matrix<float>::of({{4, 1}, {2, 3}});
 * auto b = inverse(a) * a + iv::Matrix<float>::identity(2); // each step a matrix of its own
 *
 * float values[2][2];
 * auto c = iv::Matrix<float>::view(values); // writes to `values`
 * multiply(a, iv::transposed(b), c);        // allocates nothing
 * std::printf("%g %g\n", values[0][0], static_cast<double>(b(1, 0)));
 * @endcode
 *
 * @tparam T         one of the eight scalar types
 * @tparam CHANNELS  values of an element, 1 to 32. Products and the inverse take one.
 */
template <class T, int CHANNELS = 1>
class Matrix;

/// The part that only reads: values of its own or of the caller, which it never writes.
template <class T, int CHANNELS>
class Matrix<const T, CHANNELS> {
    static_assert(CHANNELS >= 1 && CHANNELS <= 32, "an element has 1 to 32 channels");

  public:
    /// Type code of the record.
    static constexpr int TYPE = IV_MAKETYPE(detail::depth<T>(), CHANNELS);

    /// 0 x 0: fills do nothing to it, all other calls refuse it.
    Matrix() noexcept = default;
    Matrix(Matrix&& other) noexcept { swap(other); }
    ~Matrix() { iv_mat_release(block_); }

    /// A view of packed values, which must outlive it. Fails iff a side is below 1 or the values
    /// take 2 GiB or more.
    static Result<Matrix> view(int rows, int cols, const T* values) {
        if (!is_size(rows, cols)) {
            return {};
        }
        return Matrix(rows, cols, values);
    }
    template <std::size_t ROWS, std::size_t COLS>
    static Matrix view(const T (&values)[ROWS][COLS]) noexcept {
        static_assert(COLS % CHANNELS == 0, "a row holds whole elements");
        return Matrix(static_cast<int>(ROWS), static_cast<int>(COLS / CHANNELS), values[0]);
    }

    /// The shape; 0 x 0 if there is none.
    int rows() const noexcept { return record_.rows; }
    int cols() const noexcept { return record_.cols; }
    bool empty() const noexcept { return record_.rows == 0; }
    /// Values, the channels counted.
    std::size_t size() const noexcept {
        return static_cast<std::size_t>(rows()) * static_cast<std::size_t>(cols()) * CHANNELS;
    }

    /// Whether it has the shape of another, and one at all.
    bool is_like(const Matrix& other) const noexcept {
        return rows() == other.rows() && cols() == other.cols() && !empty();
    }

    /// The values row by row, those of an element one after the other.
    const T* data() const noexcept { return values(); }
    const T* begin() const noexcept { return values(); }
    const T* end() const noexcept { return values() + size(); }
    /// Within the matrix, which is asserted.
    const T& operator()(int row, int col, int channel = 0) const noexcept {
        return values()[place(row, col, channel)];
    }

    /// For calls of libiv.h: describes the matrix until that is moved.
    const iv_mat_t* record() const noexcept { return &record_; }

    /// A matrix of its own with equal values.
    Result<Matrix<T, CHANNELS>> clone() const;

  protected:
    Matrix(int rows, int cols, const T* values) noexcept {
        iv_mat_initheader(&record_, rows, cols, TYPE, const_cast<T*>(values));
    }
    explicit Matrix(iv_mat_t* block) noexcept : record_(*block), block_(block) {}

    static bool is_size(int rows, int cols) {
        const std::int64_t most =
            std::numeric_limits<int>::max() / static_cast<int>(CHANNELS * sizeof(T));
        return detail::expect(rows >= 1, "rows of a matrix", rows, "at least 1") &&
               detail::expect(cols >= 1, "columns of a matrix", cols, "at least 1") &&
               detail::expect(std::int64_t{rows} * cols <= most, "elements of a matrix",
                              static_cast<double>(rows) * cols, "values of less than 2 GiB");
    }
    void swap(Matrix& other) noexcept {
        std::swap(record_, other.record_);
        std::swap(block_, other.block_);
    }
    T* values() const noexcept { return static_cast<T*>(static_cast<void*>(record_.data.p)); }
    std::ptrdiff_t place(int row, int col, int channel) const noexcept {
        assert(row >= 0 && row < rows() && col >= 0 && col < cols());
        assert(channel >= 0 && channel < CHANNELS);
        return (std::ptrdiff_t{row} * cols() + col) * CHANNELS + channel;
    }

    iv_mat_t record_ = {TYPE, 0, 0, 0, {nullptr}};

  private:
    iv_mat_t* block_ = nullptr; ///< of iv_mat_create, or null in a view

    friend class KalmanFilter;
};

template <class T, int CHANNELS>
class Matrix : public Matrix<const T, CHANNELS> {
    using Base = Matrix<const T, CHANNELS>;
    using Rows = std::initializer_list<std::initializer_list<T>>;

  public:
    /// As in the part that only reads; what it had, it releases when it is assigned to.
    Matrix() noexcept = default;
    Matrix(Matrix&& other) noexcept = default;
    Matrix& operator=(Matrix&& other) noexcept {
        Matrix taken(std::move(other));
        this->swap(taken);
        return *this;
    }

    /// New matrices. They fail like `view`, and for want of memory.
    static Result<Matrix> zeros(int rows, int cols) {
        return make(rows, cols, [](Matrix& made) { return made.set_zero(), true; });
    }
    static Result<Matrix> ones(int rows, int cols) {
        return make(rows, cols, [](Matrix& made) { return made.set_one(), true; });
    }
    /// In channel 0; other channels are 0.
    static Result<Matrix> identity(int order) {
        return make(order, order,
                    [](Matrix& made) { return made.set_zero(), made.set_identity(), true; });
    }
    /// Of rows of equal length.
    static Result<Matrix> of(Rows rows) {
        const std::size_t cols = rows.size() == 0 ? 0 : rows.begin()->size();
        return make(static_cast<int>(rows.size()), static_cast<int>(cols / CHANNELS),
                    [rows](Matrix& made) { return made.assign(rows); });
    }
    /// Of values that `write(Matrix&)` writes; fails, too, if that gives false.
    template <class Write>
    static Result<Matrix> make(int rows, int cols, Write write) {
        if (!Base::is_size(rows, cols)) {
            return {};
        }
        iv_mat_t* block = iv_mat_create(rows, cols, Base::TYPE);
        if (!detail::granted(block)) {
            return {};
        }
        Matrix made(block);
        if (!write(made)) {
            return {};
        }
        return made;
    }

    /// As above, of values that are written, too.
    static Result<Matrix> view(int rows, int cols, T* values) {
        if (!Base::is_size(rows, cols)) {
            return {};
        }
        return Matrix(rows, cols, values);
    }
    template <std::size_t ROWS, std::size_t COLS>
    static Matrix view(T (&values)[ROWS][COLS]) noexcept {
        static_assert(COLS % CHANNELS == 0, "a row holds whole elements");
        return Matrix(static_cast<int>(ROWS), static_cast<int>(COLS / CHANNELS), values[0]);
    }

    /// As in the part that only reads, to be written.
    using Base::begin;
    using Base::data;
    using Base::end;
    using Base::record;
    using Base::operator();
    T* data() noexcept { return this->values(); }
    T* begin() noexcept { return this->values(); }
    T* end() noexcept { return this->values() + this->size(); }
    T& operator()(int row, int col, int channel = 0) noexcept {
        return this->values()[this->place(row, col, channel)];
    }
    iv_mat_t* record() noexcept { return &this->record_; }

    /// Of every channel.
    void set_zero() noexcept { iv_mat_setzero(record()); }
    void set_one() noexcept { iv_mat_setone(record()); }
    /// In channel 0; other channels keep their values.
    void set_identity() noexcept {
        if (!this->empty()) {
            iv_mat_setidentity(record());
        }
    }
    /// `values`: one for each element of the diagonal; else like set_identity.
    Done set_diagonal(std::initializer_list<T> values) {
        const int count = std::min(this->rows(), this->cols());
        const bool fits =
            detail::expect(count > 0 && values.size() == static_cast<std::size_t>(count),
                           "set_diagonal", {this->record()}, "a value for each of the diagonal");
        if (fits) {
            iv_mat_setdiagonal(const_cast<T*>(values.begin()), record());
        }
        return Done(fits);
    }

    /// Takes over the values of a matrix of this shape.
    Done assign(const Base& source) {
        const bool fits =
            detail::expect(this->is_like(source), "assign", {this->record(), source.record()},
                           "two matrices of one shape");
        if (fits) {
            std::memmove(data(), source.data(), this->size() * sizeof(T));
        }
        return Done(fits);
    }
    Done assign(Rows rows) {
        bool fits = rows.size() == static_cast<std::size_t>(this->rows());
        for (const auto& row : rows) {
            fits = fits && row.size() * rows.size() == this->size();
        }
        if (!detail::expect(fits, "assign", {this->record()}, "as many values in as many rows")) {
            return Done(false);
        }
        T* value = data();
        for (const auto& row : rows) {
            value = std::copy(row.begin(), row.end(), value);
        }
        return Done(true);
    }

    /// Into this matrix; they fail like add, subtract and scale.
    Done operator+=(const Base& other) { return add(*this, other, *this); }
    Done operator-=(const Base& other) { return subtract(*this, other, *this); }
    Done operator*=(T factor) { return scale(*this, factor, *this); }

  private:
    Matrix(int rows, int cols, T* values) noexcept : Base(rows, cols, values) {}
    explicit Matrix(iv_mat_t* block) noexcept : Base(block) {}

    friend class KalmanFilter;
};

template <class T, int CHANNELS>
Result<Matrix<T, CHANNELS>> Matrix<const T, CHANNELS>::clone() const {
    return Matrix<T, CHANNELS>::make(rows(), cols(),
                                     [this](auto& made) { return made.assign(*this); });
}

/// Marks a factor of a product that is read transposed. No more than one can be.
template <class T>
struct Transposed {
    const Matrix<const T>& of; ///< the matrix, as it is
};
/// Marks a factor of a product to be read transposed.
template <class T>
Transposed<T> transposed(const Matrix<const T>& matrix) {
    return {matrix};
}

namespace detail {

/// The C interface says of no operand that it is only read.
template <class T, int CHANNELS>
iv_mat_t* source(const Matrix<const T, CHANNELS>& matrix) {
    return const_cast<iv_mat_t*>(matrix.record());
}

template <class T, int CHANNELS>
bool are_apart(const Matrix<const T, CHANNELS>& a, const Matrix<const T, CHANNELS>& b) {
    const std::less_equal<const T*> is_before;
    return is_before(a.end(), b.begin()) || is_before(b.end(), a.begin());
}

/// A factor of a product, in the shape in which it is read.
template <class T>
struct Factor {
    Factor(const Matrix<const T>& matrix) : of(matrix), shape(of.record()) {}
    Factor(Transposed<T> marked) : of(marked.of), shape(of.cols(), of.rows()) {}

    const Matrix<const T>& of;
    Shape shape;
};

template <class T>
bool is_product(const char* call, const Factor<T>& a, const Factor<T>& b,
                const Matrix<const T>& product) {
    return expect(a.shape.cols == b.shape.rows && a.shape.cols > 0 &&
                      product.rows() == a.shape.rows && product.cols() == b.shape.cols &&
                      are_apart(a.of, product) && are_apart(b.of, product),
                  call, {a.shape, b.shape, product.record()},
                  "factors that fit, and storage of its own for their product");
}

template <class T>
Done multiply(const Factor<T>& a, const Factor<T>& b, Matrix<T>& product, int mode) {
    const bool fits = is_product("multiply", a, b, product);
    if (fits) {
        iv_mat_mul(source(a.of), source(b.of), product.record(), mode);
    }
    return Done(fits);
}

template <class T>
Done multiply_add(const Factor<T>& a, const Factor<T>& b, const Matrix<const T>& c, Matrix<T>& sum,
                  int mode) {
    const bool fits =
        is_product("multiply_add", a, b, sum) &&
        expect(c.is_like(sum), "multiply_add", {c.record(), sum.record()}, "a sum of one shape");
    if (fits) {
        iv_mat_muladd(source(a.of), source(b.of), source(c), sum.record(), mode);
    }
    return Done(fits);
}

} // namespace detail

/* Into a matrix of the caller: these allocate nothing. */

/// sum = a + b. The operands may be the sum, as in all element-wise calls.
template <class T, int CHANNELS>
Done add(const Matrix<const T, CHANNELS>& a, const Matrix<const T, CHANNELS>& b,
         Matrix<T, CHANNELS>& sum) {
    const bool fits = detail::expect(a.is_like(b) && a.is_like(sum), "add",
                                     {a.record(), b.record(), sum.record()}, "one shape");
    if (fits) {
        iv_mat_add(detail::source(a), detail::source(b), sum.record());
    }
    return Done(fits);
}

/// difference = a - b.
template <class T, int CHANNELS>
Done subtract(const Matrix<const T, CHANNELS>& a, const Matrix<const T, CHANNELS>& b,
              Matrix<T, CHANNELS>& difference) {
    const bool fits = detail::expect(a.is_like(b) && a.is_like(difference), "subtract",
                                     {a.record(), b.record(), difference.record()}, "one shape");
    if (fits) {
        iv_mat_sub(detail::source(a), detail::source(b), difference.record());
    }
    return Done(fits);
}

/// scaled = a * factor.
template <class T, int CHANNELS>
Done scale(const Matrix<const T, CHANNELS>& a, detail::same<T> factor,
           Matrix<T, CHANNELS>& scaled) {
    const bool fits =
        detail::expect(a.is_like(scaled), "scale", {a.record(), scaled.record()}, "one shape");
    if (fits) {
        iv_mat_scale(&factor, detail::source(a), scaled.record());
    }
    return Done(fits);
}

/// negated = -a. Not of unsigned values, which the library leaves alone.
template <class T, int CHANNELS>
Done negate(const Matrix<const T, CHANNELS>& a, Matrix<T, CHANNELS>& negated) {
    static_assert(std::is_signed_v<T>, "unsigned values have no negatives");
    const bool fits =
        detail::expect(a.is_like(negated), "negate", {a.record(), negated.record()}, "one shape");
    if (fits) {
        iv_mat_neg(detail::source(a), negated.record());
    }
    return Done(fits);
}

/// transpose = a, rows and columns changed, in storage of its own.
template <class T, int CHANNELS>
Done transpose(const Matrix<const T, CHANNELS>& a, Matrix<T, CHANNELS>& transpose) {
    const bool fits = detail::expect(a.rows() == transpose.cols() && a.cols() == transpose.rows() &&
                                         !a.empty() && detail::are_apart(a, transpose),
                                     "transpose", {a.record(), transpose.record()},
                                     "columns x rows in storage of their own");
    if (fits) {
        iv_mat_transpose(detail::source(a), transpose.record());
    }
    return Done(fits);
}

/// product = a * b, in storage of its own, as in all products.
template <class T>
Done multiply(const Matrix<const T>& a, const Matrix<const T>& b, Matrix<T>& product) {
    return detail::multiply<T>(a, b, product, 0);
}
template <class T>
Done multiply(Transposed<T> a, const Matrix<const T>& b, Matrix<T>& product) {
    return detail::multiply<T>(a, b, product, IV_MAT_TRANS_SRC1);
}
template <class T>
Done multiply(const Matrix<const T>& a, Transposed<T> b, Matrix<T>& product) {
    return detail::multiply<T>(a, b, product, IV_MAT_TRANS_SRC2);
}

/// sum = a * b + c. `c` may be the sum.
template <class T>
Done multiply_add(const Matrix<const T>& a, const Matrix<const T>& b, const Matrix<const T>& c,
                  Matrix<T>& sum) {
    return detail::multiply_add<T>(a, b, c, sum, 0);
}
template <class T>
Done multiply_add(const Matrix<const T>& a, Transposed<T> b, const Matrix<const T>& c,
                  Matrix<T>& sum) {
    return detail::multiply_add<T>(a, b, c, sum, IV_MAT_TRANS_SRC2);
}

/// difference = c - a * b. `c` may be the difference.
template <class T>
Done multiply_subtract(const Matrix<const T>& a, const Matrix<const T>& b, const Matrix<const T>& c,
                       Matrix<T>& difference) {
    const bool fits = detail::is_product<T>("multiply_subtract", a, b, difference) &&
                      detail::expect(c.is_like(difference), "multiply_subtract",
                                     {c.record(), difference.record()}, "one shape");
    if (fits) {
        iv_mat_submul(detail::source(c), detail::source(a), detail::source(b), difference.record(),
                      0);
    }
    return Done(fits);
}

/// difference = identity - a * b.
template <class T>
Done identity_minus(const Matrix<const T>& a, const Matrix<const T>& b, Matrix<T>& difference) {
    const bool fits = detail::is_product<T>("identity_minus", a, b, difference);
    if (fits) {
        iv_mat_submul(nullptr, detail::source(a), detail::source(b), difference.record(),
                      IV_MAT_IDENTITY_SRC1);
    }
    return Done(fits);
}

/// inverse = a to the power of -1, of an order up to 40. `a` may be the inverse. A singular matrix
/// is not detected.
inline Done invert(const Matrix<const float>& a, Matrix<float>& inverse) {
    constexpr int MOST = 40;
    const bool fits = detail::expect(a.is_like(inverse) && a.rows() == a.cols() && a.rows() <= MOST,
                                     "invert", {a.record(), inverse.record()},
                                     "two square matrices of one order, at most 40");
    if (fits) {
        iv_mat_inv(detail::source(a), inverse.record());
    }
    return Done(fits);
}

/// As iv_mat_print: to standard output, below the name.
template <class T, int CHANNELS>
void print(const char* name, const Matrix<const T, CHANNELS>& matrix) {
    iv_mat_print(const_cast<char*>(name), detail::source(matrix));
}

/// The same as new matrices.
template <class T, int CHANNELS>
Result<Matrix<T, CHANNELS>> operator+(const Matrix<const T, CHANNELS>& a,
                                      const Matrix<const T, CHANNELS>& b) {
    return Matrix<T, CHANNELS>::make(a.rows(), a.cols(), [&](auto& sum) { return add(a, b, sum); });
}
template <class T, int CHANNELS>
Result<Matrix<T, CHANNELS>> operator-(const Matrix<const T, CHANNELS>& a,
                                      const Matrix<const T, CHANNELS>& b) {
    return Matrix<T, CHANNELS>::make(a.rows(), a.cols(),
                                     [&](auto& difference) { return subtract(a, b, difference); });
}
template <class T, int CHANNELS>
Result<Matrix<T, CHANNELS>> operator-(const Matrix<const T, CHANNELS>& a) {
    return Matrix<T, CHANNELS>::make(a.rows(), a.cols(),
                                     [&](auto& negated) { return negate(a, negated); });
}
template <class T, int CHANNELS>
Result<Matrix<T, CHANNELS>> operator*(const Matrix<const T, CHANNELS>& a, detail::same<T> factor) {
    return Matrix<T, CHANNELS>::make(a.rows(), a.cols(),
                                     [&](auto& scaled) { return scale(a, factor, scaled); });
}
template <class T, int CHANNELS>
Result<Matrix<T, CHANNELS>> operator*(detail::same<T> factor, const Matrix<const T, CHANNELS>& a) {
    return a * factor;
}
template <class T, int CHANNELS>
Result<Matrix<T, CHANNELS>> transpose(const Matrix<const T, CHANNELS>& a) {
    return Matrix<T, CHANNELS>::make(a.cols(), a.rows(),
                                     [&](auto& made) { return transpose(a, made); });
}
template <class T>
Result<Matrix<T>> operator*(const Matrix<const T>& a, const Matrix<const T>& b) {
    return Matrix<T>::make(a.rows(), b.cols(),
                           [&](auto& product) { return multiply(a, b, product); });
}
template <class T>
Result<Matrix<T>> operator*(Transposed<T> a, const Matrix<const T>& b) {
    return Matrix<T>::make(a.of.cols(), b.cols(),
                           [&](auto& product) { return multiply(a, b, product); });
}
template <class T>
Result<Matrix<T>> operator*(const Matrix<const T>& a, Transposed<T> b) {
    return Matrix<T>::make(a.rows(), b.of.rows(),
                           [&](auto& product) { return multiply(a, b, product); });
}
inline Result<Matrix<float>> inverse(const Matrix<const float>& a) {
    return Matrix<float>::make(a.rows(), a.cols(), [&](auto& made) { return invert(a, made); });
}

/* ------------------------------------------------------------------------------------------------
 * Kalman filter
 * ---------------------------------------------------------------------------------------------- */

/// x' = A x + noise(Q), z = H x + noise(R): of n states and m measured values, m at most 40.
struct KalmanModel {
    Matrix<float> A; ///< n x n
    Matrix<float> H; ///< m x n
    Matrix<float> Q; ///< n x n
    Matrix<float> R; ///< m x m
};

/**
 * A linear Kalman filter. State and covariance start as zeros, for the caller to write.
 *
 * @code
 * iv::KalmanModel model; // a place and its step, of which the place is measured
 * model.A = iv::Matrix<float>::of({{1, 1}, {0, 1}});
 * model.H = iv::Matrix<float>::of({{1, 0}});
 * model.Q = iv::Matrix<float>::identity(2) * 0.1f;
 * model.R = iv::Matrix<float>::identity(1);
 * auto filter = iv::KalmanFilter::create(model);
 * filter.covariance().set_identity();
 * for (float place : {1.0f, 2.1f, 2.9f, 4.0f}) {
 *     filter.predict();
 *     filter.correct(iv::Matrix<float>::of({{place}}));
 * }
 * std::printf("%.2f\n", filter.state()(1, 0)); // the step
 * @endcode
 */
class KalmanFilter {
  public:
    /// A filter with a model of its own, a copy that may be written through A() to R(). Fails iff
    /// the shapes do not fit or memory is out.
    static Result<KalmanFilter> create(const KalmanModel& model) {
        KalmanFilter filter;
        if (!filter.allocate(model, false) || !filter.A().assign(model.A) ||
            !filter.H().assign(model.H) || !filter.Q().assign(model.Q) ||
            !filter.R().assign(model.R)) {
            return {};
        }
        return filter;
    }
    /// A filter that refers to the caller's model, as many filters may: it must outlive them, and
    /// its matrices must stay where they are.
    static Result<KalmanFilter> sharing(KalmanModel& model) {
        KalmanFilter filter;
        if (!filter.allocate(model, true)) {
            return {};
        }
        return filter;
    }

    /// Without a correction in between, a second prediction gives what the first one gave.
    void predict() noexcept { iv_kalman_predict(record()); }
    /// Takes the prediction for the estimate, in place of a measurement that is missing.
    void coast() {
        (void)state().assign(predicted_state());
        (void)covariance().assign(predicted_covariance());
    }
    /// Fails iff the measurement is not m x 1.
    Done correct(const Matrix<const float>& measurement) {
        const bool fits =
            detail::expect(measurement.rows() == record()->nm && measurement.cols() == 1, "correct",
                           {measurement.record()}, "a column of as many values as are measured");
        if (fits) {
            iv_kalman_correct(record(), detail::source(measurement));
        }
        return Done(fits);
    }

    /// Views of the filter's matrices, which live as long as it does.
    Matrix<float> state() noexcept { return written(record()->x_post); }
    Matrix<float> covariance() noexcept { return written(record()->P_post); }
    Matrix<float> A() noexcept { return written(record()->A); }
    Matrix<float> H() noexcept { return written(record()->H); }
    Matrix<float> Q() noexcept { return written(record()->Q); }
    Matrix<float> R() noexcept { return written(record()->R); }
    Matrix<const float> state() const noexcept { return read(record()->x_post); }
    Matrix<const float> covariance() const noexcept { return read(record()->P_post); }
    Matrix<const float> predicted_state() const noexcept { return read(record()->x_pre); }
    Matrix<const float> predicted_covariance() const noexcept { return read(record()->P_pre); }
    Matrix<const float> gain() const noexcept { return read(record()->K); }
    /// Measured minus predicted values of the latest correction, and their covariance.
    Matrix<const float> innovation() const noexcept { return read(record()->temp5); }
    Matrix<const float> innovation_covariance() const noexcept { return read(record()->temp3); }
    Matrix<const float> A() const noexcept { return read(record()->A); }
    Matrix<const float> H() const noexcept { return read(record()->H); }
    Matrix<const float> Q() const noexcept { return read(record()->Q); }
    Matrix<const float> R() const noexcept { return read(record()->R); }

    /// For calls of libiv.h.
    iv_kalman_t* record() noexcept { return record_.get(); }
    const iv_kalman_t* record() const noexcept { return record_.get(); }

  private:
    struct Release {
        void operator()(iv_kalman_t* record) const noexcept { iv_kalman_release(record); }
    };

    KalmanFilter() noexcept = default;

    bool allocate(const KalmanModel& model, bool shares) {
        constexpr int MOST_STATES = 8192; // a filter of more comes near 2 GiB
        constexpr int MOST_MEASURED = 40; // of more, the inverse does nothing
        const int n = model.A.rows();
        const int m = model.H.rows();
        const auto is = [](const Matrix<float>& matrix, int rows, int cols) {
            return matrix.rows() == rows && matrix.cols() == cols;
        };
        if (!detail::expect(
                n >= 1 && n <= MOST_STATES && m >= 1 && m <= MOST_MEASURED && is(model.A, n, n) &&
                    is(model.H, m, n) && is(model.Q, n, n) && is(model.R, m, m),
                "Kalman model of",
                {model.A.record(), model.H.record(), model.Q.record(), model.R.record()},
                "n x n, m x n, n x n and m x m, n at most 8192, m at most 40")) {
            return false;
        }
        record_.reset(iv_kalman_create(
            n, m, shares, detail::source<float>(model.A), detail::source<float>(model.H),
            detail::source<float>(model.Q), detail::source<float>(model.R)));
        return detail::granted(record_ != nullptr);
    }

    static Matrix<float> written(iv_mat_t* mat) noexcept {
        return Matrix<float>(mat->rows, mat->cols, mat->data.f);
    }
    static Matrix<const float> read(const iv_mat_t* mat) noexcept {
        return Matrix<const float>(mat->rows, mat->cols, mat->data.f);
    }

    std::unique_ptr<iv_kalman_t, Release> record_;
};

/* ------------------------------------------------------------------------------------------------
 * Tracker
 * ---------------------------------------------------------------------------------------------- */

/// Contiguous values of the caller: of a vector, an array, a std::span, or pointer and size.
template <class T>
class Span {
  public:
    /// Of nothing, of some values, or of what holds values one behind the other.
    constexpr Span() noexcept = default;
    constexpr Span(T* data, std::size_t size) noexcept : data_(data), size_(size) {}
    template <
        class Range,
        class = std::enable_if_t<std::is_convertible_v<
            std::remove_pointer_t<decltype(std::data(std::declval<Range&>()))> (*)[], T (*)[]>>>
    constexpr Span(Range&& range) noexcept : data_(std::data(range)), size_(std::size(range)) {}

    /// As of a container.
    constexpr T* data() const noexcept { return data_; }
    constexpr std::size_t size() const noexcept { return size_; }
    constexpr bool empty() const noexcept { return size_ == 0; }
    constexpr T* begin() const noexcept { return data_; }
    constexpr T* end() const noexcept { return data_ + size_; }
    constexpr T& operator[](std::size_t n) const noexcept { return data_[n]; }

  private:
    T* data_ = nullptr;
    std::size_t size_ = 0;
};

/// Corners in pixels, or in whatever the image width is given in.
struct Box {
    double left;   ///< x of the left edge
    double top;    ///< y of the upper edge
    double right;  ///< x of the right edge
    double bottom; ///< y of the lower edge
};

/// What a detector says of one object in one frame.
struct Detection {
    std::int64_t class_number; ///< any number, 0 as well
    Box box;                   ///< where it is
    float score;               ///< takes part in nothing but the choice above the capacity
};

/// Stands for the detection of a track that was not matched.
constexpr int NO_DETECTION = -1;

/// One confirmed track in one frame.
struct Track {
    int id;                    ///< 1 to 1048574, the same from frame to frame
    std::int64_t class_number; ///< of the detection matched last
    Box box;                   ///< may be inside out for some frames while an object shrinks fast
    float score;               ///< of the detection matched last
    int detection; ///< the detection matched in this frame, as an index, or NO_DETECTION

    /// Whether it missed this frame, or this one and the one before: the box is its last one.
    bool is_coasting() const noexcept { return detection == NO_DETECTION; }
};

/// What may change from frame to frame, under the names that `ivtrack` gives it.
struct Tuning {
    float distance = 1.0f; ///< euc_thresh: greatest squared distance of centres, in units squared,
                           ///< at which a detection continues a track without overlapping it
    float overlap = 0.1f;  ///< iou_thresh: beyond it, intersection over union must be above this
    int stable = 3;        ///< fcnt_stable: matched frames that confirm a track, at least 1
    int removal = 12;      ///< fcnt_removal: missed frames that a track survives, at least 1: half
                           ///< the frame rate, and 5 or more
    bool ignore_class = false; ///< a detection may continue a track of another class
};

/// What a tracker is made with.
struct TrackerOptions {
    double width = 0;    ///< of the image in pixels; has to be given, as nothing else can be right
    double units = 64;   ///< the same width in the library's units. Nothing is matched across 10
                         ///< units: of all values the first to get right. 16 to 100 are good.
    int capacity = 1024; ///< detections of a frame and tracks alive: twice the fullest frame
    Tuning tuning;       ///< gates and patience
};

namespace detail {

/// Numbers classes 1, 2, 3, ... in order of appearance: to the library 0 ends the list, and a float
/// holds no large number exactly.
class ClassTable {
  public:
    /// 0 iff memory is out, or the numbers that a float holds are.
    float number_of(std::int64_t class_number) noexcept {
        if (slots_) {
            const Slot& slot = slots_[find(class_number)];
            if (slot.number != 0) {
                return slot.number;
            }
        }
        return add(class_number);
    }

    std::int64_t class_of(float number) const noexcept {
        return classes_[static_cast<std::size_t>(number) - 1];
    }

  private:
    static constexpr int FEWEST_BITS = 6;
    static constexpr int MOST_BITS = 25; ///< half of the slots are in use: 2^24 numbers

    struct Slot {
        std::int64_t class_number;
        float number; ///< 0 in a free slot
    };

    std::size_t size() const noexcept { return std::size_t{1} << bits_; }

    /// The slot of a class, or the free one where it belongs.
    std::size_t find(std::int64_t class_number) const noexcept {
        const std::uint64_t spread =
            static_cast<std::uint64_t>(class_number) * std::uint64_t{0x9E3779B97F4A7C15};
        std::size_t slot = static_cast<std::size_t>(spread >> (64 - bits_));
        while (slots_[slot].number != 0 && slots_[slot].class_number != class_number) {
            slot = (slot + 1) & (size() - 1);
        }
        return slot;
    }

    float add(std::int64_t class_number) noexcept {
        if ((!slots_ || 2 * count_ == size()) && !grow()) {
            return 0;
        }
        classes_[count_] = class_number;
        enter(count_++);
        return static_cast<float>(count_);
    }

    void enter(std::size_t n) noexcept {
        slots_[find(classes_[n])] = {classes_[n], static_cast<float>(n + 1)};
    }

    bool grow() noexcept {
        const int bits = slots_ ? bits_ + 1 : FEWEST_BITS;
        if (bits > MOST_BITS) {
            return false;
        }
        const std::size_t size = std::size_t{1} << bits;
        std::unique_ptr<Slot[]> slots(new (std::nothrow) Slot[size]());
        std::unique_ptr<std::int64_t[]> classes(new (std::nothrow) std::int64_t[size / 2]);
        if (!slots || !classes) {
            return false;
        }
        std::copy_n(classes_.get(), count_, classes.get());
        slots_ = std::move(slots);
        classes_ = std::move(classes);
        bits_ = bits;
        for (std::size_t n = 0; n < count_; ++n) {
            enter(n);
        }
        return true;
    }

    std::unique_ptr<Slot[]> slots_;           ///< 1 << bits_, at most half of them in use
    std::unique_ptr<std::int64_t[]> classes_; ///< by number, from 1
    int bits_ = 0;
    std::size_t count_ = 0;
};

} // namespace detail

/**
 * Gives the objects of one camera identities that last. One frame at a time, also when it is empty:
 * else tracks do not age.
 *
 * @code
 * iv::TrackerOptions options;
 * options.width = 1920;
 * options.tuning.removal = 15; // half a second at 30 frames a second
 * auto tracker = iv::Tracker::create(options);
 *
 * std::vector<iv::Detection> detections = {{0, {100, 200, 180, 420}, 0.9f}};
 * for (int frame = 1; frame <= 3; ++frame) {
 *     for (const iv::Track& track : tracker.process(detections)) {
 *         std::printf("id %d at %.0f, %.0f\n", track.id, track.box.left, track.box.top);
 *     }
 * }
 * @endcode
 *
 * At its end live tracks are let go first, so that nothing stays allocated but what the library
 * never frees: the four matrices of the motion model, 800 bytes a tracker.
 */
class Tracker {
  public:
    /// Fails iff a value is out of its range or memory is out.
    static Result<Tracker> create(const TrackerOptions& options) {
        Tracker tracker;
        if (!is_valid(options) || !is_valid(options.tuning) || !tracker.allocate(options)) {
            return {};
        }
        return tracker;
    }

    /// Takes one frame and gives its confirmed tracks, oldest first, those coasting for one or two
    /// frames included. They stay as they are until the next call.
    ///
    /// Of more detections than the capacity the highest scores are taken, of equal ones the
    /// earlier. Allocates only when a track starts or is confirmed, and for a new class now and
    /// then. Fails iff memory is out for that, or at the 16,777,217th class: the frame is not taken
    /// then.
    Result<Span<const Track>> process(Span<const Detection> detections) {
        assert(handle_);
        const std::size_t count = std::min(detections.size(), capacity());
        const bool is_crowded = count < detections.size();
        if (is_crowded) {
            keep_best(detections);
        }
        for (std::size_t n = 0; n < count; ++n) {
            if (!write(detections[is_crowded ? kept_[n] : n], input_[n])) {
                return {};
            }
        }
        input_[count][0] = 0;
        iv_tracker_process(handle_.get(), input_.get(), output_.get());
        dropped_ = detections.size() - count;
        return read(is_crowded);
    }
    Result<Span<const Track>> process(std::initializer_list<Detection> detections) {
        return process(Span<const Detection>(detections));
    }

    /// Replaces the tuning from the next frame on; tracks stay. Fails iff a value is out of its
    /// range or stable rises: tracks that it makes too young would be confirmed again, with
    /// new ids, and their filters lost.
    Done tune(const Tuning& tuning) {
        assert(handle_);
        const bool is_good =
            is_valid(tuning) && detail::expect(tuning.stable <= stable_, "stable", tuning.stable,
                                               "no more than before");
        if (is_good) {
            stable_ = tuning.stable;
            iv_tracker_set_params(handle_.get(), tuning.distance, tuning.overlap, tuning.stable,
                                  tuning.removal, tuning.ignore_class);
        }
        return Done(is_good);
    }

    /// Detections of a frame and tracks alive, at most.
    std::size_t capacity() const noexcept { return capacity_; }
    /// Detections of the latest frame that the capacity had no room for.
    std::size_t dropped() const noexcept { return dropped_; }
    /// For calls of libiv.h.
    void* handle() noexcept { return handle_.get(); }

  private:
    /// Release leaves live tracks allocated: without patience, an empty frame lets all of them go.
    struct Drain {
        void operator()(void* handle) const noexcept {
            float none[1][6] = {};
            iv_tracker_set_params(handle, 0, 0, 1, 0, 0);
            iv_tracker_process(handle, none, nullptr);
            iv_tracker_release(handle);
        }
    };

    Tracker() noexcept = default;

    static bool is_valid(const TrackerOptions& options) {
        constexpr int MOST = 1 << 24; // as far as a float counts
        const double factor = options.units / options.width;
        return detail::expect(options.width > 0, "width", options.width,
                              "the width of the image in pixels") &&
               detail::expect(factor >= 1e-12 && factor <= 1e12, "units / width", factor,
                              "between 1e-12 and 1e12 units a pixel") &&
               detail::expect(options.capacity >= 1 && options.capacity <= MOST, "capacity",
                              options.capacity, "1 to 16777216");
    }
    static bool is_valid(const Tuning& tuning) {
        const auto is_gate = [](float gate) { return gate >= 0 && gate <= 1; };
        return detail::expect(is_gate(tuning.distance), "distance",
                              static_cast<double>(tuning.distance), "0 to 1") &&
               detail::expect(is_gate(tuning.overlap), "overlap",
                              static_cast<double>(tuning.overlap), "0 to 1") &&
               detail::expect(tuning.stable >= 1, "stable", tuning.stable, "at least 1") &&
               detail::expect(tuning.removal >= 1, "removal", tuning.removal, "at least 1");
    }

    bool allocate(const TrackerOptions& options) {
        const Tuning& tuning = options.tuning;
        constexpr int IMAGE_SIZE = 0; // the library stores it and computes nothing with it
        units_per_pixel_ = options.units / options.width;
        pixels_per_unit_ = options.width / options.units;
        stable_ = tuning.stable;
        capacity_ = static_cast<std::size_t>(options.capacity);
        input_.reset(new (std::nothrow) float[capacity_ + 1][6]);
        output_.reset(new (std::nothrow) float[capacity_][8]);
        tracks_.reset(new (std::nothrow) Track[capacity_]);
        kept_.reset(new (std::nothrow) std::size_t[capacity_]);
        handle_.reset(iv_tracker_create(IMAGE_SIZE, IMAGE_SIZE, options.capacity, tuning.distance,
                                        tuning.overlap, tuning.stable, tuning.removal,
                                        tuning.ignore_class));
        return detail::granted(input_ && output_ && tracks_ && kept_ && handle_);
    }

    /// Writes the indices of the detections to take into kept_, ascending.
    void keep_best(Span<const Detection> detections) noexcept {
        const auto score = [&](std::size_t n) { // NaN is as low as can be
            const float value = detections[n].score;
            return value == value ? value : -std::numeric_limits<float>::infinity();
        };
        const auto is_better = [&](std::size_t a, std::size_t b) {
            return score(a) != score(b) ? score(a) > score(b) : a < b;
        };
        std::size_t* const begin = kept_.get();
        std::size_t* const end = begin + capacity_;
        for (std::size_t n = 0; n < capacity_; ++n) {
            begin[n] = n;
        }
        std::make_heap(begin, end, is_better); // the worst one in front
        for (std::size_t n = capacity_; n < detections.size(); ++n) {
            if (is_better(n, *begin)) {
                std::pop_heap(begin, end, is_better);
                end[-1] = n;
                std::push_heap(begin, end, is_better);
            }
        }
        std::sort(begin, end);
    }

    bool write(const Detection& detection, float (&row)[6]) {
        const Box& box = detection.box;
        row[0] = classes_.number_of(detection.class_number);
        row[1] = static_cast<float>(box.left * units_per_pixel_);
        row[2] = static_cast<float>(box.top * units_per_pixel_);
        row[3] = static_cast<float>(box.right * units_per_pixel_);
        row[4] = static_cast<float>(box.bottom * units_per_pixel_);
        row[5] = detection.score;
        return detail::granted(row[0] != 0);
    }

    double to_pixels(float units) const noexcept {
        return static_cast<double>(units) * pixels_per_unit_;
    }

    Span<const Track> read(bool is_crowded) noexcept {
        std::size_t count = 0;
        for (; count < capacity_ && output_[count][0] > 0; ++count) {
            const float(&row)[8] = output_[count];
            const int matched = static_cast<int>(row[7]);
            tracks_[count] = {
                static_cast<int>(row[0]),
                classes_.class_of(row[1]),
                {to_pixels(row[2]), to_pixels(row[3]), to_pixels(row[4]), to_pixels(row[5])},
                row[6],
                is_crowded && matched != NO_DETECTION
                    ? static_cast<int>(kept_[static_cast<std::size_t>(matched)])
                    : matched};
        }
        return {tracks_.get(), count};
    }

    detail::ClassTable classes_;
    double units_per_pixel_ = 1;
    double pixels_per_unit_ = 1;
    int stable_ = 1;
    std::size_t capacity_ = 0;
    std::size_t dropped_ = 0;
    std::unique_ptr<float[][6]> input_;  ///< capacity + 1 rows: the last one ends a full list
    std::unique_ptr<float[][8]> output_; ///< capacity rows
    std::unique_ptr<Track[]> tracks_;
    std::unique_ptr<std::size_t[]> kept_; ///< in a crowded frame, the detections that are taken
    std::unique_ptr<void, Drain> handle_;
};

} // namespace LIBIV_ERRORS
} // namespace iv

#undef LIBIV_ERRORS
#undef LIBIV_NODISCARD

#endif
