// Scans of fixed-width numbers, from L2 and from memory, beside a plain read of the same bytes; scans of numbers of
// varying length, beside the plain walk that puts each number together byte by byte.
//
// The dynp columns are delay and distance of host/data/flights-100k.csv (or of the file that the variable TAVO_FLIGHTS
// names) as order-preserving floating-point numbers, whose trailing bytes are often zero: of 64 and 32 bits, and the
// leading 16.
//
// Counters: bytes/s, items/s = rows/s, of_read = the share of the speed of a plain read of the same bytes; of_walk =
// times the speed of the plain walk; bytes_a_row.
#include <benchmark/benchmark.h>

#include <bit>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <random>
#include <string>
#include <vector>

#include "bench/kit/plain.h"
#include "frame/dispatch_table.h"
#include "frame/tavo.h"

namespace {

using namespace tavo::bench;

// One call of a scan over given data, with constants in the middle of what it holds.
struct call {
    tavo_enc_ctx enc{};
    tavo_vec src{}, res{}, lo{}, hi{};
    std::vector<ub8> bits;
    ub8 low, high;
    ub1 tz = 1;
    tavo_kernel_slot kernel;
    bool range;

    call(unsigned operation, unsigned encoding, unsigned width, bool with_tz, const ub1 *data, const ub1 *fields, ub4 n,
         ub8 low_bytes, ub8 high_bytes)
        : bits((n + 63ull) / 64), low(low_bytes), high(high_bytes) {
        kernel = tavo_global_specialized_ctx
                     .dispatch_table[tavo::dispatch_index(operation, encoding, tavo::width_code(width), with_tz)];
        range = operation >= TAVO_OP_GT_LT;
        src.enc = &enc;
        src.data = const_cast<ub1 *>(data);
        src.lengths = reinterpret_cast<ub2 *>(const_cast<ub1 *>(fields));
        src.size = res.size = n;
        res.bits = bits.data();
        lo.data = &low;
        hi.data = &high;
        lo.lengths = hi.lengths = reinterpret_cast<ub2 *>(&tz);
    }
    ub4 operator()() {
        return range ? kernel.range_scan(&res, &src, &lo, &hi, nullptr) : kernel.scan(&res, &src, &lo, nullptr);
    }
};

std::vector<ub1> &random_bytes(std::size_t bytes) {
    static std::vector<ub1> l2, memory;
    auto &data = bytes == in_l2 ? l2 : memory;
    std::mt19937_64 rng(1);
    if (data.empty()) {
        data.resize(bytes + 64);
        for (std::size_t i = 0; i + 8 <= bytes; i += 8) {
            const auto word = rng();
            std::memcpy(data.data() + i, &word, 8);
        }
    }
    return data;
}

void fixed(benchmark::State &state, std::size_t bytes, unsigned operation, unsigned width, unsigned width_bits, bool tz) {
    const auto &data = random_bytes(bytes);
    const auto n = static_cast<ub4>(bytes * 8 / width_bits);
    call k(operation, TAVO_CLASS_FIXED, width, tz, data.data(), data.data(), n, 0x40, 0xc0);
    k.enc.width_bits = width_bits;
    const std::size_t read_bytes = std::size_t{n} * width_bits / 8;
    const double read = plain_read_seconds(data.data(), read_bytes);
    const double seconds = report_best(state, read_bytes, n, [&] { benchmark::DoNotOptimize(k()); });
    state.counters["of_read"] = read / seconds;
}

// ---- Numbers of varying length ----

struct dynp_column {
    std::vector<ub1> data, controls;
    ub4 rows = 0;
    ub8 middle = 0; // a constant's bytes
};

// The order-preserving form: top bit set for a non-negative number, all bits inverted for a negative one.
template <class F, class U>
ub8 ordered(double value) {
    U u = std::bit_cast<U>(static_cast<F>(value));
    constexpr U top = static_cast<U>(U{1} << (sizeof(U) * 8 - 1));
    u = static_cast<U>(u & top ? ~u : u | top);
    return static_cast<ub8>(u) << (64 - 8 * sizeof(U));
}

dynp_column make_column(const std::vector<double> &values, unsigned width, std::size_t rows) {
    dynp_column c;
    const unsigned bits = width == 16 ? 1 : width == 32 ? 2 : 4;
    c.controls.resize((rows * bits + 7) / 8);
    for (std::size_t r = 0; r < rows; r++) {
        const double value = values[r % values.size()];
        ub8 number = width == 64 ? ordered<double, ub8>(value) : ordered<float, ub4>(value); // at the top of 64 bits
        number = number >> (64 - width) << (64 - width);
        unsigned length = 1;
        for (unsigned byte = 1; byte < width / 8; byte++)
            if (number >> (56 - 8 * byte) & 0xff)
                length = byte + 1;
        for (unsigned byte = 0; byte < length; byte++)
            c.data.push_back(static_cast<ub1>(number >> (56 - 8 * byte)));
        c.controls[r * bits / 8] |= static_cast<ub1>((length - 1) << (8 - bits - r * bits % 8));
        if (r == rows / 2)
            c.middle = __builtin_bswap64(number);
    }
    c.rows = static_cast<ub4>(rows);
    return c;
}

std::vector<double> flight_values(int field) {
    const char *path = std::getenv("TAVO_FLIGHTS");
    std::ifstream file(path != nullptr ? path : TAVO_DATA "/flights-100k.csv");
    std::vector<double> values;
    std::string line;
    std::getline(file, line);
    while (std::getline(file, line)) {
        std::size_t at = 0;
        for (int i = 0; i < field; i++)
            at = line.find(',', at) + 1;
        values.push_back(std::atof(line.c_str() + at));
    }
    if (values.empty()) {
        std::fprintf(stderr, "no flights\n");
        std::exit(1);
    }
    return values;
}

// The obvious code.
template <unsigned Width>
[[gnu::noinline]] ub4 plain_walk(const dynp_column &c, ub8 constant, ub8 *bits, bool greater) {
    constexpr unsigned field_bits = Width == 16 ? 1 : Width == 32 ? 2 : 4, rows_a_byte = 8 / field_bits;
    const ub1 *p = c.data.data();
    ub4 count = 0;
    std::memset(bits, 0, (c.rows + 63ull) / 64 * 8);
    for (ub4 r = 0; r < c.rows; r++) {
        const unsigned length =
            (c.controls[r / rows_a_byte] >> field_bits * (rows_a_byte - 1 - r % rows_a_byte) & ((1 << field_bits) - 1)) + 1;
        ub8 number = 0;
        for (unsigned i = 0; i < Width / 8; i++)
            number = number << 8 | (i < length ? p[i] : 0);
        p += length;
        const bool hit = greater ? number > constant : number == constant;
        bits[r / 64] |= static_cast<ub8>(hit) << r % 64;
        count += hit;
    }
    return count;
}

template <unsigned Width>
void dynp(benchmark::State &state, int field, std::size_t rows, unsigned operation, bool tz) {
    const dynp_column c = make_column(flight_values(field), Width, rows);
    call k(operation, TAVO_CLASS_DYNP, Width, tz, c.data.data(), c.controls.data(), c.rows, c.middle, c.middle);
    std::vector<ub8> bits(k.bits.size());
    const ub8 constant = __builtin_bswap64(c.middle) >> (64 - Width);
    ub4 count = 0;
    const double walk =
        best_seconds([&] { count = plain_walk<Width>(c, constant, bits.data(), operation == TAVO_OP_GT); });
    const double read = plain_read_seconds(c.data.data(), c.data.size());
    const double seconds =
        report_best(state, c.data.size() + c.controls.size(), rows, [&] { benchmark::DoNotOptimize(k()); });
    if (!tz && (count != k.res.count || bits != k.bits))
        state.SkipWithError("the plain walk finds other rows");
    state.counters["of_walk"] = walk / seconds;
    state.counters["of_read"] = read / seconds;
    state.counters["bytes_a_row"] = static_cast<double>(c.data.size()) / static_cast<double>(rows);
}

} // namespace

int main(int argc, char **argv) {
    benchmark::Initialize(&argc, argv);
    const ub4 info[3] = {};
    tavo_global_specialized_ctx.init_sharedlib(0, info);
    const auto add = [](const std::string &name, auto &&...args) {
        benchmark::RegisterBenchmark(name.c_str(), args...)->Apply(by_best_time);
    };
    const std::pair<const char *, unsigned> operations[] = {
        {"eq", TAVO_OP_EQ}, {"gt", TAVO_OP_GT}, {"ge_le", TAVO_OP_GE_LE}};
    for (auto [level, bytes] : {std::pair{"L2", in_l2}, std::pair{"memory", in_memory}})
        for (auto [name, operation] : operations)
            for (bool tz : {false, true})
                for (unsigned bits : {8u, 16u, 24u, 32u, 40u, 48u, 56u, 64u}) {
                    const unsigned width = bits <= 16 ? bits : bits <= 32 ? 32 : 64;
                    add(std::string(name) + "_fixed_" + std::to_string(width) + "bit" + (tz ? "_tz" : "") + "/of_" +
                            std::to_string(bits) + "/" + level,
                        fixed, bytes, operation, width, bits, tz);
                }
    for (auto [column, field] : {std::pair{"delay", 1}, std::pair{"distance", 2}})
        for (auto [name, operation] : operations)
            for (bool tz : {false, true})
                for (auto [level, rows] : {std::pair{"L2", 100000}, std::pair{"memory", 50000000}}) {
                    if (operation == TAVO_OP_GE_LE)
                        continue;
                    const auto at = [&](const char *width) {
                        return std::string(name) + "_dynp_" + width + "bit" + (tz ? "_tz" : "") + "/" + column + "/" +
                               level;
                    };
                    add(at("16"), dynp<16>, field, static_cast<std::size_t>(rows), operation, tz);
                    add(at("32"), dynp<32>, field, static_cast<std::size_t>(rows), operation, tz);
                    add(at("64"), dynp<64>, field, static_cast<std::size_t>(rows), operation, tz);
                }
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
