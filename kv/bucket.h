// The image of a bucket: where its header, keys and values stand, by table type and form.
//
// A bucket is one cache line. Entries fill from 0 upward, unused bytes are zero.
//
//   index form    ub4 header: link << count_bits | count. The link is the overflow bucket's id plus 1, 0 at the end
//   pointer form  address of the next bucket, 0 at the end; ub2 count word: the count in its low bits, in bits 10 to 15
//                 the marks of matched entries
//   both          keys back to back from first_key, values back to back from first_value
#pragma once

#include <bit>
#include <cstring>
#include <initializer_list>
#include <type_traits>

#include "frame/tavo_kv.h"

namespace tavo {

enum class kv_form { idx, ptr };
constexpr unsigned bucket_bytes = 64;
constexpr unsigned bucket_log2 = 6;
constexpr unsigned first_mark = 10; // in the count word of the pointer form

struct bucket_image {
    ub1 capacity, first_key, first_value; // first_value 0: the type has no values
};

struct table_type {
    ub1 code, key_bytes, value_bytes, count_bits;
    bucket_image index, pointer;
};

// The codes under the names that kernels carry.
namespace kv_type {
inline constexpr ub4 k2v4 = TAVO_KV_K2V4, k2v8 = TAVO_KV_K2V8, k4 = TAVO_KV_K4, k4v4 = TAVO_KV_K4V4,
                     k4v8 = TAVO_KV_K4V8, k6 = TAVO_KV_K6, k6v4 = TAVO_KV_K6V4, k6v8 = TAVO_KV_K6V8, k8 = TAVO_KV_K8,
                     k8v4 = TAVO_KV_K8V4, k8v8 = TAVO_KV_K8V8, k10v4 = TAVO_KV_K10V4, k12 = TAVO_KV_K12,
                     k12v4 = TAVO_KV_K12V4;
}

// Every type of table, by code. A code without a type has no key bytes.
inline constexpr table_type table_types[16] = {
    {0, 0, 0, 0, {}, {}},
    {TAVO_KV_K2V4, 2, 4, 4, {10, 4, 24}, {9, 10, 28}},
    {TAVO_KV_K2V8, 2, 8, 3, {6, 4, 16}, {5, 10, 24}},
    {TAVO_KV_K4, 4, 0, 4, {15, 4, 0}, {13, 12, 0}},
    {TAVO_KV_K4V4, 4, 4, 3, {7, 4, 32}, {6, 12, 36}},
    {TAVO_KV_K4V8, 4, 8, 3, {5, 4, 24}, {4, 12, 32}},
    {TAVO_KV_K6, 6, 0, 4, {10, 4, 0}, {9, 10, 0}},
    {TAVO_KV_K6V4, 6, 4, 3, {6, 4, 40}, {5, 10, 40}},
    {TAVO_KV_K6V8, 6, 8, 3, {4, 4, 32}, {3, 10, 32}},
    {TAVO_KV_K8, 8, 0, 3, {7, 8, 0}, {6, 16, 0}},
    {TAVO_KV_K8V4, 8, 4, 3, {5, 4, 44}, {4, 12, 44}},
    {TAVO_KV_K8V8, 8, 8, 2, {3, 8, 32}, {3, 16, 40}},
    {TAVO_KV_K10V4, 10, 4, 3, {4, 4, 44}, {3, 10, 40}},
    {TAVO_KV_K12, 12, 0, 3, {5, 4, 0}, {4, 12, 0}},
    {14, 0, 0, 0, {}, {}},
    {TAVO_KV_K12V4, 12, 4, 2, {3, 4, 40}, {3, 12, 48}},
};

constexpr bool images_hold() {
    for (ub4 code = 0; code < 16; code++) {
        const table_type &t = table_types[code];
        if (t.code != code || (t.key_bytes == 0) != (code == 0 || code == 14))
            return false;
        for (const bucket_image &b : {t.index, t.pointer}) {
            const unsigned keys_end = b.first_key + 1u * b.capacity * t.key_bytes,
                           values_end = b.first_value + 1u * b.capacity * t.value_bytes;
            if (b.capacity >> t.count_bits || keys_end > bucket_bytes ||
                (t.value_bytes &&
                 (keys_end > b.first_value || b.first_value % t.value_bytes || values_end > bucket_bytes)))
                return false;
        }
        // All marks of a bucket fit behind its count.
        if (t.value_bytes && t.key_bytes > 2 && t.pointer.capacity + first_mark > 16)
            return false;
    }
    return true;
}
static_assert(images_hold());

// The figures of one type and form as constants, and the reading of a bucket's header.
template <ub4 Type, kv_form Form>
struct bucket_traits {
    static constexpr table_type type = table_types[Type];
    static constexpr bucket_image image = Form == kv_form::idx ? type.index : type.pointer;
    static constexpr kv_form form = Form;
    static constexpr unsigned key_bytes = type.key_bytes, value_bytes = type.value_bytes, capacity = image.capacity,
                              first_key = image.first_key, first_value = image.first_value,
                              count_bits = type.count_bits, count_mask = (1u << count_bits) - 1;

    // Where the word with the count stands.
    using count_word = std::conditional_t<Form == kv_form::idx, ub4, ub2>;
    static constexpr unsigned count_at = Form == kv_form::idx ? 0 : 8;

    static count_word count_word_of(const ub1 *bucket) noexcept {
        count_word w;
        std::memcpy(&w, bucket + count_at, sizeof w);
        return w;
    }
    static unsigned count(const ub1 *bucket) noexcept { return count_word_of(bucket) & count_mask; }
};

// Bucket `id` of a region.
inline ub1 *bucket_of(const tavo_kv_region &region, ub8 id) noexcept {
    const ub8 within = (ub8{1} << (region.element_bits + bucket_log2)) - 1;
    return static_cast<ub1 *>(region.segments[id >> region.element_bits]) + ((id << bucket_log2) & within);
}

// The bucket behind this one in its chain, or null.
template <class Bucket>
inline ub1 *next_bucket(const tavo_kv *kv, const ub1 *bucket) noexcept {
    if constexpr (Bucket::form == kv_form::ptr) {
        ub1 *next;
        std::memcpy(&next, bucket, sizeof next);
        return next;
    } else {
        const ub4 link = Bucket::count_word_of(bucket) >> Bucket::count_bits;
        return link ? bucket_of(kv->region[1], link - 1) : nullptr;
    }
}

} // namespace tavo

extern "C" {
// Segments that a hash can pick.
inline ub4 tavo_kv_num_segments(const tavo_kv *kv) { return 1u << kv->region[0].segment_id_bits; }
}
