#include "frame/dispatch_table.h"

#include "aggregate/arithmetic_kernels.h"
#include "aggregate/minmax_kernels.h"
#include "aggregate/sum_distinct_kernels.h"
#include "decode/burst_rle_kernels.h"
#include "decode/decode_kernels.h"
#include "frame/tavoc_avx512g.h"
#include "scan/dict_scan_kernels.h"
#include "scan/dynp_scan_kernels.h"
#include "scan/fixed_scan_kernels.h"
#include "scan/set_scan_kernels.h"
#include "xlate/xlate_kernels.h"

namespace tavo {
namespace {

consteval dispatch_tables build_dispatch_tables() {
    dispatch_tables t;
    put_dict_scans(t);
    put_fixed_scans(t);
    put_dynp_scans(t);
    put_set_scans(t);
    put_burst_rle(t);
    put_decodes(t);
    put_minmax(t);
    put_sum_distinct(t);
    put_arithmetic(t);
    put_xlate(t);
    return t;
}

} // namespace
} // namespace tavo

extern "C" {

TAVO_KEPT constinit const tavo::kernel_slots tavo_dispatch_table = tavo::build_dispatch_tables().slots;
TAVO_KEPT constinit const tavo::kernel_names tavo_dispatch_func_names = tavo::build_dispatch_tables().names;

TAVO_KEPT ub4 tavo_dispatch_table_size(void) noexcept { return TAVO_DISPATCH_SLOTS; }

TAVO_KEPT ub4 tavo_convert_width(ub4 width) noexcept {
    if (!tavo::has_width_code(width))
        TAVO_ASSERT(0);
    return tavo::width_code(width);
}

TAVO_KEPT ub4 tavo_xlate_convert_width(sb4 element, ub4 form) noexcept {
    switch (element) {
    case -1: return form * 8;
    case -4: return form * 8 + 1;
    case 1: return form * 8 + 2;
    case 2: return form * 8 + 3;
    case 4: return form * 8 + 4;
    default: TAVO_ASSERT(0); return 0;
    }
}

TAVO_KEPT ub4 tavo_xlate_convert_type(ub4 type) noexcept {
    if (type < 1 || type > 3)
        TAVO_ASSERT(0);
    return type - 1;
}

} // extern "C"
