// One query over a column: the distance operation, the nearest k, and a faiss flat index on one thread. items are rows.
#include <benchmark/benchmark.h>
#include <faiss/IndexFlat.h>
#include <omp.h>

#include "bench/vector/baselines.h"

namespace tavo::bench {
namespace {

const tavo_specialized_ctx &lib = tavo_global_specialized_ctx;

struct column {
    ub4 rows, dims;
    std::unique_ptr<ub1, free_block> data, query;
    std::vector<void *> pointers;
    tavo_enc_ctx enc{}, query_enc{}, out_enc{};
    tavo_vec col{}, query_vec{}, res{};
    std::vector<double> distances;
    std::vector<tavo_topk_entry> entries;

    column(ub4 rows, ub4 dims) : rows(rows), dims(dims), distances(rows), entries(100) {
        std::mt19937_64 rng(4);
        data = block(4ul * rows * dims), query = block(4ul * dims);
        fill_elements(data.get(), static_cast<std::size_t>(rows) * dims, TAVO_ELEM_FLOAT, rng);
        fill_elements(query.get(), dims, TAVO_ELEM_FLOAT, rng);
        for (ub4 r = 0; r < rows; r++)
            pointers.push_back(data.get() + 4ul * r * dims);
        enc.value_type = query_enc.value_type = TAVO_ELEM_FLOAT;
        enc.vec_dims = dims;
        enc.flags = TAVO_NATIVE | TAVO_VEC_BY_POINTER;
        query_enc.flags = out_enc.flags = TAVO_NATIVE;
        col.data = pointers.data(), col.enc = &enc, col.size = rows;
        query_vec.data = query.get(), query_vec.enc = &query_enc, query_vec.size = 1;
        res.enc = &out_enc;
    }
    double distance(ub4 metric) {
        tavo_env env{};
        res.data = distances.data(), res.size = rows;
        lib.vector_distance(&res, &col, &query_vec, metric, 0, &env, nullptr);
        return distances[0];
    }
    double topk(ub4 metric, ub4 k) {
        tavo_env env{};
        res.data = entries.data(), res.size = k;
        lib.vector_topk(&res, &col, &query_vec, metric, 0, &env, nullptr);
        return entries[0].distance;
    }
    // The distances alone, nothing kept: the kernel called for each row.
    double pass(ub4 metric) {
        tavo_distance_kernel *const kernel = lib.vector_pick_metric(metric, 1, 0, 0, 1, 0, 0);
        double result, sum = 0;
        for (void *row : pointers) {
            kernel(dims, query.get(), row, metric, &result);
            sum += result;
        }
        return sum;
    }
};

template <class Call>
void row(const std::string &name, ub4 rows, ub4 dims, Call call) {
    benchmark::RegisterBenchmark(name.c_str(), [=](benchmark::State &state) {
        column c(rows, dims);
        report_best(state, 4ul * rows * dims, rows, [&] {
            double v = call(c);
            benchmark::DoNotOptimize(v);
        });
    })->Apply(by_best_time);
}

const bool registered = [] {
    omp_set_num_threads(1);
    struct size {
        const char *name;
        ub4 rows, dims;
    };
    for (const size &s :
         {size{"341479x100", 341479, 100}, size{"100000x768", 100000, 768}, size{"2000x100", 2000, 100}}) {
        const std::string tail = std::string("/") + s.name;
        for (auto [name, metric] : {std::pair{"euclid", 2u}, {"dotprod", 6u}}) {
            const std::string n = std::string("search/") + name;
            row(n + "_pass" + tail, s.rows, s.dims, [=](column &c) { return c.pass(metric); });
            row(n + "_distance" + tail, s.rows, s.dims, [=](column &c) { return c.distance(metric); });
            row(n + "_topk10" + tail, s.rows, s.dims, [=](column &c) { return c.topk(metric, 10); });
            row(n + "_topk100" + tail, s.rows, s.dims, [=](column &c) { return c.topk(metric, 100); });
            benchmark::RegisterBenchmark((n + "_faiss_flat10" + tail).c_str(), [=](benchmark::State &state) {
                column c(s.rows, s.dims);
                faiss::IndexFlat index(s.dims, metric == 2 ? faiss::METRIC_L2 : faiss::METRIC_INNER_PRODUCT);
                index.add(s.rows, reinterpret_cast<const float *>(c.data.get()));
                float found[10];
                faiss::Index::idx_t labels[10];
                report_best(state, 4ul * s.rows * s.dims, s.rows, [&] {
                    index.search(1, reinterpret_cast<const float *>(c.query.get()), 10, found, labels);
                });
            })->Apply(by_best_time);
        }
        row(std::string("search/plain_read") + tail, s.rows, s.dims,
            [](column &c) { return static_cast<double>(plain_read(c.data.get(), 4ul * c.rows * c.dims)); });
    }
    return true;
}();

} // namespace
} // namespace tavo::bench

BENCHMARK_MAIN();
