// Group keys beside unpacking the same columns; grouped sums beside the scalar loop that one writes, with few groups,
// with 256 in the first cache and with a million beyond the second; sums of vectors beside a plain read.
//
// Counters: items/s = rows/s. of_unpack = the share of the speed at which both columns are unpacked to ub4; of_loop =
// times the speed of the scalar loop over the same values in the same form; of_access = the share of the speed of
// independent random accesses of 64 bytes, as many, to the accumulators' own memory, of_access_64MB: to a line a group.
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

const tavo_specialized_ctx &library = tavo_global_specialized_ctx;

void *temp_allocate(void *, ub8 size, const char *, ub4, ub4, ub8 *) { return std::malloc(size); }
void temp_release(void *, void *block, ub8) { std::free(block); }

struct free_memory {
    void operator()(void *p) const { std::free(p); }
};
template <class T>
using array = std::unique_ptr<T[], free_memory>;
template <class T>
array<T> aligned_array(std::size_t n) {
    return array<T>(static_cast<T *>(std::aligned_alloc(64, (n * sizeof(T) + 127) / 64 * 64)));
}

// ---- Keys ----

void keys_of_columns(benchmark::State &state, unsigned width, ub4 ncols, ub4 rows, bool multiply) {
    std::mt19937_64 rng(1);
    const std::size_t bytes = (std::size_t{rows} * width + 7) / 8 + 8;
    std::vector<array<ub1>> codes;
    std::vector<tavo_enc_ctx> enc(ncols);
    std::vector<tavo_vec> cols(ncols);
    for (ub4 c = 0; c < ncols; c++) {
        codes.push_back(aligned_array<ub1>(bytes));
        std::generate_n(codes.back().get(), bytes, [&] { return static_cast<ub1>(rng()); });
        enc[c].flags = TAVO_DICT | TAVO_PACKED_KEYS;
        enc[c].kernel_row = TAVO_KERNEL_ROW(0, tavo::width_code(width), TAVO_CLASS_DICT);
        enc[c].width_bits = width;
        enc[c].symbol_count = (1u << width) - 1;
        cols[c] = {};
        cols[c].data = codes[c].get();
        cols[c].enc = &enc[c];
        cols[c].size = rows;
    }
    auto out = aligned_array<ub4>(rows), second = aligned_array<ub4>(rows), scratch = aligned_array<ub4>(2048);
    std::memset(out.get(), 1, rows * 4ull);
    std::memset(second.get(), 1, rows * 4ull);
    tavo_host host{};
    host.temp_allocate = temp_allocate;
    host.temp_release = temp_release;
    tavo_env env{};
    env.host = &host;
    env.flags = multiply ? TAVO_ENV_MULTIPLY_KEYS : 0;
    tavo_vec keys{}, temp{};
    keys.data = out.get();
    keys.size = rows;
    temp.data = scratch.get();
    temp.size = 2048;
    const double unpack = best_seconds([&] {
        for (ub4 c = 0; c < ncols; c++) {
            tavo_vec dst{};
            tavo_env each{};
            each.flags = TAVO_ENV_WIDE;
            dst.data = c % 2 ? second.get() : out.get();
            dst.size = rows;
            library.dispatch_table[TAVO_DISPATCH_INDEX(enc[c].kernel_row, TAVO_OP_DECODE_UNPACK)].row_move(
                &dst, &cols[c], &each);
        }
    });
    ub4 space;
    const double seconds = report_best(state, rows * 4ull, rows, [&] {
        if (library.groupkey(&keys, &space, cols.data(), ncols, &temp, &env) != TAVO_DONE)
            state.SkipWithError("no keys");
    });
    state.counters["of_unpack"] = unpack / seconds;
}

// ---- Sums ----

struct native_float {
    using value = float;
    using sum = float;
    static constexpr ub1 type = TAVO_VALUE_FLOAT;
    static constexpr ub4 flags = TAVO_NATIVE;
    static value stored(double v) { return static_cast<float>(v); }
    static sum read(value v) { return v; }
};
struct comparable_float {
    using value = ub4;
    using sum = float;
    static constexpr ub1 type = TAVO_VALUE_FLOAT;
    static constexpr ub4 flags = 0;
    static value stored(double v) {
        const auto bits = __builtin_bit_cast(ub4, static_cast<float>(v));
        return __builtin_bswap32(bits >> 31 ? ~bits : bits | 1u << 31);
    }
    static sum read(value v) {
        const ub4 bits = __builtin_bswap32(v);
        return __builtin_bit_cast(float, bits >> 31 ? bits & ~(1u << 31) : ~bits);
    }
};
struct native_double {
    using value = double;
    using sum = double;
    static constexpr ub1 type = TAVO_VALUE_DOUBLE;
    static constexpr ub4 flags = TAVO_NATIVE;
    static value stored(double v) { return v; }
    static sum read(value v) { return v; }
};
struct comparable_double {
    using value = ub8;
    using sum = double;
    static constexpr ub1 type = TAVO_VALUE_DOUBLE;
    static constexpr ub4 flags = 0;
    static value stored(double v) {
        const auto bits = __builtin_bit_cast(ub8, v);
        return __builtin_bswap64(bits >> 63 ? ~bits : bits | 1ull << 63);
    }
    static sum read(value v) {
        const ub8 bits = __builtin_bswap64(v);
        return __builtin_bit_cast(double, bits >> 63 ? bits & ~(1ull << 63) : ~bits);
    }
};
struct native_integer {
    using value = sb8;
    using sum = sb8;
    static constexpr ub1 type = TAVO_VALUE_INTEGER;
    static constexpr ub4 flags = 0;
    static value stored(double v) { return static_cast<sb8>(v * 1e6); }
    static sum read(value v) { return v; }
};
struct big_endian_int32 {
    using value = ub4;
    using sum = sb8;
    static constexpr ub1 type = TAVO_VALUE_INTEGER;
    static constexpr ub4 flags = 0;
    static value stored(double v) { return __builtin_bswap32(static_cast<ub4>(static_cast<sb8>(v * 1e6))); }
    static sum read(value v) { return static_cast<sb4>(__builtin_bswap32(v)); }
};

template <class Form>
[[gnu::noinline]] void obvious_loop(typename Form::sum *acc, const ub4 *keys, const typename Form::value *values,
                                    ub4 rows) {
    for (ub4 row = 0; row < rows; row++)
        acc[keys[row]] += Form::read(values[row]);
}

// One load of a line for each key, none waiting for another.
[[gnu::noinline]] unsigned long random_accesses(const char *table, const ub4 *keys, ub4 rows, unsigned bytes_a_key) {
    __m512i all = _mm512_setzero_si512();
    for (ub4 row = 0; row < rows; row++)
        all = _mm512_or_si512(all, _mm512_load_si512(table + std::size_t{keys[row]} * bytes_a_key / 64 * 64));
    return static_cast<unsigned long>(_mm512_reduce_or_epi64(all));
}

template <class Form>
void grouped_sums(benchmark::State &state, ub4 groups, ub4 rows) {
    using value = typename Form::value;
    using sum = typename Form::sum;
    std::mt19937_64 rng(2);
    auto values = aligned_array<value>(rows);
    auto keys = aligned_array<ub4>(rows);
    for (ub4 row = 0; row < rows; row++) {
        values[row] = Form::stored(static_cast<double>(rng() % 2000) - 900);
        keys[row] = static_cast<ub4>(rng() % groups);
    }
    auto acc = aligned_array<sum>(groups);
    std::memset(acc.get(), 0, groups * sizeof(sum));
    const double loop = best_seconds([&] { obvious_loop<Form>(acc.get(), keys.get(), values.get(), rows); });
    tavo_enc_ctx enc{};
    enc.value_type = Form::type;
    enc.flags = Form::flags;
    enc.width_bits = 8 * sizeof(value);
    tavo_env env{};
    env.flags2 = std::is_same_v<Form, big_endian_int32> ? TAVO_ENV2_BIG_ENDIAN : 0;
    tavo_vec src{}, key_vec{}, acc_vec{};
    src.data = values.get();
    src.enc = &enc;
    src.size = rows;
    key_vec.data = keys.get();
    acc_vec.data = acc.get();
    acc_vec.size = groups;
    const double seconds = report_best(state, rows * (sizeof(value) + 4), rows,
                                       [&] { library.gby_sum(&acc_vec, &src, &key_vec, &env, nullptr); });
    state.counters["of_loop"] = loop / seconds;
    if (groups > 10000) {
        volatile unsigned long sink = 0;
        const auto access = [&](const void *table, unsigned bytes_a_key) {
            return best_seconds([&] {
                       sink = sink + random_accesses(static_cast<const char *>(table), keys.get(), rows, bytes_a_key);
                   }) /
                   seconds;
        };
        state.counters["of_access"] = access(acc.get(), sizeof(sum));
        auto lines = aligned_array<char>(std::size_t{groups} * 64);
        std::memset(lines.get(), 1, std::size_t{groups} * 64);
        state.counters["of_access_64MB"] = access(lines.get(), 64);
    }
}

// ---- Vectors ----

void small_values(benchmark::State &state, ub1 width_code, std::size_t bytes) {
    auto data = aligned_array<ub1>(bytes);
    std::mt19937 rng(3);
    std::generate_n(data.get(), bytes, [&] { return static_cast<ub1>(rng()); });
    tavo_enc_ctx enc{};
    enc.width_code = width_code;
    tavo_env env{};
    tavo_vec src{}, res{};
    ub4 sum = 0;
    src.data = data.get();
    src.enc = &enc;
    src.size = static_cast<ub4>(bytes / (width_code == 7 ? 1 : 2));
    res.data = &sum;
    const double read = plain_read_seconds(data.get(), bytes);
    state.counters["of_read"] = read / report_best(state, bytes, src.size, [&] { library.sum_vec(&res, &src, &env); });
}

[[gnu::noinline]] void running_sums_loop(ub4 *to, const ub4 *from, ub4 n) {
    to[0] = 0;
    for (ub4 i = 0; i < n; i++)
        to[i + 1] = to[i] + from[i];
}

void running_sums(benchmark::State &state, std::size_t bytes) {
    const auto n = static_cast<ub4>(bytes / 4);
    auto from = aligned_array<ub4>(n), to = aligned_array<ub4>(n + 1);
    std::fill_n(from.get(), n, 3u);
    std::fill_n(to.get(), n + 1, 3u);
    tavo_vec src{}, res{};
    src.data = from.get();
    src.size = n;
    res.data = to.get();
    const double loop = best_seconds([&] { running_sums_loop(to.get(), from.get(), n); });
    state.counters["of_loop"] =
        loop / report_best(state, bytes, n, [&] { library.prefix_sum_vec(&res, &src, nullptr); });
}

template <class Form>
void add_sums(const char *name) {
    for (ub4 groups : {2u, 3u, 4u, 256u, 1000000u}) {
        const std::string full = std::string("sums/") + name + "/" + std::to_string(groups) + "_groups";
        by_best_time(
            benchmark::RegisterBenchmark(full.c_str(), grouped_sums<Form>, groups, groups > 10000 ? 2000000u : 1500u));
    }
}

} // namespace

int main(int argc, char **argv) {
    for (bool multiply : {true, false})
        for (unsigned width : {8, 12, 5})
            for (ub4 ncols : {1u, 2u, 3u})
                for (auto [place, rows] : {std::pair("L2", 32768u), std::pair("memory", 48u << 20)}) {
                    if (ncols == 3 && width == 12)
                        continue; // no 32 bits hold the keys
                    const std::string name = std::string("keys/") + (multiply ? "multiply/" : "shift/") +
                                             std::to_string(ncols) + "_columns_of_" + std::to_string(width) + "bit/" +
                                             place;
                    by_best_time(
                        benchmark::RegisterBenchmark(name.c_str(), keys_of_columns, width, ncols, rows, multiply));
                }
    add_sums<native_float>("float_native");
    add_sums<comparable_float>("float_comparable");
    add_sums<native_double>("double_native");
    add_sums<comparable_double>("double_comparable");
    add_sums<native_integer>("int64_native");
    add_sums<big_endian_int32>("int32_big_endian");
    for (auto [place, bytes] : {std::pair("L1", in_l1), std::pair("L2", in_l2), std::pair("memory", in_memory)}) {
        for (ub1 width_code : {7, 15})
            by_best_time(benchmark::RegisterBenchmark(
                (std::string("sum_vec/") + (width_code == 7 ? "8bit/" : "16bit/") + place).c_str(), small_values,
                width_code, bytes));
        by_best_time(
            benchmark::RegisterBenchmark((std::string("prefix_sum_vec/") + place).c_str(), running_sums, bytes / 2));
    }
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
}
