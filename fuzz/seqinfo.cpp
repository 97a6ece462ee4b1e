// The reader of seqinfo.ini.
#include "seqinfo.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <stdexcept>

#include "errors.h"
#include "targets.h"
#include "text_file.h"

namespace fuzz {
namespace {

/// A folder with a seqinfo.ini whose text is in memory. It goes with the process.
class Sequence {
  public:
    Sequence() {
        std::string name = std::filesystem::temp_directory_path() / "libiv-fuzz.XXXXXX";
        if (!mkdtemp(name.data())) {
            throw std::runtime_error("a folder for seqinfo.ini cannot be made");
        }
        path_ = name;
        std::filesystem::create_symlink(text_.path(), path_ / "seqinfo.ini");
    }
    ~Sequence() {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }
    Sequence(const Sequence&) = delete;
    Sequence& operator=(const Sequence&) = delete;

    std::string operator/(const char* name) const { return path_ / name; }
    void replace(std::string_view text) { text_.replace(text); }

  private:
    TextFile text_;
    std::filesystem::path path_;
};

} // namespace

void seqinfo(Bytes in) {
    static Sequence sequence;
    const std::string path = sequence / "seqinfo.ini";
    sequence.replace(in.text());

    std::optional<ivtrack::SeqInfo> info;
    const auto unreadable = refusal_of<ivtrack::BadInput>(
        [&] { info = ivtrack::SeqInfo::beside(sequence / "det.txt"); });
    if (unreadable) {
        return expect_message(*unreadable, path);
    }
    EXPECT_EQ(info->name(), path);
    std::optional<double> width;
    if (const auto refusal = refusal_of<ivtrack::BadInput>([&] { width = info->image_width(); })) {
        expect_message(*refusal, path);
    }
    EXPECT_TRUE(!width || (*width >= 1 && *width <= 1e9)) << *width;
    std::optional<double> rate;
    if (const auto refusal = refusal_of<ivtrack::BadInput>([&] { rate = info->frame_rate(); })) {
        expect_message(*refusal, path);
    }
    EXPECT_TRUE(!rate || (*rate > 0 && std::isfinite(*rate))) << *rate;
}

} // namespace fuzz
