#include "text_file.h"

#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <iostream>
#include <stdexcept>

namespace fuzz {

TextFile::TextFile(std::string_view text)
    : descriptor_(memfd_create("text", MFD_CLOEXEC)),
      path_("/proc/self/fd/" + std::to_string(descriptor_)) {
    replace(text);
}

TextFile::~TextFile() {
    close(descriptor_);
}

void TextFile::replace(std::string_view text) {
    if (ftruncate(descriptor_, 0) != 0 ||
        pwrite(descriptor_, text.data(), text.size(), 0) != static_cast<ssize_t>(text.size())) {
        throw std::runtime_error("a file in memory cannot be written");
    }
}

std::string TextFile::text() const {
    struct stat status {};
    fstat(descriptor_, &status);
    std::string text(static_cast<std::size_t>(status.st_size), '\0');
    if (pread(descriptor_, text.data(), text.size(), 0) != status.st_size) {
        throw std::runtime_error("a file in memory cannot be read");
    }
    return text;
}

StandardInput::StandardInput(std::string_view text) : buffer_(std::string(text), std::ios::in) {
    // A reader that does so itself would give std::cin its old buffer back.
    std::ios::sync_with_stdio(false);
    before_ = std::cin.rdbuf(&buffer_);
}

StandardInput::~StandardInput() {
    std::cin.rdbuf(before_);
    std::cin.clear();
}

void expect_message(const std::string& message, const std::string& name) {
    EXPECT_EQ(message.rfind(name + ":", 0), 0u) << message;
    EXPECT_TRUE(std::all_of(message.begin(), message.end(), [](unsigned char byte) {
        return byte >= ' ' && byte != 0x7f;
    })) << message;
}

std::int64_t expect_located_message(const std::string& message, const std::string& name,
                                    std::string_view text) {
    expect_message(message, name);
    char* end = nullptr;
    const std::int64_t line = std::strtoll(message.c_str() + name.size() + 1, &end, 10);
    EXPECT_GE(line, 1) << message;
    EXPECT_LE(line, std::count(text.begin(), text.end(), '\n') + 1) << message;
    EXPECT_EQ(std::string(end, std::min<std::size_t>(3, std::string(end).size())), ": \"")
        << message;
    EXPECT_NE(message.find(": expected "), std::string::npos) << message;
    return line;
}

} // namespace fuzz
