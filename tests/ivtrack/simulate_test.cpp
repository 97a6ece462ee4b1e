// Invented scenes.
#include <fmt/format.h>
#include <gtest/gtest.h>

#include <cmath>
#include <iterator>
#include <map>
#include <set>
#include <sstream>

#include "program.h"

namespace test {
namespace {

struct Scene {
    std::string detections, truth, info;
};

Scene simulate(const Arguments& options) {
    Folder folder;
    Arguments arguments{"simulate", folder / "scene"};
    arguments.insert(arguments.end(), options.begin(), options.end());
    const Result result = run(arguments);
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(result.out + result.err, "");
    return {read_file(folder / "scene/det/det.txt"), read_file(folder / "scene/gt/gt.txt"),
            read_file(folder / "scene/seqinfo.ini")};
}

double number(const std::string& text) {
    return std::stod(text);
}

TEST(IvtrackSimulate, TheSampleIsWhatItsReadmeSays) {
    // The command stands in the README of the samples; its options are taken from there.
    const std::string readme = read_file(std::string(IVTRACK_SAMPLES) + "/README.md");
    const std::string command = "ivtrack simulate samples/crossing ";
    const std::size_t begin = readme.find(command);
    ASSERT_NE(begin, std::string::npos);
    const std::size_t options = begin + command.size();
    std::istringstream words(readme.substr(options, readme.find('\n', options) - options));
    const Arguments arguments{std::istream_iterator<std::string>(words), {}};
    const Scene scene = simulate(arguments);
    const std::string sample = std::string(IVTRACK_SAMPLES) + "/crossing/";
    EXPECT_EQ(scene.detections, read_file(sample + "det/det.txt"));
    EXPECT_EQ(scene.truth, read_file(sample + "gt/gt.txt"));
    EXPECT_EQ(scene.info, read_file(sample + "seqinfo.ini"));
}

TEST(IvtrackSimulate, TheSeedDecides) {
    const Scene scene = simulate({"--seed", "5"});
    EXPECT_EQ(scene.detections, simulate({"--seed", "5"}).detections);
    EXPECT_NE(scene.detections, simulate({"--seed", "6"}).detections);
    EXPECT_NE(scene.truth, simulate({"--seed", "6"}).truth);
}

TEST(IvtrackSimulate, SeqinfoTellsTheSizeTheRateAndTheLength) {
    EXPECT_EQ(simulate({"--frames", "30", "--width", "640", "--height", "480", "--fps", "10"}).info,
              "[Sequence]\nname=simulated-1\nframeRate=10\nseqLength=30\nimWidth=640\n"
              "imHeight=480\n");
}

TEST(IvtrackSimulate, TheTruthHasNineColumnsTwoClassesAndOneRowAnObjectAndFrame) {
    std::set<std::string> classes;
    std::set<std::pair<std::string, std::string>> seen;
    for (const auto& row : rows_of(simulate({}).truth)) {
        ASSERT_EQ(row.size(), 9u);
        EXPECT_TRUE(seen.insert({row[0], row[1]}).second) << row[0] << ", " << row[1];
        EXPECT_GE(number(row[0]), 1);
        EXPECT_LE(number(row[0]), 200);
        EXPECT_EQ(row[6], "1");
        classes.insert(row[7]);
        EXPECT_GE(number(row[8]), 0);
        EXPECT_LE(number(row[8]), 1);
    }
    EXPECT_EQ(classes, (std::set<std::string>{"1", "2"}));
}

TEST(IvtrackSimulate, ObjectsKeepTheirClassAndMoveSmoothly) {
    std::map<std::string, std::vector<std::string>> latest;
    for (const auto& row : rows_of(simulate({"--frames", "400"}).truth)) {
        const auto before = latest.find(row[1]);
        if (before != latest.end() && number(row[0]) == number(before->second[0]) + 1) {
            EXPECT_EQ(row[7], before->second[7]);
            EXPECT_NEAR(number(row[2]), number(before->second[2]), 40);
            EXPECT_NEAR(number(row[3]), number(before->second[3]), 10);
        }
        latest[row[1]] = row;
    }
    EXPECT_GT(latest.size(), 8u) << "nobody came in";
}

TEST(IvtrackSimulate, ObjectsCrossAndHideEachOther) {
    std::map<std::string, std::map<std::string, double>> lefts_of_frame;
    std::size_t hidden = 0;
    for (const auto& row : rows_of(simulate({}).truth)) {
        lefts_of_frame[row[0]][row[1]] = number(row[2]);
        hidden +=
            number(row[2]) > 0 && number(row[2]) + number(row[4]) < 1280 && number(row[8]) < 0.3;
    }
    EXPECT_GT(hidden, 0u);
    std::set<std::pair<std::string, std::string>> left_of;
    std::size_t crossings = 0;
    for (const auto& [frame, lefts] : lefts_of_frame) {
        for (const auto& [a, left_a] : lefts) {
            for (const auto& [b, left_b] : lefts) {
                crossings +=
                    left_a < left_b && left_of.count({b, a}) > 0 && left_of.insert({a, b}).second;
                if (left_a < left_b) {
                    left_of.insert({a, b});
                }
            }
        }
    }
    EXPECT_GT(crossings, 0u);
}

TEST(IvtrackSimulate, APerfectDetectorSeesEveryObjectThatIsNotHidden) {
    const Scene scene = simulate({"--miss", "0", "--false-alarms", "0", "--jitter", "0"});
    std::multiset<std::string> visible;
    for (const auto& row : rows_of(scene.truth)) {
        if (number(row[8]) > 0.3) {
            visible.insert(row[0] + " " + row[7]);
        }
    }
    std::multiset<std::string> detected;
    for (const auto& row : rows_of(scene.detections)) {
        ASSERT_EQ(row.size(), 10u);
        detected.insert(row[0] + " " + row[7]);
        EXPECT_GE(number(row[2]), 0);
        EXPECT_LE(number(row[2]) + number(row[4]), 1280.001);
        EXPECT_GE(number(row[3]), 0);
        EXPECT_LE(number(row[3]) + number(row[5]), 720.001);
    }
    EXPECT_EQ(detected, visible);
}

TEST(IvtrackSimulate, MissesAndFalseAlarmsComeAsOftenAsAsked) {
    const auto count = [](const char* miss, const char* false_alarms) {
        return lines_of(
                   simulate({"--frames", "2000", "--miss", miss, "--false-alarms", false_alarms})
                       .detections)
            .size();
    };
    EXPECT_EQ(count("1", "0"), 0u);
    EXPECT_EQ(count("1", "1"), 2000u);
    const std::size_t some = count("1", "0.25");
    EXPECT_GT(some, 400u);
    EXPECT_LT(some, 600u);
    const double half = static_cast<double>(count("0.5", "0"));
    EXPECT_NEAR(half / static_cast<double>(count("0", "0")), 0.5, 0.1);
}

TEST(IvtrackSimulate, NoObjectsGiveEmptyFilesThatTrackAccepts) {
    Folder folder;
    EXPECT_EQ(run({"simulate", folder / "s", "--objects", "0", "--false-alarms", "0"}).status, 0);
    const Result result = run({"track", folder / "s/det/det.txt"});
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(result.out, "");
}

TEST(IvtrackSimulate, TracksOfTheSceneFollowTheTruth) {
    Folder folder;
    const Arguments make{"simulate", folder / "s", "--miss", "0",         "--false-alarms",
                         "0",        "--jitter",   "0",      "--objects", "3"};
    EXPECT_EQ(run(make).status, 0);
    std::map<std::string, std::vector<std::vector<std::string>>> truth;
    for (const auto& row : rows_of(read_file(folder / "s/gt/gt.txt"))) {
        truth[row[0]].push_back(row);
    }
    std::size_t near = 0;
    const auto tracks = rows_of(run({"track", folder / "s/det/det.txt"}).out);
    for (const auto& row : tracks) {
        for (const auto& object : truth[row[0]]) {
            if (object[7] == row[7] &&
                std::abs(number(object[3]) + number(object[5]) - number(row[3]) - number(row[5])) <
                    8 &&
                number(object[2]) < number(row[2]) + number(row[4]) &&
                number(row[2]) < number(object[2]) + number(object[4])) {
                ++near;
                break;
            }
        }
    }
    EXPECT_GT(tracks.size(), 200u);
    EXPECT_GT(static_cast<double>(near), 0.95 * static_cast<double>(tracks.size()));
}

TEST(IvtrackSimulate, AFolderThatCannotBeMadeIsAnError) {
    Folder folder;
    const std::string file = folder.write("file", "");
    const Result result = run({"simulate", file + "/below"});
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(lines_of(result.err).size(), 1u) << result.err;
}

} // namespace
} // namespace test
