// Bloom filters: every kernel against the plain reading of the rule, with filters, hashes, results and selections that
// end at an unreadable page.
#include <gtest/gtest.h>

#include <random>
#include <string>

#include "frame/tavo.h"
#include "tests/kit/codes.h"
#include "tests/kit/guarded.h"

namespace tavo::test {
namespace {

const tavo_specialized_ctx &lib = tavo_global_specialized_ctx;

// Segments of 2^segment_log2 bits each.
struct filter_case {
    filter_case(unsigned segment_log2, unsigned segments_log2, bool table, double share, std::mt19937_64 &rng) {
        const std::size_t words = ((1ull << segment_log2) + 63) / 64;
        for (unsigned s = 0; s < 1u << segments_log2; s++) {
            segments.emplace_back(words * 8);
            for (std::size_t i = 0; i < words * 64; i++)
                if (static_cast<double>(rng() % 1000) < share * 1000)
                    segments[s].as<ub8>()[i / 64] |= 1ull << i % 64;
                else
                    segments[s].as<ub8>()[i / 64] &= ~(1ull << i % 64);
            addresses.push_back(reinterpret_cast<ub8>(segments[s].data()));
        }
        enc.segmented = table;
        enc.hash_mask = static_cast<ub4>((1ull << (segment_log2 + segments_log2)) - 1);
        enc.bit_mask = static_cast<ub4>((1ull << segment_log2) - 1);
        enc.segment_shift = segment_log2;
        vec.enc = &enc;
        vec.bits = table ? addresses.data() : segments[0].as<ub8>();
    }
    bool bit(ub4 segment, ub4 p) const { return segments[segment].data()[p / 8] >> p % 8 & 1; }
    bool passes(ub4 x, int bits) const {
        const ub4 m = x & enc.hash_mask, p1 = m & enc.bit_mask;
        const ub4 segment = enc.segmented ? m >> enc.segment_shift : 0;
        const ub4 p2 = (p1 & ~63u) | (x >> 26 & enc.hash_mask & enc.bit_mask);
        return bit(segment, p1) && (bits == 1 || bit(segment, p2));
    }

    std::vector<guarded> segments;
    std::vector<ub8> addresses;
    tavo_enc_ctx enc{};
    tavo_vec vec{};
};

constexpr ub8 noise = 0xa5a5a5a5a5a5a5a5; // what a fresh guarded block holds

struct bloom_call {
    bloom_call(unsigned hash_bits, ub4 rows, std::mt19937_64 &rng)
        : hash_memory(rows * (hash_bits / 8ull)), result((rows + 63ull) / 64 * 8), extent(8) {
        for (ub1 &byte : hash_memory.bytes())
            byte = static_cast<ub1>(rng());
        // The swapped value, read from the bytes: of a native ub8, the upper four from the last on.
        for (ub4 row = 0; row < rows; row++) {
            const ub1 *h = hash_memory.data() + row * (hash_bits / 8ull) + (hash_bits == 64 ? 4 : 0);
            x.push_back(static_cast<ub4>(h[0]) << 24 | static_cast<ub4>(h[1]) << 16 | static_cast<ub4>(h[2]) << 8 |
                        h[3]);
        }
        enc.flags = TAVO_HASHES;
        enc.width_bits = hash_bits | 0x100; // the low byte counts
        hashes.enc = &enc;
        hashes.size = rows;
        hashes.data = hash_memory.data();
        res.bits = result.as<ub8>();
        res.data = extent.data();
        res.count = 77;
        res.size = rows;
        env.result_flags = 0x40; // what stands there stays
    }
    guarded hash_memory, result, extent;
    std::vector<ub4> x;
    tavo_enc_ctx enc{};
    tavo_vec hashes{}, res{};
    tavo_env env{};
};

// Dense and thin stretches; noise behind the last row.
guarded random_selection(ub4 rows, std::mt19937_64 &rng) {
    guarded selected((rows + 63ull) / 64 * 8);
    for (ub8 &word : std::span(selected.as<ub8>(), selected.size() / 8))
        word = rng() % 3 == 0 ? rng() : rng() & rng() & rng() & rng();
    return selected;
}

void check(const bloom_call &c, const filter_case &filter, int bits, const std::vector<ub8> *selection, ub4 status,
           const std::string &what) {
    const ub4 rows = c.hashes.size, start = c.env.start_row;
    std::vector<ub8> expected((rows + 63ull) / 64, 0);
    ub4 count = 0, first = ~0u, last = ~0u;
    for (ub4 row = 0; row < rows; row++)
        if (row < start) {
            expected[row / 64] |= noise & 1ull << row % 64;
        } else if ((selection == nullptr || (*selection)[row / 64] >> row % 64 & 1) && filter.passes(c.x[row], bits)) {
            expected[row / 64] |= 1ull << row % 64;
            first = count++ == 0 ? row : first;
            last = row;
        }
    ASSERT_EQ(status, count == 0 ? TAVO_NONE_SELECTED : TAVO_DONE) << what;
    EXPECT_EQ(c.res.count, count) << what;
    EXPECT_EQ(c.extent.as<ub4>()[0], first) << what;
    EXPECT_EQ(c.extent.as<ub4>()[1], last) << what;
    // Words that hold no row from start_row on are not touched.
    for (ub4 w = 0; w < expected.size(); w++)
        ASSERT_EQ(c.result.as<ub8>()[w], (w + 1ull) * 64 <= start || start >= rows ? noise : expected[w])
            << what << ", word " << w;
}

TEST(bloom, every_kernel_against_the_rule) {
    std::mt19937_64 rng(661);
    for (auto [segment_log2, segments_log2, table] : {std::tuple(3u, 0u, false),
                                                      {3u, 2u, true},
                                                      {6u, 0u, true},
                                                      {9u, 0u, false},
                                                      {13u, 0u, false},
                                                      {10u, 3u, true}})
        for (double share : {0.0, 0.02, 0.6}) {
            const filter_case filter(segment_log2, segments_log2, table, share, rng);
            tavo_vec filter_vec = filter.vec;
            for (unsigned hash_bits : {32u, 64u})
                for (ub4 rows : boundary_sizes())
                    for (ub4 start : {0u, 1u, 7u, 64u, 100u, rows, rows + 65})
                        for (int mode : {1, 2, 0})
                            for (bool selective : {false, true}) {
                                bloom_call c(hash_bits, rows, rng);
                                c.env.start_row = start;
                                const std::string what = std::to_string(rows) + " rows of " +
                                                         std::to_string(hash_bits) + " bits from " +
                                                         std::to_string(start) + ", mode " + std::to_string(mode) +
                                                         (selective ? ", selective" : "") + ", segments of 2^" +
                                                         std::to_string(segment_log2);
                                const guarded selected = random_selection(rows, rng);
                                const std::vector<ub8> selection(selected.as<ub8>(),
                                                                 selected.as<ub8>() + selected.size() / 8);
                                if (selective)
                                    c.env.sel_bits = selected.as<ub8>();
                                const ub4 status =
                                    lib.bloom(&c.res, &c.hashes, &filter_vec, &c.env, static_cast<ub1>(mode));
                                check(c, filter, mode == 1 ? 1 : 2, selective ? &selection : nullptr, status, what);
                                EXPECT_EQ(c.env.result_flags, 0x40 | (selective ? TAVO_RESULT_BLOOM_SELECTED : 0))
                                    << what;
                                if (testing::Test::HasFailure())
                                    return;
                            }
        }
}

// A filter after another narrows one bit vector.
TEST(bloom, result_in_the_place_of_the_selection) {
    std::mt19937_64 rng(664);
    const filter_case filter(13, 0, false, 0.6, rng);
    tavo_vec filter_vec = filter.vec;
    for (ub4 rows : {100u, 1000u, 20000u}) {
        bloom_call c(32, rows, rng);
        const guarded selected = random_selection(rows, rng);
        const std::vector<ub8> selection(selected.as<ub8>(), selected.as<ub8>() + selected.size() / 8);
        c.res.bits = c.env.sel_bits = selected.as<ub8>();
        EXPECT_EQ(lib.bloom(&c.res, &c.hashes, &filter_vec, &c.env, 2), TAVO_DONE);
        for (ub4 row = 0; row < rows; row++)
            ASSERT_EQ(c.res.bits[row / 64] >> row % 64 & 1,
                      (selection[row / 64] >> row % 64 & 1) && filter.passes(c.x[row], 2))
                << row;
    }
}

// Hashes of rows that are not selected are not read, wherever they lie.
TEST(bloom, selective_kernels_read_selected_rows_only) {
    std::mt19937_64 rng(662);
    const filter_case filter(12, 0, false, 0.5, rng);
    tavo_vec filter_vec = filter.vec;
    const ub4 rows = 4096 * 4;
    bloom_call c(64, 512, rng);
    c.hashes.data = c.hash_memory.data() - (rows - 512) * 8ull;
    c.hashes.size = rows;
    std::vector<ub8> selection(rows / 64), result(rows / 64, noise);
    for (ub4 row = rows - 512; row < rows; row += 3)
        selection[row / 64] |= 1ull << row % 64;
    c.env.sel_bits = selection.data();
    c.res.bits = result.data();
    EXPECT_EQ(lib.bloom(&c.res, &c.hashes, &filter_vec, &c.env, 2), TAVO_DONE);
    ub4 count = 0;
    for (ub4 row = 0; row < rows; row++) {
        const bool expected =
            row >= rows - 512 && selection[row / 64] >> row % 64 & 1 && filter.passes(c.x[row - (rows - 512)], 2);
        ASSERT_EQ(result[row / 64] >> row % 64 & 1, expected) << row;
        count += expected;
    }
    EXPECT_EQ(c.res.count, count);
}

TEST(bloom, vectors_without_hashes_are_refused) {
    std::mt19937_64 rng(663);
    const filter_case filter(9, 0, false, 1, rng);
    tavo_vec filter_vec = filter.vec;
    bloom_call c(64, 100, rng);
    c.enc.flags = TAVO_FIXED;
    for (ub8 *selection : {static_cast<ub8 *>(nullptr), c.result.as<ub8>()}) {
        c.env.sel_bits = selection;
        EXPECT_EQ(lib.bloom(&c.res, &c.hashes, &filter_vec, &c.env, 1), TAVO_UNSUPPORTED);
        EXPECT_EQ(c.res.count, 77u);
        EXPECT_EQ(c.result.as<ub8>()[0], noise);
        EXPECT_EQ(c.env.result_flags, 0x40);
    }
}

} // namespace
} // namespace tavo::test
