// MOTChallenge text: what is read from it and what is written.
#include <fmt/format.h>
#include <gtest/gtest.h>

#include "program.h"

namespace test {
namespace {

/// Tracks one frame of these rows; every detection is reported at once.
std::vector<std::vector<std::string>> track_rows(const std::string& rows) {
    const Result result = run({"track", "-", "--stable", "1", "--width", "640"}, rows);
    EXPECT_EQ(result.status, 0) << result.err;
    return rows_of(result.out);
}

std::string class_of(const std::string& row) {
    const auto rows = track_rows(row + "\n");
    return rows.size() == 1 && rows[0].size() == 10 ? rows[0][7] : "(no row)";
}

TEST(IvtrackMot, RowsComeBackWithTenColumns) {
    const auto rows = track_rows("7,-1,100,120,50,80,0.9\n");
    ASSERT_EQ(rows.size(), 1u);
    EXPECT_EQ(rows[0], (std::vector<std::string>{"7", "1", "100", "120", "50", "80", "0.9", "1",
                                                 "-1", "-1"}));
}

TEST(IvtrackMot, SpacesCarriageReturnsBlankLinesAndAMissingLastEndAreAccepted) {
    const auto rows =
        track_rows(" 1 , -1,\t100, 120 ,50,80, 0.9 \r\n\n  \r\n2,-1,100,120,50,80,0.9");
    ASSERT_EQ(rows.size(), 2u);
    EXPECT_EQ(rows[0][2], "100");
    EXPECT_EQ(rows[1][0], "2");
}

TEST(IvtrackMot, TheIdOfADetectionIsIgnored) {
    EXPECT_EQ(track_rows("1,77.5,100,120,50,80,0.9\n")[0][1], "1");
}

TEST(IvtrackMot, AnAbsentClassColumnMeansClassOne) {
    EXPECT_EQ(class_of("1,-1,100,120,50,80,0.9"), "1");
}

TEST(IvtrackMot, ColumnEightIsAClassInRowsOfEightNineAndElevenColumns) {
    EXPECT_EQ(class_of("1,-1,100,120,50,80,0.9,5"), "5");
    EXPECT_EQ(class_of("1,-1,100,120,50,80,0.9,5,0.25"), "5");
    EXPECT_EQ(class_of("1,-1,100,120,50,80,0.9,5,1.5,2.5,3.5"), "5");
}

TEST(IvtrackMot, AClassOfMinusOneMeansNoClassAndIsWrittenAsOne) {
    EXPECT_EQ(class_of("1,-1,100,120,50,80,0.9,-1"), "1");
    EXPECT_EQ(class_of("1,-1,100,120,50,80,0.9,-1,-1"), "1");
    EXPECT_EQ(class_of("1,-1,100,120,50,80,0.9,-1,-1,-1"), "1");
}

TEST(IvtrackMot, TenColumnsThatEndInCoordinatesHaveNoClass) {
    EXPECT_EQ(class_of("1,-1,100,120,50,80,0.9,-4.1554,-7.3591,0"), "1");
    EXPECT_EQ(class_of("1,-1,100,120,50,80,0.9,4,-7.3591,0"), "1");
    EXPECT_EQ(class_of("1,-1,100,120,50,80,0.9,4,-1,0"), "1");
    EXPECT_EQ(class_of("1,-1,100,120,50,80,0.9,4,0,-1"), "1");
    EXPECT_EQ(class_of("1,-1,100,120,50,80,0.9,4.5,-1,-1"), "1");
}

TEST(IvtrackMot, AClassThatCannotBeKeptIsRefusedInTenColumnsToo) {
    for (const char* number : {"9223372036854775808", "4.0", "1e3"}) {
        const Result result = run({"track", "-", "--width", "640"},
                                  fmt::format("1,-1,100,120,50,80,0.9,{},-1,-1\n", number));
        EXPECT_EQ(result.status, 2) << number;
        EXPECT_EQ(result.err,
                  fmt::format("ivtrack: <stdin>:1: \"{}\": expected a class (an integer) "
                              "in column 8\n",
                              number));
    }
}

TEST(IvtrackMot, TenColumnsThatEndInTwoFillersHaveAClass) {
    EXPECT_EQ(class_of("1,-1,100,120,50,80,0.9,4,-1,-1"), "4");
    EXPECT_EQ(class_of("1,-1,100,120,50,80,0.9,4,-1.0,-1"), "4");
}

TEST(IvtrackMot, AnyIntegerIsAClassAndComesBackAsItWas) {
    for (const char* number : {"0", "-2", "2147483647", "-2147483648", "16777217",
                               "9223372036854775807", "-9223372036854775808"}) {
        EXPECT_EQ(class_of(fmt::format("1,-1,100,120,50,80,0.9,{}", number)), number);
    }
}

TEST(IvtrackMot, ObjectsWithoutAClassAndOfClassOneAreOneClass) {
    const Result result = run({"track", "-", "--width", "640"},
                              "1,-1,100,100,50,80,0.9\n2,-1,100,100,50,80,0.9,1\n"
                              "3,-1,100,100,50,80,0.9,-1\n");
    EXPECT_EQ(rows_of(result.out).size(), 1u) << result.out;
}

TEST(IvtrackMot, ClassZeroDoesNotEndTheFrame) {
    const auto rows = track_rows(
        "1,-1,100,100,50,80,0.9,0\n1,-1,300,100,50,80,0.8,0\n1,-1,500,100,50,80,0.7,3\n");
    ASSERT_EQ(rows.size(), 3u);
    EXPECT_EQ(rows[0][7], "0");
    EXPECT_EQ(rows[1][7], "0");
    EXPECT_EQ(rows[2][7], "3");
}

TEST(IvtrackMot, ScoresAreWrittenWithTheFewestDigitsAndZeroWithoutASign) {
    for (const auto& [given, written] : {std::pair("0.1", "0.1"),
                                         {"-0.0", "0"},
                                         {"5", "5"},
                                         {"-2.5", "-2.5"},
                                         {"0.30000001192092896", "0.3"},
                                         {"16777216", "16777216"}}) {
        const auto rows = track_rows(fmt::format("1,-1,100,120,50,80,{}\n", given));
        ASSERT_EQ(rows.size(), 1u) << given;
        EXPECT_EQ(rows[0][6], written);
    }
}

TEST(IvtrackMot, CoordinatesAreRoundedToAThousandthOfAPixelAndZeroHasNoSign) {
    const auto rows = track_rows("1,-1,-0.0001,0.12345,50.9996,80.25,0.9\n");
    ASSERT_EQ(rows.size(), 1u);
    EXPECT_EQ(rows[0][2], "0");
    EXPECT_EQ(rows[0][3], "0.123");
    EXPECT_EQ(rows[0][4], "51");
    EXPECT_EQ(rows[0][5], "80.25");
}

TEST(IvtrackMot, BoxesWithoutAnAreaAreAccepted) {
    EXPECT_EQ(track_rows("1,-1,100,100,0,0,0.9\n").size(), 1u);
}

TEST(IvtrackMot, AnEmptyInputGivesAnEmptyOutputAndSuccess) {
    for (const char* empty : {"", "\n", " \r\n\n"}) {
        const Result result = run({"track", "-"}, empty);
        EXPECT_EQ(result.status, 0) << result.err;
        EXPECT_EQ(result.out, "");
    }
    Folder folder;
    const Result result = run({"track", folder.write("det.txt", ""), "-o", folder / "out.txt"});
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(read_file(folder / "out.txt"), "");
}

TEST(IvtrackMot, TheFormatCanBeForced) {
    EXPECT_EQ(run({"track", "-", "--width", "9", "--format", "json"}, still_rows(1, 1)).status, 2);
    EXPECT_EQ(run({"track", "-", "--width", "9", "--format", "mot"}, still_rows(1, 1)).status, 0);
    const std::string json = "{\"frame\":1,\"detections\":[]}\n";
    EXPECT_EQ(run({"track", "-", "--width", "9", "--format", "mot"}, json).status, 2);
    const Result blank_first = run({"track", "-", "--width", "9", "--format", "json"}, "\n" + json);
    EXPECT_EQ(blank_first.out, "{\"frame\":1,\"tracks\":[]}\n") << blank_first.err;
}

} // namespace
} // namespace test
