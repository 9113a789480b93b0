// Reading the vectors that build and probe receive.
#pragma once

#include "frame/tavoc_avx512g.h"
#include "kv/key_slots.h"

namespace tavo {

// A vector that is not there, or has no context, has no flags.
inline ub4 flags_of(const tavo_vec *vec) noexcept { return vec && vec->enc ? vec->enc->flags : 0; }

inline const ub1 *data_of(tavo_vec *vec, tavo_env *env, const kernel_texts &texts) noexcept {
    if (!vec)
        return nullptr;
    return vec->enc ? column_data(vec, env, texts) : static_cast<const ub1 *>(vec->data);
}

// Which hashes a vector holds: 64 or 32 bits, or 0: none that build or probe know.
inline ub4 hash_bits(const tavo_vec *hashes) noexcept {
    if (!(flags_of(hashes) & TAVO_HASHES))
        return 0;
    return hashes->enc->width_code == 22 ? 64 : hashes->enc->width_code == 21 ? 32 : 0;
}

inline ub4 key_width_bits(const tavo_vec *keys) noexcept {
    return keys && keys->enc ? keys->enc->width_bits & 0xff : 0;
}

// Whether the key vector has a form that the table's kind can take.
inline bool keys_fit(const tavo_kv *kv, const tavo_vec *keys) noexcept {
    switch (TAVO_KV_KIND(kv->flags)) {
    case TAVO_KV_FIXED_KEY: return keys && keys->enc;
    case TAVO_KV_LP: return flags_of(keys) & (TAVO_LP | TAVO_LP_SEP);
    default: return keys != nullptr;
    }
}

// The keys of a table with key slots.
inline key_column key_column_of(const tavo_kv *kv, tavo_vec *keys, tavo_env *env, const kernel_texts &texts) noexcept {
    const ub1 *data = data_of(keys, env, texts);
    switch (TAVO_KV_KIND(kv->flags)) {
    case TAVO_KV_GD: return {key_column::fixed, data, nullptr, 4};
    case TAVO_KV_LP:
        if (flags_of(keys) & TAVO_LP_SEP)
            return {key_column::separate_lp, data, keys->lengths, 0};
        return {key_column::packed_lp, data, nullptr, 0};
    default: return {key_column::fixed, data, nullptr, (key_width_bits(keys) + 7) >> 3};
    }
}

} // namespace tavo
