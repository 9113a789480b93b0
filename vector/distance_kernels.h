// The distance kernels: the list of all 831, nine of which need an extension of the processor.
//
// Names are tavo_dbv_<family>_<left>_<right>, sparse forms with an S in front of the form.
#pragma once

#include "frame/tavo_avx512g.h"

// The families in which vectors of numbers have kernels; jaccard has them for bits alone.
#define TAVO_EACH_DISTANCE(X) X(euclid) X(cosine) X(dotprod) X(manhattan) X(hamming)
#define TAVO_EACH_BIT_DISTANCE(X) TAVO_EACH_DISTANCE(X) X(jaccard)

// The right forms for a left form, and the left forms, in the order of their numbers. `K` gets family, left and right.
#define TAVO_EACH_RIGHT_FORM(K, family, left)                                                                          \
    K(family, left, float)                                                                                             \
    K(family, left, Cfloat)                                                                                            \
    K(family, left, double)                                                                                            \
    K(family, left, Cdouble)                                                                                           \
    K(family, left, int8)                                                                                              \
    K(family, left, float16)                                                                                           \
    K(family, left, Cfloat16)                                                                                          \
    K(family, left, bfloat16)                                                                                          \
    K(family, left, Cbfloat16)
#define TAVO_EACH_FORM_PAIR(K, family)                                                                                 \
    TAVO_EACH_RIGHT_FORM(K, family, float)                                                                             \
    TAVO_EACH_RIGHT_FORM(K, family, Cfloat)                                                                            \
    TAVO_EACH_RIGHT_FORM(K, family, double)                                                                            \
    TAVO_EACH_RIGHT_FORM(K, family, Cdouble)                                                                           \
    TAVO_EACH_RIGHT_FORM(K, family, int8)                                                                              \
    TAVO_EACH_RIGHT_FORM(K, family, float16)                                                                           \
    TAVO_EACH_RIGHT_FORM(K, family, Cfloat16)                                                                          \
    TAVO_EACH_RIGHT_FORM(K, family, bfloat16)                                                                          \
    TAVO_EACH_RIGHT_FORM(K, family, Cbfloat16)

#define TAVO_DISTANCE_KERNEL(name)                                                                                     \
    ub8 name(ub4 dims, const void *left, const void *right, ub4 metric, double *result) noexcept

extern "C" {
#define TAVO_DECLARE_PAIR(family, left, right)                                                                         \
    TAVO_DISTANCE_KERNEL(tavo_dbv_##family##_##left##_##right);                                                        \
    TAVO_DISTANCE_KERNEL(tavo_dbv_##family##_S##left##_S##right);
#define TAVO_DECLARE_FAMILY(family) TAVO_EACH_FORM_PAIR(TAVO_DECLARE_PAIR, family)
TAVO_EACH_DISTANCE(TAVO_DECLARE_FAMILY)
#undef TAVO_DECLARE_FAMILY
#undef TAVO_DECLARE_PAIR

#define TAVO_DECLARE_BITS(family)                                                                                      \
    TAVO_DISTANCE_KERNEL(tavo_dbv_##family##_bitmsb0_bitmsb0);                                                         \
    TAVO_DISTANCE_KERNEL(tavo_dbv_##family##_Sbitmsb0_Sbitmsb0);                                                       \
    TAVO_DISTANCE_KERNEL(tavo_dbv_##family##_vpopc_bitmsb0_bitmsb0); /* tavo_has_vpopcdq */
TAVO_EACH_BIT_DISTANCE(TAVO_DECLARE_BITS)
#undef TAVO_DECLARE_BITS

TAVO_DISTANCE_KERNEL(tavo_dbv_euclid_vnni_int8_int8); // tavo_has_vnni
TAVO_DISTANCE_KERNEL(tavo_dbv_cosine_vnni_int8_int8);
TAVO_DISTANCE_KERNEL(tavo_dbv_dotprod_vnni_int8_int8);
}
