// Who says how wide the image is and how fast the video.
#include <fmt/format.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>

#include "program.h"

namespace test {
namespace {

std::string seqinfo(const std::string& rate, const std::string& width) {
    return "[Sequence]\r\nname=two words\r\nframeRate=" + rate + "\r\nimWidth=" + width + "\r\n";
}

std::string json_line(int frame, const std::string& more) {
    return fmt::format("{{\"frame\":{}{},\"detections\":[{{\"box\":[9,9,500,99],\"score\":1}}]}}\n",
                       frame, more);
}

std::string width_of(const Result& result) {
    EXPECT_EQ(result.status, 0) << result.err;
    const std::string value = summary_value(result.err, "image width");
    return value.substr(0, value.find(", 64 units"));
}

TEST(IvtrackWidth, TheOptionComesFirst) {
    Folder folder;
    folder.write("seqinfo.ini", seqinfo("25", "1000"));
    const std::string path = folder.write("det.jsonl", json_line(1, ",\"width\":800"));
    EXPECT_EQ(width_of(run({"track", path, "--width", "640"})), "640 px (--width)");
}

TEST(IvtrackWidth, ThenSeqinfoBesideTheFile) {
    Folder folder;
    folder.write("seqinfo.ini", seqinfo("25", "1000"));
    const std::string path = folder.write("det/det.jsonl", json_line(1, ",\"width\":800"));
    const std::string beside = folder.write("det/seqinfo.ini", seqinfo("25", "900"));
    EXPECT_EQ(width_of(run({"track", path})), "900 px (imWidth of " + beside + ")");
}

TEST(IvtrackWidth, OrOneFolderUp) {
    Folder folder;
    const std::string up = folder.write("seqinfo.ini", seqinfo("25", "1000"));
    const std::string path = folder.write("det/det.jsonl", json_line(1, ",\"width\":800"));
    EXPECT_EQ(width_of(run({"track", path})), "1000 px (imWidth of " + up + ")");
    // Two folders up is too far.
    const std::string deep = folder.write("det/deep/det.jsonl", json_line(1, ",\"width\":800"));
    EXPECT_EQ(width_of(run({"track", deep})), "800 px (\"width\" of the input)");
}

TEST(IvtrackWidth, ThenAFrame) {
    Folder folder;
    const std::string path =
        folder.write("det.jsonl", json_line(2, "") + json_line(1, ",\"width\":800.5"));
    EXPECT_EQ(width_of(run({"track", path})), "800.5 px (\"width\" of the input)");
}

TEST(IvtrackWidth, ThenTheLargestRightEdgeOfAFile) {
    Folder folder;
    const std::string json = folder.write("det.jsonl", json_line(1, ""));
    EXPECT_EQ(width_of(run({"track", json})), "500 px (largest right edge)");
    const std::string mot =
        folder.write("det.txt", still_rows(1, 3) + still_rows(4, 4, "600,1,50.5,9,0.9"));
    EXPECT_EQ(width_of(run({"track", mot})), "650.5 px (largest right edge)");
}

TEST(IvtrackWidth, DroppedRowsSayNothing) {
    Folder folder;
    const std::string mot = folder.write("det.txt", still_rows(1, 3) + "4,-1,5000,1,50,9,nan\n");
    EXPECT_EQ(width_of(run({"track", mot, "--skip-bad"})), "150 px (largest right edge)");
    const std::string json =
        folder.write("det.jsonl", "{\"frame\":1,\"width\":77}\n" + json_line(2, ",\"width\":88"));
    EXPECT_EQ(width_of(run({"track", json, "--skip-bad"})), "88 px (\"width\" of the input)");
}

TEST(IvtrackWidth, AFileWithAllBoxesLeftOfTheImageIsRefused) {
    Folder folder;
    const std::string path = folder.write("det.txt", still_rows(1, 3, "-100,0,50,50,0.9"));
    const Result result = run({"track", path});
    EXPECT_EQ(result.status, 2);
    EXPECT_NE(result.err.find(path + ": -50: expected"), std::string::npos) << result.err;
    EXPECT_NE(result.err.find("--width"), std::string::npos) << result.err;
    EXPECT_EQ(run({"track", path, "--width", "640"}).status, 0);
}

TEST(IvtrackWidth, AFileWithoutDetectionsNeedsNone) {
    Folder folder;
    const std::string path = folder.write("det.jsonl", "{\"frame\":1,\"detections\":[]}\n");
    const Result result = run({"track", path});
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(result.out, "{\"frame\":1,\"tracks\":[]}\n");
}

TEST(IvtrackWidth, AStreamThatGivesNoneIsRefusedWithALineThatSaysHowToGiveIt) {
    const std::string late = json_line(1, "") + json_line(2, ",\"width\":800");
    for (const std::string& stream : {still_rows(1, 4), late}) {
        const Result result = run({"track", "-"}, stream);
        EXPECT_EQ(result.status, 2);
        EXPECT_EQ(result.out, "");
        EXPECT_EQ(lines_of(result.err).size(), 1u) << result.err;
        EXPECT_NE(result.err.find("<stdin>"), std::string::npos) << result.err;
        EXPECT_NE(result.err.find("--width"), std::string::npos) << result.err;
    }
}

TEST(IvtrackWidth, AStreamMayGiveItInItsFirstFrame) {
    const Result result = run({"track", "-"}, json_line(1, ",\"width\":800"));
    EXPECT_EQ(width_of(result), "800 px (\"width\" of the input)");
}

TEST(IvtrackWidth, FramesThatDisagreeAreRefusedUnlessTheOptionDecides) {
    const std::string stream = json_line(1, ",\"width\":800") + json_line(2, ",\"width\":801");
    const Result result = run({"track", "-"}, stream);
    EXPECT_EQ(result.status, 2);
    EXPECT_EQ(result.err, "ivtrack: <stdin>:2: \"801\": expected the same width as before, 800\n");
    EXPECT_EQ(objects_of(result.out).size(), 1u);
    EXPECT_EQ(run({"track", "-", "--width", "800"}, stream).status, 0);
}

TEST(IvtrackWidth, TheWidthDecidesTheScale) {
    // 15 pixels a frame without overlap: 1.5 units of an image of 640, 0.75 of one of 1280.
    std::string scene;
    for (int frame = 1; frame <= 6; ++frame) {
        scene += fmt::format("{},-1,{},9,4,4,0.9\n", frame, frame * 15);
    }
    EXPECT_EQ(run({"track", "-", "--width", "640"}, scene).out, "");
    EXPECT_EQ(rows_of(run({"track", "-", "--width", "1280"}, scene).out).size(), 4u);
}

TEST(IvtrackSeqinfo, ValuesThatAreNoPositiveNumbersAreRefused) {
    for (const char* width : {"abc", "0", "-640", "nan", "12 34", ""}) {
        Folder folder;
        const std::string info = folder.write("seqinfo.ini", seqinfo("25", width));
        const std::string path = folder.write("det.txt", still_rows(1, 4));
        const Result result = run({"track", path});
        EXPECT_EQ(result.status, 2) << width;
        const std::string beginning =
            fmt::format("ivtrack: {}: \"{}\": expected imWidth", info, width);
        EXPECT_EQ(result.err.substr(0, beginning.size()), beginning);
        EXPECT_EQ(run({"track", path, "--width", "640"}).status, 0) << "not needed, not refused";
    }
}

TEST(IvtrackSeqinfo, IsFoundBesideAFileNamedWithoutAFolder) {
    Folder folder;
    folder.write("seqinfo.ini", seqinfo("25", "1000"));
    folder.write("det.txt", still_rows(1, 4));
    const std::filesystem::path before = std::filesystem::current_path();
    std::filesystem::current_path(folder / ".");
    const Result result = run({"track", "det.txt"});
    std::filesystem::current_path(before);
    EXPECT_EQ(width_of(result), "1000 px (imWidth of seqinfo.ini)");
}

TEST(IvtrackRemoval, DefaultsToHalfTheFrameRateAndAtLeastFive) {
    const auto removal = [](const Arguments& more, const char* rate) {
        Folder folder;
        if (rate) {
            folder.write("seqinfo.ini", seqinfo(rate, "640"));
        }
        Arguments arguments{"track", folder.write("det.txt", still_rows(1, 4))};
        arguments.insert(arguments.end(), more.begin(), more.end());
        const std::string value = summary_value(run(arguments).err, "removal");
        return value.substr(0, value.find(" ("));
    };
    EXPECT_EQ(removal({}, nullptr), "5 frames");
    EXPECT_EQ(removal({"--fps", "25"}, nullptr), "12 frames");
    EXPECT_EQ(removal({"--fps", "7"}, nullptr), "5 frames");
    EXPECT_EQ(removal({}, "59.94"), "29 frames");
    EXPECT_EQ(removal({"--fps", "30"}, "60"), "15 frames");
    EXPECT_EQ(removal({"--removal", "2", "--fps", "30"}, "60"), "2 frames");
}

} // namespace
} // namespace test
