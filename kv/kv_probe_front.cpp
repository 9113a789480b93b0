// The front door of the probe: modes, the choice of kernel, keys chunk by chunk.
#include "frame/tavo_status.h"
#include "kv/join_vectors.h"
#include "kv/kv_probe_kernels.h"
#include "kv/probe_output.h"

namespace tavo {

constinit static const kv_probe_table probe_kernels = list_probe_kernels();
constexpr kernel_texts probe_texts = TAVO_KERNEL_TEXTS(tavo_probe_kv_dydi);

static kv_link link_of(const tavo_kv *kv) noexcept {
    if (!(kv->flags & TAVO_KV_PTR))
        return kv_link::idx;
    return kv->flags & TAVO_KV_PREFETCH ? kv_link::ptr_prefetch : kv_link::ptr;
}

// Whether a table takes a mode: 0, TAVO_MODE_REFUSED or TAVO_UNSUPPORTED.
static ub4 mode_status(const tavo_kv *kv, ub4 mode) noexcept {
    const ub4 type = TAVO_KV_TYPE(kv->flags), kind = TAVO_KV_KIND(kv->flags);
    if (kind > TAVO_KV_ARRAY_COUNT || type > 15 || table_types[type].key_bytes == 0)
        return TAVO_UNSUPPORTED;
    constexpr ub4 value_modes = 0b111110101011, key_modes = 0b11110011;
    const ub4 modes = kind == TAVO_KV_HASH_VALUE ? 1 : table_types[type].value_bytes != 0 ? value_modes : key_modes;
    if (mode >= probe_modes || !(modes >> mode & 1))
        return TAVO_MODE_REFUSED;
    const bool marks = mode == TAVO_PROBE_COUNT_MUTKV || mode == TAVO_PROBE_PAIRS_MUTKV;
    return marks && !(kv->flags & TAVO_KV_PTR) ? TAVO_UNSUPPORTED : TAVO_DONE;
}

static row_ids row_ids_of(tavo_vec *rids, tavo_env *env) noexcept {
    if (flags_of(rids) & TAVO_ROWID_BASE)
        return {true, rids->first_row};
    return {false, reinterpret_cast<ub8>(data_of(rids, env, probe_texts))};
}

// Runs a member over the rows from env->resume_row to the end. Keys may be null: of a table of hash values.
[[gnu::noinline]] static ub4 probe_chunks(kv_probe_slot member, tavo_kv *kv, ub4 mode, ub4 rows,
                                          const ub1 *plain_hashes, ub4 hash_bytes, const hash_column *hashes,
                                          const key_column *keys, const row_ids &rids, tavo_vec *value_out,
                                          void *rid_out, tavo_env *env, tavo_kv_status *status) noexcept {
    const table_type &type = table_types[TAVO_KV_TYPE(kv->flags)];
    const bool whole = !keys || (in_place(*keys, type.key_bytes) && in_place(*hashes));
    const ub4 chunk = whole ? rows : chunk_rows;
    const bool counting = counts(mode);
    TAVO_ASSERT(counting || (value_out && env->aux));
    const ub4 capacity = counting ? 0 : value_out->size;
    ub4 written = 0, result = TAVO_DONE;
    ub8 counted = 0;
    key_buffer key_space;
    hash_buffer hash_space;
    while (env->resume_row < rows && result == TAVO_DONE) {
        const ub8 row = env->resume_row;
        const ub4 n = std::min(chunk, rows - env->resume_row);
        const void *chunk_hashes = plain_hashes + row * hash_bytes, *slots = nullptr;
        if (keys) {
            chunk_hashes = wide_hashes(*hashes, row, n, hash_space);
            slots = key_slots(*keys, type.key_bytes, row, n, rows, key_space);
        }
        const auto *chunk_rids = reinterpret_cast<const void *>(rids.base + row * (rids.autorid ? 1 : 8));
        ub4 done = 0, outputs = 0;
        if (counting) {
            ub8 total = 0;
            result = member.count(kv, n, chunk_hashes, slots, chunk_rids, &total, &done, env->aux, status);
            counted += total;
        } else {
            ub1 *rids_at = static_cast<ub1 *>(rid_out), *values_at = static_cast<ub1 *>(value_out->data);
            result = member.pairs(kv, n, chunk_hashes, slots, chunk_rids, capacity - written,
                                  rids_at + ub8{written} * rids.bytes(), values_at + ub8{written} * type.value_bytes,
                                  &done, &outputs, env->aux, status);
            written += outputs;
        }
        env->resume_row += done;
    }
    if (value_out) {
        value_out->size = counting ? static_cast<ub4>(counted) : written;
        if (counting)
            value_out->count = value_out->size;
    }
    return result;
}

// The front kernels' text, for keys in slots with hashes of 64 bits or brought to them.
[[gnu::noinline]] static ub4 probe_columns(const hash_column &hashes, const key_column &keys, ub4 rows,
                                           tavo_vec *value_out, void *rid_out, tavo_vec *rid_vec, tavo_kv *kv, ub4 mode,
                                           tavo_env *env, tavo_kv_status *status) noexcept {
    if (const ub4 refused = mode_status(kv, mode))
        return refused;
    const row_ids rids = writes_rids(mode) ? row_ids_of(rid_vec, env) : row_ids{false, 0};
    const kv_probe_slot(&members)[2][3] = probe_kernels.fixed[TAVO_KV_TYPE(kv->flags)][mode];
    const kv_probe_slot member = members[rids.autorid][static_cast<ub4>(link_of(kv))];
    return probe_chunks(member, kv, mode, rows, nullptr, 0, &hashes, &keys, rids, value_out, rid_out, env, status);
}

// ---- The front kernels, by source ----

static hash_column hashes_of_codes(const tavo_vec *keys, const ub1 *codes, bool cached) noexcept {
    if (cached)
        return {hash_column::cached, codes, static_cast<const ub4 *>(keys->enc->side_table), 0, 0};
    return {hash_column::narrow, codes, nullptr, 0, 0};
}

static ub4 probe_codes(bool cached, tavo_vec *value_out, void *rid_out, tavo_vec *rids, tavo_vec *keys, tavo_kv *kv,
                       ub4 mode, tavo_env *env, tavo_kv_status *status) noexcept {
    const ub1 *codes = data_of(keys, env, probe_texts);
    return probe_columns(hashes_of_codes(keys, codes, cached), {key_column::fixed, codes, nullptr, 4}, keys->size,
                         value_out, rid_out, rids, kv, mode, env, status);
}
static ub4 probe_hashed(hash_column::form_t form, key_column keys, tavo_vec *value_out, void *rid_out, tavo_vec *hashes,
                        tavo_vec *rids, tavo_kv *kv, ub4 mode, tavo_env *env, tavo_kv_status *status) noexcept {
    return probe_columns({form, data_of(hashes, env, probe_texts), nullptr, 0, 0}, keys, hashes->size, value_out,
                         rid_out, rids, kv, mode, env, status);
}
static hash_column::form_t hash_form(const tavo_vec *hashes) noexcept {
    return hash_bits(hashes) == 32 ? hash_column::narrow : hash_column::wide;
}

// What each source makes of the vectors.
#define TAVO_PROBE_VECTORS                                                                                             \
    tavo_vec *value_out, void *rid_out, [[maybe_unused]] tavo_vec *hashes, tavo_vec *rids, tavo_vec *keys,             \
        tavo_kv *kv, ub4 mode, tavo_env *env, tavo_kv_status *status
static ub4 probe_gd_gd(TAVO_PROBE_VECTORS) noexcept {
    return probe_codes(false, value_out, rid_out, rids, keys, kv, mode, env, status);
}
static ub4 probe_gdhc_gd(TAVO_PROBE_VECTORS) noexcept {
    return probe_codes(true, value_out, rid_out, rids, keys, kv, mode, env, status);
}
static ub4 probe_hash32_fixed(TAVO_PROBE_VECTORS) noexcept {
    return probe_hashed(hash_column::narrow, key_column_of(kv, keys, env, probe_texts), value_out, rid_out, hashes,
                        rids, kv, mode, env, status);
}
static ub4 probe_hash64_fixed(TAVO_PROBE_VECTORS) noexcept {
    return probe_hashed(hash_column::wide, key_column_of(kv, keys, env, probe_texts), value_out, rid_out, hashes, rids,
                        kv, mode, env, status);
}
static ub4 probe_lp_direct(TAVO_PROBE_VECTORS) noexcept {
    const key_column texts{key_column::packed_lp, data_of(keys, env, probe_texts), nullptr, 0};
    return probe_hashed(hash_form(hashes), texts, value_out, rid_out, hashes, rids, kv, mode, env, status);
}
static ub4 probe_lpsep_direct(TAVO_PROBE_VECTORS) noexcept {
    const key_column texts{key_column::separate_lp, data_of(keys, env, probe_texts), keys->lengths, 0};
    return probe_hashed(hash_form(hashes), texts, value_out, rid_out, hashes, rids, kv, mode, env, status);
}
#undef TAVO_PROBE_VECTORS

} // namespace tavo

using namespace tavo;

#define TAVO_FRONT_MEMBER(type, source)                                                                                \
    extern "C" ub4 tavo_kv_probe_##type##_##source(tavo_vec *value_out, void *rid_out, tavo_vec *hashes,               \
                                                   tavo_vec *rids, tavo_vec *keys, tavo_kv *kv, ub4 mode,              \
                                                   tavo_env *env, tavo_kv_status *status) noexcept {                   \
        return probe_##source(value_out, rid_out, hashes, rids, keys, kv, mode, env, status);                          \
    }
TAVO_PROBE_FRONT_KERNELS(TAVO_FRONT_MEMBER)

// Tables of hash values: the hashes are the keys, nothing is normalised.
static ub4 probe_hash_values(tavo_vec *value_out, void *rid_out, tavo_vec *hashes, tavo_vec *rid_vec, tavo_kv *kv,
                             ub4 mode, tavo_env *env, tavo_kv_status *status) noexcept {
    const ub4 bits = hash_bits(hashes), type = TAVO_KV_TYPE(kv->flags);
    if (bits == 0 || type > TAVO_KV_K4V8)
        return TAVO_UNSUPPORTED;
    const row_ids rids = row_ids_of(rid_vec, env);
    const auto &members = bits == 64 ? probe_kernels.hash64value : probe_kernels.hash32value;
    const kv_probe_slot member = members[type][0][rids.autorid][static_cast<ub4>(link_of(kv))];
    if (!member.pairs)
        return TAVO_UNSUPPORTED;
    return probe_chunks(member, kv, mode, hashes->size, data_of(hashes, env, probe_texts), bits / 8, nullptr, nullptr,
                        rids, value_out, rid_out, env, status);
}

extern "C" ub4 tavo_probe_kv_dydi(tavo_vec *value_out, void *rid_out, tavo_vec *hashes, tavo_vec *rids, tavo_vec *keys,
                                  tavo_kv *kv, ub4 mode, tavo_env *env, tavo_kv_status *status) noexcept {
    if (const ub4 refused = mode_status(kv, mode))
        return refused;
    const ub4 type = TAVO_KV_TYPE(kv->flags), bits = hash_bits(hashes);
    auto source = kv_probe_source::number;
    switch (TAVO_KV_KIND(kv->flags)) {
    case TAVO_KV_HASH_VALUE: return probe_hash_values(value_out, rid_out, hashes, rids, kv, mode, env, status);
    case TAVO_KV_FIXED_KEY:
        if (bits != 0)
            source = bits == 64 ? kv_probe_source::hash64_fixed : kv_probe_source::hash32_fixed;
        break;
    case TAVO_KV_GD:
        // Codes are keys of four bytes; no other type has them.
        if (!probe_kernels.front[type][static_cast<ub4>(kv_probe_source::gd_gd)])
            break;
        if (bits != 0)
            source = bits == 64 ? kv_probe_source::hash64_fixed : kv_probe_source::hash32_fixed;
        else if (!(flags_of(hashes) & TAVO_HASHES))
            source = keys && keys->enc && keys->enc->side_table ? kv_probe_source::gdhc_gd : kv_probe_source::gd_gd;
        break;
    case TAVO_KV_LP:
        if (bits != 0)
            source = flags_of(keys) & TAVO_LP_SEP ? kv_probe_source::lpsep_direct : kv_probe_source::lp_direct;
        break;
    default: break;
    }
    kv_probe_front *front = nullptr;
    if (source != kv_probe_source::number)
        front = probe_kernels.front[type][static_cast<ub4>(source)];
    else if ((kv->flags & 0xfff) == TAVO_KV_FLAGS(TAVO_KV_ARRAY_COUNT, TAVO_KV_K4))
        front = tavo_kv_probe_k4_gd_array_acnt;
    else if ((kv->flags & 0xfff) == TAVO_KV_FLAGS(TAVO_KV_ARRAY, TAVO_KV_K4V4))
        front = tavo_kv_probe_k4v4_gd_array_arid4;
    else if ((kv->flags & 0xfff) == TAVO_KV_FLAGS(TAVO_KV_ARRAY, TAVO_KV_K4V8))
        front = tavo_kv_probe_k4v8_gd_array_arid8;
    if (!front || !keys_fit(kv, keys))
        return TAVO_UNSUPPORTED;
    return front(value_out, rid_out, hashes, rids, keys, kv, mode, env, status);
}
