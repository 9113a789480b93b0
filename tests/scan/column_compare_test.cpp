// Column against column: elements of every layout, and codes through lookup tables.
#include <gtest/gtest.h>

#include <bit>
#include <random>

#include "tests/scan/element_column.h"

namespace tavo::test {
namespace {

using strings = std::vector<std::string>;

struct equal_case {
    ub4 layout;
    std::size_t longest;
    int overread; // sides that may be read 8 bytes at a time: 0, 1 left, 2 right, 3 both
};

void expect_equal_rows(const equal_case &c, ub4 rows, int unequal_percent, std::mt19937_64 &rng) {
    strings left(rows), right(rows);
    const std::size_t one_length = rng() % (c.longest + 1);
    for (ub4 r = 0; r < rows; r++) {
        left[r].resize(c.layout == TAVO_FIXED ? one_length : rng() % (c.longest + 1));
        for (char &byte : left[r])
            byte = static_cast<char>(rng() % 2 * 0x80);
        right[r] = left[r];
        if (static_cast<int>(rng() % 100) < unequal_percent) {
            if (c.layout != TAVO_FIXED && rng() % 2 != 0)
                right[r].resize(rng() % (c.longest + 1)); // a zero byte more or less
            else if (!left[r].empty())
                right[r][rng() % left[r].size()] ^= 1;
        }
    }
    const bool is_short = c.overread != 0 && c.longest <= 8;
    // A side that may be read beyond has 8 bytes behind its elements; the other ends with them.
    element_column a(c.layout, left, c.overread == 3 ? 8 : 0), b(c.layout, right, c.overread == 3 ? 8 : 0);
    a.enc.max_len = b.enc.max_len = static_cast<ub2>(c.longest);
    a.enc.flags |= c.overread & 1 ? TAVO_OVERREAD_OK : 0;
    b.enc.flags |= c.overread & 2 ? TAVO_OVERREAD_OK : 0;
    guarded words((rows + 63) / 64 * 8);
    tavo_vec res{};
    res.bits = words.as<ub8>();
    res.size = rows;
    res.count = 0xdeadbeef;
    const ub4 status = tavo_global_specialized_ctx.eq_stream(&res, &a.vec, &b.vec, nullptr);
    ub4 equal = 0;
    std::vector<ub8> expected(words.size() / 8, 0);
    for (ub4 r = 0; r < rows; r++)
        if (left[r] == right[r]) {
            equal++;
            expected[r / 64] |= 1ull << r % 64;
        }
    if (equal == rows) // untouched
        expected.assign(expected.size(), 0xa5a5a5a5a5a5a5a5);
    EXPECT_EQ(std::vector<ub8>(res.bits, res.bits + expected.size()), expected)
        << std::hex << c.layout << " longest " << c.longest << " rows " << rows << " overread " << c.overread;
    EXPECT_EQ(res.count, equal) << std::hex << c.layout;
    EXPECT_EQ(status, !is_short && equal == 0 ? TAVO_NONE_SELECTED : TAVO_DONE) << std::hex << c.layout << rows;
}

TEST(EqualStream, EveryLayoutAndPath) {
    std::mt19937_64 rng(3321);
    for (ub4 layout : element_layouts())
        for (std::size_t longest : {1, 2, 4, 7, 8, 9, 24, 150})
            for (int overread : {0, 1, 2, 3})
                for (ub4 rows : {0u, 1u, 63u, 64u, 65u, 130u})
                    for (int unequal : {0, 1, 50, 100}) {
                        if (layout == TAVO_FIXED && longest > 31)
                            continue;
                        ASSERT_NO_FATAL_FAILURE(expect_equal_rows({layout, longest, overread}, rows, unequal, rng));
                        ASSERT_FALSE(HasFailure());
                    }
    for (ub4 layout : {TAVO_LP, TAVO_LP_SEP}) // rows on both sides of the stretch without prefetch
        for (ub4 rows : {127u, 128u, 129u, 192u, 320u})
            ASSERT_NO_FATAL_FAILURE(expect_equal_rows({layout, 12, 0}, rows, 30, rng));
}

// Fixed columns of different widths have no equal rows.
TEST(EqualStream, FixedElementsOfDifferentWidths) {
    element_column a(TAVO_FIXED, {"ab", "cd"}), b(TAVO_FIXED, {"abc", "cde"});
    ub8 bits = ~0ull;
    tavo_vec res{};
    res.bits = &bits;
    EXPECT_EQ(tavo_global_specialized_ctx.eq_stream(&res, &a.vec, &b.vec, nullptr), TAVO_NONE_SELECTED);
    EXPECT_EQ(res.count, 0u);
    EXPECT_EQ(bits, 0u);
}

bool compares(unsigned op, ub4 x, ub4 y) {
    switch (op) {
    case 0: return x == y;
    case 1: return x < y;
    case 2: return x > y;
    case 3: return x <= y;
    case 4: return x >= y;
    case 5: return x != y;
    default: return false;
    }
}

// What the host relies on, resumed or not: see the kernel's contract.
TEST(LookupAndCompare, EveryOperatorTableAndStart) {
    std::mt19937_64 rng(3322);
    constexpr ub4 symbols = 50;
    for (ub4 rows : {0u, 1u, 7u, 8u, 9u, 64u, 131u})
        for (ub1 op : {0, 1, 2, 3, 4, 5, 6, 255})
            for (int tables = 0; tables < 4; tables++)
                for (ub4 start : {0u, 4u, 8u, rows, rows + 3}) {
                    guarded table[2] = {guarded(symbols * 4), guarded(symbols * 4)};
                    guarded codes[2] = {guarded(rows * 4), guarded(rows * 4)};
                    for (int side : {0, 1}) {
                        for (ub4 i = 0; i < symbols; i++) // order is unsigned
                            table[side].as<ub4>()[i] = static_cast<ub4>(rng() % 3) + (rng() % 2 ? 0xfffffff0 : 0);
                        for (ub4 r = 0; r < rows; r++)
                            codes[side].as<ub4>()[r] = static_cast<ub4>(rng() % symbols);
                    }
                    tavo_vec left{}, right{}, left_table{}, right_table{}, op_vec{}, res{};
                    left.data = codes[0].data();
                    right.data = codes[1].data();
                    left.size = right.size = rows;
                    left_table.data = table[0].data();
                    right_table.data = table[1].data();
                    op_vec.data = &op;
                    guarded words((rows + 63) / 64 * 8);
                    std::vector<ub8> expected(words.size() / 8);
                    for (ub8 &word : expected)
                        word = rng() & rng() & rng();
                    std::memcpy(words.data(), expected.data(), words.size());
                    res.bits = words.as<ub8>();
                    tavo_env env{};
                    env.resume_row = start;
                    ub4 count = 0;
                    const ub4 n = rows > start ? rows - start : 0;
                    for (ub4 i = 0; i < n; i++) {
                        const std::size_t byte = i < n / 8 * 8 ? 4 * i + start : 4 * i;
                        ub4 code[2];
                        for (int side : {0, 1}) {
                            std::memcpy(&code[side], codes[side].data() + byte, 4);
                            if (tables >> side & 1)
                                code[side] = table[side].as<ub4>()[code[side]];
                        }
                        if (compares(op, code[0], code[1])) {
                            expected[i / 64] |= 1ull << i % 64;
                            count++;
                        }
                    }
                    EXPECT_EQ(tavo_global_specialized_ctx.lookup_and_compare(
                                  &res, &left, &right, tables & 1 ? &left_table : nullptr,
                                  tables & 2 ? &right_table : nullptr, &op_vec, &env),
                              TAVO_DONE);
                    ASSERT_EQ(std::vector<ub8>(res.bits, res.bits + expected.size()), expected)
                        << "operator " << int{op} << " rows " << rows << " from " << start << " tables " << tables;
                    ASSERT_EQ(res.count, count);
                }
}

} // namespace
} // namespace tavo::test
