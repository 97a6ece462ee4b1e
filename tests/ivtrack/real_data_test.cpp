// Real detections, which may not be distributed with the project. LIBIV_DATA names their directory.
#include <fmt/format.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <map>
#include <set>

#include "program.h"

namespace test {
namespace {

class IvtrackRealData : public testing::Test {
  protected:
    void SetUp() override {
        const char* directory = std::getenv("LIBIV_DATA");
        if (!directory) {
            GTEST_SKIP() << "LIBIV_DATA does not name a directory of real detections";
        }
        directory_ = directory;
    }

    std::string directory_;
};

/// A whole number that is written as one, or -1.
long whole(const std::string& text) {
    char* end = nullptr;
    const long value = std::strtol(text.c_str(), &end, 10);
    return !text.empty() && *end == '\0' ? value : -1;
}

struct Sequence {
    const char* name;
    int frames;
    const char* width;
    const char* removal;
};

TEST_F(IvtrackRealData, PedestriansInMotTextGiveRowsThatReadBack) {
    for (const Sequence& sequence : {Sequence{"MOT15-TUD-Stadtmitte", 179, "640", "12"},
                                     Sequence{"MOT15-PETS09-S2L1", 795, "768", "5"}}) {
        SCOPED_TRACE(sequence.name);
        const std::string folder = directory_ + "/" + sequence.name;
        const Result result = run({"track", folder + "/det/det.txt"});
        ASSERT_EQ(result.status, 0) << result.err;
        std::set<std::pair<long, long>> seen;
        std::set<long> ids;
        long latest = 1;
        for (const auto& row : rows_of(result.out)) {
            ASSERT_EQ(row.size(), 10u);
            const long frame = whole(row[0]);
            const long id = whole(row[1]);
            EXPECT_GE(frame, latest) << "frames run forward";
            EXPECT_LE(frame, sequence.frames);
            EXPECT_GE(id, 1);
            EXPECT_TRUE(seen.insert({frame, id}).second) << "id " << id << " twice in " << frame;
            EXPECT_GT(std::stod(row[4]), 0);
            EXPECT_GT(std::stod(row[5]), 0);
            EXPECT_GT(std::stod(row[6]), 0);
            EXPECT_EQ(row[7] + row[8] + row[9], "1-1-1");
            ids.insert(id);
            latest = frame;
        }
        EXPECT_GT(seen.size(), static_cast<std::size_t>(sequence.frames));
        EXPECT_EQ(summary_value(result.err, "tracks"), fmt::format("{}", ids.size()));
        EXPECT_EQ(*ids.rbegin(), static_cast<long>(ids.size())) << "ids run from 1 without a hole";
        EXPECT_EQ(summary_value(result.err, "detections"),
                  fmt::format("{}", lines_of(read_file(folder + "/det/det.txt")).size()));
        EXPECT_EQ(summary_value(result.err, "image width").rfind(sequence.width, 0), 0u);
        EXPECT_EQ(summary_value(result.err, "removal").rfind(sequence.removal, 0), 0u);
        std::printf("%s\n%s", sequence.name, result.err.c_str());
    }
}

/// The three files of one class each as JSON lines, frames from 0; `classes` counts their rows.
std::string street_as_json(const std::string& folder, std::map<int, int>& classes) {
    std::map<int, std::string> frames;
    for (const char* name : {"Pedestrian", "Car", "Cyclist"}) {
        for (const auto& row : rows_of(read_file(folder + "/det/" + name + ".txt"))) {
            std::string& detections = frames[std::stoi(row.at(0))];
            ++classes[std::stoi(row.at(1))];
            detections += fmt::format(R"({}{{"class":{},"box":[{},{},{},{}],"score":{}}})",
                                      detections.empty() ? "" : ",", row.at(1), row.at(2),
                                      row.at(3), row.at(4), row.at(5), row.at(6));
        }
    }
    std::string text;
    for (const auto& [frame, detections] : frames) {
        text +=
            fmt::format("{{\"frame\":{},\"width\":1242,\"detections\":[{}]}}\n", frame, detections);
    }
    return text;
}

TEST_F(IvtrackRealData, ThreeClassesInJsonLinesGiveLinesThatReadBack) {
    std::map<int, int> classes;
    const std::string text = street_as_json(directory_ + "/KITTI-0000", classes);
    ASSERT_EQ(classes.size(), 3u);
    const Result result = run({"track", "-", "--fps", "10", "--min-score", "2"}, text);
    ASSERT_EQ(result.status, 0) << result.err;
    const auto frames = objects_of(text);
    const auto answers = objects_of(result.out);
    ASSERT_EQ(answers.size(), frames.size());
    EXPECT_EQ(answers[0]["frame"], 0);
    std::set<int> classes_seen;
    for (std::size_t n = 0; n < frames.size(); ++n) {
        EXPECT_EQ(answers[n]["frame"], frames[n]["frame"]);
        std::set<int> ids;
        for (const auto& track : answers[n]["tracks"]) {
            EXPECT_TRUE(ids.insert(track["id"].get<int>()).second);
            EXPECT_GE(track["id"], 1);
            classes_seen.insert(track["class"].get<int>());
            ASSERT_EQ(track["box"].size(), 4u);
            if (!track["detection"].is_null()) {
                const auto& detection =
                    frames[n]["detections"].at(track["detection"].get<std::size_t>());
                EXPECT_EQ(track["class"], detection["class"]);
                EXPECT_FLOAT_EQ(track["score"].get<float>(), detection["score"].get<float>());
                EXPECT_NEAR(track["box"][0].get<double>(), detection["box"][0].get<double>(), 120);
            }
        }
    }
    EXPECT_EQ(classes_seen, (std::set<int>{1, 2, 3}));
    std::printf("KITTI-0000\n%s", result.err.c_str());
}

} // namespace
} // namespace test
