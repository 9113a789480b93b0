#include "vector/topk.h"

#include <bit>

#include "frame/comparable.h"
#include "vector/distance_visit.h"
#include "vector/topk_heap.h"

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

ub4 paired_flex_topk(tavo_vec *res, tavo_vec *col, tavo_vec *query, ub4 metric, tavo_env *env, void *) noexcept {
    return nearest(res, [=](auto offer) { return distances_paired_flex(col, query, metric, env, no_cap, offer); });
}
ub4 single_flex_topk(tavo_vec *res, tavo_vec *col, tavo_vec *query, ub4 metric, tavo_env *env, void *scratch) noexcept {
    return nearest(res,
                   [=](auto offer) { return distances_single_flex(col, query, metric, env, scratch, no_cap, offer); });
}

} // namespace
} // namespace tavo::vector

using namespace tavo::vector;

extern "C" {

ub4 tavo_dbv_paired_unif_topk(tavo_vec *res, tavo_vec *col, tavo_vec *query, tavo_distance_kernel *kernel, ub4 metric,
                              tavo_env *env) noexcept {
    return nearest(res,
                   [=](auto offer) { return distances_paired_unif(col, query, kernel, metric, env, no_cap, offer); });
}

ub4 tavo_dbv_single_unif_topk(tavo_vec *res, tavo_vec *col, tavo_vec *query, tavo_distance_kernel *kernel,
                              ub4 left_sparse, ub4 metric, tavo_env *env, void *scratch) noexcept {
    return nearest(res, [=](auto offer) {
        return distances_single_unif(col, query, kernel, left_sparse != 0, metric, env, scratch, no_cap, offer);
    });
}

} // extern "C"

namespace {
struct drivers {
    static constexpr auto *paired_unif = tavo_dbv_paired_unif_topk;
    static constexpr auto *single_unif = tavo_dbv_single_unif_topk;
    static constexpr auto *paired_flex = paired_flex_topk;
    static constexpr auto *single_flex = single_flex_topk;
};
} // namespace

extern "C" ub4 tavo_vector_topk_dydi(tavo_vec *res, tavo_vec *col, tavo_vec *query, ub8 metric, ub8 layout,
                                     tavo_env *env, void *scratch) noexcept {
    return drive<drivers>(res, col, query, metric, layout, env, scratch);
}
