// Stamps the members of one shard.
#pragma once

#include "scan/dict_scan.h"
#include "scan/dict_scan_kernels.h"

#define TAVO_ONE_CONSTANT_MEMBER(width, op, number, null_tag, variant)                                                 \
    extern "C" ub4 tavo_##op##_dict_##width##bit##null_tag(tavo_vec *res, tavo_vec *src, tavo_vec *constant,           \
                                                           tavo_env *env) noexcept {                                   \
        return tavo::dict_scan<tavo::scan_op::op, width, variant>(                                                     \
            res, src, constant, nullptr, env, TAVO_KERNEL_TEXTS(tavo_##op##_dict_##width##bit##null_tag));             \
    }

#define TAVO_TWO_CONSTANT_MEMBER(width, op, number, null_tag, variant)                                                 \
    extern "C" ub4 tavo_##op##_dict_##width##bit##null_tag(tavo_vec *res, tavo_vec *src, tavo_vec *lo, tavo_vec *hi,   \
                                                           tavo_env *env) noexcept {                                   \
        return tavo::dict_scan<tavo::scan_op::op, width, variant>(                                                     \
            res, src, lo, hi, env, TAVO_KERNEL_TEXTS(tavo_##op##_dict_##width##bit##null_tag));                        \
    }
