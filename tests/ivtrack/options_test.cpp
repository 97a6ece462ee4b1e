// Options: what each of them changes, and which values are refused.
#include <fmt/format.h>
#include <gtest/gtest.h>
#include <libiv.h>

#include <algorithm>

#include "program.h"

namespace test {
namespace {

/// Ids reported over a scene of one object that moves by `step` pixels a frame; 10 pixels a unit.
std::size_t ids_of_moving(double step, double size, const Arguments& more,
                          const std::string& other_class = "1") {
    std::string scene;
    for (int frame = 1; frame <= 12; ++frame) {
        scene += fmt::format("{},-1,{},100,{},{},0.9,{}\n", frame, 20 + frame * step, size, size,
                             frame % 2 == 0 ? "1" : other_class);
    }
    Arguments arguments{"track", "-", "--width", "640"};
    arguments.insert(arguments.end(), more.begin(), more.end());
    const Result result = run(arguments, scene);
    EXPECT_EQ(result.status, 0) << result.err;
    std::vector<std::string> ids;
    for (const auto& row : rows_of(result.out)) {
        if (std::find(ids.begin(), ids.end(), row[1]) == ids.end()) {
            ids.push_back(row[1]);
        }
    }
    return ids.size();
}

TEST(IvtrackOptions, DistanceIsAGateOnTheSquaredDistanceInUnits) {
    // Without overlap, 9 pixels are 0.9 units: 0.81 squared.
    EXPECT_EQ(ids_of_moving(9, 4, {}), 1u);
    EXPECT_EQ(ids_of_moving(9, 4, {"--distance", "0.82"}), 1u);
    EXPECT_EQ(ids_of_moving(9, 4, {"--distance", "0.8"}), 0u);
    EXPECT_EQ(ids_of_moving(11, 4, {}), 0u);
}

TEST(IvtrackOptions, OverlapIsAGateOnIntersectionOverUnion) {
    // Steps of 15 pixels of a box of 50: 35 of 65 are shared.
    EXPECT_EQ(ids_of_moving(15, 50, {}), 1u);
    EXPECT_EQ(ids_of_moving(15, 50, {"--overlap", "0.53"}), 1u);
    EXPECT_EQ(ids_of_moving(15, 50, {"--overlap", "0.54"}), 0u);
}

TEST(IvtrackOptions, UnitsScaleTheGates) {
    EXPECT_EQ(ids_of_moving(11, 4, {"--units", "32"}), 1u);
    EXPECT_EQ(ids_of_moving(9, 4, {"--units", "128"}), 0u);
    // Ten units and more are out of reach, whatever overlaps.
    EXPECT_EQ(ids_of_moving(15, 50, {"--units", "640"}), 0u);
}

TEST(IvtrackOptions, StableIsTheNumberOfMatchesBeforeATrackIsReported) {
    for (const int stable : {1, 2, 3, 7}) {
        const Result result =
            run({"track", "-", "--width", "640", "--stable", fmt::format("{}", stable)},
                still_rows(1, 10));
        const auto rows = rows_of(result.out);
        ASSERT_FALSE(rows.empty());
        EXPECT_EQ(rows[0][0], fmt::format("{}", stable));
    }
}

TEST(IvtrackOptions, IgnoreClassLetsADetectionContinueATrackOfAnotherClass) {
    // Alternating classes: two tracks, each of which sees every other frame.
    EXPECT_EQ(ids_of_moving(1, 50, {}, "2"), 2u);
    EXPECT_EQ(ids_of_moving(1, 50, {"--ignore-class"}, "2"), 1u);
}

TEST(IvtrackOptions, MinScoreLeavesOutLowerScoresAndKeepsEqualOnes) {
    const std::string scene =
        still_rows(1, 4, "100,100,50,80,0.9") + still_rows(5, 6, "100,100,50,80,0.89");
    const Result result = run({"track", "-", "--width", "640", "--min-score", "0.9"}, scene);
    EXPECT_EQ(rows_of(result.out).size(), 2u);
    EXPECT_EQ(summary_value(result.err, "below --min-score"), "2");
    EXPECT_EQ(summary_value(result.err, "detections"), "4");
    EXPECT_EQ(run({"track", "-", "--width", "640", "--min-score", "-5"}, scene).status, 0);
}

TEST(IvtrackOptions, BoxesComeBackInPixelsWhateverTheScale) {
    for (const char* units : {"16", "64", "100", "3.7"}) {
        for (const char* width : {"640", "1920", "333.3", "8000"}) {
            const Result result = run({"track", "-", "--units", units, "--width", width},
                                      still_rows(1, 8, "123.45,67.891,210.5,0.25,0.75"));
            const auto rows = rows_of(result.out);
            ASSERT_EQ(rows.size(), 6u) << result.err;
            for (const auto& row : rows) {
                EXPECT_NEAR(std::stod(row[2]), 123.45, 0.002);
                EXPECT_NEAR(std::stod(row[3]), 67.891, 0.002);
                EXPECT_NEAR(std::stod(row[4]), 210.5, 0.002);
                EXPECT_NEAR(std::stod(row[5]), 0.25, 0.002);
            }
        }
    }
}

TEST(IvtrackOptions, HelpNamesEveryTuningValueWithTheLibrarysWord) {
    const Result result = run({"track", "--help"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.err, "");
    for (const char* word :
         {"--distance",   "euc_thresh",    "units squared", "--overlap",    "iou_thresh",
          "--stable",     "fcnt_stable",   "--removal",     "fcnt_removal", "--ignore-class",
          "ignore_class", "--max-objects", "nmaxobjs",      "--units",      "--width",
          "--fps",        "--min-score",   "--coasting",    "--format",     "--skip-bad"}) {
        EXPECT_NE(result.out.find(word), std::string::npos) << word;
    }
}

TEST(IvtrackOptions, VersionIsTheLibrarys) {
    const Result result = run({"--version"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.out, fmt::format("ivtrack {}.{}.{}\n", LIBIV_VERSION_MAJOR,
                                      LIBIV_VERSION_MINOR, LIBIV_VERSION_PATCH));
}

class IvtrackRefuses : public testing::TestWithParam<Arguments> {};

TEST_P(IvtrackRefuses, WrongUsageWithStatusTwo) {
    const Result result = run(GetParam(), still_rows(1, 4));
    EXPECT_EQ(result.status, 2) << result.err;
    EXPECT_EQ(result.err.rfind("ivtrack: ", 0), 0u) << result.err;
    EXPECT_EQ(result.out, "");
}

std::vector<Arguments> wrong_usages() {
    std::vector<Arguments> usages{
        {},           {"track"}, {"fly"}, {"track", "-", "more"}, {"track", "-", "--colour"},
        {"simulate"}, {"draw"}};
    const auto add = [&usages](const char* option, std::initializer_list<const char*> values) {
        for (const char* value : values) {
            usages.push_back({"track", "-", "--width=640", fmt::format("{}={}", option, value)});
        }
    };
    const auto numbers = {"nan", "inf", "-inf", "1e999", "abc", "1x", "0x1", ""};
    for (const char* option : {"--distance", "--overlap", "--units", "--fps", "--min-score"}) {
        add(option, numbers);
    }
    add("--distance", {"-0.1", "1.01"});
    add("--overlap", {"-0.1", "1.01"});
    add("--units", {"0", "-1", "1e10"});
    add("--fps", {"0", "-25"});
    add("--min-score", {"1e39"});
    add("--width", {"5"}); // given twice
    for (const char* option : {"--stable", "--removal"}) {
        add(option, {"0", "-1", "2147483648", "1.5", "nan", "x", ""});
    }
    add("--max-objects", {"0", "-1", "1000001", "1e3", "nan", ""});
    add("--coasting", {"keep", "1", ""});
    add("--format", {"xml", "0", ""});
    for (const char* width : {"0", "-640", "nan", "inf", "x"}) {
        usages.push_back({"track", "-", "--width", width});
    }
    for (const char* option :
         {"--frames=0", "--objects=-1", "--seed=-1", "--seed=x", "--width=1", "--height=0",
          "--fps=0", "--miss=1.1", "--miss=nan", "--false-alarms=-1", "--jitter=2"}) {
        usages.push_back({"simulate", "/nonexistent/folder", option});
    }
    usages.push_back({"draw", "-", "--width=0"});
    usages.push_back({"draw", "-", "--height=nan"});
    return usages;
}

INSTANTIATE_TEST_SUITE_P(Usages, IvtrackRefuses, testing::ValuesIn(wrong_usages()));

TEST(IvtrackOptions, LimitsThemselvesAreAccepted) {
    for (const char* option : {"--distance=0", "--distance=1", "--overlap=0", "--overlap=1",
                               "--stable=1", "--stable=2147483647", "--removal=1",
                               "--removal=2147483647", "--max-objects=1", "--fps=0.1"}) {
        const Result result = run({"track", "-", "--width", "640", option}, still_rows(1, 4));
        EXPECT_EQ(result.status, 0) << option << ": " << result.err;
    }
}

TEST(IvtrackOptions, AScaleOutOfAllProportionIsRefused) {
    for (const auto& [units, width] : {std::pair("1e-9", "1e9"), {"1e-12", "640"}}) {
        const Result result =
            run({"track", "-", "--units", units, "--width", width}, still_rows(1, 4));
        EXPECT_EQ(result.status, 2);
        EXPECT_NE(result.err.find("units a pixel"), std::string::npos) << result.err;
    }
}

} // namespace
} // namespace test
