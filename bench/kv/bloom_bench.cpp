// Bloom filter kernels beside a loop of independent random reads of 64 bytes, one a row, and beside the obvious loop.
// Items are rows. One row in eight passes the two-bit filters, one in three the others.
#include <sys/mman.h>

#include <memory>
#include <random>
#include <string>
#include <vector>

#include "bench/kit/plain.h"
#include "frame/tavo.h"

namespace tavo::bench {
namespace {

const tavo_specialized_ctx &lib = tavo_global_specialized_ctx;

struct pages {
    explicit pages(std::size_t size) : size(size) {
        data = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        if (data == MAP_FAILED)
            std::abort();
        madvise(data, size, MADV_HUGEPAGE);
    }
    ~pages() { munmap(data, size); }
    void *data;
    std::size_t size;
};

struct setting {
    setting(std::size_t filter_bytes, ub4 rows, unsigned hash_bits, bool segmented)
        : memory(filter_bytes), rows(rows), hash_bits(hash_bits), hash_bytes(rows * hash_bits / 8), result(rows / 64) {
        std::mt19937_64 rng(66);
        auto *words = static_cast<ub8 *>(memory.data);
        for (std::size_t i = 0; i < filter_bytes / 8; i++)
            words[i] = rng() & (rng() | rng() << 1);
        for (std::size_t i = 0; i < hash_bytes.size() / 8; i++)
            reinterpret_cast<ub8 *>(hash_bytes.data())[i] = rng();
        const auto all = static_cast<ub4>(filter_bytes * 8 - 1);
        filter_enc.hash_mask = filter_enc.bit_mask = all;
        filter_enc.segment_shift = 32;
        filter.bits = words;
        if (segmented) {
            filter_enc.segmented = 1;
            filter_enc.bit_mask = all >> 4;
            filter_enc.segment_shift = static_cast<ub4>(__builtin_popcount(all >> 4));
            for (std::size_t i = 0; i < 16; i++)
                segments.push_back(reinterpret_cast<ub8>(words + filter_bytes / 8 / 16 * i));
            filter.bits = segments.data();
        }
        filter.enc = &filter_enc;
        hash_enc.flags = TAVO_HASHES;
        hash_enc.width_bits = hash_bits;
        hashes.enc = &hash_enc;
        hashes.data = hash_bytes.data();
        hashes.size = rows;
        res.bits = result.data();
        res.data = extent;
    }
    ub4 half(ub4 row) const {
        return hash_bits == 32 ? reinterpret_cast<const ub4 *>(hash_bytes.data())[row]
                               : static_cast<ub4>(reinterpret_cast<const ub8 *>(hash_bytes.data())[row] >> 32);
    }

    pages memory;
    ub4 rows;
    unsigned hash_bits;
    std::vector<ub1> hash_bytes;
    std::vector<ub8> result, segments;
    ub4 extent[2];
    tavo_enc_ctx filter_enc{}, hash_enc{};
    tavo_vec filter{}, hashes{}, res{};
    tavo_env env{};
};

// One line a row, at the place that the filter has for it.
[[gnu::noinline]] ub8 random_reads(const setting &s) {
    __m512i sum = _mm512_setzero_si512();
    const auto *base = static_cast<const char *>(s.memory.data);
    const auto *hash = reinterpret_cast<const ub8 *>(s.hash_bytes.data());
    const ub8 lines = s.memory.size / 64 - 1;
    for (ub4 row = 0; row < s.rows; row++)
        sum = _mm512_xor_si512(sum, _mm512_load_si512(base + (hash[row] >> 7 & lines) * 64));
    return static_cast<ub8>(_mm512_reduce_or_epi64(sum));
}

// What one writes without a second thought.
template <unsigned Bits>
[[gnu::noinline]] ub4 obvious_loop(setting &s) {
    const auto *bytes = reinterpret_cast<const ub1 *>(s.filter.bits);
    const ub4 hash_mask = s.filter_enc.hash_mask, bit_mask = s.filter_enc.bit_mask;
    const auto *hash = reinterpret_cast<const ub8 *>(s.hash_bytes.data());
    ub4 count = 0, first = ~0u, last = ~0u;
    std::fill(s.result.begin(), s.result.end(), 0);
    for (ub4 row = 0; row < s.rows; row++) {
        const ub4 x = __builtin_bswap32(static_cast<ub4>(hash[row] >> 32)), p = x & hash_mask & bit_mask;
        bool passes = bytes[p / 8] >> p % 8 & 1;
        if (Bits == 2 && passes) {
            const ub4 q = (p & ~63u) | (x >> 26 & hash_mask & bit_mask);
            passes = bytes[q / 8] >> q % 8 & 1;
        }
        if (passes) {
            s.result[row / 64] |= 1ull << row % 64;
            first = count++ == 0 ? row : first;
            last = row;
        }
    }
    s.extent[0] = first;
    s.extent[1] = last;
    return count;
}

// The same without a branch on a row's answer.
template <unsigned Bits>
[[gnu::noinline]] ub4 branchless_loop(setting &s) {
    const ub8 *words = s.filter.bits;
    const ub4 hash_mask = s.filter_enc.hash_mask, bit_mask = s.filter_enc.bit_mask;
    const auto *hash = reinterpret_cast<const ub8 *>(s.hash_bytes.data());
    ub4 count = 0;
    for (ub4 w = 0; w < s.rows / 64; w++) {
        ub8 word = 0;
        for (ub4 i = 0; i < 64; i++) {
            const ub4 x = __builtin_bswap32(static_cast<ub4>(hash[w * 64 + i] >> 32)), p = x & hash_mask & bit_mask;
            const ub8 found = words[p / 64];
            ub8 passes = found >> p % 64 & 1;
            if (Bits == 2)
                passes &= found >> (x >> 26 & hash_mask & bit_mask) & 1;
            word |= passes << i;
        }
        s.result[w] = word;
        count += static_cast<ub4>(__builtin_popcountll(word));
    }
    return count;
}

void measure(const char *where, std::size_t filter_bytes, ub4 rows) {
    const auto add = [=](const std::string &name, unsigned hash_bits, bool segmented, double share, auto body) {
        benchmark::RegisterBenchmark(("bloom/" + std::string(where) + "/" + name).c_str(),
                                     [=](benchmark::State &state) {
                                         setting s(filter_bytes, rows, hash_bits, segmented);
                                         std::vector<ub8> selection(rows / 64);
                                         std::size_t items = rows;
                                         if (share < 1) {
                                             std::mt19937_64 rng(67);
                                             items = 0;
                                             for (ub4 row = 0; row < rows; row++)
                                                 if (static_cast<double>(rng() >> 11) * 0x1p-53 < share) {
                                                     selection[row / 64] |= 1ull << row % 64;
                                                     items++;
                                                 }
                                             s.env.sel_bits = selection.data();
                                         }
                                         report_best(state, items * 8, items, [&] { body(s); });
                                     })
            ->Apply(by_best_time);
    };
    add("limit/random_reads", 64, false, 1, [](setting &s) { benchmark::DoNotOptimize(random_reads(s)); });
    add("plain/1bit_hash64", 64, false, 1, [](setting &s) { benchmark::DoNotOptimize(obvious_loop<1>(s)); });
    add("plain/2bit_hash64", 64, false, 1, [](setting &s) { benchmark::DoNotOptimize(obvious_loop<2>(s)); });
    add("branchless/1bit_hash64", 64, false, 1, [](setting &s) { benchmark::DoNotOptimize(branchless_loop<1>(s)); });
    add("branchless/2bit_hash64", 64, false, 1, [](setting &s) { benchmark::DoNotOptimize(branchless_loop<2>(s)); });
    for (int mode : {1, 2})
        for (unsigned hash_bits : {32u, 64u})
            for (bool segmented : {false, true})
                for (double share : {1.0, 0.1}) {
                    if (segmented && (hash_bits == 32 || share < 1))
                        continue;
                    add("kernel/" + std::to_string(mode) + "bit_hash" + std::to_string(hash_bits) +
                            (segmented ? "_segments" : "") + (share < 1 ? "_selective" : ""),
                        hash_bits, segmented, share, [mode](setting &s) {
                            lib.bloom(&s.res, &s.hashes, &s.filter, &s.env, static_cast<ub1>(mode));
                        });
                }
}

const bool registered = [] {
    measure("L2", 256 << 10, 256 << 10);
    measure("L3", 8 << 20, 512 << 10);
    measure("memory", 512 << 20, 1 << 20);
    return true;
}();

} // namespace
} // namespace tavo::bench
BENCHMARK_MAIN();
