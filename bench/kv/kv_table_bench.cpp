// Probe and build of join tables beside absl::flat_hash_map, std::unordered_multimap and a loop of independent random
// reads of 64 bytes each, the limit of a table beyond the caches. Keys are 8 bytes and unique on the build side, values
// 8 bytes; the maps hash keys themselves, tables get hashes as input. Probe rows come in vectors of 4096, as an engine
// hands them on: their outputs are overwritten by the next one's.
#include <absl/container/flat_hash_map.h>
#include <benchmark/benchmark.h>

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

    table(ub4 type, ub8 rows, bool index, bool prefetch, ub4 segment_log2 = 20) {
        kv.flags = TAVO_KV_FLAGS(TAVO_KV_FIXED_KEY, type);
        if (lib()->layout_kv(rows, rows, &kv.flags, &kv, segment_log2, 0, prefetch ? 0 : ~0u, 0, !index) != 0)
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
            std::memcpy(reinterpret_cast<ub1 *>(values.data()) + std::size_t{i} * value_bytes, &numbers[i],
                        value_bytes);
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

constexpr ub4 vector_rows = 4096;

struct table_size {
    const char *name;
    std::size_t bytes;
    ub4 segment_log2;
    ub4 probes; // with their keys and hashes in the same level of memory
};
constexpr table_size sizes[] = {
    {"L2", 256 << 10, 18, 4 * vector_rows}, {"L3", 16 << 20, 20, 1 << 18}, {"1GiB", 1ull << 30, 20, 1 << 21}};

// Probe rows: every one a build row, none, or one in two.
std::vector<ub8> probe_numbers(ub4 probes, ub8 build_rows, int hits_percent) {
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

struct outputs {
    std::vector<ub8> values = std::vector<ub8>(vector_rows * 2), rids = std::vector<ub8>(vector_rows * 2);
};

// All probe rows, vector by vector; how many matches.
ub8 run(table &t, rows &r, ub4 mode, outputs &to) {
    tavo_enc_ctx rid_enc{};
    tavo_vec rid_vec{}, hash_vec = r.hash_vec, key_vec = r.key_vec, out{};
    rid_vec.enc = &rid_enc;
    tavo_aux_info aux{};
    tavo_kv_status status{};
    ub8 found = 0;
    for (ub4 first = 0; first < r.hashes.size(); first += vector_rows) {
        hash_vec.data = r.hashes.data() + first;
        key_vec.data = r.keys.data() + std::size_t{first} * 8;
        rid_vec.data = r.values.data() + first;
        hash_vec.size = key_vec.size = vector_rows;
        tavo_env env{};
        env.aux = &aux;
        out.data = to.values.data();
        out.size = vector_rows * 2;
        if (lib()->probe_kv(&out, to.rids.data(), &hash_vec, &rid_vec, &key_vec, &t.kv, mode, &env, &status) != 0)
            std::abort();
        found += out.size;
    }
    return found;
}

void probe(benchmark::State &state, const table_size &size, int hits, ub4 mode, bool index, bool prefetch) {
    const ub8 n = rows_for(size.bytes);
    table t(TAVO_KV_K8V8, n, index, prefetch, size.segment_log2);
    {
        rows build_rows(build_numbers(n), 8, 8);
        build(t, build_rows);
    }
    rows probe_rows(probe_numbers(size.probes, n, hits), 8, 8);
    outputs out;
    ub8 found = 0;
    report_best(state, 0, size.probes, [&] { found = run(t, probe_rows, mode, out); });
    state.counters["found"] = static_cast<double>(found);
    state.counters["table_KiB"] = static_cast<double>(t.bytes() >> 10);
}

// The same with a map's lookup: `each(map, key, f)` calls f with each value of the key.
template <class Map, class Each>
void map_probe(benchmark::State &state, const table_size &size, int hits, Each &&each) {
    const ub8 n = rows_for(size.bytes);
    Map map;
    map.reserve(n);
    for (ub8 i = 0; i < n; i++)
        map.emplace(i, i);
    const std::vector<ub8> keys = probe_numbers(size.probes, n, hits);
    outputs out;
    ub8 found = 0;
    report_best(state, 0, size.probes, [&] {
        found = 0;
        for (ub4 first = 0; first < keys.size(); first += vector_rows) {
            ub4 written = 0;
            for (ub4 i = first; i < first + vector_rows; i++)
                each(map, keys[i], [&](ub8 value) {
                    out.rids[written] = i;
                    out.values[written++] = value;
                });
            found += written;
        }
    });
    state.counters["found"] = static_cast<double>(found);
}
void flat_map(benchmark::State &state, const table_size &size, int hits) {
    using map = absl::flat_hash_map<ub8, ub8>;
    map_probe<map>(state, size, hits, [](const map &m, ub8 key, auto &&f) {
        if (const auto at = m.find(key); at != m.end())
            f(at->second);
    });
}
void multimap(benchmark::State &state, const table_size &size, int hits) {
    using map = std::unordered_multimap<ub8, ub8>;
    map_probe<map>(state, size, hits, [](const map &m, ub8 key, auto &&f) {
        for (auto [at, end] = m.equal_range(key); at != end; ++at)
            f(at->second);
    });
}

// One line of a table of the same size and the same make (1 MiB segments), for each row: the addresses are known.
void random_reads(benchmark::State &state, const table_size &size) {
    table t(TAVO_KV_K8V8, rows_for(size.bytes), false, false, size.segment_log2);
    const ub4 probes = size.probes;
    std::vector<const ub1 *> lines(probes);
    const ub4 bits = t.kv.region[0].element_bits;
    for (ub4 i = 0; i < probes; i++) {
        const ub8 h = mix(i + 77);
        lines[i] =
            static_cast<ub1 *>(t.segments[0][h >> bits & (t.segments[0].size() - 1)]) + (h & ((1u << bits) - 1)) * 64;
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

void build_table(benchmark::State &state, const table_size &size) {
    const ub8 n = rows_for(size.bytes);
    rows r(build_numbers(n), 8, 8);
    table t(TAVO_KV_K8V8, n, false, false, size.segment_log2);
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

void build_flat_map(benchmark::State &state, const table_size &size) {
    const ub8 n = rows_for(size.bytes);
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

void register_all() {
    const auto add = [](std::string name, auto f) {
        by_best_time(benchmark::RegisterBenchmark(name.c_str(), f)->Unit(benchmark::kMillisecond));
    };
    for (const table_size &size : sizes) {
        const std::string at = std::string("/") + size.name;
        add("random_reads" + at, [&size](benchmark::State &s) { random_reads(s, size); });
        for (int hits : {100, 50, 0}) {
            const std::string what = at + "/hits:" + std::to_string(hits);
            add("probe" + what, [&size, hits](benchmark::State &s) { probe(s, size, hits, 0, false, false); });
            add("flat_hash_map" + what, [&size, hits](benchmark::State &s) { flat_map(s, size, hits); });
        }
        add("probe_prefetch" + at, [&size](benchmark::State &s) { probe(s, size, 100, 0, false, true); });
        add("probe_idx" + at, [&size](benchmark::State &s) { probe(s, size, 100, 0, true, false); });
        add("probe_count" + at, [&size](benchmark::State &s) { probe(s, size, 100, 1, false, false); });
        add("probe_mutkv" + at, [&size](benchmark::State &s) { probe(s, size, 100, 9, false, false); });
        add("unordered_multimap" + at, [&size](benchmark::State &s) { multimap(s, size, 100); });
        add("build" + at, [&size](benchmark::State &s) { build_table(s, size); });
        add("build_flat_hash_map" + at, [&size](benchmark::State &s) { build_flat_map(s, size); });
    }
}

} // namespace
} // namespace tavo::bench

int main(int argc, char **argv) {
    tavo::bench::register_all();
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
}
