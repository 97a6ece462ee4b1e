#include "progress.h"

#include <fmt/format.h>
#include <unistd.h>

#include <cstdio>
#include <string>

namespace ivtrack {

Progress::Progress(bool wanted, std::size_t total)
    : visible_(wanted && total > 0 && isatty(STDERR_FILENO) == 1), total_(total) {}

Progress::~Progress() {
    if (visible_) {
        std::fputs("\r\033[K", stderr);
    }
}

void Progress::update(std::size_t done) {
    constexpr std::size_t CELLS = 40;
    constexpr std::chrono::milliseconds PERIOD(100);
    const auto now = std::chrono::steady_clock::now();
    if (!visible_ || now < next_) {
        return;
    }
    next_ = now + PERIOD;
    const std::string bar(done * CELLS / total_, '#');
    std::fputs(
        fmt::format("\r[{:<{}}] {:3}%  {}/{} frames", bar, CELLS, done * 100 / total_, done, total_)
            .c_str(),
        stderr);
}

} // namespace ivtrack
