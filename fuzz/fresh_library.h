// What every target of the library starts with, so that an input means the same whatever ran before.
#ifndef LIBIV_FUZZ_FRESH_LIBRARY_H
#define LIBIV_FUZZ_FRESH_LIBRARY_H

#include "bytes.h"
#include "iv_matrix/inverse.h"
#include "model/inverse.h"
#include "support/levels.h"

namespace fuzz {

/// The library as a process finds it, with the kernels that the input chooses.
class FreshLibrary {
  public:
    explicit FreshLibrary(Bytes& in) : level_(level(in.byte())) {
        iv::internal::inverse_work_area() = {};
        model::inverse_area() = {};
    }

  private:
    /// The best that this machine runs of the one asked for and those below it.
    static const iv::internal::Kernels& level(unsigned choice) {
        const auto& levels = test::levels();
        std::size_t n = levels.size() - 1 - choice % levels.size();
        while (!test::runs(*levels[n])) {
            --n;
        }
        return *levels[n];
    }

    test::ForcedLevel level_;
};

} // namespace fuzz

#endif
