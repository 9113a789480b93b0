// Front-coded dictionaries: written block by block, expanded, compared with what was written.
#include <gtest/gtest.h>

#include <cstring>
#include <random>

#include "frame/tavo.h"
#include "tests/kit/guarded.h"
#include "tests/kit/host_stub.h"
#include "tests/kit/spak_stream.h"

namespace tavo::test {
namespace {

struct front_coded {
    // Prefix lengths of the blocks: `prefix`, or random ones where that is negative.
    front_coded(unsigned w, ub4 count, int prefix, std::mt19937_64 &rng) {
        for (ub4 first = 0; first < count; first += 16) {
            const auto k = static_cast<unsigned>(prefix < 0 ? static_cast<int>(rng() % (w + 1)) : prefix);
            std::vector<ub1> shared(k);
            for (ub1 &b : shared)
                b = static_cast<ub1>(rng());
            stream.push_back(static_cast<ub1>(k));
            stream.insert(stream.end(), shared.begin(), shared.end());
            for (ub4 i = first; i < std::min(count, first + 16); i++) {
                symbols.insert(symbols.end(), shared.begin(), shared.end());
                for (unsigned b = k; b < w; b++) {
                    symbols.push_back(static_cast<ub1>(rng()));
                    stream.push_back(symbols.back());
                }
            }
        }
        enc.prefix_block = 16;
        enc.prefix_len = static_cast<sb2>(w);
        enc.prefix_count = count;
        src.enc = &enc;
        src.size = (count + 15) / 16;
    }
    std::vector<ub1> stream, symbols;
    tavo_enc_ctx enc{};
    tavo_vec src{};
};

ub4 prefix_decode(tavo_vec *dst, tavo_vec *src, tavo_env *env) {
    return tavo_global_specialized_ctx.prefix_decode(dst, src, env);
}

// Output, records and stream end at unreadable pages: neither is overrun by a byte.
TEST(prefix_decode, every_length_prefix_and_count) {
    std::mt19937_64 rng(451);
    for (unsigned w = 1; w <= 8; w++)
        for (int prefix = -1; prefix <= static_cast<int>(w); prefix++)
            for (ub4 count : {0u, 1u, 2u, 15u, 16u, 17u, 31u, 32u, 33u, 47u, 49u, 64u, 65u, 1000u}) {
                front_coded f(w, count, prefix, rng);
                const guarded stream(f.stream), out(f.symbols.size());
                for (bool with_refs : {false, true}) {
                    const std::string what = std::to_string(count) + " symbols of " + std::to_string(w) + ", prefix " +
                                             std::to_string(prefix);
                    const guarded refs(count * std::size_t{16});
                    tavo_env env{};
                    env.symbol_refs = with_refs ? refs.data() : nullptr;
                    f.src.data = stream.data();
                    tavo_vec dst{};
                    dst.data = out.data();
                    std::memset(out.data(), 0xee, out.size());
                    ASSERT_EQ(prefix_decode(&dst, &f.src, with_refs || count % 2 ? &env : nullptr), TAVO_DONE) << what;
                    ASSERT_TRUE(std::equal(f.symbols.begin(), f.symbols.end(), out.data())) << what;
                    for (ub4 i = 0; with_refs && i < count; i++) {
                        const ub8 expected[2] = {reinterpret_cast<ub8>(out.data()) + i * w, w};
                        ASSERT_EQ(std::memcmp(refs.data() + 16 * i, expected, 16), 0) << what << ", record " << i;
                    }
                }
            }
}

// A compressed stream is decompressed first, under this operation's name.
TEST(prefix_decode, compressed_stream) {
    std::mt19937_64 rng(452);
    front_coded f(5, 40, 2, rng);
    const std::vector<ub1> compressed = spak_of(f.stream).bytes();
    host_stub host;
    void *slot = nullptr;
    f.enc.flags = TAVO_SPAK;
    f.src.data = const_cast<ub1 *>(compressed.data());
    f.src.decomp_slot = &slot;
    f.src.decomp_size = static_cast<ub4>(f.stream.size());
    const guarded out(f.symbols.size());
    tavo_vec dst{};
    dst.data = out.data();
    tavo_env env{};
    env.host = host.record();
    EXPECT_EQ(prefix_decode(&dst, &f.src, &env), TAVO_DONE);
    EXPECT_EQ(std::memcmp(out.data(), f.symbols.data(), f.symbols.size()), 0);
    ASSERT_EQ(host.allocations.size(), 1u);
    EXPECT_EQ(host.allocations[0].label, "tavo_prefix_decode_dydi: vec1_decomp");
}

TEST(prefix_decode, refused) {
    std::mt19937_64 rng(452);
    tavo_vec dst{};
    for (int w : {-1, 0, 9, 100}) {
        front_coded f(4, 32, 2, rng);
        f.enc.prefix_len = static_cast<sb2>(w);
        EXPECT_EQ(prefix_decode(&dst, &f.src, nullptr), TAVO_BAD_INPUT);
    }
    for (int block : {0, 15, 17, 32}) {
        front_coded f(4, 32, 2, rng);
        f.enc.prefix_block = static_cast<ub1>(block);
        EXPECT_EQ(prefix_decode(&dst, &f.src, nullptr), TAVO_BAD_INPUT);
    }
}

} // namespace
} // namespace tavo::test
