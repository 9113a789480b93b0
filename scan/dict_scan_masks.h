// The scans' own constants for codes of 3 and 11 bits. Eight such codes fill 3 or 11 bytes: six of them lie within
// their lane (of 8 or 16 bits), codes 2 and 5 span one byte more than a lane has and are shifted into place.
#pragma once

#include "tables/unpack_masks.h"

namespace tavo {

struct alignas(64) scan_masks {
    // Two rows: the bytes of codes 2 and 5, the last one in the lane below the code's, for the left shift; the byte of
    // each other code in its lane.
    ub1 tavo_avx512_scan_shuffle_mask_3bit[2][32];
    ub1 tavo_avx512_scan_shift_mask_3bit[32]; // of 32-bit lanes
    ub1 tavo_avx512_scan_and_mask_3bit[32];
    ub1 tavo_avx512_scan_and_mask_11bit[32]; // 16-bit lanes
    // Where the constant goes, eight counts, for 3 and 11 bits alike: one a lane.
    ub1 tavo_avx512_scan_const_shift_mask_3bit[8];
};

// Lanes 2 and 5 of every eight.
constexpr unsigned straddling_lanes = 0x24;

inline constexpr scan_masks dict_scan_masks = [] {
    scan_masks m{};
    for (unsigned i = 0; i < 32; i++) {
        const unsigned j = i % 16, lane = j % 8; // the code of byte lane i
        const bool straddles = (straddling_lanes >> lane & 1) != 0;
        const unsigned shift = straddles ? 0 : code_shift(lane, 3);
        m.tavo_avx512_scan_shuffle_mask_3bit[0][i] = 0x80;
        m.tavo_avx512_scan_shuffle_mask_3bit[1][i] = straddles ? 0x80 : static_cast<ub1>(code_last_byte(j, 3));
        m.tavo_avx512_scan_and_mask_3bit[i] = static_cast<ub1>(7u << shift);
        m.tavo_avx512_scan_const_shift_mask_3bit[lane] = static_cast<ub1>(shift);
    }
    for (unsigned i = 0; i < 32; i++) {
        const unsigned j = i % 16, lane = j % 8;
        if ((straddling_lanes >> lane & 1) == 0)
            continue;
        m.tavo_avx512_scan_shuffle_mask_3bit[0][i] = static_cast<ub1>(code_first_byte(j, 3));
        m.tavo_avx512_scan_shuffle_mask_3bit[0][i - 1] = static_cast<ub1>(code_last_byte(j, 3));
        m.tavo_avx512_scan_shift_mask_3bit[i / 4 * 4] = static_cast<ub1>(8 - code_shift(lane, 3));
    }
    for (unsigned lane = 0; lane < 16; lane++) {
        const unsigned mask = ((1u << 11) - 1) << m.tavo_avx512_scan_const_shift_mask_3bit[lane % 8];
        m.tavo_avx512_scan_and_mask_11bit[2 * lane] = static_cast<ub1>(mask);
        m.tavo_avx512_scan_and_mask_11bit[2 * lane + 1] = static_cast<ub1>(mask >> 8);
    }
    return m;
}();

static_assert([] {
    constexpr ub1 and_3[8] = {0xe0, 0x1c, 0x07, 0x70, 0x0e, 0x07, 0x38, 0x07};
    constexpr ub2 and_11[8] = {0xffe0, 0x1ffc, 0x07ff, 0x7ff0, 0x0ffe, 0x07ff, 0x3ff8, 0x07ff};
    constexpr ub1 places[8] = {5, 2, 0, 4, 1, 0, 3, 0};
    const scan_masks &m = dict_scan_masks;
    for (unsigned i = 0; i < 8; i++)
        if (m.tavo_avx512_scan_and_mask_3bit[i] != and_3[i] ||
            (m.tavo_avx512_scan_and_mask_11bit[2 * i] | m.tavo_avx512_scan_and_mask_11bit[2 * i + 1] << 8) !=
                and_11[i] ||
            m.tavo_avx512_scan_const_shift_mask_3bit[i] != places[i])
            return false;
    return m.tavo_avx512_scan_shift_mask_3bit[0] == 1 && m.tavo_avx512_scan_shift_mask_3bit[4] == 2;
}());

} // namespace tavo
