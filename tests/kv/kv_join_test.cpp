// Probes against a plain walk of the same chains, and joins against a plain map, over every source of rows, type, link
// and mode, with outputs of any size.
#include <gtest/gtest.h>

#include <set>
#include <thread>

#include "tests/kit/codes.h"
#include "tests/kv/join_rows.h"

// For runs under the thread sanitizer: a probe loads a bucket whole, with marks in it that other threads may be setting
// and that it does not look at.
extern "C" const char *__tsan_default_suppressions() { return "race:_mm512_loadu_si512\n"; }

namespace tavo::test {
namespace {

const tavo_specialized_ctx *lib() { return &tavo_global_specialized_ctx; }

constexpr ub4 value_modes[] = {0, 1, 3, 5, 7, 8, 9, 10, 11}, key_modes[] = {0, 1, 4, 5, 6, 7};
bool counts(ub4 mode) { return mode == 1 || mode == 4 || mode == 6 || mode == 8 || mode == 10; }
bool marks(ub4 mode) { return mode == 8 || mode == 9; }

using pair_of_ids = std::pair<ub8, ub8>; // probe row id, build value

// Everything that a probe reports or changes.
struct probe_result {
    std::vector<pair_of_ids> pairs; // in order
    ub8 count = 0;
    ub8 chain_steps = 0;
    std::set<ub8> matched_rows, matched_values; // by the bit vectors
    std::map<sb8, ub4> marks;                   // by bucket
};

// The probe, told plainly: every entry of every bucket.
probe_result plain_probe(const table_model &model, const std::vector<table_row> &rows, ub4 mode, ub8 value_bytes) {
    probe_result result;
    for (const table_row &row : rows) {
        ub8 found = 0, buckets = 0;
        bool through = false;
        model.each_bucket(row.hash, [&](const model_bucket &b, sb8 place) {
            if (through)
                return;
            buckets++;
            std::vector<ub4> entries = model.matches(b, row.slot);
            if ((mode == 5 || mode == 4) && !entries.empty()) {
                entries = {entries.back()};
                through = true;
            }
            for (ub4 e : entries) {
                result.pairs.emplace_back(mode == 3 ? 0 : row.value, value_bytes ? model.value(b, e) : 0);
                result.matched_rows.insert(row.value);
                result.matched_values.insert(value_bytes ? model.value(b, e) : 0);
                result.marks[place] |= 1u << e;
                found++;
            }
        });
        result.chain_steps += buckets - 1;
        result.count += mode == 6 && found == 0 ? 1 : found;
    }
    return result;
}

struct probe_case {
    ub4 mode;
    bool autorid;
    ub8 first_row;
    std::mt19937_64 &rng;
    bool small_outputs;
};

// Drives a probe to its end through outputs of random capacities that end at unreadable pages.
probe_result drive(host_table &table, join_vectors &rows, const probe_case &c, ub4 capacity_of_bucket) {
    const type_figures &type = figures_of(table.kv.flags & 255);
    const ub4 n = static_cast<ub4>(rows.rows.size());
    probe_result result;
    std::vector<ub8> row_bits(n / 64 + 1, ~0ull), value_bits(1 << 12);
    tavo_aux_info aux{};
    aux.nonmatch_bv = c.mode == 7 ? row_bits.data() : nullptr;
    aux.segbv = c.mode >= 10 ? value_bits.data() : nullptr;
    aux.bv_base = c.mode == 7 ? c.first_row : c.mode >= 10 ? 500 : 0;
    tavo_env env{};
    env.aux = &aux;
    tavo_kv_status status{};
    host_vector rids(c.autorid ? 0 : n * 8, n);
    for (ub4 r = 0; r < n && !c.autorid; r++)
        rids.memory.as<ub8>()[r] = rows.rows[r].value;
    rids.enc.flags = c.autorid ? TAVO_ROWID_BASE : 0;
    rids.vec.first_row = c.first_row;
    bool stopped = false;
    for (;;) {
        const ub4 capacity = counts(c.mode) ? 0
                             : c.small_outputs
                                 ? capacity_of_bucket + static_cast<ub4>(c.rng() % (c.rng() % 8 ? 40 : 1500))
                                 : n * 40 + capacity_of_bucket;
        host_vector out(type.value && !counts(c.mode) ? capacity * type.value : 0, capacity);
        guarded rid_out(c.mode == 3 || counts(c.mode) ? 0 : capacity * (c.autorid ? 4 : 8));
        const tavo_kv_status before = status;
        const ub4 status_code = lib()->probe_kv(&out.vec, rid_out.data(), &rows.hashes.vec, &rids.vec, &rows.keys.vec,
                                                &table.kv, c.mode, &env, &status);
        EXPECT_TRUE(status_code == 0 || status_code == 15) << status_code;
        EXPECT_LE(counts(c.mode) ? 0 : out.vec.size, capacity);
        if (counts(c.mode)) {
            EXPECT_EQ(out.vec.count, out.vec.size);
            result.count += out.vec.count;
        } else {
            for (ub4 i = 0; i < out.vec.size; i++) {
                ub8 rid = 0, value = 0;
                if (c.mode != 3)
                    std::memcpy(&rid, rid_out.data() + i * (c.autorid ? 4 : 8), c.autorid ? 4 : 8);
                std::memcpy(&value, out.memory.data() + i * type.value, type.value);
                result.pairs.emplace_back(rid, value);
            }
            result.count += out.vec.size;
        }
        if (status_code != 15)
            break;
        stopped = true;
        EXPECT_LT(env.resume_row, n);
        // A full bucket's outputs did not fit, and a stop leaves the totals of the kernel that stopped alone.
        EXPECT_GT(out.vec.size + capacity_of_bucket, capacity);
        EXPECT_TRUE(n > 2320 || std::memcmp(&status, &before, sizeof status) == 0);
        if (::testing::Test::HasFailure())
            return result;
    }
    EXPECT_EQ(env.resume_row, n);
    EXPECT_EQ(aux.tavo_aux_stream_position, 0u);
    if (!stopped) {
        EXPECT_EQ(status.probe.rows, n % 232);
        result.chain_steps = status.probe.chain_steps;
    }
    for (ub4 r = 0; r < n && c.mode == 7; r++)
        if (!(row_bits[r / 64] >> r % 64 & 1))
            result.matched_rows.insert(c.first_row + r);
    for (ub8 v = 0; v < value_bits.size() * 64 && c.mode >= 10; v++)
        if (value_bits[v / 64] >> v % 64 & 1)
            result.matched_values.insert(v + 500);
    return result;
}

// The marks in the table itself, which are taken out again.
std::map<sb8, ub4> take_marks(host_table &table) {
    std::map<sb8, ub4> found;
    const auto take = [&](ub1 *bucket, sb8 place) {
        ub2 word;
        std::memcpy(&word, bucket + 8, 2);
        if (word >> 10)
            found[place] = word >> 10;
        word &= 0x3ff;
        std::memcpy(bucket + 8, &word, 2);
    };
    const tavo_kv_region *r = table.kv.region;
    for (ub8 b = 0; b < ub8{r[0].segment_count} << r[0].element_bits; b++)
        take(static_cast<ub1 *>(r[0].segments[b >> r[0].element_bits]) + (b & ((1u << r[0].element_bits) - 1)) * 64,
             static_cast<sb8>(b));
    for (ub8 id = 0; id < table.allocated(1); id++)
        take(static_cast<ub1 *>(r[1].segments[id >> 12]) + (id & 4095) * 64, ~static_cast<sb8>(id));
    return found;
}

// The form in which rows that were built in another form are probed.
const form_figures &probe_form(const form_figures &built, ub4 round) {
    const auto with = [](row_form f) -> const form_figures & {
        return *std::find_if(form_list().begin(), form_list().end(), [&](auto &x) { return x.form == f; });
    };
    switch (built.form) {
    case row_form::ridhash: return with(row_form::hash64value);
    case row_form::fixedhash: return with(row_form::fixed_hash64);
    case row_form::ridfixedhash: return with(row_form::hash32_fixed);
    case row_form::gdhash: return with(row_form::gd_hash64);
    case row_form::gdcachedhash:
    case row_form::ridgdhash:
    case row_form::ridgdcachedhash: return with(round % 2 ? row_form::gd_hash32 : row_form::gdhc_gd);
    case row_form::lphash:
    case row_form::ridlphash: return with(round % 2 ? row_form::lp_hash64 : row_form::lpsep_hash64);
    default: return built;
    }
}

struct built_table {
    host_table table;
    table_model model;
    std::multimap<key_bytes, ub8> map; // the join without a table

    built_table(const form_figures &form, ub4 type, table_form links, const key_maker &maker,
                const std::vector<ub8> &keys, ub8 first_value)
        : table(form.kind, type, keys.size() / 3 + 1, keys.size(), links), model(table) {
        std::vector<ub8> values(keys.size());
        for (std::size_t i = 0; i < values.size(); i++)
            values[i] = first_value + i;
        join_vectors rows(maker, keys, values, false, 0, figures_of(type).value);
        tavo_env env{};
        tavo_kv_status status{};
        EXPECT_EQ(lib()->create_add_kv(&table.kv, &rows.hashes.vec, &rows.values.vec, &rows.keys.vec, -1, &env,
                                       &host_table::alloc, &status),
                  0u);
        for (const table_row &row : rows.rows) {
            model.add(row);
            map.emplace(identity(row), row.value);
        }
    }
    // What makes two rows meet. Hashes and long texts do not stand in a slot whole: their buckets have to agree too.
    key_bytes identity(const table_row &row) const {
        key_bytes id = row.slot;
        const ub4 kind = TAVO_KV_KIND(table.kv.flags);
        if (kind == TAVO_KV_HASH_VALUE || kind == TAVO_KV_LP)
            for (ub8 place = model.head_of(row.hash), i = 0; i < 8; i++)
                id.push_back(static_cast<ub1>(place >> (8 * i)));
        return id;
    }
};

std::vector<ub8> numbers(std::size_t n, ub8 from, ub8 distinct, std::mt19937_64 &rng) {
    std::vector<ub8> out(n);
    for (ub8 &x : out)
        x = from + rng() % distinct;
    return out;
}

TEST(KvProbe, EveryFormTypeLinkAndMode) {
    std::mt19937_64 rng(21);
    ub8 pairs = 0, joins = 0, longest_chains = 0;
    for (const form_figures &form : form_list())
        for (ub4 type : form.types)
            for (table_form links : {table_form::idx, table_form::ptr, table_form::ptr_prefetch}) {
                const type_figures &figures = figures_of(type);
                // At least two bytes, so that keys differ as their numbers do.
                const ub4 width =
                    form.element_class || rng() % 2 ? figures.key : 2 + static_cast<ub4>(rng()) % (figures.key - 1);
                // Few hashes: long chains of all kinds of keys. Values around a base of bit vectors.
                const key_maker maker{form, type, width, rng() % 2 ? 40u : 100000u};
                built_table built(form, type, links, maker, numbers(900, 1, 250, rng), 500);
                longest_chains += built.model.overflow_buckets();
                ub4 round = 0;
                const auto try_mode = [&](ub4 mode) {
                    const form_figures &by = probe_form(form, round++);
                    const key_maker probe_maker{by, type, width, maker.spread};
                    SCOPED_TRACE(std::string(figures.name) + " " + form.name + " probed by " + by.name + " " +
                                 name_of(links) + " mode " + std::to_string(mode));
                    const std::size_t n = rng() % (every_lane_costs ? 12 : 3) == 0
                                              ? 2320 + rng() % 300
                                              : rng() % (every_lane_costs ? 150 : 600);
                    const bool autorid = rng() % 2;
                    const ub8 first_row = 64 * (rng() % 1000);
                    std::vector<ub8> ids(n);
                    for (std::size_t i = 0; i < n; i++)
                        ids[i] = first_row + i;
                    join_vectors rows(probe_maker, numbers(n, 1, 350, rng), ids, false, 0, 0);
                    if (mode >= 8 && mode <= 9 && links == table_form::idx) {
                        tavo_env env{};
                        tavo_kv_status status{};
                        host_vector out(0);
                        EXPECT_EQ(lib()->probe_kv(&out.vec, nullptr, &rows.hashes.vec, nullptr, &rows.keys.vec,
                                                  &built.table.kv, mode, &env, &status),
                                  2u);
                        return;
                    }
                    for (bool small : {false, true}) {
                        // The rows' hashes are those that the table was built with.
                        for (std::size_t r = 0; r < n; r++)
                            rows.rows[r].hash = form.hash_bits == 64 || form.form == row_form::gd_gd
                                                    ? rows.rows[r].hash
                                                    : static_cast<ub4>(rows.rows[r].hash);
                        const probe_result want = plain_probe(built.model, rows.rows, mode, figures.value);
                        probe_result got =
                            drive(built.table, rows, {mode, autorid, first_row, rng, small}, built.model.capacity());
                        ASSERT_EQ(got.count, want.count);
                        if (!counts(mode)) {
                            ASSERT_EQ(got.pairs, want.pairs);
                        }
                        if (!small && !marks(mode)) {
                            ASSERT_EQ(got.chain_steps, want.chain_steps);
                        }
                        if (mode == 7) {
                            ASSERT_EQ(got.matched_rows, want.matched_rows);
                        }
                        if (mode >= 10) {
                            ASSERT_EQ(got.matched_values, want.matched_values);
                        }
                        if (marks(mode)) {
                            ASSERT_EQ(take_marks(built.table), want.marks);
                        }
                        pairs += got.count;
                        // Against the map: every pair once.
                        if (mode == 0) {
                            std::vector<pair_of_ids> join;
                            for (const table_row &row : rows.rows)
                                for (auto [at, end] = built.map.equal_range(built.identity(row)); at != end; ++at)
                                    join.emplace_back(row.value, figures.value ? at->second : 0);
                            std::sort(join.begin(), join.end());
                            std::sort(got.pairs.begin(), got.pairs.end());
                            ASSERT_EQ(got.pairs, join);
                            joins++;
                        }
                    }
                };
                if (form.kind == 0)
                    try_mode(0);
                else
                    for (ub4 mode : figures.value ? std::span<const ub4>(value_modes) : std::span<const ub4>(key_modes))
                        try_mode(mode);
                if (HasFatalFailure())
                    return;
                ASSERT_EQ(built.model.difference(), ""); // probes leave the table as it was
            }
    EXPECT_GT(pairs, 1000000u);
    EXPECT_GT(joins, 200u);
    EXPECT_GT(longest_chains, 10000u);
}

// The room test counts a full bucket, whatever the bucket holds.
TEST(KvProbe, StopsWhereAFullBucketMightNotFit) {
    const form_figures &form = form_list()[3];
    const key_maker maker{form, TAVO_KV_K4V4, 4, 1};
    built_table built(form, TAVO_KV_K4V4, table_form::ptr, maker, std::vector<ub8>(14, 5), 0); // three buckets, one key
    join_vectors rows(maker, {5}, {900}, false, 0, 0);
    host_vector rids(8, 1);
    put<ub8>(rids.memory.data(), 900);
    tavo_aux_info aux{};
    tavo_env env{};
    env.aux = &aux;
    tavo_kv_status status{};
    const auto probe = [&](ub4 capacity, ub4 *outputs) {
        host_vector out(capacity * 4, capacity);
        guarded rid_out(capacity * 8);
        const ub4 result = lib()->probe_kv(&out.vec, rid_out.data(), &rows.hashes.vec, &rids.vec, &rows.keys.vec,
                                           &built.table.kv, 0, &env, &status);
        *outputs = out.vec.size;
        return result;
    };
    ub4 outputs = 99;
    EXPECT_EQ(probe(5, &outputs), 15u); // below a bucket: never
    EXPECT_EQ(outputs, 0u);
    EXPECT_EQ(aux.tavo_aux_stream_position, 0u);
    EXPECT_EQ(probe(6, &outputs), 15u); // the head's 2 rows; the next bucket's 6 do not fit behind
    EXPECT_EQ(outputs, 2u);
    EXPECT_EQ(aux.tavo_aux_stream_position, 1u);
    EXPECT_EQ(probe(6, &outputs), 15u); // exactly a bucket fits
    EXPECT_EQ(outputs, 6u);
    EXPECT_EQ(aux.tavo_aux_stream_position, 2u);
    EXPECT_EQ(status.probe.chain_steps + status.probe.rows, 0u);
    EXPECT_EQ(probe(6, &outputs), 0u);
    EXPECT_EQ(outputs, 6u);
    EXPECT_EQ(aux.tavo_aux_stream_position, 0u);
    EXPECT_EQ(status.probe.rows, 1u);
}

TEST(KvProbe, EmptyTableAndNoRows) {
    const form_figures &form = form_list()[3];
    const key_maker maker{form, TAVO_KV_K12V4, 12, 50};
    built_table built(form, TAVO_KV_K12V4, table_form::ptr, maker, {}, 0);
    std::mt19937_64 rng(3);
    for (std::size_t n : {std::size_t{0}, std::size_t{500}}) {
        join_vectors rows(maker, std::vector<ub8>(n, 7), std::vector<ub8>(n, 7), false, 0, 0);
        const probe_result got = drive(built.table, rows, {0, true, 0, rng, false}, 3);
        EXPECT_TRUE(got.pairs.empty());
        EXPECT_EQ(got.chain_steps, 0u);
    }
    const key_maker k8{form, TAVO_KV_K8, 8, 50};
    built_table keys(form, TAVO_KV_K8, table_form::ptr, k8, {}, 0);
    join_vectors rows(k8, std::vector<ub8>(777, 7), std::vector<ub8>(777, 7), false, 0, 0);
    EXPECT_EQ(drive(keys.table, rows, {6, true, 0, rng, false}, 6).count, 777u);
}

TEST(KvProbe, ModesThatATableRefuses) {
    for (const type_figures &type : type_list())
        for (ub4 kind = 0; kind < 4; kind++)
            for (ub4 mode = 0; mode < 14; mode++) {
                host_table table(kind, type.code, 10, 10, table_form::ptr);
                host_vector hashes(0), keys(0), out(0), rids(0);
                hashes.enc.flags = TAVO_HASHES;
                hashes.enc.width_code = 22;
                keys.enc.flags = TAVO_LP;
                tavo_aux_info aux{};
                tavo_env env{};
                env.aux = &aux;
                tavo_kv_status status{};
                const bool value =
                    std::find(std::begin(value_modes), std::end(value_modes), mode) != std::end(value_modes);
                const bool key = std::find(std::begin(key_modes), std::end(key_modes), mode) != std::end(key_modes);
                const bool takes = kind == 0 ? mode == 0 : type.value ? value : key;
                const bool listed = kind == 0 ? type.key <= 4 && type.value : kind == 2 ? type.key == 4 : type.key > 2;
                EXPECT_EQ(lib()->probe_kv(&out.vec, nullptr, &hashes.vec, &rids.vec, &keys.vec, &table.kv, mode, &env,
                                          &status),
                          !takes   ? 14u
                          : listed ? 0u
                                   : 2u)
                    << type.name << " kind " << kind << " mode " << mode;
            }
    host_table table(6, 4, 10, 10);
    EXPECT_EQ(table.layout_status(), 24u);
    tavo_env env{};
    EXPECT_EQ(lib()->probe_kv(nullptr, nullptr, nullptr, nullptr, nullptr, &table.kv, 0, &env, nullptr), 2u);
}

// Threads probe one table at once; no mark is lost. All keys stand in one chain and every key is probed once, so
// nothing sets a lost mark again; two threads go along the chain in the same order and share every bucket between them.
TEST(KvProbe, ThreadsMarkOneTable) {
    constexpr ub4 n = 2000;
    const form_figures &form = form_list()[3];
    const key_maker maker{form, TAVO_KV_K4V4, 4, 1};
    std::vector<ub8> keys(n);
    for (ub4 i = 0; i < n; i++)
        keys[i] = 1 + i;
    built_table built(form, TAVO_KV_K4V4, table_form::ptr, maker, keys, 0);
    std::vector<ub8> halves[2];
    for (ub4 i = 0; i < n; i++)
        halves[i % 2].push_back(keys[i]);
    join_vectors rows[2] = {{maker, halves[0], halves[0], false, 0, 0}, {maker, halves[1], halves[1], false, 0, 0}};
    constexpr int repeats = every_lane_costs ? 12 : 600; // under sanitizers one takes some hundred times as long
    for (int repeat = 0; repeat < repeats; repeat++) {
        const ub4 mode = repeat % 3 ? TAVO_PROBE_COUNT_MUTKV : TAVO_PROBE_PAIRS_MUTKV;
        std::atomic<ub4> waiting{0}, failed{0};
        const auto probe = [&](ub4 t) {
            tavo_aux_info aux{};
            tavo_env env{};
            env.aux = &aux;
            tavo_kv_status status{};
            host_vector out(2 * n * 4, 2 * n), rids(0);
            std::vector<ub4> rid_out(2 * n);
            rids.enc.flags = TAVO_ROWID_BASE;
            waiting++;
            while (waiting < 2) {
            }
            if (lib()->probe_kv(&out.vec, rid_out.data(), &rows[t].hashes.vec, &rids.vec, &rows[t].keys.vec,
                                &built.table.kv, mode, &env, &status) != 0 ||
                out.vec.size != n / 2)
                failed++;
        };
        std::thread other(probe, 1);
        probe(0);
        other.join();
        ASSERT_EQ(failed, 0u);
        tavo_kv_scan_position position{};
        ASSERT_EQ(lib()->mut_kv_scan(nullptr, &built.table.kv, TAVO_SCAN_COUNT_MARKED, &position,
                                     built.table.kv.region[0].segment_count),
                  0u);
        ASSERT_EQ(position.count, n) << "repeat " << repeat;
        take_marks(built.table);
    }
    EXPECT_EQ(built.model.difference(), "");
}

TEST(KvProbeDeath, ABitVectorNeedsItsRecord) {
    const form_figures &form = form_list()[3];
    const key_maker maker{form, TAVO_KV_K4V4, 4, 1};
    built_table built(form, TAVO_KV_K4V4, table_form::ptr, maker, {5}, 0);
    join_vectors rows(maker, {5}, {900}, false, 0, 0);
    tavo_kv_status status{};
    const auto probe = [&](ub4 mode) {
        host_vector out(0);
        tavo_env env{};
        return lib()->probe_kv(&out.vec, nullptr, &rows.hashes.vec, nullptr, &rows.keys.vec, &built.table.kv, mode,
                               &env, &status);
    };
    EXPECT_EQ(probe(TAVO_PROBE_COUNT), 0u);
    EXPECT_DEATH(probe(TAVO_PROBE_COUNT_SEGBV), "tavoc_avx512g.*uses_aux\\(mode\\)");
}

// A stop in the second chunk of rows: the totals have the first chunk's, whether keys stand in place or are widened.
TEST(KvProbe, TotalsOfTheChunksBeforeAStop) {
    const form_figures &form = form_list()[3];
    for (ub4 width : {4u, 3u}) {
        SCOPED_TRACE(width);
        const key_maker maker{form, TAVO_KV_K4V4, width, 1};
        built_table built(form, TAVO_KV_K4V4, table_form::ptr, maker, std::vector<ub8>(14, 5), 0); // three buckets
        std::vector<ub8> keys(2400, 7); // one row of the first chunk and one of the second have matches
        keys[100] = keys[2350] = 5;
        join_vectors rows(maker, keys, keys, false, 0, 0);
        host_vector rids(0), out(20 * 4, 20);
        rids.enc.flags = TAVO_ROWID_BASE;
        guarded rid_out(20 * 4);
        tavo_aux_info aux{};
        tavo_env env{};
        env.aux = &aux;
        tavo_kv_status status{};
        const auto probe = [&] {
            return lib()->probe_kv(&out.vec, rid_out.data(), &rows.hashes.vec, &rids.vec, &rows.keys.vec,
                                   &built.table.kv, TAVO_PROBE_PAIRS, &env, &status);
        };
        EXPECT_EQ(probe(), 15u);
        EXPECT_EQ(out.vec.size, 16u); // 14, and the head's 2
        EXPECT_EQ(env.resume_row, 2350u);
        EXPECT_EQ(aux.tavo_aux_stream_position, 1u);
        EXPECT_EQ(status.probe.chain_steps, 2320u * 2);
        EXPECT_EQ(status.probe.rows, 0u);
        out.vec.size = 20;
        EXPECT_EQ(probe(), 0u);
        EXPECT_EQ(out.vec.size, 12u);
        EXPECT_EQ(status.probe.rows, 50u);
    }
}

} // namespace
} // namespace tavo::test
