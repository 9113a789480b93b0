// The buckets that adding rows leaves behind, byte by byte, over every source of rows, type and form.
#include <gtest/gtest.h>

#include <thread>

#include "tests/kv/join_rows.h"

namespace tavo::test {
namespace {

const tavo_specialized_ctx *lib() { return &tavo_global_specialized_ctx; }

// Adds all rows, over and over where the allocator refuses; how often it was called.
int add_all(host_table &table, join_vectors &rows, sb8 segment_id = -1) {
    tavo_env env{};
    tavo_kv_status status{};
    for (int calls = 1;; calls++) {
        const ub8 refused_before = table.refusals;
        const ub4 before = env.resume_row;
        const ub4 result = lib()->create_add_kv(&table.kv, &rows.hashes.vec, &rows.values.vec, &rows.keys.vec,
                                                segment_id, &env, &host_table::alloc, &status);
        if (result == 0) {
            EXPECT_EQ(env.resume_row, rows.rows.size());
            return calls;
        }
        EXPECT_EQ(result, refusal);
        EXPECT_EQ(table.refusals, refused_before + 1);
        EXPECT_EQ(status.build.region_class, 1u);
        EXPECT_EQ(status.build.segment, table.allocated(1) >> 12);
        EXPECT_GE(env.resume_row, before);
        if (result != refusal)
            return calls;
    }
}

std::vector<ub8> numbers(std::size_t n, ub8 distinct, std::mt19937_64 &rng) {
    std::vector<ub8> out(n);
    for (ub8 &x : out)
        x = 1 + rng() % distinct;
    return out;
}

const std::vector<std::size_t> &batch_sizes() {
    static const std::vector<std::size_t> sizes = {0,   1,   7,   8,   9,    231,  232,  233,
                                                   463, 464, 465, 700, 2319, 2320, 2321, 2560};
    return sizes;
}

// The width of a fixed key column that goes with a type: any that fits.
ub4 column_width(const form_figures &form, ub4 type, ub4 round) {
    const ub4 slot = figures_of(type).key;
    return form.element_class || round % 2 == 0 ? slot : 1 + round * 5 % slot;
}

TEST(KvBuild, BucketsByteByByte) {
    std::mt19937_64 rng(7);
    ub8 overflow = 0, resumed = 0;
    for (const form_figures &form : form_list())
        for (ub4 type : form.types)
            for (table_form links : {table_form::idx, table_form::ptr})
                for (ub4 round = 0; round < 4; round++) {
                    const type_figures &figures = figures_of(type);
                    SCOPED_TRACE(std::string(figures.name) + " " + form.name + " " + name_of(links) + " round " +
                                 std::to_string(round));
                    const bool autorid = figures.value && !form.record_rid && round % 2;
                    const key_maker maker{form, type, column_width(form, type, round), round < 2 ? 60u : 100000u};
                    host_table table(form.kind, type, 2000, 8000, links);
                    ASSERT_EQ(table.layout_status(), 0u);
                    ASSERT_EQ(!(table.kv.flags & TAVO_KV_PTR), links == table_form::idx);
                    table.refuse = round == 0 ? 0 : 0.2;
                    table_model model(table);
                    for (int part = 0; part < 2; part++) { // two vectors, the second behind the first
                        const std::size_t n = batch_sizes()[rng() % batch_sizes().size()];
                        const auto keys = numbers(n, 300, rng);
                        std::vector<ub8> values(n);
                        for (ub8 &v : values)
                            v = form.form == row_form::ridfixedhash && figures.key == 8 ? rng() >> 32 : rng();
                        join_vectors rows(maker, keys, values, autorid, 1000000 + rng() % 1000, figures.value);
                        const sb8 segment =
                            round == 3 ? static_cast<sb8>(rng() % table.kv.region[0].segment_count) : -1;
                        resumed += static_cast<ub8>(add_all(table, rows, segment)) - 1;
                        for (const table_row &row : rows.rows)
                            model.add(row, segment);
                    }
                    ASSERT_EQ(model.difference(), "");
                    ASSERT_EQ(table.allocated(1), model.overflow_buckets());
                    overflow += model.overflow_buckets();
                }
    EXPECT_GT(overflow, 10000u);
    EXPECT_GT(resumed, 1000u);
}

// Each size around a batch and a chunk, for a key in place and one to be widened.
TEST(KvBuild, SizesAroundBatchesAndChunks) {
    std::mt19937_64 rng(8);
    const form_figures &form = form_list()[3];
    for (ub4 width : {3u, 4u, 5u, 6u})
        for (std::size_t n : batch_sizes()) {
            const key_maker maker{form, TAVO_KV_K6V4, width, 1000};
            host_table table(1, TAVO_KV_K6V4, 500, 4000, table_form::ptr);
            join_vectors rows(maker, numbers(n, 400, rng), numbers(n, 1000, rng), false, 0, 4);
            EXPECT_EQ(add_all(table, rows), 1);
            table_model model(table);
            for (const table_row &row : rows.rows)
                model.add(row);
            ASSERT_EQ(model.difference(), "") << n << " rows, keys of " << width;
        }
}

// Threads build one table at once, a segment each.
TEST(KvBuild, SegmentsInParallel) {
    std::mt19937_64 rng(9);
    const form_figures &form = form_list()[3];
    const key_maker maker{form, TAVO_KV_K8V8, 8, 100000};
    host_table table(1, TAVO_KV_K8V8, 1500, 6000, table_form::ptr);
    const ub4 segments = table.kv.region[0].segment_count;
    ASSERT_GE(segments, 4u);
    table.map(1, 0);
    table.map(1, 1);
    std::vector<std::vector<ub8>> of_segment(segments);
    for (ub8 number : numbers(6000, 3000, rng))
        of_segment[maker.hash(number) >> table.kv.region[0].element_bits & (segments - 1)].push_back(number);
    std::vector<std::unique_ptr<join_vectors>> parts;
    for (const auto &keys : of_segment)
        parts.push_back(std::make_unique<join_vectors>(maker, keys, keys, false, 0, 8));
    std::vector<std::thread> threads;
    std::atomic<int> failed{0};
    for (ub4 t = 0; t < 4; t++)
        threads.emplace_back([&, t] {
            for (ub4 s = t; s < segments; s += 4) {
                tavo_env env{};
                tavo_kv_status status{};
                if (lib()->create_add_kv(&table.kv, &parts[s]->hashes.vec, &parts[s]->values.vec, &parts[s]->keys.vec,
                                         s, &env, &host_table::alloc, &status) != 0)
                    failed++;
            }
        });
    for (std::thread &t : threads)
        t.join();
    EXPECT_EQ(failed, 0);
    EXPECT_EQ(table.kv.key_bits, 64u);
    // Overflow buckets are numbered as the threads came, so what counts is what is in the chains.
    std::map<ub8, std::multiset<ub8>> want, got;
    for (ub4 s = 0; s < segments; s++)
        for (ub8 number : of_segment[s])
            want[s << 6 | (maker.hash(number) & 63)].insert(number);
    for (ub4 s = 0; s < segments; s++)
        for (ub8 b = 0; b < 64; b++)
            for (auto *at = static_cast<ub1 *>(table.kv.region[0].segments[s]) + b * 64; at;
                 at = *reinterpret_cast<ub1 **>(at))
                for (ub4 i = 0; i < (at[8] & 3u); i++)
                    got[s << 6 | b].insert(*reinterpret_cast<ub8 *>(at + 40 + 8 * i));
    EXPECT_EQ(got, want);
}

TEST(KvBuild, WhatNoListNamesIsRefusedAndChangesNothing) {
    std::mt19937_64 rng(10);
    const std::vector<ub4> slot_types = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 15};
    int refused = 0;
    for (const form_figures &form : form_list())
        for (ub4 type : slot_types) {
            if (std::find(form.types.begin(), form.types.end(), type) != form.types.end())
                continue;
            const key_maker maker{form, type, std::min(figures_of(type).key, 8u), 100};
            host_table table(form.kind, type, 100, 100);
            join_vectors rows(maker, numbers(10, 10, rng), numbers(10, 10, rng), false, 0, 8);
            tavo_env env{};
            tavo_kv_status status{};
            EXPECT_EQ(lib()->create_add_kv(&table.kv, &rows.hashes.vec, &rows.values.vec, &rows.keys.vec, -1, &env,
                                           &host_table::alloc, &status),
                      2u)
                << form.name << " " << figures_of(type).name;
            EXPECT_EQ(env.resume_row, 0u);
            EXPECT_EQ(table.kv.key_bits, 0u);
            EXPECT_EQ(table_model(table).difference(), "");
            refused++;
        }
    EXPECT_GT(refused, 100);
}

TEST(KvBuild, OneWidthOfKeysATable) {
    std::mt19937_64 rng(11);
    const form_figures &form = form_list()[3];
    host_table table(1, TAVO_KV_K8V4, 100, 100);
    tavo_kv_status status{};
    const auto add = [&](ub4 width) {
        const key_maker maker{form, TAVO_KV_K8V4, width, 100};
        join_vectors rows(maker, numbers(5, 10, rng), numbers(5, 10, rng), false, 0, 4);
        tavo_env env{};
        return lib()->create_add_kv(&table.kv, &rows.hashes.vec, &rows.values.vec, &rows.keys.vec, -1, &env,
                                    &host_table::alloc, &status);
    };
    EXPECT_EQ(add(5), 0u);
    EXPECT_EQ(table.kv.key_bits, 40u);
    EXPECT_EQ(add(4), 2u);
    EXPECT_EQ(add(5), 0u);
}

TEST(KvBuildDeath, CallersBugs) {
    std::mt19937_64 rng(12);
    const form_figures &form = form_list()[3];
    tavo_env env{};
    tavo_kv_status status{};
    const auto add = [&](host_table &table, ub4 type, ub4 width, sb8 segment) {
        const key_maker maker{form, type, width, 1};
        join_vectors rows(maker, numbers(40, 10, rng), numbers(40, 10, rng), false, 0, 4);
        return lib()->create_add_kv(
            &table.kv, &rows.hashes.vec, &rows.values.vec, &rows.keys.vec, segment, &env,
            [](tavo_kv_region *, ub4, ub8 *id) -> ub4 {
                *id = 1u << 29;
                return 0;
            },
            &status);
    };
    host_table table(1, TAVO_KV_K4V4, 100, 100), links(1, TAVO_KV_K4V4, 100, 100, table_form::idx);
    EXPECT_DEATH(add(table, TAVO_KV_K4V4, 4, table.kv.region[0].segment_count),
                 "tavoc_avx512g.*0 == \\(segment_id & ~\\(sb8\\) \\(tavo_kv_num_segments\\(kv\\) - 1\\)\\)");
    EXPECT_DEATH(add(table, TAVO_KV_K4V4, 8, -1), "tavoc_avx512g.*src_elem_bytes < DEST_ELEM_BYTES");
    void *segments[(1 << 17) + 1];
    std::fill(std::begin(segments), std::end(segments), links.kv.region[0].segments[0]);
    links.kv.region[1].segments = segments;
    EXPECT_DEATH(add(links, TAVO_KV_K4V4, 4, -1), "tavoc_avx512g.*link == \\(\\(new_id \\+ 1\\) << count_bits\\)");
}

} // namespace
} // namespace tavo::test
