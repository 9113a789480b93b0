// The lane routine that reads numbers a stride apart.
#include <gtest/gtest.h>

#include "rows/row_tables.h"
#include "tests/kit/guarded.h"

namespace tavo::test {
namespace {

TEST(Gather, StridedLanes) {
    guarded memory(7 * 12 + 4);
    for (std::size_t i = 0; i < memory.size(); i++)
        memory.data()[i] = static_cast<ub1>(i * 37);
    const __m256i otherwise = _mm256_set1_epi32(-1);
    ub4 got[8], expected[8];
    const auto lanes = [&](const void *base, sb8 offset, sb8 stride, ub4 mask) {
        _mm256_storeu_si256(reinterpret_cast<__m256i *>(got),
                            tavo_mm256_mmask_gather_strided_epi32(base, offset, stride, mask, otherwise));
        return std::vector<ub4>(got, got + 8);
    };
    for (int k = 0; k < 8; k++)
        std::memcpy(&expected[k], memory.data() + 12 * k, 4);
    EXPECT_EQ(lanes(memory.data() + 5, -5, 12, 0x10), std::vector<ub4>(expected, expected + 8)); // any bit, all lanes
    EXPECT_EQ(lanes(nullptr, 0, 12, 0x100), std::vector<ub4>(8, ~0u));                           // the low byte alone
}

} // namespace
} // namespace tavo::test
