// The kernel of the inverse, on every instruction set, with its work area and its operands between
// forbidden pages.
#include <gtest/gtest.h>

#include "iv_matrix/inverse.h"
#include "model/inverse.h"
#include "model/scene.h"
#include "model/twin.h"
#include "support/forbidden_page.h"
#include "support/levels.h"

namespace {

using iv::internal::Kernels;
using iv::internal::MAX_INVERSE_ORDER;
using iv::internal::WorkArea;
using test::MatrixKind;
using test::Random;

/// Memory in which something lies right behind a forbidden page or right before one.
class Narrow {
  public:
    explicit Narrow(std::size_t room) : memory_(room) {}

    unsigned char* put(std::size_t bytes, bool at_the_end) const {
        return at_the_end ? memory_.end(bytes) : memory_.begin();
    }

  private:
    test::ForbiddenPage memory_;
};

constexpr std::size_t MOST = sizeof(float) * MAX_INVERSE_ORDER * MAX_INVERSE_ORDER;

void expect_to_stay_inside(const Kernels& level, bool area_at_the_end) {
    const Narrow area_memory(sizeof(WorkArea)), src_memory(MOST), dst_memory(MOST);
    auto& area = *reinterpret_cast<WorkArea*>(area_memory.put(sizeof(WorkArea), area_at_the_end));
    model::InverseArea expected_area;
    std::vector<unsigned char> expected_bytes(MOST);
    Random random(test::seed() + 46);
    for (int round = 0; round < MAX_INVERSE_ORDER * test::rounds(10); ++round) {
        const int n = 1 + round % MAX_INVERSE_ORDER;
        const bool src_at_the_end = (round + round / MAX_INVERSE_ORDER) % 2 == 0;
        const MatrixKind kind = test::random_matrix_kind(random);
        const std::size_t bytes = sizeof(float) * static_cast<std::size_t>(n * n);
        const auto matrix = [&](const Narrow& memory, bool at_the_end) {
            return model::header(model::F32, n, n, memory.put(bytes, at_the_end));
        };
        const model::Mat src = matrix(src_memory, src_at_the_end);
        const model::Mat dst = random.chance(0.3f) ? src : matrix(dst_memory, random.chance(0.5f));
        for (int i = 0; i < n * n; ++i) {
            model::store(src.data, i, random.uniform(-9.0f, 9.0f));
        }
        test::make_difficult(random, kind, src);
        const model::Mat expected = model::header(model::F32, n, n, expected_bytes.data());
        ASSERT_EQ(expected_area.invert(src, expected), 0);
        level.invert(area, n, src.data, dst.data);
        test::expect_same_values(expected, dst, test::NanRule::PRODUCED);
        ASSERT_FALSE(testing::Test::HasFailure())
            << "level " << level.level << ", order " << n << ", kind " << static_cast<int>(kind);
    }
}

TEST(InverseKernel, StaysInTheWorkAreaAndTheOperands) {
    for (const Kernels* level : test::levels()) {
        if (test::runs(*level)) {
            expect_to_stay_inside(*level, false);
            expect_to_stay_inside(*level, true);
        }
    }
}

} // namespace
