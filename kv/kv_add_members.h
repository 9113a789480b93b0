// Stamps the members of one shard.
#pragma once

#include "kv/kv_add.h"
#include "kv/kv_add_kernels.h"

#define TAVO_ADD_MEMBER(type, rows, form)                                                                              \
    extern "C" ub4 tavo_kv_ll_add_##type##_##rows##_##form(tavo_kv *kv, void *segment, ub4 count, const void *hashes,  \
                                                           const void *keys, const void *values, ub4 *done,            \
                                                           tavo_kv_alloc_fn *alloc, tavo_kv_status *status) noexcept { \
        constexpr tavo::table_type t = tavo::table_types[tavo::kv_type::type];                                         \
        return tavo::add_rows<t.code, tavo::kv_form::form, tavo::rows_of::rows<t.key_bytes, t.value_bytes>>(           \
            kv, segment, count, hashes, keys, values, done, alloc, status);                                            \
    }
