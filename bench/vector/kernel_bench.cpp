// Dense distance kernels: one pair of vectors in L1, and a query against rows in memory, beside loading alone, the
// obvious loop as the compiler vectorises it, and faiss. items are dimensions, bytes those of both operands (of the
// rows where one query meets many).
#include <benchmark/benchmark.h>
#include <faiss/utils/distances.h>

#include "bench/vector/baselines.h"
#include "frame/processor.h"

namespace tavo::bench {
namespace {

const tavo_specialized_ctx &lib = tavo_global_specialized_ctx;

struct type_case {
    const char *name;
    ub4 type;
    bool left_comparable, right_comparable;
    bool extension = true; // VNNI and VPOPCNTDQ where the processor has them
};
const type_case types[] = {
    {"float_float", 1, false, false},
    {"float_Cfloat", 1, false, true},
    {"Cfloat_Cfloat", 1, true, true},
    {"double_double", 2, false, false},
    {"double_Cdouble", 2, false, true},
    {"Cdouble_Cdouble", 2, true, true},
    {"float16_float16", 7, false, false},
    {"float16_Cfloat16", 7, false, true},
    {"Cfloat16_Cfloat16", 7, true, true},
    {"bfloat16_bfloat16", 8, false, false},
    {"bfloat16_Cbfloat16", 8, false, true},
    {"Cbfloat16_Cbfloat16", 8, true, true},
    {"int8_int8", 5, false, false, false},
    {"vnni_int8_int8", 5, false, false},
    {"bitmsb0_bitmsb0", 6, false, false, false},
    {"vpopc_bitmsb0_bitmsb0", 6, false, false},
};
struct metric_case {
    const char *name;
    ub4 metric;
};
const metric_case metrics[] = {{"euclid", 2}, {"cosine", 4}, {"dotprod", 6}, {"manhattan", 7}, {"hamming", 8}};

tavo_distance_kernel *kernel_of(const type_case &t, ub4 metric) {
    const ub4 saved[2] = {tavo_has_vnni, tavo_has_vpopcdq};
    if (!t.extension)
        tavo_has_vnni = tavo_has_vpopcdq = 0;
    tavo_distance_kernel *const kernel =
        lib.vector_pick_metric(metric, t.type, t.left_comparable, 0, t.type, t.right_comparable, 0);
    tavo_has_vnni = saved[0], tavo_has_vpopcdq = saved[1];
    return kernel;
}

float obvious_euclid(const float *a, const float *b, std::size_t n) {
    float sum = 0;
#pragma GCC ivdep
    for (std::size_t i = 0; i < n; i++)
        sum += (b[i] - a[i]) * (b[i] - a[i]);
    return sum;
}
[[gnu::noinline, gnu::optimize("fast-math")]] float obvious_euclid_any_order(const float *a, const float *b,
                                                                             std::size_t n) {
    float sum = 0;
    for (std::size_t i = 0; i < n; i++)
        sum += (b[i] - a[i]) * (b[i] - a[i]);
    return sum;
}

// One pair of vectors in L1; a few pairs in turn, so that no call waits for its own last result.
struct pairs {
    std::unique_ptr<ub1, free_block> a, b;
    std::size_t stride;
    pairs(const type_case &t, std::size_t dims) : stride((dims * element_bits(t.type) / 8 + 63) / 64 * 64) {
        std::mt19937_64 rng(3);
        a = block(2 * stride), b = block(2 * stride);
        fill_elements(a.get(), 2 * stride * 8 / element_bits(t.type), t.type, rng);
        fill_elements(b.get(), 2 * stride * 8 / element_bits(t.type), t.type, rng);
    }
};

template <class Call>
void in_l1_row(const std::string &name, const type_case &t, std::size_t dims, Call call) {
    benchmark::RegisterBenchmark(name.c_str(), [=](benchmark::State &state) {
        pairs p(t, dims);
        double sum = 0;
        report_best(state, 4 * dims * element_bits(t.type) / 8, 2 * dims, [&] {
            for (std::size_t k = 0; k < 2; k++)
                sum += call(p.a.get() + k * p.stride, p.b.get() + k * p.stride);
            benchmark::DoNotOptimize(sum);
        });
    })->Apply(by_best_time);
}

// A query against rows in memory, back to back.
template <class Call>
void in_memory_row(const std::string &name, const type_case &t, std::size_t dims, Call call) {
    benchmark::RegisterBenchmark(name.c_str(), [=](benchmark::State &state) {
        const std::size_t row = dims * element_bits(t.type) / 8, rows = (256ul << 20) / row;
        std::mt19937_64 rng(3);
        const auto data = block(rows * row), query = block(row);
        std::memset(data.get(), 0x3c, rows * row);
        fill_elements(query.get(), dims, t.type, rng);
        double sum = 0;
        report_best(state, rows * row, rows * dims, [&] {
            for (std::size_t r = 0; r < rows; r++)
                sum += call(query.get(), data.get() + r * row);
            benchmark::DoNotOptimize(sum);
        });
    })->Apply(by_best_time);
}

void register_type(const type_case &t, ub4 dims) {
    const std::string d = std::to_string(dims);
    const std::size_t bytes = dims * element_bits(t.type) / 8;
    for (const metric_case &m : metrics) {
        tavo_distance_kernel *const kernel = kernel_of(t, m.metric);
        const auto call = [=](const ub1 *a, const ub1 *b) {
            double result;
            kernel(dims, a, b, m.metric, &result);
            return result;
        };
        in_l1_row(std::string("L1/") + d + "/" + m.name + "_" + t.name, t, dims, call);
        if (dims == 1024)
            in_memory_row(std::string("memory/") + d + "/" + m.name + "_" + t.name, t, dims, call);
    }
    if (!t.left_comparable && !t.right_comparable) {
        const auto load = [=](const ub1 *a, const ub1 *b) { return static_cast<double>(load_both(a, b, bytes)); };
        in_l1_row(std::string("L1/") + d + "/load_both_" + t.name, t, dims, load);
        if (dims == 1024) {
            benchmark::RegisterBenchmark((std::string("memory/1024/plain_read_") + t.name).c_str(), [](benchmark::State
                                                                                                           &state) {
                const std::size_t size = 256ul << 20;
                const auto data = block(size);
                std::memset(data.get(), 0x3c, size);
                volatile unsigned long sink = 0;
                report_best(state, size, size, [&] { sink = sink + plain_read(data.get(), size); });
            })->Apply(by_best_time);
        }
    }
}

void register_float_baselines(std::size_t dims) {
    const type_case &t = types[0];
    const std::string d = std::to_string(dims);
    const auto both = [&](const std::string &name, auto call) {
        const auto on_floats = [=](const ub1 *a, const ub1 *b) {
            return static_cast<double>(
                call(reinterpret_cast<const float *>(a), reinterpret_cast<const float *>(b), dims));
        };
        in_l1_row(std::string("L1/") + d + "/" + name, t, dims, on_floats);
        if (dims == 1024)
            in_memory_row(std::string("memory/") + d + "/" + name, t, dims, on_floats);
    };
    both("faiss_L2sqr", [](const float *a, const float *b, std::size_t n) { return faiss::fvec_L2sqr(a, b, n); });
    both("faiss_inner_product",
         [](const float *a, const float *b, std::size_t n) { return faiss::fvec_inner_product(a, b, n); });
    both("obvious_euclid", [](const float *a, const float *b, std::size_t n) { return obvious_euclid(a, b, n); });
    both("obvious_euclid_any_order",
         [](const float *a, const float *b, std::size_t n) { return obvious_euclid_any_order(a, b, n); });
}

const bool registered = [] {
    const ub4 info[3] = {};
    lib.init_sharedlib(0, info);
    for (ub4 dims : {100u, 128u, 768u, 1024u, 1536u}) {
        for (const type_case &t : types)
            register_type(t, dims);
        register_float_baselines(dims);
    }
    return true;
}();

} // namespace
} // namespace tavo::bench
