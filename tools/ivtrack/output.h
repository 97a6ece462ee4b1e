// A file that is written piece by piece, each piece handed to the system at once.
#ifndef IVTRACK_OUTPUT_H
#define IVTRACK_OUTPUT_H

#include <string>
#include <string_view>

namespace ivtrack {

class Output {
  public:
    /// Opens and empties a file, or takes standard output for "-".
    explicit Output(const std::string& path);
    ~Output();
    Output(const Output&) = delete;
    Output& operator=(const Output&) = delete;

    /// Writes all of the text before it returns, or throws SystemFailure.
    void write(std::string_view text);

    /// Closes the file; some systems report only here that what was written did not arrive.
    void close();

    bool is_terminal() const;

  private:
    [[noreturn]] void fail(const char* what) const;

    std::string name_;
    int descriptor_;
};

/// Throws BadInput when both names lead to one regular file: opening the output would empty it.
void refuse_same_file(const std::string& input, const std::string& output);

} // namespace ivtrack

#endif
