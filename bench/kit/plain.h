// Baselines: what the machine does with the same bytes when it only reads them, measured in the same run.
#pragma once

#include <immintrin.h>

#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <cstddef>

namespace tavo::bench {

// Sizes of data that stays in the first-level, second-level and third-level cache, and of data that does not.
constexpr std::size_t in_l1 = 16 << 10, in_l2 = 384 << 10, in_l3 = 8 << 20, in_memory = 512 << 20;

// Reads every byte once, 512 bits at a time, eight loads in flight.
[[gnu::noinline]] inline unsigned long plain_read(const void *data, std::size_t bytes) {
    const auto *p = static_cast<const char *>(data);
    __m512i sum[8] = {};
    for (std::size_t i = 0; i + 512 <= bytes; i += 512)
#pragma GCC unroll 8
        for (int k = 0; k < 8; k++)
            sum[k] = _mm512_or_si512(sum[k], _mm512_loadu_si512(p + i + 64 * k));
    for (int k = 1; k < 8; k++)
        sum[0] = _mm512_or_si512(sum[0], sum[k]);
    return static_cast<unsigned long>(_mm512_reduce_or_epi64(sum[0]));
}

// Best of several rounds, in seconds a call; short calls are repeated within a round.
template <class F>
double best_seconds(F &&call, double round_seconds = 0.004, int rounds = 7) {
    using clock = std::chrono::steady_clock;
    const auto time = [&](long repeats) {
        const auto start = clock::now();
        for (long i = 0; i < repeats; i++)
            call();
        return std::chrono::duration<double>(clock::now() - start).count();
    };
    const double once = std::max(time(1), 1e-9);
    const long repeats = std::max(1l, static_cast<long>(round_seconds / once));
    double best = 1e9;
    for (int r = 0; r < (once > 0.05 ? 3 : rounds); r++)
        best = std::min(best, time(repeats) / static_cast<double>(repeats));
    return best;
}

// Seconds of a plain read of these bytes.
inline double plain_read_seconds(const void *data, std::size_t bytes) {
    volatile unsigned long sink = 0;
    return best_seconds([&] { sink = sink + plain_read(data, bytes); });
}

// Reports the best time of `call` as the one iteration of a benchmark registered with by_best_time, with bytes/s and
// items/s; on shared machines the best of several rounds repeats where a mean does not. Returns the seconds.
template <class F>
double report_best(benchmark::State &state, std::size_t bytes, std::size_t items, F &&call) {
    double seconds = 0;
    for (auto _ : state) {
        seconds = best_seconds(call);
        state.SetIterationTime(seconds);
    }
    state.SetBytesProcessed(static_cast<int64_t>(bytes));
    state.SetItemsProcessed(static_cast<int64_t>(items));
    return seconds;
}
inline void by_best_time(benchmark::internal::Benchmark *b) { b->UseManualTime()->Iterations(1); }

} // namespace tavo::bench
