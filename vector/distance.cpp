#include "vector/distance.h"

#include "frame/comparable.h"
#include "vector/visit.h"

namespace tavo::vector {
namespace {

// Turns all of the output to comparable form where it is asked for, the elements that this call did not write too.
void finish_output(tavo_vec *res) {
    if (has_flag(res, TAVO_NATIVE))
        return;
    auto *out = static_cast<double *>(res->data);
    ub4 n = TAVO_VEC_SIZE(res);
    for (; n >= 8; n -= 8, out += 8)
        _mm512_storeu_si512(out, encode_comparable<f64>(_mm512_loadu_si512(out)));
    const auto m = static_cast<__mmask8>(_bzhi_u32(0xff, n));
    _mm512_mask_storeu_epi64(out, m, encode_comparable<f64>(_mm512_maskz_loadu_epi64(m, out)));
}

// Stores distances in the order of the visit.
auto storing(tavo_vec *res) {
    return [out = static_cast<double *>(res->data)](ub4 i, ub4, double distance) { out[i] = distance; };
}

ub4 finished(tavo_vec *res, ub4 status) {
    if (status == TAVO_DONE)
        finish_output(res);
    return status;
}

} // namespace
} // namespace tavo::vector

using namespace tavo::vector;

extern "C" {

ub4 tavo_dbv_paired_unif_distance(tavo_vec *res, tavo_vec *col, tavo_vec *query, tavo_distance_kernel *kernel,
                                  ub4 metric, tavo_env *env) noexcept {
    return finished(res, each_paired_unif(col, query, kernel, metric, env, TAVO_VEC_SIZE(res), storing(res)));
}

ub4 tavo_dbv_single_unif_distance(tavo_vec *res, tavo_vec *col, tavo_vec *query, tavo_distance_kernel *kernel,
                                  ub4 left_sparse, ub4 metric, tavo_env *env, void *scratch) noexcept {
    return finished(res, each_single_unif(col, query, kernel, left_sparse != 0, metric, env, scratch,
                                          TAVO_VEC_SIZE(res), storing(res)));
}

ub4 tavo_dbv_paired_flex_distance(tavo_vec *res, tavo_vec *col, tavo_vec *query, ub4 metric, tavo_env *env,
                                  void *) noexcept {
    return finished(res, each_paired_flex(col, query, metric, env, TAVO_VEC_SIZE(res), storing(res)));
}

ub4 tavo_dbv_single_flex_distance(tavo_vec *res, tavo_vec *col, tavo_vec *query, ub4 metric, tavo_env *env,
                                  void *scratch) noexcept {
    return finished(res, each_single_flex(col, query, metric, env, scratch, TAVO_VEC_SIZE(res), storing(res)));
}

ub4 tavo_vector_distance_dydi(tavo_vec *res, tavo_vec *col, tavo_vec *query, ub8 metric_word, ub8 layout, tavo_env *env,
                              void *scratch) noexcept {
    const auto metric = static_cast<ub4>(metric_word);
    const operand_shape shape = shape_of_operands(col, query);
    if (shape.status != TAVO_DONE)
        return shape.status;
    if (shape.flexible)
        return shape.paired ? tavo_dbv_paired_flex_distance(res, col, query, metric, env, scratch)
                            : tavo_dbv_single_flex_distance(res, col, query, metric, env, scratch);
    tavo_distance_kernel *const kernel = uniform_kernel(col, query, metric, layout, scratch);
    if (kernel == nullptr)
        return TAVO_BAD_INPUT;
    return shape.paired
               ? tavo_dbv_paired_unif_distance(res, col, query, kernel, metric, env)
               : tavo_dbv_single_unif_distance(res, col, query, kernel, left_layout(layout) == 1, metric, env, scratch);
}

} // extern "C"
