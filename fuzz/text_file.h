// Text as the program's readers take it: a file, or standard input.
#ifndef LIBIV_FUZZ_TEXT_FILE_H
#define LIBIV_FUZZ_TEXT_FILE_H

#include <cstdint>
#include <optional>
#include <sstream>
#include <string>
#include <string_view>

namespace fuzz {

/// A file that exists in memory alone, reached by a path.
class TextFile {
  public:
    explicit TextFile(std::string_view text = {});
    ~TextFile();
    TextFile(const TextFile&) = delete;
    TextFile& operator=(const TextFile&) = delete;

    const std::string& path() const { return path_; }
    std::string text() const;
    void replace(std::string_view text);

  private:
    int descriptor_;
    std::string path_;
};

/// While one lives, std::cin reads the text. Not nested.
class StandardInput {
  public:
    explicit StandardInput(std::string_view text);
    ~StandardInput();
    StandardInput(const StandardInput&) = delete;
    StandardInput& operator=(const StandardInput&) = delete;

  private:
    std::stringbuf buffer_;
    std::streambuf* before_;
};

/// What `work` says of its input when it refuses it, or nothing.
template <class Refusal, class Work>
std::optional<std::string> refusal_of(Work work) {
    try {
        work();
        return std::nullopt;
    } catch (const Refusal& refusal) {
        return refusal.what();
    }
}

/// Fails unless the message is one printable line that begins with the file's name.
void expect_message(const std::string& message, const std::string& name);

/// The same for a message that also names the line, the value and what was expected. Returns the
/// number of the line, which has to be one of the text's.
std::int64_t expect_located_message(const std::string& message, const std::string& name,
                                    std::string_view text);

} // namespace fuzz

#endif
