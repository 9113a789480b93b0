#include "scan/fixed_scan.h"
#include "scan/fixed_scan_kernels.h"

TAVO_EACH_ONE_CONSTANT_FIXED_SCAN(TAVO_ONE_CONSTANT_MEMBER, _tz, 1)
TAVO_EACH_SHORT_FIXED_TZ_RANGE(TAVO_TWO_CONSTANT_MEMBER)

// The members that walk a selection go under the name of the one that the host has called where they speak to it.
#define TAVO_SELECTIVE_MEMBER(width, form, op, number, tag, variant)                                                   \
    extern "C" ub4 tavo_##op##_##form##_##width##bit##tag##_selective(tavo_vec *res, tavo_vec *src, tavo_vec *lo,      \
                                                                      tavo_vec *hi, tavo_env *env) noexcept {          \
        return tavo::sparse_fixed_scan<tavo::scan_op::op, width, true>(                                                \
            res, src, lo, hi, env, TAVO_KERNEL_TEXTS(tavo_##op##_##form##_##width##bit##tag));                         \
    }                                                                                                                  \
    extern "C" ub4 tavo_##op##_##form##_##width##bit##tag(tavo_vec *res, tavo_vec *src, tavo_vec *lo, tavo_vec *hi,    \
                                                          tavo_env *env) noexcept {                                    \
        return tavo::fixed_scan<tavo::scan_op::op, width, true, tavo_##op##_##form##_##width##bit##tag##_selective>(   \
            res, src, lo, hi, env, TAVO_KERNEL_TEXTS(tavo_##op##_##form##_##width##bit##tag));                         \
    }
TAVO_EACH_SELECTIVE_FIXED_SCAN(TAVO_SELECTIVE_MEMBER)
