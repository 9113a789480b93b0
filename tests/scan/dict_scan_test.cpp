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

} // namespace
} // namespace tavo::test
