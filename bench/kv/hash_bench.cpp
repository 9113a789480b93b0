// Column hashing with a cheap hash behind a pointer, beside a loop that calls the same hash for elements that it finds
// through plain pointers and lengths. Items are rows.
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "bench/kit/plain.h"
#include "frame/tavo.h"

namespace tavo::bench {
namespace {

const tavo_specialized_ctx &lib = tavo_global_specialized_ctx;

[[gnu::noinline]] ub8 cheap_hash(const void *data, ub8 length, ub8 seed) {
    ub8 first;
    std::memcpy(&first, data, 8); // the benchmark's elements have no fewer bytes
    return (first ^ seed ^ length) * 0x9e3779b97f4a7c15;
}

constexpr ub4 element_bytes = 12;

struct column {
    column(ub4 form, ub4 rows, ub4 symbols) : text((symbols + 1ull) * element_bytes), hashes(rows) {
        std::mt19937_64 rng(68);
        for (ub1 &b : text)
            b = static_cast<ub1>(rng());
        length_be = __builtin_bswap16(element_bytes);
        enc.flags = form;
        enc.width_bits = form == TAVO_FIXED ? element_bytes * 8 : 20;
        enc.symbols = reinterpret_cast<ub8>(text.data());
        enc.symbol_len = &length_be;
        lengths.assign(rows, element_bytes);
        for (ub4 row = 0; row < rows; row++) {
            codes.push_back(static_cast<ub4>(rng() % symbols));
            addresses.push_back(reinterpret_cast<ub8>(text.data() + codes[row] * element_bytes));
        }
        bytes.resize(rows * (element_bytes + 2ull) + 16);
        for (std::size_t i = 0; i < bytes.size(); i++)
            bytes[i] = static_cast<ub1>(rng());
        if (form == TAVO_LV)
            for (ub4 row = 0; row < rows; row++)
                std::memcpy(&bytes[row * (element_bytes + 2ull)], &lengths[row], 2);
        if (form == TAVO_LP)
            for (ub4 row = 0; row < rows; row++) {
                std::memcpy(&bytes[row * 10ull], &lengths[row], 2);
                std::memcpy(&bytes[row * 10ull + 2], &addresses[row], 8);
            }
        vec.enc = &enc;
        vec.size = rows;
        vec.lengths = lengths.data();
        vec.data = form == TAVO_DICT     ? static_cast<void *>(codes.data())
                   : form == TAVO_LP_SEP ? static_cast<void *>(addresses.data())
                                         : bytes.data();
        if (form == TAVO_PACKED_KEYS) { // any codes below the number of symbols
            if (symbols < 1u << 20)
                for (ub4 row = 0; row < rows; row++)
                    put(row, codes[row]);
        }
        seed_enc.flags = TAVO_HASHES;
        seeds.enc = &seed_enc;
        seeds.data = &seed;
        seeds.size = 1;
        out.data = hashes.data();
    }
    void put(ub4 row, ub4 code) {
        for (unsigned i = 0; i < 20; i++) {
            const std::size_t bit = row * 20ull + i;
            const auto mask = static_cast<ub1>(0x80 >> bit % 8);
            bytes[bit / 8] = static_cast<ub1>(code >> (19 - i) & 1 ? bytes[bit / 8] | mask : bytes[bit / 8] & ~mask);
        }
    }

    std::vector<ub1> text, bytes;
    std::vector<ub8> hashes, addresses;
    std::vector<ub4> codes;
    std::vector<ub2> lengths;
    ub2 length_be;
    ub8 seed = 5;
    tavo_enc_ctx enc{}, seed_enc{};
    tavo_vec vec{}, seeds{}, out{};
};

[[gnu::noinline]] void plain_loop(column &c, tavo_hash_fn *hash) {
    for (std::size_t row = 0; row < c.hashes.size(); row++)
        c.hashes[row] = hash(reinterpret_cast<const void *>(c.addresses[row]), c.lengths[row], c.seed);
}

void measure(const char *where, ub4 rows, ub4 symbols) {
    const auto add = [=](const char *name, ub4 form, auto body) {
        benchmark::RegisterBenchmark(("hash/" + std::string(where) + "/" + name).c_str(), [=](benchmark::State &state) {
            column c(form, rows, symbols);
            report_best(state, rows * 8ull, rows, [&] { body(c); });
        })->Apply(by_best_time);
    };
    add("plain/addresses", TAVO_LP_SEP, [](column &c) { plain_loop(c, cheap_hash); });
    for (auto [name, form] :
         {std::pair("kernel/fixed", TAVO_FIXED), std::pair("kernel/packed_codes", TAVO_PACKED_KEYS),
          std::pair("kernel/codes", TAVO_DICT), std::pair("kernel/lv_sep", TAVO_LV_SEP),
          std::pair("kernel/lv", TAVO_LV), std::pair("kernel/lp_sep", TAVO_LP_SEP), std::pair("kernel/lp", TAVO_LP)})
        add(name, form, [](column &c) { lib.hash(&c.out, &c.vec, &c.seeds, cheap_hash, nullptr); });
}

const bool registered = [] {
    measure("1000_symbols", 64 << 10, 1000);
    measure("1M_symbols", 4 << 20, (1 << 20) - 1);
    return true;
}();

} // namespace
} // namespace tavo::bench
BENCHMARK_MAIN();
