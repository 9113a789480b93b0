// The smallest and the largest of packed codes, many at a time.
//
// Codes are not brought down to bit 0: each lane keeps the extremes of its own place, where all codes have the same
// shift, and the lanes are shifted and joined once, at the end. Eight codes of any width fill whole bytes, so the
// places repeat after eight lanes.
#pragma once

#include "scan/code_lanes.h"

namespace tavo {

// The running result. `low` begins at one above any code of the column: while it stays there, no row has contributed.
struct code_extremes {
    ub4 low, high;

    [[gnu::always_inline]] void fold(ub4 code) noexcept {
        low = code < low ? code : low;
        high = code > high ? code : high;
    }
};

enum class extreme { low, high };

// The extreme of two registers, lane by lane, unsigned.
template <extreme Which, unsigned LaneBits>
[[gnu::always_inline]] inline __m512i extreme_of(__m512i a, __m512i b) noexcept {
    if constexpr (Which == extreme::low) {
        if constexpr (LaneBits == 8)
            return _mm512_min_epu8(a, b);
        else if constexpr (LaneBits == 16)
            return _mm512_min_epu16(a, b);
        else
            return _mm512_min_epu32(a, b);
    } else {
        if constexpr (LaneBits == 8)
            return _mm512_max_epu8(a, b);
        else if constexpr (LaneBits == 16)
            return _mm512_max_epu16(a, b);
        else
            return _mm512_max_epu32(a, b);
    }
}

template <unsigned LaneBits>
using lane_mask =
    std::conditional_t<LaneBits == 8, __mmask64, std::conditional_t<LaneBits == 16, __mmask32, __mmask16>>;

// The same in the lanes among the given ones; the others keep what `a` holds.
template <extreme Which, unsigned LaneBits>
[[gnu::always_inline]] inline __m512i extreme_of(lane_mask<LaneBits> among, __m512i a, __m512i b) noexcept {
    if constexpr (Which == extreme::low) {
        if constexpr (LaneBits == 8)
            return _mm512_mask_min_epu8(a, among, a, b);
        else if constexpr (LaneBits == 16)
            return _mm512_mask_min_epu16(a, among, a, b);
        else
            return _mm512_mask_min_epu32(a, among, a, b);
    } else {
        if constexpr (LaneBits == 8)
            return _mm512_mask_max_epu8(a, among, a, b);
        else if constexpr (LaneBits == 16)
            return _mm512_mask_max_epu16(a, among, a, b);
        else
            return _mm512_mask_max_epu32(a, among, a, b);
    }
}

// Shifts of eight lanes, twice.
struct alignas(64) lane_shifts {
    ub4 of[16];
};

// The one extreme of all lanes, the field of lane j lying `shifts.of[j % 8]` bits above bit 0.
template <extreme Which, unsigned LaneBits>
[[gnu::always_inline]] inline ub4 extreme_code(__m512i v, const lane_shifts &shifts) noexcept {
    // Lanes eight, sixteen ... apart join as they are, until sixteen lanes are left that can be widened.
    if constexpr (LaneBits <= 16)
        v = extreme_of<Which, LaneBits>(v, _mm512_shuffle_i64x2(v, v, 0x4e));
    if constexpr (LaneBits == 8)
        v = _mm512_cvtepu8_epi32(
            _mm512_castsi512_si128(extreme_of<Which, LaneBits>(v, _mm512_shuffle_i64x2(v, v, 0xb1))));
    else if constexpr (LaneBits == 16)
        v = _mm512_cvtepu16_epi32(_mm512_castsi512_si256(v));
    v = _mm512_srlv_epi32(v, _mm512_load_si512(shifts.of));
    return Which == extreme::low ? static_cast<ub4>(_mm512_reduce_min_epu32(v))
                                 : static_cast<ub4>(_mm512_reduce_max_epu32(v));
}

// Running extremes of fields in lanes of `LaneBits`. If Nullable, a field of zeros is passed over.
//
// A lane that nothing has reached holds the largest number as its low and zero as its high: with something in any other
// lane it never shows. Whether there was anything at all is the caller's to know, or to read from `high` if Nullable.
template <unsigned LaneBits, bool Nullable>
class lane_extremes {
public:
    using mask = lane_mask<LaneBits>;
    static constexpr mask all = static_cast<mask>(~0ull);

    [[gnu::always_inline]] lane_extremes() noexcept : low(_mm512_set1_epi32(-1)), high(_mm512_setzero_si512()) {}
    // Continues from fields in all lanes.
    [[gnu::always_inline]] lane_extremes(__m512i low, __m512i high) noexcept : low(low), high(high) {}

    [[gnu::always_inline]] void add(__m512i fields) noexcept {
        if constexpr (Nullable)
            low = extreme_of<extreme::low, LaneBits>(nonzero_lanes<LaneBits>(all, fields), low, fields);
        else
            low = extreme_of<extreme::low, LaneBits>(low, fields);
        high = extreme_of<extreme::high, LaneBits>(high, fields);
    }
    [[gnu::always_inline]] void add(__m512i fields, mask among) noexcept {
        if constexpr (Nullable)
            among = nonzero_lanes<LaneBits>(among, fields);
        low = extreme_of<extreme::low, LaneBits>(among, low, fields);
        high = extreme_of<extreme::high, LaneBits>(among, high, fields);
    }

    // Some lane's low is at or below `low_target` and some lane's high at or above `high_target`.
    [[gnu::always_inline]] bool have_reached(__m512i low_target, __m512i high_target) const noexcept {
        return compare_lanes<LaneBits, _MM_CMPINT_LE>(low, low_target) != 0 &&
               compare_lanes<LaneBits, _MM_CMPINT_NLT>(high, high_target) != 0;
    }
    // The same by signed comparison of 32-bit lanes.
    [[gnu::always_inline]] bool have_reached_signed(__m512i low_target, __m512i high_target) const noexcept {
        return _mm512_cmple_epi32_mask(low, low_target) != 0 && _mm512_cmpge_epi32_mask(high, high_target) != 0;
    }

    // Folds the lanes into a result. At least one field was added.
    [[gnu::always_inline]] void fold_into(code_extremes &into, const lane_shifts &shifts) const noexcept {
        const ub4 largest = extreme_code<extreme::high, LaneBits>(high, shifts);
        if (Nullable && largest == 0)
            return;
        into.fold(largest);
        into.fold(extreme_code<extreme::low, LaneBits>(low, shifts));
    }

private:
    __m512i low, high;
};

template <unsigned W>
inline constexpr lane_shifts field_shifts = [] {
    lane_shifts s{};
    for (unsigned i = 0; i < 16; i++)
        s.of[i] = code_lanes<W>::field_shift(i % 8);
    return s;
}();

} // namespace tavo
