// Every member of the fixed and dynp scans, at every width of its elements, against the plain meaning of its operator.
#include <gtest/gtest.h>

#include <algorithm>

#include "tests/scan/scan_case.h"

namespace tavo::test {
namespace {

// Sizes on both sides of every block, compare, control byte and word; constants that occur, with their tz and with
// another, a negative one included, and empty ranges.
TEST(NumberScan, AgreesWithPlainReading) {
    std::mt19937_64 rng(3201);
    for (const scan_member &member : all_number_members())
        for (ub4 rows : boundary_sizes()) {
            const auto values = member.random_values(rows, rng);
            const auto value = [&] { return rows == 0 ? scan_value(7) : values[rng() % rows]; };
            const scan_value one = value(), other = value();
            const auto [a, b] = std::minmax(one, other);
            const scan_value other_tz(value().number, static_cast<int>(rng() % 24) - 8);
            const auto side = rng() % 2 ? guard::behind : guard::before;
            ASSERT_NO_FATAL_FAILURE(expect_agreement(member, values, a, b, side));
            ASSERT_NO_FATAL_FAILURE(expect_agreement(member, values, other_tz, other_tz, side));
            ASSERT_NO_FATAL_FAILURE(expect_agreement(member, values, b, {b.number, 127}, side));
            ASSERT_NO_FATAL_FAILURE(
                expect_agreement(member, values, {0, -128}, {largest_code(member.width_bits), 3}, side));
        }
}

// A short element is the number with zeros behind it.
TEST(NumberScan, ShortElementsAreNumbersWithZerosBehind) {
    const scan_member equal{TAVO_OP_EQ, 16, false, TAVO_CLASS_DYNP, 16};
    ASSERT_NO_FATAL_FAILURE(expect_agreement(equal, {{0x1200, 0}, {0x1200, 1}, {0x0012, 1}}, 0x1200, 0, guard::behind));
    const scan_member equal_tz{TAVO_OP_EQ, 16, true, TAVO_CLASS_DYNP, 16};
    ASSERT_NO_FATAL_FAILURE(
        expect_agreement(equal_tz, {{0x1200, 0}, {0x1200, 1}, {0x0012, 1}}, {0x1200, 0}, 0, guard::behind));
}

// Beside a fixed column of 8 bits there is no tz to be read, in its column or in the constant.
TEST(NumberScan, EightBitsHaveNoTz) {
    std::mt19937_64 rng(3202);
    for (unsigned operation = TAVO_OP_EQ; operation <= TAVO_OP_GE_LE; operation++) {
        const scan_member member{operation, 8, true, TAVO_CLASS_FIXED, 8};
        const auto values = member.random_values(600, rng);
        scan_column column(member, values);
        column.enc.flags |= TAVO_TZ;
        scan_result result(600);
        member(&result.res, &column.src, values[1], values[2], nullptr);
        EXPECT_EQ(result.bits(),
                  bits_where(600, [&](ub4 r) { return member.qualifies(values[r], values[1], values[2]); }))
            << member.name();
    }
}

// Only elements of every length in turn and of one length throughout reach all rows of the shuffle tables.
TEST(NumberScan, EveryControlByte) {
    for (unsigned width : {16u, 32u, 64u}) {
        const scan_member member{TAVO_OP_GE, width, true, TAVO_CLASS_DYNP, width};
        const unsigned rows = 8 / member.control_bits();
        std::vector<scan_value> values;
        std::mt19937_64 rng(3203);
        for (unsigned control = 0; control < 256; control++)
            for (unsigned row = 0; row < rows; row++) {
                const unsigned field = (control >> member.control_bits() * (rows - 1 - row)) % (width / 8);
                const unsigned cut = width - 8 * (field + 1);
                values.push_back({(rng() & largest_code(width)) >> cut << cut, static_cast<int>(field)});
            }
        for (std::size_t r = 0; r < values.size(); r += 37)
            ASSERT_NO_FATAL_FAILURE(expect_agreement(member, values, values[r], 0, guard::behind));
    }
}

} // namespace
} // namespace tavo::test
