// The complement of a bit vector, and the printed dispatch statistics.
#include "frame/stats.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <string>

#include "frame/dispatch_table.h"
#include "frame/tavoc_avx512g.h"
#include "tests/kit/codes.h"
#include "tests/kit/guarded.h"

namespace {

using namespace tavo::test;

TEST(Null, ComplementsWholeWords) {
    std::mt19937_64 rng(1);
    for (ub4 rows : boundary_sizes())
        for (bool in_place : {false, true}) {
            const std::size_t words = (rows + 63) / 64;
            guarded in(words * 8), out(words * 8);
            std::vector<ub8> expected(words);
            for (std::size_t i = 0; i < words; i++)
                expected[i] = ~(in.as<ub8>()[i] = rng());
            tavo_vec src{}, res{};
            src.bits = in.as<ub8>();
            res.bits = in_place ? src.bits : out.as<ub8>();
            src.size = res.size = rows;
            res.count = 77;
            EXPECT_EQ(tavo_null(~0ull, &res, &src, ~0ull), 0u);
            // Above the row count too: the complement of what stood there.
            EXPECT_TRUE(std::equal(expected.begin(), expected.end(), res.bits)) << rows;
            EXPECT_EQ(res.count, 77u);
        }
}

TEST(NullDeathTest, SizesMustAgree) {
    ub8 word = 0;
    tavo_vec src{}, res{};
    src.bits = res.bits = &word;
    src.size = 64;
    res.size = 63;
    EXPECT_DEATH(tavo_null(0, &res, &src, 0),
                 "tavoc_avx512g:[0-9]+: .*Assertion `TAVO_VEC_SIZE\\(src\\) == TAVO_VEC_SIZE\\(res\\)' failed");
}

std::string dump(const tavo_stats &stats, ub4 only_used) {
    testing::internal::CaptureStdout();
    tavo_stats_dump(&stats, only_used);
    return testing::internal::GetCapturedStdout();
}

TEST(StatsDump, WalksByVariantClassOperationWidth) {
    auto stats = std::make_unique<tavo_stats>();
    const auto used = [&](unsigned operation, unsigned encoding_class, unsigned code, unsigned variant, ub4 calls,
                          double rate) {
        const unsigned i = tavo::dispatch_index(operation, encoding_class, code, variant);
        stats->calls[i] = calls;
        stats->mrows_per_sec[i] = rate;
    };
    EXPECT_EQ(dump(*stats, 1), "");
    // In the order of the slots this would come out in quite another order.
    used(TAVO_OP_EQ, TAVO_CLASS_DICT, 0, 1, 6, 0.5);
    used(TAVO_OP_LT, TAVO_CLASS_DICT, 0, 0, 4, 1e6);
    used(TAVO_OP_EQ, TAVO_CLASS_DICT, 22, 0, 3, 2.51);
    used(TAVO_OP_EQ, TAVO_CLASS_DICT, 2, 0, 2, 1234.4);
    used(31, TAVO_CLASS_FIXED, 31, 0, 1, 0);
    used(31, TAVO_CLASS_OTHER, 31, 0, 0xffffffff, 7);
    EXPECT_EQ(dump(*stats, 1), "tavo_invalid_dispatch         Call Freq: 1\tMrowsPerSec: 0\n"
                               "tavo_eq_dict_3bit             Call Freq: 2\tMrowsPerSec: 1234\n"
                               "tavo_eq_dict_64bit            Call Freq: 3\tMrowsPerSec: 3\n"
                               "tavo_lt_dict_1bit             Call Freq: 4\tMrowsPerSec: 1000000\n"
                               "tavo_invalid_dispatch         Call Freq: -1\tMrowsPerSec: 7\n"
                               "tavo_eq_dict_1bit_null        Call Freq: 6\tMrowsPerSec: 0\n");
    EXPECT_EQ(dump(*stats, 0x80000000), dump(*stats, 1));

    const std::string all = dump(*stats, 0);
    EXPECT_EQ(std::count(all.begin(), all.end(), '\n'), 8192);
    EXPECT_EQ(all.find("tavo_invalid_dispatch         Call Freq: 0\tMrowsPerSec: 0\n"), 0u);
    EXPECT_NE(all.find("tavo_ge_le_dict_12bit_null    Call Freq: 0\tMrowsPerSec: 0\n"), std::string::npos);
}

} // namespace
