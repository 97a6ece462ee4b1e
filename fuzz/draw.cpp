// The reader of tracks, and the picture that is made of what it accepts.
#include <gtest/gtest.h>

#include "commands.h"
#include "errors.h"
#include "targets.h"
#include "text_file.h"

namespace fuzz {
namespace {

/// A picture without a number that no viewer reads, or the refusal.
std::optional<std::string> drawn(std::string_view text, const ivtrack::DrawOptions& sizes) {
    const TextFile input(text);
    const TextFile output;
    ivtrack::DrawOptions options = sizes;
    options.input = input.path();
    options.output = output.path();
    if (const auto refusal = refusal_of<ivtrack::BadInput>([&] { ivtrack::draw(options); })) {
        expect_located_message(*refusal, input.path(), text);
        EXPECT_EQ(output.text(), "") << "bad input leaves the output as it was";
        return std::nullopt;
    }
    const std::string svg = output.text();
    EXPECT_EQ(svg.rfind("<svg ", 0), 0u);
    EXPECT_EQ(svg.substr(svg.size() - std::min<std::size_t>(7, svg.size())), "</svg>\n");
    EXPECT_EQ(svg.find("nan"), std::string::npos) << svg;
    EXPECT_EQ(svg.find("inf"), std::string::npos) << svg;
    return svg;
}

} // namespace

void draw(Bytes in) {
    const std::string_view text = in.text();
    const auto fitted = drawn(text, {});
    ivtrack::DrawOptions sizes;
    sizes.width = 640;
    sizes.height = 1;
    EXPECT_EQ(drawn(text, sizes).has_value(), fitted.has_value());
}

} // namespace fuzz
