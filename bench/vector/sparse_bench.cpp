// Sparse distance kernels beside a plain merge of the two lists. items are listed elements of both operands.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <set>

#include "bench/vector/baselines.h"

namespace tavo::bench {
namespace {

const tavo_specialized_ctx &lib = tavo_global_specialized_ctx;

// Sparse vectors of floats; `shared` of `count` dimensions are in both.
struct sparse_pair {
    std::vector<ub4> at[2];
    std::vector<float> values[2];
    std::unique_ptr<ub1, free_block> payload[2];

    sparse_pair(ub4 count, double shared, unsigned seed) {
        std::mt19937_64 rng(seed);
        std::set<ub4> dims;
        const auto common = static_cast<ub4>(count * shared);
        while (dims.size() < 2 * count - common)
            dims.insert(static_cast<ub4>(rng() % 100000));
        std::vector<ub4> all(dims.begin(), dims.end());
        std::shuffle(all.begin(), all.end(), rng);
        for (ub4 i = 0; i < all.size(); i++) {
            if (i < count)
                at[0].push_back(all[i]);
            if (i >= count - common)
                at[1].push_back(all[i]);
        }
        for (int side = 0; side < 2; side++) {
            std::sort(at[side].begin(), at[side].end());
            payload[side] = block(2 + 8 + 8 * count);
            ub1 *const p = payload[side].get();
            const ub2 stored_count = __builtin_bswap16(static_cast<ub2>(count));
            std::memcpy(p, &stored_count, 2);
            for (ub4 i = 0; i < count; i++) {
                const ub4 dim = __builtin_bswap32(at[side][i]);
                std::memcpy(p + 2 + 4 * i, &dim, 4);
                values[side].push_back(static_cast<float>(rng() % 1000) / 1000);
            }
            std::memcpy(p + (2 + 4 * count + 7) / 8 * 8, values[side].data(), 4 * count);
        }
    }
};

// The obvious merge, over the same bytes.
template <bool Unmatched>
[[gnu::noinline]] double plain_merge(const ub1 *l, const ub1 *r) {
    const auto number = [](const ub1 *p) {
        ub4 v;
        std::memcpy(&v, p, 4);
        return __builtin_bswap32(v);
    };
    const ub4 n = static_cast<ub4>(l[0] << 8 | l[1]), m = static_cast<ub4>(r[0] << 8 | r[1]);
    const auto *a = reinterpret_cast<const float *>(l + (2 + 4 * n + 7) / 8 * 8);
    const auto *b = reinterpret_cast<const float *>(r + (2 + 4 * m + 7) / 8 * 8);
    double sum = 0;
    ub4 i = 0, j = 0;
    while (i < n && j < m) {
        const ub4 x = number(l + 2 + 4 * i), y = number(r + 2 + 4 * j);
        if (x == y) {
            const float d = Unmatched ? b[j] - a[i] : 0;
            sum += static_cast<double>(Unmatched ? d * d : a[i] * b[j]);
            i++, j++;
        } else if (x < y) {
            if (Unmatched)
                sum += static_cast<double>(a[i] * a[i]);
            i++;
        } else {
            if (Unmatched)
                sum += static_cast<double>(b[j] * b[j]);
            j++;
        }
    }
    if (Unmatched) {
        for (; i < n; i++)
            sum += static_cast<double>(a[i] * a[i]);
        for (; j < m; j++)
            sum += static_cast<double>(b[j] * b[j]);
    }
    return sum;
}

// So many pairs in turn that the branch predictor cannot learn them by heart.
template <class Call>
void row(const std::string &name, ub4 count, double shared, Call call) {
    benchmark::RegisterBenchmark(name.c_str(), [=](benchmark::State &state) {
        std::vector<sparse_pair> pairs;
        for (unsigned i = 0; i < (1u << 17) / count; i++)
            pairs.emplace_back(count, shared, i);
        double sum = 0;
        report_best(state, 0, 2 * count * pairs.size(), [&] {
            for (const sparse_pair &p : pairs)
                sum += call(p.payload[0].get(), p.payload[1].get());
            benchmark::DoNotOptimize(sum);
        });
    })->Apply(by_best_time);
}

const bool registered = [] {
    for (ub4 count : {32u, 128u, 1000u})
        for (int percent : {0, 10, 50, 100}) {
            const std::string tail = std::string("/") + std::to_string(count) + "/" + std::to_string(percent) + "%";
            for (auto [name, metric] : {std::pair{"euclid", 2u}, {"dotprod", 5u}, {"cosine", 4u}}) {
                tavo_distance_kernel *const kernel = lib.vector_pick_metric(metric, 1, 0, 1, 1, 0, 1);
                row(std::string("sparse/") + name + "_Sfloat_Sfloat" + tail, count, percent / 100.,
                    [=](const ub1 *a, const ub1 *b) {
                        double result;
                        kernel(0, a, b, metric, &result);
                        return result;
                    });
            }
            row(std::string("sparse/plain_euclid") + tail, count, percent / 100., plain_merge<true>);
            row(std::string("sparse/plain_dotprod") + tail, count, percent / 100., plain_merge<false>);
        }
    return true;
}();

} // namespace
} // namespace tavo::bench
