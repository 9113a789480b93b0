// What surrounds the compare: selections, the sparse walk, run-length columns.
#include <gtest/gtest.h>
#include <sys/mman.h>

#include <algorithm>

#include "tests/kit/host_stub.h"
#include "tests/scan/scan_case.h"

namespace tavo::test {
namespace {

// With noise above the row count, which no result may show.
std::vector<ub8> random_bits(ub4 rows, double density, std::mt19937_64 &rng) {
    std::bernoulli_distribution set(density);
    auto bits = bits_where(rows, [&](ub4) { return set(rng); });
    if (rows % 64 != 0)
        bits.back() |= ~0ull << rows % 64;
    return bits;
}
bool is_set(const std::vector<ub8> &bits, ub4 r) { return bits[r / 64] >> r % 64 & 1; }

TEST(ScanPaths, SparseAndDenseAgreeUnderEverySelection) {
    std::mt19937_64 rng(3121);
    for (const scan_member &member : all_scan_members())
        for (double density : {0.0, 0.004, 0.3, 1.0}) {
            const ub4 row_counts[] = {1, 63, 64, 65, 900 + static_cast<ub4>(rng() % 300)};
            const ub4 rows = row_counts[density == 0 ? 4 : rng() % 5];
            const auto values = member.random_values(rows, rng);
            auto selection = random_bits(rows, density, rng);
            const guarded guarded_selection({reinterpret_cast<const ub1 *>(selection.data()), selection.size() * 8});
            auto source_selection = random_bits(rows, 0.7, rng);
            const auto ends = std::minmax(values[rng() % rows], values[rng() % rows]);
            const scan_value lo = ends.first, hi = ends.second; // names that a lambda may capture
            for (bool with_source_selection : {false, true})
                for (ub1 flags : {ub1{0}, ub1{TAVO_ENV_SPARSE}}) {
                    scan_column column(member, values);
                    column.src.sel = with_source_selection ? source_selection.data() : nullptr;
                    scan_result result(rows);
                    tavo_env env{};
                    env.sel_bits = guarded_selection.as<ub8>();
                    env.flags = flags;
                    env.result_flags = 64;
                    const ub4 status = member(&result.res, &column.src, lo, hi, &env);
                    const auto expected = bits_where(rows, [&](ub4 r) {
                        // 1-bit answers come from their own table, for which these constants are plain ones.
                        return member.qualifies(values[r], lo, hi) && is_set(selection, r) &&
                               (!with_source_selection || is_set(source_selection, r));
                    });
                    ASSERT_EQ(result.bits(), expected) << member.name() << " flags " << int{flags};
                    ASSERT_EQ(result.res.count, population(expected)) << member.name();
                    ASSERT_EQ(status, population(expected) == 0 ? TAVO_NONE_SELECTED : TAVO_DONE) << member.name();
                    ASSERT_EQ(env.result_flags, 64 | member.selected_flag()) << member.name();
                }
        }
}

// The sparse walk takes its row count from the source, for the source's own selection too, and touches no memory but
// the selected rows'.
TEST(ScanPaths, SparseWalkTouchesSelectedRowsOnly) {
    std::mt19937_64 rng(3124);
    for (const scan_member &member : {scan_member{TAVO_OP_NE, 12, false},
                                      {TAVO_OP_NE, 64, true, TAVO_CLASS_FIXED, 48},
                                      {TAVO_OP_NE, 32, true, TAVO_CLASS_DYNP, 32}}) {
        const auto values = member.random_values(700, rng); // all that is readable of a column of so many rows:
        scan_column column(member, values);
        column.src.size = 1 << 20;
        scan_result result(1 << 20);
        std::vector<ub8> selection((1 << 20) / 64, 0);
        const auto near = bits_where(700, [&](ub4 r) { return r % 131 == 5 || r == 699; });
        std::copy(near.begin(), near.end(), selection.begin());
        tavo_env env{};
        env.sel_bits = selection.data();
        env.flags = TAVO_ENV_SPARSE;
        result.res.size = 0; // not looked at
        auto even_rows = bits_where(1 << 20, [](ub4 r) { return r % 2 == 0; });
        column.src.sel = even_rows.data();
        member(&result.res, &column.src, values[5], 0, &env);
        const auto expected = bits_where(
            1 << 20, [&](ub4 r) { return r < 700 && r % 2 == 0 && is_set(near, r) && !(values[r] == values[5]); });
        EXPECT_EQ(result.bits(), expected) << member.name();
        EXPECT_EQ(result.res.count, population(expected)) << member.name();
    }
}

struct expansion {
    ub4 runs_selected;
    std::vector<ub8> bits;
};
std::optional<expansion> seen;

ub4 record_expansion(tavo_host *, tavo_vec *, tavo_vec *src, tavo_env *env) {
    const ub4 words = (src->enc->run_count + 63) / 64;
    seen = {static_cast<ub4>(env->sel_count), {env->sel_bits, env->sel_bits + words}};
    return 77;
}

// A scan of a run-length column works on runs, applies run-level selections, and leaves the rest to rle_expand.
TEST(ScanPaths, RunLengthColumn) {
    std::mt19937_64 rng(3122);
    // Of one bit also the answers that copy nothing: all rows, none, the others.
    struct run_case {
        scan_member member;
        std::optional<ub4> constant;
    };
    std::vector<run_case> cases = {
        {{TAVO_OP_LE, 1, false}, 1}, {{TAVO_OP_LT, 1, false}, 0}, {{TAVO_OP_NE, 1, false}, 1}};
    for (const scan_member &member : all_scan_members())
        if (member.is_set() || (member.operation == TAVO_OP_GE && member.second))
            cases.push_back({member, std::nullopt});
    for (const auto &[member, constant] : cases)
        for (const bool selecting : {true, false}) {
            constexpr ub4 runs = 700, rows = 5000;
            const auto values = member.random_values(runs, rng);
            auto source_selection = random_bits(runs, 0.8, rng), selection = random_bits(runs, 0.6, rng);
            const scan_value c = constant ? scan_value(*constant) : member.width == 1 ? 0 : values[3];
            scan_column column(member, values);
            guarded run_bits((runs + 63) / 64 * 8);
            column.enc.flags |= TAVO_RLE;
            column.enc.run_count = runs;
            column.enc.run_bits = run_bits.as<ub8>();
            column.enc.rle_expand = record_expansion;
            column.src.size = rows;
            column.src.sel = selecting ? source_selection.data() : nullptr;
            tavo_vec res{};
            res.size = rows;
            host_stub host;
            tavo_env env{};
            env.host = host.record();
            env.sel_bits = selecting ? selection.data() : nullptr;
            seen.reset();
            EXPECT_EQ(member(&res, &column.src, c, 0, &env), 77u) << member.name();
            const scan_member &of = member; // a name that a lambda may capture
            const auto expected = bits_where(runs, [&](ub4 r) {
                return of.qualifies(values[r], c, 0) &&
                       (!selecting || (is_set(source_selection, r) && is_set(selection, r)));
            });
            ASSERT_TRUE(seen.has_value()) << member.name();
            EXPECT_EQ(seen->bits, expected) << member.name();
            EXPECT_EQ(seen->runs_selected, population(expected));
            EXPECT_EQ(env.result_flags, selecting ? member.selected_flag() : 0);
        }
}

// The dense scan takes its row count from the result; the walk is asked for by one bit of the flags, and needs a
// selection.
TEST(ScanPaths, RowCountAndChoiceOfPath) {
    std::mt19937_64 rng(3123);
    const scan_member member{TAVO_OP_LE, 10, false};
    const auto codes = random_codes(300, 10, rng);
    const auto expected = bits_where(200, [&](ub4 r) { return member.qualifies(codes[r], 500, 0); });
    auto everything = bits_where(300, [](ub4) { return true; });
    for (ub1 flags : {ub1{0}, ub1{TAVO_ENV_SPARSE}, ub1{TAVO_ENV_SPARSE | TAVO_ENV_WIDE}})
        for (bool with_selection : {false, true}) {
            const bool sparse = with_selection && flags != 0;
            scan_column column(codes, 10);
            column.src.size = sparse ? 200 : 300;
            scan_result result(200);
            result.res.size = sparse ? 300 : 200; // the other record's count is not looked at
            tavo_env env{};
            env.flags = flags;
            env.sel_bits = with_selection ? everything.data() : nullptr;
            EXPECT_EQ(member(&result.res, &column.src, 500, 0, &env), TAVO_DONE);
            EXPECT_EQ(result.bits(), expected) << "flags " << int{flags} << " selection " << with_selection;
            EXPECT_EQ(env.result_flags, with_selection ? TAVO_RESULT_SCAN_SELECTED : 0);
        }
}

// The walk ignores the runs of a run-length column: no run bit vector, no expansion.
TEST(ScanPaths, SparseWalkIgnoresRuns) {
    const scan_member member{TAVO_OP_EQ, 6, false};
    scan_column column({9, 9, 3}, 6);
    column.enc.flags |= TAVO_RLE;
    column.enc.run_count = 1;
    scan_result result(3);
    ub8 selection = 0b111;
    tavo_env env{};
    env.sel_bits = &selection;
    env.flags = TAVO_ENV_SPARSE;
    EXPECT_EQ(member(&result.res, &column.src, 9, 0, &env), TAVO_DONE);
    EXPECT_EQ(result.bits(), std::vector<ub8>{0b011});
    EXPECT_EQ(result.res.count, 2u);
}

// Far down a long column the bit position of a row needs more than 32 bits. Pages that nothing is written to are zeros
// and cost nothing.
TEST(ScanPaths, RowsBeyondFourBillionBits) {
    for (const unsigned width : {2u, 7u, 12u, 16u, 20u, 24u, 32u, 64u}) {
        if (every_lane_costs && width < 24)
            continue;
        const ub8 row = (1ull << 32) / width + 5, rows = row / 64 * 64 + 64;
        const std::size_t bytes = static_cast<std::size_t>(rows * width / 8 + 8), words = rows / 64;
        const auto zeros = [](std::size_t size) {
            return mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
        };
        void *column = zeros(bytes), *bits = zeros(words * 8), *selection = zeros(words * 8);
        ASSERT_TRUE(column != MAP_FAILED && bits != MAP_FAILED && selection != MAP_FAILED);
        for (unsigned bit = 0; bit < width; bit++) { // the largest code
            const ub8 at = row * width + bit;
            static_cast<ub1 *>(column)[at / 8] |= static_cast<ub1>(0x80 >> at % 8);
        }
        tavo_enc_ctx enc{};
        tavo_vec src{}, res{};
        src.enc = &enc;
        src.data = column;
        src.size = res.size = static_cast<ub4>(rows);
        res.bits = static_cast<ub8 *>(bits);
        static_cast<ub8 *>(selection)[row / 64] = 3ull << row % 64; // and the row behind it, a zero
        tavo_env env{};
        env.sel_bits = static_cast<ub8 *>(selection);
        env.flags = TAVO_ENV_SPARSE;
        const scan_member member{TAVO_OP_EQ, width, false};
        EXPECT_EQ(member(&res, &src, largest_code(width), 0, &env), TAVO_DONE) << member.name();
        EXPECT_EQ(res.count, 1u) << member.name();
        EXPECT_EQ(res.bits[row / 64], 1ull << row % 64) << member.name();
        munmap(column, bytes);
        munmap(bits, words * 8);
        munmap(selection, words * 8);
    }
}

// Every path of a scan starts with the prologue, the constant answers of 1-bit columns included.
TEST(ScanPaths, PrologueOnEveryPath) {
    struct {
        scan_member member;
        ub1 flags;
    } const cases[] = {{{TAVO_OP_LT, 9, true}, 0},
                       {{TAVO_OP_GE_LT, 20, true}, TAVO_ENV_SPARSE},
                       {{TAVO_OP_LE, 1, false}, 0},
                       {{TAVO_OP_GT_LT, 1, true}, TAVO_ENV_SPARSE},
                       {{TAVO_OP_NE, 1, true}, 0},
                       {{TAVO_OP_EQ, 16, true, TAVO_CLASS_FIXED, 16}, 0},
                       {{TAVO_OP_GT, 64, false, TAVO_CLASS_FIXED, 64}, TAVO_ENV_SPARSE},
                       {{TAVO_OP_GE_LE, 32, true, TAVO_CLASS_FIXED, 32}, TAVO_ENV_SPARSE},
                       {{TAVO_OP_GT_LE, 32, true, TAVO_CLASS_DYNP, 32}, 0},
                       {{TAVO_OP_LE, 64, false, TAVO_CLASS_DYNP, 64}, TAVO_ENV_SPARSE},
                       {{TAVO_OP_SET, 1, false}, 0},
                       {{TAVO_OP_SET, 7, false}, 0},
                       {{TAVO_OP_SET, 14, false}, TAVO_ENV_SPARSE}};
    for (const auto &[member, flags] : cases) {
        const std::vector<scan_value> values(40, {1, static_cast<int>(member.width) / 8 - 1});
        scan_column column(member, values);
        // The decoder of this test copies: the "stream" is the packed column itself.
        host_stub host;
        host.record()->spak_decode = [](tavo_spak_ctx *, const ub1 *from, ub1 *to, ub4 *length, ub4 capacity) noexcept {
            std::memcpy(to, from, *length = capacity);
            return ub4{TAVO_DONE};
        };
        void *slot = nullptr;
        column.enc.flags |= TAVO_SPAK;
        column.src.decomp_slot = &slot;
        column.src.decomp_size = static_cast<ub4>(column.data.size());
        ub8 selection = (1ull << 40) - 1;
        tavo_env env{};
        env.host = host.record();
        env.sel_bits = &selection;
        env.flags = flags;
        scan_result result(40);
        member(&result.res, &column.src, 0, 1, &env);
        ASSERT_EQ(host.allocations.size(), 1u) << member.name();
        EXPECT_EQ(host.allocations[0].label, member.name() + ": vec1_decomp");
        EXPECT_EQ(slot, host.allocations[0].block());
    }
}

} // namespace
} // namespace tavo::test
