// Set membership of dictionary codes: the one text of 22 kernels, one for each code width W.
//
//   source   as in the scans of dictionary codes
//   set      a bit vector over codes: bit c of the set vector's bits set means that code c is in the set. Up to 13 bits
//            the whole set of 2^W bits is read, rounded up to bytes; above, the 4 bytes that hold the bit of a code that
//            occurs, and nothing else
//   result   bit r of res.bits set where the set has code r; zeros above row n in the last word; res.count
//
// Frame, over-reads and selections are those of the scans, but env.result_flags gets TAVO_RESULT_SET_SELECTED.
//
// A set of up to 8192 bits is kept in registers: a code's upper bits choose the byte or word, its lower bits the bit in
// it. Larger sets are fetched from memory.
#pragma once

#include "scan/code_rows.h"
#include "scan/one_bit_scan.h"
#include "scan/scan_frame.h"

namespace tavo {

// Sets in registers, for byte lanes: at most 32 bytes, the second half for codes of 128 and up.
template <unsigned W>
class byte_set {
public:
    [[gnu::always_inline]] explicit byte_set(const ub8 *set) noexcept {
        constexpr unsigned bytes = W <= 3 ? 1 : 1u << (W - 3);
        const auto *p = reinterpret_cast<const ub1 *>(set);
        const __mmask16 readable = bytes >= 16 ? 0xffff : (1u << bytes % 16) - 1;
        low = _mm512_broadcast_i32x4(_mm_maskz_loadu_epi8(readable, p));
        if constexpr (W == 8)
            high = _mm512_broadcast_i32x4(_mm_loadu_si128(reinterpret_cast<const __m128i *>(p + 16)));
        bit_possible = _mm512_load_si512(tavo_bit_possible.row[0]);
    }
    [[gnu::always_inline]] ub8 operator()(__m512i codes) const noexcept {
        const __m512i nibble = _mm512_set1_epi8(0x0f);
        const __m512i place = _mm512_and_si512(_mm512_srli_epi16(codes, 3), nibble);
        __m512i bytes = _mm512_shuffle_epi8(low, place);
        __m512i bit_number = codes;
        if constexpr (W == 8) {
            bytes = _mm512_mask_shuffle_epi8(bytes, _mm512_movepi8_mask(codes), high, place);
            bit_number = _mm512_and_si512(codes, nibble);
        }
        return hits_of_mask(_mm512_test_epi8_mask(bytes, _mm512_shuffle_epi8(bit_possible, bit_number)));
    }

private:
    static constexpr mask_rows_64<1> tavo_bit_possible = [] {
        mask_rows_64<1> t{};
        for (unsigned i = 0; i < 64; i++)
            t.row[0][i] = static_cast<ub1>(1u << i % 8);
        return t;
    }();

    __m512i low, high, bit_possible;
};

// Sets of 2- and 4-bit codes: no code is brought to bit 0. A lane's field, its two halves laid over each other, is the code
// or, of 2 bits, four times the code: distinct places of one table, 0 being the same place for both.
template <unsigned W>
class nibble_set {
public:
    using lanes = code_lanes<W>;
    [[gnu::always_inline]] explicit nibble_set(const ub8 *set) noexcept {
        unsigned members = *reinterpret_cast<const ub1 *>(set);
        if constexpr (W == 4)
            members |= static_cast<unsigned>(reinterpret_cast<const ub1 *>(set)[1]) << 8;
        else
            members = (members & 0xf) | (members & 2) << 3 | (members & 4) << 6 | (members & 8) << 9;
        table = _mm512_broadcast_i32x4(_mm_movm_epi8(static_cast<__mmask16>(members)));
    }
    [[gnu::always_inline]] ub8 operator()(__m512i source) const noexcept {
        const __m512i fields = codes.fields(source);
        constexpr int either_and = 0xa8; // (a | b) & c
        const __m512i place = _mm512_ternarylogic_epi32(fields, _mm512_srli_epi16(fields, 4), _mm512_set1_epi8(0x0f),
                                                        either_and);
        return hits_of_mask(_mm512_movepi8_mask(_mm512_shuffle_epi8(table, place)));
    }
    [[gnu::always_inline]] ub8 first(__m512i source, unsigned) const noexcept { return (*this)(source); }

private:
    lanes codes;
    __m512i table;
};

// Sets in registers, for 16-bit lanes: a register for every 512 codes.
template <unsigned W>
class word_set {
public:
    [[gnu::always_inline]] explicit word_set(const ub8 *set) noexcept {
#pragma GCC unroll 16
        for (unsigned i = 0; i < registers; i++)
            words[i] = _mm512_loadu_si512(set + 8 * i);
    }
    [[gnu::always_inline]] ub8 operator()(__m512i codes) const noexcept {
        const __m512i place = _mm512_srli_epi16(codes, 4);
        const __m512i bit = _mm512_sllv_epi16(_mm512_set1_epi16(1), _mm512_and_si512(codes, _mm512_set1_epi16(15)));
        return hits_of_mask(_mm512_test_epi16_mask(word<0, registers>(codes, place), bit));
    }

private:
    static constexpr unsigned registers = 1u << (W - 9);

    // The word of each code among `Count` registers from the First on, as the code's bits have it.
    template <unsigned First, unsigned Count>
    [[gnu::always_inline]] __m512i word(__m512i codes, __m512i place) const noexcept {
        if constexpr (Count == 1) {
            return _mm512_permutexvar_epi16(place, words[First]);
        } else if constexpr (Count == 2) {
            return _mm512_permutex2var_epi16(words[First], place, words[First + 1]);
        } else {
            const __mmask32 upper = _mm512_test_epi16_mask(codes, _mm512_set1_epi16(Count * 512 / 2));
            return _mm512_mask_blend_epi16(upper, word<First, Count / 2>(codes, place),
                                           word<First + Count / 2, Count / 2>(codes, place));
        }
    }

    __m512i words[registers];
};

// Sets in memory: the bits of sixteen codes, of which only those in the mask are looked up.
[[gnu::always_inline]] inline __mmask16 look_up_codes(const ub8 *set, __m512i codes, __mmask16 among) noexcept {
    const __m512i words =
        _mm512_mask_i32gather_epi32(_mm512_setzero_si512(), among, _mm512_srli_epi32(codes, 5), set, 4);
    return _mm512_test_epi32_mask(words, _mm512_rolv_epi32(_mm512_set1_epi32(1), codes));
}
template <unsigned W>
class memory_set {
public:
    [[gnu::always_inline]] explicit memory_set(const ub8 *bits) noexcept : set(bits) {}
    [[gnu::always_inline]] ub8 operator()(__m512i codes) const noexcept { return look_up(codes, ~0u); }
    [[gnu::always_inline]] ub8 first(__m512i codes, unsigned n) const noexcept {
        return look_up(codes, _bzhi_u32(~0u, n));
    }

private:
    [[gnu::always_inline]] ub8 look_up(__m512i codes, ub4 among) const noexcept {
        if constexpr (W > 16) {
            return hits_of_mask(look_up_codes(set, codes, static_cast<__mmask16>(among)));
        } else {
            const __m512i low = _mm512_cvtepu16_epi32(_mm512_castsi512_si256(codes));
            const __m512i high = _mm512_cvtepu16_epi32(_mm512_extracti64x4_epi64(codes, 1));
            return hits_of_mask(look_up_codes(set, low, static_cast<__mmask16>(among))) |
                   hits_of_mask(look_up_codes(set, high, static_cast<__mmask16>(among >> 16))) << 16;
        }
    }

    const ub8 *set;
};

// The vector form of membership.
template <unsigned W>
class set_test {
public:
    using lanes = code_lanes<W, true>;

    [[gnu::always_inline]] explicit set_test(const ub8 *set) noexcept : contains(set) {}
    [[gnu::always_inline]] ub8 operator()(__m512i source) const noexcept { return contains(codes.codes(source)); }
    [[gnu::always_inline]] ub8 first(__m512i source, unsigned n) const noexcept {
        if constexpr (requires { contains.first(source, n); })
            return contains.first(codes.codes(source), n);
        else
            return (*this)(source);
    }

private:
    lanes codes;
    std::conditional_t<W <= 8, byte_set<W>, std::conditional_t<W <= 13, word_set<W>, memory_set<W>>> contains;
};

template <unsigned W>
[[gnu::always_inline]] inline ub4 set_scan(tavo_vec *res, tavo_vec *src, const tavo_vec *set_vec, tavo_env *env,
                                           const kernel_texts &texts) noexcept {
    const ub8 *set = set_vec->bits;
    if constexpr (W == 1) {
        using enum one_bit_answer;
        constexpr one_bit_answer answers[] = {empty, invert, copy, all};
        return one_bit_scan(res, src, env, texts, answers[*set & 3], TAVO_RESULT_SET_SELECTED);
    } else if (walks_selection(env)) {
        const auto holds = [set](code_value<W> x) { return (set[x / 64] >> x % 64 & 1) != 0; };
        return scan_selected(res, src, env, code_column<W, decltype(holds)>{column_data(src, env, texts), holds},
                             TAVO_RESULT_SET_SELECTED);
    } else {
        return scan_all(
            res, src, env, texts,
            [&](const ub1 *codes, ub8 *bv, ub4 n) {
                using test = std::conditional_t<W == 2 || W == 4, nibble_set<W>, set_test<W>>;
                return scan_blocks(code_rows<W, test>(codes, test(set)), bv, n);
            },
            TAVO_RESULT_SET_SELECTED);
    }
}

} // namespace tavo
