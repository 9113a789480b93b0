// Codes of decimal numbers, sixteen at a time. A number of n bytes is an exponent byte and n - 1 digit pairs:
//
//   byte 0   192 + p: p digit pairs stand before the point, p >= n - 1; or 128 alone, which is zero
//   others   a digit pair plus 1 each
//   code     the pairs at 7 bits each and p - (n - 1) zero pairs behind them, if that is at most 32 bits
//
// number_code() is the definition. The vector form takes the last four bytes of each number as one 32-bit lane, the
// last byte on top: pair i from the end then has its place whatever n is, and what n decides comes from tables by
// length.
#pragma once

#include "frame/tavo_types.h"
#include "portable/intrinsics.h"

namespace tavo {

constexpr unsigned longest_number = 5;

struct coded_number {
    bool has_code;
    ub4 code;
};

constexpr coded_number number_code(const ub1 *b, ub8 n) noexcept {
    if (n == 0 || n > longest_number)
        return {false, 0};
    if (n == 1 && b[0] == 128)
        return {true, 0};
    if (b[0] < 192)
        return {false, 0};
    const unsigned exponent = b[0] - 192u;
    if (exponent < n - 1)
        return {false, 0};
    ub8 pairs = 0;
    for (ub8 i = 1; i < n; i++)
        pairs += (b[i] - 1ull) << 7 * (n - 1 - i);
    const unsigned shift = 7 * static_cast<unsigned>(exponent - (n - 1));
    if (pairs == 0)
        return {true, 0};
    if (shift >= 32 || pairs > 0xffffffffu >> shift)
        return {false, 0};
    return {true, static_cast<ub4>(pairs << shift)};
}

// Lane n: what a number of n bytes needs. Lengths that no number has get constants that refuse it.
struct alignas(64) number_rows {
    ub4 kept[16];       // bits of the last four bytes that are digit pairs
    ub4 excess[16];     // the code of n - 1 pairs of 0, each stored as 1
    ub4 head_shift[16]; // where byte 0 stands in its word: the last four bytes or, for n = 5, the four before
    ub4 least_head[16]; // smallest byte 0 of a number without fraction
};
constexpr number_rows rows_by_length() {
    number_rows t{};
    for (unsigned n = 0; n < 16; n++) {
        const bool known = n >= 1 && n <= longest_number;
        const unsigned pairs = known ? n - 1 : 0;
        t.kept[n] = pairs == 0 ? 0 : ~0u << 8 * (4 - pairs);
        for (unsigned i = 0; i < pairs; i++)
            t.excess[n] += 1u << 7 * i;
        t.head_shift[n] = n == 5 ? 24 : known ? 8 * (4 - n) : 0;
        t.least_head[n] = known ? 192 + pairs : 256; // no byte reaches 256
    }
    return t;
}
inline constexpr number_rows numbers_by_length = rows_by_length();
static_assert(numbers_by_length.excess[5] == 1 + 0x80 + 0x4000 + 0x200000);

// Sixteen numbers' constants: of one length, or of lengths 0 to 15 in lanes.
struct number_constants {
    __m512i kept, excess, head_shift, least_head;

    [[gnu::always_inline]] explicit number_constants(unsigned length) noexcept
        : kept(all(numbers_by_length.kept, length)), excess(all(numbers_by_length.excess, length)),
          head_shift(all(numbers_by_length.head_shift, length)), least_head(all(numbers_by_length.least_head, length)) {
    }
    [[gnu::always_inline]] explicit number_constants(__m512i lengths) noexcept
        : kept(each(numbers_by_length.kept, lengths)), excess(each(numbers_by_length.excess, lengths)),
          head_shift(each(numbers_by_length.head_shift, lengths)),
          least_head(each(numbers_by_length.least_head, lengths)) {}

private:
    [[gnu::always_inline]] static __m512i all(const ub4 (&row)[16], unsigned length) noexcept {
        return _mm512_set1_epi32(static_cast<int>(row[length]));
    }
    [[gnu::always_inline]] static __m512i each(const ub4 (&row)[16], __m512i lengths) noexcept {
        return _mm512_permutexvar_epi32(lengths, _mm512_load_si512(row));
    }
};

// From the last four bytes of sixteen numbers and their byte 0, each in a 32-bit lane. `zeros`: lanes of one byte.
[[gnu::always_inline]] inline __mmask16 number_codes(__m512i &codes, __m512i last_four, __m512i heads,
                                                     const number_constants &by, __mmask16 zeros) noexcept {
    const __m512i every_other = _mm512_set1_epi32(0x00ff00ff);
    const __m512i stored = _mm512_and_si512(last_four, by.kept);
    // Two pairs to a 16-bit lane, then both of these to one number.
    const __m512i twos = _mm512_add_epi32(_mm512_slli_epi32(_mm512_and_si512(stored, every_other), 7),
                                          _mm512_and_si512(_mm512_srli_epi32(stored, 8), every_other));
    const __m512i fours = _mm512_add_epi32(_mm512_slli_epi32(_mm512_and_si512(twos, _mm512_set1_epi32(0xffff)), 14),
                                           _mm512_srli_epi32(twos, 16));
    const __m512i pairs = _mm512_sub_epi32(fours, by.excess);
    const __m512i zero_pairs = _mm512_sub_epi32(heads, by.least_head);
    const __m512i shift = _mm512_sub_epi32(_mm512_slli_epi32(zero_pairs, 3), zero_pairs);
    codes = _mm512_sllv_epi32(pairs, shift);
    const __mmask16 whole = _mm512_cmpge_epu32_mask(heads, by.least_head);
    // Below 0 where a stored byte is 0, which no digit pair is.
    const __mmask16 sound = _mm512_mask_cmpge_epi32_mask(whole, pairs, _mm512_setzero_si512());
    const __mmask16 fits = _mm512_mask_cmpeq_epi32_mask(sound, _mm512_srlv_epi32(codes, shift), pairs);
    const __mmask16 zero = _mm512_mask_cmpeq_epi32_mask(zeros, heads, _mm512_set1_epi32(128));
    codes = _mm512_mask_mov_epi32(codes, zero, _mm512_setzero_si512());
    return static_cast<__mmask16>(fits | zero);
}

// The last eight bytes of sixteen numbers, one to a 64-bit lane, and their lengths.
[[gnu::always_inline]] inline __mmask16 number_codes(__m512i &codes, const ub8 *last_eight, __m512i lengths) noexcept {
    const __m512i low = _mm512_loadu_si512(last_eight), high = _mm512_loadu_si512(last_eight + 8);
    const __m512i odd = _mm512_setr_epi32(1, 3, 5, 7, 9, 11, 13, 15, 17, 19, 21, 23, 25, 27, 29, 31);
    const __m512i even = _mm512_setr_epi32(0, 2, 4, 6, 8, 10, 12, 14, 16, 18, 20, 22, 24, 26, 28, 30);
    const __m512i last_four = _mm512_permutex2var_epi32(low, odd, high);
    const __m512i four_before = _mm512_permutex2var_epi32(low, even, high);
    const __m512i known = _mm512_min_epu32(lengths, _mm512_set1_epi32(longest_number + 1));
    const number_constants by(known);
    const __m512i head_word =
        _mm512_mask_mov_epi32(last_four, _mm512_cmpeq_epi32_mask(known, _mm512_set1_epi32(5)), four_before);
    const __m512i heads = _mm512_and_si512(_mm512_srlv_epi32(head_word, by.head_shift), _mm512_set1_epi32(255));
    return number_codes(codes, last_four, heads, by, _mm512_cmpeq_epi32_mask(known, _mm512_set1_epi32(1)));
}

// How 16 numbers of n bytes, back to back, come into lanes. Quarter q, of numbers 4q to 4q + 3, begins at dword n * q;
// of five bytes it is one dword longer than a 128-bit lane, which a second permute and shuffle bring.
struct alignas(64) number_spread {
    ub4 quarters[2][16];  // dwords of each quarter's first 16 bytes, and of those from its second dword on
    ub1 last_four[2][64]; // from these: the last four bytes of each number, as far as it has them
    ub1 heads[64];        // from the first: byte 0
};
constexpr number_spread spread_of_length(unsigned n) {
    number_spread t{};
    for (unsigned i = 0; i < 64; i++)
        t.last_four[0][i] = t.last_four[1][i] = t.heads[i] = 0x80;
    for (unsigned k = 0; k < 2; k++)
        for (unsigned i = 0; i < 16; i++)
            t.quarters[k][i] = i / 4 * n + i % 4 + k;
    for (unsigned i = 0; i < 16; i++) {
        const unsigned number = i % 4 * n; // byte 0 in its quarter
        t.heads[4 * i] = static_cast<ub1>(number);
        for (unsigned k = 4 - (n < 4 ? n : 4); k < 4; k++) {
            const unsigned byte = number + n + k - 4;
            t.last_four[byte < 16 ? 0 : 1][4 * i + k] = static_cast<ub1>(byte < 16 ? byte : byte - 4);
        }
    }
    return t;
}
inline constexpr number_spread number_spreads[longest_number + 1] = {
    {}, spread_of_length(1), spread_of_length(2), spread_of_length(3), spread_of_length(4), spread_of_length(5)};

} // namespace tavo
