// Dense group keys beside absl::flat_hash_map<string_view, ub4> (one thread) and tbb::concurrent_hash_map (one and
// two). Rows are words of real text (the licences that Debian has in /usr/share/common-licenses, over and over) or 2^20
// distinct symbols in random order; "again": the same rows when all symbols are known. Hashing is part of every figure:
// the library's hash operation with XXH3 for the dictionary, their own for the maps. Items are rows.
#include <absl/container/flat_hash_map.h>
#include <benchmark/benchmark.h>
#define XXH_INLINE_ALL
#include <tbb/concurrent_hash_map.h>
#include <xxhash.h>

#include <filesystem>
#include <fstream>
#include <memory>
#include <random>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "bench/kit/plain.h"
#include "frame/tavo.h"

namespace tavo::bench {
namespace {

const tavo_specialized_ctx &lib = tavo_global_specialized_ctx;

struct rows_of_text {
    std::vector<std::string> symbols;
    std::vector<std::string_view> rows;
};
const rows_of_text &words() {
    static const rows_of_text text = [] {
        rows_of_text t;
        for (const auto &file : std::filesystem::directory_iterator("/usr/share/common-licenses"))
            if (file.is_regular_file() && !file.is_symlink()) {
                std::ifstream in(file.path());
                for (std::string word; in >> word;)
                    t.symbols.push_back(word);
            }
        if (t.symbols.empty())
            std::abort();
        for (std::size_t row = 0; row < 1 << 20; row++)
            t.rows.emplace_back(t.symbols[row % t.symbols.size()]);
        return t;
    }();
    return text;
}
const rows_of_text &distinct() {
    static const rows_of_text text = [] {
        rows_of_text t;
        std::mt19937_64 rng(72);
        for (unsigned i = 0; i < 1 << 20; i++)
            t.symbols.push_back("customer " + std::to_string(i * 2654435761u));
        std::shuffle(t.symbols.begin(), t.symbols.end(), rng);
        for (const std::string &s : t.symbols)
            t.rows.emplace_back(s);
        return t;
    }();
    return text;
}

struct memory_of_process : tavo_dgk_heap {
    memory_of_process() : tavo_dgk_heap{&give} {}
    static void give(tavo_dgk_heap *heap, ub8 size, const char *, ub4, ub4, void **out) {
        auto &h = *static_cast<memory_of_process *>(heap);
        h.blocks.emplace_back(static_cast<char *>(std::malloc(size)), &std::free);
        *out = h.blocks.back().get();
    }
    std::vector<std::unique_ptr<char, void (*)(void *)>> blocks;
};

ub8 xxh3(const void *data, ub8 length, ub8 seed) { return XXH3_64bits_withSeed(data, length, seed); }

// A dictionary with 2^bits nodes, and workers, each of which has every n-th stretch of 4096 rows.
class dictionary {
public:
    dictionary(const rows_of_text &text, unsigned bits, unsigned workers) : text(text), shares(workers) {
        nodes.reset(static_cast<char *>(std::aligned_alloc(64, 64ull << bits)));
        std::memset(nodes.get(), 0, 64ull << bits);
        dgk.table_bits = static_cast<ub1>(bits);
        dgk.first_level = nodes.get();
        dgk.pool_budget = 1ull << 40;
        dgk.page_budget = 1ll << 40;
        dgk.worker_count = workers;
        for (auto &s : shares) {
            s = std::make_unique<share>();
            s->worker.dgk = &dgk;
            s->worker.heap = &s->heap;
        }
        shares[0]->worker.servicing = 1;
        for (std::size_t row = 0; row < text.rows.size(); row++) {
            share &s = *shares[row / 4096 % workers];
            s.address.push_back(reinterpret_cast<ub8>(text.rows[row].data()));
            s.length.push_back(static_cast<ub2>(text.rows[row].size()));
        }
    }
    void run(unsigned worker) {
        share &s = *shares[worker];
        tavo_enc_ctx enc{}, hash_enc{}, seed_enc{};
        enc.flags = TAVO_LP_SEP;
        hash_enc.flags = seed_enc.flags = TAVO_HASHES;
        hash_enc.width_bits = 64;
        ub8 seed = 0, hash[4096];
        ub4 code[4096];
        tavo_vec column{}, hashes{}, seeds{}, codes{};
        column.enc = &enc;
        hashes.enc = &hash_enc;
        hashes.data = hash;
        seeds.enc = &seed_enc;
        seeds.data = &seed;
        seeds.size = 1;
        codes.data = code;
        tavo_env env{};
        for (std::size_t from = 0; from < s.address.size(); from += 4096) {
            column.data = s.address.data() + from;
            column.lengths = s.length.data() + from;
            column.size = static_cast<ub4>(std::min<std::size_t>(4096, s.address.size() - from));
            lib.hash(&hashes, &column, &seeds, &xxh3, &env);
            if (lib.dgk_symbol2code(nullptr, &s.worker, &codes, &column, &hashes, &env) != TAVO_DONE)
                std::abort();
            benchmark::DoNotOptimize(code);
        }
    }

    tavo_dgk dgk{};

private:
    struct share {
        tavo_dgk_worker worker{};
        memory_of_process heap;
        std::vector<ub8> address;
        std::vector<ub2> length;
    };
    struct free_nodes {
        void operator()(char *p) const { std::free(p); }
    };
    const rows_of_text &text;
    std::unique_ptr<char, free_nodes> nodes;
    std::vector<std::unique_ptr<share>> shares;
};

struct xxh3_of_text {
    static std::size_t hash(std::string_view s) { return XXH3_64bits(s.data(), s.size()); }
    static bool equal(std::string_view a, std::string_view b) { return a == b; }
};
using tbb_map = tbb::concurrent_hash_map<std::string_view, ub4, xxh3_of_text>;

double seconds_of(const auto &work) {
    const auto start = std::chrono::steady_clock::now();
    work();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}
void on_threads(unsigned threads, const auto &work) {
    std::vector<std::thread> others;
    for (unsigned t = 1; t < threads; t++)
        others.emplace_back([&, t] { work(t); });
    work(0);
    for (std::thread &t : others)
        t.join();
}

// Best of five: `make` a fresh structure, not timed; run it once with new symbols, or a second time.
void add(const std::string &name, std::size_t rows, bool again, auto make, auto run) {
    benchmark::RegisterBenchmark(("dense/" + name).c_str(), [=](benchmark::State &state) {
        for (auto _ : state) {
            double best = 1e9;
            for (int round = 0; round < 5; round++) {
                auto structure = make();
                if (again)
                    run(*structure);
                best = std::min(best, seconds_of([&] { run(*structure); }));
            }
            state.SetIterationTime(best);
        }
        state.SetItemsProcessed(static_cast<int64_t>(rows));
    })->Apply(by_best_time);
}

const bool registered = [] {
    for (bool real : {true, false})
        for (bool again : {false, true}) {
            const auto text = [=]() -> const rows_of_text & { return real ? words() : distinct(); };
            const std::string name = std::string(real ? "words/" : "distinct/") + (again ? "again/" : "new/");
            const std::size_t rows = 1 << 20;
            add(
                name + "absl", rows, again,
                [=] {
                    text();
                    return std::make_unique<absl::flat_hash_map<std::string_view, ub4>>();
                },
                [=](auto &map) {
                    ub4 next = static_cast<ub4>(map.size());
                    for (const std::string_view &row : text().rows) {
                        const auto [at, fresh] = map.try_emplace(row, next);
                        next += fresh;
                        benchmark::DoNotOptimize(at->second);
                    }
                });
            for (unsigned threads : {1u, 2u}) {
                add(
                    name + "kernel/" + std::to_string(threads), rows, again,
                    [=] { return std::make_unique<dictionary>(text(), real ? 12 : 20, threads); },
                    [=](dictionary &d) { on_threads(threads, [&](unsigned t) { d.run(t); }); });
                add(
                    name + "tbb/" + std::to_string(threads), rows, again,
                    [=] {
                        text();
                        return std::make_unique<std::pair<tbb_map, std::atomic<ub4>>>();
                    },
                    [=](auto &map) {
                        on_threads(threads, [&](unsigned t) {
                            const auto &all = text().rows;
                            for (std::size_t from = t * 4096; from < all.size(); from += threads * 4096)
                                for (std::size_t row = from; row < std::min(from + 4096, all.size()); row++) {
                                    tbb_map::const_accessor found;
                                    if (!map.first.find(found, all[row])) {
                                        tbb_map::accessor fresh;
                                        if (map.first.insert(fresh, all[row]))
                                            fresh->second = map.second++;
                                        benchmark::DoNotOptimize(fresh->second);
                                    } else {
                                        benchmark::DoNotOptimize(found->second);
                                    }
                                }
                        });
                    });
            }
        }
    return true;
}();

} // namespace
} // namespace tavo::bench
BENCHMARK_MAIN();
