// Random operands, the same on every machine.
#ifndef LIBIV_TESTS_MODEL_RANDOM_VALUES_H
#define LIBIV_TESTS_MODEL_RANDOM_VALUES_H

#include "support/random.h"

namespace test {

/// `count` rounds of a random test; LIBIV_TEST_SCALE of the environment multiplies it.
int rounds(int count);

/// Any type code of eight bits, or rarely one with bits above them.
int random_type(Random& random);

/// Rows, columns: 0 to 12 mostly, rarely up to 45.
int random_length(Random& random, int least = 0);

/// Writes one value of the depth. `hostile` is the chance of NaNs, infinities, denormals and such.
void random_value(Random& random, int type, float hostile, unsigned char* out);

/// A share of hostile values that leaves some cases without any.
float random_hostility(Random& random);

} // namespace test

#endif
