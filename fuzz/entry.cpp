// What libFuzzer calls. FUZZ_TARGET names the target.
#include <gtest/gtest.h>

#include <cstdlib>

#include "targets.h"

extern "C" {
int LLVMFuzzerInitialize(int* argc, char*** argv);
int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size);
}

namespace {

/// A failed expectation ends the process, so that the fuzzer keeps the input.
class Abort : public testing::EmptyTestEventListener {
    void OnTestPartResult(const testing::TestPartResult& result) override {
        if (result.failed()) {
            std::fflush(stdout);
            std::abort();
        }
    }
};

} // namespace

int LLVMFuzzerInitialize(int*, char***) {
    testing::UnitTest::GetInstance()->listeners().Append(new Abort);
    return 0;
}

int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size) {
    fuzz::FUZZ_TARGET(fuzz::Bytes(data, size));
    return 0;
}
