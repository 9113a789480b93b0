// Position lists beside a plain trailing-zeros loop and, for thin vectors, a plain read of the vector. Items are
// positions, bytes are those of the vector.
#include <benchmark/benchmark.h>

#include <bit>
#include <memory>
#include <random>
#include <string>

#include "bench/bitvec/working_set.h"
#include "frame/tavo.h"

namespace tavo::bench {
namespace {

const tavo_specialized_ctx &lib = tavo_global_specialized_ctx;

struct selection {
    words bits;
    std::size_t set = 0;
    std::unique_ptr<ub4[]> out;
    selection(std::size_t bytes, double density) : bits(bytes / 8) {
        std::mt19937_64 rng(11);
        const std::size_t n = bits.size() * 64;
        if (density < 0.001) {
            std::geometric_distribution<std::size_t> gap(density);
            for (std::size_t i = gap(rng); i < n; i += gap(rng) + 1)
                bits.data()[i / 64] |= 1ull << i % 64;
        } else {
            const auto below = static_cast<ub4>(density * 4294967295.0);
            for (std::size_t i = 0; i < n; i++)
                bits.data()[i / 64] |= static_cast<ub8>(static_cast<ub4>(rng()) < below) << i % 64;
        }
        for (ub8 word : bits)
            set += static_cast<std::size_t>(std::popcount(word));
        out = std::make_unique<ub4[]>(set);
    }
};

std::size_t trailing_zeros(const selection &s) {
    ub4 *out = s.out.get();
    for (std::size_t i = 0; i < s.bits.size(); i++)
        for (ub8 word = s.bits.data()[i]; word != 0; word &= word - 1)
            *out++ = static_cast<ub4>(i * 64 + static_cast<unsigned>(std::countr_zero(word)));
    return static_cast<std::size_t>(out - s.out.get());
}

std::size_t read(const selection &s) { return plain_read(s.bits); }

// All positions in one call.
template <bool Words>
std::size_t ones_at_once(const selection &s) {
    tavo_bit_iter it;
    (Words ? lib.lbiwv_ictx_ini2 : lib.lbiv_ictx_ini2)(&it, s.bits.data(), s.bits.size() * 64, 0, 0);
    return (Words ? lib.lbiwvones : lib.lbivones)(&it, s.out.get(), s.set);
}

// In batches, as kernels that walk a selection take them.
template <ub8 Batch>
std::size_t ones_in_batches(const selection &s) {
    tavo_bit_iter it;
    lib.lbiwv_ictx_ini2(&it, s.bits.data(), s.bits.size() * 64, 0, 0);
    ub4 batch[Batch];
    std::size_t total = 0;
    for (ub8 n = Batch; n == Batch; total += n) {
        n = lib.lbiwvones(&it, batch, Batch);
        benchmark::DoNotOptimize(batch);
    }
    return total;
}

std::size_t one_by_one(const selection &s) {
    tavo_bit_iter it;
    lib.lbiwv_ictx_ini2(&it, s.bits.data(), s.bits.size() * 64, 0, 0);
    ub4 *out = s.out.get();
    for (ub8 position; (position = lib.lbiwviter(&it)) != TAVO_LBIWV_END;)
        *out++ = static_cast<ub4>(position);
    return static_cast<std::size_t>(out - s.out.get());
}

struct row {
    const char *name;
    std::size_t (*body)(const selection &s);
};
constexpr row rows[] = {
    {"limit/read", read},
    {"plain/trailing_zeros", trailing_zeros},
    {"kernel/lbiwvones", ones_at_once<true>},
    {"kernel/lbivones", ones_at_once<false>},
    {"kernel/lbiwvones_by_8", ones_in_batches<8>},
    {"kernel/lbiwvones_by_256", ones_in_batches<256>},
    {"kernel/lbiwviter", one_by_one},
};
struct density {
    const char *name;
    double share;
};
constexpr density densities[] = {{"50%", 0.5}, {"10%", 0.1}, {"6%", 0.06}, {"1%", 0.01}, {"1:10000", 0.0001}};

void measure(const char *set, std::size_t bytes, const density &d) {
    for (const row &r : rows)
        benchmark::RegisterBenchmark((std::string("ones/") + set + "/" + d.name + "/" + r.name).c_str(),
                                     [bytes, &d, &r](benchmark::State &state) {
                                         const selection s(bytes, d.share);
                                         for (auto _ : state) {
                                             benchmark::DoNotOptimize(r.body(s));
                                             benchmark::ClobberMemory();
                                         }
                                         const auto calls = static_cast<std::size_t>(state.iterations());
                                         state.SetBytesProcessed(static_cast<int64_t>(calls * s.bits.bytes()));
                                         state.SetItemsProcessed(static_cast<int64_t>(calls * s.set));
                                     })
            ->MinTime(0.1);
}

const bool registered = [] {
    for (const density &d : densities)
        measure("L2", 64 << 10, d);
    measure("memory", 512 << 20, densities[4]);
    return true;
}();

} // namespace
} // namespace tavo::bench
