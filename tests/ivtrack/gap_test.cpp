// Frames: their order, and what happens where some are missing.
#include <fmt/format.h>
#include <gtest/gtest.h>

#include "program.h"

namespace test {
namespace {

const Arguments TRACK{"track", "-", "--width", "640"};

Arguments track_with(const Arguments& more) {
    Arguments arguments = TRACK;
    arguments.insert(arguments.end(), more.begin(), more.end());
    return arguments;
}

/// The id in the last row of an object that was away for `gap` frames.
std::string id_after_gap(int gap, const Arguments& more) {
    const Result result = run(track_with(more), still_rows(1, 4) + still_rows(5 + gap, 9 + gap));
    EXPECT_EQ(result.status, 0) << result.err;
    const auto rows = rows_of(result.out);
    return rows.empty() ? "(no rows)" : rows.back()[1];
}

TEST(IvtrackGaps, ATrackSurvivesAsManyMissingFramesAsRemovalSays) {
    EXPECT_EQ(id_after_gap(5, {}), "1");
    EXPECT_EQ(id_after_gap(6, {}), "2");
    EXPECT_EQ(id_after_gap(2, {"--removal", "2"}), "1");
    EXPECT_EQ(id_after_gap(3, {"--removal", "2"}), "2");
    EXPECT_EQ(id_after_gap(30, {"--removal", "30"}), "1");
    EXPECT_EQ(id_after_gap(31, {"--removal", "30"}), "2");
}

TEST(IvtrackGaps, ALongGapCostsNoMoreThanItTakesToLoseEveryTrack) {
    const std::string scene =
        still_rows(1, 4) +
        "1000000000000,-1,100,100,50,80,0.9\n9223372036854775807,-1,1,1,5,8,0.9\n";
    const Result result = run(TRACK, scene);
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(summary_value(result.err, "empty frames in gaps"), "12");
    EXPECT_EQ(summary_value(result.err, "frames"), "6");
    const Result patient = run(track_with({"--removal", "30"}), scene);
    EXPECT_EQ(summary_value(patient.err, "empty frames in gaps"), "62");
}

TEST(IvtrackGaps, FramesBeforeTheFirstAreNoGap) {
    const Result result = run(TRACK, still_rows(1000, 1003));
    EXPECT_EQ(summary_value(result.err, "empty frames in gaps"), "(absent)");
}

TEST(IvtrackGaps, MissingFramesAndFramesWithoutDetectionsAreTheSame) {
    std::string sparse;
    std::string full;
    for (int frame = 0; frame < 120; ++frame) {
        // Away for longer and longer.
        const bool present = frame % 17 > frame / 12;
        const std::string detections =
            present ? fmt::format("{{\"box\":[{0},10,{1},90],\"score\":0.5}}", frame, frame + 40)
                    : "";
        const std::string line =
            fmt::format("{{\"frame\":{},\"detections\":[{}]}}\n", frame, detections);
        full += line;
        sparse += present ? line : "";
    }
    std::string of_full;
    for (const std::string& line : lines_of(run(TRACK, full).out)) {
        const int frame = nlohmann::json::parse(line)["frame"];
        of_full += frame % 17 > frame / 12 ? line + "\n" : "";
    }
    EXPECT_EQ(run(TRACK, sparse).out, of_full);
    EXPECT_NE(of_full.find("\"id\":3"), std::string::npos) << "the scene holds no new tracks";
}

TEST(IvtrackGaps, CoastingRowsAreDroppedFromMotTextUnlessAskedFor) {
    const std::string scene = still_rows(1, 4) + still_rows(8, 8);
    const auto frames = [&scene](const Arguments& more) {
        std::vector<std::string> numbers;
        for (const auto& row : rows_of(run(track_with(more), scene).out)) {
            numbers.push_back(row[0]);
        }
        return numbers;
    };
    EXPECT_EQ(frames({}), (std::vector<std::string>{"3", "4", "8"}));
    EXPECT_EQ(frames({"--coasting", "drop"}), (std::vector<std::string>{"3", "4", "8"}));
    // Of the three frames missing, the library reports the first two.
    EXPECT_EQ(frames({"--coasting", "report"}),
              (std::vector<std::string>{"3", "4", "5", "6", "8"}));
}

TEST(IvtrackFrames, RowsOfAFileMayComeInAnyOrder) {
    Folder folder;
    const std::string sorted = still_rows(1, 6);
    std::string shuffled;
    for (const int n : {4, 0, 5, 2, 1, 3}) {
        shuffled += lines_of(sorted)[static_cast<std::size_t>(n)] + "\n";
    }
    const Result expected = run({"track", folder.write("sorted.txt", sorted)});
    EXPECT_EQ(rows_of(expected.out).size(), 4u);
    EXPECT_EQ(run({"track", folder.write("shuffled.txt", shuffled)}).out, expected.out);
}

TEST(IvtrackFrames, RowsOfOneFrameMayComeApartInAFileAndKeepTheirOrder) {
    Folder folder;
    const std::string left = "100,100,50,80,0.9";
    const std::string right = "400,100,50,80,0.8";
    const std::string apart = still_rows(1, 4, left) + still_rows(1, 4, right);
    const auto rows = rows_of(run({"track", folder.write("det.txt", apart)}).out);
    ASSERT_EQ(rows.size(), 4u);
    EXPECT_EQ(rows[0][2], "100");
    EXPECT_EQ(rows[1][2], "400");
    EXPECT_EQ(rows[1][0], "3");
    EXPECT_EQ(rows[1][1], "2");
}

TEST(IvtrackFrames, AFileAndAStreamOfItGiveTheSame) {
    Folder folder;
    const std::string scene = still_rows(1, 9) + still_rows(12, 20, "300,90,40,90,0.7,3");
    const std::string path = folder.write("det.txt", scene);
    const Result of_file = run({"track", path, "--width", "640"});
    EXPECT_FALSE(of_file.out.empty());
    EXPECT_EQ(run({"track", "-", "--width", "640"}, scene).out, of_file.out);
}

} // namespace
} // namespace test
