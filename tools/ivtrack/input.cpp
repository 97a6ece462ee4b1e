#include "input.h"

#include <fmt/format.h>

#include <cerrno>
#include <cstring>
#include <iostream>

#include "text.h"

namespace ivtrack {

Input::Input(const std::string& path, bool skip_bad)
    : is_stream_(path == "-"),
      skip_bad_(skip_bad),
      name_(display_name(path, "<stdin>")),
      stream_(is_stream_ ? std::cin : file_) {
    if (is_stream_) {
        // Unsynchronised, a read returns as soon as a line is there.
        std::ios::sync_with_stdio(false);
        return;
    }
    errno = 0;
    file_.open(path, std::ios::binary);
    if (!file_) {
        throw SystemFailure(fmt::format("cannot open {}: {}", name_, std::strerror(errno)));
    }
}

int Input::peek() {
    errno = 0;
    const int byte = stream_.peek();
    check();
    return byte;
}

bool Input::next_line(std::string& line) {
    errno = 0;
    while (std::getline(stream_, line)) {
        ++line_number_;
        if (!trim(line).empty()) {
            return true;
        }
    }
    check();
    return false;
}

void Input::check() const {
    if (stream_.bad()) {
        throw SystemFailure(fmt::format("cannot read {}: {}", name_, std::strerror(errno)));
    }
}

void Input::reject(const BadValue& bad) {
    if (!skip_bad_) {
        throw BadInput(fmt::format("{}:{}: {}: expected {}", name_, line_number_,
                                   in_quotes(bad.value), bad.expected));
    }
    ++rejected_;
}

} // namespace ivtrack
