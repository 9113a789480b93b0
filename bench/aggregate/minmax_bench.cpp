// The smallest and largest codes, by width: all rows from L2 and from memory, selections of them, nulls.
//
// Counters: bytes/s of codes, items/s = rows/s. of_read = the share of the speed of a plain read of the same codes;
// of_plain = rows/s of the _null member beside the plain one's; of_all = rows/s of a selection beside those of all
// rows. obvious_loop: the loop that one writes, over codes already unpacked to ub2, as the compiler vectorises it.
#include <benchmark/benchmark.h>

#include <cstdlib>
#include <random>
#include <string>
#include <vector>

#include "bench/kit/plain.h"
#include "frame/dispatch_table.h"
#include "frame/tavo.h"

namespace {

using namespace tavo::bench;

// Random codes of any width, from a cache line on, as a host allocates columns.
const ub1 *codes() {
    static const ub8 *const data = [] {
        auto *words = static_cast<ub8 *>(std::aligned_alloc(64, in_memory / 2 + 64));
        std::mt19937_64 rng(1);
        std::generate_n(words, in_memory / 16 + 8, [&] { return rng(); });
        return words;
    }();
    return reinterpret_cast<const ub1 *>(data);
}

struct call {
    call(unsigned width, std::size_t bytes, bool nullable) {
        const unsigned variant = nullable ? TAVO_VARIANT_SECOND : TAVO_VARIANT_PLAIN;
        kernel =
            tavo_global_specialized_ctx
                .dispatch_table[tavo::dispatch_index(TAVO_OP_MINMAX, TAVO_CLASS_DICT, tavo::width_code(width), variant)]
                .minmax;
        enc.flags = TAVO_DICT;
        enc.symbol_count = 0x7fffffff; // no target is met: no walk ends early
        src.enc = &enc;
        src.data = const_cast<ub1 *>(codes());
        src.size = static_cast<ub4>(bytes * 8 / width);
        res.data = pair;
    }
    void operator()() {
        env.resume_row = 0;
        benchmark::DoNotOptimize(kernel(&res, &src, &env, 0));
    }
    void select(ub4 one_in) {
        std::mt19937_64 rng(2);
        selection.assign(src.size / 64 + 1, 0);
        for (ub8 row = 0; row < src.size; row++)
            if (rng() % one_in == 0)
                selection[row / 64] |= 1ull << row % 64;
        env.sel_bits = selection.data();
    }
    tavo_minmax_fn *kernel;
    ub4 pair[2];
    tavo_enc_ctx enc{};
    tavo_vec src{}, res{};
    tavo_env env{};
    std::vector<ub8> selection;
};

void all_rows(benchmark::State &state, unsigned width, std::size_t bytes) {
    call k(width, bytes, false);
    const double read = plain_read_seconds(k.src.data, bytes);
    state.counters["of_read"] = read / report_best(state, bytes, k.src.size, k);
}

void null_form(benchmark::State &state, unsigned width, std::size_t bytes) {
    call plain(width, bytes, false), k(width, bytes, true);
    const double seconds = best_seconds(plain);
    state.counters["of_plain"] = seconds / report_best(state, bytes, k.src.size, k);
}

void selected(benchmark::State &state, unsigned width, std::size_t bytes, ub4 one_in) {
    call k(width, bytes, false);
    const double all = best_seconds(k);
    k.select(one_in);
    state.counters["of_all"] = all / report_best(state, bytes, k.src.size, k);
}

void obvious_loop(benchmark::State &state) {
    std::vector<ub2> unpacked(in_l2 / 2);
    for (std::size_t i = 0; i < unpacked.size(); i++)
        unpacked[i] = static_cast<ub2>(codes()[i] * 16);
    report_best(state, in_l2, unpacked.size(), [&] {
        ub2 low = 0xffff, high = 0;
        for (const ub2 code : unpacked) {
            low = std::min(low, code);
            high = std::max(high, code);
        }
        benchmark::DoNotOptimize(low);
        benchmark::DoNotOptimize(high);
    });
}

} // namespace

int main(int argc, char **argv) {
    by_best_time(benchmark::RegisterBenchmark("obvious_loop/L2", obvious_loop));
    for (unsigned width : {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16, 17, 18, 19, 20, 24, 32}) {
        const auto add = [&](std::string name, auto... args) {
            name.append("/").append(std::to_string(width)).append("bit");
            by_best_time(benchmark::RegisterBenchmark(name.c_str(), args...));
        };
        add("range_L2", all_rows, width, in_l2);
        add("range_memory", all_rows, width, in_memory / 2);
        add("null_L2", null_form, width, in_l2);
        if (width % 4 == 0)
            for (ub4 one_in : {2u, 100u, 1000u, 100000u})
                add("one_in_" + std::to_string(one_in) + "_L2", selected, width, in_l2, one_in);
    }
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
}
