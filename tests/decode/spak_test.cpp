// Decompression: what a stream's symbols come to, whatever its shape; nothing outside the promised memory; the head's
// checks; scratch.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <functional>
#include <random>
#include <string>

#include "frame/dispatch_table.h"
#include "frame/tavo.h"
#include "frame/tavo_status.h"
#include "tests/kit/codes.h"
#include "tests/kit/guarded.h"
#include "tests/kit/host_stub.h"
#include "tests/kit/spak_stream.h"

namespace tavo::test {
namespace {

constexpr ub4 untouched = 0xdeadbeef;

tavo_spak_ctx context_of(host_stub &host) {
    const tavo_host *h = host.record();
    return {h->handle, h->heap, h->temp_allocate, h->temp_release, 0};
}

struct decoded {
    ub4 status;
    ub4 length = untouched;
    std::vector<ub1> bytes;
    host_stub host;

    // Decodes from memory that ends with the `stream`, into memory of `room` bytes that ends at an unreadable page.
    decoded(const std::vector<ub1> &stream, ub4 capacity, std::size_t room) {
        const guarded src{std::span<const ub1>(stream)}, dst(room);
        tavo_spak_ctx ctx = context_of(host);
        status = tavo_global_specialized_ctx.spak_decode(&ctx, src.data(), dst.data(), &length, capacity);
        bytes.assign(dst.data(), dst.data() + room);
    }
};

// The bytes of a stream with as much behind them as a decoder may read: 8 bytes from the start of the last symbol, and
// one byte behind codes that are not whole bytes.
std::vector<ub1> readable(const spak_stream &s, std::vector<ub1> bytes) {
    std::size_t size = bytes.size() + (s.codes.empty() || s.width() % 8 == 0 ? 0 : 1);
    if (s.aux_count <= 0) {
        const std::size_t code_bytes = (s.codes.size() * s.width() + 7) / 8;
        size = std::max(size, bytes.size() - code_bytes - 4 - s.symbols.back().size() + 8);
    }
    bytes.resize(size, 0xee);
    return bytes;
}

// In streams of codes below 3 bits only the codes behind the blocks of 32 count; those in a block stand for symbol 0.
spak_stream as_understood(spak_stream s) {
    const std::size_t count = s.codes.size(), blocks = count > 32 ? count / 32 - 1 : 0;
    if (s.width() < 3)
        std::fill_n(s.codes.begin(), blocks * 32, 0);
    return s;
}

spak_stream random_stream(unsigned symbols, std::size_t codes, unsigned shortest, std::mt19937_64 &rng) {
    spak_stream s;
    for (unsigned i = 0; i < symbols; i++) {
        std::vector<ub1> symbol(shortest + rng() % (9 - shortest));
        for (ub1 &byte : symbol)
            byte = static_cast<ub1>(rng());
        s.symbols.push_back(symbol);
    }
    for (ub8 code : random_codes(codes, 32, rng))
        s.codes.push_back(static_cast<ub4>(code % symbols));
    return s;
}

const std::vector<unsigned> symbol_counts = {1,  2,   3,   4,   5,   7,   8,   9,   16,  17,  31,  32,   33,   63,  64,
                                             65, 127, 128, 129, 255, 256, 257, 511, 512, 513, 767, 1000, 1023, 1024};
const std::vector<std::size_t> code_counts = {0, 1, 2, 31, 32, 33, 63, 64, 65, 95, 96, 97, 127, 128, 129, 1000, 5003};

TEST(Spak, DecodesEverySymbolCountAndCodeCountWithinExactMemory) {
    std::mt19937_64 rng(41);
    for (unsigned symbols : symbol_counts)
        for (std::size_t codes : code_counts) {
            SCOPED_TRACE(std::to_string(symbols) + " symbols, " + std::to_string(codes) + " codes");
            const spak_stream s = random_stream(symbols, codes, 1, rng);
            const std::vector<ub1> want = as_understood(s).decoded();
            const ub4 length = static_cast<ub4>(want.size());
            const decoded d(readable(s, s.bytes(length)), length, length);
            ASSERT_EQ(d.status, TAVO_DONE);
            ASSERT_EQ(d.length, length);
            ASSERT_EQ(d.bytes, want);

            // Scratch: two blocks by the number of symbols, released in the opposite order.
            ASSERT_EQ(d.host.temp_allocations.size(), 2u);
            const auto &lengths = d.host.temp_allocations[0], &slots = d.host.temp_allocations[1];
            EXPECT_EQ(lengths.label, "spak_decode_x86 length_array");
            EXPECT_EQ(lengths.size, symbols + 1);
            EXPECT_EQ(slots.label, "spak_decode_x86: symbol_array");
            EXPECT_EQ(slots.size, 8 * symbols);
            for (const auto *a : {&lengths, &slots}) {
                EXPECT_EQ(a->alignment, 8u);
                EXPECT_EQ(a->unit, 0u);
            }
            EXPECT_EQ(d.host.temp_released, (std::vector<void *>{slots.block(), lengths.block()}));
        }
}

TEST(Spak, EmptySymbolsEmitNothing) {
    std::mt19937_64 rng(42);
    for (unsigned symbols : symbol_counts)
        for (std::size_t codes : code_counts) {
            SCOPED_TRACE(std::to_string(symbols) + " symbols, " + std::to_string(codes) + " codes");
            spak_stream s = random_stream(symbols, codes, 0, rng);
            // Half of the streams end in empty symbols, half of these with any code behind them.
            if (rng() % 2 != 0 && codes > 0) {
                const ub4 last = s.codes.back();
                s.symbols[0].clear();
                std::fill(s.codes.begin() + static_cast<std::ptrdiff_t>(codes / 2), s.codes.end(), 0);
                if (rng() % 2 != 0)
                    s.codes.back() = last;
            }
            const std::vector<ub1> want = as_understood(s).decoded();
            const ub4 length = static_cast<ub4>(want.size());
            const decoded d(readable(s, s.bytes(length)), length, length);
            ASSERT_EQ(d.status, TAVO_DONE);
            ASSERT_EQ(d.bytes, want);
        }
}

// The last 32 codes come to fewer bytes than a store of a block: the blocks have to end before the output does.
TEST(Spak, NothingIsWrittenBehindTheOutputWhateverItsEnd) {
    auto check = [](spak_stream s, const std::vector<ub1> &want) {
        const ub4 length = static_cast<ub4>(want.size());
        const decoded d(readable(s, s.bytes(length)), length, length);
        EXPECT_EQ(d.status, TAVO_DONE);
        EXPECT_EQ(d.bytes, want);
    };
    spak_stream narrow; // one bit a code; those of the block count as 0, the rest is 31 empty symbols and a byte
    narrow.symbols = {{'a'}, {}};
    narrow.codes.assign(64, 1);
    std::fill_n(narrow.codes.begin(), 32, 0);
    narrow.codes.back() = 0;
    check(narrow, std::vector<ub1>(33, 'a'));

    for (unsigned symbols : {5u, 9u, 17u, 33u, 65u, 129u, 257u, 513u})
        for (std::size_t codes : {64u, 96u, 107u})
            for (unsigned bytes = 0; bytes < 10; bytes++) { // behind the first 32 codes, at the end of the stream
                SCOPED_TRACE(std::to_string(symbols) + " symbols, " + std::to_string(codes) + " codes, " +
                             std::to_string(bytes) + " bytes behind the first block");
                spak_stream s;
                s.symbols.assign(symbols, {'a'});
                s.symbols[0].clear();
                s.codes.assign(codes, 0);
                std::fill_n(s.codes.begin(), 32, symbols - 1);
                std::fill_n(s.codes.rbegin(), bytes, symbols - 1);
                check(s, std::vector<ub1>(32 + bytes, 'a'));
            }
}

TEST(Spak, RefusedHeadHasNoEffect) {
    std::mt19937_64 rng(44);
    const spak_stream s = random_stream(20, 50, 1, rng);
    const std::vector<ub1> sound = s.bytes();
    const ub4 raw_length = static_cast<ub4>(s.decoded().size());
    struct spoiled {
        const char *what;
        std::function<void(std::vector<ub1> &)> spoil;
        ub4 capacity;
    };
    const std::vector<spoiled> cases = {
        {"magic, first byte", [](auto &h) { h[0] = 's'; }, raw_length},
        {"magic, last byte", [](auto &h) { h[3] ^= 1; }, raw_length},
        {"format byte", [](auto &h) { h[4] = 1; }, raw_length},
        {"flags bit 1 clear", [](auto &h) { h[5] &= 0xfd; }, raw_length},
        {"flags bit 3 set", [](auto &h) { h[5] |= 0x08; }, raw_length},
        {"flags bit 0 set", [](auto &h) { h[5] |= 0x01; }, raw_length},
        {"capacity one too small", [](auto &) {}, raw_length - 1},
        {"raw length beyond 2^31", [](auto &h) { h[12] = 0xff; }, raw_length},
        {"no symbols", [](auto &h) { h[16] = h[17] = 0; }, raw_length},
        {"1025 symbols", [](auto &h) { h[16] = 4, h[17] = 1; }, raw_length},
        {"65535 symbols", [](auto &h) { h[16] = h[17] = 0xff; }, raw_length},
    };
    for (const auto &[what, spoil, capacity] : cases) {
        std::vector<ub1> head(sound.begin(), sound.begin() + 18); // nothing behind the head is read
        spoil(head);
        const decoded d(head, capacity, raw_length);
        EXPECT_EQ(d.status, TAVO_BAD_INPUT) << what;
        EXPECT_EQ(d.length, untouched) << what;
        EXPECT_EQ(d.bytes, std::vector<ub1>(raw_length, 0xa5)) << what;
        EXPECT_TRUE(d.host.temp_allocations.empty()) << what;
    }

    std::vector<ub1> odd = readable(s, sound);
    odd[5] = 0xf6; // every bit that is ignored
    EXPECT_EQ(decoded(odd, raw_length, raw_length).status, TAVO_DONE);
    EXPECT_EQ(decoded(odd, raw_length + 1, raw_length).status, TAVO_DONE);
    EXPECT_EQ(decoded(odd, 0xffffffff, raw_length).bytes, s.decoded());
}

TEST(Spak, WrongRawLengthIsReportedAfterDecoding) {
    std::mt19937_64 rng(45);
    const spak_stream s = random_stream(300, 200, 1, rng);
    const std::vector<ub1> want = s.decoded();
    for (ub4 claimed : {0u, static_cast<ub4>(want.size()) - 1, static_cast<ub4>(want.size()) + 1}) {
        const decoded d(readable(s, s.bytes(claimed)), static_cast<ub4>(want.size()) + 1, want.size());
        EXPECT_EQ(d.status, TAVO_BAD_INPUT);
        EXPECT_EQ(d.length, want.size());
        EXPECT_EQ(d.bytes, want);
        EXPECT_EQ(d.host.temp_released.size(), 2u);
    }
}

TEST(Spak, AuxiliaryAreasAreSkippedOnlyIfTheirCountIsPositive) {
    std::mt19937_64 rng(46);
    for (int aux_count : {1, 2, 0x7fff, 0, -1, -0x8000})
        for (std::size_t body : {0u, 1u, 5u, 1000u})
            for (unsigned symbols : {1u, 2u, 37u, 200u}) {
                spak_stream s = random_stream(symbols, 150, 3, rng);
                for (auto &symbol : s.symbols)
                    symbol.resize(3); // so that the narrow widths' limit doesn't show in the length
                s.aux_count = static_cast<sb2>(aux_count);
                s.aux_body.assign(body, 0x99);
                const std::vector<ub1> want = as_understood(s).decoded();
                const decoded d(readable(s, s.bytes()), static_cast<ub4>(want.size()), want.size());
                EXPECT_EQ(d.status, TAVO_DONE) << aux_count << " " << body << " " << symbols;
                EXPECT_EQ(d.bytes, want) << aux_count << " " << body << " " << symbols;
            }

    for (std::size_t body : {70000u, 150000u, 20'000'000u}) { // distances of 17, 18 and 25 bits
        spak_stream far = random_stream(37, 150, 1, rng);
        far.aux_count = 1;
        far.aux_body.assign(body, 0x99);
        const std::vector<ub1> want = far.decoded();
        const decoded d(readable(far, far.bytes()), static_cast<ub4>(want.size()), want.size());
        EXPECT_EQ(d.status, TAVO_DONE);
        EXPECT_EQ(d.bytes, want);
    }
}

// An encoder doesn't send long streams of codes below 3 bits: what becomes of one is a limit that is kept.
TEST(Spak, BlocksOfNarrowCodesStandForSymbolZero) {
    for (unsigned symbols : {2u, 3u, 4u}) {
        spak_stream s;
        for (unsigned i = 0; i < symbols; i++)
            s.symbols.push_back({static_cast<ub1>('a' + i)});
        s.codes.assign(63, symbols - 1);
        const std::string last(1, static_cast<char>('a' + symbols - 1));
        auto text = [&](ub4 raw_length, ub4 status) {
            const decoded d(readable(s, s.bytes(raw_length)), 1000, 200);
            EXPECT_EQ(d.status, status);
            return std::string(d.bytes.begin(), d.bytes.begin() + d.length);
        };
        auto times = [](const std::string &t, std::size_t n) {
            std::string out;
            while (n-- > 0)
                out += t;
            return out;
        };
        EXPECT_EQ(text(63, TAVO_DONE), times(last, 63));
        s.codes.push_back(symbols - 1);
        EXPECT_EQ(text(64, TAVO_DONE), times("a", 32) + times(last, 32));
        s.codes.assign(129, symbols - 1);
        EXPECT_EQ(text(129, TAVO_DONE), times("a", 96) + times(last, 33));
        // Symbols of unequal length: the length check reports it.
        s.symbols[symbols - 1] = {'y', 'z'};
        EXPECT_EQ(text(2 * 129, TAVO_BAD_INPUT), times("a", 96) + times("yz", 33));
    }
}

} // namespace
} // namespace tavo::test
