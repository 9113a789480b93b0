#include "vector/distance.h"

#include "vector/distance_visit.h"

namespace tavo::vector {
namespace {

// Stores distances in the order of the visit.
auto storing(tavo_vec *res) {
    return [out = static_cast<double *>(res->data)](ub4 i, ub4, double distance) { out[i] = distance; };
}

ub4 finished(tavo_vec *res, ub4 status) {
    if (status == TAVO_DONE)
        finish_doubles(res);
    return status;
}

} // namespace
} // namespace tavo::vector

using namespace tavo::vector;

extern "C" {

ub4 tavo_dbv_paired_unif_distance(tavo_vec *res, tavo_vec *col, tavo_vec *query, tavo_distance_kernel *kernel,
                                  ub4 metric, tavo_env *env) noexcept {
    return finished(res, distances_paired_unif(col, query, kernel, metric, env, TAVO_VEC_SIZE(res), storing(res)));
}

ub4 tavo_dbv_single_unif_distance(tavo_vec *res, tavo_vec *col, tavo_vec *query, tavo_distance_kernel *kernel,
                                  ub4 left_sparse, ub4 metric, tavo_env *env, void *scratch) noexcept {
    return finished(res, distances_single_unif(col, query, kernel, left_sparse != 0, metric, env, scratch,
                                               TAVO_VEC_SIZE(res), storing(res)));
}

ub4 tavo_dbv_paired_flex_distance(tavo_vec *res, tavo_vec *col, tavo_vec *query, ub4 metric, tavo_env *env,
                                  void *) noexcept {
    return finished(res, distances_paired_flex(col, query, metric, env, TAVO_VEC_SIZE(res), storing(res)));
}

ub4 tavo_dbv_single_flex_distance(tavo_vec *res, tavo_vec *col, tavo_vec *query, ub4 metric, tavo_env *env,
                                  void *scratch) noexcept {
    return finished(res, distances_single_flex(col, query, metric, env, scratch, TAVO_VEC_SIZE(res), storing(res)));
}

} // extern "C"

namespace {
struct drivers {
    static constexpr auto *paired_unif = tavo_dbv_paired_unif_distance;
    static constexpr auto *single_unif = tavo_dbv_single_unif_distance;
    static constexpr auto *paired_flex = tavo_dbv_paired_flex_distance;
    static constexpr auto *single_flex = tavo_dbv_single_flex_distance;
};
} // namespace

extern "C" ub4 tavo_vector_distance_dydi(tavo_vec *res, tavo_vec *col, tavo_vec *query, ub8 metric, ub8 layout,
                                         tavo_env *env, void *scratch) noexcept {
    return drive<drivers>(res, col, query, metric, layout, env, scratch);
}
