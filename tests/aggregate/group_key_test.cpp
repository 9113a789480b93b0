// Group keys against their plain meaning: both rules, every kind of column and selection, any capacity of keys and
// scratch, the limits of the key space.
#include <gtest/gtest.h>

#include <deque>

#include "aggregate/group_operations.h"
#include "tests/decode/column_case.h"
#include "tests/kit/spak_stream.h"

namespace tavo::test {
namespace {

const tavo_specialized_ctx &library = tavo_global_specialized_ctx;

enum class selection { all, blocks, sparse, list };

// Columns of one row count, by codes or by runs, and one selection of their rows.
struct key_case {
    key_case(ub4 rows, const std::vector<unsigned> &widths, bool with_runs, selection selected, std::mt19937_64 &rng)
        : rows(rows), selected(selected) {
        column_model chosen = plain_model(1, rows, rng);
        if (selected == selection::list)
            chosen.list = random_list(rows, rng);
        else if (selected != selection::all)
            chosen.selected = random_selection(rows, selected == selection::sparse ? 40 : 3, rng);
        chosen.has_list = selected == selection::list;
        selecting.emplace(chosen, 8);
        for (ub4 row = 0; row < rows; row++)
            if (chosen.selected.empty() || chosen.selected[row])
                asked.push_back(row);
        if (chosen.has_list)
            asked = chosen.list;
        for (unsigned width : widths) {
            column_model m = plain_model(width, rows, rng);
            if (with_runs && rng() % 2) {
                m.by_runs = true;
                for (ub4 row = 0; row < rows;) {
                    m.run_lengths.push_back(std::min(rows - row, static_cast<ub4>(rng() % 90)));
                    row += m.run_lengths.back();
                }
                m.codes = random_codes(m.run_lengths.size(), width, rng);
            }
            models.push_back(m);
            cases.emplace_back(m, rng() % 2 ? 16 : 8);
            cases.back().column.enc.symbol_count = static_cast<ub4>(1 + rng() % 5);
            cols.push_back(cases.back().column.src);
        }
        env = selecting->env;
        env.flags = selected == selection::sparse ? TAVO_ENV_SPARSE : 0;
    }

    ub4 key(ub4 row, bool multiply) const {
        ub4 key = 0;
        for (std::size_t c = 0; c < models.size(); c++) {
            const tavo_enc_ctx &enc = cases[c].column.enc;
            key = multiply ? key * enc.symbol_count : key << enc.width_bits % 32;
            key += models[c].code(row);
        }
        return key;
    }

    // One call for the rows from asked[first] on; returns how many keys came.
    ub4 call(std::size_t first, bool multiply, ub4 capacity, ub4 temp_size) {
        const guarded key_memory(capacity * 4), temp_memory(temp_size * 4);
        tavo_vec keys{}, temp{};
        keys.data = key_memory.data();
        keys.size = capacity;
        keys.count = 4711;
        temp.data = temp_memory.data();
        temp.size = temp_size;
        env.flags =
            static_cast<ub1>(multiply ? env.flags | TAVO_ENV_MULTIPLY_KEYS : env.flags & ~TAVO_ENV_MULTIPLY_KEYS);
        env.resume_row = first == 0 ? 0 : asked[first - 1] + 1;
        if (selected == selection::list) {
            env.ones_vec = selecting->list.as<ub4>() + first;
            env.ones_vec_size = static_cast<ub4>(asked.size() - first);
        }
        const tavo_env before = env;
        const ub4 released = static_cast<ub4>(selecting->host.temp_released.size());
        ub4 space = 0;
        const ub4 status = library.groupkey(&keys, &space, cols.data(), static_cast<ub4>(cols.size()), &temp, &env);
        EXPECT_EQ(std::memcmp(&before, &env, sizeof env), 0);
        const auto expected = static_cast<ub4>(std::min<std::size_t>(capacity, asked.size() - first));
        EXPECT_EQ(keys.count, expected);
        for (ub4 i = 0; i < expected; i++)
            if (key_memory.as<ub4>()[i] != key(asked[first + i], multiply)) {
                ADD_FAILURE() << "key " << i << " of " << expected << ", row " << asked[first + i];
                break;
            }
        const ub4 behind = expected == 0 ? env.resume_row : asked[first + expected - 1] + 1;
        if (expected < capacity || behind == rows) {
            EXPECT_EQ(status, TAVO_DONE);
        } else if (first + expected < asked.size() || selected == selection::all) {
            EXPECT_EQ(status, TAVO_ROWS_FULL);
        } // else there are rows that aren't selected, and it depends on how far the kernels have looked
        EXPECT_EQ(selecting->host.temp_allocations.size(), selecting->host.temp_released.size());
        EXPECT_EQ(selecting->host.temp_released.size(), released + 1u);
        const auto &scratch = selecting->host.temp_allocations.back();
        EXPECT_EQ(scratch.label, "tavo_groupkey_dydi: temp column info");
        EXPECT_EQ(scratch.size, 12 * cols.size());
        EXPECT_EQ(scratch.alignment, 4u);
        return keys.count;
    }

    ub4 rows;
    selection selected;
    std::vector<ub4> asked; // the rows, in order
    std::optional<column_case> selecting;
    std::vector<column_model> models;
    std::deque<column_case> cases;
    std::vector<tavo_vec> cols;
    tavo_env env;
};

TEST(groupkey, rules_columns_and_selections) {
    std::mt19937_64 rng(5220);
    const auto widths = decode_widths();
    for (selection selected : {selection::all, selection::blocks, selection::sparse, selection::list})
        for (bool with_runs : {false, true})
            for (bool multiply : {false, true})
                for (ub4 rows : {1u, 63u, 64u, 200u, 2000u}) {
                    std::vector<unsigned> of(1 + rng() % 4);
                    for (unsigned &width : of)
                        width = widths[rng() % widths.size()];
                    key_case c(rows, of, with_runs, selected, rng);
                    // Codes above symbol_count and widths that shift keys out: keys wrap, the space is what counts.
                    for (std::size_t i = 0; i < c.cases.size(); i++)
                        c.cases[i].column.enc.symbol_count = i == 0 || multiply ? 1 + rng() % 3 : 1;
                    if (!multiply)
                        c.cases[0].column.enc.symbol_count = 1;
                    const auto drained = [&](auto &&capacity, auto &&temp_size) {
                        for (std::size_t done = 0; done < c.asked.size();) {
                            const ub4 n = c.call(done, multiply, capacity(), temp_size());
                            ASSERT_GT(n, 0u);
                            done += n;
                        }
                    };
                    if (c.asked.empty()) {
                        EXPECT_EQ(c.call(0, multiply, 10, 10), 0u);
                        continue;
                    }
                    drained([&] { return static_cast<ub4>(c.asked.size()); }, [] { return 512; });
                    drained([] { return 5000; }, [] { return 64; });
                    drained([&] { return static_cast<ub4>(1 + rng() % 300); },
                            [&] { return static_cast<ub4>(1 + rng() % 100); });
                    if (HasFailure()) {
                        ADD_FAILURE() << "selection " << static_cast<int>(selected) << ", runs " << with_runs
                                      << ", multiply " << multiply << ", " << rows << " rows, " << of.size()
                                      << " columns from " << of[0] << " bits";
                        return;
                    }
                }
}

// Runs are remembered for 32 columns; those of more are found again each time.
TEST(groupkey, forty_columns) {
    std::mt19937_64 rng(5221);
    key_case c(700, std::vector<unsigned>(40, 3), true, selection::all, rng);
    for (auto &column : c.cases)
        column.column.enc.symbol_count = 1;
    EXPECT_EQ(c.call(0, false, 700, 50), 700u);
    EXPECT_EQ(c.call(0, true, 700, 50), 700u);
}

struct space_case {
    ub1 flags;
    std::vector<std::pair<ub4, ub4>> columns; // symbol_count, width_bits; a width of 0: no group key column
    ub4 status;
    ub4 space;
};

TEST(groupkey, key_space) {
    constexpr ub1 multiply = TAVO_ENV_MULTIPLY_KEYS;
    for (const space_case &s : {
             space_case{multiply, {}, TAVO_DONE, 1},
             space_case{0, {}, TAVO_DONE, 1},
             space_case{multiply, {{65537, 17}, {65535, 16}}, TAVO_DONE, 0xffffffff},
             space_case{multiply, {{65536, 17}, {65536, 16}}, TAVO_OUT_OF_RANGE, 0},
             space_case{multiply, {{1u << 31, 32}, {2, 1}}, TAVO_OUT_OF_RANGE, 0},
             space_case{multiply, {{0xffffffff, 32}}, TAVO_DONE, 0xffffffff},
             space_case{multiply, {{7, 3}, {0, 1}, {5, 3}}, TAVO_DONE, 0},
             space_case{0, {{0xffffffff, 32}}, TAVO_DONE, 0xffffffff},
             space_case{0, {{65536, 16}, {65535, 16}}, TAVO_DONE, 0xffffffff},
             space_case{0, {{65536, 16}, {65536, 16}}, TAVO_OUT_OF_RANGE, 0},
             space_case{0, {{1, 20}, {9, 4}}, TAVO_DONE, 9},
             space_case{0, {{1, 20}, {9, 32}}, TAVO_DONE, 9},
             space_case{0, {{3, 2}, {9, 4}, {5, 3}}, TAVO_DONE, (((2 << 4) + 8) << 3) + 5},
             space_case{multiply, {{3, 2}, {9, 0}}, TAVO_UNSUPPORTED, 0},
             space_case{multiply, {{1u << 31, 32}, {2, 0}}, TAVO_UNSUPPORTED, 0},
             space_case{multiply, {{1u << 31, 32}, {2, 1}, {2, 0}}, TAVO_OUT_OF_RANGE, 0},
         }) {
        host_stub host;
        std::deque<tavo_enc_ctx> contexts;
        std::vector<tavo_vec> cols;
        for (auto [symbols, width] : s.columns) {
            tavo_enc_ctx &enc = contexts.emplace_back();
            enc.flags = TAVO_DICT | (width != 0 ? TAVO_PACKED_KEYS : 0);
            enc.symbol_count = symbols;
            enc.width_bits = width;
            cols.push_back({});
            cols.back().enc = &enc;
        }
        tavo_env env{};
        env.host = host.record();
        env.flags = s.flags;
        tavo_vec keys{}, temp{};
        keys.count = 99;
        ub4 space = 12345;
        EXPECT_EQ(library.groupkey(&keys, &space, cols.data(), static_cast<ub4>(cols.size()), &temp, &env), s.status);
        EXPECT_EQ(space, s.status == TAVO_DONE ? s.space : 12345u);
        EXPECT_EQ(keys.count, s.status == TAVO_DONE ? 0u : 99u);
        EXPECT_EQ(host.temp_allocations.size(), s.status == TAVO_DONE ? 1u : 0u);
    }
}

// A full output is only one if the column goes on behind it.
TEST(groupkey, full_at_the_last_row) {
    std::mt19937_64 rng(5222);
    key_case c(100, {5, 8}, false, selection::all, rng);
    c.cases[0].column.enc.symbol_count = c.cases[1].column.enc.symbol_count = 1;
    EXPECT_EQ(c.call(0, true, 100, 30), 100u); // 0
    EXPECT_EQ(c.call(0, true, 99, 30), 99u);   // 19
    EXPECT_EQ(c.call(0, true, 0, 30), 0u);
}

TEST(groupkey, compressed_column) {
    std::mt19937_64 rng(5223);
    column_model m = plain_model(8, 3000, rng);
    for (ub8 &code : m.codes)
        code %= 9;
    column_case c(m, 8);
    std::vector<ub1> stream = spak_of(c.column.stream.bytes()).bytes();
    stream.resize(stream.size() + 64); // decoding reads on behind its end
    void *slot = nullptr;
    tavo_vec col = c.column.src;
    c.column.enc.flags |= TAVO_SPAK;
    c.column.enc.symbol_count = 9;
    col.data = stream.data();
    col.decomp_slot = &slot;
    col.decomp_size = 3000;
    std::vector<ub4> got(3000), scratch(100);
    tavo_vec keys{}, temp{}, cols[2] = {col, col};
    keys.data = got.data();
    keys.size = 3000;
    temp.data = scratch.data();
    temp.size = 100;
    ub4 space;
    c.env.flags = TAVO_ENV_MULTIPLY_KEYS;
    EXPECT_EQ(library.groupkey(&keys, &space, cols, 2, &temp, &c.env), TAVO_DONE);
    EXPECT_EQ(space, 81u);
    for (ub4 row = 0; row < 3000; row++)
        ASSERT_EQ(got[row], m.code(row) * 10);
    EXPECT_EQ(c.host.allocations.size(), 1u);
}

TEST(groupkeyDeathTest, no_scratch) {
    std::mt19937_64 rng(5224);
    key_case c(10, {8}, false, selection::all, rng);
    EXPECT_DEATH(c.call(0, true, 10, 0), "tavoc_avx512g:[0-9]+: .*Assertion `TAVO_VEC_SIZE\\(temp\\) != 0' failed");
}

TEST(key_steps, multiply_and_shift_in_place) {
    std::mt19937_64 rng(5225);
    for (ub4 n : boundary_sizes())
        for (ub4 by : {0u, 1u, 5u, 31u, 32u, 33u, 0x80000001u}) {
            guarded shifted(n * 4), multiplied(n * 4);
            std::vector<ub4> keys(n);
            for (ub4 i = 0; i < n; i++)
                shifted.as<ub4>()[i] = multiplied.as<ub4>()[i] = keys[i] = static_cast<ub4>(rng());
            tavo_shl_ub4_const(shifted.as<ub4>(), by, n);
            tavo_mul_ub4_const(multiplied.as<ub4>(), by, n);
            for (ub4 i = 0; i < n; i++) {
                ASSERT_EQ(shifted.as<ub4>()[i], keys[i] << by % 32) << by;
                ASSERT_EQ(multiplied.as<ub4>()[i], keys[i] * by) << by;
            }
        }
}

} // namespace
} // namespace tavo::test
