// Entering rows in a table of buckets: one text for all types, forms and sources of hash, key and value.
//
// A row goes into the next free entry of its head bucket. A full head is copied behind itself, into a fresh overflow
// bucket, and starts anew with this row: heads keep their place and hold the newest rows, older ones follow in the
// chain. Keys are not told apart: a table holds a key as often as it was added.
#pragma once

#include "frame/tavo_status.h"
#include "frame/tavoc_avx512g.h"
#include "kv/bucket_heads.h"

namespace tavo {

// The index form's header of a head whose former contents are overflow bucket `new_id`: the link, and one entry.
[[gnu::always_inline]] inline ub4 tavo_kv_rotate_idx(ub8 new_id, unsigned count_bits) noexcept {
    const ub4 link = static_cast<ub4>((new_id + 1) << count_bits);
    TAVO_ASSERT(link == ((new_id + 1) << count_bits));
    return link + 1;
}

// Moves a full head into a fresh overflow bucket and leaves it empty, linked to that, with a count of 1.
template <class Bucket>
[[gnu::noinline]] ub4 rotate(tavo_kv *kv, ub1 *head, tavo_kv_alloc_fn *alloc, tavo_kv_status *status) noexcept {
    ub8 new_id = 0;
    if (const ub4 refused = alloc(&kv->region[1], 1, &new_id)) {
        status->build.region_class = 1;
        status->build.segment = new_id >> 12;
        return refused;
    }
    ub1 *overflow = bucket_of(kv->region[1], new_id);
    ub4 header = 1;
    if constexpr (Bucket::form == kv_form::idx)
        header = tavo_kv_rotate_idx(new_id, Bucket::count_bits);
    _mm512_storeu_si512(overflow, _mm512_loadu_si512(head));
    _mm512_storeu_si512(head, _mm512_setzero_si512());
    if constexpr (Bucket::form == kv_form::ptr)
        store_as(head, overflow);
    store_as(head + Bucket::count_at, static_cast<typename Bucket::count_word>(header));
    return TAVO_DONE;
}

// What a row is made of, by the names that kernels carry, for key slots of K bytes and values of V.
namespace rows_of {
template <unsigned K, unsigned V>
struct ridhash {
    using hash = hash_field<16, 8, 8>;
    using key = key_of_hash<K, hash, 8>;
    using value = record_field<16, 0, 8, V>;
};
template <class Hash, unsigned HashBytes, unsigned K, class Value>
struct hash_value {
    using hash = Hash;
    using key = key_of_hash<K, hash, HashBytes>;
    using value = Value;
};
template <unsigned K, unsigned V>
using hash64value_payload = hash_value<hash64_array, 8, K, value_array<V>>;
template <unsigned K, unsigned V>
using hash64value_autorid = hash_value<hash64_array, 8, K, row_number<V>>;
template <unsigned K, unsigned V>
using hash32value_payload = hash_value<hash32_array, 4, K, value_array<V>>;
template <unsigned K, unsigned V>
using hash32value_autorid = hash_value<hash32_array, 4, K, row_number<V>>;

template <class Hash, class Key, class Value>
struct row {
    using hash = Hash;
    using key = Key;
    using value = Value;
};
template <unsigned K, unsigned V>
using ridgdhash = row<hash_field<16, 0, 4>, record_field<16, 4, 4>, record_field<16, 8, 8, V>>;
template <unsigned K, unsigned V>
using ridgdcachedhash = row<hash_field<16, 4, 4>, record_field<16, 0, 4>, record_field<16, 8, 8, V>>;
template <unsigned K, unsigned V>
using gdhash = row<hash_field<16, 0, 8>, record_field<16, 8, 4>, no_value>;
template <unsigned K, unsigned V>
using gdcachedhash = row<hash_field<8, 4, 4>, record_field<8, 0, 4>, no_value>;
template <unsigned K, unsigned V>
using gd_hash32 = row<hash32_array, key_array<4>, no_value>;
template <unsigned K, unsigned V>
using gd_hash64 = row<hash64_array, key_array<4>, no_value>;
template <unsigned K, unsigned V>
using gd_hash32_payload = row<hash32_array, key_array<4>, value_array<V>>;
template <unsigned K, unsigned V>
using gd_hash32_autorid = row<hash32_array, key_array<4>, row_number<V>>;

template <unsigned K, unsigned V>
using fixed_hash64 = row<hash64_array, key_array<K>, no_value>;
template <unsigned K, unsigned V>
using fixed_hash64_payload = row<hash64_array, key_array<K>, value_array<V>>;
template <unsigned K, unsigned V>
using fixed_hash64_autorid = row<hash64_array, key_array<K>, row_number<V>>;
template <unsigned K, unsigned V>
using fixedhash = row<hash_field<16, 0, 8>, record_field<16, 8, K>, no_value>;
template <unsigned K, unsigned V>
using ridfixedhash = row<hash_field<16, 0, 4>, record_field<16, 4, K>, record_field<16, 4 + K, 12 - K, V>>;
} // namespace rows_of

// Adds `count` rows. *done receives how many were added: all on 0, else those before the row that found no room.
template <ub4 Type, kv_form Form, class Rows>
ub4 add_rows(tavo_kv *kv, void *segment, ub4 count, const void *hash_array, const void *key_array,
             const void *value_array, ub4 *done, tavo_kv_alloc_fn *alloc, tavo_kv_status *status) noexcept {
    using bucket = bucket_traits<Type, Form>;
    using Hash = typename Rows::hash;
    using Key = typename Rows::key;
    using Value = typename Rows::value;
    const auto *hashes = static_cast<const ub1 *>(hash_array);
    const auto *keys = static_cast<const ub1 *>(key_array);
    const auto *values = static_cast<const ub1 *>(value_array);

    head_batches<Hash> batch(kv, segment, hashes, count);
    while (batch.next()) {
        ub1 *const *heads = batch.heads();
        const ub4 first = batch.first_row(), n = batch.size();
        if (batch.full()) {
            if constexpr (Key::stride != 0)
                prefetch_elements(keys, first, Key::stride);
            if constexpr (Value::stride != 0)
                prefetch_elements(values, first, Value::stride);
        }
        for (ub8 i = 0; i < n; i++) {
            ub1 *head = heads[i];
            _mm_prefetch(heads[i + batch.ahead], _MM_HINT_T0);
            const auto word = bucket::count_word_of(head);
            unsigned entry = word & bucket::count_mask;
            if (entry < bucket::capacity) [[likely]] {
                store_as(head + bucket::count_at, static_cast<typename bucket::count_word>(word + 1));
            } else {
                if (const ub4 refused = rotate<bucket>(kv, head, alloc, status)) {
                    *done = static_cast<ub4>(first + i);
                    return refused;
                }
                entry = 0;
            }
            Key::copy(head + bucket::first_key + entry * bucket::key_bytes, hashes, keys, first + i);
            if constexpr (bucket::value_bytes != 0)
                Value::copy(head + bucket::first_value + entry * bucket::value_bytes, hashes, values, first + i);
        }
    }
    *done = count;
    return TAVO_DONE;
}

} // namespace tavo
