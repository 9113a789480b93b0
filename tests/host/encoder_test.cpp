// What the encoders make, turned back by the library.
#include <cstring>
#include <gtest/gtest.h>
#include <random>
#include <sys/mman.h>

#include "host/column/packing.h"
#include "host/column/spak_encoder.h"
#include "host/column/symbol_table.h"
#include "host/error.h"
#include "host/link/callbacks.h"

namespace {

const host::library &loaded() {
    static const host::library library(TAVO_LIBRARY_PATH);
    return library;
}

// Decodes into a buffer that ends at an unreadable page.
void expect_round_trip(const std::vector<ub1> &plain, const char *what) {
    const host::spak_dictionary dictionary = host::spak_train(plain);
    const host::spak_stream stream = host::spak_encode(plain, dictionary);
    ASSERT_EQ(stream.bytes.size(), stream.size + host::readable_behind) << what;
    const std::size_t page = 4096, pages = (plain.size() + page - 1) / page + 1;
    auto *map =
        static_cast<ub1 *>(mmap(nullptr, pages * page, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
    ASSERT_NE(map, MAP_FAILED);
    mprotect(map + (pages - 1) * page, page, PROT_NONE);
    ub1 *dst = map + (pages - 1) * page - plain.size();

    host::session session(loaded());
    tavo_host *record = session.record();
    tavo_spak_ctx ctx{record->handle, record->heap, record->temp_allocate, record->temp_release, 0};
    ub4 length = 0;
    EXPECT_EQ(loaded().ctx().spak_decode(&ctx, stream.bytes.data(), dst, &length, static_cast<ub4>(plain.size())),
              TAVO_DONE)
        << what;
    EXPECT_EQ(length, plain.size()) << what;
    EXPECT_TRUE(plain.empty() || std::memcmp(dst, plain.data(), plain.size()) == 0) << what;
    munmap(map, pages * page);

    // The encoder's promises: no symbol above eight bytes, no codes that only the end of a stream could have.
    EXPECT_GE(dictionary.symbols.size(), 5u);
    EXPECT_LE(dictionary.symbols.size(), 1024u);
}

TEST(Spak, RoundTrips) {
    std::mt19937_64 rng(41);
    expect_round_trip({}, "nothing");
    expect_round_trip({7}, "one byte");
    for (const std::size_t size : {2, 31, 32, 33, 63, 64, 65, 500, 40000, 300000}) {
        std::vector<ub1> plain(size);
        expect_round_trip(plain, "zeros");
        for (auto &byte : plain)
            byte = static_cast<ub1>(rng());
        expect_round_trip(plain, "noise");
        for (auto &byte : plain)
            byte = static_cast<ub1>(rng() % 3 * 100);
        expect_round_trip(plain, "three values");
        for (auto &byte : plain)
            byte = static_cast<ub1>("the quick brown fox"[rng() % 19 * (rng() % 4 != 0)]);
        expect_round_trip(plain, "letters");
        for (std::size_t i = 0; i < size; i++)
            plain[i] = static_cast<ub1>(i / 1000 + i % 3);
        expect_round_trip(plain, "slow change");
        std::vector<ub4> codes(size);
        for (auto &code : codes)
            code = static_cast<ub4>(rng() % 40 == 0 ? rng() % 4096 : rng() % 5);
        const host::block<ub1> packed = host::pack(codes, 12);
        expect_round_trip({packed.begin(), packed.end()}, "packed codes");
    }
}

TEST(Spak, RepetitionShrinks) {
    std::vector<ub1> plain;
    for (unsigned i = 0; i < 20000; i++)
        for (const char c : std::string(i % 7 == 0 ? "abcdefgh" : "0123"))
            plain.push_back(static_cast<ub1>(c));
    const host::spak_dictionary dictionary = host::spak_train(plain);
    const host::spak_stream stream = host::spak_encode(plain, dictionary);
    EXPECT_LT(stream.size * 8, plain.size());
    EXPECT_NEAR(static_cast<double>(dictionary.expected_bytes), static_cast<double>(stream.size), stream.size * 0.2);
}

TEST(FrontCoding, RoundTrips) {
    std::mt19937_64 rng(44);
    for (std::size_t length = 1; length <= 8; length++)
        for (const std::size_t count : {1, 15, 16, 17, 32, 33, 1000}) {
            std::vector<std::string> symbols;
            for (std::size_t i = 0; i < count; i++) {
                std::string symbol = "aaaaaaaa";
                for (std::size_t at = 0; at < 3; at++)
                    symbol[rng() % 8 * (rng() % 3 == 0)] = static_cast<char>('a' + rng() % 4);
                symbols.push_back(symbol.substr(8 - length));
            }
            std::sort(symbols.begin(), symbols.end());
            std::string expected;
            for (const auto &symbol : symbols)
                expected += symbol;
            host::block<ub1> blocks =
                host::front_code({reinterpret_cast<const ub1 *>(expected.data()), expected.size()}, length);
            blocks.resize(blocks.size() + host::readable_behind);
            tavo_enc_ctx enc{};
            enc.prefix_block = 16;
            enc.prefix_len = static_cast<sb2>(length);
            enc.prefix_count = static_cast<ub4>(count);
            std::vector<ub1> out(length * count);
            tavo_vec src{}, dst{};
            src.data = blocks.data();
            src.enc = &enc;
            src.size = static_cast<ub4>((count + 15) / 16);
            dst.data = out.data();
            ASSERT_EQ(loaded().ctx().prefix_decode(&dst, &src, nullptr), TAVO_DONE);
            EXPECT_EQ(std::string(out.begin(), out.end()), expected) << length << " bytes, " << count << " symbols";
        }
}

TEST(SymbolTable, Forms) {
    const auto form = [](const std::vector<std::string> &symbols) {
        host::symbol_table table("x", symbols);
        tavo_enc_ctx enc{};
        table.describe(enc);
        EXPECT_EQ(enc.symbol_count, symbols.size());
        for (std::size_t code = 0; code < symbols.size(); code++)
            EXPECT_EQ(table[code], symbols[code]);
        EXPECT_LE(table.held_bytes(), table.plain_bytes());
        EXPECT_EQ(enc.dict_kind, table.one_length() ? TAVO_DICT_ONE_LEN : TAVO_DICT_CLA);
        return std::string(table.front_coded() ? "front " : "") + (table.one_length() ? "one_len" : "cla");
    };
    EXPECT_EQ(form({"ABC", "ABD", "ABE"}), "front one_len");
    std::vector<std::string> numbers;
    for (unsigned i = 0; i < 1000; i++)
        numbers.push_back(std::to_string(100000 + i * 7));
    EXPECT_EQ(form(numbers), "front one_len");
    EXPECT_EQ(form({"ABC", "XYZ"}), "one_len") << "nothing shared";
    EXPECT_EQ(form({"", "ABC", "ABD"}), "cla") << "the null symbol is empty";
    EXPECT_EQ(form({""}), "one_len") << "nothing but nulls";
    EXPECT_EQ(form({"123456789", "123456780"}), "one_len") << "too long for front coding";
    EXPECT_NO_THROW(form({std::string(65535, 'x'), "y"}));
    EXPECT_THROW(form({std::string(65536, 'x'), "y"}), host::error);
}

} // namespace
