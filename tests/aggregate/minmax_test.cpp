// The smallest and largest codes against their plain meaning: every member, path, mode and resumption.
#include <gtest/gtest.h>
#include <sys/mman.h>

#include <cstring>
#include <tuple>

#include "tests/aggregate/minmax_model.h"
#include "tests/decode/column_case.h"
#include "tests/kit/spak_stream.h"

namespace tavo::test {
namespace {

struct minmax_case : column_case {
    explicit minmax_case(minmax_model m, unsigned entry_bits = 8)
        : column_case(m, entry_bits), model(std::move(m)), result(sizeof(pair)) {
        column.enc.symbol_count = model.symbols;
        column.enc.kernel_row = TAVO_KERNEL_ROW(model.nullable ? TAVO_VARIANT_SECOND : TAVO_VARIANT_PLAIN,
                                                width_code(model.width), TAVO_CLASS_DICT);
        env.result_flags = 0x82; // what other kernels have left
    }

    ub4 invoke(ub4 mode) {
        res.data = result.data();
        res.count = 77;
        const auto index = TAVO_DISPATCH_INDEX(column.enc.kernel_row, TAVO_OP_MINMAX);
        return tavo_global_specialized_ctx.dispatch_table[index].minmax(&res, &column.src, &env, mode);
    }

    // One call, held against the model.
    void call(ub4 mode) {
        const minmax_model::state before{env.resume_row, env.run_index, env.run_end};
        const auto expected = model.call(before, mode);
        std::memcpy(result.data(), &untouched, sizeof untouched);
        const ub4 status = invoke(mode);
        pair got;
        std::memcpy(&got, result.data(), sizeof got);
        const auto wanted = expected.pair ? pair{expected.pair->first, expected.pair->second} : untouched;
        const std::string what = column.name(TAVO_OP_MINMAX) + ", mode " + std::to_string(mode) + ", from row " +
                                 std::to_string(before.resume_row) + " of " + std::to_string(model.rows()) + ", " +
                                 std::to_string(model.symbols) + " symbols";
        EXPECT_EQ(status, expected.status) << what;
        EXPECT_EQ(std::tuple(got.low, got.high), std::tuple(wanted.low, wanted.high)) << what;
        EXPECT_EQ((minmax_model::state{env.resume_row, env.run_index, env.run_end}), expected.after) << what;
        EXPECT_EQ(res.count, expected.count.value_or(77)) << what;
        EXPECT_EQ(env.result_flags, 0x82) << what;
    }
    void call_all_modes(minmax_model::state from) {
        for (ub4 mode : {0u, 1u, 2u, 3u}) {
            std::tie(env.resume_row, env.run_index, env.run_end) =
                std::tuple(from.resume_row, from.run_index, from.run_end);
            call(mode);
        }
    }

    struct pair {
        ub4 low, high;
    };
    static constexpr pair untouched{0xcdcdcdcd, 0xcdcdcdcd};
    minmax_model model;
    guarded result;
    tavo_vec res{};
};

// f(width, nullable) for each member.
template <class F>
void each_member(F &&f) {
    for (unsigned width : decode_widths())
        for (bool nullable : {false, true}) {
            f(width, nullable);
            if (testing::Test::HasFailure())
                return;
        }
}

// Codes of a column with so many symbols: sometimes few of them occur, sometimes neither the first nor the last.
void choose_codes(column_model &m, ub8 symbols, std::mt19937_64 &rng) {
    const bool inner = rng() % 2, mostly_null = rng() % 4 == 0;
    for (ub8 &code : m.codes) {
        code %= symbols;
        if (inner && symbols > 4)
            code = 2 + code % (symbols - 3);
        if (mostly_null && rng() % 8 != 0)
            code = 0;
    }
}

// Numbers of symbols: all that the width has, fewer, two; and one that some codes are beyond.
std::vector<ub4> symbol_counts(unsigned width) {
    const ub8 all = std::min<ub8>(largest_code(width) + 1, ~0u);
    std::vector<ub4> counts = {static_cast<ub4>(all), 2};
    if (width > 2)
        counts.push_back(static_cast<ub4>(all / 2 + 1));
    return counts;
}

const std::vector<ub4> sizes = {0, 1, 15, 63, 64, 65, 127, 129, 513, 1025, 4097};

// Where a walk may start: on blocks' boundaries of this width and beside them, at the end.
std::vector<ub4> starts(unsigned width, ub4 rows) {
    const ub4 alignment = std::lcm(8u, width);
    std::vector<ub4> list = {0, 1, alignment, 3 * alignment - 1, rows};
    std::erase_if(list, [&](ub4 row) { return row > rows; });
    return list;
}

TEST(minmax, range) {
    std::mt19937_64 rng(511);
    each_member([&](unsigned width, bool nullable) {
        for (ub4 symbols : symbol_counts(width))
            for (ub4 rows : sizes) {
                column_model m = plain_model(width, rows, rng);
                choose_codes(m, symbols, rng);
                minmax_case c({std::move(m), nullable, symbols});
                for (ub4 start : starts(width, rows))
                    c.call_all_modes({start});
            }
    });
}

TEST(minmax, selected_blocks) {
    std::mt19937_64 rng(512);
    each_member([&](unsigned width, bool nullable) {
        for (ub4 symbols : symbol_counts(width))
            for (ub4 rows : sizes)
                for (unsigned one_in : {1, 3, 200}) {
                    if (rows == 0)
                        continue;
                    column_model m = plain_model(width, rows, rng);
                    choose_codes(m, symbols, rng);
                    m.selected = random_selection(rows, one_in, rng);
                    m.has_list = true; // the bit vector goes first
                    minmax_case c({std::move(m), nullable, symbols});
                    for (ub4 start : starts(width, rows))
                        c.call_all_modes({start});
                }
    });
}

TEST(minmax, position_list) {
    std::mt19937_64 rng(513);
    each_member([&](unsigned width, bool nullable) {
        for (ub4 symbols : symbol_counts(width))
            for (ub4 rows : {1u, 64u, 700u}) {
                column_model m = plain_model(width, rows, rng);
                choose_codes(m, symbols, rng);
                m.has_list = true;
                m.list = random_list(rows, rng);
                m.list.push_back(rows - 1);
                minmax_case(minmax_model(std::move(m), nullable, symbols)).call_all_modes({3});
            }
    });
}

TEST(minmax, runs) {
    std::mt19937_64 rng(514);
    each_member([&](unsigned width, bool nullable) {
        for (unsigned entry_bits : {8u, 16u})
            for (ub4 runs : {1u, 2u, 70u, every_lane_costs ? 3u : 300u})
                for (auto [shortest, longest] : {std::pair(1u, every_lane_costs ? 20u : 90u), std::pair(0u, 4u)}) {
                    const ub4 symbols = symbol_counts(width)[rng() % 2];
                    column_model m =
                        run_model(width, runs, entry_bits == 16 && longest == 90 ? 700 : longest, shortest, rng);
                    choose_codes(m, symbols, rng);
                    const ub4 middle = m.rows() / 2;
                    const auto [run, end] = m.run_of(middle);
                    const minmax_model::state states[] = {{0, 0, 0},      {0, run, end},      {middle, 0, 0},
                                                          {middle, 7, 0}, {middle, run, end}, {m.rows(), 0, 0}};
                    for (const auto &state : states) {
                        for (unsigned one_in : {0u, 1u, 50u}) {
                            column_model with_rows = m;
                            if (one_in != 0)
                                with_rows.selected = random_selection(m.rows(), one_in, rng);
                            minmax_case(minmax_model(std::move(with_rows), nullable, symbols), entry_bits)
                                .call_all_modes(state);
                        }
                        column_model listed = m;
                        listed.has_list = true;
                        listed.list = random_list(m.rows(), rng);
                        listed.list.push_back(m.rows() - 1);
                        if (state.run_end != 0 && state.resume_row != 0) // a list is walked from the saved run on
                            std::erase_if(listed.list, [&](ub4 row) { return row < middle; });
                        minmax_case(minmax_model(std::move(listed), nullable, symbols), entry_bits)
                            .call_all_modes(state);
                    }
                }
    });
}

// Once the best values are there no further code is read: behind the first block there is none.
TEST(minmax, early_end_reads_one_block) {
    each_member([&](unsigned width, bool nullable) {
        for (ub4 mode : {1u, 2u, 0u}) {
            const ub4 symbols = symbol_counts(width)[0];
            column_model m;
            m.width = width;
            m.codes.assign(64, symbols / 2 == 0 ? 1 : symbols / 2);
            m.codes[9] = nullable ? 1 : 0;
            m.codes[31] = symbols - 1;
            for (bool by_list : {false, true}) {
                minmax_model model(m, nullable, symbols);
                model.selected.assign(by_list ? 0 : 100000, true);
                model.has_list = by_list;
                for (ub4 row = 0; by_list && row < 5000; row++)
                    model.list.push_back(row < 64 ? row : row * 20);
                if (width == 32 && !by_list)
                    continue; // a dictionary of that many symbols doesn't compare as signed numbers
                minmax_case c(std::move(model));
                c.column.src.size = 100000;
                EXPECT_EQ(c.invoke(mode), TAVO_DONE);
                const auto *pair = c.result.as<ub4>();
                const auto best = c.model.targets(mode);
                if (!by_list) {
                    EXPECT_EQ(std::pair(pair[0], pair[1]), best) << c.column.name(TAVO_OP_MINMAX) << ", mode " << mode;
                    EXPECT_EQ(c.env.resume_row, 32u);
                } else { // a list leaves what it has seen
                    EXPECT_LE(pair[0], best.first) << c.column.name(TAVO_OP_MINMAX) << ", mode " << mode;
                    EXPECT_GE(pair[1], best.second) << c.column.name(TAVO_OP_MINMAX) << ", mode " << mode;
                    EXPECT_EQ(c.env.resume_row, 0u);
                }
            }
        }
    });
}

TEST(minmax, nothing_contributes) {
    each_member([&](unsigned width, bool nullable) {
        column_model m;
        m.width = width;
        m.codes.assign(1000, 0);
        m.selected.assign(1000, false);
        for (ub4 symbols : {1u, 2u}) {
            minmax_case none({m, nullable, symbols});
            none.column.src.data = nullptr; // no code of a block without a selected row is read
            none.column.src.size = 1000 / 64 * 64;
            EXPECT_EQ(none.invoke(0), TAVO_NONE_SELECTED);
            if (!nullable)
                continue;
            // Rows of nulls alone, on all paths.
            column_model nulls = m;
            nulls.selected.assign(1000, true);
            minmax_case({nulls, true, symbols}).call_all_modes({});
            nulls.selected.clear();
            minmax_case({nulls, true, symbols}).call_all_modes({});
            nulls.has_list = true;
            nulls.list = {0, 5, 999};
            minmax_case({nulls, true, symbols}).call_all_modes({});
            nulls.by_runs = true;
            nulls.run_lengths.assign(1000, 2);
            minmax_case({nulls, true, symbols}).call_all_modes({});
        }
    });
}

// A code that isn't below the number of symbols is folded like any other.
TEST(minmax, codes_beyond_the_dictionary) {
    std::mt19937_64 rng(515);
    each_member([&](unsigned width, bool nullable) {
        if (width < 3)
            return;
        for (int path = 0; path < 3; path++) {
            column_model m = plain_model(width, 700, rng);
            m.codes[3] = largest_code(width);
            m.codes[500] = 2;
            if (path == 1)
                m.selected = random_selection(700, 2, rng);
            m.has_list = path == 2;
            m.list = {3, 40, 500, 699};
            for (ub4 symbols : {3u, 5u})
                minmax_case({m, nullable, symbols}).call_all_modes({});
        }
    });
}

TEST(minmax, empty_list_over_runs_is_raised) {
    std::mt19937_64 rng(516);
    each_member([&](unsigned width, bool nullable) {
        column_model m = run_model(width, 5, 9, 1, rng);
        m.has_list = true;
        minmax_case c({std::move(m), nullable, 2});
        raised_errors().clear();
        c.call(0);
        ASSERT_EQ(raised_errors().size(), 1u);
        EXPECT_EQ(raised_errors()[0].message, c.column.name(TAVO_OP_MINMAX) + ": [rle] ones_vec size is zero");
    });
}

TEST(minmax, prologue_labels) {
    std::mt19937_64 rng(517);
    each_member([&](unsigned width, bool nullable) {
        column_model m = plain_model(width, 300, rng);
        const ub4 symbols = symbol_counts(width)[0];
        choose_codes(m, symbols, rng);
        minmax_case c({std::move(m), nullable, symbols});
        const std::vector<ub1> bytes = spak_of(c.column.stream.bytes()).bytes();
        void *slot = nullptr;
        c.column.enc.flags |= TAVO_SPAK;
        c.column.src.data = const_cast<ub1 *>(bytes.data());
        c.column.src.decomp_slot = &slot;
        c.column.src.decomp_size = static_cast<ub4>(c.column.stream.size());
        c.call_all_modes({});
        ASSERT_EQ(c.host.allocations.size(), 1u);
        EXPECT_EQ(c.host.allocations[0].label, c.column.name(TAVO_OP_MINMAX) + ": vec1_decomp");
        slot = nullptr;
        std::vector<ub1> spoiled(bytes.size(), 0xff);
        c.column.src.data = spoiled.data();
        raised_errors().clear();
        c.invoke(0);
        ASSERT_EQ(raised_errors().size(), 1u);
        EXPECT_EQ(raised_errors()[0].message, c.column.name(TAVO_OP_MINMAX) + ": tavo_spak_decode failed");
    });
}

// Far down a column a row's bit position takes more than 32 bits, on every path.
TEST(minmax, rows_beyond_four_billion_bits) {
    constexpr unsigned width = 20;
    constexpr ub4 first = static_cast<ub4>((1ull << 32) / width) / 64 * 64, rows = first + 256;
    constexpr std::size_t bytes = std::size_t{rows} * width / 8 + 64;
    auto *codes = static_cast<ub1 *>(
        mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0));
    ASSERT_NE(static_cast<void *>(codes), MAP_FAILED);
    std::vector<ub8> last(256, 4711);
    last[7] = 815;
    last[200] = 471100;
    const std::vector<ub1> packed = pack_codes(last, width);
    std::memcpy(codes + std::size_t{first} * width / 8, packed.data(), packed.size());
    std::vector<ub8> bits(rows / 64 + 1, 0);
    std::fill_n(bits.begin() + first / 64, 4, ~0ull);
    for (int path = 0; path < 3; path++) { // range, blocks, list
        column_model m;
        m.width = width;
        m.codes = {0};
        m.has_list = path == 2;
        m.list.resize(256);
        std::iota(m.list.begin(), m.list.end(), first);
        minmax_case c({std::move(m), false, 1 << 20});
        c.column.src.data = codes;
        c.column.src.size = rows;
        c.env.sel_bits = path == 1 ? bits.data() : nullptr;
        c.env.resume_row = path == 0 ? first : 0;
        EXPECT_EQ(c.invoke(0), TAVO_DONE);
        EXPECT_EQ(c.result.as<ub4>()[0], 815u) << "path " << path;
        EXPECT_EQ(c.result.as<ub4>()[1], 471100u) << "path " << path;
        EXPECT_EQ(c.env.resume_row, rows);
    }
    munmap(codes, bytes);
}

// These slots are filled, and do nothing.
TEST(sum_and_distinct, do_nothing) {
    unsigned kernels = 0;
    for (unsigned index = 0; index < TAVO_DISPATCH_SLOTS; index++) {
        const unsigned operation = index % 32;
        tavo_minmax_fn *kernel = tavo_global_specialized_ctx.dispatch_table[index].minmax;
        if ((operation != TAVO_OP_SUM && operation != TAVO_OP_DISTINCT) || kernel == nullptr)
            continue;
        kernels++;
        tavo_vec res, src;
        tavo_env env;
        std::memset(&res, 0x5a, sizeof res);
        std::memset(&src, 0x5b, sizeof src);
        std::memset(&env, 0x5c, sizeof env);
        const auto res_before = res, src_before = src;
        const auto env_before = env;
        EXPECT_EQ(kernel(&res, &src, &env, 0), TAVO_DONE) << tavo_dispatch_func_names.name[index];
        EXPECT_EQ(kernel(nullptr, nullptr, nullptr, 3), TAVO_DONE) << tavo_dispatch_func_names.name[index];
        EXPECT_TRUE(std::memcmp(&res, &res_before, sizeof res) == 0 &&
                    std::memcmp(&src, &src_before, sizeof src) == 0 && std::memcmp(&env, &env_before, sizeof env) == 0)
            << tavo_dispatch_func_names.name[index];
    }
    EXPECT_EQ(kernels, 48u);
}

} // namespace
} // namespace tavo::test
