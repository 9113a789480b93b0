// Bitwise kernels beside their limits: a plain read, a plain read-modify-write, and the obvious loop as the compiler
// vectorises it for this processor. bytes_per_second counts every byte read and written, items are bits of the result.
#include <benchmark/benchmark.h>

#include <bit>
#include <random>
#include <string>

#include "bench/bitvec/working_set.h"
#include "frame/processor.h"
#include "frame/tavo.h"

namespace tavo::bench {
namespace {

const tavo_specialized_ctx &lib = tavo_global_specialized_ctx;

struct vectors {
    words dst, a, b, c;
    std::size_t n; // words of each
    explicit vectors(std::size_t each_bytes, int used)
        : dst(each_bytes / 8), a(used > 1 ? each_bytes / 8 : 1), b(used > 2 ? each_bytes / 8 : 1),
          c(used > 3 ? each_bytes / 8 : 1), n(each_bytes / 8) {
        std::mt19937_64 rng(7);
        for (words *w : {&dst, &a, &b, &c})
            for (ub8 &word : *w)
                word = rng();
    }
};

// A row: `used` vectors share the working set, `traffic` vectors are read or written in one call.
struct row {
    const char *name;
    int used, traffic;
    ub8 (*body)(vectors &v);
};

ub8 read(vectors &v) { return plain_read(v.dst); }

ub8 plain_read_modify_write(vectors &v) {
    ub8 *dst = v.dst.data();
    for (std::size_t i = 0, n = v.n; i < n; i++)
        dst[i] ^= 0x5555555555555555;
    return 0;
}

// In place with a second source: the traffic of the scans' AND with a selection.
ub8 plain_and_in_place(vectors &v) {
    ub8 *__restrict dst = v.dst.data();
    const ub8 *__restrict a = v.a.data();
    for (std::size_t i = 0, n = v.n; i < n; i++)
        dst[i] &= a[i];
    return 0;
}

ub8 plain_and3(vectors &v) {
    ub8 *__restrict dst = v.dst.data();
    const ub8 *__restrict a = v.a.data(), *__restrict b = v.b.data(), *__restrict c = v.c.data();
    for (std::size_t i = 0, n = v.n; i < n; i++)
        dst[i] = a[i] & b[i] & c[i];
    return 0;
}

ub8 obvious_popcnt(vectors &v) {
    ub8 count = 0;
    for (std::size_t i = 0, n = v.n; i < n; i++)
        count += static_cast<ub8>(std::popcount(v.dst.data()[i]));
    return count;
}

ub8 obvious_and_count(vectors &v) {
    ub8 *__restrict dst = v.dst.data();
    const ub8 *__restrict a = v.a.data();
    ub8 count = 0;
    for (std::size_t i = 0, n = v.n; i < n; i++) {
        dst[i] &= a[i];
        count += static_cast<ub8>(std::popcount(dst[i]));
    }
    return count;
}

template <bool Instruction, class Kernel>
ub8 counted(Kernel kernel) {
    const ub4 has = tavo_has_vpopcdq;
    tavo_has_vpopcdq = Instruction && has;
    ub4 count = 0;
    kernel(&count);
    tavo_has_vpopcdq = has;
    return count;
}
template <bool Instruction>
ub8 popcnt(vectors &v) {
    return counted<Instruction>([&](ub4 *count) { lib.lbiwvpopcnt(count, v.dst.data(), v.n * 64); });
}
template <bool Instruction>
ub8 and_count(vectors &v) {
    return counted<Instruction>(
        [&](ub4 *count) { lib.lbiwvand(v.dst.data(), count, v.dst.data(), v.a.data(), v.n * 64); });
}
ub8 and_no_count(vectors &v) { return lib.lbiwvand(v.dst.data(), nullptr, v.dst.data(), v.a.data(), v.n * 64); }
template <bool Instruction>
ub8 and3_count(vectors &v) {
    return counted<Instruction>(
        [&](ub4 *count) { lib.lbiwvand3(v.dst.data(), count, v.a.data(), v.b.data(), v.c.data(), v.n * 64); });
}
template <bool Instruction>
ub8 not_count(vectors &v) {
    return counted<Instruction>([&](ub4 *count) { lib.lbiwvnot(v.dst.data(), count, v.dst.data(), v.n * 64); });
}

constexpr row rows[] = {
    {"limit/read", 1, 1, read},
    {"kernel/popcnt", 1, 1, popcnt<true>},
    {"kernel/popcnt_nibbles", 1, 1, popcnt<false>},
    {"obvious/popcnt", 1, 1, obvious_popcnt},
    {"limit/read_modify_write", 1, 2, plain_read_modify_write},
    {"kernel/not_count", 1, 2, not_count<true>},
    {"kernel/not_count_nibbles", 1, 2, not_count<false>},
    {"limit/and_in_place", 2, 3, plain_and_in_place},
    {"kernel/and", 2, 3, and_no_count},
    {"kernel/and_count", 2, 3, and_count<true>},
    {"kernel/and_count_nibbles", 2, 3, and_count<false>},
    {"obvious/and_count", 2, 3, obvious_and_count},
    {"limit/and3", 4, 4, plain_and3},
    {"kernel/and3_count", 4, 4, and3_count<true>},
    {"kernel/and3_count_nibbles", 4, 4, and3_count<false>},
};

const bool registered = [] {
    const ub4 info[3] = {};
    lib.init_sharedlib(0, info);
    for (const working_set &set : working_sets)
        for (const row &r : rows)
            benchmark::RegisterBenchmark(
                ("bitwise/" + std::string(set.name) + "/" + r.name).c_str(),
                [&set, &r](benchmark::State &state) {
                    vectors v(set.bytes / static_cast<unsigned>(r.used) / 256 * 256, r.used);
                    for (auto _ : state) {
                        benchmark::DoNotOptimize(r.body(v));
                        benchmark::ClobberMemory();
                    }
                    const auto calls = static_cast<std::size_t>(state.iterations());
                    state.SetBytesProcessed(static_cast<int64_t>(calls * v.n * 8 * static_cast<unsigned>(r.traffic)));
                    state.SetItemsProcessed(static_cast<int64_t>(calls * v.n * 64));
                })
                ->MinTime(0.1);
    return true;
}();

} // namespace
} // namespace tavo::bench

BENCHMARK_MAIN();
