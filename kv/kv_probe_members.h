// Stamps the members of one shard.
#pragma once

#include "kv/kv_probe.h"
#include "kv/kv_probe_kernels.h"

#define TAVO_PROBE_MEMBER(type, family, mode, autorid, axes, link)                                                     \
    extern "C" ub4 tavo_kv_ll_probe_##type##_##family##_##axes##_##link(                                               \
        tavo_kv *kv, ub4 rows, const void *hashes, const void *keys, const void *rids, ub4 capacity, void *rid_out,    \
        void *value_out, ub4 *rows_done, ub4 *outputs, tavo_aux_info *aux, tavo_kv_status *status) noexcept {          \
        return tavo::probe_rows<tavo::kv_type::type, tavo::kv_link::link, tavo::probe_family::family,                  \
                                tavo::probe_of::axes>(kv, rows, hashes, keys, rids, capacity, rid_out, value_out,      \
                                                      rows_done, outputs, nullptr, aux, status);                       \
    }
#define TAVO_COUNT_MEMBER(type, family, mode, autorid, axes, link)                                                     \
    extern "C" ub4 tavo_kv_ll_probe_##type##_##family##_##axes##_##link(                                               \
        tavo_kv *kv, ub4 rows, const void *hashes, const void *keys, const void *rids, ub8 *total, ub4 *rows_done,     \
        tavo_aux_info *aux, tavo_kv_status *status) noexcept {                                                         \
        return tavo::probe_rows<tavo::kv_type::type, tavo::kv_link::link, tavo::probe_family::family,                  \
                                tavo::probe_of::axes>(kv, rows, hashes, keys, rids, 0, nullptr, nullptr, rows_done,    \
                                                      nullptr, total, aux, status);                                    \
    }
