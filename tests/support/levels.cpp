#include "support/levels.h"

using namespace iv::internal;

namespace test {

#ifdef IV_DISPATCH

const std::vector<const Kernels*>& levels() {
    static const std::vector<const Kernels*> all{&KERNELS_BASELINE, &KERNELS_V3, &KERNELS_V4};
    return all;
}

bool runs(const Kernels& level) {
    return iv::internal::runs(level);
}

ForcedLevel::ForcedLevel(const Kernels& level) : before_(chosen_kernels) {
    chosen_kernels = &level;
}

ForcedLevel::~ForcedLevel() {
    chosen_kernels = before_;
}

#else

const std::vector<const Kernels*>& levels() {
    static const std::vector<const Kernels*> all{&KERNELS_BASELINE};
    return all;
}

bool runs(const Kernels&) {
    return true;
}

ForcedLevel::ForcedLevel(const Kernels& level) : before_(&level) {}

ForcedLevel::~ForcedLevel() = default;

#endif

const Kernels* level_named(const std::string& name) {
    for (const Kernels* level : levels()) {
        if (level->level == name) {
            return level;
        }
    }
    return nullptr;
}

} // namespace test
