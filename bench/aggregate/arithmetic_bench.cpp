// Arithmetic on columns of float and double beside a triad loop (out = a + s * b, as the compiler vectorises it) over
// arrays of the same size, and the sums beside a plain read of the operands.
//
// Counters: bytes/s of operands and results; of_triad, of_read = the share of those baselines' speed; of_native = the
// share of the speed of the same kernel on native operands.
#include <benchmark/benchmark.h>

#include <cstdlib>
#include <memory>
#include <random>
#include <string>

#include "bench/kit/plain.h"
#include "frame/dispatch_table.h"
#include "frame/tavo.h"

namespace {

using namespace tavo::bench;

// Three arrays of up to so many bytes, one behind the other for as many as are asked for.
constexpr std::size_t most = in_memory / 3 / 4096 * 4096;
ub1 *arrays() {
    static ub1 *const data = [] {
        auto *p = static_cast<ub1 *>(std::aligned_alloc(4096, 3 * most + 3 * 4096));
        std::mt19937_64 rng(1);
        for (std::size_t i = 0; i < 3 * most / 4; i++) // small numbers by either way to read them
            reinterpret_cast<ub4 *>(p)[i] = 0x3f00003fu | (static_cast<ub4>(rng()) & 0x00ffff00);
        return p;
    }();
    return data;
}

template <class T>
[[gnu::noinline]] void triad(T *__restrict out, const T *__restrict a, const T *__restrict b, T scale, std::size_t n) {
    for (std::size_t i = 0; i < n; i++)
        out[i] = a[i] + scale * b[i];
}

struct call {
    call(unsigned operation, unsigned type, int forms, bool sum, std::size_t bytes)
        : kernel(library_slot(operation, type, forms, sum)) {
        a.data = arrays();
        b.data = arrays() + bytes + 64;
        res.data = arrays() + 2 * (bytes + 64);
        a.enc = &a_enc;
        b.enc = &b_enc;
        a.size = b.size = static_cast<ub4>(bytes / (4 * type));
    }
    static tavo_arith_fn *library_slot(unsigned operation, unsigned type, int forms, bool sum) {
        const unsigned row =
            TAVO_ARITH_KERNEL_ROW(sum ? TAVO_VARIANT_SECOND : TAVO_VARIANT_PLAIN, type, forms & 1, forms >> 1);
        return tavo_global_specialized_ctx.dispatch_table[TAVO_DISPATCH_INDEX(row, operation)].arith;
    }
    void operator()() { benchmark::DoNotOptimize(kernel(&res, &a, &b, nullptr)); }

    tavo_arith_fn *kernel;
    tavo_enc_ctx a_enc{}, b_enc{};
    tavo_vec a{}, b{}, res{};
};

void rows(benchmark::State &state, unsigned operation, unsigned type, int forms, bool constant, std::size_t bytes) {
    call native(operation, type, 0, false, bytes), k(operation, type, forms, false, bytes);
    if (constant)
        native.b_enc.flags = k.b_enc.flags = TAVO_CONSTANT;
    const double loop = best_seconds([&] {
        if (type == TAVO_VALUE_FLOAT)
            triad(static_cast<float *>(k.res.data), static_cast<float *>(k.a.data), static_cast<float *>(k.b.data),
                  1.5f, k.a.size);
        else
            triad(static_cast<double *>(k.res.data), static_cast<double *>(k.a.data), static_cast<double *>(k.b.data),
                  1.5, k.a.size);
    });
    const double on_native = best_seconds(native);
    const double seconds = report_best(state, (constant ? 2 : 3) * bytes, k.a.size, k);
    state.counters["of_triad"] = loop / seconds;
    state.counters["of_native"] = on_native / seconds;
}

void sum(benchmark::State &state, unsigned operation, unsigned type, int forms, bool constant, std::size_t bytes) {
    call native(operation, type, 0, true, bytes), k(operation, type, forms, true, bytes);
    if (constant)
        native.b_enc.flags = k.b_enc.flags = TAVO_CONSTANT;
    const std::size_t read = constant ? bytes : 2 * bytes;
    const double by_reading = plain_read_seconds(k.a.data, read);
    const double on_native = best_seconds(native);
    const double seconds = report_best(state, read, k.a.size, k);
    state.counters["of_read"] = by_reading / seconds;
    state.counters["of_native"] = on_native / seconds;
}

} // namespace

int main(int argc, char **argv) {
    static const char *const forms[] = {"n_n", "c_n", "n_c", "c_c"};
    for (unsigned type : {TAVO_VALUE_FLOAT, TAVO_VALUE_DOUBLE})
        for (auto [place, bytes] :
             {std::pair("L1", std::size_t{4096}), std::pair("L2", std::size_t{128 << 10}), std::pair("memory", most)})
            for (auto [op, operation] : {std::pair("add", TAVO_OP_ADD), std::pair("mul", TAVO_OP_MUL)})
                for (int form = 0; form < 4; form++)
                    for (bool constant : {false, true}) {
                        const std::string name = std::string(op) + (type == 1 ? "_float_" : "_double_") + forms[form] +
                                                 (constant ? "/constant/" : "/columns/") + place;
                        by_best_time(benchmark::RegisterBenchmark(("rows/" + name).c_str(), rows, operation, type, form,
                                                                  constant, bytes));
                        by_best_time(benchmark::RegisterBenchmark(("sum/" + name).c_str(), sum, operation, type, form,
                                                                  constant, bytes));
                    }
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
}
