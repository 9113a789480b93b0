// Packed codes to arrays of integers: the row ranges and 64-row blocks that the unpacking kernels are made of.
//
//   element   ub1, ub2 or ub4, wide enough for the code; in the processor's byte order
//   block     64 rows, as in code_block.h
//
// Codes are read up to 3 bytes past the last one asked for, whole blocks not past their end. Nothing behind the
// elements written is touched.
#pragma once

#include <algorithm>
#include <cstring>

#include "decode/code_block.h"
#include "decode/code_group.h"
#include "portable/intrinsics.h"
#include "scan/packed_code.h"

namespace tavo {

// Two lines of codes 512 bytes ahead, and of the output one, or the four that a block of ub4 fills.
template <class Element>
[[gnu::always_inline]] inline void prefetch_block(const ub1 *block, const Element *out) noexcept {
    __builtin_prefetch(block + 512);
    __builtin_prefetch(block + 576);
#pragma GCC unroll 4
    for (unsigned line = 0; line < (sizeof(Element) == 4 ? 4 : 1); line++)
        __builtin_prefetch(reinterpret_cast<const ub1 *>(out) + 512 + 64 * line, 1);
}

template <class Element>
[[gnu::always_inline]] inline void store_codes(Element *out, __m512i codes_u32x16) noexcept {
    if constexpr (sizeof(Element) == 1)
        _mm_storeu_si128(reinterpret_cast<__m128i *>(out), _mm512_cvtepi32_epi8(codes_u32x16));
    else if constexpr (sizeof(Element) == 2)
        _mm256_storeu_si256(reinterpret_cast<__m256i *>(out), _mm512_cvtepi32_epi16(codes_u32x16));
    else
        _mm512_storeu_si512(out, codes_u32x16);
}

// Stores the codes of the rows in `selected` close together and nothing behind them. They are brought together in the
// register: compressing stores to memory are slow on some processors.
template <class Element>
[[gnu::always_inline]] inline void store_selected_codes(Element *out, __m512i codes_u32x16,
                                                        __mmask16 selected) noexcept {
    const __m512i together = _mm512_maskz_compress_epi32(selected, codes_u32x16);
    const auto low = static_cast<__mmask16>(_bzhi_u32(~0u, static_cast<ub4>(__builtin_popcount(selected))));
    if constexpr (sizeof(Element) == 1)
        _mm_mask_storeu_epi8(out, low, _mm512_cvtepi32_epi8(together));
    else if constexpr (sizeof(Element) == 2)
        _mm256_mask_storeu_epi16(out, low, _mm512_cvtepi32_epi16(together));
    else
        _mm512_mask_storeu_epi32(out, low, together);
}

[[gnu::always_inline]] inline void store_short_codes(ub1 *out, __m512i codes_u16x32) noexcept {
    _mm256_storeu_si256(reinterpret_cast<__m256i *>(out), _mm512_cvtepi16_epi8(codes_u16x32));
}
[[gnu::always_inline]] inline void store_short_codes(ub2 *out, __m512i codes_u16x32) noexcept {
    _mm512_storeu_si512(out, codes_u16x32);
}

// All 64 rows of a block.
template <unsigned W, class Element>
[[gnu::always_inline]] inline void unpack_block(Element *out, const ub1 *block) noexcept {
    if constexpr (W == 16 && sizeof(Element) == 2) {
        const __m512i swap = _mm512_load_si512(swap_selectors.row[2]);
        _mm512_storeu_si512(out, _mm512_shuffle_epi8(_mm512_loadu_si512(block), swap));
        _mm512_storeu_si512(out + 32, _mm512_shuffle_epi8(_mm512_loadu_si512(block + 64), swap));
    } else if constexpr (has_short_code_group<W> && sizeof(Element) <= 2) {
        const short_code_group<W> group;
        store_short_codes(out, group(block));
        store_short_codes(out + group.rows, group(block + group.bytes));
    } else {
        const code_group<W> group;
#pragma GCC unroll 4
        for (unsigned g = 0; g < 4; g++)
            store_codes(out + g * group.rows, group(block + g * group.bytes));
    }
}

// The rows of a block that are set in `word`; returns the new end of the output.
template <unsigned W, class Element>
[[gnu::always_inline]] inline Element *unpack_selected_block(Element *out, const ub1 *block, ub8 word,
                                                             const code_group<W> &group) noexcept {
#pragma GCC unroll 4
    for (unsigned g = 0; g < 4; g++) {
        const auto selected = static_cast<__mmask16>(word >> 16 * g);
        store_selected_codes(out, group(block + g * group.bytes), selected);
        out += __builtin_popcount(selected);
    }
    return out;
}

// Rows first to stop - 1, stop - first elements.
template <unsigned W, class Element>
[[gnu::always_inline]] inline void unpack_rows(Element *out, const ub1 *codes, ub8 first, ub8 stop) noexcept {
    if constexpr (W == 8 && sizeof(Element) == 1) {
        std::memcpy(out, codes + first, stop - first);
    } else {
        ub8 row = first;
        for (const ub8 start = std::min(next_block_start<W>(row), stop); row < start; row++)
            *out++ = static_cast<Element>(packed_code<W>(codes, row));
        const ub1 *block = block_codes<W>(codes, row);
        for (; row + block_rows <= stop; row += block_rows) {
            prefetch_block(block, out);
            unpack_block<W>(out, block);
            block += block_rows / 8 * W;
            out += block_rows;
        }
        for (; row < stop; row++)
            *out++ = static_cast<Element>(packed_code<W>(codes, row));
    }
}

} // namespace tavo
