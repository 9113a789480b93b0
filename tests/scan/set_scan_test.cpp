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

// A set may end behind the largest code that occurs, wherever in a page it starts: no noise is looked up.
TEST(SetScan, LooksUpNothingButTheColumnsCodes) {
    std::mt19937_64 rng(3302);
    for (const scan_member &member : all_set_members())
        for (ub4 rows : {1u, 3u, 15u, 17u, 31u, 33u, 130u, 255u, 257u, 1025u})
            for (ub8 codes : {3u, 70u, 130u, 700u, 2100u, 5000u}) {
                if (codes > largest_code(member.width))
                    continue;
                std::vector<scan_value> values(rows);
                for (scan_value &value : values)
                    value = rng() % codes;
                ASSERT_NO_FATAL_FAILURE(expect_agreement(member, values, rng(), 0, guard::behind));
            }
}

// A set that runs over a page's end, with codes on both sides of it or on one alone.
TEST(SetScan, SetAcrossPages) {
    std::mt19937_64 rng(3304);
    for (const scan_member &member : all_set_members()) {
        if (member.width < 7 || member.width > 13)
            continue;
        const std::size_t bytes = (std::size_t{1} << member.width) / 8;
        for (std::size_t before = 8; before < bytes; before += 8 + rng() % bytes / 64 * 8) {
            std::vector<ub8> room(8192 / 8 + 512);
            auto *set_bytes = reinterpret_cast<ub1 *>(room.data());
            set_bytes += 4096 - reinterpret_cast<uintptr_t>(set_bytes) % 4096 + 4096 - before;
            auto *bits = reinterpret_cast<ub8 *>(set_bytes);
            for (std::size_t i = 0; i < bytes / 8; i++)
                bits[i] = rng();
            auto values = member.random_values(300, rng);
            for (int round = 0; round < 2; round++) {
                scan_column column(member, values);
                scan_result result(300);
                tavo_vec set{};
                set.bits = bits;
                tavo_global_specialized_ctx.dispatch_table[member.index()].scan(&result.res, &column.src, &set,
                                                                                nullptr);
                ASSERT_EQ(
                    result.bits(),
                    bits_where(300, [&](ub4 r) { return bits[values[r].number / 64] >> values[r].number % 64 & 1; }))
                    << member.name() << " " << before;
                for (scan_value &value : values)
                    value.number %= 8 * before;
                values[299].number = 8 * before - 1 + rng() % 2; // the last row alone decides
            }
        }
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
