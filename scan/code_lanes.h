// Packed W-bit codes, brought into the lanes of a 512-bit register for comparison with a constant.
//
// One compare takes `bytes` source bytes, `rows` codes, in lanes of 8 bits for W <= 8, 16 for W <= 16, 32 for W <= 32,
// else 64. A code need not come down to bit 0: it is enough that each lane holds its code's bits at a known place and
// zeros elsewhere, and that the constant is put at the same place once before the loop. Equality and unsigned order are
// then those of the codes.
#pragma once

#include "scan/compare_lanes.h"
#include "scan/dict_scan_masks.h"
#include "scan/packed_code.h"

namespace tavo {

// Aligned: for those who need the codes themselves, codes() brings them to bit 0.
template <unsigned W, bool Aligned = false>
class code_lanes {
public:
    static constexpr unsigned lane_bits = W <= 8 ? 8 : W <= 16 ? 16 : W <= 32 ? 32 : 64;
    static constexpr unsigned rows = 512 / lane_bits;
    static constexpr unsigned bytes = rows * W / 8;

    [[gnu::always_inline]] code_lanes() noexcept {
        if constexpr (how == method::whole && W != 8 && W != 24) {
            shuffle_a = swap_bytes();
        } else if constexpr (how == method::whole && W == 24) {
            spread = row_64(tavo_avx512_unpack_to_32bit_lane_shuffle_masks.row[W - 1]);
            shuffle_a = row_64(tavo_avx512_unpack_to_32bit_shuffle_masks.row[W - 1]);
        } else if constexpr (lane_bits == 8 && W != 8) {
            spread = row_64(tavo_avx512_unpack_to_8bit_lane_shuffle_masks.row[W - 1]);
            if constexpr (how == method::in_place) {
                shuffle_a = _mm512_broadcast_i32x4(
                    _mm_load_si128(reinterpret_cast<const __m128i *>(tavo_shuffle_masks.row[W - 1])));
                keep = row_32(tavo_and_masks.row[W - 1]);
            } else if constexpr (how == method::by_parity) {
                load_parity_rows(tavo_avx512_unpack_to_8bit_shuffle_masks.row[W - 1],
                                 tavo_avx512_unpack_to_8bit_shift_masks.row[W - 1]);
            } else {
                shuffle_a = row_32(dict_scan_masks.tavo_avx512_scan_shuffle_mask_3bit[0]);
                shuffle_b = row_32(dict_scan_masks.tavo_avx512_scan_shuffle_mask_3bit[1]);
                shift_a = row_32(dict_scan_masks.tavo_avx512_scan_shift_mask_3bit);
                keep = row_32(dict_scan_masks.tavo_avx512_scan_and_mask_3bit);
            }
        } else if constexpr (lane_bits == 16 && W != 16) {
            spread = row_64(tavo_avx512_unpack_to_16bit_lane_shuffle_masks.row[W - 1]);
            if constexpr (how == method::in_place) {
                shuffle_a = row_64(tavo_avx512_unpack_to_16bit_shuffle_masks.row[W - 1]);
                keep = row_32(tavo_and_masks.row[W - 1]);
            } else if constexpr (how == method::by_parity) {
                load_parity_rows(tavo_avx512_unpack_to_16bit_shuffle_masks.row[W - 1],
                                 tavo_avx512_unpack_to_16bit_shift_masks.row[W - 1]);
            } else {
                shuffle_a = row_32(tavo_avx512_unpack_to_16bit_shuffle_masks.row[W - 1]);
                shuffle_b = row_32(tavo_avx512_unpack_to_16bit_shuffle_masks.row[W - 1] + 32);
                shift_a = row_32(tavo_avx512_unpack_to_16bit_shift_masks.row[W - 1]);
                keep = row_32(dict_scan_masks.tavo_avx512_scan_and_mask_11bit);
            }
        } else if constexpr (lane_bits == 32) {
            spread = row_64(tavo_avx512_unpack_to_32bit_lane_shuffle_masks.row[W - 1]);
            shuffle_a = row_64(tavo_avx512_unpack_to_32bit_shuffle_masks.row[W - 1]);
            keep = row_32(tavo_and_masks.row[W - 1]);
        }
        if constexpr (Aligned && how == method::straddling)
            align = _mm512_cvtepu8_epi16(_mm256_set1_epi64x(eight_counts()));
        else if constexpr (Aligned && how == method::in_place)
            align = row_32(tavo_shift_masks.row[W - 1]);
    }

    // The bytes of one compare, and none beyond.
    [[gnu::always_inline]] static __m512i load(const ub1 *p) noexcept {
        if constexpr (bytes == 64)
            return _mm512_loadu_si512(p);
        else
            return _mm512_maskz_loadu_epi8((1ull << bytes) - 1, p);
    }
    // The bytes of the first n rows, n < rows.
    [[gnu::always_inline]] static __m512i load_first(const ub1 *p, unsigned n) noexcept {
        return _mm512_maskz_loadu_epi8(_bzhi_u64(~0ull, (n * W + 7) / 8), p);
    }

    // Lane i: the field of code i, and zeros.
    [[gnu::always_inline]] __m512i fields(__m512i source) const noexcept {
        if constexpr (W == 8)
            return source;
        else if constexpr (how == method::whole && W != 24)
            return _mm512_shuffle_epi8(source, shuffle_a);
        else {
            const __m512i quarters = _mm512_permutexvar_epi16(spread, source);
            const __m512i a = _mm512_shuffle_epi8(quarters, shuffle_a);
            if constexpr (W == 24)
                return a;
            else if constexpr (how == method::in_place)
                return _mm512_and_si512(a, keep);
            else
                return _mm512_and_si512(join(a, _mm512_shuffle_epi8(quarters, shuffle_b)), keep);
        }
    }

    // Lane i: code i.
    [[gnu::always_inline]] __m512i codes(__m512i source) const noexcept {
        static_assert(Aligned);
        if constexpr (how == method::whole || how == method::by_parity)
            return fields(source);
        else if constexpr (lane_bits == 16)
            return _mm512_srlv_epi16(fields(source), align);
        else
            return _mm512_srlv_epi32(fields(source), align);
    }

    // The constant at the place of its code in each lane. A constant of more than W bits gives garbage.
    [[gnu::always_inline]] __m512i place(ub8 constant) const noexcept {
        if constexpr (how == method::whole || how == method::by_parity) {
            return broadcast_lanes<lane_bits>(constant);
        } else if constexpr (lane_bits == 32) {
            return _mm512_sllv_epi32(_mm512_set1_epi32(static_cast<int>(constant)),
                                     row_32(tavo_shift_masks.row[W - 1]));
        } else if constexpr (lane_bits == 16) {
            const __m512i c = _mm512_set1_epi16(static_cast<short>(constant));
            if constexpr (W == 11) // one count a byte, eight counts for eight lanes
                return _mm512_sllv_epi16(c, _mm512_cvtepu8_epi16(_mm256_set1_epi64x(eight_counts())));
            else
                return _mm512_sllv_epi16(c, row_32(tavo_shift_masks.row[W - 1]));
        } else { // byte lanes: shifted as 16-bit lanes and narrowed
            const __m512i counts = W == 3 ? _mm512_cvtepu8_epi16(_mm256_set1_epi64x(eight_counts()))
                                          : _mm512_cvtepu8_epi16(_mm256_load_si256(
                                                reinterpret_cast<const __m256i *>(tavo_shift_masks.row[W - 1])));
            const __m256i half =
                _mm512_cvtepi16_epi8(_mm512_sllv_epi16(_mm512_set1_epi16(static_cast<short>(constant)), counts));
            return _mm512_broadcast_i64x4(half);
        }
    }

    // Where the lowest bit of a field lies in lane j.
    static constexpr unsigned field_shift(unsigned j) noexcept {
        if constexpr (how == method::in_place)
            return code_shift(j, W);
        else if constexpr (how == method::straddling)
            return dict_scan_masks.tavo_avx512_scan_const_shift_mask_3bit[j % 8];
        else
            return 0;
    }

private:
    enum class method {
        whole,     // whole bytes: at most a byte shuffle
        in_place,  // a code never spans more bytes than its lane has
        by_parity, // codes shifted down to bit 0: even lanes to the right, odd lanes to the left, in lanes of twice the
                   // size
        straddling // codes 2 and 5 of every eight shifted, the others in place
    };
    // Byte lanes know no shift of their own: there aligned codes come by parity at all widths.
    static constexpr method how = W == 8 || W == 16 || W == 24 || W == 32 || W == 64 ? method::whole
                                  : Aligned && W < 8                                 ? method::by_parity
                                  : W == 3 || W == 11                                ? method::straddling
                                  : (W >= 5 && W <= 7) || (W >= 13 && W <= 15)       ? method::by_parity
                                                                                     : method::in_place;

    [[gnu::always_inline]] __m512i join(__m512i a, __m512i b) const noexcept {
        if constexpr (how == method::straddling && W == 3)
            return _mm512_mask_blend_epi8(0x0101010101010101 * straddling_lanes, b, _mm512_sllv_epi32(a, shift_a));
        else if constexpr (how == method::straddling)
            return _mm512_mask_blend_epi16(0x01010101u * straddling_lanes, b, _mm512_sllv_epi64(a, shift_a));
        else if constexpr (lane_bits == 8)
            return _mm512_mask_blend_epi8(0xaaaaaaaaaaaaaaaa, _mm512_srlv_epi16(b, shift_b),
                                          _mm512_sllv_epi16(a, shift_a));
        else
            return _mm512_mask_blend_epi16(0xaaaaaaaa, _mm512_srlv_epi32(b, shift_b), _mm512_sllv_epi32(a, shift_a));
    }

    [[gnu::always_inline]] void load_parity_rows(const ub1 *shuffles, const ub1 *shifts) noexcept {
        shuffle_a = row_32(shuffles);
        shuffle_b = row_32(shuffles + 32);
        shift_a = row_32(shifts);
        shift_b = row_32(shifts + 32);
        if constexpr (W < 5)
            keep = _mm512_set1_epi8((1 << W) - 1);
        else
            keep = row_32(tavo_shift_masks.row[low_mask_row(W)]);
    }

    static __m512i row_64(const ub1 *row) noexcept { return _mm512_load_si512(row); }
    static __m512i row_32(const ub1 *row) noexcept {
        return _mm512_broadcast_i64x4(_mm256_load_si256(reinterpret_cast<const __m256i *>(row)));
    }
    static long long eight_counts() noexcept {
        long long counts;
        memcpy(&counts, dict_scan_masks.tavo_avx512_scan_const_shift_mask_3bit, sizeof counts);
        return counts;
    }
    static __m512i swap_bytes() noexcept {
        constexpr unsigned n = W / 8 > 8 ? 8 : W / 8;
        static constexpr auto selectors = [] {
            struct alignas(16) {
                ub1 of[16];
            } s{};
            for (unsigned i = 0; i < 16; i++)
                s.of[i] = static_cast<ub1>(i / n * n + (n - 1 - i % n));
            return s;
        }();
        return _mm512_broadcast_i32x4(_mm_load_si128(reinterpret_cast<const __m128i *>(selectors.of)));
    }

    __m512i spread, shuffle_a, shuffle_b, shift_a, shift_b, keep, align;
};

} // namespace tavo
