#include "vector/topk.h"

#include <bit>

#include "frame/comparable.h"
#include "vector/topk_heap.h"
#include "vector/visit.h"

namespace tavo::vector {
namespace {

constexpr ub4 no_cap = ~0u; // one call visits all rows

// Runs a walk with a heap in res. A walk that fails leaves res.size as it was.
template <class Walk>
[[gnu::always_inline]] inline ub4 nearest(tavo_vec *res, Walk walk) {
    auto *const entries = static_cast<tavo_topk_entry *>(res->data);
    topk_heap heap(entries, TAVO_VEC_SIZE(res));
    if (const ub4 status = walk([&](ub4, ub4 row, double distance) { heap.offer(row, distance); }))
        return status;
    res->size = heap.finish();
    if (!has_flag(res, TAVO_NATIVE))
        for (ub4 i = 0; i < res->size; i++)
            store_comparable<f64>(&entries[i].distance, std::bit_cast<ub8>(entries[i].distance));
    return TAVO_DONE;
}

} // namespace
} // namespace tavo::vector

using namespace tavo::vector;

extern "C" {

ub4 tavo_dbv_paired_unif_topk(tavo_vec *res, tavo_vec *col, tavo_vec *query, tavo_distance_kernel *kernel, ub4 metric,
                              tavo_env *env) noexcept {
    return nearest(res, [=](auto offer) { return each_paired_unif(col, query, kernel, metric, env, no_cap, offer); });
}

ub4 tavo_dbv_single_unif_topk(tavo_vec *res, tavo_vec *col, tavo_vec *query, tavo_distance_kernel *kernel,
                              ub4 left_sparse, ub4 metric, tavo_env *env, void *scratch) noexcept {
    return nearest(res, [=](auto offer) {
        return each_single_unif(col, query, kernel, left_sparse != 0, metric, env, scratch, no_cap, offer);
    });
}

ub4 tavo_vector_topk_dydi(tavo_vec *res, tavo_vec *col, tavo_vec *query, ub8 metric_word, ub8 layout, tavo_env *env,
                          void *scratch) noexcept {
    const auto metric = static_cast<ub4>(metric_word);
    const operand_shape shape = shape_of_operands(col, query);
    if (shape.status != TAVO_DONE)
        return shape.status;
    if (shape.flexible)
        return nearest(res, [=](auto offer) {
            return shape.paired ? each_paired_flex(col, query, metric, env, no_cap, offer)
                                : each_single_flex(col, query, metric, env, scratch, no_cap, offer);
        });
    tavo_distance_kernel *const kernel = uniform_kernel(col, query, metric, layout, scratch);
    if (kernel == nullptr)
        return TAVO_BAD_INPUT;
    return shape.paired
               ? tavo_dbv_paired_unif_topk(res, col, query, kernel, metric, env)
               : tavo_dbv_single_unif_topk(res, col, query, kernel, left_layout(layout) == 1, metric, env, scratch);
}

} // extern "C"
