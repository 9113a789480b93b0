// Unpacked codes to symbol references and to copies of the symbols, against the plain reading.
#include <gtest/gtest.h>

#include <cstring>
#include <random>

#include "decode/decode_kernels.h"
#include "tests/decode/packed_column.h"

namespace tavo::test {
namespace {

constexpr ub8 address_of_symbols = 0x5555'0000'0777;
enum class source { own_width, wide, in_order };

struct symbol_case {
    symbol_case(unsigned width, source from, ub4 rows, ub4 symbols, std::mt19937_64 &rng) : width(width), from(from) {
        for (ub4 row = 0; row < rows; row++)
            codes.push_back(from == source::in_order ? row : static_cast<ub4>(rng() % symbols));
        const unsigned bytes = from == source::wide ? 4 : width / 8;
        std::vector<ub1> data(codes.size() * bytes);
        for (std::size_t i = 0; i < codes.size(); i++)
            std::memcpy(&data[i * bytes], &codes[i], bytes);
        memory.emplace_back(data);
        enc.flags = TAVO_DICT | TAVO_SPAK; // of the column that the codes come from
        enc.symbols = address_of_symbols;
        enc.symbol_count = symbols;
        src.enc = &enc;
        src.size = rows;
        src.data = from == source::in_order ? nullptr : memory[0].data();
        env.flags = from == source::wide ? TAVO_ENV_WIDE : 0;
    }
    std::string name() const { return tavo_dispatch_func_names.name[index()]; }
    unsigned index() const { return dispatch_index(TAVO_OP_DECODE_SYMBOL, TAVO_CLASS_DICT, width_code(width), 0); }
    ub4 call(tavo_vec *dst) { return tavo_global_specialized_ctx.dispatch_table[index()].row_move(dst, &src, &env); }

    unsigned width;
    source from;
    std::vector<ub4> codes;
    std::vector<guarded> memory;
    tavo_enc_ctx enc{};
    tavo_vec src{};
    tavo_env env{};
};

// f(width, source, rows, symbols of the dictionary)
template <class F>
void each_case(F &&f) {
    for (unsigned width : {8u, 16u, 32u})
        for (source from : {source::own_width, source::wide, source::in_order})
            for (ub4 rows : {0u, 1u, 15u, 16u, 17u, 31u, 33u, 64u, 100u, 1000u})
                f(width, from, rows, from == source::in_order ? rows + 1 : width == 8 ? 250u : 5000u);
}

TEST(decode_symbol, cumulated_lengths) {
    std::mt19937_64 rng(441);
    each_case([&](unsigned width, source from, ub4 rows, ub4 symbols) {
        symbol_case c(width, from, rows, symbols, rng);
        std::vector<ub4> cla(symbols + 1);
        std::vector<ub4> starts(symbols + 1);
        for (ub4 s = 0, start = 0; s <= symbols; start += s == 4 ? 65536 : s == 6 ? 0x90000000 : rng() % 5, s++) {
            starts[s] = start;
            cla[s] = __builtin_bswap32(start);
        }
        const guarded cla_bytes = guarded_copy(cla);
        c.enc.dict_kind = TAVO_DICT_CLA;
        c.enc.cla = cla_bytes.as<ub4>();
        const guarded address(rows * 8), length(rows * 2), indicator(rows * 2);
        tavo_vec dst{};
        dst.data = address.data();
        dst.lengths = length.as<ub2>();
        dst.indicators = indicator.as<ub2>();
        ASSERT_EQ(c.call(&dst), TAVO_DONE) << c.name();
        EXPECT_EQ(dst.count, rows) << c.name();
        for (ub4 row = 0; row < rows; row++) {
            const ub4 code = c.codes[row];
            const auto l = static_cast<ub2>(starts[code + 1] - starts[code]);
            ASSERT_EQ(address.as<ub8>()[row], address_of_symbols + starts[code]) << c.name() << ", row " << row;
            ASSERT_EQ(length.as<ub2>()[row], l) << c.name() << ", row " << row;
            ASSERT_EQ(indicator.as<ub2>()[row], l == 0 ? 2 : 0) << c.name() << ", row " << row;
        }
    });
}

TEST(decode_symbol, one_length) {
    std::mt19937_64 rng(442);
    each_case([&](unsigned width, source from, ub4 rows, ub4 symbols) {
        for (ub2 symbol_length : {0, 1, 300, 65535})
            for (bool with_indicators : {true, false}) {
                if (symbol_length == 0 && !with_indicators)
                    continue;
                symbol_case c(width, from, rows, symbols, rng);
                if (from == source::own_width && width == 32 && rows != 0) { // codes are unsigned
                    c.codes[rows / 2] = 0xfffffff1;
                    std::memcpy(c.memory[0].data() + rows / 2 * 4, &c.codes[rows / 2], 4);
                }
                ub2 stored_length = __builtin_bswap16(symbol_length);
                c.enc.symbol_len = &stored_length;
                const guarded address(rows * 8), length(rows * 2), indicator(rows * 2);
                tavo_vec dst{};
                dst.data = symbol_length == 0 ? nullptr : address.data();
                dst.lengths = length.as<ub2>();
                dst.indicators = with_indicators ? indicator.as<ub2>() : nullptr;
                ASSERT_EQ(c.call(&dst), TAVO_DONE) << c.name();
                EXPECT_EQ(dst.count, rows) << c.name();
                for (ub4 row = 0; row < rows; row++) {
                    const ub8 symbol = address_of_symbols + static_cast<ub8>(c.codes[row]) * symbol_length;
                    ASSERT_TRUE(symbol_length == 0 || address.as<ub8>()[row] == symbol) << c.name() << ", row " << row;
                    ASSERT_EQ(length.as<ub2>()[row], symbol_length) << c.name() << ", row " << row;
                    ASSERT_TRUE(!with_indicators || indicator.as<ub2>()[row] == (symbol_length == 0 ? 2 : 0))
                        << c.name();
                }
            }
    });
}

TEST(decode_symbol, unknown_dictionary) {
    std::mt19937_64 rng(443);
    for (unsigned width : {8u, 16u, 32u}) {
        symbol_case c(width, source::own_width, 5, 5, rng);
        c.enc.dict_kind = 7;
        tavo_vec dst{};
        EXPECT_EQ(c.call(&dst), TAVO_BAD_INPUT) << c.name();
    }
}

// Symbols copied back to back, and only by the kernel of 32-bit codes.
TEST(decode_symbol, copies) {
    std::mt19937_64 rng(444);
    for (source from : {source::own_width, source::in_order})
        for (ub2 symbol_length : {0, 1, 2, 3, 4, 5, 8, 9, 16, 64, 65})
            for (ub4 symbols : {1u, 2u, 3u, 4u, 5u, 8u, 9u, 16u, 17u, 300u})
                for (ub4 rows : {0u, 1u, 15u, 16u, 31u, 33u, 63u, 64u, 65u, 200u}) {
                    if (from == source::in_order && rows > symbols)
                        continue;
                    symbol_case c(32, from, rows, symbols, rng);
                    std::vector<ub1> bytes(static_cast<std::size_t>(symbols) * symbol_length);
                    for (ub1 &b : bytes)
                        b = static_cast<ub1>(rng());
                    const guarded dictionary = guarded_copy(bytes);
                    ub2 stored_length = __builtin_bswap16(symbol_length);
                    c.enc.symbol_len = &stored_length;
                    c.enc.symbols = reinterpret_cast<ub8>(dictionary.data());
                    if (symbol_length == 1 && rows % 2 == 1)
                        c.enc.symbol_count = 0; // not told
                    c.env.flags2 = TAVO_ENV2_COPY;
                    const guarded out(rows * static_cast<std::size_t>(symbol_length));
                    tavo_vec dst{};
                    dst.data = out.data();
                    const std::string what = std::to_string(rows) + " rows of " + std::to_string(symbols) +
                                             " symbols of " + std::to_string(symbol_length);
                    for (bool directly : {false, true}) {
                        std::memset(out.data(), 0xee, out.size());
                        ASSERT_EQ(directly ? tavo_decode_symbol_dict_32bit_one_len(&dst, &c.src, &c.env) : c.call(&dst),
                                  TAVO_DONE);
                        EXPECT_EQ(dst.count, rows);
                        for (ub4 row = 0; row < rows; row++)
                            for (ub4 i = 0; i < symbol_length; i++)
                                ASSERT_EQ(out.data()[row * symbol_length + i], bytes[c.codes[row] * symbol_length + i])
                                    << what << ", row " << row;
                    }
                }
}

} // namespace
} // namespace tavo::test
