// Unpacking against its plain meaning: every width, output width and path, drained with random capacities.
#include <gtest/gtest.h>
#include <sys/mman.h>

#include <cstring>
#include <tuple>

#include "tests/decode/column_case.h"
#include "tests/decode/unpack_model.h"
#include "tests/kit/host_stub.h"
#include "tests/kit/spak_stream.h"

namespace tavo::test {
namespace {

// A column as its model says, and calls that are held against the model.
struct unpack_case : column_case {
    unpack_case(unpack_model m, bool wide, unsigned entry_bits = 8)
        : column_case(m, entry_bits), model(std::move(m)), wide(wide) {
        env.result_flags = 0x82; // what other kernels have left
        env.flags = static_cast<ub1>((wide ? TAVO_ENV_WIDE : 0) | (model.sparse ? TAVO_ENV_SPARSE : 0));
    }

    unsigned element_bytes() const { return wide || model.width > 16 ? 4 : model.width > 8 ? 2 : 1; }

    // One call with an output of exactly `capacity` elements between unreadable pages; returns the rows delivered.
    std::vector<ub4> call(ub4 capacity, guard side = guard::behind) {
        const unpack_model::state before{env.resume_row, env.run_index, env.run_end, env.result_flags};
        const unpack_model::outcome expected = model.call(before, capacity);
        const std::size_t places = std::max<std::size_t>(capacity, model.list.size());
        const guarded output(places * element_bytes(), side, 0xcd);
        const tavo_vec src_before = column.src;
        tavo_vec dst{};
        dst.data = output.data();
        dst.size = capacity;
        const ub4 status = column.call(TAVO_OP_DECODE_UNPACK, &dst, &env);

        const std::string what = column.name(TAVO_OP_DECODE_UNPACK) + ", from row " +
                                 std::to_string(before.resume_row) + " of " + std::to_string(model.rows()) +
                                 ", capacity " + std::to_string(capacity) + (wide ? ", wide" : "");
        EXPECT_EQ(status, expected.status) << what;
        EXPECT_EQ(dst.count, expected.rows.size()) << what;
        EXPECT_GE(env.resume_row, expected.after.resume_row) << what;
        EXPECT_LE(env.resume_row, expected.latest_resume_row) << what;
        EXPECT_EQ(env.result_flags, expected.after.result_flags) << what;
        EXPECT_EQ(env.run_index, expected.after.run_index) << what;
        EXPECT_EQ(env.run_end, expected.after.run_end) << what;
        for (std::size_t i = 0; i < places; i++) {
            ub4 element = 0;
            std::memcpy(&element, output.data() + i * element_bytes(), element_bytes());
            const ub4 untouched = 0xcdcdcdcd >> (32 - 8 * element_bytes());
            const ub4 wanted = i < expected.rows.size() ? model.code(expected.rows[i]) : untouched;
            if (element != wanted) {
                ADD_FAILURE() << what << ": element " << i << " is " << element << ", not " << wanted;
                break;
            }
        }
        EXPECT_TRUE(dst.data == output.data() && dst.size == capacity) << what;
        EXPECT_EQ(std::memcmp(&src_before, &column.src, sizeof src_before), 0) << what;
        return expected.rows;
    }

    // Calls until all rows are done.
    void drain(std::mt19937_64 &rng) {
        std::vector<ub4> rows;
        while (env.resume_row < model.rows() && !testing::Test::HasFailure()) {
            static constexpr ub4 capacities[] = {1, 2, 16, 63, 64, 65, 128, 256, 300, 512};
            const ub4 capacity = rng() % 4 == 0 ? static_cast<ub4>(1 + rng() % (model.rows() + 10))
                                                : capacities[rng() % std::size(capacities)];
            const auto delivered = call(capacity, rng() % 2 ? guard::behind : guard::before);
            rows.insert(rows.end(), delivered.begin(), delivered.end());
        }
        std::vector<ub4> all;
        for (ub4 row = 0; row < model.rows(); row++)
            if (model.selected.empty() || model.selected[row])
                all.push_back(row);
        EXPECT_EQ(rows, all) << column.name(TAVO_OP_DECODE_UNPACK);
    }

    unpack_model model;
    bool wide;
};

// f(model to fill in, wide) for each width and output width.
template <class F>
void each_member(F &&f) {
    for (unsigned width : decode_widths())
        for (bool wide : {false, true})
            f(width, wide);
}

const std::vector<ub4> sizes = {0, 1, 15, 64, 65, 127, 129, 257, 512, 1025, 4097};

TEST(decode_unpack, range) {
    std::mt19937_64 rng(421);
    each_member([&](unsigned width, bool wide) {
        for (ub4 rows : sizes) {
            unpack_case c(plain_model(width, rows, rng), wide);
            c.call(0);
            c.drain(rng);
            c.call(10); // nothing is left
            c.env.resume_row = 0;
            c.call(rows + 5);
        }
    });
}

TEST(decode_unpack, block_selection_and_sparse_walk) {
    std::mt19937_64 rng(422);
    each_member([&](unsigned width, bool wide) {
        for (ub4 rows : sizes)
            for (unsigned one_in : {1, 2, 40})
                for (bool sparse : {false, true}) {
                    if (rows == 0)
                        continue;
                    unpack_model m = plain_model(width, rows, rng);
                    m.selected = random_selection(rows, one_in, rng);
                    m.sparse = sparse;
                    unpack_case c(std::move(m), wide);
                    c.call(0);
                    c.drain(rng);
                    c.call(10);
                    c.env.resume_row = 0;
                    c.call(rows + 5);
                }
    });
}

// A single row behind thousands that aren't selected.
TEST(decode_unpack, a_row_behind_a_gap) {
    for (unsigned width : decode_widths())
        for (ub4 row : {2111u, 2112u, 4990u}) {
            unpack_model m;
            m.width = width;
            m.codes.assign(5000, 0);
            m.codes[row] = largest_code(width);
            m.selected.assign(5000, false);
            std::fill(m.selected.begin(), m.selected.begin() + 64, true);
            m.selected[row] = true;
            for (ub4 capacity : {63u, 64u, 65u}) {
                unpack_case c(m, false);
                c.call(capacity);
                c.call(10);
            }
        }
}

TEST(decode_unpack, position_list) {
    std::mt19937_64 rng(423);
    each_member([&](unsigned width, bool wide) {
        for (ub4 rows : sizes) {
            unpack_model m = plain_model(width, rows, rng);
            m.has_list = true;
            m.list = random_list(rows, rng);
            unpack_case c(std::move(m), wide);
            c.env.resume_row = 77;
            c.call(0); // the list isn't held against the capacity
        }
    });
}

TEST(decode_unpack, runs) {
    std::mt19937_64 rng(424);
    for (auto [width, wide] : {std::pair(5u, false), {5u, true}, {12u, false}, {20u, false}}) // outputs of 1 to 4 bytes
        for (ub4 longest : {255u, 256u, 5000u, 65535u}) { // long runs among short ones
            unpack_model m = plain_model(width, 5, rng);
            m.by_runs = true;
            m.run_lengths = {longest, 1, longest, 2, longest};
            const unsigned entry_bits = longest == 255 ? 8 : 16;
            unpack_case c(m, wide, entry_bits);
            c.call(m.rows() - 1); // all but the last row at once, within its run
            c.call(100);
            unpack_case(std::move(m), wide, entry_bits).call(longest + 1);
        }
    each_member([&](unsigned width, bool wide) {
        for (unsigned entry_bits : {8u, 16u})
            for (ub4 runs : {1u, 2u, 70u, every_lane_costs ? 3u : 300u})
                for (auto [shortest, longest] :
                     {std::pair(1u, 3u), std::pair(1u, every_lane_costs ? 20u : 90u), std::pair(0u, 4u)}) {
                    const unpack_model m =
                        run_model(width, runs, entry_bits == 16 && longest == 90 ? 700 : longest, shortest, rng);
                    for (unsigned one_in : {0u, 1u, 3u, 50u}) {
                        unpack_model with_rows = m;
                        if (one_in != 0)
                            with_rows.selected = random_selection(m.rows(), one_in, rng);
                        unpack_case c(std::move(with_rows), wide, entry_bits);
                        c.call(0);
                        c.drain(rng);
                        if (testing::Test::HasFailure())
                            return;
                    }
                    unpack_model listed = m;
                    listed.has_list = true;
                    listed.list = random_list(m.rows(), rng);
                    listed.list.push_back(m.rows() - 1);
                    unpack_case(std::move(listed), wide, entry_bits).call(0);
                }
    });
}

// A walk over runs goes on from a saved run only if both the row and the run's end are there.
TEST(decode_unpack, stale_run_state) {
    std::mt19937_64 rng(428);
    for (unsigned one_in : {0u, 2u})
        for (bool listed : {false, true}) {
            unpack_model m = run_model(11, 60, 9, 1, rng);
            if (one_in != 0)
                m.selected = random_selection(m.rows(), one_in, rng);
            m.has_list = listed;
            m.list = random_list(m.rows(), rng);
            const ub4 middle = m.rows() / 2;
            const auto [run, end] = m.run_of(middle);
            struct {
                ub4 resume_row, run_index, run_end;
            } const states[] = {{0, run, end}, {middle, 0, 0}, {middle, 7, 0}, {middle, run, end}};
            for (const auto &state : states) {
                unpack_case c(m, false);
                if (listed && state.resume_row != 0) // a list is walked from the saved run on
                    std::erase_if(c.model.list, [&](ub4 row) { return state.run_end != 0 && row < middle; });
                c.list = guarded_copy(c.model.list);
                c.env.ones_vec = listed ? c.list.as<ub4>() : nullptr;
                c.env.ones_vec_size = static_cast<ub4>(c.model.list.size());
                c.env.resume_row = state.resume_row;
                c.env.run_index = state.run_index;
                c.env.run_end = state.run_end;
                c.call(m.rows());
            }
        }
}

// Far down a column a row's bit position takes more than 32 bits, on every path.
TEST(decode_unpack, rows_beyond_four_billion_bits) {
    constexpr unsigned width = 20;
    constexpr ub4 first = static_cast<ub4>((1ull << 32) / width) / 64 * 64, rows = first + 256;
    constexpr std::size_t bytes = std::size_t{rows} * width / 8 + 64;
    auto *codes = static_cast<ub1 *>(
        mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0));
    ASSERT_NE(static_cast<void *>(codes), MAP_FAILED);
    std::mt19937_64 rng(429);
    const std::vector<ub8> last = random_codes(256, width, rng);
    const std::vector<ub1> packed = pack_codes(last, width);
    std::memcpy(codes + std::size_t{first} * width / 8, packed.data(), packed.size());
    packed_column column(width, {0}, 3);
    column.src.data = codes;
    column.src.size = rows;
    std::vector<ub8> bits(rows / 64 + 1, 0);
    std::fill_n(bits.begin() + first / 64, 4, ~0ull);
    std::vector<ub4> list(256);
    std::iota(list.begin(), list.end(), first);
    for (int path = 0; path < 4; path++) { // range, blocks, sparse walk, list
        std::vector<ub4> out(256);
        tavo_vec dst{};
        dst.data = out.data();
        dst.size = 256;
        tavo_env env{};
        env.resume_row = path == 3 ? 0 : first;
        env.sel_bits = path == 1 || path == 2 ? bits.data() : nullptr;
        env.flags = path == 2 ? TAVO_ENV_SPARSE : 0;
        env.ones_vec = path == 3 ? list.data() : nullptr;
        env.ones_vec_size = 256;
        EXPECT_EQ(column.call(TAVO_OP_DECODE_UNPACK, &dst, &env), TAVO_DONE);
        EXPECT_TRUE(std::equal(out.begin(), out.end(), last.begin(), last.end())) << "path " << path;
    }
    munmap(codes, bytes);
}

TEST(decode_unpack, empty_list_over_runs_is_raised) {
    std::mt19937_64 rng(425);
    for (unsigned width : decode_widths()) {
        unpack_model m = run_model(width, 5, 9, 1, rng);
        m.has_list = true;
        unpack_case c(std::move(m), false);
        raised_errors().clear();
        c.call(4);
        ASSERT_EQ(raised_errors().size(), 1u);
        EXPECT_EQ(raised_errors()[0].message,
                  "tavo_decode_unpack_dict_" + std::to_string(width) + "bit: [rle] ones_vec size is zero");
    }
}

TEST(decode_unpack, bit_vector_goes_before_list) {
    std::mt19937_64 rng(426);
    for (bool by_runs : {false, true})
        for (bool sparse : {false, true}) {
            unpack_model m = by_runs ? run_model(12, 100, 9, 1, rng) : plain_model(12, 300, rng);
            m.selected = random_selection(m.rows(), 2, rng);
            m.sparse = sparse;
            m.has_list = true;
            unpack_case c(std::move(m), false);
            c.call(1000);
        }
}

// Every kernel that reads a compressed column: the stream is decoded once, under the kernel's own name.
TEST(decode_prologue, labels_and_one_decode) {
    std::mt19937_64 rng(427);
    for (unsigned width : decode_widths())
        for (tavo_operation operation : {TAVO_OP_DECODE_UNPACK, TAVO_OP_DECODE}) {
            packed_column column(width, random_codes(300, width, rng), code_slack(width));
            const spak_stream packed = spak_of(column.stream.bytes());
            const std::vector<ub1> bytes = packed.bytes();
            host_stub host;
            void *slot = nullptr;
            ub2 length = __builtin_bswap16(1);
            column.enc.flags |= TAVO_SPAK;
            column.enc.symbol_len = &length;
            column.src.data = const_cast<ub1 *>(bytes.data());
            column.src.decomp_slot = &slot;
            column.src.decomp_size = static_cast<ub4>(column.stream.size());
            std::vector<ub8> out(300);
            std::vector<ub2> lengths(300);
            tavo_vec dst{};
            dst.data = out.data();
            dst.lengths = lengths.data();
            dst.size = 300;
            tavo_env env{};
            env.host = host.record();
            env.flags = TAVO_ENV_WIDE;
            raised_errors().clear();
            for (int call = 0; call < 2; call++) {
                env.resume_row = 0;
                EXPECT_EQ(column.call(operation, &dst, &env), TAVO_DONE);
            }
            EXPECT_TRUE(raised_errors().empty());
            for (ub4 row = 0; row < 300; row++)
                ASSERT_EQ(operation == TAVO_OP_DECODE ? out[row] : reinterpret_cast<const ub4 *>(out.data())[row],
                          column.codes[row]);
            ASSERT_EQ(host.allocations.size(), 1u);
            EXPECT_EQ(host.allocations[0].label, column.name(operation) + ": vec1_decomp");

            slot = nullptr;
            std::vector<ub1> spoiled(bytes.size(), 0xff);
            column.src.data = spoiled.data();
            env.resume_row = 300; // the codes are of no use now
            column.src.size = 1;
            column.call(operation, &dst, &env);
            ASSERT_EQ(raised_errors().size(), 1u);
            EXPECT_EQ(raised_errors()[0].message, column.name(operation) + ": tavo_spak_decode failed");
        }
}

} // namespace
} // namespace tavo::test
