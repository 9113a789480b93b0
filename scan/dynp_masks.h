// Tables over one control byte of a dynp column: where its elements go, and how many source bytes they occupy.
//
// The field of a row is the element's length less one; the first row of a byte stands in its top bits. A shuffle brings
// each element into its lane as a number: the first byte, which is the most significant, into the lane's highest place,
// the others below it, and zeros for the bytes that the element leaves out.
#pragma once

#include "scan/control_stream.h"

namespace tavo {

struct alignas(64) dynp_shuffle_rows {
    ub1 row[256][16];
};
struct alignas(64) dynp_length_rows {
    ub1 row[256];
};

// The rows of numbers of Bytes bytes. A field that names more bytes than a number has counts as it stands, and the
// bytes too many are nowhere; selectors never leave the 16 bytes that are loaded.
template <unsigned Bytes>
constexpr dynp_shuffle_rows dynp_shuffles = [] {
    dynp_shuffle_rows t{};
    for (unsigned control = 0; control < 256; control++) {
        const ub1 stream[1] = {static_cast<ub1>(control)};
        for (ub1 &selector : t.row[control])
            selector = 0x80;
        for (unsigned lane = 0, start = 0; lane < 16 / Bytes; lane++) {
            const unsigned length = control_field<8 * Bytes>(stream, lane) + 1;
            for (unsigned i = 0; i < length && i < Bytes && start + i < 16; i++)
                t.row[control][lane * Bytes + Bytes - 1 - i] = static_cast<ub1>(start + i);
            start += length;
        }
    }
    return t;
}();
template <unsigned Bytes>
constexpr dynp_length_rows dynp_lengths = [] {
    dynp_length_rows t{};
    for (unsigned control = 0; control < 256; control++) {
        const ub1 stream[1] = {static_cast<ub1>(control)};
        for (unsigned lane = 0; lane < 16 / Bytes; lane++)
            t.row[control] = static_cast<ub1>(t.row[control] + control_field<8 * Bytes>(stream, lane) + 1);
    }
    return t;
}();

inline constexpr const dynp_shuffle_rows &tavo_shuffle_masks_dynp_maxwidth2 = dynp_shuffles<2>;
inline constexpr const dynp_shuffle_rows &tavo_shuffle_masks_dynp_maxwidth4 = dynp_shuffles<4>;
inline constexpr const dynp_shuffle_rows &tavo_shuffle_masks_dynp_maxwidth8 = dynp_shuffles<8>;
inline constexpr const dynp_length_rows &tavo_length_consumed_dynp_maxwidth2 = dynp_lengths<2>;
inline constexpr const dynp_length_rows &tavo_length_consumed_dynp_maxwidth4 = dynp_lengths<4>;
inline constexpr const dynp_length_rows &tavo_length_consumed_dynp_maxwidth8 = dynp_lengths<8>;

static_assert(tavo_length_consumed_dynp_maxwidth2.row[0xff] == 16 && tavo_length_consumed_dynp_maxwidth2.row[0] == 8 &&
              tavo_length_consumed_dynp_maxwidth4.row[0b11100100] == 10 &&
              tavo_length_consumed_dynp_maxwidth8.row[0x73] == 12);
static_assert(tavo_shuffle_masks_dynp_maxwidth2.row[0x80][0] == 1 && // a whole element first ...
              tavo_shuffle_masks_dynp_maxwidth2.row[0x80][1] == 0 &&
              tavo_shuffle_masks_dynp_maxwidth2.row[0x80][2] == 0x80 && // ... and then one of a single byte
              tavo_shuffle_masks_dynp_maxwidth2.row[0x80][3] == 2);

// The control byte of elements that all have this many bytes: its shuffle spreads and swaps elements of a fixed width.
template <unsigned Bytes>
constexpr ub1 equal_lengths(unsigned length) {
    unsigned control = 0;
    for (unsigned lane = 0; lane < 16 / Bytes; lane++)
        control = control << control_bits<8 * Bytes> | (length - 1);
    return static_cast<ub1>(control);
}

} // namespace tavo
