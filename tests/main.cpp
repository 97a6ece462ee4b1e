// Runs the tests. With --level=NAME the library works with the kernels of that instruction set
// throughout. A status of its own tells that the CPU lacks them, or takes them without being told.
#include <gtest/gtest.h>

#include <cstdio>
#include <optional>
#include <string>

#include "support/levels.h"

namespace {

constexpr int USAGE = 2;
constexpr int SKIPPED = 77;

} // namespace

int main(int argc, char** argv) {
    testing::InitGoogleTest(&argc, argv);
    const std::string option = "--level=";
    std::optional<test::ForcedLevel> forced;
    for (int i = 1; i < argc; ++i) {
        const std::string argument = argv[i];
        const bool names_level = argument.rfind(option, 0) == 0;
        const iv::internal::Kernels* level =
            names_level ? test::level_named(argument.substr(option.size())) : nullptr;
        if (!level) {
            std::fprintf(stderr, "%s: no such option or level\n", argument.c_str());
            return USAGE;
        }
        if (!test::runs(*level)) {
            std::printf("SKIPPED: this CPU lacks the instructions of level %s\n", level->level);
            return SKIPPED;
        }
        if (level == &iv::internal::kernels()) {
            std::printf("SKIPPED: the tests run with level %s unless told otherwise\n",
                        level->level);
            return SKIPPED;
        }
        forced.emplace(*level);
    }
    std::printf("Kernels of level %s\n", iv::internal::kernels().level);
    return RUN_ALL_TESTS();
}
