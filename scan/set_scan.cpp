#include "scan/set_scan.h"

#include "scan/set_scan_kernels.h"

#define TAVO_MEMBER(width)                                                                                             \
    extern "C" ub4 tavo_set_dict_##width##bit(tavo_vec *res, tavo_vec *src, tavo_vec *set, tavo_env *env) noexcept {   \
        return tavo::set_scan<width>(res, src, set, env, TAVO_KERNEL_TEXTS(tavo_set_dict_##width##bit));               \
    }
TAVO_EACH_SET_SCAN(TAVO_MEMBER)
