// The element layouts of row-moving columns: how one element is read, and how one is written.
//
//   TAVO_FIXED    data: width_bits / 8 bytes an element, back to back
//   TAVO_LV_SEP   data: element bytes back to back; lengths: a native ub2 each
//   TAVO_LV       data: a native ub2 length and that many bytes, back to back
//   TAVO_LP_SEP   data: an 8-byte address an element; lengths: a native ub2 each
//   TAVO_LP       data: a packed record of 10 bytes an element: native ub2 length, 8-byte address
//
// Elements of the LV layouts lie where the ones before them end, so a cursor walks them; the others have an index.
// Nothing is aligned.
#pragma once

#include <string.h>

#include "frame/tavo_vec.h"
#include "portable/intrinsics.h"

namespace tavo {

struct element {
    const ub1 *bytes;
    ub4 length;
};

inline ub2 load_ub2(const void *p) noexcept {
    ub2 value;
    memcpy(&value, p, sizeof value);
    return value;
}
inline const ub1 *load_address(const void *p) noexcept {
    const ub1 *address;
    memcpy(&address, p, sizeof address);
    return address;
}

// Bytes of an element of a TAVO_FIXED column.
inline unsigned fixed_element_bytes(const tavo_enc_ctx *enc) noexcept { return (enc->width_bits & 0xff) / 8; }

// ---- Reading by row: `column` is the plain data of the vector ----

struct fixed_elements {
    const ub1 *data;
    unsigned bytes;

    fixed_elements(const tavo_vec *vec, const ub1 *column) noexcept
        : data(column), bytes(fixed_element_bytes(vec->enc)) {}
    [[gnu::always_inline]] element operator()(ub8 row) const noexcept { return {data + row * bytes, bytes}; }
};
struct lp_elements {
    static constexpr unsigned record_bytes = 10;
    const ub1 *data;

    lp_elements(const tavo_vec *, const ub1 *column) noexcept : data(column) {}
    [[gnu::always_inline]] element operator()(ub8 row) const noexcept {
        const ub1 *record = data + row * record_bytes;
        return {load_address(record + 2), load_ub2(record)};
    }
};
struct lp_sep_elements {
    const ub1 *data, *lengths;

    lp_sep_elements(const tavo_vec *vec, const ub1 *column) noexcept
        : data(column), lengths(reinterpret_cast<const ub1 *>(vec->lengths)) {}
    [[gnu::always_inline]] element operator()(ub8 row) const noexcept {
        return {load_address(data + row * 8), load_ub2(lengths + row * 2)};
    }
};

// ---- Walking, from a byte offset of the data on ----

// size(): what the element of a row takes in data, its length field included. next() steps over it.
struct lv_cursor {
    static constexpr unsigned head_bytes = 2;
    const ub1 *position;

    lv_cursor(const tavo_vec *, const ub1 *column, ub8 offset) noexcept : position(column + offset) {}
    [[gnu::always_inline]] ub4 size(ub8) const noexcept { return 2u + load_ub2(position); }
    [[gnu::always_inline]] element at(ub8) const noexcept { return {position + 2, load_ub2(position)}; }
    [[gnu::always_inline]] void next(ub8 row) noexcept { position += size(row); }
    // Over n elements: one length leads to the next, two at a time.
    [[gnu::always_inline]] void skip(ub8 row, ub4 n) noexcept {
        for (; n >= 2; n -= 2) {
            next(row);
            next(row);
        }
        if (n != 0)
            next(row);
    }
};
struct lv_sep_cursor {
    static constexpr unsigned head_bytes = 0;
    const ub1 *position, *lengths;

    lv_sep_cursor(const tavo_vec *vec, const ub1 *column, ub8 offset) noexcept
        : position(column + offset), lengths(reinterpret_cast<const ub1 *>(vec->lengths)) {}
    [[gnu::always_inline]] ub4 size(ub8 row) const noexcept { return load_ub2(lengths + 2 * row); }
    [[gnu::always_inline]] element at(ub8 row) const noexcept { return {position, size(row)}; }
    [[gnu::always_inline]] void next(ub8 row) noexcept { position += size(row); }
    // Over n elements: the sum of their lengths, thirty-two at a time.
    [[gnu::always_inline]] void skip(ub8 row, ub4 n) noexcept {
        if (n == 0)
            return;
        const ub1 *p = lengths + 2 * row;
        const __m512i low = _mm512_set1_epi32(0xffff);
        __m512i sums_u32x16 = _mm512_setzero_si512();
        const auto add = [&](__m512i lengths_u16x32) {
            sums_u32x16 = _mm512_add_epi32(sums_u32x16, _mm512_add_epi32(_mm512_and_si512(lengths_u16x32, low),
                                                                         _mm512_srli_epi32(lengths_u16x32, 16)));
        };
        ub8 total = 0;
        for (; n > 32; n -= 32, p += 64) {
            add(_mm512_loadu_si512(p));
            if (n % (1u << 15) < 32) { // before a sum can wrap
                total += static_cast<ub4>(_mm512_reduce_add_epi32(sums_u32x16));
                sums_u32x16 = _mm512_setzero_si512();
            }
        }
        add(_mm512_maskz_loadu_epi16(_bzhi_u32(~0u, n), p));
        position += total + static_cast<ub4>(_mm512_reduce_add_epi32(sums_u32x16));
    }
};

// ---- Writing ----

// Copies exactly `bytes` bytes, fewer than 64 of them without a branch. Nothing outside source and target is touched.
[[gnu::always_inline]] inline void copy_bytes(ub1 *to, const ub1 *from, ub4 bytes) noexcept {
    if (bytes < 64) [[likely]] {
        const __mmask64 there = _bzhi_u64(~0ull, bytes);
        _mm512_mask_storeu_epi8(to, there, _mm512_maskz_loadu_epi8(there, from));
    } else {
        memcpy(to, from, bytes);
    }
}

[[gnu::always_inline]] inline void put_lp_sep(ub1 *data, ub1 *lengths, ub8 row, element e) noexcept {
    const auto length = static_cast<ub2>(e.length);
    memcpy(data + row * sizeof e.bytes, &e.bytes, sizeof e.bytes);
    memcpy(lengths + row * sizeof length, &length, sizeof length);
}

} // namespace tavo
