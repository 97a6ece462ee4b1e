// The input as numbered lines, and what becomes of a bad one.
#ifndef IVTRACK_INPUT_H
#define IVTRACK_INPUT_H

#include <cstdint>
#include <fstream>
#include <istream>
#include <string>

#include "errors.h"

namespace ivtrack {

class Input {
  public:
    /// Opens a file, or standard input for "-". With `skip_bad`, bad lines are counted and dropped.
    Input(const std::string& path, bool skip_bad);

    /// Standard input is read frame by frame, everything else as a whole.
    bool is_stream() const { return is_stream_; }
    const std::string& name() const { return name_; }

    /// The first byte, which stays to be read, or a negative value when there is none.
    int peek();

    /// Reads the next line that is not blank. False at the end.
    bool next_line(std::string& line);

    /// Counts what is wrong in the current line, or throws BadInput saying where it stands.
    void reject(const BadValue& bad);
    std::int64_t rejected() const { return rejected_; }

  private:
    void check() const;

    bool is_stream_;
    bool skip_bad_;
    std::string name_;
    std::ifstream file_;
    std::istream& stream_;
    std::int64_t line_number_ = 0;
    std::int64_t rejected_ = 0;
};

} // namespace ivtrack

#endif
