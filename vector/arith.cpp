#include "vector/arith.h"

#include <utility>

#include "vector/arith_dispatch.h"
#include "vector/visit.h"

namespace tavo::vector {
namespace {

constexpr ub4 no_cap = ~0u; // one call visits all rows

// What a kernel is chosen by, of an operand or a result.
struct number_form {
    ub4 type;
    bool comparable;
};
number_form form_of(const tavo_vec *v) { return {v->enc->value_type, !has_flag(v, TAVO_NATIVE)}; }
number_form form_of(const vector_image &image) { return {image.type, image.comparable}; }

tavo_arith_kernel *kernel_for(ub4 op, number_form a, number_form b, bool scalar, number_form result, bool norm) {
    return tavo_vector_arith_dispatch(op, a.type, a.comparable, 0, b.type, b.comparable, 0, scalar, result.type,
                                      result.comparable, 0, norm);
}

ub1 *result_row(const tavo_vec *res, ub4 row) { return const_cast<ub1 *>(row_of(res, row)); }
double *norm_of(const tavo_vec *norms, ub4 row) {
    return norms != nullptr ? static_cast<double *>(norms->data) + row : nullptr;
}
ub4 finished(tavo_vec *norms, ub4 status) {
    if (status == TAVO_DONE && norms != nullptr)
        finish_doubles(norms);
    return status;
}

bool by_rows(const tavo_vec *v) { return has_flag(v, TAVO_VEC_BY_POINTER | TAVO_VEC_IMAGES); }

operand_shape shape_of_arith(const tavo_vec *first, const tavo_vec *second) {
    const ub4 n = TAVO_VEC_SIZE(first), m = TAVO_VEC_SIZE(second);
    operand_shape shape{TAVO_DONE, n == m, is_flexible(first)};
    const bool fits = shape.paired
                          ? n <= 1 || (has_flag(first, TAVO_VEC_BY_POINTER) && has_flag(second, TAVO_VEC_BY_POINTER))
                          : m == 1 && (n == 1 || has_flag(first, TAVO_VEC_BY_POINTER));
    if (!fits)
        shape.status = TAVO_UNSUPPORTED;
    else if (is_flexible(second) != shape.flexible)
        shape.status = TAVO_BAD_INPUT;
    return shape;
}

ub4 vec_paired_unif(tavo_vec *res, tavo_vec *norms, tavo_vec *first, tavo_vec *second, ub4 op, tavo_env *env) {
    tavo_arith_kernel *const kernel =
        kernel_for(op, form_of(first), form_of(second), false, form_of(res), norms != nullptr);
    if (kernel == nullptr)
        return TAVO_BAD_INPUT;
    return finished(norms,
                    each_paired_unif(first, second, env, no_cap, [=](ub4, ub4 row, const ub1 *b, const ub1 *a) -> ub4 {
                        return kernel(first->enc->vec_dims, a, b, result_row(res, row), norm_of(norms, row));
                    }));
}

// Swapped, the kernel runs over the number's address and takes one element of the row: calls of hosts rely on it.
ub4 scalar_unif(tavo_vec *res, tavo_vec *norms, tavo_vec *first, tavo_vec *second, bool swapped, ub4 op,
                tavo_env *env) {
    number_form a = form_of(first), b = form_of(second);
    if (swapped)
        std::swap(a, b);
    tavo_arith_kernel *const kernel = kernel_for(op, a, b, true, form_of(res), norms != nullptr);
    if (kernel == nullptr)
        return TAVO_BAD_INPUT;
    return finished(norms, each_single_unif(first, row_of(second, 0), env, no_cap,
                                            [=](ub4, ub4 row, const ub1 *number, const ub1 *vector) -> ub4 {
                                                return kernel(first->enc->vec_dims, swapped ? number : vector,
                                                              swapped ? vector : number, result_row(res, row),
                                                              norm_of(norms, row));
                                            }));
}

// One row of images. False if it has no result.
bool image_arith(ub4 op, const vector_image &a, const vector_image &b, const ub1 *result_image, double *norm) {
    vector_image result;
    if (!read_image(result_image, result) || a.dims != b.dims || a.dims != result.dims || a.sparse || b.sparse ||
        result.sparse)
        return false;
    tavo_arith_kernel *const kernel = kernel_for(op, form_of(a), form_of(b), false, form_of(result), norm != nullptr);
    return kernel != nullptr && kernel(a.dims, a.data, b.data, const_cast<ub1 *>(result.data), norm) == TAVO_DONE;
}

} // namespace
} // namespace tavo::vector

using namespace tavo::vector;

extern "C" {

ub4 tavo_vector_arith_vec_single_unif(tavo_vec *res, tavo_vec *norms, tavo_vec *first, tavo_vec *second, bool swapped,
                                      ub4 op, tavo_env *env, void *scratch) noexcept {
    number_form a = form_of(first), b = form_of(second);
    if (decodes_uniform_query(first, second, wide_floats, scratch))
        b.comparable = false;
    if (swapped)
        std::swap(a, b);
    tavo_arith_kernel *const kernel = kernel_for(op, a, b, false, form_of(res), norms != nullptr);
    if (kernel == nullptr)
        return TAVO_BAD_INPUT;
    const ub1 *const single = uniform_query(first, second, false, wide_floats, scratch);
    return finished(norms, each_single_unif(
                               first, single, env, no_cap, [=](ub4, ub4 row, const ub1 *one, const ub1 *vector) -> ub4 {
                                   return kernel(first->enc->vec_dims, swapped ? one : vector, swapped ? vector : one,
                                                 result_row(res, row), norm_of(norms, row));
                               }));
}

ub4 tavo_vector_arith_vec_paired_flex(tavo_vec *res, tavo_vec *norms, tavo_vec *first, tavo_vec *second, ub4 op,
                                      tavo_env *env) noexcept {
    return finished(norms, each_paired_flex(first, second, env, no_cap,
                                            [=](ub4, ub4 row, const vector_image &b, const ub1 *vector) {
                                                vector_image a;
                                                return read_image(vector, a) &&
                                                       image_arith(op, a, b, row_of(res, row), norm_of(norms, row));
                                            }));
}

ub4 tavo_vector_arith_vec_single_flex(tavo_vec *res, tavo_vec *norms, tavo_vec *first, tavo_vec *second, bool swapped,
                                      ub4 op, tavo_env *env, void *scratch) noexcept {
    return finished(norms, each_single_flex(first, second, env, wide_floats, scratch, no_cap,
                                            [=](ub4, ub4 row, const vector_image &one, const ub1 *vector) {
                                                vector_image image;
                                                return read_image(vector, image) &&
                                                       image_arith(op, swapped ? one : image, swapped ? image : one,
                                                                   row_of(res, row), norm_of(norms, row));
                                            }));
}

ub4 tavo_vector_arith_scalar_flex(tavo_vec *res, tavo_vec *norms, tavo_vec *first, tavo_vec *second, ub4 op,
                                  tavo_env *env) noexcept {
    return finished(norms, each_single_unif(first, row_of(second, 0), env, no_cap,
                                            [=](ub4, ub4 row, const ub1 *number, const ub1 *vector) -> ub4 {
                                                vector_image a, result;
                                                if (read_image(vector, a) && read_image(row_of(res, row), result) &&
                                                    a.dims == result.dims && !a.sparse && !result.sparse) {
                                                    tavo_arith_kernel *const kernel =
                                                        kernel_for(op, form_of(a), form_of(second), true,
                                                                   form_of(result), norms != nullptr);
                                                    if (kernel != nullptr &&
                                                        kernel(a.dims, a.data, number, const_cast<ub1 *>(result.data),
                                                               norm_of(norms, row)) == TAVO_DONE)
                                                        return TAVO_DONE;
                                                }
                                                drop_row(env, row);
                                                return TAVO_DONE;
                                            }));
}

ub4 tavo_vector_arith_dydi(tavo_vec *res, tavo_vec *norms, tavo_vec *a, tavo_vec *b, ub4 op, tavo_env *env,
                           void *scratch) noexcept {
    if (op < TAVO_VECTOR_ADD || op > TAVO_VECTOR_DIV)
        return TAVO_BAD_INPUT;
    const bool swapped = TAVO_VEC_SIZE(a) == 1 && TAVO_VEC_SIZE(b) > 1;
    tavo_vec *const first = swapped ? b : a, *const second = swapped ? a : b;
    if (norms != nullptr && TAVO_VEC_SIZE(norms) != TAVO_VEC_SIZE(first))
        return TAVO_UNSUPPORTED;
    if (!by_rows(first) || !by_rows(second)) {
        if (!has_flag(second, TAVO_CONSTANT))
            return TAVO_UNSUPPORTED;
        return is_flexible(first) ? tavo_vector_arith_scalar_flex(res, norms, first, second, op, env)
                                  : scalar_unif(res, norms, first, second, swapped, op, env);
    }
    return choose_driver(
        shape_of_arith(first, second), [=] { return vec_paired_unif(res, norms, first, second, op, env); },
        [=] { return tavo_vector_arith_vec_single_unif(res, norms, first, second, swapped, op, env, scratch); },
        [=] { return tavo_vector_arith_vec_paired_flex(res, norms, first, second, op, env); },
        [=] { return tavo_vector_arith_vec_single_flex(res, norms, first, second, swapped, op, env, scratch); });
}

} // extern "C"
