// The front door of the build: which kernel takes the rows, and the cutting of rows whose keys need normalising.
#include <algorithm>
#include <atomic>

#include "frame/tavo_status.h"
#include "frame/tavoc_avx512g.h"
#include "kv/join_vectors.h"
#include "kv/key_slots.h"
#include "kv/kv_add_kernels.h"

namespace tavo {

constinit static const kv_add_table add_kernels = list_add_kernels();
constinit static const kv_fused_table fused_kernels = list_fused_kernels();

static kv_add_kernel *kernel_of(ub4 type, kv_rows rows, ub4 form) noexcept {
    return add_kernels.of[type][static_cast<ub4>(rows)][form];
}
static ub4 form_of(const tavo_kv *kv) noexcept {
    return static_cast<ub4>(kv->flags & TAVO_KV_PTR ? kv_form::ptr : kv_form::idx);
}

// The rows' arrays of one call: what a kernel is to get for row r is the address of each, moved on by r strides; row
// numbers count from `values` with a stride of 1.
struct row_arrays {
    const ub1 *hashes;
    ub4 hash_stride;
    const ub1 *keys;
    ub4 key_stride;
    ub8 values;
    ub4 value_stride;
};

struct value_source {
    bool autorid;
    ub8 base;   // address of the values, or the first row's id
    ub4 stride; // bytes of a value, or 1
};

// Values of a vector, V bytes each, or ids made from the position.
static value_source values_of(const tavo_vec *values, const ub1 *data, ub4 value_bytes) noexcept {
    if (flags_of(values) & TAVO_ROWID_BASE)
        return {true, values->first_row, 1};
    return {false, reinterpret_cast<ub8>(data), value_bytes};
}

// Runs a kernel over the rows from env->resume_row to the end.
static ub4 add_rest(kv_add_kernel *kernel, tavo_kv *kv, void *segment, ub4 rows, const row_arrays &arrays,
                    tavo_env *env, tavo_kv_alloc_fn *alloc, tavo_kv_status *status) noexcept {
    const ub8 row = env->resume_row;
    if (row >= rows)
        return TAVO_DONE;
    ub4 done = 0;
    const ub4 result =
        kernel(kv, segment, rows - env->resume_row, arrays.hashes + row * arrays.hash_stride,
               arrays.keys + row * arrays.key_stride,
               reinterpret_cast<const void *>(arrays.values + row * arrays.value_stride), &done, alloc, status);
    env->resume_row += done;
    return result;
}

// The same for keys, or hashes, that have to be normalised first: chunk by chunk.
[[gnu::noinline]] static ub4 add_chunks(kv_add_kernel *kernel, tavo_kv *kv, void *segment, ub4 rows,
                                        const hash_column &hashes, const key_column &keys, const value_source &values,
                                        tavo_env *env, tavo_kv_alloc_fn *alloc, tavo_kv_status *status) noexcept {
    const ub4 slot_bytes = table_types[TAVO_KV_TYPE(kv->flags)].key_bytes;
    const ub4 chunk = in_place(keys, slot_bytes) && in_place(hashes) ? rows : chunk_rows;
    key_buffer key_space;
    hash_buffer hash_space;
    while (env->resume_row < rows) {
        const ub8 row = env->resume_row;
        const ub4 n = std::min(chunk, rows - env->resume_row);
        const ub1 *slots = key_slots(keys, slot_bytes, row, n, rows, key_space);
        ub4 done = 0;
        const ub4 result =
            kernel(kv, segment, n, wide_hashes(hashes, row, n, hash_space), slots,
                   reinterpret_cast<const void *>(values.base + row * values.stride), &done, alloc, status);
        env->resume_row += done;
        if (result)
            return result;
    }
    return TAVO_DONE;
}

// The kernel that takes normalised keys with 64-bit hashes, or null if no list names it.
static kv_add_kernel *fixed_kernel(const tavo_kv *kv, bool autorid) noexcept {
    const ub4 type = TAVO_KV_TYPE(kv->flags);
    const kv_rows rows = table_types[type].value_bytes == 0 ? kv_rows::fixed_hash64
                         : autorid                          ? kv_rows::fixed_hash64_autorid
                                                            : kv_rows::fixed_hash64_payload;
    return kernel_of(type, rows, form_of(kv));
}

constexpr kernel_texts build_texts = TAVO_KERNEL_TEXTS(tavo_create_add_kv_dydi);

// ---- The fused kernels: by where keys, hashes and values come from ----

// Keys and hashes in vectors of their own.
[[gnu::noinline]] static ub4 add_columns(tavo_kv *kv, const hash_column &hashes, const key_column &keys, ub4 rows,
                                         tavo_vec *values, void *segment, tavo_env *env, tavo_kv_alloc_fn *alloc,
                                         tavo_kv_status *status) noexcept {
    const ub4 value_bytes = table_types[TAVO_KV_TYPE(kv->flags)].value_bytes;
    value_source source{false, 0, 0};
    if (value_bytes != 0) {
        if (!values)
            return TAVO_UNSUPPORTED;
        source = values_of(values, data_of(values, env, build_texts), value_bytes);
    }
    kv_add_kernel *kernel = fixed_kernel(kv, source.autorid);
    if (!kernel)
        return TAVO_UNSUPPORTED;
    return add_chunks(kernel, kv, segment, rows, hashes, keys, source, env, alloc, status);
}

static ub4 add_gd_gd(tavo_kv *kv, tavo_vec *, tavo_vec *values, tavo_vec *keys, void *segment, tavo_env *env,
                     tavo_kv_alloc_fn *alloc, tavo_kv_status *status) noexcept {
    const ub1 *codes = data_of(keys, env, build_texts);
    return add_columns(kv, {hash_column::narrow, codes, nullptr, 0, 0}, {key_column::fixed, codes, nullptr, 4},
                       keys->size, values, segment, env, alloc, status);
}

static ub4 add_gdhc_gd(tavo_kv *kv, tavo_vec *, tavo_vec *values, tavo_vec *keys, void *segment, tavo_env *env,
                       tavo_kv_alloc_fn *alloc, tavo_kv_status *status) noexcept {
    const ub1 *codes = data_of(keys, env, build_texts);
    return add_columns(kv, {hash_column::cached, codes, static_cast<const ub4 *>(keys->enc->side_table), 0, 0},
                       {key_column::fixed, codes, nullptr, 4}, keys->size, values, segment, env, alloc, status);
}

// Hashes of 32 bits, or of 64; keys of any form that has slots.
static ub4 add_hash32_fixed(tavo_kv *kv, tavo_vec *hashes, tavo_vec *values, tavo_vec *keys, void *segment,
                            tavo_env *env, tavo_kv_alloc_fn *alloc, tavo_kv_status *status) noexcept {
    return add_columns(kv, {hash_column::narrow, data_of(hashes, env, build_texts), nullptr, 0, 0},
                       key_column_of(kv, keys, env, build_texts), hashes->size, values, segment, env, alloc, status);
}
static ub4 add_hash64_fixed(tavo_kv *kv, tavo_vec *hashes, tavo_vec *values, tavo_vec *keys, void *segment,
                            tavo_env *env, tavo_kv_alloc_fn *alloc, tavo_kv_status *status) noexcept {
    return add_columns(kv, {hash_column::wide, data_of(hashes, env, build_texts), nullptr, 0, 0},
                       key_column_of(kv, keys, env, build_texts), hashes->size, values, segment, env, alloc, status);
}

static ub4 add_lphash_direct(tavo_kv *kv, tavo_vec *records, tavo_vec *, tavo_vec *, void *segment, tavo_env *env,
                             tavo_kv_alloc_fn *alloc, tavo_kv_status *status) noexcept {
    const ub1 *data = data_of(records, env, build_texts);
    return add_columns(kv, {hash_column::record_word, data, nullptr, 24, 16},
                       {key_column::records_lp_at0, data, nullptr, 24}, records->size, nullptr, segment, env, alloc,
                       status);
}

// Row ids out of the records, cut to the table's values, chunk by chunk.
[[gnu::noinline]] static ub4 add_ridlphash_direct(tavo_kv *kv, tavo_vec *records, tavo_vec *, tavo_vec *, void *segment,
                                                  tavo_env *env, tavo_kv_alloc_fn *alloc,
                                                  tavo_kv_status *status) noexcept {
    const ub1 *data = data_of(records, env, build_texts);
    const ub4 value_bytes = table_types[TAVO_KV_TYPE(kv->flags)].value_bytes;
    kv_add_kernel *kernel = fixed_kernel(kv, false);
    if (!kernel || value_bytes == 0)
        return TAVO_UNSUPPORTED;
    const hash_column hashes{hash_column::record_word, data, nullptr, 32, 8};
    const key_column keys{key_column::records_lp_at16, data, nullptr, 32};
    ub1 rids[chunk_rows * 8];
    while (env->resume_row < records->size) {
        const ub4 row = env->resume_row, end = row + std::min(chunk_rows, records->size - row);
        for (ub8 r = row; r < end; r++)
            std::memcpy(rids + (r - row) * value_bytes, data + r * 32, value_bytes);
        const value_source source{false, reinterpret_cast<ub8>(rids) - ub8{row} * value_bytes, value_bytes};
        if (const ub4 result = add_chunks(kernel, kv, segment, end, hashes, keys, source, env, alloc, status))
            return result;
    }
    return TAVO_DONE;
}

// ---- The front door ----

static void *tavo_map_segment(const tavo_kv *kv, sb8 segment_id) noexcept {
    if (segment_id < 0)
        return nullptr;
    // The text is part of the interface, to the blank.
    // clang-format off
    TAVO_ASSERT(0 == (segment_id & ~(sb8) (tavo_kv_num_segments(kv) - 1)));
    // clang-format on
    return kv->region[0].segments[segment_id];
}

} // namespace tavo

using namespace tavo;

#define TAVO_FUSED_MEMBER(type, rows)                                                                                  \
    extern "C" ub4 tavo_kv_add_##type##_##rows(tavo_kv *kv, tavo_vec *hashes, tavo_vec *values, tavo_vec *keys,        \
                                               void *segment, tavo_env *env, tavo_kv_alloc_fn *alloc,                  \
                                               tavo_kv_status *status) noexcept {                                      \
        return add_##rows(kv, hashes, values, keys, segment, env, alloc, status);                                      \
    }
TAVO_ADD_FUSED_KERNELS(TAVO_FUSED_MEMBER)

namespace tavo {

// The record streams: which rows of which kind each class holds, and a record's bytes.
struct record_class {
    ub4 element_class, kind;
    kv_rows rows;
    ub1 bytes;
};
constexpr record_class record_classes[] = {
    {TAVO_RECORD_RIDHASH, TAVO_KV_HASH_VALUE, kv_rows::ridhash, 16},
    {TAVO_RECORD_FIXEDHASH, TAVO_KV_FIXED_KEY, kv_rows::fixedhash, 16},
    {TAVO_RECORD_RIDFIXEDHASH, TAVO_KV_FIXED_KEY, kv_rows::ridfixedhash, 16},
    {TAVO_RECORD_GDCACHEDHASH, TAVO_KV_GD, kv_rows::gdcachedhash, 8},
    {TAVO_RECORD_RIDGDCACHEDHASH, TAVO_KV_GD, kv_rows::ridgdcachedhash, 16},
    {TAVO_RECORD_GDHASH, TAVO_KV_GD, kv_rows::gdhash, 16},
    {TAVO_RECORD_RIDGDHASH, TAVO_KV_GD, kv_rows::ridgdhash, 16},
    {TAVO_RECORD_RIDGDHASH, TAVO_KV_ARRAY, kv_rows::ridgd, 16},
};

// The pair's member by the value vector, or `alone` for a type without values.
static kv_rows with_values(ub4 type, const tavo_vec *values, kv_rows alone, kv_rows payload, kv_rows autorid) noexcept {
    if (table_types[type].value_bytes == 0)
        return alone;
    return flags_of(values) & TAVO_ROWID_BASE ? autorid : payload;
}

// The width of a table's key columns, which its first add fixes. Threads that build segments of one table may all be
// its first add. 0: rows without a key column.
struct key_width {
    tavo_kv *kv;
    ub4 bits;

    bool agrees() const noexcept {
        const ub4 kept = std::atomic_ref(kv->key_bits).load(std::memory_order_relaxed);
        return bits == 0 || kept == 0 || kept == bits;
    }
    bool keep() const noexcept {
        ub4 kept = std::atomic_ref(kv->key_bits).load(std::memory_order_relaxed);
        if (bits == 0 || kept != 0)
            return agrees();
        return std::atomic_ref(kv->key_bits).compare_exchange_strong(kept, bits, std::memory_order_relaxed) ||
               kept == bits;
    }
};

} // namespace tavo

extern "C" ub4 tavo_create_add_kv_dydi(tavo_kv *kv, tavo_vec *hashes, tavo_vec *values, tavo_vec *keys, sb8 segment_id,
                                       tavo_env *env, tavo_kv_alloc_fn *alloc, tavo_kv_status *status) noexcept {
    void *segment = tavo_map_segment(kv, segment_id);
    const ub4 kind = TAVO_KV_KIND(kv->flags), type = TAVO_KV_TYPE(kv->flags);
    if (kind > TAVO_KV_ARRAY_COUNT || type > 15)
        return TAVO_UNSUPPORTED;
    key_width width{kv, kind == TAVO_KV_FIXED_KEY ? key_width_bits(keys) : 0};
    if (!width.agrees())
        return TAVO_UNSUPPORTED;
    const bool is_array = kind >= TAVO_KV_ARRAY;
    const ub4 form = is_array ? 0 : form_of(kv);

    // A record stream as it is.
    const ub4 element_class = flags_of(hashes) & TAVO_ELEMENT_CLASS;
    for (const record_class &c : record_classes)
        if (c.element_class == element_class && c.kind == kind) {
            kv_add_kernel *kernel = kernel_of(type, c.rows, form);
            if (!kernel)
                return TAVO_UNSUPPORTED;
            if (!width.keep())
                return TAVO_UNSUPPORTED;
            const row_arrays arrays{data_of(hashes, env, build_texts), c.bytes, nullptr, 0, 0, 0};
            return add_rest(kernel, kv, segment, hashes->size, arrays, env, alloc, status);
        }

    // Keys and hashes as they are.
    kv_rows rows = kv_rows::number;
    const ub4 bits = hash_bits(hashes);
    const bool plain_keys = element_class == 0 || element_class == TAVO_RECORD_KEY32;
    if (kind == TAVO_KV_HASH_VALUE && bits != 0)
        rows = bits == 64 ? with_values(type, values, kv_rows::number, kv_rows::hash64value_payload,
                                        kv_rows::hash64value_autorid)
                          : with_values(type, values, kv_rows::number, kv_rows::hash32value_payload,
                                        kv_rows::hash32value_autorid);
    else if (kind == TAVO_KV_GD && bits == 32)
        rows = with_values(type, values, kv_rows::gd_hash32, kv_rows::gd_hash32_payload, kv_rows::gd_hash32_autorid);
    else if (kind == TAVO_KV_GD && bits == 64)
        rows = with_values(type, values, kv_rows::gd_hash64, kv_rows::number, kv_rows::number);
    else if (is_array && plain_keys)
        rows = with_values(type, values, kv_rows::key32, kv_rows::key32_payload, kv_rows::key32_autorid);
    const ub4 value_bytes = table_types[type].value_bytes;
    const bool values_given = value_bytes == 0 || values != nullptr;
    if (rows != kv_rows::number) {
        kv_add_kernel *kernel = kernel_of(type, rows, form);
        const bool reads_keys = kind != TAVO_KV_HASH_VALUE;
        if (!kernel || !values_given || (reads_keys && !keys))
            return TAVO_UNSUPPORTED;
        value_source source{false, 0, 0};
        if (value_bytes != 0)
            source = values_of(values, data_of(values, env, build_texts), value_bytes);
        const row_arrays arrays{is_array ? nullptr : data_of(hashes, env, build_texts),
                                is_array ? 0 : bits / 8,
                                reads_keys ? data_of(keys, env, build_texts) : nullptr,
                                reads_keys ? 4u : 0u,
                                source.base,
                                source.stride};
        return add_rest(kernel, kv, segment, is_array ? keys->size : hashes->size, arrays, env, alloc, status);
    }

    // Keys to be normalised.
    kv_fused_rows fused = kv_fused_rows::number;
    if (kind == TAVO_KV_GD && keys && element_class == 0 && !(flags_of(hashes) & TAVO_HASHES))
        fused = keys->enc && keys->enc->side_table ? kv_fused_rows::gdhc_gd : kv_fused_rows::gd_gd;
    else if (kind == TAVO_KV_LP && element_class == TAVO_RECORD_LPHASH)
        fused = kv_fused_rows::lphash_direct;
    else if (kind == TAVO_KV_LP && element_class == TAVO_RECORD_RIDLPHASH)
        fused = kv_fused_rows::ridlphash_direct;
    else if ((kind == TAVO_KV_FIXED_KEY || kind == TAVO_KV_LP) && bits != 0 && keys_fit(kv, keys) && values_given) {
        if (bits == 64) {
            if (!fixed_kernel(kv, flags_of(values) & TAVO_ROWID_BASE))
                return TAVO_UNSUPPORTED;
            if (!width.keep())
                return TAVO_UNSUPPORTED;
            return add_hash64_fixed(kv, hashes, values, keys, segment, env, alloc, status);
        }
        fused = kv_fused_rows::hash32_fixed;
    }
    kv_fused_add *kernel = fused == kv_fused_rows::number ? nullptr : fused_kernels.of[type][static_cast<ub4>(fused)];
    if (!kernel || (fused != kv_fused_rows::ridlphash_direct && !values_given))
        return TAVO_UNSUPPORTED;
    if (!width.keep())
        return TAVO_UNSUPPORTED;
    return kernel(kv, hashes, values, keys, segment, env, alloc, status);
}
