// References to dictionary symbols, one a row, in three parallel arrays: the address of the symbol's bytes, its length
// and an indicator, 2 for a null row. An empty symbol is the null symbol. No symbol byte is read.
//
// Both dictionary forms turn codes into references one by one, which is the definition, and sixteen at a time.
#pragma once

#include "decode/code_group.h"
#include "frame/tavo_vec.h"
#include "portable/intrinsics.h"
#include "scan/packed_code.h"

namespace tavo {

constexpr ub2 null_indicator = 2;

// What a kernel does with the indicators: all rows are given one, or null rows only, in an array cleared before.
enum class indicators { all_rows, null_rows };

struct symbol_refs {
    explicit symbol_refs(const tavo_vec *dst) noexcept
        : address(static_cast<ub8 *>(dst->data)), length(dst->lengths), indicator(dst->indicators) {}

    ub8 *address;
    ub2 *length;
    ub2 *indicator;

    // `bytes` ahead of row i, the lines that sixteen references fill or begin. The arrays may end before, or be null.
    [[gnu::always_inline]] void prefetch(ub8 i, unsigned bytes) const noexcept {
        prefetch_line(address, i * sizeof *address + bytes);
        prefetch_line(address, i * sizeof *address + bytes + 64);
        prefetch_line(length, i * sizeof *length + bytes);
        prefetch_line(indicator, i * sizeof *indicator + bytes);
    }

private:
    [[gnu::always_inline]] static void prefetch_line(const void *array, ub8 offset) noexcept {
        __builtin_prefetch(reinterpret_cast<const void *>(reinterpret_cast<ub8>(array) + offset), 1);
    }
};

[[gnu::always_inline]] inline __m512i low_codes_u64x8(__m512i codes_u32x16) noexcept {
    return _mm512_cvtepu32_epi64(_mm512_castsi512_si256(codes_u32x16));
}
[[gnu::always_inline]] inline __m512i high_codes_u64x8(__m512i codes_u32x16) noexcept {
    return _mm512_cvtepu32_epi64(_mm512_extracti64x4_epi64(codes_u32x16, 1));
}

// Where a symbol's bytes stand.
struct symbol_extent {
    ub8 address;
    ub2 length;
};

// All symbols have one length; references are made of lengths above 0 only. indicators::all_rows takes a null indicator
// array too.
class one_len_symbols {
public:
    static constexpr bool looks_up = false; // a code's place is computed
    explicit one_len_symbols(const tavo_enc_ctx *enc) noexcept
        : symbols(enc->symbols), length(__builtin_bswap16(*enc->symbol_len)) {}

    [[gnu::always_inline]] symbol_extent operator()(ub4 code) const noexcept {
        return {symbols + static_cast<ub8>(code) * length, length};
    }
    template <indicators Rule>
    [[gnu::always_inline]] void refer(const symbol_refs &refs, ub8 i, ub4 code) const noexcept {
        refs.address[i] = (*this)(code).address;
        refs.length[i] = length;
        if (Rule == indicators::all_rows && refs.indicator != nullptr)
            refs.indicator[i] = 0;
    }
    template <indicators Rule>
    [[gnu::always_inline]] void refer(const symbol_refs &refs, ub8 i, __m512i codes_u32x16) const noexcept {
        _mm512_storeu_si512(refs.address + i, addresses(low_codes_u64x8(codes_u32x16)));
        _mm512_storeu_si512(refs.address + i + 8, addresses(high_codes_u64x8(codes_u32x16)));
        _mm256_storeu_si256(reinterpret_cast<__m256i *>(refs.length + i),
                            _mm256_set1_epi16(static_cast<short>(length)));
        if (Rule == indicators::all_rows && refs.indicator != nullptr)
            _mm256_storeu_si256(reinterpret_cast<__m256i *>(refs.indicator + i), _mm256_setzero_si256());
    }

private:
    [[gnu::always_inline]] __m512i addresses(__m512i codes_u64x8) const noexcept {
        return _mm512_add_epi64(_mm512_mul_epu32(codes_u64x8, _mm512_set1_epi64(length)),
                                _mm512_set1_epi64(static_cast<long long>(symbols)));
    }

    ub8 symbols;
    ub2 length;
};

// Lengths cumulated in a big-endian array. The low 16 bits of a length count: 65536 bytes are a null symbol too.
class cla_symbols {
public:
    static constexpr bool looks_up = true;
    explicit cla_symbols(const tavo_enc_ctx *enc) noexcept : symbols(enc->symbols), cla(enc->cla) {}

    [[gnu::always_inline]] symbol_extent operator()(ub4 code) const noexcept {
        const ub4 start = __builtin_bswap32(cla[code]), stop = __builtin_bswap32(cla[code + 1ull]);
        return {symbols + start, static_cast<ub2>(stop - start)};
    }
    template <indicators Rule>
    [[gnu::always_inline]] void refer(const symbol_refs &refs, ub8 i, ub4 code) const noexcept {
        const auto [address, length] = (*this)(code);
        refs.address[i] = address;
        refs.length[i] = length;
        if (Rule == indicators::all_rows)
            refs.indicator[i] = length == 0 ? null_indicator : 0;
        else if (length == 0)
            refs.indicator[i] = null_indicator;
    }
    template <indicators Rule>
    [[gnu::always_inline]] void refer(const symbol_refs &refs, ub8 i, __m512i codes_u32x16) const noexcept {
        const __m512i low = extents(low_codes_u64x8(codes_u32x16)), high = extents(high_codes_u64x8(codes_u32x16));
        _mm512_storeu_si512(refs.address + i, addresses(low));
        _mm512_storeu_si512(refs.address + i + 8, addresses(high));
        const __m256i lengths = _mm256_set_m128i(lengths_u16x8(high), lengths_u16x8(low));
        _mm256_storeu_si256(reinterpret_cast<__m256i *>(refs.length + i), lengths);
        const __mmask16 nulls = _mm256_testn_epi16_mask(lengths, lengths);
        auto *indicator = reinterpret_cast<__m256i *>(refs.indicator + i);
        if (Rule == indicators::all_rows)
            _mm256_storeu_si256(indicator, _mm256_maskz_set1_epi16(nulls, null_indicator));
        else if (nulls != 0)
            _mm256_mask_storeu_epi16(indicator, nulls, _mm256_set1_epi16(null_indicator));
    }
    [[gnu::always_inline]] void prefetch(ub4 code) const noexcept { __builtin_prefetch(cla + code); }

private:
    // Lane: where the symbol starts in the low half, where it ends in the high half. One 8-byte read covers both.
    [[gnu::always_inline]] __m512i extents(__m512i codes_u64x8) const noexcept {
        return _mm512_shuffle_epi8(_mm512_i64gather_epi64(codes_u64x8, reinterpret_cast<const long long *>(cla), 4),
                                   _mm512_load_si512(swap_selectors.row[1]));
    }
    [[gnu::always_inline]] __m512i addresses(__m512i extents) const noexcept {
        return _mm512_add_epi64(_mm512_and_si512(extents, _mm512_set1_epi64(0xffffffff)),
                                _mm512_set1_epi64(static_cast<long long>(symbols)));
    }
    [[gnu::always_inline]] static __m128i lengths_u16x8(__m512i extents) noexcept {
        return _mm512_cvtepi64_epi16(_mm512_sub_epi64(_mm512_srli_epi64(extents, 32), extents));
    }

    ub8 symbols;
    const ub4 *cla;
};

} // namespace tavo
