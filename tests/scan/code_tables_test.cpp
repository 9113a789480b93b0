// The constant tables of packed codes against their rules, stated a second way: by the stream bits of each code.
#include <gtest/gtest.h>

#include <cstring>

#include "tables/unpack_masks.h"

namespace tavo::test {
namespace {

// What the bytes of a shuffled, then shifted lane hold of the stream: the number of the stream bit at each bit of the
// lane, or -1 for a zero. `selectors` pick the lane's bytes, lowest first, relative to stream byte `start`.
std::vector<int> stream_bits_of_lane(const ub1 *selectors, unsigned bytes, unsigned start) {
    std::vector<int> bits(8 * bytes, -1);
    for (unsigned i = 0; i < bytes; i++)
        if (selectors[i] < 0x80)
            for (unsigned bit = 0; bit < 8; bit++)
                bits[8 * i + bit] = static_cast<int>(8 * (start + selectors[i]) + 7 - bit);
    return bits;
}

// The code's bits, last one lowest, must stand at `place` and up.
void expect_code_at(const std::vector<int> &bits, unsigned code, unsigned width, unsigned place, const char *table) {
    for (unsigned k = 0; k < width; k++)
        ASSERT_EQ(bits[place + k], static_cast<int>((code + 1) * width - 1 - k))
            << table << " width " << width << " code " << code;
}

template <class T>
T value_at(const ub1 *row, unsigned lane) {
    T value;
    std::memcpy(&value, row + lane * sizeof value, sizeof value);
    return value;
}

TEST(CodeTables, LanesOfHalfRegisters) {
    for (unsigned width = 1; width <= 24; width++) {
        const unsigned bytes = code_lane_bytes(width), lanes = 32 / bytes;
        for (unsigned lane = 0; lane < lanes; lane++) {
            const ub1 *selectors = tavo_shuffle_masks.row[width - 1] + lane * bytes;
            ub4 shift = 0, mask = 0;
            std::memcpy(&shift, tavo_shift_masks.row[width - 1] + lane * bytes, bytes);
            std::memcpy(&mask, tavo_and_masks.row[width - 1] + lane * bytes, bytes);
            EXPECT_EQ(shift, (8 * width - (lane + 1) * width % 8) % 8);
            EXPECT_EQ(mask, ((1ull << width) - 1) << shift);
            const unsigned first_lane = lane * bytes / 16 * (16 / bytes); // of this half
            expect_code_at(stream_bits_of_lane(selectors, bytes, first_lane * width / 8), lane, width, shift,
                           "tavo_shuffle_masks");
            for (unsigned i = 0; i < bytes; i++) // a byte that holds none of the code's bits is zero
                EXPECT_EQ(selectors[i] == 0x80, 8 * i >= shift + width) << width << " " << lane;
        }
    }
    for (unsigned width : {5u, 6u, 7u})
        for (unsigned i = 0; i < 64; i++)
            EXPECT_EQ(value_at<ub1>(tavo_shift_masks.row[low_mask_row(width)], i), (1u << width) - 1);
    for (unsigned width : {13u, 14u, 15u})
        for (unsigned i = 0; i < 32; i++)
            EXPECT_EQ(value_at<ub2>(tavo_shift_masks.row[low_mask_row(width)], i), (1u << width) - 1);
}

TEST(CodeTables, SixteenCodesToThirtyTwoBits) {
    for (unsigned width = 1; width <= 24; width++)
        for (unsigned code = 0; code < 16; code++) {
            const unsigned r = width - 1, quarter = code / 4;
            const ub2 *words = reinterpret_cast<const ub2 *>(tavo_avx512_unpack_to_32bit_lane_shuffle_masks.row[r]);
            for (unsigned word = 1; word < 8; word++)
                ASSERT_EQ(words[8 * quarter + word], words[8 * quarter] + word);
            ASSERT_EQ(words[8 * quarter], 4 * quarter * width / 8 / 2);
            expect_code_at(stream_bits_of_lane(tavo_avx512_unpack_to_32bit_shuffle_masks.row[r] + 4 * code, 4,
                                               2u * words[8 * quarter]),
                           code, width, value_at<ub4>(tavo_avx512_unpack_to_32bit_shift_masks.row[r], code),
                           "unpack_to_32bit");
        }
}

TEST(CodeTables, QuartersOfNarrowLanes) {
    for (unsigned quarter = 0; quarter < 4; quarter++)
        for (unsigned word = 0; word < 8; word++) {
            for (unsigned width = 1; width <= 8; width++)
                EXPECT_EQ(
                    value_at<ub2>(tavo_avx512_unpack_to_8bit_lane_shuffle_masks.row[width - 1], 8 * quarter + word),
                    quarter * width + word);
            for (unsigned width = 1; width <= 16; width++)
                EXPECT_EQ(
                    value_at<ub2>(tavo_avx512_unpack_to_16bit_lane_shuffle_masks.row[width - 1], 8 * quarter + word),
                    quarter * width / 2 + word);
        }
}

} // namespace
} // namespace tavo::test
