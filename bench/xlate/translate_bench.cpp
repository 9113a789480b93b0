// Translation kernels beside the plain loop of the obvious code, the same without a branch on a row's answer, and a
// loop that gathers from the table and stores and does nothing else. 65536 rows; a quarter of the table has no partner,
// and codes are random: rows repeat too late for a branch predictor to learn them. Items are rows.
#include <benchmark/benchmark.h>

#include <cstring>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "bench/kit/plain.h"
#include "frame/dispatch_table.h"
#include "frame/tavo.h"

namespace tavo::bench {
namespace {

constexpr ub4 rows = 1 << 16;

enum form { plain, cla, constant, sep };

template <class T>
struct setting {
    // A table of 8 KiB, and codes within it but for one in sixteen.
    explicit setting(form layout) : layout(layout), table(8192 / sizeof(T) + 64) {
        std::mt19937_64 rng(7);
        ctx.high = static_cast<ub4>(8192 / sizeof(T) - 1);
        ctx.shift = 8;
        for (T &entry : table)
            entry = rng() % 4 == 0 ? static_cast<T>(~T{0}) : static_cast<T>(rng() & 0x7e);
        for (std::size_t i = 0; i <= ctx.high >> ctx.shift; i++)
            leaves.push_back(reinterpret_cast<ub8>(table.data() + (i << ctx.shift)));
        offsets.push_back(0);
        for (ub4 row = 0; row < rows; row++) {
            const auto code = static_cast<ub4>(rng() % (ctx.high + ctx.high / 16));
            if (layout == plain) {
                const ub4 stored = __builtin_bswap32(code);
                bytes.append(reinterpret_cast<const char *>(&stored), 4);
                continue;
            }
            const unsigned pairs = layout == constant || code >= 128 ? 2 : 1; // of 100, as codes have them, at 7 bits
            bytes += static_cast<char>(192 + pairs);
            if (pairs == 2)
                bytes += static_cast<char>((code >> 7) + 1);
            bytes += static_cast<char>((code & 127) + 1);
            lengths.push_back(static_cast<ub2>(pairs + 1));
            offsets.push_back(__builtin_bswap32(static_cast<ub4>(bytes.size())));
        }
        src.data = bytes.data();
        src.lengths = lengths.data();
        src.size = rows;
        src.enc = &enc;
        enc.cla = offsets.data();
        enc.flags = layout == plain ? TAVO_HASHES : 0;
        enc.width_bits = layout == plain ? 32 : 24;
        res.bits = result.data();
        res.data = extent;
        env.xlate_ctx = &ctx;
        env.xlate_out = out.data();
    }
    void run(unsigned lookup, bool c2d) {
        dict.bits = lookup == 2 ? leaves.data() : reinterpret_cast<ub8 *>(table.data());
        const unsigned index = TAVO_DISPATCH_INDEX(
            TAVO_KERNEL_ROW(c2d, tavo_xlate_convert_width(sizeof(T), layout), lookup), TAVO_OP_XLATE);
        tavo_global_specialized_ctx.dispatch_table[index].xlate(&res, &src, &dict, &env);
    }

    form layout;
    std::vector<T> table;
    std::vector<ub8> leaves, result = std::vector<ub8>(rows / 64);
    std::vector<T> out = std::vector<T>(rows);
    std::string bytes;
    std::vector<ub4> offsets;
    std::vector<ub2> lengths;
    ub4 extent[2];
    tavo_xlate_ctx ctx{};
    tavo_enc_ctx enc{};
    tavo_vec src{}, dict{}, res{};
    tavo_env env{};
};

// The code of a row, as one writes it down.
template <class T>
[[gnu::always_inline]] inline bool code_of_row(const setting<T> &s, ub4 row, ub8 &offset, ub4 &code) {
    const auto *data = reinterpret_cast<const ub1 *>(s.bytes.data());
    if (s.layout == plain) {
        std::memcpy(&code, data + 4ull * row, 4);
        code = __builtin_bswap32(code);
        return true;
    }
    const ub1 *b;
    unsigned n;
    if (s.layout == constant) {
        n = 3;
        b = data + 3ull * row;
    } else if (s.layout == cla) {
        const ub4 from = __builtin_bswap32(s.offsets[row]);
        n = __builtin_bswap32(s.offsets[row + 1]) - from;
        b = data + from;
    } else {
        n = s.lengths[row];
        b = data + offset;
        offset += n;
    }
    if (n == 1 && b[0] == 128) {
        code = 0;
        return true;
    }
    if (n - 1 > 4 || b[0] < 192 || b[0] - 192u < n - 1)
        return false;
    code = 0;
    for (unsigned i = 1; i < n; i++)
        code = code << 7 | (b[i] - 1u);
    code <<= 7 * (b[0] - 192u - (n - 1));
    return true;
}
template <class T>
[[gnu::noinline]] ub4 plain_loop(setting<T> &s, bool c2d) {
    ub4 count = 0;
    ub8 offset = 0;
    std::fill(s.result.begin(), s.result.end(), 0);
    for (ub4 row = 0; row < rows; row++) {
        ub4 code = 0;
        const bool known = code_of_row(s, row, offset, code) && code >= s.ctx.low && code <= s.ctx.high;
        const T entry = known ? s.table[code] : static_cast<T>(~T{0});
        if (c2d)
            s.out[row] = entry;
        if (entry == static_cast<T>(~T{0}))
            continue;
        s.result[row / 64] |= 1ull << row % 64;
        count++;
    }
    return count;
}
// For codes alone: out-of-range codes are looked up at 0, and bits are made without a branch.
template <class T>
[[gnu::noinline]] ub4 branchless_loop(setting<T> &s, bool c2d) {
    const auto *codes = reinterpret_cast<const ub4 *>(s.bytes.data());
    ub4 count = 0;
    for (ub4 w = 0; w < rows / 64; w++) {
        ub8 word = 0;
        for (ub4 i = 0; i < 64; i++) {
            const ub4 code = __builtin_bswap32(codes[w * 64 + i]);
            const bool in_range = code >= s.ctx.low && code <= s.ctx.high;
            const T entry = in_range ? s.table[code] : static_cast<T>(~T{0});
            if (c2d)
                s.out[w * 64 + i] = entry;
            word |= static_cast<ub8>(entry != static_cast<T>(~T{0})) << i;
        }
        s.result[w] = word;
        count += static_cast<ub4>(__builtin_popcountll(word));
    }
    return count;
}
// Sixteen entries a gather, stored as they come; codes masked into the table.
template <class T>
[[gnu::noinline]] void gather_and_store(setting<T> &s, ub4 *to) {
    const auto *codes = reinterpret_cast<const ub4 *>(s.bytes.data());
    const __m512i mask = _mm512_set1_epi32(static_cast<int>(s.ctx.high));
    for (ub4 row = 0; row < rows; row += 64)
#pragma GCC unroll 4
        for (ub4 i = 0; i < 64; i += 16) {
            const __m512i at = _mm512_and_si512(_mm512_loadu_si512(codes + row + i), mask);
            _mm512_storeu_si512(to + i, _mm512_i32gather_epi32(at, s.table.data(), sizeof(T)));
        }
}

template <class T>
void measure(const char *element) {
    const auto add = [=](const std::string &name, form layout, auto body) {
        benchmark::RegisterBenchmark(("xlate/" + std::string(element) + "/" + name).c_str(),
                                     [=](benchmark::State &state) {
                                         auto s = std::make_unique<setting<T>>(layout);
                                         report_best(state, s->bytes.size(), rows, [&] { body(*s); });
                                     })
            ->Apply(by_best_time);
    };
    add("limit/gather_and_store", plain, [](setting<T> &s) {
        alignas(64) static ub4 to[64];
        gather_and_store(s, to);
        benchmark::DoNotOptimize(to);
    });
    static const char *const forms[] = {"codes", "cla", "const", "sep"};
    for (form layout : {plain, cla, constant, sep})
        for (bool c2d : {false, true}) {
            const std::string tail = std::string(forms[layout]) + (c2d ? "_c2d" : "");
            add("plain/" + tail, layout, [=](setting<T> &s) { benchmark::DoNotOptimize(plain_loop(s, c2d)); });
            if (layout == plain)
                add("branchless/" + tail, layout,
                    [=](setting<T> &s) { benchmark::DoNotOptimize(branchless_loop(s, c2d)); });
            for (unsigned lookup = 0; lookup < 3; lookup++)
                add(std::string("kernel/") +
                        (lookup == 0   ? "sim_"
                         : lookup == 1 ? "off_"
                                       : "ind_") +
                        tail,
                    layout, [=](setting<T> &s) { s.run(lookup, c2d); });
        }
}

const bool registered = [] {
    measure<ub1>("ub1");
    measure<ub2>("ub2");
    measure<ub4>("ub4");
    return true;
}();

} // namespace
} // namespace tavo::bench
BENCHMARK_MAIN();
