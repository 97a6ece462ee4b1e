#include "output.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <optional>

#include "errors.h"
#include "text.h"

namespace ivtrack {
namespace {

std::optional<struct stat> status_of(const std::string& path, int standard_descriptor) {
    struct stat status {};
    const int result =
        path == "-" ? fstat(standard_descriptor, &status) : stat(path.c_str(), &status);
    return result == 0 ? std::optional(status) : std::nullopt;
}

} // namespace

Output::Output(const std::string& path)
    : name_(display_name(path, "<stdout>")),
      descriptor_(path == "-"
                      ? STDOUT_FILENO
                      : open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666)) {
    if (descriptor_ < 0) {
        fail("open");
    }
}

Output::~Output() {
    if (descriptor_ >= 0) {
        ::close(descriptor_);
    }
}

void Output::write(std::string_view text) {
    while (!text.empty()) {
        const ssize_t written = ::write(descriptor_, text.data(), text.size());
        if (written >= 0) {
            text.remove_prefix(static_cast<std::size_t>(written));
        } else if (errno == EAGAIN) {
            // The other end of a pipe may have made it non-blocking for both.
            pollfd writable{descriptor_, POLLOUT, 0};
            poll(&writable, 1, -1);
        } else if (errno != EINTR) {
            fail("write");
        }
    }
}

void Output::close() {
    const int descriptor = descriptor_;
    descriptor_ = -1;
    if (::close(descriptor) != 0) {
        fail("write");
    }
}

bool Output::is_terminal() const {
    return isatty(descriptor_) == 1;
}

void Output::fail(const char* what) const {
    throw SystemFailure(fmt::format("cannot {} {}: {}", what, name_, std::strerror(errno)));
}

void refuse_same_file(const std::string& input, const std::string& output) {
    const std::optional<struct stat> in = status_of(input, STDIN_FILENO);
    const std::optional<struct stat> out = status_of(output, STDOUT_FILENO);
    if (in && out && S_ISREG(in->st_mode) && in->st_dev == out->st_dev &&
        in->st_ino == out->st_ino) {
        throw BadInput(fmt::format("{}: expected an output file other than the input",
                                   display_name(output, "<stdout>")));
    }
}

} // namespace ivtrack
