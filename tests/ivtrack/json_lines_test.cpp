// JSON lines: what is read from them and what is written.
#include <fmt/format.h>
#include <gtest/gtest.h>

#include "program.h"

namespace test {
namespace {

std::string frame_line(std::int64_t number, const std::string& detections) {
    return fmt::format("{{\"frame\":{},\"detections\":[{}]}}\n", number, detections);
}

const std::string STILL = R"({"class":2,"box":[100,120,150,200],"score":0.9})";

Result track_lines(const std::string& lines, const Arguments& more = {"--stable", "1"}) {
    Arguments arguments{"track", "-", "--width", "640"};
    arguments.insert(arguments.end(), more.begin(), more.end());
    return run(arguments, lines);
}

TEST(IvtrackJson, ALineComesBackWithIdClassBoxScoreAndDetection) {
    const Result result = track_lines(frame_line(1, STILL));
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(result.out,
              "{\"frame\":1,\"tracks\":[{\"id\":1,\"class\":2,\"box\":[100,120,150,200],"
              "\"score\":0.9,\"detection\":0}]}\n");
}

TEST(IvtrackJson, EveryInputLineGivesOneLineAndGapFramesGiveNone) {
    const Result result = track_lines(frame_line(0, "") + frame_line(5, STILL) + frame_line(7, ""));
    const auto objects = objects_of(result.out);
    ASSERT_EQ(objects.size(), 3u) << result.err;
    EXPECT_EQ(lines_of(result.out)[0], "{\"frame\":0,\"tracks\":[]}");
    EXPECT_EQ(objects[1]["frame"], 5);
    EXPECT_EQ(objects[2]["frame"], 7);
}

TEST(IvtrackJson, ACoastingTrackHasNoDetection) {
    const Result result = track_lines(frame_line(1, STILL) + frame_line(2, ""));
    const auto objects = objects_of(result.out);
    ASSERT_EQ(objects.size(), 2u) << result.err;
    ASSERT_EQ(objects[1]["tracks"].size(), 1u);
    EXPECT_EQ(objects[1]["tracks"][0]["id"], 1);
    EXPECT_TRUE(objects[1]["tracks"][0]["detection"].is_null());
    EXPECT_EQ(objects[1]["tracks"][0]["box"], nlohmann::json::parse("[100,120,150,200]"));
}

TEST(IvtrackJson, CoastingTracksCanBeDropped) {
    const Result result = track_lines(frame_line(1, STILL) + frame_line(2, ""),
                                      {"--stable", "1", "--coasting", "drop"});
    EXPECT_EQ(lines_of(result.out)[1], "{\"frame\":2,\"tracks\":[]}") << result.err;
}

TEST(IvtrackJson, TheClassIsOptionalAndOneWithoutIt) {
    const Result result = track_lines(frame_line(1, R"({"box":[1,2,3,4],"score":1})"));
    EXPECT_EQ(objects_of(result.out)[0]["tracks"][0]["class"], 1) << result.err;
}

TEST(IvtrackJson, AnyIntegerIsAClassAndComesBackAsItWas) {
    std::string detections;
    const std::vector<std::int64_t> classes{0, -1, 2147483647, INT64_MAX, INT64_MIN, 1};
    for (std::size_t n = 0; n < classes.size(); ++n) {
        detections += fmt::format(R"({}{{"class":{},"box":[{},0,{},9],"score":1}})", n ? "," : "",
                                  classes[n], 100 * n, 100 * n + 9);
    }
    const auto objects = objects_of(track_lines(frame_line(1, detections)).out);
    ASSERT_EQ(objects.size(), 1u);
    ASSERT_EQ(objects[0]["tracks"].size(), classes.size());
    for (std::size_t n = 0; n < classes.size(); ++n) {
        EXPECT_EQ(objects[0]["tracks"][n]["class"].get<std::int64_t>(), classes[n]);
    }
}

TEST(IvtrackJson, UnknownKeysAreIgnored) {
    const Result result = track_lines(
        R"({"frame":1,"camera":"a\"b","detections":[{"box":[1,2,3,4],"score":1,"x":{}}],"t":0.5})");
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(objects_of(result.out)[0]["tracks"].size(), 1u);
}

TEST(IvtrackJson, TheDetectionIsItsPlaceInTheLineWhateverWasLeftOut) {
    const std::string low = R"({"box":[300,0,350,50],"score":0.1})";
    const std::string bad = R"({"box":[300,0,350],"score":0.9})";
    const std::string weak = R"({"box":[500,0,550,50],"score":0.5})";
    const Result result =
        track_lines(frame_line(1, low + "," + bad + "," + weak + "," + STILL),
                    {"--stable", "1", "--min-score", "0.2", "--skip-bad", "--max-objects", "1"});
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(objects_of(result.out)[0]["tracks"][0]["detection"], 3) << result.out;
}

TEST(IvtrackJson, LinesOfAFileMayComeInAnyOrder) {
    Folder folder;
    const std::string path = folder.write(
        "det.jsonl", frame_line(3, STILL) + frame_line(1, STILL) + frame_line(2, STILL));
    const auto objects = objects_of(run({"track", path}).out);
    ASSERT_EQ(objects.size(), 3u);
    EXPECT_EQ(objects[0]["frame"], 1);
    EXPECT_EQ(objects[2]["frame"], 3);
    EXPECT_EQ(objects[2]["tracks"].size(), 1u);
}

TEST(IvtrackJson, FramesAreAnyIntegersFromZero) {
    const Result result = track_lines(frame_line(0, "") + frame_line(INT64_MAX, ""));
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(objects_of(result.out)[1]["frame"].get<std::int64_t>(), INT64_MAX);
}

} // namespace
} // namespace test
