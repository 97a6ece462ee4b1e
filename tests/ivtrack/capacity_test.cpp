// Frames with more detections than there is room for.
#include <fmt/format.h>
#include <gtest/gtest.h>

#include "program.h"

namespace test {
namespace {

/// One frame of detections with these scores, side by side.
std::string crowd(int frame, const std::vector<double>& scores) {
    std::string detections;
    for (std::size_t n = 0; n < scores.size(); ++n) {
        detections += fmt::format("{}{{\"box\":[{},0,{},9],\"score\":{}}}", n ? "," : "", 40 * n,
                                  40 * n + 9, scores[n]);
    }
    return fmt::format("{{\"frame\":{},\"width\":640,\"detections\":[{}]}}\n", frame, detections);
}

std::vector<int> detections_of(const nlohmann::json& line) {
    std::vector<int> indices;
    for (const auto& track : line["tracks"]) {
        indices.push_back(track["detection"]);
    }
    return indices;
}

TEST(IvtrackCapacity, TheHighestScoresAreKeptInTheirOrder) {
    const Result result = run({"track", "-", "--stable", "1", "--max-objects", "3"},
                              crowd(1, {0.5, 0.9, 0.1, 0.7, 0.2}));
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(detections_of(objects_of(result.out)[0]), (std::vector<int>{0, 1, 3}));
}

TEST(IvtrackCapacity, OfEqualScoresTheEarlierAreKept) {
    const Result result =
        run({"track", "-", "--stable", "1", "--max-objects", "2"}, crowd(1, {0.1, 0.5, 0.5, 0.5}));
    EXPECT_EQ(detections_of(objects_of(result.out)[0]), (std::vector<int>{1, 2}));
}

TEST(IvtrackCapacity, WarningsSayHowManyWereDroppedAStreamsAtOnceToo) {
    const std::string crowds =
        crowd(1, {1, 1, 1}) + crowd(4, {1, 1, 1, 1, 1}) + crowd(5, {1, 1, 1, 1}) + crowd(6, {1});
    const std::string first =
        "ivtrack: warning: 2 detections dropped in one frame, lowest scores first; the capacity is "
        "3 "
        "objects (--max-objects), --max-objects changes it";
    const std::string all =
        "ivtrack: warning: 3 detections dropped in 2 frames, lowest scores first; the capacity is "
        "3 "
        "objects (--max-objects), --max-objects changes it";
    const Result result = run({"track", "-", "--max-objects", "3"}, crowds);
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(lines_of(result.err)[0], first);
    EXPECT_EQ(lines_of(result.err)[1], all);
    Folder folder;
    const Result of_file =
        run({"track", folder.write("det.jsonl", crowds), "--max-objects", "3", "-q"});
    EXPECT_EQ(of_file.err, all + "\n") << "also without a summary";
    EXPECT_EQ(summary_value(result.err, "dropped above the capacity"), "3 detections in 2 frames");
    EXPECT_EQ(summary_value(result.err, "detections"), "10");
}

TEST(IvtrackCapacity, AFilesOwnCapacityIsTwiceItsFullestFrameAndAtLeastSixteen) {
    Folder folder;
    const std::string small = folder.write("small.jsonl", crowd(1, {1, 1, 1}));
    EXPECT_EQ(summary_value(run({"track", small}).err, "capacity"), "16 objects (default)");
    const std::string large =
        folder.write("large.jsonl", crowd(1, std::vector<double>(2000, 0.5)) + crowd(2, {1, 1, 1}));
    const Result result = run({"track", large, "--stable", "1"});
    EXPECT_EQ(summary_value(result.err, "capacity"), "4000 objects (default)");
    EXPECT_EQ(result.err.find("warning"), std::string::npos);
    EXPECT_EQ(objects_of(result.out)[0]["tracks"].size(), 2000u);
}

TEST(IvtrackCapacity, AStreamsIs1024) {
    const Result result =
        run({"track", "-", "--stable", "1"}, crowd(1, std::vector<double>(1025, 0.5)));
    EXPECT_EQ(summary_value(result.err, "capacity"), "1024 objects (default)");
    EXPECT_NE(result.err.find("1 detections dropped in one frame"), std::string::npos)
        << result.err;
    EXPECT_EQ(objects_of(result.out)[0]["tracks"].size(), 1024u);
}

TEST(IvtrackCapacity, AFullListOfTracksIsReportedWhole) {
    const Result result =
        run({"track", "-", "--stable", "1", "--max-objects", "4"}, crowd(1, {1, 1, 1, 1}));
    EXPECT_EQ(objects_of(result.out)[0]["tracks"].size(), 4u);
    EXPECT_EQ(result.err.find("warning"), std::string::npos);
}

} // namespace
} // namespace test
