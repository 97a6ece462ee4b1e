// What the digests are of. Each part runs on the library and on the model, from the same inputs.
#ifndef LIBIV_TESTS_CORPUS_H
#define LIBIV_TESTS_CORPUS_H

#include <algorithm>
#include <iterator>
#include <map>
#include <string>
#include <vector>

#include "digests/digest.h"
#include "model/library.h"
#include "model/random_values.h"

namespace digests {

// The parts, one file each. Names without a slash are of small shapes of floats; names with one are
// of every depth, of odd shapes, long runs and scenes of their own.
template <class Side>
void digest_products(Digests& digests);
template <class Side>
void digest_elementwise(Digests& digests);
template <class Side>
void digest_inverse(Digests& digests);
template <class Side>
void digest_fixed3(Digests& digests);
template <class Side>
void digest_kalman(Digests& digests);
template <class Side>
void digest_tracker(Digests& digests);

/// Every digest of one side.
template <class Side>
void digest_all(Digests& digests);

/// The digests of a file, by name.
std::map<std::string, std::uint64_t> read(const std::string& path);

std::string hexadecimal(std::uint64_t value);

/// What is wrong with the digests of one side, a line each; nothing iff they are the expected ones.
/// Of the first that differ it is said where the library and the model part on the way. These are of
/// one build: what both do in the same wrong way has no such place.
std::vector<std::string> differences(const std::map<std::string, std::uint64_t>& expected,
                                     const std::map<std::string, std::uint64_t>& actual);

/// A packed matrix of random values that owns them. They start `misaligned` bytes behind an aligned
/// place, and there is room for `spare` more values behind them.
class Values {
  public:
    Values(test::Random& random, int type, int rows, int cols, float hostile, int misaligned = 0,
           int spare = 0)
        : bytes_(static_cast<std::size_t>(
              misaligned + (rows * cols * model::channels_of(type) + spare) * size(type))),
          mat_(model::header(type, rows, cols, bytes_.data() + misaligned)) {
        for (int i = 0; i < rows * cols * model::channels_of(type) + spare; ++i) {
            test::random_value(random, type, hostile, mat_.data + i * size(type));
        }
    }
    Values(const Values&) = delete;
    Values& operator=(const Values&) = delete;

    const model::Mat& mat() const { return mat_; }
    unsigned char* data() { return mat_.data; }

  private:
    static int size(int type) { return model::value_size(type); }

    std::vector<unsigned char> bytes_;
    model::Mat mat_;
};

/// The chance of hostile values by round.
constexpr float HOSTILE[] = {0.0f, 0.0f, 0.0f, 0.02f};

constexpr const char* DEPTHS[] = {"8U", "8S", "16U", "16S", "32S", "32F", "64S", "64F"};

/// The name of a case.
template <class... Size>
std::string round_of(int round, Size... sizes) {
    std::string name = "round " + std::to_string(round);
    [[maybe_unused]] const char* separator = ": ";
    ((name += separator + std::to_string(sizes), separator = " x "), ...);
    return name;
}

} // namespace digests

/// Makes a part, for both sides.
#define IV_DIGESTS_OF(PART)                       \
    template void PART<model::Library>(Digests&); \
    template void PART<model::Scalar>(Digests&)

#endif
