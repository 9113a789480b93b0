// The members of int8 that multiply and add in one instruction. Selected only where tavo_has_vnni is set.
#include "vector/distance_kernels.h"
#include "vector/int8_vnni.h"

#define TAVO_VNNI_MEMBER(family)                                                                                       \
    TAVO_DISTANCE_KERNEL(tavo_dbv_##family##_vnni_int8_int8) {                                                         \
        using metric_of = tavo::vector::family;                                                                        \
        *result = metric_of::result(tavo::vector::dense_int8_vnni<metric_of>(dims, left, right), metric);              \
        return 0;                                                                                                      \
    }

extern "C" {
TAVO_VNNI_MEMBER(euclid)
TAVO_VNNI_MEMBER(cosine)
TAVO_VNNI_MEMBER(dotprod)
}
