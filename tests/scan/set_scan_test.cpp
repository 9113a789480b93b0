// Every set kernel against the bit of each code.
#include <gtest/gtest.h>

#include "tests/scan/scan_case.h"

namespace tavo::test {
namespace {

TEST(SetScan, AgreesWithPlainReading) {
    std::mt19937_64 rng(3301);
    for (const scan_member &member : all_set_members()) {
        ASSERT_NE(tavo_global_specialized_ctx.dispatch_table[member.index()].scan, nullptr) << member.width;
        for (ub4 rows : boundary_sizes())
            for (int round = 0; round < 3; round++)
                ASSERT_NO_FATAL_FAILURE(expect_agreement(member, member.random_values(rows, rng), rng(), 0,
                                                         round == 2 ? guard::before : guard::behind));
    }
}

// A large set may end behind the largest code that occurs: the noise behind a column's last code is not looked up.
TEST(SetScan, LooksUpNothingButTheColumnsCodes) {
    std::mt19937_64 rng(3302);
    for (const scan_member &member : all_set_members())
        for (ub4 rows : {1u, 3u, 15u, 17u, 31u, 33u, 130u, 255u, 257u}) {
            if (member.width <= 13)
                continue;
            std::vector<scan_value> values(rows);
            for (scan_value &value : values)
                value = rng() % 1000;
            ASSERT_NO_FATAL_FAILURE(expect_agreement(member, values, rng(), 0, guard::behind));
        }
}

TEST(SetScan, EmptySetAndWholeSet) {
    std::mt19937_64 rng(3303);
    for (const scan_member &member : all_set_members()) {
        if (member.width > 20)
            continue;
        const auto values = member.random_values(700, rng);
        for (bool whole : {false, true}) {
            std::vector<ub8> bits(((std::size_t{1} << member.width) + 63) / 64, whole ? ~0ull : 0);
            scan_column column(member, values);
            scan_result result(700);
            tavo_vec set{};
            set.bits = bits.data();
            EXPECT_EQ(tavo_global_specialized_ctx.dispatch_table[member.index()].scan(&result.res, &column.src, &set,
                                                                                      nullptr),
                      whole ? TAVO_DONE : TAVO_NONE_SELECTED)
                << member.name();
            EXPECT_EQ(result.bits(), bits_where(700, [&](ub4) { return whole; })) << member.name();
            EXPECT_EQ(result.res.count, whole ? 700u : 0u) << member.name();
        }
    }
}

} // namespace
} // namespace tavo::test
