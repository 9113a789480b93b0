// Elements on their way from one place to another: addresses and lengths of up to 64 of them, in two arrays. What reads
// them, out of a column or a table, knows nothing of what writes them, and both go by whole registers where they can.
#pragma once

#include <initializer_list>

#include "frame/element_layout.h"

namespace tavo {

struct element_batch {
    static constexpr ub4 capacity = 64;
    // What is read eight or sixteen at a time may spill past the batch, up to a register.
    alignas(64) ub8 address[capacity + 16];
    alignas(64) ub4 length[capacity + 16];

    [[gnu::always_inline]] void set(ub4 i, element e) noexcept {
        address[i] = reinterpret_cast<ub8>(e.bytes);
        length[i] = e.length;
    }
    // The addresses of sixteen elements, `start` bytes behind `base`.
    [[gnu::always_inline]] void set_addresses(ub4 i, ub8 base, __m512i start_u32x16) noexcept {
        const __m512i base_u64x8 = _mm512_set1_epi64(static_cast<long long>(base));
        const __m256i low = _mm512_castsi512_si256(start_u32x16), high = _mm512_extracti64x4_epi64(start_u32x16, 1);
        _mm512_storeu_si512(address + i, _mm512_add_epi64(base_u64x8, _mm512_cvtepu32_epi64(low)));
        _mm512_storeu_si512(address + i + 8, _mm512_add_epi64(base_u64x8, _mm512_cvtepu32_epi64(high)));
    }
    [[gnu::always_inline]] const ub1 *bytes(ub4 i) const noexcept { return reinterpret_cast<const ub1 *>(address[i]); }
};

// ---- Records of 10 bytes, eight at a time: five words each, forty in all, the last eight in a register apart ----

struct alignas(64) record_words {
    ub2 address[32];  // places in the forty words of the addresses' words
    ub2 length[32];   // of the lengths, eight
    ub2 first[32];    // of a record's words in 32 words of addresses, 8 of lengths: the first 32 of the forty
    ub2 last[32];     // and the last 8
    ub2 apart[2][32]; // the same words, a record at the start of each 16 bytes: four records, and four more
};
consteval record_words words_of_records() {
    record_words w{};
    for (unsigned k = 0; k < 8; k++) {
        w.length[k] = static_cast<ub2>(5 * k);
        for (unsigned j = 0; j < 4; j++)
            w.address[4 * k + j] = static_cast<ub2>(5 * k + 1 + j);
    }
    for (unsigned i = 0; i < 40; i++) {
        const unsigned k = i / 5, j = i % 5;
        (i < 32 ? w.first[i] : w.last[i - 32]) = static_cast<ub2>(j == 0 ? 32 + k : 4 * k + j - 1);
    }
    for (unsigned k = 0; k < 8; k++)
        for (unsigned j = 0; j < 5; j++)
            w.apart[k / 4][8 * (k % 4) + j] = static_cast<ub2>(j == 0 ? 32 + k : 4 * k + j - 1);
    return w;
}
inline constexpr record_words words_of_record = words_of_records();

// n records into the batch from element `at` on.
inline void read_records(element_batch &batch, ub4 at, const ub1 *records, ub4 n) noexcept {
    const __m512i address = _mm512_load_si512(words_of_record.address),
                  length = _mm512_load_si512(words_of_record.length);
    const auto eight = [&](ub4 i, __m512i words, __m128i further_words) {
        const __m512i further = _mm512_castsi128_si512(further_words);
        _mm512_storeu_si512(batch.address + at + i, _mm512_permutex2var_epi16(words, address, further));
        const __m256i lengths_u16x8 = _mm512_castsi512_si256(_mm512_permutex2var_epi16(words, length, further));
        _mm256_storeu_si256(reinterpret_cast<__m256i *>(batch.length + at + i),
                            _mm512_castsi512_si256(_mm512_cvtepu16_epi32(lengths_u16x8)));
    };
    ub4 i = 0;
    for (; i + 8 <= n; i += 8, records += 80)
        eight(i, _mm512_loadu_si512(records), _mm_loadu_si128(reinterpret_cast<const __m128i *>(records + 64)));
    if (i < n) {
        const ub4 words = 5 * (n - i);
        eight(i, _mm512_maskz_loadu_epi16(_bzhi_u32(~0u, words), records),
              _mm_maskz_loadu_epi16(static_cast<__mmask8>(_bzhi_u32(0xff, words < 32 ? 0 : words - 32)), records + 64));
    }
}

// n records, of n addresses and n lengths, eight at a time: addresses(i) and lengths(i) are the eight from element i
// on, 64 bits and 16 bits wide, and may be anything behind the n-th. Nothing but the records is written.
template <class Addresses, class Lengths>
[[gnu::always_inline]] inline void write_records_of(ub1 *records, ub4 n, Addresses addresses,
                                                    Lengths lengths) noexcept {
    const __m512i first = _mm512_load_si512(words_of_record.first), last = _mm512_load_si512(words_of_record.last);
    const auto words_of_eight = [&](ub4 i, __m512i &words, __m128i &further) {
        const __m512i address = addresses(i), length = _mm512_castsi128_si512(lengths(i));
        words = _mm512_permutex2var_epi16(address, first, length);
        further = _mm512_castsi512_si128(_mm512_permutex2var_epi16(address, last, length));
    };
    __m512i words;
    __m128i further;
    ub4 i = 0;
    for (; i + 8 <= n; i += 8, records += 80) {
        words_of_eight(i, words, further);
        _mm512_storeu_si512(records, words);
        _mm_storeu_si128(reinterpret_cast<__m128i *>(records + 64), further);
    }
    if (i < n) {
        const ub4 left = 5 * (n - i);
        words_of_eight(i, words, further);
        _mm512_mask_storeu_epi16(records, _bzhi_u32(~0u, left), words);
        _mm_mask_storeu_epi16(records + 64, static_cast<__mmask8>(_bzhi_u32(0xff, left < 32 ? 0 : left - 32)), further);
    }
}
inline void write_records(ub1 *records, const ub8 *addresses, const ub4 *lengths, ub4 n) noexcept {
    write_records_of(
        records, n, [&](ub4 i) { return _mm512_loadu_si512(addresses + i); },
        [&](ub4 i) {
            return _mm256_cvtepi32_epi16(_mm256_loadu_si256(reinterpret_cast<const __m256i *>(lengths + i)));
        });
}

// The same, `stride` bytes from one record to the next. What lies between them is not touched.
inline void write_records_apart(ub1 *to, ub8 stride, const ub8 *addresses, const ub4 *lengths, ub4 n) noexcept {
    constexpr __mmask8 record = 0x1f;
    alignas(64) ub1 eight[8 * 16];
    for (ub4 i = 0; i < n; i += 8) {
        const __m512i address = _mm512_loadu_si512(addresses + i);
        const __m512i length = _mm512_castsi128_si512(
            _mm256_cvtepi32_epi16(_mm256_loadu_si256(reinterpret_cast<const __m256i *>(lengths + i))));
        for (unsigned half : {0u, 1u})
            _mm512_store_si512(eight + 64 * half, _mm512_permutex2var_epi16(
                                                      address, _mm512_load_si512(words_of_record.apart[half]), length));
        for (ub4 k = 0; k < 8 && k < n - i; k++, to += stride)
            _mm_mask_storeu_epi16(to, record, _mm_loadu_si128(reinterpret_cast<const __m128i *>(eight + 16 * k)));
    }
}

// ---- Lengths ----

// n lengths as the ub2 of a lengths array.
inline void write_lengths(ub1 *to, const ub4 *lengths, ub4 n) noexcept {
    for (ub4 i = 0; i < n; i += 16) {
        const auto there = static_cast<__mmask16>(_bzhi_u32(0xffff, n - i));
        _mm256_mask_storeu_epi16(to + 2 * i, there, _mm512_cvtepi32_epi16(_mm512_loadu_si512(lengths + i)));
    }
}

// What n elements come to, and the narrowest register that holds each of them: 16 bytes, 32, or 64 that are not full.
// 0: none does.
struct batch_extent {
    ub8 bytes;
    ub4 widest;
};
inline batch_extent extent_of(const ub4 *lengths, ub4 n) noexcept {
    __m512i sums_u64x8 = _mm512_setzero_si512(), odd_sums_u64x8 = _mm512_setzero_si512();
    ub4 over_16 = 0, over_32 = 0, over_63 = 0;
    for (ub4 i = 0; i < n; i += 16) {
        const __m512i length = _mm512_maskz_loadu_epi32(static_cast<__mmask16>(_bzhi_u32(0xffff, n - i)), lengths + i);
        over_16 |= _mm512_cmpgt_epu32_mask(length, _mm512_set1_epi32(16));
        over_32 |= _mm512_cmpgt_epu32_mask(length, _mm512_set1_epi32(32));
        over_63 |= _mm512_cmpgt_epu32_mask(length, _mm512_set1_epi32(63));
        sums_u64x8 = _mm512_add_epi64(sums_u64x8, _mm512_and_si512(length, _mm512_set1_epi64(0xffffffff)));
        odd_sums_u64x8 = _mm512_add_epi64(odd_sums_u64x8, _mm512_srli_epi64(length, 32));
    }
    return {static_cast<ub8>(_mm512_reduce_add_epi64(_mm512_add_epi64(sums_u64x8, odd_sums_u64x8))), over_63   ? 0u
                                                                                                     : over_32 ? 64u
                                                                                                     : over_16 ? 32u
                                                                                                               : 16u};
}

// ---- Bytes ----

// What is fetched while element k is copied.
struct fetch_nothing {
    [[gnu::always_inline]] void operator()(ub4) const noexcept {}
};

template <unsigned Widest, unsigned Head, class Fetch>
inline ub1 *copy_elements_of(ub1 *to, const element_batch &batch, ub4 n, Fetch fetch) noexcept {
    for (ub4 k = 0; k < n; k++) {
        fetch(k);
        const ub4 length = batch.length[k];
        const ub1 *from = batch.bytes(k);
        if constexpr (Head != 0) {
            const auto head = static_cast<ub2>(length);
            memcpy(to, &head, sizeof head);
            to += Head;
        }
        if constexpr (Widest == 16) {
            const auto there = static_cast<__mmask16>(_bzhi_u32(~0u, length));
            _mm_mask_storeu_epi8(to, there, _mm_maskz_loadu_epi8(there, from));
        } else if constexpr (Widest == 32) {
            const __mmask32 there = _bzhi_u32(~0u, length);
            _mm256_mask_storeu_epi8(to, there, _mm256_maskz_loadu_epi8(there, from));
        } else if constexpr (Widest == 64) {
            const __mmask64 there = _bzhi_u64(~0ull, length);
            _mm512_mask_storeu_epi8(to, there, _mm512_maskz_loadu_epi8(there, from));
        } else {
            copy_bytes(to, from, length);
        }
        to += length;
    }
    return to;
}

// Copies n elements together, each behind a head that has its length where Head is 2, and returns the end. Nothing
// outside the elements is read or written.
template <unsigned Head, class Fetch>
inline ub1 *copy_elements(ub1 *to, const element_batch &batch, ub4 n, ub4 widest, Fetch fetch) noexcept {
    static_assert(Head == 0 || Head == sizeof(ub2));
    switch (widest) {
    case 16: return copy_elements_of<16, Head>(to, batch, n, fetch);
    case 32: return copy_elements_of<32, Head>(to, batch, n, fetch);
    case 64: return copy_elements_of<64, Head>(to, batch, n, fetch);
    default: return copy_elements_of<0, Head>(to, batch, n, fetch);
    }
}

} // namespace tavo
