// The end of a scan: selections, the count, the status, and run-length columns.
#include <cstring>

#include "tests/frame/coded_column.h"

namespace {

using namespace tavo::test;

std::vector<ub8> ramp(std::size_t rows) {
    std::vector<ub8> codes(rows);
    for (std::size_t r = 0; r < rows; r++)
        codes[r] = r % 100;
    return codes;
}

TEST(ScanFinish, NothingSelectedIsAStatusOfItsOwn) {
    coded_column column(ramp(700));
    column.res.count = 9;
    EXPECT_EQ(column.eq(100, nullptr), TAVO_NONE_SELECTED);
    EXPECT_EQ(column.res.count, 0u);
    std::vector<ub8> none(11, 0);
    tavo_env env{};
    env.sel_bits = none.data();
    EXPECT_EQ(column.eq(7, &env), TAVO_NONE_SELECTED);
    EXPECT_EQ(column.bits, none);

    coded_column empty(ramp(0));
    EXPECT_EQ(empty.ge_le(0, 4095, nullptr), TAVO_NONE_SELECTED);
    EXPECT_EQ(empty.res.count, 0u);
}

// What rle_expand was called with.
struct {
    int calls;
    tavo_host *host;
    tavo_vec *res, *src;
    tavo_env env;
    ub4 count_so_far;
    ub4 answer;
} expansion;

ub4 record_expansion(tavo_host *host, tavo_vec *res, tavo_vec *src, tavo_env *env) {
    expansion = {expansion.calls + 1, host, res, src, *env, res->count, expansion.answer};
    return expansion.answer;
}

TEST(ScanFinish, RunLengthColumnsAreScannedByRunAndWidenedByTheHost) {
    host_stub host;
    coded_column column(ramp(130)); // 130 runs ...
    std::vector<ub8> runs(3, ~0ull);
    column.enc.flags |= TAVO_RLE;
    column.enc.run_count = 130;
    column.enc.run_bits = runs.data();
    column.enc.rle_expand = record_expansion;
    column.src.size = column.res.size = 100000; // ... of many more rows, which the scan itself leaves alone
    const std::vector<ub8> untouched = column.bits;
    auto selected_runs = column.rows_where([](std::size_t r) { return r != 8; });
    // The caller's record is full of noise, none of which may reach the expansion; what a scan acts on is set.
    tavo_env env;
    std::memset(&env, 0x5a, sizeof env);
    env.host = host.record();
    env.sel_bits = selected_runs.data();
    env.flags = 0x5a & ~TAVO_ENV_SPARSE;
    env.result_flags = 0;
    expansion = {};
    expansion.answer = 77;
    EXPECT_EQ(column.ge_le(7, 9, &env), 77u);
    EXPECT_EQ(runs,
              column.rows_where([&](std::size_t r) { return column.codes[r] >= 7 && column.codes[r] <= 9 && r != 8; }));
    EXPECT_EQ(column.bits, untouched);
    EXPECT_EQ(env.result_flags, TAVO_RESULT_SCAN_SELECTED);
    ASSERT_EQ(expansion.calls, 1);
    EXPECT_EQ(expansion.host, host.record());
    EXPECT_EQ(expansion.res, &column.res);
    EXPECT_EQ(expansion.src, &column.src);
    EXPECT_EQ(expansion.count_so_far, 5u); // runs, until the host has widened them

    // A record of its own: the run bit vector and its population, all else zero.
    tavo_env expected{};
    expected.sel_bits = runs.data();
    expected.sel_count = 5;
#define SAME(field) EXPECT_EQ(expansion.env.field, expected.field)
    SAME(host);
    SAME(sel_bits);
    SAME(flags);
    SAME(flags2);
    SAME(sel_count);
    SAME(full_partition);
    SAME(resume_row);
    SAME(run_index);
    SAME(run_end);
    SAME(parsed_rows);
    SAME(resume_offset);
    SAME(ones_vec);
    SAME(ones_vec_size);
    SAME(start_row);
    SAME(valid_rows);
    SAME(result_flags);
    SAME(result_flags2);
    SAME(symbol_refs);
    SAME(xlate_ctx);
    SAME(xlate_out);
    SAME(aux);
#undef SAME

    // Without any run the host is asked all the same: the rows are its to clear.
    EXPECT_EQ(column.eq(100, &env), 77u);
    EXPECT_EQ(expansion.calls, 2);
    EXPECT_EQ(expansion.env.sel_count, 0u);
}

} // namespace
