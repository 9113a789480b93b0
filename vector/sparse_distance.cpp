// The sparse members: each family has one body for all pairs of forms.
#include "vector/distance_kernels.h"
#include "vector/sparse.h"
#include "vector/sparse_bits.h"

#define TAVO_SPARSE_MEMBER(family, left_form, right_form)                                                              \
    TAVO_DISTANCE_KERNEL(tavo_dbv_##family##_S##left_form##_S##right_form) {                                           \
        using namespace tavo::vector;                                                                                  \
        static_cast<void>(dims);                                                                                       \
        return sparse<tavo::vector::family>(left, right, metric, result,                                               \
                                            pair_of(number_##left_form, number_##right_form));                         \
    }
#define TAVO_SPARSE_MEMBERS(family) TAVO_EACH_FORM_PAIR(TAVO_SPARSE_MEMBER, family)
#define TAVO_SPARSE_BITS_MEMBER(family)                                                                                \
    TAVO_DISTANCE_KERNEL(tavo_dbv_##family##_Sbitmsb0_Sbitmsb0) {                                                      \
        using namespace tavo::vector;                                                                                  \
        static_cast<void>(dims);                                                                                       \
        return sparse_bits<bit_family::family>(left, right, metric, result);                                           \
    }

extern "C" {
TAVO_EACH_DISTANCE(TAVO_SPARSE_MEMBERS)
TAVO_EACH_BIT_DISTANCE(TAVO_SPARSE_BITS_MEMBER)
}
