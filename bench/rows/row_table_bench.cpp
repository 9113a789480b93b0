// Gathers beside a loop of plain loads and stores by index, a loop of independent random reads, and a memcpy for every
// element; transposes of references beside a memcpy of the bytes written; conversions beside a memcpy for every
// element.
//
// Counters: items/s = elements/s; of_loop, of_reads, of_memcpy = times the speed of that baseline; of_columns = times
// the speed of one call for each column.
#include <benchmark/benchmark.h>

#include <cstdlib>
#include <cstring>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "bench/kit/plain.h"
#include "frame/tavo.h"

namespace {

using namespace tavo::bench;
const tavo_specialized_ctx &library = tavo_global_specialized_ctx;

struct free_memory {
    void operator()(ub1 *p) const { std::free(p); }
};
using block = std::unique_ptr<ub1, free_memory>;
block filled(std::size_t bytes) {
    block p(static_cast<ub1 *>(std::aligned_alloc(64, (bytes + 127) & ~std::size_t{63})));
    for (std::size_t i = 0; i < bytes; i++)
        p.get()[i] = static_cast<ub1>(i * 2654435761u >> 13);
    return p;
}

// A table of `rows` rows in one partition, in every form, with elements of some bytes each.
struct table {
    std::size_t rows;
    ub4 cols;
    block bytes, records, scratch;
    std::vector<ub4> sums;
    ub1 *ref_table, *byte_table;
    ub4 *cla_table;
    ub8 base;
    std::vector<ub1> col_bytes, col_offsets;
    tavo_gather_spec shape{};

    // Elements of shortest to longest bytes, their records in any order of their addresses.
    table(ub4 form, std::size_t of_rows, ub4 of_cols, unsigned shortest, unsigned longest, bool in_order = true)
        : rows(of_rows), cols(of_cols), bytes(filled(rows * cols * longest)) {
        std::mt19937_64 rng(7);
        const std::size_t n = rows * cols;
        if (form == TAVO_TABLE_CLA)
            sums.push_back(0);
        if (form == TAVO_TABLE_REFERENCE)
            records = filled(10 * n);
        ub8 at = 0;
        for (std::size_t i = 0; i < n; i++) {
            const auto length = static_cast<ub2>(shortest + rng() % (longest - shortest + 1));
            if (form == TAVO_TABLE_REFERENCE) {
                const ub1 *address = bytes.get() + (in_order ? at : rng() % n * longest);
                std::memcpy(records.get() + 10 * i, &length, 2);
                std::memcpy(records.get() + 10 * i + 2, &address, 8);
            }
            at += length;
            if (form == TAVO_TABLE_CLA)
                sums.push_back(static_cast<ub4>(at));
        }
        for (ub4 c = 0; c < cols; c++) {
            col_bytes.push_back(static_cast<ub1>(longest));
            col_offsets.push_back(static_cast<ub1>(c * longest));
        }
        ref_table = records.get();
        cla_table = sums.data();
        base = reinterpret_cast<ub8>(bytes.get());
        shape.flags = form;
        shape.row_cols = static_cast<ub2>(cols);
        shape.row_bytes = static_cast<ub2>(cols * longest);
        shape.col_bytes = col_bytes.data();
        shape.col_offsets = col_offsets.data();
        shape.part_top = 63;
        shape.part_low = 64;
        shape.ref_tables = &ref_table;
        shape.cla_tables = &cla_table;
        shape.part_bases = &base;
    }
};

std::vector<ub4> random_codes(std::size_t n, std::size_t rows) {
    std::mt19937_64 rng(11);
    std::vector<ub4> codes(n);
    for (ub4 &code : codes)
        code = static_cast<ub4>(rng() % rows);
    return codes;
}

// An output with room enough, and a source of codes.
struct call {
    tavo_enc_ctx src_enc{}, dst_enc{};
    tavo_vec src{}, dst{};
    block data;
    std::vector<ub2> lengths;

    call(std::vector<ub4> &codes, ub4 layout, std::size_t elements, unsigned longest)
        : data(filled(elements * (longest + 10))), lengths(elements) {
        src_enc.flags = TAVO_FIXED;
        src_enc.width_bits = 32;
        src.enc = &src_enc;
        src.data = codes.data();
        src.size = static_cast<ub4>(codes.size());
        dst_enc.flags = layout;
        dst.enc = &dst_enc;
        dst.data = data.get();
        dst.lengths = lengths.data();
        dst.byte_size = elements * (longest + 10);
    }
    tavo_env fresh() const { return {}; }
};

// ---- One column of 8-byte values ----

void gather_values(benchmark::State &state, std::size_t table_bytes) {
    const std::size_t rows = table_bytes / 8, n = table_bytes > in_l3 ? 1 << 21 : 1 << 13;
    table t(TAVO_TABLE_FIXED, rows, 1, 8, 8);
    std::vector<ub4> codes = random_codes(n, rows);
    call c(codes, TAVO_FIXED, n, 8);
    std::vector<ub8> plain(n);
    const auto *values = reinterpret_cast<const ub8 *>(t.bytes.get());
    const double loop = best_seconds([&] {
        for (std::size_t i = 0; i < n; i++)
            plain[i] = values[codes[i]];
        benchmark::ClobberMemory();
    });
    ub8 sink = 0;
    const double reads = best_seconds([&] {
        for (std::size_t i = 0; i < n; i++)
            sink += values[codes[i]];
        benchmark::DoNotOptimize(sink);
    });
    const double seconds = report_best(state, n * 8, n, [&] {
        tavo_env env = c.fresh();
        benchmark::DoNotOptimize(library.gather_one_col(&c.dst, &c.src, &t.shape, &env, 0));
    });
    if (std::memcmp(plain.data(), c.data.get(), n * 8) != 0)
        state.SkipWithError("the plain loop writes other values");
    state.counters["of_loop"] = loop / seconds;
    state.counters["of_reads"] = reads / seconds;
}

// ---- Rows of 16 columns beside one call for each column ----

void gather_rows(benchmark::State &state, ub4 form, ub4 layout, std::size_t table_bytes) {
    constexpr ub4 cols = 16;
    const std::size_t row = cols * (form == TAVO_TABLE_REFERENCE ? 18 : form == TAVO_TABLE_CLA ? 12 : 8);
    const std::size_t rows = table_bytes / row, n = table_bytes > in_l3 ? 1 << 17 : 1 << 10;
    table t(form, rows, cols, 8, 8);
    std::vector<ub4> codes = random_codes(n, rows);
    call c(codes, layout, n * cols, 8);
    const double by_column = best_seconds([&] {
        for (ub4 col = 0; col < cols; col++) {
            tavo_env env = c.fresh();
            benchmark::DoNotOptimize(library.gather_one_col(&c.dst, &c.src, &t.shape, &env, col));
        }
    });
    const double seconds = report_best(state, n * cols * 8, n * cols, [&] {
        tavo_env env = c.fresh();
        if (library.gather(&c.dst, &c.src, &t.shape, &env) != TAVO_DONE)
            state.SkipWithError("not all rows");
    });
    state.counters["of_columns"] = by_column / seconds;
}

// ---- Strings ----

void gather_strings(benchmark::State &state, ub4 form, ub4 layout, unsigned longest, std::size_t table_bytes) {
    const std::size_t rows = table_bytes / (longest / 2 + (form == TAVO_TABLE_REFERENCE ? 10 : 4)),
                      n = table_bytes > in_l3 ? 1 << 20 : 1 << 12;
    table t(form, rows, 1, 0, longest);
    std::vector<ub4> codes = random_codes(n, rows);
    call c(codes, layout, n, longest);
    std::vector<ub1> plain(n * (longest + 10));
    std::size_t written = 0;
    const double memcpys = best_seconds([&] {
        ub1 *to = plain.data();
        for (std::size_t i = 0; i < n; i++) {
            ub2 length;
            const ub1 *address;
            if (form == TAVO_TABLE_REFERENCE) {
                std::memcpy(&length, t.ref_table + 10 * std::size_t{codes[i]}, 2);
                std::memcpy(&address, t.ref_table + 10 * std::size_t{codes[i]} + 2, 8);
            } else {
                length = static_cast<ub2>(t.cla_table[codes[i] + 1] - t.cla_table[codes[i]]);
                address = t.bytes.get() + t.cla_table[codes[i]];
            }
            if (layout == TAVO_LV) {
                std::memcpy(to, &length, 2);
                to += 2;
            } else {
                c.lengths[i] = length;
            }
            std::memcpy(to, address, length);
            to += length;
        }
        written = static_cast<std::size_t>(to - plain.data());
        benchmark::ClobberMemory();
    });
    const double seconds = report_best(state, written, n, [&] {
        tavo_env env = c.fresh();
        benchmark::DoNotOptimize(library.gather_one_col(&c.dst, &c.src, &t.shape, &env, 0));
    });
    if (std::memcmp(plain.data(), c.data.get(), written) != 0)
        state.SkipWithError("the loop of memcpys writes other bytes");
    state.counters["of_memcpy"] = memcpys / seconds;
}

// ---- References ----

void references(benchmark::State &state, ub4 layout, ub4 cols, std::size_t table_bytes) {
    const std::size_t rows = table_bytes / 10 / cols;
    std::mt19937_64 rng(5);
    std::vector<ub2> lengths(rows);
    std::vector<ub1> data;
    data.reserve(rows * 16);
    const block pool = filled(16);
    for (ub2 &length : lengths) {
        length = static_cast<ub2>(rng() % 13);
        const ub1 *address = pool.get();
        const auto append = [&](const void *p, std::size_t bytes) {
            data.insert(data.end(), static_cast<const ub1 *>(p), static_cast<const ub1 *>(p) + bytes);
        };
        if (layout == TAVO_LP || layout == TAVO_LV)
            append(&length, 2);
        if (layout == TAVO_LP || layout == TAVO_LP_SEP)
            append(&address, 8);
        else
            append(address, layout == TAVO_FIXED ? 8 : length);
    }
    tavo_enc_ctx enc{};
    enc.flags = layout;
    enc.width_bits = 64;
    tavo_vec src{};
    src.enc = &enc;
    src.data = data.data();
    src.lengths = lengths.data();
    src.size = static_cast<ub4>(rows);
    const block out = filled(rows * cols * 10), copy = filled(rows * cols * 10);
    ub1 *cursor = out.get();
    tavo_gather_spec shape{};
    shape.flags = TAVO_TABLE_REFERENCE;
    shape.row_cols = static_cast<ub2>(cols);
    shape.ref_cursor = &cursor;
    const double memcpys = best_seconds([&] {
        std::memcpy(copy.get(), out.get(), rows * cols * 10);
        benchmark::ClobberMemory();
    });
    const double seconds = report_best(state, rows * cols * 10, rows * cols, [&] {
        for (ub4 c = 0; c < cols; c++)
            benchmark::DoNotOptimize(library.transpose_reference(&shape, &src, static_cast<ub2>(c), 0));
    });
    state.counters["of_memcpy"] = memcpys / seconds;
}

// ---- Conversion ----

void convert(benchmark::State &state, ub4 flags, ub4 cols, unsigned longest, bool in_order, std::size_t table_bytes) {
    const std::size_t rows = table_bytes / cols / (longest / 2 + 10);
    table t(TAVO_TABLE_REFERENCE, rows, cols, 0, longest, in_order);
    const std::size_t n = rows * cols;
    const block bytes = filled(n * (longest + 2)), records = filled(n * 10), plain = filled(n * longest);
    std::vector<ub4> sums(n + 1);
    ub1 *to, *end = bytes.get() + n * (longest + 2), *record;
    ub4 *sum;
    tavo_gather_spec shape{};
    shape.flags = flags;
    shape.row_cols = static_cast<ub2>(cols);
    shape.byte_cursor = &to;
    shape.byte_end = &end;
    shape.ref_cursor = &record;
    shape.cla_cursor = &sum;
    std::size_t written = 0;
    const double memcpys = best_seconds([&] {
        ub1 *at = plain.get();
        for (std::size_t i = 0; i < n; i++) {
            ub2 length;
            const ub1 *address;
            std::memcpy(&length, t.ref_table + 10 * i, 2);
            std::memcpy(&address, t.ref_table + 10 * i + 2, 8);
            std::memcpy(at, address, length);
            at += length;
        }
        written = static_cast<std::size_t>(at - plain.get());
        benchmark::ClobberMemory();
    });
    const double seconds = report_best(state, written, n, [&] {
        to = bytes.get();
        record = records.get();
        sum = sums.data();
        tavo_env env{};
        benchmark::DoNotOptimize(
            library.transpose_convert(&shape, &t.shape, 0, 0, 0, static_cast<ub4>(rows - 1), &env));
    });
    if (flags == TAVO_TABLE_CLA && std::memcmp(bytes.get(), plain.get(), written) != 0)
        state.SkipWithError("the loop of memcpys writes other bytes");
    state.counters["of_memcpy"] = memcpys / seconds;
}

} // namespace

int main(int argc, char **argv) {
    benchmark::Initialize(&argc, argv);
    const ub4 info[3] = {};
    library.init_sharedlib(0, info);
    const auto add = [](const std::string &name, auto &&...args) {
        benchmark::RegisterBenchmark(name.c_str(), args...)->Apply(by_best_time);
    };
    const std::pair<const char *, std::size_t> places[] = {{"L2", in_l2}, {"memory", 256 << 20}};
    const std::pair<const char *, ub4> layouts[] = {
        {"lv_sep", TAVO_LV_SEP}, {"lv", TAVO_LV}, {"lp_sep", TAVO_LP_SEP}, {"lp", TAVO_LP}};
    add("gather_values/L2", gather_values, in_l2);
    add("gather_values/1GiB", gather_values, std::size_t{1} << 30);
    for (auto [place, bytes] : places) {
        for (auto [form, name] : {std::pair{TAVO_TABLE_REFERENCE, "reference"}, {TAVO_TABLE_CLA, "cla"}})
            for (auto [layout_name, layout] : layouts)
                add(std::string("gather_rows_16/") + name + "/" + layout_name + "/" + place, gather_rows, form, layout,
                    bytes);
        add(std::string("gather_rows_16/fixed/fixed/") + place, gather_rows, TAVO_TABLE_FIXED, TAVO_FIXED, bytes);
        add(std::string("gather_rows_16/fixed/lp_sep/") + place, gather_rows, TAVO_TABLE_FIXED, TAVO_LP_SEP, bytes);
        for (auto [form, name] : {std::pair{TAVO_TABLE_REFERENCE, "reference"}, {TAVO_TABLE_CLA, "cla"}})
            for (unsigned longest : {16u, 60u})
                for (auto [layout_name, layout] : {layouts[0], layouts[1]})
                    add(std::string("gather_strings_to_") + std::to_string(longest) + "/" + name + "/" + layout_name +
                            "/" + place,
                        gather_strings, form, layout, longest, bytes);
        for (ub4 cols : {1u, 4u, 16u})
            for (auto [name, layout] : {std::pair{"fixed", TAVO_FIXED},
                                        {"lv_sep", TAVO_LV_SEP},
                                        {"lv", TAVO_LV},
                                        {"lp_sep", TAVO_LP_SEP},
                                        {"lp", TAVO_LP}})
                add("references/" + std::to_string(cols) + "_columns/" + name + "/" + place, references, layout, cols,
                    bytes);
        for (ub4 cols : {1u, 4u})
            for (auto [name, flags] : {std::pair{"reference", TAVO_TABLE_REFERENCE},
                                       {"cla", TAVO_TABLE_CLA},
                                       {"reference_with_lengths", TAVO_TABLE_REFERENCE | TAVO_TABLE_WITH_LENGTHS},
                                       {"cla_one_element", TAVO_TABLE_CLA | TAVO_TABLE_ONE_ELEMENT}})
                for (bool in_order : {true, false})
                    add("convert_to_16/" + std::to_string(cols) + "_columns/" + name +
                            (in_order ? "/in_order/" : "/any_order/") + place,
                        convert, flags, cols, 16u, in_order, bytes);
    }
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
