// The instruction sets that the kernels are compiled for, and how a test works with each.
#ifndef LIBIV_TESTS_LEVELS_H
#define LIBIV_TESTS_LEVELS_H

#include <string>
#include <vector>

#include "iv_lanes/kernels.h"

namespace test {

/// The tables of this architecture, the plainest first.
const std::vector<const iv::internal::Kernels*>& levels();

/// The table of a name, or null.
const iv::internal::Kernels* level_named(const std::string& name);

/// Whether this CPU has the instructions, by the library's own word.
bool runs(const iv::internal::Kernels& level);

/// While one lives, the library works with the given table. Where there is only one, with that.
class ForcedLevel {
  public:
    explicit ForcedLevel(const iv::internal::Kernels& level);
    ~ForcedLevel();
    ForcedLevel(const ForcedLevel&) = delete;
    ForcedLevel& operator=(const ForcedLevel&) = delete;

  private:
    const iv::internal::Kernels* before_;
};

/// The name of a parameterised test's level.
struct LevelName {
    template <class Info>
    std::string operator()(const Info& info) const {
        return info.param->level;
    }
};

} // namespace test

#endif
