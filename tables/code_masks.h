// How the W-bit codes of a packed stream lie in byte, 16-bit or 32-bit lanes, when the bytes that hold code j are put
// into lane j with the byte of the code's last bits lowest.
#pragma once

#include <initializer_list>

#include "frame/tavo_types.h"

namespace tavo {

// Position of the least significant bit of code j in its lane: codes are packed most significant bit first.
constexpr unsigned code_shift(unsigned j, unsigned width) { return 7 - (j * width + width - 1) % 8; }
constexpr unsigned code_first_byte(unsigned j, unsigned width) { return j * width / 8; }
constexpr unsigned code_last_byte(unsigned j, unsigned width) { return (j * width + width - 1) / 8; }

// Bytes of a lane in the three tables below.
constexpr unsigned code_lane_bytes(unsigned width) {
    switch (width) {
    case 1:
    case 2:
    case 4:
    case 8: return 1;
    case 3:
    case 5:
    case 6:
    case 7:
    case 9:
    case 10:
    case 12:
    case 16: return 2;
    default: return 4;
    }
}

template <unsigned Rows>
struct alignas(64) mask_rows_32 {
    ub1 row[Rows][32];

    constexpr void put(unsigned r, unsigned lane, unsigned lane_bytes, ub8 value) {
        for (unsigned i = 0; i < lane_bytes; i++)
            row[r][lane * lane_bytes + i] = static_cast<ub1>(value >> 8 * i);
    }
};

// Row W - 1, W = 1 to 24: the position of each code's least significant bit. Behind them two rows each for W = 5, 6, 7
// (byte lanes) and 13, 14, 15 (16-bit lanes) with (1 << W) - 1 in every lane.
constexpr unsigned low_mask_row(unsigned width) { return 24 + 2 * (width < 8 ? width - 5 : width - 10); }
inline constexpr mask_rows_32<36> tavo_shift_masks = [] {
    mask_rows_32<36> t{};
    for (unsigned w = 1; w <= 24; w++)
        for (unsigned j = 0, b = code_lane_bytes(w); j < 32 / b; j++)
            t.put(w - 1, j, b, code_shift(j, w));
    for (unsigned w : {5u, 6u, 7u, 13u, 14u, 15u})
        for (unsigned r = low_mask_row(w), i = 0, b = w < 8 ? 1 : 2; i < 2 * 32 / b; i++)
            t.put(r + i / (32 / b), i % (32 / b), b, (1u << w) - 1);
    return t;
}();

// Row W - 1: the bits of each code in its lane.
inline constexpr mask_rows_32<24> tavo_and_masks = [] {
    mask_rows_32<24> t{};
    for (unsigned w = 1; w <= 24; w++)
        for (unsigned j = 0, b = code_lane_bytes(w); j < 32 / b; j++)
            t.put(w - 1, j, b, ((1ull << w) - 1) << code_shift(j, w));
    return t;
}();

// Row W - 1: selectors of a byte shuffle that brings code i of the stream into lane i. Those of each 16-byte half count
// from the first byte of the half's first code.
constexpr unsigned half_first_byte(unsigned half, unsigned width) {
    return code_first_byte(half * 16 / code_lane_bytes(width), width);
}
inline constexpr mask_rows_32<24> tavo_shuffle_masks = [] {
    mask_rows_32<24> t{};
    for (unsigned w = 1; w <= 24; w++)
        for (unsigned j = 0, b = code_lane_bytes(w); j < 32 / b; j++)
            for (unsigned k = 0; k < b; k++) {
                const unsigned first = code_first_byte(j, w), last = code_last_byte(j, w);
                t.row[w - 1][j * b + k] =
                    k <= last - first ? static_cast<ub1>(last - k - half_first_byte(j * b / 16, w)) : 0x80;
            }
    return t;
}();

static_assert(tavo_shift_masks.row[2][0] == 5 && tavo_shift_masks.row[2][2] == 2 && tavo_shift_masks.row[2][4] == 7 &&
              tavo_shift_masks.row[2][6] == 4 && tavo_shift_masks.row[2][14] == 0);
static_assert(tavo_and_masks.row[11][0] == 0xf0 && tavo_and_masks.row[11][1] == 0xff &&
              tavo_and_masks.row[11][2] == 0xff && tavo_and_masks.row[11][3] == 0x0f);
static_assert(tavo_shuffle_masks.row[8][0] == 1 && tavo_shuffle_masks.row[8][1] == 0 &&
              tavo_shuffle_masks.row[8][16] == 1);

} // namespace tavo
