#include "host/column/table.h"

#include <gtest/gtest.h>
#include <random>

#include "host/column/packing.h"
#include "host/error.h"
#include "tests/kit/codes.h"

namespace {

host::block<ub4> block_of(const std::vector<ub4> &codes) {
    host::block<ub4> block;
    block.append(codes.data(), codes.size());
    return block;
}

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
        for (std::size_t n : {0, 1, 7, 8, 9, 1001, 1100000}) { // the last one is memory of its own
            std::vector<ub8> codes8 = tavo::test::random_codes(n, width, rng);
            const std::vector<ub4> codes(codes8.begin(), codes8.end());
            const host::block<ub1> packed = host::pack(codes, width);
            const ub8 bytes = host::packed_bytes(n, width);
            ASSERT_EQ(packed.size(), bytes + host::readable_behind);
            // The kit fills the spare bits of the last byte with noise, so that byte is compared code by code.
            std::vector<ub1> expected = tavo::test::pack_codes(codes8, width);
            if (const unsigned spare = bytes * 8 - n * width; spare > 0)
                expected.back() &= static_cast<ub1>(0xff << spare);
            EXPECT_EQ(std::vector<ub1>(packed.begin(), packed.begin() + static_cast<std::ptrdiff_t>(bytes)), expected)
                << width;
            const host::block<ub1> in_place = host::pack_in_place(block_of(codes), width);
            EXPECT_TRUE(std::equal(in_place.begin(), in_place.end(), packed.begin(), packed.end())) << width;
        }
    }
}

host::dictionary letters(unsigned n) {
    std::vector<std::string> symbols;
    for (unsigned i = 0; i < n; i++)
        symbols.push_back(std::string(1, static_cast<char>('a' + i)));
    return {{}, false, host::symbol_table("x", symbols)};
}

TEST(Column, RunLengthFormWhereItPays) {
    std::mt19937_64 rng(2);
    for (const ub4 longest : {1u, 20u, 255u, 256u, 70000u, 200000u}) {
        std::vector<ub4> codes;
        while (codes.size() < 300000)
            codes.insert(codes.end(), 1 + rng() % longest, static_cast<ub4>(rng() % 5));
        host::column col("x", letters(5), block_of(codes));
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

TEST(Column, CompressedFormWhereItPays) {
    // Symbols that are made from pieces of rising codes fit these pieces and nothing else.
    std::vector<ub4> rising(1 << 20), skewed(1 << 18);
    for (ub4 i = 0; i < rising.size(); i++)
        rising[i] = i;
    std::vector<std::string> symbols;
    for (ub4 i = 0; i < rising.size() + 1; i++)
        symbols.push_back(std::to_string(10000000 + i));
    const host::column keys("x", {{}, false, host::symbol_table("x", symbols)}, block_of(rising));
    EXPECT_EQ(keys.width(), 24u);
    EXPECT_LE(keys.encoded_bytes() * 4, keys.plain_bytes() * (keys.form() == host::column_form::plain ? 4 : 3));
    std::mt19937_64 rng(3);
    for (ub4 &code : skewed)
        code = rng() % 8 == 0 ? static_cast<ub4>(rng() % 5) : 0;
    const host::column mostly_zero("x", letters(5), block_of(skewed));
    EXPECT_EQ(mostly_zero.form(), host::column_form::spak);
    EXPECT_LE(mostly_zero.encoded_bytes() * 4, mostly_zero.plain_bytes() * 3);
}

std::vector<std::string> symbols_of(const host::table &table, std::size_t column) {
    std::vector<std::string> symbols;
    for (ub8 code = 0; code < table.encoded(column)->dict().end_code(); code++)
        symbols.push_back(table.encoded(column)->dict().symbols()[code]);
    return symbols;
}

TEST(Table, TypesAndNulls) {
    const host::csv_file file("t.csv", "i,d,t,e\n1,1.5,x,\n,2,\"\"\"q\"\"\",\n2, NA,x,\n");
    host::read_options options;
    options.null_texts = {"NA"};
    const host::table table(file, {0, 1, 2, 3}, options);
    EXPECT_EQ(table.rows(), 3u);
    EXPECT_EQ(symbols_of(table, 0), (std::vector<std::string>{"", "1", "2"}));
    EXPECT_EQ(table.encoded(0)->dict().type(), host::value_type::integer);
    EXPECT_EQ(table.encoded(1)->dict().type(), host::value_type::decimal);
    EXPECT_TRUE(table.encoded(1)->dict().has_null());
    EXPECT_EQ(symbols_of(table, 2), (std::vector<std::string>{"\"q\"", "x"}));
    EXPECT_EQ(symbols_of(table, 3), (std::vector<std::string>{""})) << "nothing but nulls";

    const host::csv_file bare("t.csv", "a,b\n");
    const host::table none(bare, {0, 1}, {});
    EXPECT_EQ(none.rows(), 0u);
    EXPECT_EQ(none.encoded(1)->dict().end_code(), 0u);
    options.type_of["t"] = host::value_type::integer;
    EXPECT_THROW(host::table(file, {0, 2}, options), host::error);
    options.type_of["t"] = host::value_type::text;
    EXPECT_TRUE(host::table(file, {0, 2}, options).encoded(2)->dict().found().declared());
}

} // namespace
