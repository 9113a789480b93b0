#include "vector/arith_dispatch.h"

#include "vector/forms.h"

namespace {

using namespace tavo::vector;

constexpr ub4 arith_forms = number_int8 + 1; // those before it and itself
constexpr ub4 modes = 4;                     // vec, with norm, scalar, with norm

// ---- All kernels by operation, triple and mode ----

struct triple {
    ub1 a, b, result;
};
#define TAVO_TRIPLE(op, a, b, result) {number_##a, number_##b, number_##result},
constexpr triple triples[] = {TAVO_EACH_ARITH_TRIPLE(TAVO_TRIPLE, )};
#undef TAVO_TRIPLE
constexpr ub4 triple_count = sizeof triples / sizeof *triples;
static_assert(triple_count == 69);

// clang-format off
#define TAVO_KERNELS_OF(op, a, b, result)                                                                              \
    tavo_vector_arith_##op##_##a##_##b##_##result##_vec, tavo_vector_arith_##op##_##a##_##b##_##result##_vec_wnorm,    \
    tavo_vector_arith_##op##_##a##_##b##_##result##_scalar,                                                            \
    tavo_vector_arith_##op##_##a##_##b##_##result##_scalar_wnorm,
#define TAVO_KERNELS_OF_OP(op) TAVO_EACH_ARITH_TRIPLE(TAVO_KERNELS_OF, op)
constexpr tavo_arith_kernel *kernels[] = {TAVO_EACH_ARITH_OP(TAVO_KERNELS_OF_OP)};
// clang-format on
constexpr ub4 ops = TAVO_VECTOR_DIV - TAVO_VECTOR_ADD + 1;
static_assert(sizeof kernels / sizeof *kernels == ops * triple_count * modes);

// Number of a triple by its forms, from 1; 0 is none.
struct numbers {
    ub1 number[arith_forms][arith_forms][arith_forms];
};
constexpr numbers table = [] {
    numbers t{};
    for (ub4 i = 0; i < triple_count; i++)
        t.number[triples[i].a][triples[i].b][triples[i].result] = static_cast<ub1>(i + 1);
    return t;
}();

constexpr ub4 form_of(ub4 type, bool comparable) {
    switch (type) {
    case TAVO_ELEM_FLOAT: return number_float + comparable;
    case TAVO_ELEM_DOUBLE: return number_double + comparable;
    case TAVO_ELEM_INT8: return number_int8;
    default: return arith_forms;
    }
}

} // namespace

extern "C" tavo_arith_kernel *tavo_vector_arith_dispatch(ub4 op, ub4 a_type, ub4 a_comparable, ub4 a_layout, ub4 b_type,
                                                         ub4 b_comparable, ub4 b_layout, ub4 is_scalar, ub4 r_type,
                                                         ub4 r_comparable, ub4 r_layout, ub4 with_norm) noexcept {
    const ub4 a = form_of(a_type, a_comparable != 0), b = form_of(b_type, b_comparable != 0),
              r = form_of(r_type, r_comparable != 0);
    if (op - TAVO_VECTOR_ADD >= ops || a_layout != 0 || b_layout != 0 || r_layout != 0 || a == arith_forms ||
        b == arith_forms || r == arith_forms)
        return nullptr;
    const ub4 number = table.number[a][b][r];
    if (number == 0)
        return nullptr;
    return kernels[((op - TAVO_VECTOR_ADD) * triple_count + number - 1) * modes + 2 * (is_scalar != 0) +
                   (with_norm != 0)];
}
