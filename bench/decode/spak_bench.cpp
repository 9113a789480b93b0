// Decompression of packed code columns: spak beside LZ4 on the same bytes, and a plain copy of the output.
//
// The columns are those of host/data/flights-100k.csv (or of the file that the variable TAVO_FLIGHTS names), each
// dictionary-coded in the order of its values and packed at the narrowest width; without the file columns of a like
// distribution stand in. spak_codes/W decodes random codes of each width, symbols of 1 to 8 bytes: codes per second.
#include <benchmark/benchmark.h>
#include <lz4.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <memory>
#include <random>
#include <sstream>
#include <string>

#include "bench/kit/plain.h"
#include "tests/kit/codes.h"
#include "tests/kit/host_stub.h"
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

// One stream and what it decodes to.
struct stream {
    std::vector<ub1> bytes;
    std::vector<ub1> plain;
    std::size_t codes;
};

void decode_spak(benchmark::State &state, const stream &s) {
    host_stub host;
    // Scratch from the stack of the benchmark: the decoder's time is measured, not the allocator's.
    static ub8 scratch[2][1025];
    tavo_spak_ctx ctx{nullptr, 0, nullptr, nullptr, 0};
    ctx.temp_allocate = [](void *, ub8, const char *, ub4, ub4, ub8 *cookie) -> void * {
        static unsigned turn = 0;
        *cookie = 0;
        return scratch[turn++ % 2];
    };
    ctx.temp_release = [](void *, void *, ub8) {};
    std::vector<ub1> out(s.plain.size() + 8);
    ub4 length = 0;
    report_best(state, s.plain.size(), s.codes, [&] {
        if (tavo_global_specialized_ctx.spak_decode(&ctx, s.bytes.data(), out.data(), &length,
                                                    static_cast<ub4>(s.plain.size())) != 0)
            std::abort();
    });
    if (std::memcmp(out.data(), s.plain.data(), s.plain.size()) != 0)
        state.SkipWithError("wrong bytes");
    state.counters["ratio"] = static_cast<double>(s.plain.size()) / static_cast<double>(s.bytes.size());
}

void decode_lz4(benchmark::State &state, const std::vector<ub1> &plain) {
    std::vector<char> packed(static_cast<std::size_t>(LZ4_compressBound(static_cast<int>(plain.size()))));
    const int size = LZ4_compress_default(reinterpret_cast<const char *>(plain.data()), packed.data(),
                                          static_cast<int>(plain.size()), static_cast<int>(packed.size()));
    std::vector<char> out(plain.size());
    report_best(state, plain.size(), 0, [&] {
        if (LZ4_decompress_safe(packed.data(), out.data(), size, static_cast<int>(out.size())) !=
            static_cast<int>(out.size()))
            std::abort();
    });
    state.counters["ratio"] = static_cast<double>(plain.size()) / size;
}

void copy(benchmark::State &state, const std::vector<ub1> &plain) {
    std::vector<ub1> out(plain.size());
    report_best(state, plain.size(), 0, [&] {
        std::memcpy(out.data(), plain.data(), plain.size());
        benchmark::ClobberMemory();
    });
}

stream random_stream(unsigned width) {
    std::mt19937_64 rng(width);
    spak_stream s;
    for (unsigned i = 0; i < 1u << width; i++)
        s.symbols.emplace_back(1 + rng() % 8, static_cast<ub1>(i));
    for (unsigned i = 0; i < 50000; i++)
        s.codes.push_back(static_cast<ub4>(rng() % s.symbols.size()));
    stream out{s.bytes(), s.decoded(), s.codes.size()};
    out.bytes.resize(out.bytes.size() + 16);
    return out;
}

} // namespace

int main(int argc, char **argv) {
    auto add = [](const std::string &name, auto &&run) {
        by_best_time(benchmark::RegisterBenchmark(name.c_str(), run));
    };
    for (const column &c : flight_columns()) {
        const spak_stream packed = spak_compress(c.packed);
        const stream s{packed.bytes(), c.packed, packed.codes.size()};
        add("spak/" + c.name, [s](benchmark::State &st) { decode_spak(st, s); });
        add("lz4/" + c.name, [s](benchmark::State &st) { decode_lz4(st, s.plain); });
        add("copy/" + c.name, [s](benchmark::State &st) { copy(st, s.plain); });
    }
    for (unsigned width = 3; width <= 10; width++) {
        const stream s = random_stream(width);
        add("spak_codes/" + std::to_string(width), [s](benchmark::State &st) { decode_spak(st, s); });
    }
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
}
