// Unpacking of codes to integers from L2, by width and output width: all rows, half of them, none, a sparse walk, runs.
//
// Counters: bytes/s of output, items/s = rows/s. all_rows: of_store = the share of the speed of plain stores of the
// same output. The selections: of_all = their rows/s beside those of all rows.
#include <benchmark/benchmark.h>

#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "bench/kit/plain.h"
#include "frame/dispatch_table.h"
#include "frame/tavo.h"

namespace {

using namespace tavo::bench;

constexpr ub4 rows = 32768;

// Stores as fast as it goes, 512 bits at a time.
[[gnu::noinline]] void plain_store(void *to, std::size_t bytes) {
    auto *p = static_cast<char *>(to);
    const __m512i v = _mm512_set1_epi32(static_cast<int>(bytes));
    for (std::size_t i = 0; i + 256 <= bytes; i += 256)
#pragma GCC unroll 4
        for (int k = 0; k < 4; k++)
            _mm512_storeu_si512(p + i + 64 * k, v);
}

struct column {
    column() : data(rows * 4 + 64), out(rows), run_table(rows, 8), selection(rows / 64) {
        std::mt19937_64 rng(1);
        for (ub1 &b : data)
            b = static_cast<ub1>(rng());
    }
    void select(unsigned per_mille) {
        std::mt19937_64 rng(2);
        for (ub8 &word : selection) {
            word = 0;
            for (int bit = 0; bit < 64; bit++)
                word |= static_cast<ub8>(rng() % 1000 < per_mille) << bit;
        }
    }
    std::vector<ub1> data;
    std::vector<ub4> out;
    std::vector<ub1> run_table;
    std::vector<ub8> selection;
};
column &data() {
    static column c;
    return c;
}

struct call {
    call(unsigned width, bool wide) {
        kernel = tavo_global_specialized_ctx
                     .dispatch_table[tavo::dispatch_index(TAVO_OP_DECODE_UNPACK, TAVO_CLASS_DICT,
                                                          tavo::width_code(width), 0)]
                     .row_move;
        enc.flags = TAVO_DICT;
        src.enc = &enc;
        src.data = data().data.data();
        src.size = dst.size = rows;
        dst.data = data().out.data();
        env.flags = wide ? TAVO_ENV_WIDE : 0;
    }
    void operator()() {
        env.resume_row = env.run_index = env.run_end = 0;
        benchmark::DoNotOptimize(kernel(&dst, &src, &env));
    }
    tavo_row_move_fn *kernel;
    tavo_enc_ctx enc{};
    tavo_vec src{}, dst{};
    tavo_env env{};
};

unsigned element_bytes(unsigned width, bool wide) { return wide || width > 16 ? 4 : width > 8 ? 2 : 1; }

void all_rows(benchmark::State &state, unsigned width, bool wide) {
    call k(width, wide);
    const std::size_t bytes = rows * element_bytes(width, wide);
    const double store = best_seconds([&] { plain_store(k.dst.data, bytes); });
    const double seconds = report_best(state, bytes, rows, k);
    state.counters["of_store"] = store / seconds;
}

void selected(benchmark::State &state, unsigned width, bool wide, unsigned per_mille, bool sparse) {
    call k(width, wide);
    const double all = best_seconds(k);
    data().select(per_mille);
    k.env.sel_bits = data().selection.data();
    k.env.flags |= sparse ? TAVO_ENV_SPARSE : 0;
    k();
    const double seconds = report_best(state, k.dst.count * element_bytes(width, wide), rows, k);
    state.counters["of_all"] = all / seconds;
}

void runs(benchmark::State &state, unsigned width, bool wide, ub1 length) {
    call k(width, wide);
    std::fill(data().run_table.begin(), data().run_table.end(), length);
    k.enc.flags |= TAVO_RLE;
    k.enc.run_table = data().run_table.data();
    k.enc.run_entry_bits = 8;
    const std::size_t bytes = rows * element_bytes(width, wide);
    const double store = best_seconds([&] { plain_store(k.dst.data, bytes); });
    const double seconds = report_best(state, bytes, rows, k);
    state.counters["of_store"] = store / seconds;
}

} // namespace

int main(int argc, char **argv) {
    for (bool wide : {true, false})
        for (unsigned width : {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16, 17, 18, 19, 20, 24, 32}) {
            if (!wide && width > 16)
                continue;
            const std::string of = std::to_string(width) + "bit_to_ub" + std::to_string(element_bytes(width, wide));
            const auto add = [&](const char *what, auto... args) {
                by_best_time(benchmark::RegisterBenchmark((what + of).c_str(), args...));
            };
            add("all_rows/", all_rows, width, wide);
            add("half_selected/", selected, width, wide, 500u, false);
            add("none_selected/", selected, width, wide, 0u, false);
            if (width % 4 == 0) {
                add("one_in_100_by_blocks/", selected, width, wide, 10u, false);
                add("one_in_100_sparse/", selected, width, wide, 10u, true);
                add("runs_of_4/", runs, width, wide, ub1{4});
                add("runs_of_100/", runs, width, wide, ub1{100});
            }
        }
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
}
