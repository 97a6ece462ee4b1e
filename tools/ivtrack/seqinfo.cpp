#include "seqinfo.h"

#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>

#include "errors.h"
#include "reader.h"
#include "text.h"

namespace ivtrack {
namespace {

std::vector<CLI::ConfigItem> read_ini(const std::filesystem::path& path, const std::string& name) {
    std::ifstream file(path);
    std::vector<CLI::ConfigItem> items;
    errno = 0;
    try {
        items = CLI::ConfigINI().from_config(file);
    } catch (const CLI::Error&) {
        throw BadInput(fmt::format("{}: expected lines key=value", name));
    }
    if (!file.is_open() || file.bad()) {
        throw SystemFailure(fmt::format("cannot read {}: {}", name, std::strerror(errno)));
    }
    return items;
}

} // namespace

SeqInfo SeqInfo::beside(const std::string& detections) {
    const std::filesystem::path folder =
        std::filesystem::absolute(std::filesystem::path(detections)).parent_path();
    const std::filesystem::path shown = std::filesystem::path(detections).parent_path();
    SeqInfo info;
    for (const char* step : {".", ".."}) {
        const std::filesystem::path path = folder / step / "seqinfo.ini";
        std::error_code ignored;
        if (!std::filesystem::is_regular_file(path, ignored)) {
            continue;
        }
        info.name_ = display_name((shown / step / "seqinfo.ini").lexically_normal().string(), "");
        for (const CLI::ConfigItem& item : read_ini(path, info.name_)) {
            if (item.name == "imWidth") {
                info.image_width_ = CLI::detail::join(item.inputs, " ");
            } else if (item.name == "frameRate") {
                info.frame_rate_ = CLI::detail::join(item.inputs, " ");
            }
        }
        break;
    }
    return info;
}

std::optional<double> SeqInfo::image_width() const {
    return value(image_width_, is_image_width, fmt::format("imWidth, {}", IMAGE_WIDTH));
}

std::optional<double> SeqInfo::frame_rate() const {
    return value(
        frame_rate_, [](double rate) { return rate > 0; }, "frameRate, a number above 0");
}

std::optional<double> SeqInfo::value(const std::optional<std::string>& text, bool (*holds)(double),
                                     const std::string& expected) const {
    if (!text) {
        return std::nullopt;
    }
    const std::optional<double> value = parse_number(*text);
    if (!value || !holds(*value)) {
        throw BadInput(fmt::format("{}: {}: expected {}", name_, in_quotes(*text), expected));
    }
    return value;
}

} // namespace ivtrack
