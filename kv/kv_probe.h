// Finding rows in a table of buckets: one text for all types, forms, sources, outputs and semantics.
//
// For every bucket of a row's chain one 64-byte load and one compare say which entries match. One, by far the usual
// case in a join on a key, is written with scalar stores behind a branch: the place of the next output is then known
// ahead of the compare, which was a third faster than adding the result of the compare to it. More are compressed in
// the register. Output stops where fewer entries than a full bucket's fit: the chain position goes to the caller's
// tavo_aux_info.
#pragma once

#include <atomic>

#include "frame/tavo_status.h"
#include "kv/bucket_heads.h"
#include "kv/bucket_match.h"
#include "kv/kv_probe_kernels.h"
#include "kv/probe_output.h"

namespace tavo {

// What goes out beside the build value: the row's id from a vector (ub8), or made from its position (ub4), or nothing.
enum class probe_rid { none, payload, autorid };
enum class probe_rule { all, distinct, nonmatch, segbv, mutkv };

// Outputs and rules by the names that kernels carry.
template <probe_rid Rid, bool Value, probe_rule Rule>
struct probe_pairs {
    static constexpr probe_rid rid = Rid;
    static constexpr bool value = Value, count = false;
    static constexpr probe_rule rule = Rule;
};
template <probe_rule Rule>
struct probe_count {
    static constexpr probe_rid rid = probe_rid::none;
    static constexpr bool value = false, count = true;
    static constexpr probe_rule rule = Rule;
};
namespace probe_of {
using payload_value = probe_pairs<probe_rid::payload, true, probe_rule::all>;
using autorid_value = probe_pairs<probe_rid::autorid, true, probe_rule::all>;
using payload = probe_pairs<probe_rid::payload, false, probe_rule::all>;
using autorid = probe_pairs<probe_rid::autorid, false, probe_rule::all>;
using value = probe_pairs<probe_rid::none, true, probe_rule::all>;
using distinct_payload_value = probe_pairs<probe_rid::payload, true, probe_rule::distinct>;
using distinct_autorid_value = probe_pairs<probe_rid::autorid, true, probe_rule::distinct>;
using distinct_payload = probe_pairs<probe_rid::payload, false, probe_rule::distinct>;
using distinct_autorid = probe_pairs<probe_rid::autorid, false, probe_rule::distinct>;
using payload_value_nonmatch = probe_pairs<probe_rid::payload, true, probe_rule::nonmatch>;
using autorid_value_nonmatch = probe_pairs<probe_rid::autorid, true, probe_rule::nonmatch>;
using payload_nonmatch = probe_pairs<probe_rid::payload, false, probe_rule::nonmatch>;
using autorid_nonmatch = probe_pairs<probe_rid::autorid, false, probe_rule::nonmatch>;
using payload_value_segbv = probe_pairs<probe_rid::payload, true, probe_rule::segbv>;
using autorid_value_segbv = probe_pairs<probe_rid::autorid, true, probe_rule::segbv>;
using payload_value_mutkv = probe_pairs<probe_rid::payload, true, probe_rule::mutkv>;
using autorid_value_mutkv = probe_pairs<probe_rid::autorid, true, probe_rule::mutkv>;
using count = probe_count<probe_rule::all>;
using count_distinct = probe_count<probe_rule::distinct>;
using count_nonmatch = probe_count<probe_rule::nonmatch>;
using count_segbv = probe_count<probe_rule::segbv>;
using count_mutkv = probe_count<probe_rule::mutkv>;
} // namespace probe_of

// Hash and key of a row by the names that kernels carry.
namespace probe_family {
struct fixed_hash64 {
    using hash = hash64_array;
    static constexpr unsigned hash_bytes = 0; // the key is a slot of the key array
};
struct hash64value {
    using hash = hash64_array;
    static constexpr unsigned hash_bytes = 8;
};
struct hash32value {
    using hash = hash32_array;
    static constexpr unsigned hash_bytes = 4;
};
} // namespace probe_family

// Marks entries of a bucket in pointer form as matched. Other threads may be at the same bucket: none of their marks is
// lost, and the word's other bytes, which nobody changes while tables are probed, stay as they are.
inline void mark_entries(ub1 *bucket, ub4 entries) noexcept {
    const std::atomic_ref<ub8> word(*reinterpret_cast<ub8 *>(bucket + 8));
    const ub8 marks = entries << first_mark & 0xffff;
    ub8 seen = word.load(std::memory_order_relaxed);
    while ((seen & marks) != marks)
        if (word.compare_exchange_weak(seen, seen | marks, std::memory_order_relaxed))
            break;
}

// The count of a bucket whose marks other threads may be setting.
template <class Bucket>
inline unsigned count_beside_marks(const ub1 *bucket) noexcept {
    const std::atomic_ref<ub8> word(*reinterpret_cast<ub8 *>(const_cast<ub1 *>(bucket) + 8));
    return static_cast<unsigned>(word.load(std::memory_order_relaxed)) & Bucket::count_mask;
}

// rids: the rows' ids, or the first row's id as an address. Outputs: *outputs of them, at most `capacity`;
// nothing is written behind them. *rows_done receives the rows that are through.
// *total receives the sum of the count members, which use neither capacity nor outputs.
template <ub4 Type, kv_link Link, class Family, class Output>
[[gnu::always_inline]] inline ub4 probe_rows(tavo_kv *kv, ub4 rows, const void *hash_array, const void *key_array,
                                             const void *rid_array, ub4 capacity, void *rid_out, void *value_out,
                                             ub4 *rows_done, ub4 *outputs, ub8 *total, tavo_aux_info *aux,
                                             tavo_kv_status *status) noexcept {
    using bucket = bucket_traits<Type, Link == kv_link::idx ? kv_form::idx : kv_form::ptr>;
    using match = bucket_match<bucket>;
    using value_type = std::conditional_t<bucket::value_bytes == 8, ub8, ub4>;
    constexpr probe_rule rule = Output::rule;
    constexpr bool has_rids = Output::rid != probe_rid::none;
    constexpr bool wide_rids = Output::rid == probe_rid::payload;
    using rid_type = std::conditional_t<wide_rids, ub8, ub4>;
    constexpr unsigned link_ahead = 64; // rows
    static_assert(rule != probe_rule::mutkv || Link != kv_link::idx);

    const auto *hashes = static_cast<const ub1 *>(hash_array);
    const auto *keys = static_cast<const ub1 *>(key_array);
    const auto *rids = static_cast<const ub1 *>(rid_array);
    auto *const rids_out = static_cast<rid_type *>(rid_out);
    auto *const values_out = static_cast<value_type *>(value_out);
    const sb8 last_start = static_cast<sb8>(capacity) - bucket::capacity;
    ub8 skip = 0;
    if (aux) {
        skip = aux->tavo_aux_stream_position;
        aux->tavo_aux_stream_position = 0;
    }
    ub4 written = 0;
    ub8 counted = 0, steps = 0, tail_rows = 0;

    head_batches<typename Family::hash> batch(kv, nullptr, hashes, rows);
    while (batch.next()) {
        if (skip != 0 && batch.first_row() == 0) {
            // The first row goes on in the middle of its chain, as if that were its head.
            ub1 *at = batch.heads()[0];
            for (ub8 done = 0; done < skip; done++)
                at = next_bucket<bucket>(kv, at);
            batch.replace_first(at);
        }
        ub1 *const *heads = batch.heads();
        const ub4 first = batch.first_row(), n = batch.size();
        if (batch.full()) {
            if constexpr (Family::hash_bytes == 0)
                prefetch_elements(keys, first, bucket::key_bytes);
            if constexpr (wide_rids)
                prefetch_elements(rids, first, 8);
            if constexpr (Output::value)
                for (ub4 byte = 256; byte <= 1152; byte += 64)
                    _mm_prefetch(reinterpret_cast<const ub1 *>(values_out + written) + byte, _MM_HINT_T0);
        } else {
            tail_rows = n;
        }
        for (ub8 i = 0; i < n; i++) {
            const ub8 row = first + i;
            ub1 *at = heads[i];
            _mm_prefetch(heads[i + batch.ahead], _MM_HINT_T0);
            if constexpr (Link == kv_link::ptr_prefetch) {
                const ub1 *ahead = heads[i + link_ahead], *next = next_bucket<bucket>(kv, ahead);
                _mm_prefetch(next ? next : ahead, _MM_HINT_T0);
            }
            __m512i key;
            if constexpr (Family::hash_bytes == 0)
                key = match::repeated(keys + row * bucket::key_bytes);
            else
                key = match::repeated_value(
                    key_of_hash<bucket::key_bytes, typename Family::hash, Family::hash_bytes>::at(hashes, row));
            ub8 rid = 0;
            if constexpr (wide_rids)
                rid = load_as<ub8>(rids + row * 8);
            else if constexpr (has_rids)
                rid = reinterpret_cast<ub8>(rids) + row;
            [[maybe_unused]] bool matched = false;

            for (;;) {
                const __m512i entries = _mm512_loadu_si512(at);
                if constexpr (!Output::count) {
                    if (written > last_start) [[unlikely]] {
                        ub8 position = row == 0 ? skip : 0;
                        for (const ub1 *b = heads[i]; b != at; b = next_bucket<bucket>(kv, b))
                            position++;
                        aux->tavo_aux_stream_position = position;
                        *rows_done = static_cast<ub4>(row);
                        *outputs = written;
                        return TAVO_PROBE_FULL;
                    }
                }
                ub1 *next = next_bucket<bucket>(kv, at);
                if constexpr (Link == kv_link::ptr_prefetch)
                    _mm_prefetch(next ? next : at, _MM_HINT_T0);
                unsigned count;
                if constexpr (rule == probe_rule::mutkv)
                    count = count_beside_marks<bucket>(at);
                else
                    count = bucket::count(at);
                ub4 hits = match::entries(entries, key, count);
                const auto value_of = [at](unsigned entry) {
                    return load_as<value_type>(at + bucket::first_value + entry * bucket::value_bytes);
                };

                if constexpr (rule == probe_rule::mutkv) {
                    if (hits)
                        mark_entries(at, hits);
                } else if constexpr (rule == probe_rule::segbv) {
                    for (ub4 left = hits; left; left &= ~std::bit_floor(left))
                        set_bit(aux->segbv, value_of(static_cast<unsigned>(std::bit_width(left)) - 1) - aux->bv_base);
                } else if constexpr (rule == probe_rule::nonmatch && !Output::count) {
                    if (hits)
                        clear_bit(aux->nonmatch_bv, rid - aux->bv_base);
                } else if constexpr (rule == probe_rule::nonmatch) {
                    matched |= hits != 0;
                } else if constexpr (rule == probe_rule::distinct) {
                    hits = std::bit_floor(hits); // the newest
                }

                if constexpr (Output::count) {
                    counted += static_cast<ub4>(std::popcount(hits));
                } else if (rule == probe_rule::distinct || (hits & (hits - 1)) == 0) [[likely]] {
                    if (hits) {
                        if constexpr (has_rids)
                            rids_out[written] = static_cast<rid_type>(rid);
                        if constexpr (Output::value)
                            values_out[written] = value_of(static_cast<unsigned>(std::countr_zero(hits)));
                        written++;
                    }
                } else {
                    const auto n_hits = static_cast<ub4>(std::popcount(hits));
                    const ub4 filled = (1u << n_hits) - 1;
                    if constexpr (wide_rids) {
                        const __m512i repeated = _mm512_set1_epi64(static_cast<sb8>(rid));
                        _mm512_mask_storeu_epi64(rids_out + written, static_cast<__mmask8>(filled), repeated);
                        if constexpr (bucket::capacity > 8)
                            _mm512_mask_storeu_epi64(rids_out + written + 8, static_cast<__mmask8>(filled >> 8),
                                                     repeated);
                    } else if constexpr (has_rids) {
                        _mm512_mask_storeu_epi32(rids_out + written, static_cast<__mmask16>(filled),
                                                 _mm512_set1_epi32(static_cast<sb4>(rid)));
                    }
                    constexpr unsigned first_value_lane =
                        bucket::value_bytes ? bucket::first_value / bucket::value_bytes : 0;
                    if constexpr (Output::value && bucket::value_bytes == 4)
                        _mm512_mask_storeu_epi32(
                            values_out + written, static_cast<__mmask16>(filled),
                            _mm512_maskz_compress_epi32(static_cast<__mmask16>(hits << first_value_lane), entries));
                    else if constexpr (Output::value)
                        _mm512_mask_storeu_epi64(
                            values_out + written, static_cast<__mmask8>(filled),
                            _mm512_maskz_compress_epi64(static_cast<__mmask8>(hits << first_value_lane), entries));
                    written += n_hits;
                }
                if (!next || (rule == probe_rule::distinct && hits))
                    break;
                at = next;
                steps++;
            }
            if constexpr (Output::count && rule == probe_rule::nonmatch)
                counted += !matched;
        }
    }
    status->probe.rows += tail_rows;
    status->probe.chain_steps += steps;
    *rows_done = rows;
    if constexpr (Output::count)
        *total = counted;
    else
        *outputs = written;
    return TAVO_DONE;
}

} // namespace tavo
