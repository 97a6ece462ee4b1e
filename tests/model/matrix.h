// What the library's matrix functions compute, written as plainly as possible.
//
// Everything works on bytes in memory, value by value, so that overlapping operands need no
// thought.
#ifndef LIBIV_TESTS_MODEL_MATRIX_H
#define LIBIV_TESTS_MODEL_MATRIX_H

#include <string>

#include "model/values.h"

namespace model {

enum Depth { U8, S8, U16, S16, S32, F32, S64, F64 };

/// Mode bits of the products.
constexpr int TRANSPOSED_FIRST = 1;
constexpr int TRANSPOSED_SECOND = 2;
constexpr int IDENTITY_FIRST = 16;

/// A header over storage that somebody else owns.
struct Mat {
    int type;
    int rows;
    int cols;
    int step; ///< bytes from row to row
    unsigned char* data;
};

/// A packed matrix: its step follows from its type and columns.
Mat header(int type, int rows, int cols, unsigned char* data);

/// Values that the element-wise functions visit: rows x cols x channels in 32 bits.
int flat_count(const Mat& mat);

void setzero(const Mat& mat);
void setidentity(const Mat& mat);
void setdiagonal(const unsigned char* values, const Mat& mat);
void setone(const Mat& mat);

void neg(const Mat& src, const Mat& dst);
void scale(const unsigned char* value, const Mat& src, const Mat& dst);
void add(const Mat& src1, const Mat& src2, const Mat& dst);
void sub(const Mat& src1, const Mat& src2, const Mat& dst);
void transpose(const Mat& src, const Mat& dst);

void mul(const Mat& src1, const Mat& src2, const Mat& dst, int flags);
void muladd(const Mat& src1, const Mat& src2, const Mat& src3, const Mat& dst, int flags);
void submul(const Mat* src1, const Mat& src2, const Mat& src3, const Mat& dst, int flag);

/// The text that the library's printer writes; `name` may be null.
std::string print(const char* name, const Mat& mat);

/// Works in the area of the process, see inverse.h.
int inv(const Mat& src, const Mat& dst);

} // namespace model

#endif
