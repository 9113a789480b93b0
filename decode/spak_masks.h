// How eight consecutive W-bit codes of a spak stream, which occupy W bytes, come into eight 16-bit lanes: a byte
// shuffle, an AND, and a right shift lane by lane. Row W - 3, W = 3 to 10.
#pragma once

#include "tables/code_masks.h"

namespace tavo {

struct alignas(64) spak_byte_rows {
    ub1 row[8][16];
};
struct alignas(64) spak_lane_rows {
    ub2 row[8][8];
};

// Lane j takes the byte of code j's last bit and above it the byte of its first bit, zero if that is the same one.
inline constexpr spak_byte_rows tavo_spak_decode_shuffle_masks = [] {
    spak_byte_rows t{};
    for (unsigned w = 3; w <= 10; w++)
        for (unsigned j = 0; j < 8; j++) {
            const unsigned first = code_first_byte(j, w), last = code_last_byte(j, w);
            t.row[w - 3][2 * j] = static_cast<ub1>(last);
            t.row[w - 3][2 * j + 1] = first != last ? static_cast<ub1>(first) : 0x80;
        }
    return t;
}();

// The bits of code j in its lane.
inline constexpr spak_lane_rows tavo_spak_decode_and_masks = [] {
    spak_lane_rows t{};
    for (unsigned w = 3; w <= 10; w++)
        for (unsigned j = 0; j < 8; j++)
            t.row[w - 3][j] = static_cast<ub2>(((1u << w) - 1) << code_shift(j, w));
    return t;
}();

// Position of the least significant bit of code j in its lane.
inline constexpr spak_lane_rows tavo_spak_decode_shift_masks = [] {
    spak_lane_rows t{};
    for (unsigned w = 3; w <= 10; w++)
        for (unsigned j = 0; j < 8; j++)
            t.row[w - 3][j] = static_cast<ub2>(code_shift(j, w));
    return t;
}();

// Row of width 9: code 7 is the last bit of byte 7 and all of byte 8.
static_assert(tavo_spak_decode_shuffle_masks.row[6][14] == 8 && tavo_spak_decode_shuffle_masks.row[6][15] == 7 &&
              tavo_spak_decode_and_masks.row[6][7] == 0x1ff && tavo_spak_decode_shift_masks.row[6][7] == 0);
// Row of width 3: code 0 is the top of byte 0, code 2 lies across bytes 0 and 1.
static_assert(tavo_spak_decode_shuffle_masks.row[0][1] == 0x80 && tavo_spak_decode_shuffle_masks.row[0][4] == 1 &&
              tavo_spak_decode_shuffle_masks.row[0][5] == 0 && tavo_spak_decode_and_masks.row[0][0] == 0xe0 &&
              tavo_spak_decode_shift_masks.row[0][2] == 7);

} // namespace tavo
