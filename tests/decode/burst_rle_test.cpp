// Burst: run bits to row bits by every plan, in memory that holds the vectors' words and no byte more.
#include <gtest/gtest.h>

#include <algorithm>
#include <bit>
#include <numeric>
#include <random>
#include <string>

#include "frame/dispatch_table.h"
#include "frame/tavo.h"
#include "frame/tavo_status.h"
#include "tests/kit/codes.h"
#include "tests/kit/guarded.h"

namespace tavo::test {
namespace {

struct member {
    unsigned code, entry_bytes; // width code of its slot, bytes of a run table entry
    bool cla;

    unsigned index() const { return dispatch_index(TAVO_OP_BURST_RLE, TAVO_CLASS_OTHER, code, 0); }
    ub4 longest() const { return entry_bytes == 1 && !cla ? 255 : 65535; }
    ub4 operator()(tavo_vec *res, tavo_vec *src, tavo_env *env) const {
        return tavo_global_specialized_ctx.dispatch_table[index()].row_move(res, src, env);
    }
};
constexpr member members[] = {{6, 1, false}, {7, 1, true}, {14, 2, false}, {15, 2, true}};

// A run-length column of these runs, of which some are selected.
struct burst_case {
    std::vector<ub4> lengths;
    std::vector<bool> selected;
    ub4 uncovered = 0;            // rows of the result behind the last run
    ub4 before = 0;               // rows of the result before the first run (cumulative arrays only)
    std::size_t table_runs = ~0u; // the run table ends behind so many of the runs

    ub4 runs() const { return static_cast<ub4>(lengths.size()); }
    ub4 rows() const { return std::accumulate(lengths.begin(), lengths.end(), before) + uncovered; }
    ub4 runs_selected() const { return static_cast<ub4>(std::count(selected.begin(), selected.end(), true)); }

    std::vector<ub8> row_bits(bool uncovered_set) const {
        std::vector<ub8> words((rows() + 63) / 64, 0);
        ub4 row = 0;
        auto put = [&](ub4 n, bool set) {
            for (; n > 0; n--, row++)
                words[row / 64] |= static_cast<ub8>(set) << row % 64;
        };
        put(before, uncovered_set);
        for (ub4 i = 0; i < runs(); i++)
            put(lengths[i], selected[i]);
        put(uncovered, uncovered_set);
        return words;
    }
};

void run_and_compare(const member &m, const burst_case &c, bool uncovered_set = false) {
    SCOPED_TRACE(std::string(tavo_dispatch_func_names.name[m.index()]) + ", " + std::to_string(c.runs()) + " runs, " +
                 std::to_string(c.runs_selected()) + " selected, " + std::to_string(c.rows()) + " rows");
    std::vector<ub1> table, cumulative;
    auto put = [](std::vector<ub1> &out, ub4 value, unsigned bytes) {
        while (bytes-- > 0)
            out.push_back(static_cast<ub1>(value >> 8 * bytes));
    };
    ub4 row = c.before;
    put(cumulative, row, 4);
    for (ub4 length : c.lengths) {
        put(table, length, m.entry_bytes);
        put(cumulative, row += length, 4);
    }
    table.resize(std::min(table.size(), c.table_runs * m.entry_bytes));
    const std::vector<ub8> want = c.row_bits(uncovered_set);
    for (guard side : {guard::behind, guard::before}) {
        const guarded run_table(table, side), run_cla(cumulative, side);
        const guarded run_bits((c.runs() + 63) / 64 * 8, side, 0), row_bits(want.size() * 8, side);
        for (ub4 i = 0; i < c.runs(); i++)
            run_bits.as<ub8>()[i / 64] |= static_cast<ub8>(c.selected[i]) << i % 64;
        tavo_enc_ctx enc{};
        tavo_vec src{}, res{};
        tavo_env env{};
        enc.flags = TAVO_RLE;
        enc.run_count = c.runs();
        enc.run_table = m.cla ? nullptr : run_table.data();
        enc.run_cla = m.cla ? run_cla.as<ub4>() : nullptr;
        src.enc = &enc;
        res.bits = row_bits.as<ub8>();
        res.size = c.rows();
        res.count = 0xdeadbeef;
        env.sel_bits = run_bits.as<ub8>();
        env.sel_count = c.runs_selected();
        const ub4 status = m(&res, &src, &env);
        ub4 count = 0;
        for (ub8 word : want)
            count += static_cast<ub4>(std::popcount(word));
        ASSERT_EQ(std::vector<ub8>(row_bits.as<ub8>(), row_bits.as<ub8>() + want.size()), want);
        ASSERT_EQ(res.count, count);
        ASSERT_EQ(status, count == 0 ? TAVO_NONE_SELECTED : TAVO_DONE);
    }
}

burst_case random_case(ub4 runs, ub4 longest, unsigned percent, std::mt19937_64 &rng) {
    burst_case c;
    for (ub4 i = 0; i < runs; i++) {
        // Empty runs, runs around the ends of a 64-bit word, and any.
        const ub4 favoured[] = {0, 1, 55, 56, 57, 63, 64, 65, 112, 113, longest};
        c.lengths.push_back(rng() % 3 != 0 ? static_cast<ub4>(rng() % std::min(longest, 20u))
                                           : std::min(longest, favoured[rng() % std::size(favoured)]));
        c.selected.push_back(rng() % 100 < percent);
    }
    return c;
}

TEST(BurstRle, EveryPlanAtEveryRunCount) {
    std::mt19937_64 rng(61);
    for (const member &m : members)
        for (ub4 runs : {0u, 1u, 2u, 15u, 16u, 17u, 49u, 50u, 51u, 63u, 64u, 65u, 127u, 128u, 129u, 200u, 1000u, 3001u})
            for (unsigned percent : {0u, 1u, 10u, 50u, 90u, 99u, 100u})
                run_and_compare(m, random_case(runs, std::min(m.longest(), 300u), percent, rng));
}

TEST(BurstRle, SixtyFourRunsOfMoreRowsThanSixteenBitsCount) {
    std::mt19937_64 rng(62);
    for (const member &m : members)
        for (unsigned percent : {1u, 30u, 70u, 99u})
            for (ub4 longest : {2000u, 65535u}) {
                burst_case c = random_case(140, 1, percent, rng);
                for (ub4 &length : c.lengths)
                    length = std::min(longest, m.longest()) - static_cast<ub4>(rng() % 100);
                run_and_compare(m, c);
            }
}

// Rows that no run covers show what the plan started from: zeros up to half of the runs, ones beyond.
TEST(BurstRle, PlansStartFromTheRarerBit) {
    for (const member &m : members)
        for (ub4 runs : {1u, 2u, 3u, 49u, 50u, 100u, 129u})
            for (ub4 selected = 0; selected <= runs; selected++) {
                burst_case c{std::vector<ub4>(runs, 3), std::vector<bool>(runs, false), 70, m.cla ? 70u : 0};
                std::fill_n(c.selected.begin(), selected, true);
                run_and_compare(m, c, selected > runs / 2);
            }
}

// Many runs, of which the first ones are the exceptions, and a run table that ends long before the last run: enough for
// the walks from one exception to the next, not for those along the words.
burst_case exceptions_first(ub4 runs, ub4 exceptions, bool selected) {
    burst_case c{std::vector<ub4>(runs, 5), std::vector<bool>(runs, !selected)};
    for (ub4 i = 0; i < exceptions; i++)
        c.selected[i < 10 ? i : 2 * i] = selected;
    c.table_runs = 64;
    return c;
}

TEST(BurstRle, RunsBehindTheLastOfFewExceptionsAreNotRead) {
    for (const member &m : members)
        if (!m.cla)
            for (bool selected : {true, false}) {
                run_and_compare(m, exceptions_first(1000, 19, selected));
                run_and_compare(m, exceptions_first(149, selected ? 1 : 2, selected));
            }
}

// One exception more is not few: 2% of 149 runs are 2.98, cut off to 2, and 98% are 146.02, cut off to 146.
TEST(BurstRleDeathTest, EveryRunIsReadUnlessTheExceptionsAreFew) {
    for (const member &m : members)
        if (!m.cla)
            for (bool selected : {true, false}) {
                EXPECT_DEATH(run_and_compare(m, exceptions_first(1000, 20, selected)), "");
                EXPECT_DEATH(run_and_compare(m, exceptions_first(149, selected ? 2 : 3, selected)), "");
            }
}

// The caller's fault: runs of more rows than the result has. Inside the last word nothing is checked, and rows that are
// counted need not exist.
TEST(BurstRle, RunsBeyondTheResultAreCounted) {
    ub1 table_8[] = {20, 0, 0}, table_16[] = {0, 20, 0, 0, 0, 0};
    ub4 cumulative[] = {0, __builtin_bswap32(20), __builtin_bswap32(20), __builtin_bswap32(20)};
    for (const member &m : members)
        for (bool set : {true, false}) {
            SCOPED_TRACE(std::string(tavo_dispatch_func_names.name[m.index()]) + (set ? ", set" : ", clear"));
            ub8 run_bits = set ? 0b001 : 0b110, row_bits = 0;
            tavo_enc_ctx enc{};
            tavo_vec src{}, res{};
            tavo_env env{};
            enc.flags = TAVO_RLE;
            enc.run_count = 3;
            enc.run_table = m.entry_bytes == 1 ? table_8 : table_16;
            enc.run_cla = cumulative;
            src.enc = &enc;
            res.bits = &row_bits;
            res.size = 10;
            env.sel_bits = &run_bits;
            env.sel_count = set ? 1 : 2;
            EXPECT_EQ(m(&res, &src, &env), TAVO_DONE);
            EXPECT_EQ(res.count, set ? 20u : 10u - 20u);
            EXPECT_EQ(row_bits & 0x3ff, set ? 0x3ffu : 0u);
        }
}

TEST(BurstRleDeathTest, CallersBugs) {
    ub8 words[2] = {0, 0};
    ub1 table[4] = {1, 1, 1, 1};
    tavo_enc_ctx enc{};
    tavo_vec src{}, res{};
    tavo_env env{};
    enc.run_table = table;
    enc.run_count = 1;
    src.enc = &enc;
    res.bits = words;
    res.size = 1;
    env.sel_bits = words + 1;
    for (const member &m : members) {
        enc.flags = 0;
        env.sel_bits = words + 1;
        EXPECT_DEATH(m(&res, &src, &env),
                     "tavoc_avx512g.*TAVO_ENC_CTX_FLAG\\(TAVO_VEC_ENC_CTX\\(src\\), TAVO_RLE\\)' failed");
        enc.flags = TAVO_RLE;
        env.sel_bits = words;
        EXPECT_DEATH(m(&res, &src, &env), "tavoc_avx512g.*tavo_bv_res != tavo_bv_aux' failed");
    }
}

} // namespace
} // namespace tavo::test
