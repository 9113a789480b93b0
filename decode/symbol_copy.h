// Copies of dictionary symbols of one length, back to back: rows x length bytes, and nothing behind them is touched.
//
// The symbols of the codes that occur are read, no byte more; a dictionary of up to 16 symbols of one byte is read
// whole.
#pragma once

#include <cstring>

#include "frame/tavo_types.h"
#include "portable/intrinsics.h"

namespace tavo {

// One byte a symbol, at most 16 symbols: they are held in a register, which repeats dictionaries of 1, 2, up to 4 and
// up to 8 symbols.
[[gnu::always_inline]] inline void copy_symbols_of_small_dictionary(ub1 *out, const ub4 *codes, ub4 rows,
                                                                    const ub1 *symbols, ub4 symbol_count) noexcept {
    const ub4 period = symbol_count <= 1 ? 1 : 1u << (32 - __builtin_clz(symbol_count - 1));
    const __m128i dictionary = _mm_maskz_loadu_epi8(static_cast<__mmask16>(_bzhi_u32(~0u, symbol_count)), symbols);
    const __m128i lanes = _mm_setr_epi8(0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15);
    const __m128i repeated =
        _mm_shuffle_epi8(dictionary, _mm_and_si128(lanes, _mm_set1_epi8(static_cast<char>(period - 1))));
    const auto sixteen = [&](__m512i codes_u32x16) {
        return _mm_shuffle_epi8(repeated, _mm512_cvtusepi32_epi8(codes_u32x16));
    };
    ub8 row = 0;
    for (; rows - row >= 64; row += 64) {
        __builtin_prefetch(out + row + 640, 1);
#pragma GCC unroll 4
        for (unsigned i = 0; i < 64; i += 16)
            _mm_storeu_si128(reinterpret_cast<__m128i *>(out + row + i), sixteen(_mm512_loadu_si512(codes + row + i)));
    }
    for (; row < rows; row += 16) {
        const auto left = static_cast<__mmask16>(_bzhi_u32(~0u, static_cast<ub4>(rows - row)));
        _mm_mask_storeu_epi8(out + row, left, sixteen(_mm512_maskz_loadu_epi32(left, codes + row)));
    }
}

// Symbols that are one integer each.
template <class Symbol>
[[gnu::always_inline]] inline void copy_symbols_by_lookup(ub1 *out, const ub4 *codes, ub4 rows,
                                                          const ub1 *symbols) noexcept {
    constexpr ub4 step = 32;
    const auto copy = [&](ub4 row) {
        std::memcpy(out + row * sizeof(Symbol), symbols + codes[row] * sizeof(Symbol), sizeof(Symbol));
    };
    ub4 row = 0;
    for (; rows - row >= step; row += step) {
        __builtin_prefetch(out + row * sizeof(Symbol) + 640, 1);
#pragma GCC unroll 32
        for (ub4 i = 0; i < step; i++)
            copy(row + i);
    }
    for (; row < rows; row++)
        copy(row);
}

// Up to 64 bytes a symbol.
[[gnu::always_inline]] inline void copy_short_symbols(ub1 *out, const ub4 *codes, ub4 rows, const ub1 *symbols,
                                                      ub8 length) noexcept {
    const __mmask64 bytes = _bzhi_u64(~0ull, static_cast<ub4>(length));
    for (ub4 row = 0; row < rows; row++, out += length)
        _mm512_mask_storeu_epi8(out, bytes, _mm512_maskz_loadu_epi8(bytes, symbols + codes[row] * length));
}

// Null codes: the dictionary in its order.
inline void copy_symbols(ub1 *out, const ub4 *codes, ub4 rows, const ub1 *symbols, ub4 symbol_count,
                         ub2 length) noexcept {
    if (length == 0 || rows == 0)
        return;
    if (codes == nullptr)
        std::memcpy(out, symbols, static_cast<ub8>(rows) * length);
    else if (length == 1 && symbol_count - 1 < 16) // a host that leaves the count 0 gets the lookup
        copy_symbols_of_small_dictionary(out, codes, rows, symbols, symbol_count);
    else if (length == 1)
        copy_symbols_by_lookup<ub1>(out, codes, rows, symbols);
    else if (length == 2)
        copy_symbols_by_lookup<ub2>(out, codes, rows, symbols);
    else if (length == 4)
        copy_symbols_by_lookup<ub4>(out, codes, rows, symbols);
    else if (length == 8)
        copy_symbols_by_lookup<ub8>(out, codes, rows, symbols);
    else if (length <= 64)
        copy_short_symbols(out, codes, rows, symbols, length);
    else
        for (ub4 row = 0; row < rows; row++)
            std::memcpy(out + static_cast<ub8>(row) * length, symbols + static_cast<ub8>(codes[row]) * length, length);
}

} // namespace tavo
