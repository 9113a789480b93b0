// The kernels that find rows in a table of buckets, each once: tavo_kv_ll_probe_<type>_<family>_<axes>_<link>, and by
// number.
#pragma once

#include "kv/bucket.h"
#include "kv/kv_table.h"

// Lists pass on P(type, family, mode, autorid, axes, link) for members with outputs, C(...) for those that count.
#define TAVO_PROBE_LINKS(K, type, family, mode, autorid, axes)                                                         \
    K(type, family, mode, autorid, axes, idx)                                                                          \
    K(type, family, mode, autorid, axes, ptr)                                                                          \
    K(type, family, mode, autorid, axes, ptr_prefetch)
#define TAVO_PROBE_PTR_LINKS(K, type, family, mode, autorid, axes)                                                     \
    K(type, family, mode, autorid, axes, ptr)                                                                          \
    K(type, family, mode, autorid, axes, ptr_prefetch)

#define TAVO_PROBE_VALUE_TYPE(P, C, type)                                                                              \
    TAVO_PROBE_LINKS(P, type, fixed_hash64, 0, 0, payload_value)                                                       \
    TAVO_PROBE_LINKS(P, type, fixed_hash64, 0, 1, autorid_value)                                                       \
    TAVO_PROBE_LINKS(C, type, fixed_hash64, 1, 0, count)                                                               \
    TAVO_PROBE_LINKS(P, type, fixed_hash64, 3, 0, value)                                                               \
    TAVO_PROBE_LINKS(P, type, fixed_hash64, 5, 0, distinct_payload_value)                                              \
    TAVO_PROBE_LINKS(P, type, fixed_hash64, 5, 1, distinct_autorid_value)                                              \
    TAVO_PROBE_LINKS(P, type, fixed_hash64, 7, 0, payload_value_nonmatch)                                              \
    TAVO_PROBE_LINKS(P, type, fixed_hash64, 7, 1, autorid_value_nonmatch)                                              \
    TAVO_PROBE_PTR_LINKS(C, type, fixed_hash64, 8, 0, count_mutkv)                                                     \
    TAVO_PROBE_PTR_LINKS(P, type, fixed_hash64, 9, 0, payload_value_mutkv)                                             \
    TAVO_PROBE_PTR_LINKS(P, type, fixed_hash64, 9, 1, autorid_value_mutkv)                                             \
    TAVO_PROBE_LINKS(C, type, fixed_hash64, 10, 0, count_segbv)                                                        \
    TAVO_PROBE_LINKS(P, type, fixed_hash64, 11, 0, payload_value_segbv)                                                \
    TAVO_PROBE_LINKS(P, type, fixed_hash64, 11, 1, autorid_value_segbv)

#define TAVO_PROBE_KEY_TYPE(P, C, type)                                                                                \
    TAVO_PROBE_LINKS(P, type, fixed_hash64, 0, 0, payload)                                                             \
    TAVO_PROBE_LINKS(P, type, fixed_hash64, 0, 1, autorid)                                                             \
    TAVO_PROBE_LINKS(C, type, fixed_hash64, 1, 0, count)                                                               \
    TAVO_PROBE_LINKS(C, type, fixed_hash64, 4, 0, count_distinct)                                                      \
    TAVO_PROBE_LINKS(P, type, fixed_hash64, 5, 0, distinct_payload)                                                    \
    TAVO_PROBE_LINKS(P, type, fixed_hash64, 5, 1, distinct_autorid)                                                    \
    TAVO_PROBE_LINKS(C, type, fixed_hash64, 6, 0, count_nonmatch)                                                      \
    TAVO_PROBE_LINKS(P, type, fixed_hash64, 7, 0, payload_nonmatch)                                                    \
    TAVO_PROBE_LINKS(P, type, fixed_hash64, 7, 1, autorid_nonmatch)

#define TAVO_PROBE_HASH_TYPE(P, C, type)                                                                               \
    TAVO_PROBE_LINKS(P, type, hash64value, 0, 0, payload_value)                                                        \
    TAVO_PROBE_LINKS(P, type, hash64value, 0, 1, autorid_value)                                                        \
    TAVO_PROBE_LINKS(P, type, hash32value, 0, 0, payload_value)                                                        \
    TAVO_PROBE_LINKS(P, type, hash32value, 0, 1, autorid_value)

// Every type, by shard.
#define TAVO_PROBE_K4_KERNELS(P, C) TAVO_PROBE_VALUE_TYPE(P, C, k4v4) TAVO_PROBE_VALUE_TYPE(P, C, k4v8)
#define TAVO_PROBE_K6_KERNELS(P, C) TAVO_PROBE_VALUE_TYPE(P, C, k6v4) TAVO_PROBE_VALUE_TYPE(P, C, k6v8)
#define TAVO_PROBE_K8_KERNELS(P, C) TAVO_PROBE_VALUE_TYPE(P, C, k8v4) TAVO_PROBE_VALUE_TYPE(P, C, k8v8)
#define TAVO_PROBE_K12_KERNELS(P, C) TAVO_PROBE_VALUE_TYPE(P, C, k10v4) TAVO_PROBE_VALUE_TYPE(P, C, k12v4)
#define TAVO_PROBE_KEY_KERNELS(P, C)                                                                                   \
    TAVO_PROBE_KEY_TYPE(P, C, k4)                                                                                      \
    TAVO_PROBE_KEY_TYPE(P, C, k6) TAVO_PROBE_KEY_TYPE(P, C, k8) TAVO_PROBE_KEY_TYPE(P, C, k12)
#define TAVO_PROBE_HASH_KERNELS(P, C)                                                                                  \
    TAVO_PROBE_HASH_TYPE(P, C, k2v4)                                                                                   \
    TAVO_PROBE_HASH_TYPE(P, C, k2v8) TAVO_PROBE_HASH_TYPE(P, C, k4v4) TAVO_PROBE_HASH_TYPE(P, C, k4v8)
#define TAVO_PROBE_KERNELS(P, C)                                                                                       \
    TAVO_PROBE_K4_KERNELS(P, C)                                                                                        \
    TAVO_PROBE_K6_KERNELS(P, C)                                                                                        \
    TAVO_PROBE_K8_KERNELS(P, C)                                                                                        \
    TAVO_PROBE_K12_KERNELS(P, C) TAVO_PROBE_KEY_KERNELS(P, C) TAVO_PROBE_HASH_KERNELS(P, C)

namespace tavo {

// rids: the rows' ids, or the first row's id (as an address) for autorid. Returns 0, or TAVO_PROBE_FULL behind
// *rows_done rows and *outputs outputs.
using kv_probe_kernel = ub4(tavo_kv *kv, ub4 rows, const void *hashes, const void *keys, const void *rids, ub4 capacity,
                            void *rid_out, void *value_out, ub4 *rows_done, ub4 *outputs, tavo_aux_info *aux,
                            tavo_kv_status *status) noexcept;
// The members that count have the sum in the place of all outputs.
using kv_count_kernel = ub4(tavo_kv *kv, ub4 rows, const void *hashes, const void *keys, const void *rids, ub8 *total,
                            ub4 *rows_done, tavo_aux_info *aux, tavo_kv_status *status) noexcept;

// How a chain is followed. ptr_prefetch fetches ahead in it.
enum class kv_link : ub4 { idx, ptr, ptr_prefetch };

// One member of either pattern, by what its mode is, or null.
union kv_probe_slot {
    kv_probe_kernel *pairs;
    kv_count_kernel *count;
};
constexpr ub4 probe_modes = 12;

} // namespace tavo

extern "C" {
#define TAVO_DECLARE_PROBE(type, family, mode, autorid, axes, link)                                                    \
    tavo::kv_probe_kernel tavo_kv_ll_probe_##type##_##family##_##axes##_##link;
#define TAVO_DECLARE_COUNT(type, family, mode, autorid, axes, link)                                                    \
    tavo::kv_count_kernel tavo_kv_ll_probe_##type##_##family##_##axes##_##link;
TAVO_PROBE_KERNELS(TAVO_DECLARE_PROBE, TAVO_DECLARE_COUNT)
#undef TAVO_DECLARE_PROBE
#undef TAVO_DECLARE_COUNT
}

// ---- The front kernels: one for each type and source of keys, with the front door's arguments ----

#define TAVO_PROBE_FRONT_TYPES(K, source)                                                                              \
    K(k4, source)                                                                                                      \
    K(k6, source)                                                                                                      \
    K(k8, source)                                                                                                      \
    K(k12, source)                                                                                                     \
    K(k4v4, source)                                                                                                    \
    K(k4v8, source)                                                                                                    \
    K(k6v4, source) K(k6v8, source) K(k8v4, source) K(k8v8, source) K(k10v4, source) K(k12v4, source)
#define TAVO_PROBE_GD_TYPES(K, source) K(k4, source) K(k4v4, source) K(k4v8, source)
// K(type, source)
#define TAVO_PROBE_FRONT_KERNELS(K)                                                                                    \
    TAVO_PROBE_GD_TYPES(K, gd_gd)                                                                                      \
    TAVO_PROBE_GD_TYPES(K, gdhc_gd)                                                                                    \
    TAVO_PROBE_FRONT_TYPES(K, hash32_fixed)                                                                            \
    TAVO_PROBE_FRONT_TYPES(K, hash64_fixed)                                                                            \
    TAVO_PROBE_FRONT_TYPES(K, lp_direct)                                                                               \
    TAVO_PROBE_FRONT_TYPES(K, lpsep_direct)

namespace tavo {

using kv_probe_front = ub4(tavo_vec *value_out, void *rid_out, tavo_vec *hashes, tavo_vec *rids, tavo_vec *keys,
                           tavo_kv *kv, ub4 mode, tavo_env *env, tavo_kv_status *status) noexcept;
enum class kv_probe_source : ub4 { gd_gd, gdhc_gd, hash32_fixed, hash64_fixed, lp_direct, lpsep_direct, number };

} // namespace tavo

extern "C" {
#define TAVO_DECLARE_FRONT(type, source) tavo::kv_probe_front tavo_kv_probe_##type##_##source;
TAVO_PROBE_FRONT_KERNELS(TAVO_DECLARE_FRONT)
#undef TAVO_DECLARE_FRONT
tavo::kv_probe_front tavo_kv_probe_k4_gd_array_acnt, tavo_kv_probe_k4v4_gd_array_arid4,
    tavo_kv_probe_k4v8_gd_array_arid8;
}

namespace tavo {

// The low-level kernel for a type, mode, source of row ids (1: made from the position) and link; tables of hash values:
// for hashes of 64 bits (0) or 32 (1). Null: no list names it.
struct kv_probe_table {
    kv_probe_slot fixed[16][probe_modes][2][3]{};
    kv_probe_slot hash64value[6][1][2][3]{}, hash32value[6][1][2][3]{};
    kv_probe_front *front[16][static_cast<ub4>(kv_probe_source::number)]{};
};
consteval kv_probe_table list_probe_kernels() {
    kv_probe_table t;
    auto &fixed_hash64 = t.fixed;
    auto &hash64value = t.hash64value;
    auto &hash32value = t.hash32value;
#define TAVO_LIST_PROBE(type, family, mode, autorid, axes, link)                                                       \
    family[kv_type::type][mode][autorid][static_cast<ub4>(kv_link::link)].pairs =                                      \
        &tavo_kv_ll_probe_##type##_##family##_##axes##_##link;
#define TAVO_LIST_COUNT(type, family, mode, autorid, axes, link)                                                       \
    family[kv_type::type][mode][autorid][static_cast<ub4>(kv_link::link)].count =                                      \
        &tavo_kv_ll_probe_##type##_##family##_##axes##_##link;
    TAVO_PROBE_KERNELS(TAVO_LIST_PROBE, TAVO_LIST_COUNT)
#undef TAVO_LIST_PROBE
#undef TAVO_LIST_COUNT
#define TAVO_LIST_FRONT(type, source)                                                                                  \
    t.front[kv_type::type][static_cast<ub4>(kv_probe_source::source)] = &tavo_kv_probe_##type##_##source;
    TAVO_PROBE_FRONT_KERNELS(TAVO_LIST_FRONT)
#undef TAVO_LIST_FRONT
    return t;
}

} // namespace tavo
