// Pictures of tracks.
#include <fmt/format.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <regex>

#include "program.h"

namespace test {
namespace {

std::string draw(const std::string& rows, const Arguments& more = {}) {
    Arguments arguments{"draw", "-"};
    arguments.insert(arguments.end(), more.begin(), more.end());
    const Result result = run(arguments, rows);
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(result.err, "");
    return result.out;
}

/// Every element that is opened is closed, in order, and there is one outermost one.
void expect_well_formed(const std::string& svg) {
    const std::regex tag("<(/?)([a-zA-Z]+)((?: [a-zA-Z0-9:-]+=\"[^\"<]*\")*)(/?)>");
    std::vector<std::string> open;
    std::size_t roots = 0;
    for (auto match = std::sregex_iterator(svg.begin(), svg.end(), tag);
         match != std::sregex_iterator(); ++match) {
        const std::string name = (*match)[2];
        roots += open.empty();
        if ((*match)[1].length() > 0) {
            ASSERT_FALSE(open.empty());
            ASSERT_EQ(open.back(), name);
            open.pop_back();
            roots -= open.empty() && name != "svg";
        } else if ((*match)[4].length() == 0) {
            open.push_back(name);
        }
    }
    EXPECT_TRUE(open.empty());
    EXPECT_EQ(roots, 1u);
    EXPECT_EQ(std::regex_replace(svg, tag, "").find_first_of("<>&"), std::string::npos)
        << "something is no tag";
    EXPECT_EQ(svg.rfind("<svg xmlns=\"http://www.w3.org/2000/svg\"", 0), 0u);
}

std::size_t count(const std::string& text, const std::string& part) {
    std::size_t found = 0;
    for (std::size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) {
        ++found;
    }
    return found;
}

std::string path_rows(int id, int first, int last) {
    std::string rows;
    for (int frame = first; frame <= last; ++frame) {
        rows += fmt::format("{},{},{},{},50,80,0.9,1,-1,-1\n", frame, id, 100 + 7 * frame, 40 * id);
    }
    return rows;
}

// The legend holds one line of either kind.
constexpr std::size_t IN_LEGEND = 1;

TEST(IvtrackDraw, APictureIsWellFormedAndHoldsEveryIdentity) {
    const std::string svg = draw(path_rows(1, 1, 9) + path_rows(2, 3, 20) + path_rows(31, 5, 7));
    expect_well_formed(svg);
    EXPECT_NE(svg.find("3 identities, frames 1 to 20"), std::string::npos);
    for (const char* id : {">1</text>", ">2</text>", ">31</text>"}) {
        EXPECT_NE(svg.find(id), std::string::npos) << id;
    }
    EXPECT_EQ(count(svg, "<polyline class=\"seen\""), 3 + IN_LEGEND);
    EXPECT_EQ(count(svg, "<polyline class=\"unseen\""), IN_LEGEND);
    EXPECT_EQ(svg.find("http", 40), std::string::npos) << "the picture needs something outside";
}

TEST(IvtrackDraw, FramesWithoutABoxAreDotted) {
    const std::string svg = draw(path_rows(1, 1, 9) + path_rows(1, 15, 20));
    EXPECT_EQ(count(svg, "<polyline class=\"seen\""), 2 + IN_LEGEND);
    EXPECT_EQ(count(svg, "<polyline class=\"unseen\""), 1 + IN_LEGEND);
}

TEST(IvtrackDraw, IdentitiesHaveTheirOwnColours) {
    std::string rows;
    for (int id = 1; id <= 12; ++id) {
        rows += path_rows(id, 1, 2);
    }
    const std::string svg = draw(rows);
    const std::regex color("<g stroke=\"(hsl[^\"]*)\"");
    std::vector<std::string> colors;
    for (auto match = std::sregex_iterator(svg.begin(), svg.end(), color);
         match != std::sregex_iterator(); ++match) {
        colors.push_back((*match)[1]);
    }
    ASSERT_EQ(colors.size(), 12u);
    std::sort(colors.begin(), colors.end());
    EXPECT_EQ(std::unique(colors.begin(), colors.end()), colors.end());
}

TEST(IvtrackDraw, TheCanvasIsTheImageWhereItsSizeIsGiven) {
    const std::string rows = "1,1,100,100,100,100,0.9\n2,1,100,100,100,100,0.9\n";
    // The middle of the lower edge, 150, 200, on a canvas of 960 with margins of 24 and 64.
    EXPECT_NE(draw(rows, {"--width", "960", "--height", "540"}).find("points=\"174.0,264.0 "),
              std::string::npos);
    EXPECT_NE(draw(rows, {"--width", "480", "--height", "270"}).find("points=\"324.0,464.0 "),
              std::string::npos);
}

TEST(IvtrackDraw, ResultsAndGroundTruthOfASceneCanBeDrawn) {
    Folder folder;
    EXPECT_EQ(run({"simulate", folder / "s"}).status, 0);
    EXPECT_EQ(run({"track", folder / "s/det/det.txt", "-o", folder / "tracks.txt"}).status, 0);
    for (const char* name : {"tracks.txt", "s/gt/gt.txt"}) {
        EXPECT_EQ(run({"draw", folder / name, "-o", folder / "out.svg"}).status, 0);
        expect_well_formed(read_file(folder / "out.svg"));
    }
}

TEST(IvtrackDraw, ExtremesGiveAPictureAllTheSame) {
    expect_well_formed(draw(""));
    expect_well_formed(draw("1,1,5,5,0,0,0.9\n"));
    expect_well_formed(draw("1,1,-1e18,-1e18,1e18,1e18,0.9\n9223372036854775807,1,0,0,1e18,1,1\n"));
    EXPECT_EQ(draw("1,1,-1e18,5,1e18,0,0.9\n").find("nan"), std::string::npos);
}

TEST(IvtrackDraw, DetectionsWithoutIdentitiesAreRefused) {
    for (const char* id : {"-1", "1.5", "1e300"}) {
        const Result result = run({"draw", "-"}, fmt::format("1,{},5,5,9,9,0.9\n", id));
        EXPECT_EQ(result.status, 2) << id;
        EXPECT_EQ(result.out, "");
        EXPECT_NE(result.err.find("<stdin>:1: "), std::string::npos) << result.err;
        EXPECT_NE(result.err.find("expected an identity"), std::string::npos) << result.err;
    }
}

TEST(IvtrackDraw, AFullDiskIsAnError) {
    const Result result = run({"draw", "-", "-o", "/dev/full"}, path_rows(1, 1, 5));
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(lines_of(result.err).size(), 1u) << result.err;
}

} // namespace
} // namespace test
