// The kernels that enter rows in a table, each once: tavo_kv_ll_add_<type>_<rows>_<form>, and by number.
#pragma once

#include "kv/bucket.h"
#include "kv/kv_table.h"

// K(type, rows, form)
#define TAVO_ADD_BOTH(K, type, rows) K(type, rows, idx) K(type, rows, ptr)
#define TAVO_ADD_BOTH_VALUES(K, type, rows)                                                                            \
    TAVO_ADD_BOTH(K, type, rows##_payload) TAVO_ADD_BOTH(K, type, rows##_autorid)

// Keys from the hash.
#define TAVO_ADD_HASH_TYPE(K, type)                                                                                    \
    TAVO_ADD_BOTH(K, type, ridhash)                                                                                    \
    TAVO_ADD_BOTH_VALUES(K, type, hash64value)                                                                         \
    TAVO_ADD_BOTH_VALUES(K, type, hash32value)
#define TAVO_ADD_HASH_KERNELS(K)                                                                                       \
    TAVO_ADD_HASH_TYPE(K, k2v4) TAVO_ADD_HASH_TYPE(K, k2v8) TAVO_ADD_HASH_TYPE(K, k4v4) TAVO_ADD_HASH_TYPE(K, k4v8)

// Keys of a global dictionary.
#define TAVO_ADD_GD_KERNELS(K)                                                                                         \
    TAVO_ADD_BOTH(K, k4v4, ridgdhash)                                                                                  \
    TAVO_ADD_BOTH(K, k4v8, ridgdhash)                                                                                  \
    TAVO_ADD_BOTH(K, k4v4, ridgdcachedhash)                                                                            \
    TAVO_ADD_BOTH(K, k4v8, ridgdcachedhash)                                                                            \
    TAVO_ADD_BOTH_VALUES(K, k4v8, gd_hash32)                                                                           \
    TAVO_ADD_BOTH(K, k4, gdhash)                                                                                       \
    TAVO_ADD_BOTH(K, k4, gdcachedhash)                                                                                 \
    TAVO_ADD_BOTH(K, k4, gd_hash32)                                                                                    \
    TAVO_ADD_BOTH(K, k4, gd_hash64)

// Keys in slots.
#define TAVO_ADD_FIXED_KERNELS(K)                                                                                      \
    TAVO_ADD_BOTH_VALUES(K, k4v4, fixed_hash64)                                                                        \
    TAVO_ADD_BOTH_VALUES(K, k4v8, fixed_hash64)                                                                        \
    TAVO_ADD_BOTH_VALUES(K, k6v4, fixed_hash64)                                                                        \
    TAVO_ADD_BOTH_VALUES(K, k6v8, fixed_hash64)                                                                        \
    TAVO_ADD_BOTH_VALUES(K, k8v4, fixed_hash64)                                                                        \
    TAVO_ADD_BOTH_VALUES(K, k8v8, fixed_hash64)                                                                        \
    TAVO_ADD_BOTH_VALUES(K, k10v4, fixed_hash64)                                                                       \
    TAVO_ADD_BOTH_VALUES(K, k12v4, fixed_hash64)                                                                       \
    TAVO_ADD_BOTH(K, k4v4, ridfixedhash)                                                                               \
    TAVO_ADD_BOTH(K, k4v8, ridfixedhash)                                                                               \
    TAVO_ADD_BOTH(K, k8v4, ridfixedhash)                                                                               \
    TAVO_ADD_BOTH(K, k8v8, ridfixedhash)                                                                               \
    TAVO_ADD_BOTH(K, k4, fixed_hash64)                                                                                 \
    TAVO_ADD_BOTH(K, k6, fixed_hash64)                                                                                 \
    TAVO_ADD_BOTH(K, k8, fixed_hash64)                                                                                 \
    TAVO_ADD_BOTH(K, k12, fixed_hash64)                                                                                \
    TAVO_ADD_BOTH(K, k4, fixedhash)                                                                                    \
    TAVO_ADD_BOTH(K, k8, fixedhash)

#define TAVO_ADD_KERNELS(K) TAVO_ADD_HASH_KERNELS(K) TAVO_ADD_GD_KERNELS(K) TAVO_ADD_FIXED_KERNELS(K)

// The array kinds: K(type, rows, array).
#define TAVO_ADD_LIST_KERNELS(K)                                                                                       \
    K(k4v4, ridgd, arid4)                                                                                              \
    K(k4v4, key32_payload, arid4)                                                                                      \
    K(k4v4, key32_autorid, arid4)                                                                                      \
    K(k4v8, ridgd, arid8)                                                                                              \
    K(k4v8, key32_payload, arid8)                                                                                      \
    K(k4v8, key32_autorid, arid8)
#define TAVO_ADD_ARRAY_KERNELS(K) TAVO_ADD_LIST_KERNELS(K) K(k4, key32, acnt)

namespace tavo {

// hashes, keys, values: the rows' arrays, or the record stream as hashes; values is the first row's id (as an address)
// for autorid. segment: where all rows go, or null: the hash picks. *done receives the rows added.
using kv_add_kernel = ub4(tavo_kv *kv, void *segment, ub4 count, const void *hashes, const void *keys,
                          const void *values, ub4 *done, tavo_kv_alloc_fn *alloc, tavo_kv_status *status) noexcept;

// Where rows come from. The two of a pair stand together, payload first.
enum class kv_rows : ub4 {
    ridhash,
    hash64value_payload,
    hash64value_autorid,
    hash32value_payload,
    hash32value_autorid,
    ridgdhash,
    ridgdcachedhash,
    gd_hash32_payload,
    gd_hash32_autorid,
    gdhash,
    gdcachedhash,
    gd_hash32,
    gd_hash64,
    fixed_hash64_payload,
    fixed_hash64_autorid,
    ridfixedhash,
    fixed_hash64,
    fixedhash,
    ridgd,
    key32_payload,
    key32_autorid,
    key32,
    number
};

// Kernels that normalise keys and hashes themselves and hand them on in chunks: the front door's arguments with the
// segment's address in the place of its number. They start at env->resume_row and write it back.
using kv_fused_add = ub4(tavo_kv *kv, tavo_vec *hashes, tavo_vec *values, tavo_vec *keys, void *segment, tavo_env *env,
                         tavo_kv_alloc_fn *alloc, tavo_kv_status *status) noexcept;
enum class kv_fused_rows : ub4 { gd_gd, gdhc_gd, hash32_fixed, lphash_direct, ridlphash_direct, number };

} // namespace tavo

extern "C" {
#define TAVO_DECLARE_ADD(type, rows, form) tavo::kv_add_kernel tavo_kv_ll_add_##type##_##rows##_##form;
TAVO_ADD_KERNELS(TAVO_DECLARE_ADD)
TAVO_ADD_ARRAY_KERNELS(TAVO_DECLARE_ADD)
#undef TAVO_DECLARE_ADD

#define TAVO_FUSED_KEY_TYPES(K, rows) K(k4, rows) K(k6, rows) K(k8, rows) K(k12, rows)
#define TAVO_FUSED_VALUE_TYPES(K, rows)                                                                                \
    K(k4v4, rows) K(k4v8, rows) K(k6v4, rows) K(k6v8, rows) K(k8v4, rows) K(k8v8, rows) K(k10v4, rows) K(k12v4, rows)
// K(type, rows)
#define TAVO_ADD_FUSED_KERNELS(K)                                                                                      \
    K(k4v4, gd_gd)                                                                                                     \
    K(k4v8, gd_gd)                                                                                                     \
    K(k4v4, gdhc_gd)                                                                                                   \
    TAVO_FUSED_KEY_TYPES(K, hash32_fixed)                                                                              \
    TAVO_FUSED_VALUE_TYPES(K, hash32_fixed)                                                                            \
    TAVO_FUSED_KEY_TYPES(K, lphash_direct)                                                                             \
    TAVO_FUSED_VALUE_TYPES(K, ridlphash_direct)
#define TAVO_DECLARE_FUSED(type, rows) tavo::kv_fused_add tavo_kv_add_##type##_##rows;
TAVO_ADD_FUSED_KERNELS(TAVO_DECLARE_FUSED)
#undef TAVO_DECLARE_FUSED
}

namespace tavo {

// The kernel for a type, rows and form, or null: no list names it.
struct kv_add_table {
    kv_add_kernel *of[16][static_cast<ub4>(kv_rows::number)][2]{};
};
struct kv_fused_table {
    kv_fused_add *of[16][static_cast<ub4>(kv_fused_rows::number)]{};
};
consteval kv_fused_table list_fused_kernels() {
    kv_fused_table t;
#define TAVO_LIST_FUSED(type, rows)                                                                                    \
    t.of[kv_type::type][static_cast<ub4>(kv_fused_rows::rows)] = &tavo_kv_add_##type##_##rows;
    TAVO_ADD_FUSED_KERNELS(TAVO_LIST_FUSED)
#undef TAVO_LIST_FUSED
    return t;
}
consteval kv_add_table list_add_kernels() {
    kv_add_table t;
#define TAVO_LIST_ADD(type, rows, form)                                                                                \
    t.of[kv_type::type][static_cast<ub4>(kv_rows::rows)][static_cast<ub4>(kv_form::form)] =                            \
        &tavo_kv_ll_add_##type##_##rows##_##form;
    TAVO_ADD_KERNELS(TAVO_LIST_ADD)
#undef TAVO_LIST_ADD
#define TAVO_LIST_ADD(type, rows, array)                                                                               \
    t.of[kv_type::type][static_cast<ub4>(kv_rows::rows)][0] = &tavo_kv_ll_add_##type##_##rows##_##array;
    TAVO_ADD_ARRAY_KERNELS(TAVO_LIST_ADD)
#undef TAVO_LIST_ADD
    return t;
}

} // namespace tavo
