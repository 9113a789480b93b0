// What surrounds the compare: selections, the sparse walk, run-length columns.
#include <gtest/gtest.h>

#include "tests/kit/host_stub.h"
#include "tests/scan/scan_case.h"

namespace tavo::test {
namespace {

std::vector<ub8> random_bits(ub4 rows, double density, std::mt19937_64 &rng) {
    std::bernoulli_distribution set(density);
    return bits_where(rows, [&](ub4) { return set(rng); });
}
bool is_set(const std::vector<ub8> &bits, ub4 r) { return bits[r / 64] >> r % 64 & 1; }

TEST(ScanPaths, SparseAndDenseAgreeUnderEverySelection) {
    std::mt19937_64 rng(3121);
    for (const scan_member &member : all_scan_members())
        for (double density : {0.0, 0.004, 0.3, 1.0}) {
            const ub4 rows = 900 + static_cast<ub4>(rng() % 300);
            const auto codes = random_codes(rows, member.width, rng);
            auto selection = random_bits(rows, density, rng);
            const guarded guarded_selection({reinterpret_cast<const ub1 *>(selection.data()), selection.size() * 8});
            auto source_selection = random_bits(rows, 0.7, rng);
            const ub8 lo = codes[rng() % rows] / 2, hi = lo + largest_code(member.width) / 2;
            for (bool with_source_selection : {false, true})
                for (ub1 flags : {ub1{0}, ub1{TAVO_ENV_SPARSE}}) {
                    scan_column column(codes, member.width);
                    column.src.sel = with_source_selection ? source_selection.data() : nullptr;
                    scan_result result(rows);
                    tavo_env env{};
                    env.sel_bits = guarded_selection.as<ub8>();
                    env.flags = flags;
                    env.result_flags = 64;
                    const ub4 status = member(&result.res, &column.src, lo, hi, &env);
                    const auto expected = bits_where(rows, [&](ub4 r) {
                        // 1-bit answers come from their own table, for which these constants are plain ones.
                        return member.qualifies(codes[r], lo, hi) && is_set(selection, r) &&
                               (!with_source_selection || is_set(source_selection, r));
                    });
                    ASSERT_EQ(result.bits(), expected) << member.name() << " flags " << int{flags};
                    ASSERT_EQ(result.res.count, population(expected)) << member.name();
                    ASSERT_EQ(status, population(expected) == 0 ? TAVO_NONE_SELECTED : TAVO_DONE) << member.name();
                    ASSERT_EQ(env.result_flags, 64 | TAVO_RESULT_SCAN_SELECTED) << member.name();
                }
        }
}

// The sparse walk takes its row count from the source and touches no memory but the selected rows'.
TEST(ScanPaths, SparseWalkTouchesSelectedRowsOnly) {
    const scan_member member{TAVO_OP_NE, 12, false};
    guarded near(6);                           // rows 0 to 3, all that is readable
    std::memset(near.data(), 0x5a, near.size());
    scan_column column({}, 12);
    column.src.data = near.data();
    column.src.size = 1 << 20;
    scan_result result(1 << 20);
    std::vector<ub8> selection((1 << 20) / 64, 0);
    selection[0] = 0b0011;
    tavo_env env{};
    env.sel_bits = selection.data();
    env.flags = TAVO_ENV_SPARSE;
    result.res.size = 0; // not looked at
    EXPECT_EQ(member(&result.res, &column.src, 0x5a5, 0, &env), TAVO_DONE);
    EXPECT_EQ(result.res.count, 1u); // row 0 is 0x5a5, row 1 is 0xa5a
    EXPECT_EQ(result.res.bits[0], 0b0010u);
}

struct expansion {
    tavo_host *host;
    tavo_vec *res, *src;
    tavo_env env;
    ub4 count;
    std::vector<ub8> bits;
};
std::optional<expansion> seen;

ub4 record_expansion(tavo_host *host, tavo_vec *res, tavo_vec *src, tavo_env *env) {
    const ub4 words = (src->enc->run_count + 63) / 64;
    seen = {host, res, src, *env, res->count, {env->sel_bits, env->sel_bits + words}};
    return 77;
}

// A scan of a run-length column works on runs, applies run-level selections, and leaves the rest to rle_expand.
TEST(ScanPaths, RunLengthColumn) {
    std::mt19937_64 rng(3122);
    for (unsigned width : code_widths()) {
        const scan_member member{TAVO_OP_GE, width, true};
        constexpr ub4 runs = 700, rows = 5000;
        const auto codes = random_codes(runs, width, rng);
        auto source_selection = random_bits(runs, 0.8, rng), selection = random_bits(runs, 0.6, rng);
        const ub8 c = width == 1 ? 0 : codes[3];
        scan_column column(codes, width);
        guarded run_bits((runs + 63) / 64 * 8);
        column.enc.flags |= TAVO_RLE;
        column.enc.run_count = runs;
        column.enc.run_bits = run_bits.as<ub8>();
        column.enc.rle_expand = record_expansion;
        column.src.size = rows;
        column.src.sel = source_selection.data();
        tavo_vec res{};
        res.size = rows;
        host_stub host;
        tavo_env env{};
        env.host = host.record();
        env.sel_bits = selection.data();
        seen.reset();
        EXPECT_EQ(member(&res, &column.src, c, 0, &env), 77u) << member.name();
        const auto expected = bits_where(runs, [&](ub4 r) {
            return member.qualifies(codes[r], c, 0) && is_set(source_selection, r) && is_set(selection, r);
        });
        ASSERT_TRUE(seen.has_value()) << member.name();
        EXPECT_EQ(seen->bits, expected) << member.name();
        EXPECT_EQ(seen->host, host.record());
        EXPECT_EQ(seen->res, &res);
        EXPECT_EQ(seen->src, &column.src);
        EXPECT_EQ(seen->env.sel_bits, run_bits.as<ub8>());
        EXPECT_EQ(seen->env.sel_count, population(expected));
        EXPECT_EQ(seen->count, population(expected));
        EXPECT_EQ(seen->env.host, nullptr);
        EXPECT_EQ(env.result_flags, TAVO_RESULT_SCAN_SELECTED);
    }
}

} // namespace
} // namespace tavo::test
