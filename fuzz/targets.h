// The fuzz targets: each takes any bytes and fails a GoogleTest expectation when something is wrong.
#ifndef LIBIV_FUZZ_TARGETS_H
#define LIBIV_FUZZ_TARGETS_H

#include "bytes.h"

namespace fuzz {

// Of the library, against the scalar model.
void matrix(Bytes in);
void filter(Bytes in);
void tracker(Bytes in);

// Of the program's readers.
void mot(Bytes in);
void json(Bytes in);
void seqinfo(Bytes in);
void draw(Bytes in);

} // namespace fuzz

#endif
