// The text of the diagnostic printer.
#include <gtest/gtest.h>

#include <climits>
#include <cstring>
#include <string>

#include "support/matrix.h"
#include "support/output_capture.h"

namespace {

using test::FloatMatrix;
using test::Matrix;

std::string printed(iv_mat_t* mat, const char* name = nullptr) {
    char* buffer = nullptr;
    char text[32];
    if (name) {
        std::strncpy(text, name, sizeof text - 1);
        text[sizeof text - 1] = '\0';
        buffer = text;
    }
    test::OutputCapture capture;
    iv_mat_print(buffer, mat);
    return capture.text();
}

TEST(MatrixPrint, NamedFloatsPrintAsTheNameAndOneLinePerRow) {
    FloatMatrix mat(2, 2, {1, 2, 3, 4});
    EXPECT_EQ(printed(mat, "A"), "A=\n   1.000000   2.000000\n   3.000000   4.000000\n");
}

TEST(MatrixPrint, NullNameOmitsTheHeaderLine) {
    FloatMatrix mat(1, 2, {0.5f, -1.25f});
    EXPECT_EQ(printed(mat), "   0.500000  -1.250000\n");
}

TEST(MatrixPrint, NameIsTextAndNotAFormat) {
    FloatMatrix mat(0, 0, {});
    EXPECT_EQ(printed(mat, "%d%s"), "%d%s=\n");
    EXPECT_EQ(printed(mat, ""), "=\n");
}

TEST(MatrixPrint, NoRowsPrintTheHeaderLineAlone) {
    FloatMatrix mat(0, 3, {});
    EXPECT_EQ(printed(mat, "empty"), "empty=\n");
    mat->rows = -1;
    EXPECT_EQ(printed(mat, "empty"), "empty=\n");
    EXPECT_EQ(printed(mat), "");
}

TEST(MatrixPrint, RowsWithoutColumnsPrintEmptyLines) {
    FloatMatrix mat(2, 0, {});
    EXPECT_EQ(printed(mat), "\n\n");
    mat->cols = -1;
    EXPECT_EQ(printed(mat), "\n\n");
}

TEST(MatrixPrint, UnsignedBytesPrintInThreeColumns) {
    Matrix<u08_t> mat(IV_8U, 1, 3, {7, 42, 255});
    EXPECT_EQ(printed(mat), "   7  42 255\n");
}

TEST(MatrixPrint, SignedBytesPrintAsCharacters) {
    Matrix<s08_t> mat(IV_8S, 1, 3, {72, 105, 33});
    EXPECT_EQ(printed(mat), " H i !\n");
    Matrix<s08_t> high(IV_8S, 1, 2, {-23, 0});
    EXPECT_EQ(printed(high), std::string(" \xe9 \0\n", 5));
}

TEST(MatrixPrint, UnsignedWordsPrintThroughTheSignedView) {
    Matrix<u16_t> mat(IV_16U, 1, 2, {65535, 7});
    EXPECT_EQ(printed(mat), "     -1      7\n");
    Matrix<u16_t> edge(IV_16U, 1, 2, {32768, 32767});
    EXPECT_EQ(printed(edge), " -32768  32767\n");
}

TEST(MatrixPrint, SignedWordsPrintInSixColumns) {
    Matrix<s16_t> mat(IV_16S, 1, 2, {-32768, 1});
    EXPECT_EQ(printed(mat), " -32768      1\n");
}

TEST(MatrixPrint, WholeNumbersPrintInElevenColumns) {
    Matrix<s32_t> mat(IV_32S, 1, 2, {INT_MIN, 12});
    EXPECT_EQ(printed(mat), " -2147483648          12\n");
    Matrix<s64_t> wide(IV_64S, 1, 3, {-1, 5000000000, LLONG_MIN});
    EXPECT_EQ(printed(wide), "          -1  5000000000 -9223372036854775808\n");
}

TEST(MatrixPrint, DoublesPrintInTenColumns) {
    Matrix<f64_t> mat(IV_64F, 1, 2, {-0.0, 123456789.125});
    EXPECT_EQ(printed(mat), "  -0.000000 123456789.125000\n");
}

TEST(MatrixPrint, OnlyTheFirstColsValuesOfARowPrint) {
    Matrix<s32_t> mat(IV_MAKETYPE(IV_32S, 3), 1, 2, {1, 2, 3, 4, 5, 6});
    EXPECT_EQ(printed(mat), "           1           2\n");
    Matrix<s32_t> two_rows(IV_MAKETYPE(IV_32S, 2), 2, 2, {1, 2, 3, 4, 5, 6, 7, 8});
    EXPECT_EQ(printed(two_rows), "           1           2\n           5           6\n");
}

TEST(MatrixPrint, RowPitchComesFromTheStepAndRoundsTowardZero) {
    FloatMatrix mat(2, 2, {1, 2, 3, 4, 5, 6});
    mat->step = 15;
    EXPECT_EQ(printed(mat), "   1.000000   2.000000\n   4.000000   5.000000\n");
    mat->data.f += 3;
    mat->step = -15;
    EXPECT_EQ(printed(mat), "   4.000000   5.000000\n   1.000000   2.000000\n");
}

TEST(MatrixPrint, BitsAboveTheChannelsAreIgnored) {
    Matrix<u08_t> mat(IV_8U | test::HIGH_TYPE_BIT, 1, 1, {5});
    EXPECT_EQ(printed(mat), "   5\n");
}

} // namespace
