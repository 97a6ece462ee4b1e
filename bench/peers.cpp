#include "peers.h"

namespace bench {

Entrants everyone(const Task& task) {
    Entrants entrants;
    for (const auto enter : {enter_libiv, wide::enter_eigen, narrow::enter_eigen, wide::enter_loops,
                             narrow::enter_loops, enter_openblas, enter_libxsmm, enter_opencv,
                             enter_model, enter_copies, wide::enter_peak, narrow::enter_peak}) {
        enter(task, entrants);
    }
    return entrants;
}

} // namespace bench
