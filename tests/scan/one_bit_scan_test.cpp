// 1-bit scans answer from a table; constants above 1 are taken as the table has them.
#include <gtest/gtest.h>

#include "tests/scan/scan_case.h"

namespace tavo::test {
namespace {

// Rows of code 0 and of code 1 in the answer: "01" selects both, "--" none.
struct answer {
    unsigned operation;
    bool nullable;
    ub4 lo, hi;
    const char *rows;
};

const answer answers[] = {
    {TAVO_OP_EQ, false, 0, 0, "0-"},    {TAVO_OP_EQ, false, 1, 0, "-1"},    {TAVO_OP_EQ, false, 2, 0, "-1"},
    {TAVO_OP_EQ, true, 0, 0, "--"},     {TAVO_OP_EQ, true, 5, 0, "-1"},     {TAVO_OP_NE, false, 0, 0, "-1"},
    {TAVO_OP_NE, false, 1, 0, "0-"},    {TAVO_OP_NE, false, 2, 0, "-1"},    {TAVO_OP_NE, true, 0, 0, "-1"},
    {TAVO_OP_NE, true, 1, 0, "--"},     {TAVO_OP_NE, true, 2, 0, "--"},     {TAVO_OP_LT, false, 0, 0, "--"},
    {TAVO_OP_LT, false, 1, 0, "0-"},    {TAVO_OP_LT, false, 2, 0, "0-"},    {TAVO_OP_LT, true, 1, 0, "--"},
    {TAVO_OP_GT, false, 0, 0, "-1"},    {TAVO_OP_GT, false, 1, 0, "--"},    {TAVO_OP_GT, true, 0, 0, "-1"},
    {TAVO_OP_GT, true, 7, 0, "--"},     {TAVO_OP_LE, false, 0, 0, "0-"},    {TAVO_OP_LE, false, 1, 0, "01"},
    {TAVO_OP_LE, false, 9, 0, "01"},    {TAVO_OP_LE, true, 0, 0, "--"},     {TAVO_OP_LE, true, 3, 0, "-1"},
    {TAVO_OP_GE, false, 0, 0, "01"},    {TAVO_OP_GE, false, 1, 0, "-1"},    {TAVO_OP_GE, false, 2, 0, "-1"},
    {TAVO_OP_GE, true, 0, 0, "-1"},     {TAVO_OP_GE, true, 2, 0, "-1"},     {TAVO_OP_GT_LT, false, 0, 2, "--"},
    {TAVO_OP_GT_LT, true, 0, 2, "--"},  {TAVO_OP_GT_LE, false, 0, 1, "-1"}, {TAVO_OP_GT_LE, false, 0, 2, "--"},
    {TAVO_OP_GT_LE, true, 0, 1, "-1"},  {TAVO_OP_GT_LE, true, 1, 1, "--"},  {TAVO_OP_GE_LT, false, 0, 1, "0-"},
    {TAVO_OP_GE_LT, false, 0, 2, "--"}, {TAVO_OP_GE_LT, true, 0, 1, "--"},  {TAVO_OP_GE_LE, false, 0, 0, "0-"},
    {TAVO_OP_GE_LE, false, 0, 1, "01"}, {TAVO_OP_GE_LE, false, 1, 1, "-1"}, {TAVO_OP_GE_LE, false, 0, 2, "--"},
    {TAVO_OP_GE_LE, false, 1, 0, "--"}, {TAVO_OP_GE_LE, false, 2, 1, "--"}, {TAVO_OP_GE_LE, true, 0, 1, "-1"},
    {TAVO_OP_GE_LE, true, 1, 1, "-1"},  {TAVO_OP_GE_LE, true, 0, 0, "--"},  {TAVO_OP_GE_LE, true, 2, 1, "--"},
};

TEST(OneBitScan, TableOfAnswers) {
    std::mt19937_64 rng(3111);
    for (const answer &a : answers) {
        const scan_member member{a.operation, 1, a.nullable};
        for (ub4 rows : {0u, 1u, 7u, 63u, 64u, 65u, 511u, 512u, 513u, 4097u, 70000u, 131072u, 131073u}) {
            const auto codes = random_codes(rows, 1, rng);
            scan_column column(codes, 1);
            scan_result result(rows);
            const ub4 status = member(&result.res, &column.src, a.lo, a.hi, nullptr);
            const auto expected = bits_where(rows, [&](ub4 r) { return a.rows[codes[r]] != '-'; });
            ASSERT_EQ(result.bits(), expected) << member.name() << " " << a.lo << ", " << a.hi << " rows " << rows;
            ASSERT_EQ(result.res.count, population(expected)) << member.name();
            ASSERT_EQ(status, result.res.count == 0 ? TAVO_NONE_SELECTED : TAVO_DONE) << member.name();
        }
    }
}

TEST(OneBitScan, OpenRangeReadsNoConstant) {
    scan_column column({1, 0, 1}, 1);
    tavo_vec constant{};
    for (bool nullable : {false, true}) {
        scan_result result(3);
        const unsigned index = scan_member{TAVO_OP_GT_LT, 1, nullable}.index();
        EXPECT_EQ(tavo_global_specialized_ctx.dispatch_table[index].range_scan(&result.res, &column.src, &constant,
                                                                               &constant, nullptr),
                  TAVO_NONE_SELECTED);
        EXPECT_EQ(result.bits(), std::vector<ub8>{0});
    }
}

// The sparse walk does not exist at this width: the selection is applied to the answer.
TEST(OneBitScan, SelectionAppliedAfterwards) {
    scan_column column({1, 0, 1, 1}, 1);
    scan_result result(4);
    ub8 selection = 0b0110;
    tavo_env env{};
    env.sel_bits = &selection;
    env.flags = TAVO_ENV_SPARSE;
    const scan_member all{TAVO_OP_LE, 1, false};
    EXPECT_EQ(all(&result.res, &column.src, 1, 0, &env), TAVO_DONE);
    EXPECT_EQ(result.bits(), std::vector<ub8>{0b0110});
    EXPECT_EQ(result.res.count, 2u);
    EXPECT_EQ(env.result_flags, TAVO_RESULT_SCAN_SELECTED);
}

} // namespace
} // namespace tavo::test
