// Every member of the dictionary scans against the plain meaning of its operator.
#include <gtest/gtest.h>

#include "tests/scan/scan_case.h"

namespace tavo::test {
namespace {

struct constants {
    ub8 lo, hi;
};

// The ends of the range, values that occur, and for ranges also empty and inverted ones.
std::vector<constants> constants_for(const scan_member &member, const std::vector<ub8> &codes, std::mt19937_64 &rng) {
    const ub8 top = largest_code(member.width);
    std::vector<constants> list = {{0, top}, {top, top}, {top / 2, top - (top > 1)}};
    if (member.is_range()) {
        list.push_back({top, 0});
        list.push_back({0, 0});
        list.push_back({1, 1});
    }
    for (int i = 0; i < 2; i++) {
        ub8 lo = codes.empty() ? 0 : codes[rng() % codes.size()], hi = codes.empty() ? 0 : codes[rng() % codes.size()];
        list.push_back({std::min(lo, hi), std::max(lo, hi)});
    }
    return list;
}

void expect_agreement(const scan_member &member, const std::vector<ub8> &codes, constants c, guard side) {
    expect_agreement(member, {codes.begin(), codes.end()}, c.lo, c.hi, side);
}

TEST(DictScan, TableHasAllMembers) {
    const auto members = all_dict_members();
    EXPECT_EQ(members.size(), 460u);
    for (const scan_member &m : members)
        EXPECT_NE(tavo_global_specialized_ctx.dispatch_table[m.index()].scan, nullptr) << m.name();
}

// Sizes on both sides of every block, compare and word; the column ends, or begins, at an unreadable page.
TEST(DictScan, AgreesWithPlainReading) {
    std::mt19937_64 rng(3101);
    for (const scan_member &member : all_dict_members())
        for (ub4 rows : boundary_sizes()) {
            const auto codes = random_codes(rows, member.width, rng);
            const auto side = rng() % 2 ? guard::behind : guard::before;
            for (constants c : constants_for(member, codes, rng))
                ASSERT_NO_FATAL_FAILURE(expect_agreement(member, codes, c, side));
        }
}

// Every code of the narrow widths against every constant: no neighbour's bits leak into a compare.
TEST(DictScan, EveryCodeAgainstEveryConstant) {
    std::mt19937_64 rng(3102);
    for (const scan_member &member : all_dict_members()) {
        if (member.width > 7)
            continue;
        std::vector<ub8> codes(600);
        for (ub8 &code : codes)
            code = rng() & largest_code(member.width);
        for (ub8 lo = 0; lo <= largest_code(member.width); lo++)
            ASSERT_NO_FATAL_FAILURE(
                expect_agreement(member, codes, {lo, rng() & largest_code(member.width)}, guard::behind));
    }
}

// A column may start at any address.
TEST(DictScan, AnyAlignment) {
    std::mt19937_64 rng(3103);
    for (unsigned width : code_widths()) {
        const scan_member member{TAVO_OP_GE, width, true};
        const auto codes = random_codes(1100, width, rng);
        const auto packed = pack_codes(codes, width, 3);
        for (std::size_t shift = 0; shift < 64; shift += 1 + shift % 3) {
            guarded room(packed.size() + 64);
            std::memcpy(room.data() + shift, packed.data(), packed.size());
            scan_column column({}, width);
            column.src.data = room.data() + shift;
            column.src.size = 1100;
            scan_result result(1100);
            const ub8 c = codes[7];
            member(&result.res, &column.src, c, 0, nullptr);
            ASSERT_EQ(result.bits(), bits_where(1100, [&](ub4 r) { return member.qualifies(codes[r], c, 0); }))
                << member.name() << " at " << shift;
        }
    }
}

} // namespace
} // namespace tavo::test
