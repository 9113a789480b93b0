// A column's elements in the order of its rows, a batch at a time, whatever their layout.
#pragma once

#include "rows/element_batch.h"

namespace tavo {

// What stands before each of 16 numbers, summed up: the numbers move up by 1, 2, 4, 8 lanes, zeros behind them.
struct alignas(64) lane_moves {
    ub4 by[4][16];
};
consteval lane_moves moves_up() {
    lane_moves m{};
    for (unsigned step = 0; step < 4; step++)
        for (unsigned i = 0; i < 16; i++)
            m.by[step][i] = i < 1u << step ? 16 : i - (1u << step); // 16: lane 0 of the second operand, a zero
    return m;
}
inline constexpr lane_moves lanes_up = moves_up();

class column_elements {
public:
    // The first of `layouts`, in their order here, that the column's flags have; 0 if none.
    static ub4 layout_of(const tavo_vec *column, ub4 layouts) noexcept {
        for (ub4 layout : {TAVO_FIXED, TAVO_LV_SEP, TAVO_LV, TAVO_LP_SEP, TAVO_LP})
            if (TAVO_VEC_ENC_CTX(column)->flags & layouts & layout)
                return layout;
        return 0;
    }
    // From row 0, or from any row in the layouts of one size.
    column_elements(const tavo_vec *column, const ub1 *data, ub4 layout, ub8 row) noexcept
        : layout_(layout), bytes_(fixed_element_bytes(TAVO_VEC_ENC_CTX(column))),
          lengths_(reinterpret_cast<const ub1 *>(column->lengths)) {
        at_ = data + row * (layout == TAVO_LP ? lp_elements::record_bytes : layout == TAVO_LP_SEP ? 8 : bytes_);
        if (layout == TAVO_LP_SEP)
            lengths_ += row * sizeof(ub2);
    }

    // The next n elements, at most a batch.
    void read(element_batch &batch, ub4 n) noexcept {
        switch (layout_) {
        case TAVO_FIXED: return read_fixed(batch, n);
        case TAVO_LV_SEP: return read_lv_sep(batch, n);
        case TAVO_LV: return read_lv(batch, n);
        case TAVO_LP_SEP: return read_lp_sep(batch, n);
        default: read_records(batch, 0, at_, n); at_ += ub8{n} * lp_elements::record_bytes;
        }
    }

private:
    void read_fixed(element_batch &batch, ub4 n) noexcept {
        for (ub4 i = 0; i < n; i++, at_ += bytes_)
            batch.set(i, {at_, bytes_});
    }
    void read_lv(element_batch &batch, ub4 n) noexcept {
        for (ub4 i = 0; i < n; i++) {
            const ub4 length = load_ub2(at_);
            batch.set(i, {at_ + sizeof(ub2), length});
            at_ += sizeof(ub2) + length;
        }
    }
    // Lengths i to i + 15, of n.
    __m512i read_lengths(element_batch &batch, ub4 i, ub4 n) noexcept {
        const auto there = static_cast<__mmask16>(_bzhi_u32(0xffff, n - i));
        const __m512i lengths_u32x16 =
            _mm512_cvtepu16_epi32(_mm256_maskz_loadu_epi16(there, lengths_ + sizeof(ub2) * i));
        _mm512_storeu_si512(batch.length + i, lengths_u32x16);
        return lengths_u32x16;
    }
    void read_lp_sep(element_batch &batch, ub4 n) noexcept {
        for (ub4 i = 0; i < n; i += 16)
            read_lengths(batch, i, n);
        memcpy(batch.address, at_, ub8{n} * 8);
        at_ += ub8{n} * 8;
        lengths_ += ub8{n} * sizeof(ub2);
    }
    // An element stands where the lengths before it, summed up, end: sixteen sums at a time.
    void read_lv_sep(element_batch &batch, ub4 n) noexcept {
        for (ub4 i = 0; i < n; i += 16) {
            const __m512i lengths_u32x16 = read_lengths(batch, i, n);
            __m512i sums_u32x16 = lengths_u32x16;
#pragma GCC unroll 4
            for (unsigned step = 0; step < 4; step++)
                sums_u32x16 = _mm512_add_epi32(
                    sums_u32x16, _mm512_permutex2var_epi32(sums_u32x16, _mm512_load_si512(lanes_up.by[step]),
                                                           _mm512_setzero_si512()));
            batch.set_addresses(i, reinterpret_cast<ub8>(at_), _mm512_sub_epi32(sums_u32x16, lengths_u32x16));
            const __m512i last = _mm512_permutexvar_epi32(_mm512_set1_epi32(15), sums_u32x16);
            at_ += static_cast<ub4>(_mm_cvtsi128_si64(_mm512_castsi512_si128(last)));
        }
        lengths_ += ub8{n} * sizeof(ub2);
    }

    ub4 layout_;
    unsigned bytes_;
    const ub1 *at_, *lengths_;
};

} // namespace tavo
