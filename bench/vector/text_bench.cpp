// Vector text in both character sets, beside fast_float's reading of the same text. items are elements, bytes those of
// the text in its character set.
#include <benchmark/benchmark.h>
#include <fast_float/fast_float.h>

#include <cstdio>

#include "bench/vector/baselines.h"

namespace tavo::bench {
namespace {

const tavo_specialized_ctx &lib = tavo_global_specialized_ctx;

constexpr ub4 rows = 64, dims = 256;

struct texts {
    std::vector<std::string> row;
    std::vector<void *> pointers;
    std::vector<ub2> lengths;
    std::vector<double> out = std::vector<double>(rows * dims), norms = std::vector<double>(rows);
    std::size_t bytes = 0;

    texts(const char *format, bool utf16, double size) {
        std::mt19937_64 rng(4);
        std::normal_distribution<> number(0, size);
        for (ub4 r = 0; r < rows; r++) {
            std::string s = "[";
            for (ub4 i = 0; i < dims; i++) {
                char text[40];
                std::snprintf(text, sizeof text, format, number(rng));
                s.append(i != 0 ? ", " : "").append(text);
            }
            s += "]";
            if (utf16) {
                std::string wide;
                for (const char c : s)
                    wide.append(1, '\0').append(1, c);
                s = wide;
            }
            row.push_back(s);
            bytes += s.size();
        }
        for (std::string &s : row) {
            pointers.push_back(s.data());
            lengths.push_back(static_cast<ub2>(s.size()));
        }
    }
};

// The obvious reader: skips what separates, reads a number with fast_float.
template <class T>
bool read_row(const std::string &text, T *out) {
    const char *at = text.data(), *const end = at + text.size();
    if (at == end || *at++ != '[')
        return false;
    for (;;) {
        while (at < end && *at == ' ')
            at++;
        const auto [behind, error] = fast_float::from_chars(at, end, *out++);
        if (error != std::errc() || behind == end)
            return false;
        at = behind + 1;
        if (*behind == ']')
            return at == end;
        if (*behind != ',')
            return false;
    }
}

void parse_row(const std::string &name, const char *format, double size, ub4 type, bool utf16, bool norms) {
    benchmark::RegisterBenchmark(name.c_str(), [=](benchmark::State &state) {
        texts t(format, utf16, size);
        tavo_enc_ctx text_enc{}, enc{};
        tavo_vec text{}, res{}, norm{};
        tavo_env env{};
        text_enc.flags = TAVO_LP_SEP, text_enc.vec_charset = utf16;
        text.data = t.pointers.data(), text.lengths = t.lengths.data(), text.enc = &text_enc, text.size = rows;
        enc.flags = TAVO_NATIVE, enc.vec_dims = dims, enc.value_type = static_cast<ub1>(type);
        res.data = t.out.data(), res.size = rows * dims, res.enc = &enc;
        norm.data = t.norms.data();
        report_best(state, t.bytes, rows * dims, [&] {
            if (lib.vector_parse(&res, norms ? &norm : nullptr, &text, nullptr, &env) != 0 || env.parsed_rows != rows)
                state.SkipWithError("not parsed");
            benchmark::ClobberMemory();
        });
    })->Apply(by_best_time);
}
template <class T>
void fast_float_row(const std::string &name, const char *format, double size) {
    benchmark::RegisterBenchmark(name.c_str(), [=](benchmark::State &state) {
        texts t(format, false, size);
        report_best(state, t.bytes, rows * dims, [&] {
            for (ub4 r = 0; r < rows; r++)
                if (!read_row(t.row[r], reinterpret_cast<T *>(t.out.data()) + r * dims))
                    state.SkipWithError("not parsed");
            benchmark::ClobberMemory();
        });
    })->Apply(by_best_time);
}

const bool registered = [] {
    const struct {
        const char *name, *format;
        double size;
    } cases[] = {{"2digits", "%.2f", 1},     {"4digits", "%.4f", 1},
                 {"6digits", "%.6f", 0.1},   {"8digits", "%.8f", 0.1},
                 {"17digits", "%.17g", 0.1}, {"exponents", "%.6e", 1e-3},
                 {"integers", "%.0f", 1000}, {"mixed9significant", "%.9g", 0.1}};
    for (const auto &c : cases) {
        const std::string n = std::string("text/") + c.name;
        parse_row(n + "/ascii_float", c.format, c.size, TAVO_ELEM_FLOAT, false, false);
        fast_float_row<float>(n + "/fast_float_float", c.format, c.size);
        parse_row(n + "/utf16_float", c.format, c.size, TAVO_ELEM_FLOAT, true, false);
        parse_row(n + "/ascii_double", c.format, c.size, TAVO_ELEM_DOUBLE, false, false);
        fast_float_row<double>(n + "/fast_float_double", c.format, c.size);
        parse_row(n + "/ascii_float_norms", c.format, c.size, TAVO_ELEM_FLOAT, false, true);
    }
    return true;
}();

} // namespace
} // namespace tavo::bench
