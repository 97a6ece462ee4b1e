// The same bytes twice: the library works on one copy, the model on the other.
#ifndef LIBIV_TESTS_MODEL_TWIN_H
#define LIBIV_TESTS_MODEL_TWIN_H

#include <memory>
#include <vector>

#include "model/library.h"
#include "model/random_values.h"
#include "support/guarded.h"

namespace test {

/// A matrix somewhere in a Twin.
struct Operand {
    model::Mat mat; ///< its data is set when the copies are made
    std::size_t offset;
};

enum class NanRule {
    COPIED,  ///< every bit counts
    PRODUCED ///< any NaN equals any other
};

/// Operands are laid out one after the other at random alignments with random bytes between; then
/// `run` makes the two copies and lets both sides work.
class Twin {
  public:
    explicit Twin(Random& random, float hostile = 0.0f) : random_(random), hostile_(hostile) {}

    /// Room for a packed matrix (or `bytes`, when that is more), filled with random values.
    Operand place(int type, int rows, int cols, std::size_t bytes = 0);
    /// The same without hostile values, so that a change of any bit is seen.
    Operand place_destination(int type, int rows, int cols, std::size_t bytes = 0);
    /// A header over bytes that were placed before.
    static Operand over(std::size_t offset, int type, int rows, int cols);

    /// `work(side, at)` with side = Library{}, then Scalar{}; at(operand) is that side's matrix.
    template <class Work>
    void run(Work work) {
        const std::size_t misaligned = random_.bits() % 16;
        library_ = copy(misaligned);
        model_ = copy(misaligned);
        work(model::Library{}, [&](const Operand& operand) { return at(*library_, operand); });
        work(model::Scalar{}, [&](const Operand& operand) { return at(*model_, operand); });
    }

    /// Fails unless both copies hold the same bytes; the rule concerns the values of `dst`.
    void expect_same(const Operand& dst, NanRule rule) const;
    /// Fails if the library wrote anything.
    void expect_untouched() const;
    /// True when the model's `dst` holds a NaN.
    bool produced_nan(const Operand& dst) const;

  private:
    std::unique_ptr<Guarded> copy(std::size_t misaligned) const;
    static model::Mat at(Guarded& side, const Operand& operand);
    void append_random_bytes(std::size_t count);

    Random& random_;
    float hostile_;
    std::vector<unsigned char> bytes_;
    std::unique_ptr<Guarded> library_;
    std::unique_ptr<Guarded> model_;
};

/// Whether two packed matrices of one type and shape hold the same bytes.
bool same_bytes(const model::Mat& a, const model::Mat& b);

/// Fails on the first value in which two packed matrices differ.
void expect_same_values(const model::Mat& expected, const model::Mat& actual, NanRule rule);

/// True when a packed matrix holds a NaN.
bool holds_nan(const model::Mat& mat);

/// Where two packed matrices hold the same number and it is a NaN, `to` takes over its bits.
void adopt_nans(const model::Mat& from, const model::Mat& to);

/// Fails likewise on the matrices of two filters, whose headers have to agree.
void expect_same_matrices(const std::array<model::Mat, 14>& expected,
                          const std::array<model::Mat, 14>& actual);

} // namespace test

#endif
