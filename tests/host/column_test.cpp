#include "host/column/column.h"

#include <gtest/gtest.h>
#include <random>

#include "host/column/packing.h"
#include "host/error.h"
#include "tests/kit/codes.h"

namespace {

TEST(Packing, NarrowestWidth) {
    EXPECT_EQ(host::width_for(0), 1u);
    EXPECT_EQ(host::width_for(1), 1u);
    for (unsigned width = 2; width <= 20; width++) {
        EXPECT_EQ(host::width_for((1ull << width) - 1), width);
        EXPECT_EQ(host::width_for(1ull << (width - 1)), width);
    }
    EXPECT_EQ(host::width_for(1u << 20), 24u);
    EXPECT_EQ(host::width_for(1u << 24), 32u);
    EXPECT_EQ(host::width_for(0xffffffff), 32u);
}

TEST(Packing, MostSignificantBitFirst) {
    std::mt19937_64 rng(1);
    for (unsigned width : tavo::test::code_widths()) {
        if (width == 64)
            continue;
        for (std::size_t n : {0, 1, 7, 8, 9, 1001}) {
            std::vector<ub8> codes8 = tavo::test::random_codes(n, width, rng);
            const std::vector<ub4> codes(codes8.begin(), codes8.end());
            const std::vector<ub1> packed = host::pack(codes, width);
            const ub8 bytes = host::packed_bytes(n, width);
            ASSERT_EQ(packed.size(), bytes + host::readable_behind);
            // The kit fills the spare bits of the last byte with noise, so that byte is compared code by code.
            std::vector<ub1> expected = tavo::test::pack_codes(codes8, width);
            if (const unsigned spare = bytes * 8 - n * width; spare > 0)
                expected.back() &= static_cast<ub1>(0xff << spare);
            EXPECT_EQ(std::vector<ub1>(packed.begin(), packed.begin() + static_cast<std::ptrdiff_t>(bytes)), expected)
                << width;
        }
    }
}

host::dictionary letters(unsigned n) {
    std::vector<std::string> symbols;
    for (unsigned i = 0; i < n; i++)
        symbols.push_back(std::string(1, static_cast<char>('a' + i)));
    return {host::value_type::text, false, symbols};
}

TEST(Column, RunLengthFormWhereItPays) {
    std::mt19937_64 rng(2);
    for (const ub4 longest : {1u, 20u, 255u, 256u, 70000u, 200000u}) {
        std::vector<ub4> codes;
        while (codes.size() < 300000)
            codes.insert(codes.end(), 1 + rng() % longest, static_cast<ub4>(rng() % 5));
        host::column col("x", letters(5), codes);
        EXPECT_EQ(col.form(), longest == 1 ? host::column_form::plain : host::column_form::rle) << longest;
        EXPECT_LE(col.encoded_bytes(), col.plain_bytes());
        if (col.form() != host::column_form::rle)
            continue;
        // The runs must be the rows again.
        const tavo_enc_ctx &enc = *col.vec()->enc;
        EXPECT_EQ(enc.run_entry_bits, longest <= 256 ? 8 : 16) << longest;
        EXPECT_EQ(col.encoded_bytes(), host::packed_bytes(enc.run_count, 3) + enc.run_count * enc.run_entry_bits / 8);
        const auto *table = static_cast<const ub1 *>(enc.run_table);
        const auto *data = static_cast<const ub1 *>(col.vec()->data);
        std::vector<ub4> back;
        for (ub4 run = 0; run < enc.run_count; run++) {
            ub4 code = 0;
            for (ub4 bit = run * 3; bit < run * 3 + 3; bit++)
                code = code << 1 | (data[bit / 8] >> (7 - bit % 8) & 1);
            const ub4 rows = enc.run_entry_bits == 8 ? table[run] : table[2 * run] * 256u + table[2 * run + 1];
            EXPECT_GT(rows, 0u);
            back.insert(back.end(), rows, code);
        }
        EXPECT_EQ(back, codes) << longest;
    }
}

TEST(Table, TypesAndNulls) {
    const host::csv_file file("t.csv", "i,d,t,e\n1,1.5,x,\n,2,\"\"\"q\"\"\",\n2,NA,x,\n");
    host::read_options options;
    options.null_texts = {"NA"};
    const host::table table(file, {0, 1, 2, 3}, options);
    EXPECT_EQ(table.rows(), 3u);
    EXPECT_EQ(table.encoded(0)->dict().symbols(), (std::vector<std::string>{"", "1", "2"}));
    EXPECT_EQ(table.encoded(0)->dict().type(), host::value_type::integer);
    EXPECT_EQ(table.encoded(1)->dict().type(), host::value_type::decimal);
    EXPECT_TRUE(table.encoded(1)->dict().has_null());
    EXPECT_EQ(table.encoded(2)->dict().symbols(), (std::vector<std::string>{"\"q\"", "x"}));
    EXPECT_EQ(table.encoded(3)->dict().symbols(), (std::vector<std::string>{""})) << "nothing but nulls";
    EXPECT_THROW(host::table(host::csv_file("t.csv", "a,b\n"), {0}, {}), host::error);
}

} // namespace
