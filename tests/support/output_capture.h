// What a piece of code writes to standard output.
#ifndef LIBIV_TESTS_OUTPUT_CAPTURE_H
#define LIBIV_TESTS_OUTPUT_CAPTURE_H

#include <unistd.h>

#include <cstdio>
#include <stdexcept>
#include <string>

namespace test {

/// While one lives, standard output goes to a temporary file. Not nested.
class OutputCapture {
  public:
    OutputCapture() : file_(std::tmpfile()), saved_(dup(STDOUT_FILENO)) {
        std::fflush(stdout);
        if (!file_ || saved_ < 0 || dup2(fileno(file_), STDOUT_FILENO) < 0) {
            throw std::runtime_error("standard output cannot be captured");
        }
    }

    ~OutputCapture() {
        std::fflush(stdout);
        dup2(saved_, STDOUT_FILENO);
        close(saved_);
        std::fclose(file_);
    }

    OutputCapture(const OutputCapture&) = delete;
    OutputCapture& operator=(const OutputCapture&) = delete;

    /// Everything written so far.
    std::string text() {
        std::fflush(stdout);
        std::string result;
        std::rewind(file_);
        for (int byte = std::fgetc(file_); byte != EOF; byte = std::fgetc(file_)) {
            result.push_back(static_cast<char>(byte));
        }
        return result;
    }

  private:
    std::FILE* file_;
    int saved_;
};

} // namespace test

#endif
