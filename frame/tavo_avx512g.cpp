// The descriptor and start-up.
#include "frame/tavo_avx512g.h"

#include "aggregate/group_operations.h"
#include "bitvec/bitvec.h"
#include "decode/prefix_decode.h"
#include "decode/spak.h"
#include "frame/dispatch_table.h"
#include "frame/processor.h"
#include "frame/tavo_status.h"
#include "kv/bloom_kernels.h"
#include "kv/hash.h"
#include "kv/kv_table.h"
#include "kv/partition.h"
#include "rows/convert_operations.h"
#include "rows/row_tables.h"
#include "scan/row_operations.h"
#include "spatial/pip.h"
#include "vector/arith.h"
#include "vector/convert.h"
#include "vector/distance.h"
#include "vector/parse.h"
#include "vector/pick_metric.h"
#include "vector/topk.h"
#include "xlate/dense.h"

extern "C" {
ub4 tavo_init_sharedlib_dydi(ub8, const ub4 info[3]) noexcept {
    for (int i = 0; i < 3; i++)
        cpuinfo[i] = info[i];
    tavo::record_processor_features(tavo::this_processor);
    return TAVO_DONE;
}

void tavo_set_trace_level_dydi(ub4) noexcept {}

// No per-thread state exists in this build; a host may call these for each of its threads.
ub4 tavo_thread_ctx_init_dydi(void) noexcept { return TAVO_DONE; }
ub4 tavo_thread_ctx_fini_dydi(void) noexcept { return TAVO_DONE; }
}

static consteval tavo_specialized_ctx describe_library() {
    tavo_specialized_ctx ctx{};
    ctx.magic = TAVO_MAGIC;
    ctx.version = "MRV_23.0";
    ctx.version_number = 3;
    ctx.build_name = "smrvavx512g";
    for (int i = 0; i < 7; i++)
        ctx.sizes[i] = 8;
    ctx.sizes[7] = 16;
    ctx.sizes[8] = 0;
    ctx.sizes[9] = 64;
    ctx.dispatch_table = tavo_dispatch_table.slot;

#define OPERATION(name) ctx.name = tavo_##name##_dydi
    OPERATION(init_sharedlib);
    OPERATION(set_trace_level);
    OPERATION(lbivpopcnt);
    OPERATION(lbivnot);
    OPERATION(lbivand);
    OPERATION(lbivor);
    OPERATION(lbivxor);
    OPERATION(lbivandnot);
    OPERATION(lbivand3);
    OPERATION(lbivor3);
    OPERATION(lbivxor3);
    OPERATION(lbivset_range);
    OPERATION(lbivclr_range);
    OPERATION(lbiv_ictx_ini2);
    OPERATION(lbiviter);
    OPERATION(lbiviter_clr);
    OPERATION(lbivones);
    OPERATION(lbivrun);
    OPERATION(lbivruns);
    OPERATION(lbiwvpopcnt);
    OPERATION(lbiwvnot);
    OPERATION(lbiwvand);
    OPERATION(lbiwvor);
    OPERATION(lbiwvxor);
    OPERATION(lbiwvandnot);
    OPERATION(lbiwvand3);
    OPERATION(lbiwvor3);
    OPERATION(lbiwvxor3);
    OPERATION(lbiwvset_range);
    OPERATION(lbiwvclr_range);
    OPERATION(lbiwv_ictx_ini2);
    OPERATION(lbiwviter);
    OPERATION(lbiwviter_clr);
    OPERATION(lbiwvones);
    OPERATION(lbiwvrun);
    OPERATION(lbiwvruns);
    OPERATION(bloom);
    OPERATION(groupkey);
    OPERATION(gby_sum);
    OPERATION(convert);
    OPERATION(spatial_pip);
    OPERATION(spheric_pip);
    OPERATION(dgk_concatenate);
    OPERATION(extract_dgk);
    OPERATION(prefix_decode);
    OPERATION(eq_stream);
    OPERATION(selective);
    OPERATION(hash);
    OPERATION(partition);
    OPERATION(gather);
    OPERATION(gather_one_col);
    OPERATION(gather_cols);
    OPERATION(transpose_reference);
    OPERATION(transpose_convert);
    OPERATION(transpose_fixed);
    OPERATION(layout_kv);
    OPERATION(create_add_kv);
    OPERATION(probe_kv);
    OPERATION(mut_kv_scan);
    OPERATION(dgk_symbol2code);
    OPERATION(dgk_code2symbol);
    OPERATION(spak_decode);
    OPERATION(thread_ctx_init);
    OPERATION(thread_ctx_fini);
    OPERATION(sum_vec);
    OPERATION(lookup_and_compare);
    OPERATION(prefix_sum_vec);
    OPERATION(vector_distance);
    OPERATION(vector_topk);
    OPERATION(vector_pick_metric);
    OPERATION(vector_parse);
    OPERATION(vector_convert_fp);
    OPERATION(vector_arith);
#undef OPERATION
    return ctx;
}

constinit const tavo_specialized_ctx tavo_global_specialized_ctx = describe_library();
