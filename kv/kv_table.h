// The operations on join tables, as the descriptor names them. Contracts: frame/tavo_kv.h and frame/tavo_avx512g.h.
#pragma once

#include "frame/tavo_kv.h"

extern "C" {
ub4 tavo_layout_kv_dydi(ub8 ndv, ub8 rows, ub4 *flags, tavo_kv *kv, ub4 segment_log2, ub4 lower_rows, ub4 upper_rows,
                        ub4 fill_percent, ub4 force_pointer) noexcept;
ub4 tavo_create_add_kv_dydi(tavo_kv *kv, tavo_vec *hashes, tavo_vec *values, tavo_vec *keys, sb8 segment_id,
                            tavo_env *env, tavo_kv_alloc_fn *alloc, tavo_kv_status *status) noexcept;
ub4 tavo_probe_kv_dydi(tavo_vec *value_out, void *rid_out, tavo_vec *hashes, tavo_vec *rids, tavo_vec *keys,
                       tavo_kv *kv, ub4 mode, tavo_env *env, tavo_kv_status *status) noexcept;
ub4 tavo_mut_kv_scan_dydi(tavo_vec *out, tavo_kv *kv, ub4 mode, tavo_kv_scan_position *position,
                          ub4 end_segment) noexcept;

// The sizing of a table of buckets, with the bucket's figures as arguments. The other arguments are layout's.
ub4 tavo_kv_layout_bucketed(ub8 ndv, ub8 rows, ub4 *flags, ub4 index_capacity, ub4 pointer_capacity, ub4 count_bits,
                            ub4 segment_log2, tavo_kv *kv, ub4 lower_rows, ub4 upper_rows, ub4 fill_percent,
                            ub4 force_pointer) noexcept;
}
