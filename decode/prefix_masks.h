// Byte shuffles of front-coded dictionaries, [symbol length - 1][prefix length], for a piece of the output of 16 bytes
// that holds 4 symbols of up to 4 bytes or 2 longer ones.
#pragma once

#include "frame/tavo_types.h"

namespace tavo {

constexpr unsigned longest_prefix_symbol = 8;
constexpr unsigned prefix_register_symbols(unsigned length) { return length <= 4 ? 4 : 2; }

struct alignas(64) prefix_mask_rows {
    ub1 row[longest_prefix_symbol][longest_prefix_symbol + 1][16];
};

// Selector of byte i of symbol s, or 0x80 where the other row has one, and behind the symbols.
template <class Selector>
consteval prefix_mask_rows make_prefix_masks(Selector selector) {
    prefix_mask_rows t{};
    for (unsigned w = 1; w <= longest_prefix_symbol; w++)
        for (unsigned k = 0; k <= longest_prefix_symbol; k++)
            for (unsigned byte = 0; byte < 16; byte++)
                t.row[w - 1][k][byte] =
                    k <= w && byte < prefix_register_symbols(w) * w ? selector(w, k, byte / w, byte % w) : 0x80;
    return t;
}

// Prefix bytes 0 to k - 1 to the first k bytes of each symbol.
inline constexpr prefix_mask_rows tavo_prefix_decode_prefix_masks =
    make_prefix_masks([](unsigned, unsigned k, unsigned, unsigned i) { return static_cast<ub1>(i < k ? i : 0x80); });
// The suffix bytes, back to back, to the other w - k bytes of each symbol.
inline constexpr prefix_mask_rows tavo_prefix_decode_suffix_masks =
    make_prefix_masks([](unsigned w, unsigned k, unsigned s, unsigned i) {
        return static_cast<ub1>(i < k ? 0x80 : s * (w - k) + i - k);
    });

// [suffix words of a piece]: word indices that give piece i, quarter i of the register, the suffix bytes from its own
// on.
struct alignas(64) piece_word_rows {
    ub2 row[longest_prefix_symbol + 1][32];
};
inline constexpr piece_word_rows piece_words = [] {
    piece_word_rows t{};
    for (unsigned words = 0; words <= longest_prefix_symbol; words++)
        for (unsigned word = 0; word < 32; word++)
            t.row[words][word] = static_cast<ub2>(word / 8 * words + word % 8);
    return t;
}();

static_assert(tavo_prefix_decode_prefix_masks.row[2][1][3] == 0 &&
              tavo_prefix_decode_prefix_masks.row[2][1][4] == 0x80);
static_assert(tavo_prefix_decode_suffix_masks.row[2][1][3] == 0x80 &&
              tavo_prefix_decode_suffix_masks.row[2][1][5] == 3);

} // namespace tavo
