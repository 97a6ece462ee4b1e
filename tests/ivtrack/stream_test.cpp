// Pipes and files: when output appears, and what happens where it cannot.
#include <fmt/format.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>

#include "program.h"

namespace test {
namespace {

std::string json_line(int frame) {
    return fmt::format(
        "{{\"frame\":{},\"width\":640,\"detections\":[{{\"box\":[9,9,50,99],\"score\":1}}]}}\n",
        frame);
}

TEST(IvtrackStream, EachJsonLineIsAnsweredBeforeTheNextIsSent) {
    Process program({"track", "-", "--stable", "1"});
    for (int frame = 1; frame <= 20; ++frame) {
        program.send(json_line(frame));
        const std::string line = program.receive_line();
        ASSERT_FALSE(line.empty()) << "no answer to frame " << frame;
        const auto answer = nlohmann::json::parse(line);
        EXPECT_EQ(answer["frame"], frame);
        EXPECT_EQ(answer["tracks"].size(), 1u);
    }
    const Result result = program.finish();
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(summary_value(result.err, "frames"), "20");
}

TEST(IvtrackStream, AFrameOfMotTextIsAnsweredWhenTheNextBegins) {
    Process program({"track", "-", "--stable", "1", "--width", "640"});
    program.send("1,-1,100,100,50,80,0.9\n2,-1,100,100,50,80,0.9\n");
    EXPECT_EQ(program.receive_line(), "1,1,100,100,50,80,0.9,1,-1,-1");
    program.send("3,-1,100,100,50,80,0.9\n");
    EXPECT_EQ(program.receive_line(), "2,1,100,100,50,80,0.9,1,-1,-1");
    const Result result = program.finish();
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(result.out, "3,1,100,100,50,80,0.9,1,-1,-1\n");
}

TEST(IvtrackStream, WhatWasAnsweredIsInTheFileWhenTheProgramIsKilled) {
    Folder folder;
    const std::string out = folder / "out.jsonl";
    Process program({"track", "-", "-o", out});
    program.send(json_line(1) + json_line(2));
    // The file is there, and full, some time after the lines are sent.
    for (int n = 0;
         n < 3000 && (!std::filesystem::exists(out) || lines_of(read_file(out)).size() < 2); ++n) {
        usleep(10000);
    }
    program.kill();
    EXPECT_EQ(program.finish().status, 128 + 9);
    EXPECT_EQ(objects_of(read_file(out)).size(), 2u);
}

TEST(IvtrackOutput, AFullDiskIsAnError) {
    Folder folder;
    const std::string det = folder.write("det.txt", still_rows(1, 9));
    const Result by_name = run({"track", det, "-o", "/dev/full"});
    EXPECT_EQ(by_name.status, 1);
    EXPECT_EQ(by_name.err, "ivtrack: cannot write /dev/full: No space left on device\n");
    const Result redirected = run_redirected({"track", "-", "--width", "640"}, det, "/dev/full");
    EXPECT_EQ(redirected.status, 1);
    EXPECT_EQ(redirected.err, "ivtrack: cannot write <stdout>: No space left on device\n");
    EXPECT_EQ(run_redirected({"--help"}, det, "/dev/full").status, 1);
}

TEST(IvtrackOutput, AClosedPipeIsAnError) {
    Process program({"track", "-", "--stable", "1"});
    program.send(json_line(1));
    EXPECT_FALSE(program.receive_line().empty());
    program.close_output();
    program.send(json_line(2));
    const Result result = program.finish();
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.err, "ivtrack: cannot write <stdout>: Broken pipe\n");
}

TEST(IvtrackOutput, ClosedStandardDescriptorsAreErrorsAndNoFileTakesTheirPlace) {
    Folder folder;
    const std::string det = folder.write("det.txt", still_rows(1, 3));
    const Result no_output = run_in_shell("\"$@\" >&-", {"track", det});
    EXPECT_EQ(no_output.status, 1);
    EXPECT_EQ(no_output.err, "ivtrack: cannot write <stdout>: Bad file descriptor\n");
    const Result no_input = run_in_shell("\"$@\" <&-", {"track", "-"});
    EXPECT_EQ(no_input.status, 1);
    EXPECT_EQ(no_input.err, "ivtrack: cannot read <stdin>: Bad file descriptor\n");
    const std::string out = folder / "out.txt";
    EXPECT_EQ(run_in_shell("\"$@\" 2>&-", {"track", det, "-o", out}).status, 0);
    EXPECT_EQ(read_file(out), "3,1,100,100,50,80,0.9,1,-1,-1\n") << "the summary is in it";
}

TEST(IvtrackOutput, AFileThatCannotBeOpenedIsAnError) {
    Folder folder;
    const std::string det = folder.write("det.txt", still_rows(1, 9));
    const std::string out = folder / "absent/out.txt";
    const Result result = run({"track", det, "-o", out});
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.err, "ivtrack: cannot open " + out + ": No such file or directory\n");
}

TEST(IvtrackOutput, TheInputIsRefusedAsOutputUnderEveryName) {
    Folder folder;
    const std::string text = still_rows(1, 9);
    const std::string det = folder.write("det.txt", text);
    const std::string link = folder / "link.txt";
    std::filesystem::create_hard_link(det, link);
    const std::string symlink = folder / "symlink.txt";
    std::filesystem::create_symlink(det, symlink);
    for (const std::string& out : {det, link, symlink}) {
        const Result result = run({"track", det, "-o", out});
        EXPECT_EQ(result.status, 2) << out;
        EXPECT_NE(result.err.find("other than the input"), std::string::npos) << result.err;
    }
    EXPECT_EQ(run_redirected({"track", "-", "--width", "640"}, det, det).status, 2);
    EXPECT_EQ(run_redirected({"track", "-", "--width", "640", "-o", det}, det, "/dev/null").status,
              2);
    EXPECT_EQ(run_redirected({"track", det}, "/dev/null", det).status, 2);
    EXPECT_EQ(run({"draw", det, "-o", det}).status, 2);
    EXPECT_EQ(read_file(det), text);
}

TEST(IvtrackOutput, AnEarlierFileIsReplaced) {
    Folder folder;
    const std::string det = folder.write("det.txt", still_rows(1, 3));
    const std::string out = folder.write("out.txt", std::string(5000, 'x'));
    EXPECT_EQ(run({"track", det, "-o", out}).status, 0);
    EXPECT_EQ(read_file(out), "3,1,100,100,50,80,0.9,1,-1,-1\n");
}

TEST(IvtrackOutput, RowsAreReadBackAlsoWhereABoxShrinksToNothing) {
    std::string scene;
    for (int frame = 1; frame <= 29; ++frame) {
        const int side = std::max(0, 600 - 60 * frame);
        scene += fmt::format("{},-1,{},{},{},{},0.9\n", frame, 500 - side / 2, 300 - side / 2, side,
                             side);
    }
    const Result tracks = run({"track", "-", "--width", "1000"}, scene);
    EXPECT_EQ(lines_of(tracks.out).size(), 27u);
    EXPECT_EQ(run({"draw", "-"}, tracks.out).status, 0);
    EXPECT_EQ(run({"track", "-", "--width", "1000"}, tracks.out).status, 0);
}

TEST(IvtrackOutput, AStreamThatIsRefusedLeavesAnEarlierOutputAsItWas) {
    Folder folder;
    const std::string earlier = folder.write("out.txt", "precious\n");
    EXPECT_EQ(run({"track", "-", "-o", earlier}, still_rows(1, 4)).status, 2) << "no width";
    EXPECT_EQ(read_file(earlier), "precious\n");
}

TEST(IvtrackHost, LetsItsTracksGoBeforeItReleasesTheTracker) {
#if !defined(IVTRACK_SANITIZED)
    GTEST_SKIP() << "only the leak checker sees it";
#endif
    // The model matrices stay by contract; tracks that stay would be the program's fault.
    Folder folder;
    const std::string allowed = folder.write("lsan.supp", "leak:create_model\n");
    const std::string det =
        folder.write("det.txt", still_rows(1, 9) + still_rows(10, 10, "400,100,50,80,0.9"));
    const Result result =
        run_in_shell("LSAN_OPTIONS=suppressions=" + allowed + ":print_suppressions=0 \"$@\"",
                     {"track", det, "-q"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.err, "");
}

TEST(IvtrackSummary, TellsFramesDetectionsTracksAndTheirMeanLength) {
    // A long track, and one of three matches that starts where the first is.
    const std::string scene = still_rows(1, 10) + still_rows(11, 13, "400,100,50,80,0.9");
    const Result result = run({"track", "-", "--width", "640"}, scene);
    EXPECT_EQ(summary_value(result.err, "frames"), "13");
    EXPECT_EQ(summary_value(result.err, "detections"), "13");
    EXPECT_EQ(summary_value(result.err, "tracks"), "2");
    // Counted from their confirmation: 8 frames and 1.
    EXPECT_EQ(summary_value(result.err, "mean track length"), "4.5 frames");
    EXPECT_NE(summary_value(result.err, "speed").find(" frames/s in the library"),
              std::string::npos);
    EXPECT_EQ(summary_value(result.err, "image width"), "640 px (--width), 64 units");
    EXPECT_EQ(summary_value(result.err, "skipped as bad"), "(absent)");
    EXPECT_EQ(summary_value(result.err, "dropped above the capacity"), "(absent)");
}

TEST(IvtrackSummary, IsSilencedByQuiet) {
    const Result result = run({"track", "-", "--width", "640", "--quiet"}, still_rows(1, 9));
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.err, "");
}

TEST(IvtrackProgress, ABarIsDrawnForAFileOnATerminalAndErased) {
    if (!has_terminals()) {
        GTEST_SKIP() << "this machine gives no pseudo-terminal (is /dev/pts mounted?)";
    }
    Folder folder;
    const std::string det = folder.write("det.txt", still_rows(1, 50));
    const Result result = run_on_terminal({"track", det, "-o", folder / "out.txt"});
    EXPECT_EQ(result.status, 0);
    const std::size_t bar = result.out.find("\r[");
    const std::size_t erased = result.out.find("\r\033[K");
    EXPECT_NE(bar, std::string::npos) << result.out;
    EXPECT_NE(result.out.find("0/50 frames"), std::string::npos) << result.out;
    EXPECT_NE(erased, std::string::npos) << result.out;
    EXPECT_LT(erased, result.out.find("frames: 50")) << result.out;
    EXPECT_EQ(result.out.find("\r[", erased), std::string::npos) << result.out;
}

TEST(IvtrackProgress, NoBarWithoutATerminalOrWhereItWouldMixWithRows) {
    if (!has_terminals()) {
        GTEST_SKIP() << "this machine gives no pseudo-terminal (is /dev/pts mounted?)";
    }
    Folder folder;
    const std::string det = folder.write("det.txt", still_rows(1, 50));
    EXPECT_EQ(run({"track", det, "-o", folder / "out.txt"}).err.find('\r'), std::string::npos);
    EXPECT_EQ(run_on_terminal({"track", det}).out.find("\r["), std::string::npos);
    EXPECT_EQ(run_on_terminal({"track", det, "-q", "-o", folder / "out.txt"}).out, "");
}

} // namespace
} // namespace test
