// Symbol references from packed and from unpacked codes, copies of symbols, and the expansion of front-coded
// dictionaries.
//
// Counters: items/s = rows/s or symbols/s. references: of_store = the share of the speed of plain stores of the same
// output. copies and front_coded: of_copy = the share of the speed of a plain copy of the output's bytes.
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

constexpr ub4 rows = 16384;

tavo_row_move_fn *kernel(tavo_operation operation, unsigned width) {
    const unsigned index = tavo::dispatch_index(operation, TAVO_CLASS_DICT, tavo::width_code(width), 0);
    return tavo_global_specialized_ctx.dispatch_table[index].row_move;
}

double copy_seconds(std::size_t bytes) {
    std::vector<ub1> from(bytes, 1), to(bytes);
    return best_seconds([&] {
        std::memcpy(to.data(), from.data(), bytes);
        benchmark::DoNotOptimize(to.data());
        benchmark::ClobberMemory();
    });
}

struct column {
    column(unsigned width, ub4 symbols, ub2 symbol_length)
        : data(rows * 4 + 64), address(rows), lengths(rows), indicators(rows), cla(symbols + 2),
          stored_length(__builtin_bswap16(symbol_length)), dictionary((symbols + 1) * std::size_t{symbol_length}, 'x') {
        std::mt19937_64 rng(1);
        for (ub4 i = 0, end = 0; i < cla.size(); i++, end += static_cast<ub4>(rng() % 12))
            cla[i] = __builtin_bswap32(end);
        enc.flags = TAVO_DICT;
        enc.symbols = reinterpret_cast<ub8>(dictionary.data());
        enc.symbol_count = symbols;
        enc.symbol_len = &stored_length;
        enc.cla = cla.data();
        enc.width_bits = width;
        src.enc = &enc;
        src.data = data.data();
        src.size = dst.size = rows;
        dst.data = address.data();
        dst.lengths = lengths.data();
        dst.indicators = indicators.data();
    }
    void unpacked_codes(unsigned width, ub4 symbols) {
        std::mt19937_64 rng(2);
        for (ub4 i = 0; i < rows; i++) {
            const auto code = static_cast<ub4>(rng() % symbols);
            std::memcpy(data.data() + i * (width / 8), &code, width / 8);
        }
    }
    std::vector<ub1> data;
    std::vector<ub8> address;
    std::vector<ub2> lengths, indicators;
    std::vector<ub4> cla;
    ub2 stored_length;
    std::vector<ub1> dictionary;
    tavo_enc_ctx enc{};
    tavo_vec src{}, dst{};
    tavo_env env{};
};

void references(benchmark::State &state, tavo_operation operation, unsigned width, bool cla, bool listed) {
    const ub4 symbols = std::min(1u << std::min(width, 16u), 65000u);
    column c(width, 65536, 8);
    if (operation == TAVO_OP_DECODE_SYMBOL)
        c.unpacked_codes(width, symbols);
    else
        for (std::size_t i = 0; i < c.data.size(); i++) // codes of up to 16 bits
            c.data[i] = width > 16 && i * 8 % width < 8 ? 0 : static_cast<ub1>(i * 2654435761u >> 13);
    c.enc.dict_kind = cla ? TAVO_DICT_CLA : TAVO_DICT_ONE_LEN;
    std::vector<ub4> list(rows);
    for (ub4 i = 0; i < rows; i++)
        list[i] = i;
    c.env.ones_vec = listed ? list.data() : nullptr;
    c.env.ones_vec_size = listed ? rows : 0;
    constexpr std::size_t bytes = rows * 12;
    const double store = best_seconds([&] {
        std::memset(c.address.data(), 1, rows * 8);
        std::memset(c.lengths.data(), 1, rows * 2);
        std::memset(c.indicators.data(), 1, rows * 2);
        benchmark::ClobberMemory();
    });
    tavo_row_move_fn *call = kernel(operation, width);
    const double seconds =
        report_best(state, bytes, rows, [&] { benchmark::DoNotOptimize(call(&c.dst, &c.src, &c.env)); });
    state.counters["of_store"] = store / seconds;
}

void copies(benchmark::State &state, ub2 length, ub4 symbols) {
    column c(32, symbols, length);
    c.unpacked_codes(32, symbols);
    std::vector<ub1> out(rows * std::size_t{length});
    c.dst.data = out.data();
    c.env.flags2 = TAVO_ENV2_COPY;
    const double copy = copy_seconds(out.size());
    tavo_row_move_fn *call = kernel(TAVO_OP_DECODE_SYMBOL, 32);
    const double seconds =
        report_best(state, out.size(), rows, [&] { benchmark::DoNotOptimize(call(&c.dst, &c.src, &c.env)); });
    state.counters["of_copy"] = copy / seconds;
}

// Prefix lengths of the blocks: all the same, or changing at random between `prefix` and `prefix` + 2.
void front_coded(benchmark::State &state, unsigned w, unsigned prefix, bool changing, std::size_t bytes) {
    const auto blocks = static_cast<ub4>(bytes / (16 * w));
    std::mt19937_64 rng(3);
    std::vector<ub1> stream;
    for (ub4 b = 0; b < blocks; b++) {
        const auto k = std::min(w, prefix + (changing ? static_cast<unsigned>(rng() % 3) : 0));
        stream.push_back(static_cast<ub1>(k));
        stream.resize(stream.size() + k + 16 * (w - k), static_cast<ub1>(b));
    }
    std::vector<ub1> out(blocks * std::size_t{16} * w);
    tavo_enc_ctx enc{};
    enc.prefix_block = 16;
    enc.prefix_len = static_cast<sb2>(w);
    enc.prefix_count = blocks * 16;
    tavo_vec src{}, dst{};
    src.enc = &enc;
    src.data = stream.data();
    src.size = blocks;
    dst.data = out.data();
    const double copy = copy_seconds(out.size());
    const double seconds = report_best(state, out.size(), enc.prefix_count, [&] {
        benchmark::DoNotOptimize(tavo_global_specialized_ctx.prefix_decode(&dst, &src, nullptr));
    });
    state.counters["of_copy"] = copy / seconds;
}

} // namespace

int main(int argc, char **argv) {
    const auto add = [&](const std::string &name, auto... args) {
        by_best_time(benchmark::RegisterBenchmark(name.c_str(), args...));
    };
    for (unsigned width : {1, 5, 8, 12, 16, 20, 32})
        for (bool cla : {false, true})
            for (bool listed : {false, true})
                if (width <= 16 || !cla)
                    add("references/decode/" + std::to_string(width) + "bit/" + (cla ? "cla" : "one_len") +
                            (listed ? "/listed" : ""),
                        references, TAVO_OP_DECODE, width, cla, listed);
    for (unsigned width : {8, 16, 32})
        for (bool cla : {false, true})
            add("references/decode_symbol/" + std::to_string(width) + "bit/" + (cla ? "cla" : "one_len"), references,
                TAVO_OP_DECODE_SYMBOL, width, cla, false);
    for (auto [length, symbols] : {std::pair(1, 3), std::pair(1, 16), std::pair(1, 200), std::pair(2, 1000),
                                   std::pair(3, 1000), std::pair(4, 1000), std::pair(8, 1000), std::pair(20, 1000)})
        add("copies/" + std::to_string(symbols) + "_of_" + std::to_string(length), copies, static_cast<ub2>(length),
            static_cast<ub4>(symbols));
    for (auto [place, bytes] : {std::pair("L2", in_l2), std::pair("memory", in_memory / 4)})
        for (unsigned w = 1; w <= 8; w++)
            for (bool changing : {false, true})
                add("front_coded/" + std::to_string(w) + "_bytes/" + (changing ? "changing/" : "even/") + place,
                    front_coded, w, w / 2, changing, bytes);
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
}
