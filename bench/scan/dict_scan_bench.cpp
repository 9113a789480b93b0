// Dictionary-code scans by width and operator, from L2 and from memory, beside a plain read of the same bytes; the
// sparse walk beside the dense scan; an autovectorised loop of the obvious code for whole-element widths.
//
// Counters: bytes/s of codes, items/s = codes/s, of_read = the share of the speed of a plain read of the same bytes.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "bench/kit/plain.h"
#include "frame/dispatch_table.h"
#include "frame/tavo.h"

namespace {

using namespace tavo::bench;

struct column {
    explicit column(std::size_t bytes) : data(bytes + 64), bits(bytes * 8 / 64 + 8), selection(bits.size()) {
        std::mt19937_64 rng(1);
        for (std::size_t i = 0; i + 8 <= bytes; i += 8) {
            const auto word = rng();
            std::memcpy(data.data() + i, &word, 8);
        }
    }
    std::size_t bytes() const { return data.size() - 64; }
    std::vector<ub1> data;
    std::vector<ub8> bits, selection;
};

// One column a size: the bytes are random, so they are codes of any width.
column &column_of(std::size_t bytes) {
    static column l2(in_l2), memory(in_memory);
    return bytes == in_l2 ? l2 : memory;
}

struct call {
    tavo_enc_ctx enc{};
    tavo_vec src{}, res{}, lo{}, hi{};
    tavo_env env{};
    ub8 low, high;
    tavo_kernel_slot kernel;
    bool range;

    call(column &c, unsigned operation, unsigned width, bool nullable) {
        const unsigned index =
            tavo::dispatch_index(operation, TAVO_CLASS_DICT, tavo::width_code(width), nullable ? 1 : 0);
        kernel = tavo_global_specialized_ctx.dispatch_table[index];
        range = operation >= TAVO_OP_GT_LT;
        const ub8 top = width == 64 ? ~0ull : (1ull << width) - 1;
        low = top / 4;
        high = top / 4 * 3;
        enc.flags = TAVO_DICT;
        src.enc = &enc;
        src.data = c.data.data();
        // At one bit a code the column has more rows than a vector can: its first 2^32 - 512.
        src.size = res.size = static_cast<ub4>(std::min<ub8>(c.bytes() * 8 / width, 0xfffffe00));
        res.bits = c.bits.data();
        lo.data = &low;
        hi.data = &high;
    }
    std::size_t bytes(unsigned width) const { return static_cast<std::size_t>(src.size) * width / 8; }
    ub4 operator()() {
        return range ? kernel.range_scan(&res, &src, &lo, &hi, &env) : kernel.scan(&res, &src, &lo, &env);
    }
};

void scan(benchmark::State &state, std::size_t bytes, unsigned operation, unsigned width, bool nullable) {
    column &c = column_of(bytes);
    call k(c, operation, width, nullable);
    const double read = plain_read_seconds(c.data.data(), k.bytes(width));
    const double seconds = report_best(state, k.bytes(width), k.src.size, [&] { benchmark::DoNotOptimize(k()); });
    state.counters["of_read"] = read / seconds;
}

void read_only(benchmark::State &state, std::size_t bytes) {
    column &c = column_of(bytes);
    report_best(state, c.bytes(), 0, [&] { benchmark::DoNotOptimize(plain_read(c.data.data(), c.bytes())); });
}

// The obvious code on codes that need no unpacking, as the compiler vectorises it.
template <class T>
void obvious_loop(benchmark::State &state, std::size_t bytes) {
    column &c = column_of(bytes);
    const auto *codes = reinterpret_cast<const T *>(c.data.data());
    auto *rows = reinterpret_cast<ub1 *>(c.bits.data());
    const std::size_t n = c.bytes() / sizeof(T);
    const T low = static_cast<T>(~T{0} / 4);
    report_best(state, c.bytes(), n, [&] {
        unsigned long count = 0;
        for (std::size_t i = 0; i + 8 <= n; i += 8) {
            unsigned byte = 0;
            for (unsigned k = 0; k < 8; k++)
                byte |= static_cast<unsigned>(
                            (sizeof(T) == 2 ? static_cast<T>(__builtin_bswap16(codes[i + k])) : codes[i + k]) == low)
                        << k;
            rows[i / 8] = static_cast<ub1>(byte);
            count += static_cast<unsigned>(__builtin_popcount(byte));
        }
        benchmark::DoNotOptimize(count);
        benchmark::ClobberMemory();
    });
}

// Selecting one row in `one_in`: walked row by row, or scanned whole and masked.
void selected(benchmark::State &state, std::size_t bytes, unsigned width, unsigned one_in, bool sparse) {
    column &c = column_of(bytes);
    call k(c, TAVO_OP_GE, width, false);
    std::fill(c.selection.begin(), c.selection.end(), 0);
    std::mt19937_64 rng(2);
    for (ub4 n = k.src.size / one_in; n != 0; n--) {
        const ub8 row = rng() % k.src.size;
        c.selection[row / 64] |= 1ull << row % 64;
    }
    k.env.sel_bits = c.selection.data();
    k.env.flags = sparse ? TAVO_ENV_SPARSE : 0;
    report_best(state, c.bytes(), k.src.size, [&] { benchmark::DoNotOptimize(k()); });
}

const char *const operation_names[] = {"eq", "lt", "gt", "le", "ge", "ne", "gt_lt", "gt_le", "ge_lt", "ge_le"};
const unsigned widths[] = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16, 17, 18, 19, 20, 24, 32, 64};

} // namespace

int main(int argc, char **argv) {
    benchmark::Initialize(&argc, argv);
    const ub4 info[3] = {};
    tavo_global_specialized_ctx.init_sharedlib(0, info);
    const auto add = [](const std::string &name, auto &&...args) {
        return benchmark::RegisterBenchmark(name.c_str(), args...)->Apply(by_best_time);
    };
    for (auto [level, bytes] : {std::pair{"L2", in_l2}, std::pair{"memory", in_memory}}) {
        const std::string at = std::string("/") + level;
        add("plain_read" + at, read_only, bytes);
        add("obvious_eq_8bit" + at, obvious_loop<ub1>, bytes);
        add("obvious_eq_16bit" + at, obvious_loop<ub2>, bytes);
        for (unsigned operation : {TAVO_OP_EQ, TAVO_OP_GE_LE})
            for (bool nullable : {false, true})
                for (unsigned width : widths)
                    add(std::string(operation_names[operation]) + "_dict_" + std::to_string(width) + "bit" +
                            (nullable ? "_null" : "") + at,
                        scan, bytes, operation, width, nullable);
        for (unsigned width : {4u, 12u, 20u})
            for (unsigned one_in : {20u, 50u, 100u, 200u, 1000u, 10000u})
                for (bool sparse : {false, true})
                    add(std::string(sparse ? "sparse" : "dense") + "_ge_dict_" + std::to_string(width) + "bit/1_in_" +
                            std::to_string(one_in) + at,
                        selected, bytes, width, one_in, sparse);
    }
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
