// Conversion of elements and vector arithmetic, in L1 and from memory, beside a copy and the obvious loop as the
// compiler vectorises it. items are elements, bytes those read and written.
#include <benchmark/benchmark.h>

#include "bench/vector/baselines.h"
#include "vector/arith_dispatch.h"

namespace tavo::bench {
namespace {

const tavo_specialized_ctx &lib = tavo_global_specialized_ctx;

struct place {
    const char *name;
    std::size_t elements;
};
constexpr place places[] = {{"L1", 1024}, {"memory", 16ul << 20}};
constexpr ub4 dims = 1024;

std::size_t bytes_of(ub4 type) { return element_bits(type) / 8; }
const char *name_of(ub4 type) {
    return type == TAVO_ELEM_FLOAT ? "float" : type == TAVO_ELEM_DOUBLE ? "double" : "int8";
}

// Numbers of size 1 in comparable form: exponents near that of 1, both signs.
void fill_comparable(ub1 *to, std::size_t elements, ub4 type, std::mt19937_64 &rng) {
    fill_elements(to, elements, type, rng);
    if (type == TAVO_ELEM_INT8)
        return;
    const std::size_t width = bytes_of(type);
    for (std::size_t i = 0; i < elements; i++) {
        ub1 *const e = to + i * width;
        const bool negative = e[width - 1] & 0x80;
        for (std::size_t k = 0; k < width / 2; k++)
            std::swap(e[k], e[width - 1 - k]);
        for (std::size_t k = 0; k < width; k++)
            e[k] = static_cast<ub1>(negative ? ~e[k] : k == 0 ? e[k] | 0x80 : e[k]);
    }
}

void convert_row(const place &p, ub4 from, ub4 to, bool with_norms) {
    const std::string name =
        std::string("convert/") + p.name + "/" + name_of(from) + "_" + name_of(to) + (with_norms ? "_norms" : "");
    benchmark::RegisterBenchmark(name.c_str(), [=](benchmark::State &state) {
        std::mt19937_64 rng(3);
        const auto in = block(p.elements * bytes_of(from)), out = block(p.elements * bytes_of(to));
        fill_comparable(in.get(), p.elements, from, rng);
        std::memset(out.get(), 1, p.elements * bytes_of(to));
        std::vector<double> norms(p.elements / dims);
        tavo_enc_ctx src_enc{}, res_enc{};
        tavo_vec src{}, res{}, norm{};
        src_enc.value_type = static_cast<ub1>(from), src_enc.vec_dims = dims, res_enc.value_type = static_cast<ub1>(to);
        src.data = in.get(), src.size = static_cast<ub4>(p.elements / dims), src.enc = &src_enc;
        res.data = out.get(), res.enc = &res_enc, norm.data = norms.data();
        report_best(state, p.elements * (bytes_of(from) + bytes_of(to)), p.elements, [&] {
            if (lib.vector_convert_fp(&res, with_norms ? &norm : nullptr, &src, nullptr, nullptr) != 0)
                state.SkipWithError("not converted");
            benchmark::ClobberMemory();
        });
    })->Apply(by_best_time);
}
// memcpy of the input of a conversion.
void copy_row(const place &p, ub4 from) {
    benchmark::RegisterBenchmark((std::string("convert/") + p.name + "/" + name_of(from) + "_memcpy").c_str(),
                                 [=](benchmark::State &state) {
                                     const std::size_t bytes = p.elements * bytes_of(from);
                                     const auto in = block(bytes), out = block(bytes);
                                     std::memset(in.get(), 1, bytes);
                                     std::memset(out.get(), 1, bytes);
                                     report_best(state, 2 * bytes, p.elements, [&] {
                                         std::memcpy(out.get(), in.get(), bytes);
                                         benchmark::ClobberMemory();
                                     });
                                 })
        ->Apply(by_best_time);
}

template <class Call>
void arith_row(const place &p, const std::string &name, ub4 type, bool a_comparable, bool b_comparable, Call call) {
    benchmark::RegisterBenchmark((std::string("arith/") + p.name + "/" + name).c_str(), [=](benchmark::State &state) {
        std::mt19937_64 rng(3);
        const std::size_t bytes = p.elements * bytes_of(type);
        const auto a = block(bytes), b = block(bytes), out = block(bytes);
        (a_comparable ? fill_comparable : fill_elements)(a.get(), p.elements, type, rng);
        (b_comparable ? fill_comparable : fill_elements)(b.get(), p.elements, type, rng);
        if (type == TAVO_ELEM_INT8) // in range whatever the operation
            for (std::size_t i = 0; i < bytes; i++)
                a.get()[i] &= 7, b.get()[i] = (b.get()[i] & 7) + 1;
        std::memset(out.get(), 1, bytes);
        report_best(state, 3 * bytes, p.elements, [&] {
            for (std::size_t i = 0; i < p.elements; i += dims)
                if (call(a.get() + i * bytes_of(type), b.get() + i * bytes_of(type), out.get() + i * bytes_of(type)))
                    state.SkipWithError("no result");
            benchmark::ClobberMemory();
        });
    })->Apply(by_best_time);
}
void kernel_row(const place &p, ub4 op, const char *op_name, ub4 type, bool ac, bool bc, bool rc, bool with_norm,
                bool scalar = false) {
    auto *const kernel = tavo_vector_arith_dispatch(op, type, ac, 0, type, bc, 0, scalar, type, rc, 0, with_norm);
    const auto form = [=](bool comparable) { return std::string(comparable ? "_C" : "_") + name_of(type); };
    arith_row(p, op_name + form(ac) + form(bc) + form(rc) + (scalar ? "_scalar" : "") + (with_norm ? "_wnorm" : ""),
              type, ac, bc, [=](const ub1 *a, const ub1 *b, ub1 *out) {
                  double norm;
                  return kernel(dims, a, b, out, &norm);
              });
}
template <class T>
[[gnu::noinline]] void triad(const T *a, const T *b, T *out, std::size_t n) {
#pragma GCC ivdep
    for (std::size_t i = 0; i < n; i++)
        out[i] = static_cast<T>(a[i] + b[i]);
}
template <class T>
void triad_row(const place &p, ub4 type) {
    arith_row(p, std::string("triad_") + name_of(type), type, false, false, [](const ub1 *a, const ub1 *b, ub1 *out) {
        triad(reinterpret_cast<const T *>(a), reinterpret_cast<const T *>(b), reinterpret_cast<T *>(out), dims);
        return 0;
    });
}

const bool registered = [] {
    constexpr ub4 F = TAVO_ELEM_FLOAT, D = TAVO_ELEM_DOUBLE, I = TAVO_ELEM_INT8;
    for (const place &p : places) {
        for (const ub4 from : {F, D, I}) {
            copy_row(p, from);
            for (const ub4 to : {F, D, I})
                convert_row(p, from, to, false);
        }
        convert_row(p, F, D, true);
        convert_row(p, F, F, true);
        convert_row(p, D, F, true);
        convert_row(p, F, I, true);
        triad_row<float>(p, F);
        triad_row<double>(p, D);
        triad_row<signed char>(p, I);
        for (auto [op, name] : {std::pair{19u, "add"}, {20u, "sub"}, {21u, "mul"}, {22u, "div"}})
            for (const ub4 type : {F, D, I})
                kernel_row(p, op, name, type, false, false, false, false);
        for (const ub4 type : {F, D}) {
            kernel_row(p, 19, "add", type, false, true, false, false);
            kernel_row(p, 19, "add", type, true, true, false, false);
            kernel_row(p, 19, "add", type, true, true, true, false);
            kernel_row(p, 19, "add", type, false, false, false, true);
            kernel_row(p, 21, "mul", type, false, false, false, false, true);
        }
    }
    return true;
}();

} // namespace
} // namespace tavo::bench
