// Input that cannot be used: it is refused with file, line, value and what was expected.
#include <fmt/format.h>
#include <gtest/gtest.h>

#include "program.h"

namespace test {
namespace {

struct BadLine {
    const char* name;
    std::string line;
    std::string value;    ///< as the message quotes it
    std::string expected; ///< how the expectation begins
};

void PrintTo(const BadLine& bad, std::ostream* out) {
    *out << bad.line.substr(0, 100);
}

std::string name_of(const testing::TestParamInfo<BadLine>& info) {
    return info.param.name;
}

std::string message(const std::string& file, int line, const BadLine& bad) {
    return fmt::format("ivtrack: {}:{}: {}: expected {}", file, line, bad.value, bad.expected);
}

/// One line on standard error, beginning like this.
void expect_refused(const Result& result, const std::string& beginning) {
    EXPECT_EQ(result.status, 2);
    EXPECT_EQ(result.err.substr(0, beginning.size()), beginning);
    EXPECT_EQ(lines_of(result.err).size(), 1u) << result.err;
}

const Arguments STREAM{"track", "-", "--width", "640"};
const Arguments SKIPPING{"track", "-", "--width", "640", "--skip-bad"};

class IvtrackBadRow : public testing::TestWithParam<BadLine> {};

TEST_P(IvtrackBadRow, InAStreamEndsTheProgramAndWhatWasWrittenStays) {
    const std::string good = still_rows(1, 4);
    const Result result = run(STREAM, good + GetParam().line + "\n" + still_rows(5, 9));
    expect_refused(result, message("<stdin>", 5, GetParam()));
    // The fourth frame was not known to be complete.
    EXPECT_EQ(rows_of(result.out).size(), 1u) << result.out;
}

TEST_P(IvtrackBadRow, InAFileIsRefusedBeforeTheOutputIsTouched) {
    Folder folder;
    const std::string path = folder.write("det.txt", still_rows(1, 4) + "\n" + GetParam().line);
    const std::string out = folder.write("out.txt", "precious\n");
    expect_refused(run({"track", path, "-o", out}), message(path, 6, GetParam()));
    EXPECT_EQ(read_file(out), "precious\n");
}

TEST_P(IvtrackBadRow, IsDroppedAndCountedWhenAskedFor) {
    const std::string good = still_rows(1, 4);
    const Result result = run(SKIPPING, good + GetParam().line + "\n" + still_rows(5, 9));
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(result.out, run(STREAM, good + still_rows(5, 9)).out);
    EXPECT_EQ(summary_value(result.err, "skipped as bad"), "1");
}

const std::string LONG_TEXT(5000, 'x');

INSTANTIATE_TEST_SUITE_P(
    Kinds, IvtrackBadRow,
    testing::Values(
        BadLine{"TooFewColumns", "5,-1,100,100,50,80", "\"5,-1,100,100,50,80\"",
                "at least 7 columns"},
        BadLine{"TextForANumber", "5,-1,100,abc,50,80,0.9", "\"abc\"",
                "a finite number in column 4"},
        BadLine{"NumberWithATail", "5,-1,100px,100,50,80,0.9", "\"100px\"",
                "a finite number in column 3"},
        BadLine{"NothingForANumber", "5,-1,,100,50,80,0.9", "\"\"", "a finite number in column 3"},
        BadLine{"TextForAnId", "5,x,100,100,50,80,0.9", "\"x\"", "a finite number in column 2"},
        BadLine{"NaN", "5,-1,100,100,nan,80,0.9", "\"nan\"", "a finite number in column 5"},
        BadLine{"Infinity", "5,-1,-inf,100,50,80,0.9", "\"-inf\"", "a finite number in column 3"},
        BadLine{"NaNScore", "5,-1,100,100,50,80,NaN", "\"NaN\"", "a finite number in column 7"},
        BadLine{"TooLargeForAnything", "5,-1,1e999,100,50,80,0.9", "\"1e999\"",
                "a finite number in column 3"},
        BadLine{"TooLargeForSinglePrecision", "5,-1,1e39,100,50,80,0.9", "\"1e+39\"",
                "a coordinate between"},
        BadLine{"LeftAndWidthTooLargeTogether", "5,-1,1e308,100,1.7e308,80,0.9", "\"1e+308\"",
                "a coordinate between"},
        BadLine{"ScoreTooLarge", "5,-1,100,100,50,80,1e39", "\"1e+39\"", "a score"},
        BadLine{"NegativeWidth", "5,-1,100,100,-50,80,0.9", "\"-50\"", "a width of 0 or more"},
        BadLine{"NegativeHeight", "5,-1,100,100,50,-0.5,0.9", "\"-0.5\"", "a height of 0 or more"},
        BadLine{"FrameZero", "0,-1,100,100,50,80,0.9", "\"0\"", "a frame (an integer from 1)"},
        BadLine{"FrameNotAnInteger", "5.0,-1,100,100,50,80,0.9", "\"5.0\"",
                "a frame (an integer from 1)"},
        BadLine{"FrameTooLarge", "9223372036854775808,-1,100,100,50,80,0.9",
                "\"9223372036854775808\"", "a frame (an integer from 1)"},
        BadLine{"ClassNotAnInteger", "5,-1,100,100,50,80,0.9,2.5", "\"2.5\"",
                "a class (an integer) in column 8"},
        BadLine{"ClassTooLarge", "5,-1,100,100,50,80,0.9,9223372036854775808",
                "\"9223372036854775808\"", "a class (an integer) in column 8"},
        BadLine{"TextForAClass", "5,-1,100,100,50,80,0.9,car,-1,-1", "\"car\"",
                "a finite number in column 8"},
        BadLine{"TextForACoordinate", "5,-1,100,100,50,80,0.9,1,y,-1", "\"y\"",
                "a finite number in column 9"},
        BadLine{"TextAfterTheClass", "5,-1,100,100,50,80,0.9,1,-1,-1,-1,z", "\"z\"",
                "a finite number in column 12"},
        BadLine{"ControlCharacters", "5,-1,\x1b[2J,100,50,80,0.9", "\"\\x1b[2J\"",
                "a finite number in column 3"},
        BadLine{"NulByte", std::string("5,-1,1\0,100,50,80,0.9", 21), "\"1\\x00\"",
                "a finite number in column 3"},
        BadLine{"VeryLongText", "5,-1," + LONG_TEXT + ",100,50,80,0.9",
                "\"" + LONG_TEXT.substr(0, 60) + "\"...", "a finite number in column 3"},
        BadLine{"Json", "{\"frame\":5}", "\"{\\\"frame\\\":5}\"", "at least 7 columns"}),
    name_of);

TEST(IvtrackBadRow, AFrameThatRunsBackwardsInAStreamIsRefused) {
    const Result result = run(STREAM, still_rows(1, 4) + still_rows(3, 3));
    expect_refused(result, "ivtrack: <stdin>:5: \"3\": expected frame 4 or a later one");
    const Result skipping = run(SKIPPING, still_rows(1, 4) + still_rows(3, 3) + still_rows(5, 5));
    EXPECT_EQ(skipping.out, run(STREAM, still_rows(1, 5)).out);
    EXPECT_EQ(summary_value(skipping.err, "skipped as bad"), "1");
}

TEST(IvtrackBadRow, EveryBadRowIsCounted) {
    const Result result = run(SKIPPING, "a\nb\n" + still_rows(1, 4) + "c\n0,0,0,0,0,0,0\n");
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(summary_value(result.err, "skipped as bad"), "4");
    EXPECT_EQ(summary_value(run(SKIPPING, "a\n").err, "skipped as bad"), "1");
}

class IvtrackBadJson : public testing::TestWithParam<BadLine> {};

const std::string GOOD_LINES =
    "{\"frame\":1,\"width\":640,\"detections\":[{\"box\":[100,100,150,180],\"score\":0.9}]}\n"
    "{\"frame\":2,\"detections\":[]}\n";

TEST_P(IvtrackBadJson, InAStreamEndsTheProgramAndWhatWasWrittenStays) {
    const Result result = run(STREAM, GOOD_LINES + GetParam().line + "\n");
    expect_refused(result, message("<stdin>", 3, GetParam()));
    EXPECT_EQ(objects_of(result.out).size(), 2u);
}

TEST_P(IvtrackBadJson, InAFileIsRefusedBeforeTheOutputIsTouched) {
    Folder folder;
    const std::string path = folder.write("det.jsonl", GOOD_LINES + GetParam().line + "\n");
    const std::string out = folder.write("out.jsonl", "precious\n");
    const Result result = run({"track", path, "-o", out});
    EXPECT_EQ(result.status, 2);
    EXPECT_EQ(lines_of(result.err).size(), 1u) << result.err;
    EXPECT_EQ(read_file(out), "precious\n");
}

TEST_P(IvtrackBadJson, IsDroppedWholeAndCountedWhenAskedFor) {
    const std::string next = "{\"frame\":3,\"detections\":[]}\n";
    const Result result = run(SKIPPING, GOOD_LINES + GetParam().line + "\n" + next);
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(result.out, run(STREAM, GOOD_LINES + next).out);
    EXPECT_EQ(summary_value(result.err, "skipped as bad"), "1");
}

INSTANTIATE_TEST_SUITE_P(
    Lines, IvtrackBadJson,
    testing::Values(
        BadLine{"NotJson", "frame 3", "\"frame 3\"", "one JSON object a line"},
        BadLine{"CutOff", "{\"frame\":3,\"detections\":[", "\"e\\\":3,\\\"detections\\\":[\"",
                "one JSON object a line"},
        BadLine{"NotAnObject", "[1,2]", "\"[1,2]\"", "one JSON object a line"},
        BadLine{"TwoObjects", "{\"frame\":3,\"detections\":[]}{}",
                "\":3,\\\"detections\\\":[]}{}\"", "one JSON object a line"},
        BadLine{"NumberTooLarge", "{\"frame\":1e999}", "\"{\\\"frame\\\":1e999}\"",
                "numbers that double precision can hold"},
        BadLine{"NestedWithoutEnd",
                "{\"frame\":3,\"detections\":[" + std::string(200000, '[') +
                    std::string(200000, ']') + "]}",
                "\"{\\\"frame\\\":3,\\\"detections\\\":[" + std::string(35, '[') + "\"...",
                "at most 100 levels of nesting"},
        BadLine{"NoFrame", "{\"detections\":[]}", "\"{\\\"detections\\\":[]}\"",
                "\"frame\", an integer from 0"},
        BadLine{"FrameNotAnInteger", "{\"frame\":3.5,\"detections\":[]}", "\"3.5\"",
                "\"frame\", an integer from 0"},
        BadLine{"FrameAText", "{\"frame\":\"3\",\"detections\":[]}", "\"\\\"3\\\"\"",
                "\"frame\", an integer from 0"},
        BadLine{"NegativeFrame", "{\"frame\":-3,\"detections\":[]}", "\"-3\"",
                "\"frame\", an integer from 0"},
        BadLine{"FrameTooLarge", "{\"frame\":9223372036854775808,\"detections\":[]}",
                "\"9223372036854775808\"", "\"frame\", an integer from 0"},
        BadLine{"NoDetections", "{\"frame\":3}", "\"{\\\"frame\\\":3}\"",
                "\"detections\", an array"},
        BadLine{"DetectionsNotAnArray", "{\"frame\":3,\"detections\":{}}", "\"{}\"",
                "\"detections\", an array"},
        BadLine{"RepeatedFrame", "{\"frame\":2,\"detections\":[]}", "\"2\"", "one line a frame"},
        BadLine{"BackwardFrame", "{\"frame\":1,\"detections\":[]}", "\"1\"", ""},
        BadLine{"WidthNotANumber", "{\"frame\":3,\"width\":\"x\",\"detections\":[]}",
                "\"\\\"x\\\"\"", "\"width\", an image width in pixels, from 1 to 1e9"},
        BadLine{"WidthZero", "{\"frame\":3,\"width\":0,\"detections\":[]}", "\"0\"",
                "\"width\", an image width in pixels, from 1 to 1e9"},
        BadLine{"WidthTiny", "{\"frame\":3,\"width\":1e-300,\"detections\":[]}", "\"1e-300\"",
                "\"width\", an image width in pixels, from 1 to 1e9"}),
    name_of);

class IvtrackBadDetection : public testing::TestWithParam<BadLine> {};

TEST_P(IvtrackBadDetection, EndsTheProgram) {
    const Result result =
        run(STREAM, GOOD_LINES + "{\"frame\":3,\"detections\":[" + GetParam().line + "]}\n");
    expect_refused(result, message("<stdin>", 3, GetParam()));
    EXPECT_EQ(objects_of(result.out).size(), 2u);
}

TEST_P(IvtrackBadDetection, IsDroppedAloneAndCountedWhenAskedFor) {
    const std::string good = "{\"box\":[100,100,150,180],\"score\":0.9}";
    const Result result =
        run({"track", "-", "--width", "640", "--skip-bad", "--stable", "1"},
            "{\"frame\":3,\"detections\":[" + GetParam().line + "," + good + "]}\n");
    EXPECT_EQ(result.status, 0) << result.err;
    const auto objects = objects_of(result.out);
    ASSERT_EQ(objects.size(), 1u);
    ASSERT_EQ(objects[0]["tracks"].size(), 1u);
    EXPECT_EQ(objects[0]["tracks"][0]["detection"], 1);
    EXPECT_EQ(summary_value(result.err, "skipped as bad"), "1");
}

INSTANTIATE_TEST_SUITE_P(
    Kinds, IvtrackBadDetection,
    testing::Values(
        BadLine{"NotAnObject", "7", "\"7\"", "a detection"},
        BadLine{"NoBox", "{\"score\":0.9}", "\"{\\\"score\\\":0.9}\"", "\"box\" of four numbers"},
        BadLine{"BoxOfThree", "{\"box\":[1,2,3],\"score\":0.9}", "\"[1,2,3]\"",
                "\"box\" of four numbers"},
        BadLine{"BoxOfFive", "{\"box\":[1,2,3,4,5],\"score\":0.9}", "\"[1,2,3,4,5]\"",
                "\"box\" of four numbers"},
        BadLine{"TextInTheBox", "{\"box\":[1,2,\"3\",4],\"score\":0.9}", "\"\\\"3\\\"\"",
                "\"box\" of four numbers"},
        BadLine{"NullInTheBox", "{\"box\":[1,2,null,4],\"score\":0.9}", "\"null\"",
                "\"box\" of four numbers"},
        BadLine{"RightLeftOfLeft", "{\"box\":[3,2,1,4],\"score\":0.9}", "\"3,2,1,4\"", "a box"},
        BadLine{"BottomAboveTop", "{\"box\":[1,4,3,2],\"score\":0.9}", "\"1,4,3,2\"", "a box"},
        BadLine{"CoordinateTooLarge", "{\"box\":[1,2,1e39,4],\"score\":0.9}", "\"1e+39\"",
                "a coordinate between"},
        BadLine{"NoScore", "{\"box\":[1,2,3,4]}", "\"{\\\"box\\\":[1,2,3,4]}\"",
                "\"score\", a number"},
        BadLine{"ScoreAText", "{\"box\":[1,2,3,4],\"score\":\"high\"}", "\"\\\"high\\\"\"",
                "\"score\", a number"},
        BadLine{"ScoreTooLarge", "{\"box\":[1,2,3,4],\"score\":1e39}", "\"1e+39\"", "a score"},
        BadLine{"ClassNotAnInteger", "{\"box\":[1,2,3,4],\"score\":1,\"class\":1.5}", "\"1.5\"",
                "\"class\", an integer"},
        BadLine{"ClassAText", "{\"box\":[1,2,3,4],\"score\":1,\"class\":\"car\"}",
                "\"\\\"car\\\"\"", "\"class\", an integer"},
        BadLine{"ClassTooLarge", "{\"box\":[1,2,3,4],\"score\":1,\"class\":9223372036854775808}",
                "\"9223372036854775808\"", "\"class\", an integer"}),
    name_of);

TEST(IvtrackBadJson, NaNIsNoJson) {
    const Result result = run(STREAM, "{\"frame\":1,\"detections\":[{\"box\":[1,2,3,NaN]}]}\n");
    EXPECT_EQ(result.status, 2);
    EXPECT_NE(result.err.find("<stdin>:1: "), std::string::npos) << result.err;
    EXPECT_NE(result.err.find("NaN"), std::string::npos) << result.err;
}

TEST(IvtrackBadJson, ARepeatedFrameInAFileIsRefusedWhereverItStands) {
    Folder folder;
    const std::string path = folder.write("det.jsonl",
                                          "{\"frame\":9,\"detections\":[]}\n"
                                          "{\"frame\":2,\"detections\":[]}\n"
                                          "{\"frame\":9,\"detections\":[]}\n");
    expect_refused(run({"track", path}),
                   "ivtrack: " + path + ":3: \"9\": expected one line a frame");
}

TEST(IvtrackBadFile, AFileThatCannotBeReadIsAFailureOfTheSystem) {
    Folder folder;
    for (const std::string& path : {folder / "absent.txt", folder / "."}) {
        const Result result = run({"track", path});
        EXPECT_EQ(result.status, 1) << path;
        EXPECT_EQ(result.err.rfind("ivtrack: cannot ", 0), 0u) << result.err;
        EXPECT_EQ(lines_of(result.err).size(), 1u) << result.err;
        EXPECT_EQ(result.out, "");
    }
}

TEST(IvtrackBadFile, ANameWithALineBreakStaysOneLine) {
    const Result result = run({"track", "no\nsuch.txt"});
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(lines_of(result.err).size(), 1u) << result.err;
}

} // namespace
} // namespace test
