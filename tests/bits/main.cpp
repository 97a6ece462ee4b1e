// Compares what the model gives on this machine with the digests of a file, and what the library
// gives with the kernels of every instruction set that the machine runs.
//
// libiv_digests FILE
#include <cstdio>
#include <iostream>

#include "digests/corpus.h"
#include "support/failure.h"
#include "support/levels.h"

namespace {

int failures = 0;

} // namespace

namespace test {

void fail(const std::string& message) {
    ++failures;
    std::cout << "FAILED: " << message << '\n';
}

} // namespace test

namespace {

using Values = std::map<std::string, std::uint64_t>;

template <class Side>
void compare(const Values& expected, const std::string& what) {
    digests::Digests all;
    digests::digest_all<Side>(all);
    const auto differences = digests::differences(expected, all.values());
    for (const std::string& line : differences) {
        test::fail(what + ": " + line);
    }
    if (differences.empty()) {
        std::cout << what << ": " << expected.size() << " digests agree\n";
    }
}

} // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        std::cerr << "usage: libiv_digests FILE\n";
        return 2;
    }
    const Values expected = digests::read(argv[1]);
    compare<model::Scalar>(expected, "model");
    for (const iv::internal::Kernels* level : test::levels()) {
        if (!test::runs(*level)) {
            std::cout << level->level << ": SKIPPED, this machine lacks the instructions\n";
            continue;
        }
        const test::ForcedLevel forced(*level);
        compare<model::Library>(expected, level->level);
    }
    return failures ? 1 : 0;
}
