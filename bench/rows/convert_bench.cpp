// Conversion of numbers beside a copy of the same bytes, sums while converting beside a plain read, cumulative lengths
// beside the loop that one writes.
//
// Counters: bytes/s of source; of_copy = the share of the speed of a loop of 64-byte loads and stores, of_memcpy = that
// of the C library's memcpy, which from some size on stores past the caches; of_read, of_loop alike.
#include <benchmark/benchmark.h>

#include <cstdlib>
#include <cstring>
#include <random>
#include <string>

#include "bench/kit/plain.h"
#include "frame/tavo.h"
#include "rows/convert_operations.h"

namespace {

using namespace tavo::bench;

constexpr std::size_t most = in_memory / 2;
ub1 *arrays() {
    static ub1 *const data = [] {
        auto *p = static_cast<ub1 *>(std::aligned_alloc(4096, 2 * most + 4096));
        std::mt19937_64 rng(1);
        for (std::size_t i = 0; i < most / 8; i++)
            reinterpret_cast<ub8 *>(p)[i] = 0x3f00003f3f00003fu | (rng() & 0x00ffff0000ffff00);
        std::memset(p + most, 1, most);
        return p;
    }();
    return data;
}

[[gnu::noinline]] void plain_copy(ub1 *to, const ub1 *from, std::size_t bytes) {
    for (std::size_t i = 0; i + 256 <= bytes; i += 256)
#pragma GCC unroll 4
        for (int k = 0; k < 4; k++)
            _mm512_storeu_si512(to + i + 64 * k, _mm512_loadu_si512(from + i + 64 * k));
}

struct type_name {
    ub1 value_type;
    unsigned bytes;
    const char *name;
};

struct call {
    call(type_name t, bool native, bool sum, std::size_t bytes) {
        enc.value_type = t.value_type;
        enc.width_bits = 8 * t.bytes;
        enc.flags = native ? TAVO_NATIVE : 0;
        env.flags = sum ? TAVO_ENV_SUM : 0;
        src.data = arrays();
        src.enc = &enc;
        src.size = static_cast<ub4>(bytes / t.bytes);
        dst.data = arrays() + bytes;
    }
    void operator()() { benchmark::DoNotOptimize(tavo_global_specialized_ctx.convert(&dst, &src, &env)); }
    tavo_enc_ctx enc{};
    tavo_env env{};
    tavo_vec src{}, dst{};
};

void conversion(benchmark::State &state, type_name t, bool native, std::size_t bytes) {
    call k(t, native, false, bytes);
    auto *to = static_cast<ub1 *>(k.dst.data);
    const double copy = best_seconds([&] { plain_copy(to, arrays(), bytes); });
    const double by_memcpy = best_seconds([&] {
        std::memcpy(to, arrays(), bytes);
        benchmark::ClobberMemory();
    });
    const double seconds = report_best(state, bytes, k.src.size, k);
    state.counters["of_copy"] = copy / seconds;
    state.counters["of_memcpy"] = by_memcpy / seconds;
}

void sum(benchmark::State &state, type_name t, bool native, std::size_t bytes) {
    call k(t, native, true, bytes);
    const double read = plain_read_seconds(arrays(), bytes);
    state.counters["of_read"] = read / report_best(state, bytes, k.src.size, k);
}

template <class Length>
[[gnu::noinline]] void cla_loop(ub4 *to, const Length *lengths, ub4 n) {
    ub4 sum = 0;
    to[0] = 0;
    for (ub4 i = 0; i < n; i++)
        to[i + 1] = __builtin_bswap32(sum += lengths[i]);
}

template <class Length>
void cumulative_lengths(benchmark::State &state, ub4 n) {
    auto *to = reinterpret_cast<ub4 *>(arrays() + most);
    const auto *lengths = reinterpret_cast<const Length *>(arrays());
    const double loop = best_seconds([&] { cla_loop(to, lengths, n); });
    const double seconds = report_best(state, n * 4ull, n, [&] {
        if constexpr (sizeof(Length) == 1)
            tavo_build_cla_1_ub1(to, n + 1, lengths, n);
        else
            tavo_build_cla_1_ub2(to, n + 1, lengths, n);
    });
    state.counters["of_loop"] = loop / seconds;
}

} // namespace

int main(int argc, char **argv) {
    for (auto [place, bytes] : {std::pair("L1", in_l1 / 2), std::pair("L2", in_l2 / 2), std::pair("memory", most)}) {
        const std::string where = std::string("/") + place;
        for (type_name t :
             {type_name{TAVO_VALUE_FLOAT, 4, "float"}, type_name{TAVO_VALUE_DOUBLE, 8, "double"},
              type_name{TAVO_VALUE_FLOAT16, 2, "float16"}, type_name{TAVO_VALUE_BFLOAT16, 2, "bfloat16"}}) {
            by_best_time(
                benchmark::RegisterBenchmark(("to_native/" + (t.name + where)).c_str(), conversion, t, false, bytes));
            by_best_time(
                benchmark::RegisterBenchmark(("to_stored/" + (t.name + where)).c_str(), conversion, t, true, bytes));
            if (t.bytes != 2)
                by_best_time(benchmark::RegisterBenchmark(("sum/" + (t.name + where)).c_str(), sum, t, false, bytes));
        }
        for (unsigned width : {1u, 2u, 4u, 8u})
            for (bool native : {false, true})
                by_best_time(benchmark::RegisterBenchmark(
                    ("sum/int" + std::to_string(8 * width) + (native ? "_native" : "_big_endian") + where).c_str(), sum,
                    type_name{TAVO_VALUE_INTEGER, width, ""}, native, bytes));
    }
    by_best_time(benchmark::RegisterBenchmark("build_cla_1_ub1/L2", cumulative_lengths<ub1>, 40000u));
    by_best_time(benchmark::RegisterBenchmark("build_cla_1_ub2/L2", cumulative_lengths<ub2>, 40000u));
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
}
