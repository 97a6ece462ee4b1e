// Who can do what: each of these adds its entrants for a task, or none. One file in peers/ each.
#ifndef LIBIV_BENCH_PEERS_H
#define LIBIV_BENCH_PEERS_H

#include "entrant.h"
#include "task.h"

namespace bench {

void enter_libiv(const Task&, Entrants&);
void enter_model(const Task&, Entrants&);
void enter_copies(const Task&, Entrants&);
void enter_openblas(const Task&, Entrants&);
void enter_libxsmm(const Task&, Entrants&);
void enter_opencv(const Task&, Entrants&);

// Compiled twice from the same source, for all that the machine has and without AVX-512.
namespace wide {
void enter_eigen(const Task&, Entrants&);
void enter_loops(const Task&, Entrants&);
void enter_peak(const Task&, Entrants&);
} // namespace wide

namespace narrow {
void enter_eigen(const Task&, Entrants&);
void enter_loops(const Task&, Entrants&);
void enter_peak(const Task&, Entrants&);
} // namespace narrow

/// All of them, the library first.
Entrants everyone(const Task& task);

std::string openblas_version();
std::string libxsmm_version();
std::string opencv_version();

} // namespace bench

#endif
