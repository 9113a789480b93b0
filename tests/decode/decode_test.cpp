// Codes to symbol references against the plain reading, at every width: both dictionary forms, all rows and lists.
#include <gtest/gtest.h>
#include <sys/mman.h>

#include "tests/decode/packed_column.h"

namespace tavo::test {
namespace {

constexpr ub2 untouched = 0xa5a5;

// The references of one call, in arrays of exactly that many elements.
struct reference_output {
    explicit reference_output(std::size_t rows) : address(rows * 8), length(rows * 2), indicator(rows * 2) {
        dst.data = address.data();
        dst.lengths = length.as<ub2>();
        dst.indicators = indicator.as<ub2>();
    }
    guarded address, length, indicator;
    tavo_vec dst{};
};

// Codes small enough for a cumulative length array; symbols of 0 to 4 bytes, one of 65536 and one longer than that.
struct dictionary {
    static constexpr ub8 address = 0x7f00'0000'1234;
    static constexpr ub4 symbols = 70000;

    dictionary() : cla(symbols + 1) {
        ub4 end = 0;
        for (ub4 c = 0; c <= symbols; c++) {
            cla[c] = __builtin_bswap32(end);
            end += c == 3 ? 65536 : c == 6 ? 65538 : c * 2654435761u >> 29 & 3;
        }
    }
    ub4 start(ub4 code) const { return __builtin_bswap32(cla[code]); }
    std::vector<ub4> cla;
};

std::vector<ub8> dictionary_codes(ub4 rows, unsigned width, std::mt19937_64 &rng) {
    std::vector<ub8> codes = random_codes(rows, width, rng);
    for (ub8 &code : codes)
        if (code >= dictionary::symbols)
            code = rng() % dictionary::symbols;
    return codes;
}

TEST(decode, references) {
    std::mt19937_64 rng(431);
    const dictionary dict;
    ub2 length = __builtin_bswap16(517);
    for (unsigned width : decode_widths())
        for (ub4 rows : boundary_sizes())
            for (bool cla : {false, true})
                for (bool listed : {false, true}) {
                    packed_column column(width,
                                         cla ? dictionary_codes(rows, width, rng) : random_codes(rows, width, rng),
                                         code_slack(width));
                    std::vector<ub4> list;
                    for (ub4 row = 0; row < rows; row++)
                        if (!listed || rng() % 3 == 0)
                            list.push_back(row);
                    if (list.empty())
                        continue;
                    const guarded cla_bytes = guarded_copy(dict.cla), list_bytes = guarded_copy(list);
                    column.enc.symbols = dictionary::address;
                    column.enc.dict_kind = cla ? TAVO_DICT_CLA : TAVO_DICT_ONE_LEN;
                    column.enc.symbol_len = &length;
                    column.enc.cla = cla_bytes.as<ub4>();
                    const reference_output out(list.size());
                    tavo_vec dst = out.dst;
                    tavo_env env{};
                    env.ones_vec = listed ? list_bytes.as<ub4>() : nullptr;
                    const ub4 cleared = listed ? static_cast<ub4>(list.size()) : rows / 2;
                    env.ones_vec_size = cleared;
                    const std::string what = column.name(TAVO_OP_DECODE) + (cla ? ", cla, " : ", one length, ") +
                                             std::to_string(list.size()) + (listed ? " listed rows" : " rows");
                    ASSERT_EQ(column.call(TAVO_OP_DECODE, &dst, &env), TAVO_DONE) << what;
                    EXPECT_EQ(dst.count, list.size()) << what;
                    EXPECT_EQ(env.resume_row, list.back()) << what; // the last row, not the one behind it
                    EXPECT_EQ(env.result_flags, TAVO_RESULT_DECODE_SELECTED) << what;
                    for (ub4 i = 0; i < list.size(); i++) {
                        const auto code = static_cast<ub4>(column.codes[list[i]]);
                        const ub8 address = dictionary::address + (cla ? dict.start(code) : code * 517ull);
                        const auto symbol_length =
                            static_cast<ub2>(cla ? dict.start(code + 1) - dict.start(code) : 517);
                        const ub2 indicator = cla && symbol_length == 0 ? 2 : i < cleared ? 0 : untouched;
                        ASSERT_EQ(out.address.as<ub8>()[i], address) << what << ", row " << list[i];
                        ASSERT_EQ(out.length.as<ub2>()[i], symbol_length) << what << ", row " << list[i];
                        ASSERT_EQ(out.indicator.as<ub2>()[i], indicator) << what << ", row " << list[i];
                    }
                }
}

TEST(decode, length_zero_is_null_everywhere) {
    for (unsigned width : decode_widths()) {
        packed_column column(width, {1, 1}, code_slack(width));
        column.enc.flags |= TAVO_SPAK; // with no slot to look into: the prologue doesn't run
        column.src.data = nullptr;
        ub2 length = 0;
        column.enc.symbol_len = &length;
        const reference_output out(3);
        tavo_vec dst = out.dst;
        ub4 list[3] = {4, 9, 1000};
        tavo_env env{};
        env.ones_vec = list;
        env.ones_vec_size = 3;
        ASSERT_EQ(column.call(TAVO_OP_DECODE, &dst, &env), TAVO_DONE);
        EXPECT_EQ(dst.count, 3u);
        EXPECT_EQ(env.resume_row, 1000u);
        for (int i = 0; i < 3; i++) {
            EXPECT_EQ(out.address.as<ub8>()[i], 0xa5a5a5a5a5a5a5a5ull);
            EXPECT_EQ(out.length.as<ub2>()[i], 0);
            EXPECT_EQ(out.indicator.as<ub2>()[i], 2);
        }
    }
}

TEST(decode, unknown_dictionary_touches_nothing) {
    for (unsigned width : decode_widths()) {
        packed_column column(width, {1, 1}, code_slack(width));
        column.enc.dict_kind = 2;
        tavo_vec dst{};
        tavo_env env{};
        env.ones_vec_size = 2;
        EXPECT_EQ(column.call(TAVO_OP_DECODE, &dst, &env), TAVO_BAD_INPUT);
        EXPECT_EQ(env.result_flags, 0);
    }
}

// The code position of a listed row is a 32-bit number of bits; an empty list names the entry before it.
TEST(decode, odd_ends_of_lists) {
    for (unsigned width : {1u, 12u, 20u}) {
        std::vector<ub8> codes(100, 0);
        codes[0] = 1;
        packed_column column(width, codes, code_slack(width));
        ub2 length = __builtin_bswap16(10);
        column.enc.symbol_len = &length;
        const reference_output out(1);
        tavo_vec dst = out.dst;
        // The lowest row whose position, wrapped, is that of row 0 or within the codes.
        const auto row = static_cast<ub4>((1ull << 32) / width + (((1ull << 32) % width) != 0));
        ub4 list[2] = {row, 5};
        tavo_env env{};
        env.ones_vec = list;
        env.ones_vec_size = 1;
        if (width != 1) {
            const ub8 bit = static_cast<ub4>(row * width);
            ub8 expected = 0;
            for (unsigned i = 0; i < width; i++)
                expected = expected << 1 | (column.stream.data()[(bit + i) / 8] >> (7 - (bit + i) % 8) & 1);
            column.call(TAVO_OP_DECODE, &dst, &env);
            EXPECT_EQ(*out.address.as<ub8>(), expected * 10) << width;
        }
        env.ones_vec = list + 1;
        env.ones_vec_size = 0;
        column.call(TAVO_OP_DECODE, &dst, &env);
        EXPECT_EQ(env.resume_row, row);
        EXPECT_EQ(dst.count, 0u);
    }
}

// Codes of whole bytes are read by row number, however far down the column a listed row stands.
TEST(decode, listed_rows_of_whole_bytes_do_not_wrap) {
    for (unsigned width : {8u, 16u, 24u, 32u}) {
        packed_column column(width, {0, 0}, code_slack(width));
        const ub4 row = static_cast<ub4>((1ull << 32) / width) + 5;
        const std::size_t bytes = (std::size_t{row} + 2) * width / 8;
        void *codes = mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
        ASSERT_NE(codes, MAP_FAILED);
        static_cast<ub1 *>(codes)[(std::size_t{row} + 1) * width / 8 - 1] = 77; // the code's last byte
        ub2 length = __builtin_bswap16(10);
        column.enc.symbol_len = &length;
        column.src.data = codes;
        column.src.size = row + 1;
        const reference_output out(1);
        tavo_vec dst = out.dst;
        ub4 list[1] = {row};
        tavo_env env{};
        env.ones_vec = list;
        env.ones_vec_size = 1;
        env.result_flags = 0x82;
        column.call(TAVO_OP_DECODE, &dst, &env);
        EXPECT_EQ(*out.address.as<ub8>(), 770u) << width;
        EXPECT_EQ(env.result_flags, 0x82 | TAVO_RESULT_DECODE_SELECTED);
        munmap(codes, bytes);
    }
}

} // namespace
} // namespace tavo::test
