// Burst of run bits to row bits: long runs beside a memset of the same row bits, the plans that walk exceptions by the
// number of these, and the plans that walk the run bits by words.
//
// Counters: bytes/s of row bits, items/s = runs/s, of_memset = the share of the speed of a memset of the same row bits,
// ns_each = time a selected run (an unselected one where most are).
#include <benchmark/benchmark.h>

#include <cstring>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "bench/kit/plain.h"
#include "frame/dispatch_table.h"
#include "frame/tavo.h"

namespace {

using namespace tavo::bench;

// `runs` runs of `shortest` to `longest` rows, in a table of 8 or 16 bits and as cumulative numbers; `selected` of
// them, spread evenly.
struct column {
    std::vector<ub1> table, cumulative;
    std::vector<ub8> run_bits, row_bits;
    tavo_enc_ctx enc{};
    tavo_vec src{}, res{};
    tavo_env env{};

    column(ub4 runs, ub4 shortest, ub4 longest, ub4 selected) : run_bits((runs + 63) / 64) {
        std::mt19937_64 rng(7);
        ub4 row = 0;
        put(cumulative, row, 4);
        for (ub4 i = 0; i < runs; i++) {
            const ub4 length = static_cast<ub4>(shortest + rng() % (longest - shortest + 1));
            put(table, length, longest > 255 ? 2 : 1);
            put(cumulative, row += length, 4);
        }
        for (ub8 i = 0; i < selected; i++) {
            const ub8 run = i * runs / selected;
            run_bits[run / 64] |= 1ull << run % 64;
        }
        row_bits.resize((row + 63) / 64);
        enc.flags = TAVO_RLE;
        enc.run_count = runs;
        enc.run_table = table.data();
        enc.run_cla = reinterpret_cast<ub4 *>(cumulative.data());
        src.enc = &enc;
        res.bits = row_bits.data();
        res.size = row;
        env.sel_bits = run_bits.data();
        env.sel_count = selected;
    }
    column(const column &) = delete;

    static void put(std::vector<ub1> &out, ub4 value, unsigned bytes) {
        while (bytes-- > 0)
            out.push_back(static_cast<ub1>(value >> 8 * bytes));
    }
};

void add(const std::string &name, unsigned code, ub4 runs, ub4 shortest, ub4 longest, ub4 selected) {
    auto c = std::make_shared<column>(runs, shortest, longest, selected);
    const tavo_kernel_slot kernel =
        tavo_global_specialized_ctx.dispatch_table[tavo::dispatch_index(TAVO_OP_BURST_RLE, TAVO_CLASS_OTHER, code, 0)];
    by_best_time(benchmark::RegisterBenchmark(name.c_str(), [=](benchmark::State &state) {
        const std::size_t bytes = c->row_bits.size() * 8;
        const double burst = report_best(state, bytes, runs, [&] { kernel.row_move(&c->res, &c->src, &c->env); });
        const double set = best_seconds([&] {
            std::memset(c->row_bits.data(), 0xff, bytes);
            benchmark::ClobberMemory();
        });
        state.counters["of_memset"] = set / burst;
        state.counters["ns_each"] = burst * 1e9 / std::max(1u, std::min(selected, runs - selected));
    }));
}

} // namespace

int main(int argc, char **argv) {
    constexpr unsigned bits8 = 6, bits8_cla = 7, bits16 = 14, bits16_cla = 15;
    // 64 runs, 400 KiB of row bits; 6000 runs, 35 MiB.
    for (ub4 runs : {64u, 6000u})
        for (ub4 percent : {10u, 50u, 90u}) {
            const std::string tail = std::to_string(runs) + "_runs/" + std::to_string(percent) + "%";
            add("long_16bit/" + tail, bits16, runs, 40000, 60000, runs * percent / 100);
            add("long_16bit_cla/" + tail, bits16_cla, runs, 40000, 60000, runs * percent / 100);
        }
    constexpr ub4 runs = 200000;
    for (ub4 exceptions : {0u, 20u, 200u, 2000u, 3999u}) {
        add("sparse_8bit/" + std::to_string(exceptions), bits8, runs, 1, 20, exceptions);
        add("nearly_full_8bit/" + std::to_string(exceptions), bits8, runs, 1, 20, runs - exceptions);
        add("sparse_8bit_cla/" + std::to_string(exceptions), bits8_cla, runs, 1, 20, exceptions);
    }
    for (ub4 percent : {5u, 25u, 50u, 75u, 95u})
        for (ub4 longest : {4u, 20u, 255u})
            add("words_8bit/to_" + std::to_string(longest) + "_rows/" + std::to_string(percent) + "%", bits8, runs, 1,
                longest, runs / 100 * percent);
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
}
