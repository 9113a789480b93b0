// How one 64-byte load of packed codes is spread over the lanes of a 512-bit register: a permute of 16-bit words that
// gives each 128-bit quarter the bytes of its codes, a byte shuffle within the quarters, and shifts.
#pragma once

#include "tables/code_masks.h"

namespace tavo {

template <unsigned Rows>
struct alignas(64) mask_rows_64 {
    ub1 row[Rows][64];

    constexpr void put(unsigned r, unsigned byte, unsigned bytes, ub8 value) {
        for (unsigned i = 0; i < bytes; i++)
            row[r][byte + i] = static_cast<ub1>(value >> 8 * i);
    }
    // Selectors from `byte` on: the code's bytes from the last to the first, relative to the quarter's first word.
    constexpr void select(unsigned r, unsigned byte, unsigned j, unsigned width, unsigned quarter_start) {
        for (unsigned b = code_last_byte(j, width) + 1; b-- > code_first_byte(j, width); byte++)
            row[r][byte] = static_cast<ub1>(b - quarter_start);
    }
    constexpr void clear_selectors() {
        for (auto &r : row)
            for (ub1 &selector : r)
                selector = 0x80;
    }
};

// First 16-bit word of quarter L, for W-bit codes spread to lanes of `lane_bits`: a quarter holds 128 / lane_bits
// codes.
constexpr unsigned quarter_first_word(unsigned quarter, unsigned width, unsigned lane_bits) {
    return quarter * (128 / lane_bits) * width / 8 / 2;
}

template <unsigned Rows>
constexpr mask_rows_64<Rows> lane_shuffle_rows(unsigned lane_bits) {
    mask_rows_64<Rows> t{};
    for (unsigned w = 1; w <= Rows; w++)
        for (unsigned word = 0; word < 32; word++)
            t.put(w - 1, 2 * word, 2, quarter_first_word(word / 8, w, lane_bits) + word % 8);
    return t;
}

// All tables: row W - 1.
inline constexpr mask_rows_64<8> tavo_avx512_unpack_to_8bit_lane_shuffle_masks = lane_shuffle_rows<8>(8);
inline constexpr mask_rows_64<16> tavo_avx512_unpack_to_16bit_lane_shuffle_masks = lane_shuffle_rows<16>(16);
inline constexpr mask_rows_64<24> tavo_avx512_unpack_to_32bit_lane_shuffle_masks = lane_shuffle_rows<24>(32);

// Two halves of 32 bytes for a split by parity: the first brings the odd codes, which a left shift then puts into the
// upper half of each 16-bit lane, the second the even codes, for a right shift into the lower half.
inline constexpr mask_rows_64<8> tavo_avx512_unpack_to_8bit_shuffle_masks = [] {
    mask_rows_64<8> t{};
    t.clear_selectors();
    for (unsigned w = 1; w <= 8; w++)
        for (unsigned lane = 0; lane < 16; lane++) {
            t.select(w - 1, 2 * lane, 2 * (lane % 8) + 1, w, 0);
            t.select(w - 1, 32 + 2 * lane, 2 * (lane % 8), w, 0);
        }
    return t;
}();
inline constexpr mask_rows_64<8> tavo_avx512_unpack_to_8bit_shift_masks = [] {
    mask_rows_64<8> t{};
    for (unsigned w = 1; w <= 8; w++)
        for (unsigned lane = 0; lane < 16; lane++) {
            t.put(w - 1, 2 * lane, 2, 8 - code_shift(2 * (lane % 8) + 1, w));
            t.put(w - 1, 32 + 2 * lane, 2, code_shift(2 * (lane % 8), w));
        }
    return t;
}();

// Codes of up to 12 bits but 11 lie within their 16-bit lane: a whole row of 64 bytes. 13 to 16 bits: halves by parity
// as above, in 32-bit lanes. 11 bits: the first half brings codes 2 and 5 of every eight, which span three bytes, one
// byte below their lane, for a left shift of 64-bit lanes; the second half the other six into their lanes. In a half
// the quarters come in pairs, since every second quarter of an odd width starts in the middle of a word.
inline constexpr mask_rows_64<16> tavo_avx512_unpack_to_16bit_shuffle_masks = [] {
    mask_rows_64<16> t{};
    t.clear_selectors();
    for (unsigned w = 1; w <= 16; w++)
        for (unsigned quarter = 0; quarter < 4; quarter++) {
            const unsigned start = 2 * quarter_first_word(quarter, w, 16);
            for (unsigned j = 8 * quarter; j < 8 * quarter + 8; j++) {
                const unsigned half = 16 * (quarter % 2), lane = j % 8;
                const bool spans_three = w == 11 && (lane == 2 || lane == 5);
                if (w <= 12 && w != 11)
                    t.select(w - 1, 16 * quarter + 2 * lane, j, w, start);
                else if (w == 11 && quarter < 2)
                    t.select(w - 1, (spans_three ? 2 * lane - 1 : 32 + 2 * lane) + half, j, w, start);
                else if (w > 12 && quarter < 2)
                    t.select(w - 1, (lane % 2 != 0 ? 0 : 32) + half + 4 * (lane / 2), j, w, start);
            }
        }
    return t;
}();
inline constexpr mask_rows_64<16> tavo_avx512_unpack_to_16bit_shift_masks = [] {
    mask_rows_64<16> t{};
    for (unsigned lane = 0; lane < 4; lane++) // 11 bits: 64-bit lanes
        t.put(10, 8 * lane, 8, 8 - code_shift(lane % 2 == 0 ? 2 : 5, 11));
    for (unsigned w = 13; w <= 16; w++)
        for (unsigned lane = 0; lane < 8; lane++) {
            t.put(w - 1, 4 * lane, 4, 16 - code_shift(2 * lane + 1, w));
            t.put(w - 1, 32 + 4 * lane, 4, code_shift(2 * lane, w));
        }
    return t;
}();

// Sixteen codes to sixteen 32-bit lanes, and the right shifts that leave each code at bit 0 under noise.
inline constexpr mask_rows_64<24> tavo_avx512_unpack_to_32bit_shuffle_masks = [] {
    mask_rows_64<24> t{};
    t.clear_selectors();
    for (unsigned w = 1; w <= 24; w++)
        for (unsigned j = 0; j < 16; j++)
            t.select(w - 1, 4 * j, j, w, 2 * quarter_first_word(j / 4, w, 32));
    return t;
}();
inline constexpr mask_rows_64<24> tavo_avx512_unpack_to_32bit_shift_masks = [] {
    mask_rows_64<24> t{};
    for (unsigned w = 1; w <= 24; w++)
        for (unsigned j = 0; j < 16; j++)
            t.put(w - 1, 4 * j, 4, code_shift(j, w));
    return t;
}();

} // namespace tavo
