// A filter of the library and one of the model that live the same life.
#ifndef LIBIV_TESTS_MODEL_FILTER_PAIR_H
#define LIBIV_TESTS_MODEL_FILTER_PAIR_H

#include "model/library.h"
#include "model/twin.h"

namespace test {

class FilterPair {
  public:
    /// Filters with models of their own.
    FilterPair(int ns, int nm) : library_(ns, nm), model_(ns, nm) {}
    /// Filters that refer to one model of somebody else's.
    FilterPair(int ns, int nm, int flag, const std::array<iv_mat_t*, 4>& shared)
        : library_(ns, nm, flag, shared[0], shared[1], shared[2], shared[3]),
          model_(ns, nm, model::mat_of(*shared[0]), model::mat_of(*shared[1]),
                 model::mat_of(*shared[2]), model::mat_of(*shared[3])) {}

    /// `work(filter)` with the library's, then with the model's.
    template <class Work>
    void both(Work work) {
        work(library_);
        work(model_);
    }

    /// Fails unless all headers and values agree.
    void expect_same() const { expect_same_matrices(model_.matrices(), library_.matrices()); }

    model::LibraryFilter& library() { return library_; }
    model::Kalman& model() { return model_; }

  private:
    model::LibraryFilter library_;
    model::Kalman model_;
};

} // namespace test

#endif
