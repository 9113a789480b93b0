// The scan for marked entries and for the others, against marks set by hand.
#include <gtest/gtest.h>

#include "tests/kv/join_rows.h"

namespace tavo::test {
namespace {

const tavo_specialized_ctx *lib() { return &tavo_global_specialized_ctx; }

// A table of `n` rows with random marks, and what a scan of it is to give, in order, by segment.
struct marked_table {
    host_table table;
    ub4 capacity;
    std::vector<std::vector<ub8>> marked, unmarked;

    marked_table(ub4 type, table_form links, ub4 n, double share, std::mt19937_64 &rng)
        : table(1, type, 600, n + 1, links), capacity(figures_of(type).pointer_capacity) {
        const type_figures &figures = figures_of(type);
        const key_maker maker{form_list()[3], type, figures.key, 50};
        std::vector<ub8> keys(n), values(n);
        for (ub4 i = 0; i < n; i++)
            keys[i] = rng() % 500, values[i] = figures.value == 4 ? rng() >> 32 : rng();
        join_vectors rows(maker, keys, values, false, 0, figures.value);
        tavo_env env{};
        tavo_kv_status status{};
        EXPECT_EQ(lib()->create_add_kv(&table.kv, &rows.hashes.vec, &rows.values.vec, &rows.keys.vec, -1, &env,
                                       &host_table::alloc, &status),
                  0u);
        const tavo_kv_region &heads = table.kv.region[0];
        marked.resize(heads.segment_count);
        unmarked.resize(heads.segment_count);
        for (ub4 s = 0; s < heads.segment_count; s++)
            for (ub4 b = 0; b < 1u << heads.element_bits; b++)
                for (auto *at = static_cast<ub1 *>(heads.segments[s]) + 64 * b; at; std::memcpy(&at, at, 8))
                    for (ub4 i = 0; i < (at[8] & ((1u << figures.count_bits) - 1)); i++) {
                        ub8 value = 0;
                        std::memcpy(&value, at + figures.pointer_value + i * figures.value, figures.value);
                        const bool mark = std::uniform_real_distribution(0., 1.)(rng) < share;
                        (mark ? marked : unmarked)[s].push_back(value);
                        if (mark)
                            at[9] |= static_cast<ub1>(4u << i);
                    }
    }
};

TEST(KvScan, MarkedAndUnmarkedInAnyOutputs) {
    std::mt19937_64 rng(51);
    ub8 found = 0;
    for (ub4 type : {4u, 5u, 7u, 8u, 10u, 11u, 12u, 15u})
        for (table_form links : {table_form::ptr, table_form::ptr_prefetch})
            for (double share : {0., 0.4, 1.}) {
                marked_table t(type, links, 3000, share, rng);
                const ub4 segments = t.table.kv.region[0].segment_count;
                ASSERT_GE(segments, 4u);
                const ub4 from = static_cast<ub4>(rng() % segments), to = from + 1 + rng() % (segments - from);
                for (ub4 mode = 1; mode <= 4; mode++) {
                    SCOPED_TRACE(std::string(figures_of(type).name) + " " + name_of(links) + " mode " +
                                 std::to_string(mode) + " share " + std::to_string(share));
                    std::vector<ub8> want;
                    for (ub4 s = from; s < to; s++) {
                        const auto &part = (mode <= 2 ? t.marked : t.unmarked)[s];
                        want.insert(want.end(), part.begin(), part.end());
                    }
                    found += want.size();
                    tavo_kv_scan_position position{from, 0, 0, 99};
                    if (mode % 2 == 0) {
                        host_vector out(0);
                        ASSERT_EQ(lib()->mut_kv_scan(rng() % 2 ? &out.vec : nullptr, &t.table.kv, mode, &position, to),
                                  0u);
                        ASSERT_EQ(position.count, want.size());
                        ASSERT_EQ(position.segment, to);
                        continue;
                    }
                    std::vector<ub8> got;
                    for (ub4 result = 16; result == 16;) {
                        const ub4 room = t.capacity + static_cast<ub4>(rng() % 50), width = figures_of(type).value;
                        host_vector out(room * width, room);
                        result = lib()->mut_kv_scan(&out.vec, &t.table.kv, mode, &position, to);
                        ASSERT_TRUE(result == 0 || result == 16);
                        ASSERT_EQ(out.vec.size, position.count);
                        for (ub4 i = 0; i < out.vec.size; i++) {
                            ub8 value = 0;
                            std::memcpy(&value, out.memory.data() + i * width, width);
                            got.push_back(value);
                        }
                        if (result == 16) {
                            ASSERT_GT(out.vec.size + t.capacity, room);
                        }
                    }
                    ASSERT_EQ(got, want);
                    ASSERT_EQ(position.segment, to);
                    ASSERT_EQ(position.bucket + position.chain_position, 0u);
                }
            }
    EXPECT_GT(found, 50000u);
}

TEST(KvScan, Refusals) {
    std::mt19937_64 rng(52);
    tavo_kv_scan_position position{};
    host_vector out(5 * 4, 5);
    for (ub4 type = 0; type < 16; type++) {
        tavo_kv kv{};
        kv.flags = TAVO_KV_FLAGS(1, type); // index form
        const bool scannable = type >= 4 && type != 14 && figures_of(type == 0 ? 1 : type).value;
        EXPECT_EQ(lib()->mut_kv_scan(&out.vec, &kv, 1, &position, 0), scannable ? 3u : 2u) << type;
        EXPECT_EQ(lib()->mut_kv_scan(&out.vec, &kv, 5, &position, 0), scannable ? 14u : 2u) << type;
        EXPECT_EQ(lib()->mut_kv_scan(&out.vec, &kv, 0, &position, 0), scannable ? 14u : 2u) << type;
    }
    marked_table t(TAVO_KV_K4V4, table_form::ptr, 100, 1, rng);
    // Less room than a bucket's: nothing is looked at.
    EXPECT_EQ(lib()->mut_kv_scan(&out.vec, &t.table.kv, 1, &position, 1), 16u);
    EXPECT_EQ(out.vec.size, 0u);
    EXPECT_EQ(position.bucket, 0u);
    // Nothing left to scan.
    position = {7, 3, 2, 5};
    EXPECT_EQ(lib()->mut_kv_scan(nullptr, &t.table.kv, 2, &position, 4), 0u);
    EXPECT_EQ(position.segment, 4u);
    EXPECT_EQ(position.bucket + position.chain_position + position.count, 0u);
}

} // namespace
} // namespace tavo::test
