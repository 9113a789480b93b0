// Probe and build of join tables beside absl::flat_hash_map, std::unordered_multimap and a loop of independent random
// reads of 64 bytes each, the limit of a table beyond the caches. Keys are 8 bytes and unique on the build side, values
// 8 bytes; the maps hash keys themselves, tables get hashes as input.
#include <absl/container/flat_hash_map.h>
#include <benchmark/benchmark.h>
#include <sys/mman.h>

#include <cstdlib>
#include <memory>
#include <unordered_map>
#include <vector>

#include "bench/kit/plain.h"
#include "frame/tavo.h"

namespace tavo::bench {
namespace {

const tavo_specialized_ctx *lib() { return &tavo_global_specialized_ctx; }

ub8 mix(ub8 x) {
    x ^= x >> 32;
    x *= 0xd6e8feb86659fd93;
    x ^= x >> 32;
    x *= 0xd6e8feb86659fd93;
    return x ^ x >> 32;
}

struct free_memory {
    void operator()(ub1 *p) const { std::free(p); }
};
using block = std::unique_ptr<ub1, free_memory>;
block zeroed(std::size_t bytes) {
    block p(static_cast<ub1 *>(std::aligned_alloc(4096, (bytes + 4095) & ~std::size_t{4095})));
    std::memset(p.get(), 0, bytes);
    return p;
}

// A table of rows 0 to rows - 1 and its memory.
struct alignas(512) table {
    tavo_kv kv{};
    std::vector<block> memory;
    std::vector<void *> segments[3];
    ub4 next = 0;

    table(ub4 type, ub8 rows, bool index, bool prefetch) {
        kv.flags = TAVO_KV_FLAGS(TAVO_KV_FIXED_KEY, type);
        // Segments of 1 MiB.
        if (lib()->layout_kv(rows, rows, &kv.flags, &kv, 20, 0, prefetch ? 0 : ~0u, 0, !index) != 0)
            std::abort();
        for (int r = 0; r < 2; r++) {
            segments[r].resize(kv.region[r].segment_count);
            kv.region[r].segments = segments[r].data();
        }
        for (void *&s : segments[0]) {
            memory.push_back(zeroed(64ull << kv.region[0].element_bits));
            s = memory.back().get();
        }
    }
    std::size_t bytes() const { return segments[0].size() * (64ull << kv.region[0].element_bits); }
    void clear() {
        next = 0;
        for (void *s : segments[0])
            std::memset(s, 0, 64ull << kv.region[0].element_bits);
        for (void *s : segments[1])
            if (s)
                std::memset(s, 0, 64ull << kv.region[1].element_bits);
    }
    static ub4 alloc(tavo_kv_region *region, ub4, ub8 *id) {
        auto *t = reinterpret_cast<table *>(reinterpret_cast<ub8>(region) & ~(alignof(table) - 1));
        *id = t->next++;
        void *&segment = t->segments[1][*id >> 12];
        if (!segment) {
            t->memory.push_back(zeroed(64 << 12));
            segment = t->memory.back().get();
        }
        return 0;
    }
};

// Keys with their hashes; key_bytes each.
struct rows {
    std::vector<ub8> hashes, values;
    std::vector<ub1> keys;
    tavo_enc_ctx hash_enc{}, key_enc{}, value_enc{};
    tavo_vec hash_vec{}, key_vec{}, value_vec{};

    rows(const std::vector<ub8> &numbers, ub4 key_bytes, ub4 value_bytes) : keys(numbers.size() * key_bytes + 16) {
        const auto n = static_cast<ub4>(numbers.size());
        values.resize(n);
        for (ub4 i = 0; i < n; i++) {
            hashes.push_back(mix(numbers[i]));
            std::memcpy(keys.data() + std::size_t{i} * key_bytes, &numbers[i], std::min(key_bytes, 8u));
            std::memcpy(reinterpret_cast<ub1 *>(values.data()) + std::size_t{i} * value_bytes, &numbers[i], value_bytes);
        }
        hash_enc.flags = TAVO_HASHES;
        hash_enc.width_code = 22;
        key_enc.width_bits = key_bytes * 8;
        value_enc.flags = 0;
        hash_vec.data = hashes.data();
        key_vec.data = keys.data();
        value_vec.data = values.data();
        hash_vec.enc = &hash_enc;
        key_vec.enc = &key_enc;
        value_vec.enc = &value_enc;
        hash_vec.size = key_vec.size = value_vec.size = n;
    }
};

void build(table &t, rows &r) {
    tavo_env env{};
    tavo_kv_status status{};
    if (lib()->create_add_kv(&t.kv, &r.hash_vec, &r.value_vec, &r.key_vec, -1, &env, &table::alloc, &status) != 0)
        std::abort();
}

constexpr ub4 probes = 1 << 21;

// Probe rows: every one a build row, none, or one in two.
std::vector<ub8> probe_numbers(ub8 build_rows, int hits_percent) {
    std::vector<ub8> out(probes);
    for (ub4 i = 0; i < probes; i++) {
        const ub8 r = mix(i + 77);
        out[i] = r % build_rows + (static_cast<int>(mix(r) % 100) < hits_percent ? 0 : build_rows);
    }
    return out;
}
std::vector<ub8> build_numbers(ub8 n) {
    std::vector<ub8> out(n);
    for (ub8 i = 0; i < n; i++)
        out[i] = i;
    return out;
}

// Build rows for a table of about this size: 3 a bucket of k8v8, half of them filled.
constexpr ub8 rows_for(std::size_t bytes) { return bytes / 64 * 3 / 2; }

struct probe_outputs {
    std::vector<ub8> values = std::vector<ub8>(probes * 2), rids = std::vector<ub8>(probes * 2);
    tavo_vec out{};
    ub4 run(table &t, rows &r, ub4 mode, bool autorid) {
        tavo_enc_ctx rid_enc{};
        rid_enc.flags = autorid ? TAVO_ROWID_BASE : 0;
        tavo_vec rid_vec{};
        rid_vec.enc = &rid_enc;
        rid_vec.data = r.values.data();
        tavo_aux_info aux{};
        tavo_env env{};
        env.aux = &aux;
        tavo_kv_status status{};
        out.data = values.data();
        out.size = probes * 2;
        if (lib()->probe_kv(&out, rids.data(), &r.hash_vec, &rid_vec, &r.key_vec, &t.kv, mode, &env, &status) != 0)
            std::abort();
        return out.size;
    }
};

void probe(benchmark::State &state, std::size_t bytes, int hits, ub4 mode, bool index, bool prefetch) {
    const ub8 n = rows_for(bytes);
    table t(TAVO_KV_K8V8, n, index, prefetch);
    {
        rows build_rows(build_numbers(n), 8, 8);
        build(t, build_rows);
    }
    rows probe_rows(probe_numbers(n, hits), 8, 8);
    probe_outputs out;
    ub4 found = 0;
    report_best(state, 0, probes, [&] { found = out.run(t, probe_rows, mode, false); });
    state.counters["found"] = found;
    state.counters["table_MiB"] = static_cast<double>(t.bytes() >> 20);
}

void flat_map(benchmark::State &state, std::size_t bytes, int hits) {
    const ub8 n = rows_for(bytes);
    absl::flat_hash_map<ub8, ub8> map;
    map.reserve(n);
    for (ub8 i = 0; i < n; i++)
        map.emplace(i, i);
    const std::vector<ub8> keys = probe_numbers(n, hits);
    probe_outputs out;
    ub4 found = 0;
    report_best(state, 0, probes, [&] {
        found = 0;
        for (ub4 i = 0; i < probes; i++)
            if (const auto at = map.find(keys[i]); at != map.end()) {
                out.rids[found] = i;
                out.values[found++] = at->second;
            }
    });
    state.counters["found"] = found;
}

void multimap(benchmark::State &state, std::size_t bytes, int hits) {
    const ub8 n = rows_for(bytes);
    std::unordered_multimap<ub8, ub8> map;
    map.reserve(n);
    for (ub8 i = 0; i < n; i++)
        map.emplace(i, i);
    const std::vector<ub8> keys = probe_numbers(n, hits);
    probe_outputs out;
    ub4 found = 0;
    report_best(state, 0, probes, [&] {
        found = 0;
        for (ub4 i = 0; i < probes; i++)
            for (auto [at, end] = map.equal_range(keys[i]); at != end; ++at) {
                out.rids[found] = i;
                out.values[found++] = at->second;
            }
    });
    state.counters["found"] = found;
}

// One line of a table of the same size and the same make (1 MiB segments), for each row: the addresses are known.
void random_reads(benchmark::State &state, std::size_t bytes) {
    table t(TAVO_KV_K8V8, rows_for(bytes), false, false);
    std::vector<const ub1 *> lines(probes);
    const ub4 bits = t.kv.region[0].element_bits;
    for (ub4 i = 0; i < probes; i++) {
        const ub8 h = mix(i + 77);
        lines[i] = static_cast<ub1 *>(t.segments[0][h >> bits & (t.segments[0].size() - 1)]) +
                   (h & ((1u << bits) - 1)) * 64;
    }
    __m512i sum = _mm512_setzero_si512();
    report_best(state, 0, probes, [&] {
        __m512i s[8] = {};
        for (ub4 i = 0; i < probes; i += 8)
#pragma GCC unroll 8
            for (ub4 k = 0; k < 8; k++)
                s[k] = _mm512_or_si512(s[k], _mm512_load_si512(lines[i + k]));
        for (const __m512i &x : s)
            sum = _mm512_or_si512(sum, x);
        benchmark::DoNotOptimize(sum);
    });
}

void build_table(benchmark::State &state, std::size_t bytes) {
    const ub8 n = rows_for(bytes);
    rows r(build_numbers(n), 8, 8);
    table t(TAVO_KV_K8V8, n, false, false);
    double best = 1e9;
    for (auto _ : state)
        for (int i = 0; i < 3; i++) {
            t.clear();
            const auto start = std::chrono::steady_clock::now();
            build(t, r);
            best = std::min(best, std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count());
        }
    state.SetIterationTime(best);
    state.SetItemsProcessed(static_cast<int64_t>(n));
}

void build_flat_map(benchmark::State &state, std::size_t bytes) {
    const ub8 n = rows_for(bytes);
    const std::vector<ub8> keys = build_numbers(n);
    double best = 1e9;
    for (auto _ : state)
        for (int i = 0; i < 2; i++) {
            absl::flat_hash_map<ub8, ub8> map;
            map.reserve(n);
            for (ub8 k = 0; k < n; k += 8) // the memory is there before the time runs, as it is for tables
                map.emplace(keys[k], k);
            map.clear();
            map.reserve(n);
            const auto start = std::chrono::steady_clock::now();
            for (ub8 k = 0; k < n; k++)
                map.emplace(keys[k], k);
            best = std::min(best, std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count());
        }
    state.SetIterationTime(best);
    state.SetItemsProcessed(static_cast<int64_t>(n));
}

const struct {
    const char *name;
    std::size_t bytes;
} sizes[] = {{"L2", 512 << 10}, {"L3", 16 << 20}, {"1GiB", 1ull << 30}};

void register_all() {
    const auto add = [](std::string name, auto f) {
        by_best_time(benchmark::RegisterBenchmark(name.c_str(), f)->Unit(benchmark::kMillisecond));
    };
    for (const auto &size : sizes) {
        const std::string at = std::string("/") + size.name;
        const std::size_t bytes = size.bytes;
        add("random_reads" + at, [=](benchmark::State &s) { random_reads(s, bytes); });
        for (int hits : {100, 50, 0}) {
            const std::string what = at + "/hits:" + std::to_string(hits);
            add("probe" + what, [=](benchmark::State &s) { probe(s, bytes, hits, 0, false, false); });
            add("flat_hash_map" + what, [=](benchmark::State &s) { flat_map(s, bytes, hits); });
        }
        add("probe_prefetch" + at, [=](benchmark::State &s) { probe(s, bytes, 100, 0, false, true); });
        add("probe_idx" + at, [=](benchmark::State &s) { probe(s, bytes, 100, 0, true, false); });
        add("probe_count" + at, [=](benchmark::State &s) { probe(s, bytes, 100, 1, false, false); });
        add("probe_mutkv" + at, [=](benchmark::State &s) { probe(s, bytes, 100, 9, false, false); });
        add("unordered_multimap" + at, [=](benchmark::State &s) { multimap(s, bytes, 100); });
        add("build" + at, [=](benchmark::State &s) { build_table(s, bytes); });
        add("build_flat_hash_map" + at, [=](benchmark::State &s) { build_flat_map(s, bytes); });
    }
}

} // namespace
} // namespace tavo::bench

int main(int argc, char **argv) {
    tavo::bench::register_all();
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
}
