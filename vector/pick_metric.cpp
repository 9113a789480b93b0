#include "vector/pick_metric.h"

#include "frame/processor.h"
#include "vector/distance_kernels.h"
#include "vector/forms.h"

namespace {

using namespace tavo::vector;

enum family : ub4 { family_euclid, family_cosine, family_dotprod, family_manhattan, family_hamming, family_jaccard };

// ---- All kernels by number; 0 is none ----

constexpr ub4 pairs = forms * forms;
// First the members that others take the place of where the processor has the instruction: the same numbers further on.
constexpr ub4 first_int8 = 1, first_bits = 4, last_bits = 9;
constexpr ub4 first_with_extension = 10; // three _vnni_, six _vpopc_
constexpr ub4 first_sparse_bits = 19, first_dense = 25, first_sparse = first_dense + 5 * pairs;
constexpr ub4 kernel_numbers = first_sparse + 5 * pairs;

// clang-format off
#define TAVO_BITS(family) tavo_dbv_##family##_bitmsb0_bitmsb0,
#define TAVO_BITS_VPOPC(family) tavo_dbv_##family##_vpopc_bitmsb0_bitmsb0,
#define TAVO_SPARSE_BITS(family) tavo_dbv_##family##_Sbitmsb0_Sbitmsb0,
#define TAVO_DENSE(family, left, right) tavo_dbv_##family##_##left##_##right,
#define TAVO_DENSE_FAMILY(family) TAVO_EACH_FORM_PAIR(TAVO_DENSE, family)
#define TAVO_SPARSE(family, left, right) tavo_dbv_##family##_S##left##_S##right,
#define TAVO_SPARSE_FAMILY(family) TAVO_EACH_FORM_PAIR(TAVO_SPARSE, family)
constexpr tavo_distance_kernel *kernels[] = {
    nullptr,
    tavo_dbv_euclid_int8_int8, tavo_dbv_cosine_int8_int8, tavo_dbv_dotprod_int8_int8,
    TAVO_EACH_BIT_DISTANCE(TAVO_BITS)
    tavo_dbv_euclid_vnni_int8_int8, tavo_dbv_cosine_vnni_int8_int8, tavo_dbv_dotprod_vnni_int8_int8,
    TAVO_EACH_BIT_DISTANCE(TAVO_BITS_VPOPC)
    TAVO_EACH_BIT_DISTANCE(TAVO_SPARSE_BITS)
    TAVO_EACH_DISTANCE(TAVO_DENSE_FAMILY)
    TAVO_EACH_DISTANCE(TAVO_SPARSE_FAMILY)
};
// clang-format on
static_assert(sizeof kernels / sizeof *kernels == kernel_numbers);

// ---- The rule ----

constexpr ub4 family_of_metric[11] = {~0u,
                                      family_euclid,
                                      family_euclid,
                                      family_cosine,
                                      family_cosine,
                                      family_dotprod,
                                      family_dotprod,
                                      family_manhattan,
                                      family_hamming,
                                      family_jaccard,
                                      family_jaccard};

constexpr ub4 form_of(ub4 type, bool comparable) {
    switch (type) {
    case TAVO_ELEM_FLOAT: return number_float + comparable;
    case TAVO_ELEM_DOUBLE: return number_double + comparable;
    case TAVO_ELEM_INT8: return number_int8; // the same bytes in either form
    case TAVO_ELEM_FLOAT16: return number_float16 + comparable;
    case TAVO_ELEM_BFLOAT16: return number_bfloat16 + comparable;
    default: return forms;
    }
}

constexpr ub4 number_of(ub4 metric, ub4 left_type, bool lc, ub4 right_type, bool rc, bool sparse) {
    const ub4 family = family_of_metric[metric];
    if (left_type == TAVO_ELEM_BITMSB0 && right_type == TAVO_ELEM_BITMSB0)
        return (sparse ? first_sparse_bits : first_bits) + family;
    // An int8 operand is never comparable. Flagged so all the same, it takes the flag from the other side too: hosts
    // flag int8 columns as native.
    const bool neither = (left_type == TAVO_ELEM_INT8 || right_type == TAVO_ELEM_INT8) && lc && rc;
    const ub4 left = form_of(left_type, lc && !neither), right = form_of(right_type, rc && !neither);
    if (family == family_jaccard || left == forms || right == forms)
        return 0;
    if (!sparse && left == number_int8 && right == number_int8 && family <= family_dotprod)
        return first_int8 + family;
    return (sparse ? first_sparse : first_dense) + family * pairs + left * forms + right;
}

// ---- The table ----

constexpr ub8 index_of(ub4 metric, ub4 left_type, ub4 lc, ub4 left_layout, ub4 right_type, ub4 rc, ub4 right_layout) {
    return (36ul * metric + 4 * left_type + lc + 2 * left_layout) * 36 + 4 * right_type + rc + 2 * right_layout;
}
constexpr ub8 first_index = index_of(1, TAVO_ELEM_FLOAT, 0, 0, TAVO_ELEM_FLOAT, 0, 0);
constexpr ub8 last_index = index_of(10, TAVO_ELEM_BITMSB0, 1, 1, TAVO_ELEM_BITMSB0, 1, 1);
static_assert(first_index == 1444 && last_index == 13959);

struct numbers {
    ub2 number[last_index - first_index + 1];
    ub4 filled;
};
constexpr numbers table = [] {
    numbers t{};
    for (ub4 metric = 1; metric <= 10; metric++)
        for (ub4 left = 1; left <= TAVO_ELEM_BFLOAT16; left++)
            for (ub4 right = 1; right <= TAVO_ELEM_BFLOAT16; right++)
                for (ub4 flags = 0; flags < 8; flags++) {
                    const ub4 lc = flags & 1, rc = flags >> 1 & 1, layout = flags >> 2;
                    if (const ub4 number = number_of(metric, left, lc, right, rc, layout)) {
                        t.number[index_of(metric, left, lc, layout, right, rc, layout) - first_index] =
                            static_cast<ub2>(number);
                        t.filled++;
                    }
                }
    return t;
}();
static_assert(table.filled == 1680);

} // namespace

extern "C" tavo_distance_kernel *tavo_vector_pick_metric_dydi(ub4 metric, ub4 left_type, ub4 left_comparable,
                                                              ub4 left_layout, ub4 right_type, ub4 right_comparable,
                                                              ub4 right_layout) noexcept {
    // Larger numbers would reach into a neighbour's entries.
    if (left_type > TAVO_ELEM_BFLOAT16 || right_type > TAVO_ELEM_BFLOAT16 || left_layout > 1 || right_layout > 1)
        return nullptr;
    const ub8 index =
        index_of(metric, left_type, left_comparable != 0, left_layout, right_type, right_comparable != 0, right_layout);
    if (index < first_index || index > last_index)
        return nullptr;
    ub4 number = table.number[index - first_index];
    if (number - 1 < last_bits)
        number += (number < first_bits ? tavo_has_vnni : tavo_has_vpopcdq) ? first_with_extension - first_int8 : 0;
    return kernels[number];
}
