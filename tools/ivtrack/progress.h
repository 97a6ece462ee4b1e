// A progress bar on standard error.
#ifndef IVTRACK_PROGRESS_H
#define IVTRACK_PROGRESS_H

#include <chrono>
#include <cstddef>

namespace ivtrack {

class Progress {
  public:
    /// Draws nothing unless it is wanted and standard error is a terminal.
    Progress(bool wanted, std::size_t total);
    /// Leaves the line as it was before.
    ~Progress();
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;

    void update(std::size_t done);

  private:
    bool visible_;
    std::size_t total_;
    std::chrono::steady_clock::time_point next_{};
};

} // namespace ivtrack

#endif
