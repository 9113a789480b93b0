// Decompression of packed code columns beside LZ4 on the same bytes.
//
// column/...: the columns of host/data/flights-100k.csv (or of the file that the variable TAVO_FLIGHTS names), each
// dictionary-coded in the order of its values and packed at the narrowest width; without the file columns of a like
// distribution stand in. codes_of_W_bits: random codes of each width, symbols of 1 to 8 bytes.
//
// Counters: bytes/s of output, items/s = codes/s, ratio and lz4_ratio = plain to compressed bytes, and the share of the
// speed of LZ4 (which only copies where it finds nothing to compress: lz4_ratio 1), of a plain copy of the output and
// of a loop of one 8-byte store a code.
#include <benchmark/benchmark.h>
#include <lz4.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <random>
#include <sstream>
#include <string>

#include "bench/kit/plain.h"
#include "frame/tavo.h"
#include "host/column/spak_encoder.h"
#include "tests/kit/codes.h"
#include "tests/kit/spak_stream.h"

namespace {

using namespace tavo::bench;
using namespace tavo::test;

struct column {
    std::string name;
    std::vector<ub1> packed;
};

column pack_column(const std::string &name, const std::vector<std::string> &values) {
    // Numbers in their order, everything else as text: shorter texts of digits are smaller.
    auto before = [](const std::string &a, const std::string &b) {
        const bool numbers = std::isdigit(static_cast<unsigned char>(a.back())) && a.find('-') == 0u - 1;
        return numbers && a.size() != b.size() ? a.size() < b.size() : a < b;
    };
    std::vector<std::string> distinct = values;
    std::sort(distinct.begin(), distinct.end(), before);
    distinct.erase(std::unique(distinct.begin(), distinct.end()), distinct.end());
    unsigned width = 1;
    while ((1u << width) < distinct.size())
        width++;
    std::vector<ub8> codes;
    for (const std::string &value : values)
        codes.push_back(
            static_cast<ub8>(std::lower_bound(distinct.begin(), distinct.end(), value, before) - distinct.begin()));
    return {name + "_" + std::to_string(width) + "bit", pack_codes(codes, width)};
}

// The parts of a stream that the host's encoder wrote.
spak_stream compressed(const std::vector<ub1> &plain) {
    const host::spak_dictionary dictionary = host::spak_train(plain);
    spak_stream s;
    for (const host::spak_symbol &symbol : dictionary.symbols) {
        const auto *bytes = reinterpret_cast<const ub1 *>(&symbol.bytes);
        s.symbols.emplace_back(bytes, bytes + symbol.length);
    }
    const host::spak_stream written = host::spak_encode(plain, dictionary);
    const ub1 *codes = written.bytes.data() + 18 + (s.symbols.size() + 1) / 2;
    for (const auto &symbol : s.symbols)
        codes += symbol.size();
    ub4 count = 0;
    std::memcpy(&count, codes, sizeof count);
    for (const ub8 code : unpack_codes(codes + 4, __builtin_bswap32(count), s.width()))
        s.codes.push_back(static_cast<ub4>(code));
    if (s.decoded() != plain)
        std::abort();
    return s;
}

std::vector<column> flight_columns() {
    const char *path = std::getenv("TAVO_FLIGHTS");
    std::ifstream file(path != nullptr ? path : TAVO_DATA "/flights-100k.csv");
    std::vector<column> columns;
    std::vector<std::string> names;
    std::vector<std::vector<std::string>> values;
    for (std::string line; std::getline(file, line);) {
        std::stringstream fields(line);
        std::size_t at = 0;
        for (std::string field; std::getline(fields, field, ','); at++)
            if (names.size() == at && values.empty())
                names.push_back(field);
            else
                values[at].push_back(field.empty() ? " " : field);
        values.resize(names.size());
    }
    // The date is a time to the minute: its day and its hour are columns as well, as a host would split them.
    auto add_part = [&](const char *name, std::size_t from, std::size_t size) {
        std::vector<std::string> part;
        for (const std::string &date : values[0])
            part.push_back(date.substr(from, size));
        names.push_back(name);
        values.push_back(part);
    };
    if (!names.empty() && names[0] == "date") {
        add_part("day", 0, 10);
        add_part("hour", 11, 2);
    }
    for (std::size_t i = 0; i < names.size(); i++)
        columns.push_back(pack_column(names[i], values[i]));
    if (columns.empty()) {
        std::mt19937_64 rng(1);
        for (unsigned distinct : {200u, 1000u, 400u}) {
            std::geometric_distribution<unsigned> value(8.0 / distinct);
            std::vector<std::string> like;
            for (unsigned i = 0; i < 100000; i++)
                like.push_back(std::to_string(std::min(value(rng), distinct)));
            columns.push_back(pack_column("like_" + std::to_string(distinct), like));
        }
    }
    return columns;
}

// What is decoded: a stream, the bytes it comes to, and the length of each code's symbol.
struct stream {
    std::vector<ub1> bytes, plain, lengths;

    explicit stream(const spak_stream &s) : bytes(s.bytes()), plain(s.decoded()) {
        bytes.resize(bytes.size() + 16);
        for (ub4 code : s.codes)
            lengths.push_back(static_cast<ub1>(s.symbols[code].size()));
    }
    double ratio() const { return static_cast<double>(plain.size()) / static_cast<double>(bytes.size()); }
};

// ---- Baselines ----

double copy_seconds(const stream &s) {
    std::vector<ub1> out(s.plain.size());
    return best_seconds([&] {
        std::memcpy(out.data(), s.plain.data(), s.plain.size());
        benchmark::ClobberMemory();
    });
}

// One 8-byte store a code, each behind the bytes of the one before: what a decoder of this kind does at the least.
double store_seconds(const stream &s) {
    std::vector<ub1> out(s.plain.size() + 8);
    return best_seconds([&] {
        ub1 *p = out.data();
        for (const ub1 length : s.lengths) {
            const ub8 symbol = 0x2020202020202020;
            std::memcpy(p, &symbol, 8);
            p += length;
        }
        benchmark::ClobberMemory();
    });
}

struct lz4_result {
    double seconds, ratio;
};
lz4_result lz4(const stream &s) {
    const int plain_size = static_cast<int>(s.plain.size());
    std::vector<char> packed(static_cast<std::size_t>(LZ4_compressBound(plain_size))), out(s.plain.size());
    const int size = LZ4_compress_default(reinterpret_cast<const char *>(s.plain.data()), packed.data(), plain_size,
                                          static_cast<int>(packed.size()));
    const double seconds = best_seconds([&] {
        if (LZ4_decompress_safe(packed.data(), out.data(), size, plain_size) != plain_size)
            std::abort();
    });
    return {seconds, static_cast<double>(plain_size) / size};
}

void decode(benchmark::State &state, const stream &s) {
    // Scratch from the benchmark itself: the decoder's time is measured, not an allocator's.
    static ub8 scratch[2][1025];
    tavo_spak_ctx ctx{};
    ctx.temp_allocate = [](void *, ub8, const char *, ub4, ub4, ub8 *cookie) -> void * {
        static unsigned turn = 0;
        *cookie = 0;
        return scratch[turn++ % 2];
    };
    ctx.temp_release = [](void *, void *, ub8) {};
    std::vector<ub1> out(s.plain.size());
    ub4 length = 0;
    const double seconds = report_best(state, s.plain.size(), s.lengths.size(), [&] {
        if (tavo_global_specialized_ctx.spak_decode(&ctx, s.bytes.data(), out.data(), &length,
                                                    static_cast<ub4>(s.plain.size())) != 0)
            std::abort();
    });
    if (out != s.plain)
        state.SkipWithError("wrong bytes");
    const lz4_result other = lz4(s);
    state.counters["ratio"] = s.ratio();
    state.counters["lz4_ratio"] = other.ratio;
    state.counters["of_lz4"] = other.seconds / seconds;
    state.counters["of_copy"] = copy_seconds(s) / seconds;
    state.counters["of_stores"] = store_seconds(s) / seconds;
}

spak_stream random_stream(unsigned width) {
    std::mt19937_64 rng(width);
    spak_stream s;
    for (unsigned i = 0; i < 1u << width; i++)
        s.symbols.emplace_back(1 + rng() % 8, static_cast<ub1>(i));
    for (unsigned i = 0; i < 50000; i++)
        s.codes.push_back(static_cast<ub4>(rng() % s.symbols.size()));
    return s;
}

} // namespace

int main(int argc, char **argv) {
    auto add = [](const std::string &name, const spak_stream &s) {
        by_best_time(
            benchmark::RegisterBenchmark(name.c_str(), [s = stream(s)](benchmark::State &state) { decode(state, s); }));
    };
    for (const column &c : flight_columns())
        add("column/" + c.name, compressed(c.packed));
    for (unsigned width = 3; width <= 10; width++)
        add("codes_of_" + std::to_string(width) + "_bits", random_stream(width));
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
}
