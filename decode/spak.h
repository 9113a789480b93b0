// Decompression of spak streams: the compression format of a column's packed codes.
//
// A stream is a dictionary of 1 to 1024 byte strings (symbols) of 0 to 8 bytes, and C codes of W = ceil(log2 N) bits,
// each standing for one symbol; the decoded bytes are the symbols one after another. Integers are big-endian, sections
// follow each other without padding:
//
//    0  "SPAK"
//    4  format byte, 0
//    5  flags: bit 1 set, bits 3 and 0 clear, the others ignored
//    6  reserved, 4 bytes, not read
//   10  aux_count, signed 2 bytes: above 0 the two auxiliary areas are present
//   12  raw_length, 4 bytes: bytes that the stream decodes to
//   16  symbol count N, 2 bytes
//   18  N length nibbles, high nibble first, (N + 1) / 2 bytes
//       auxiliary word table, 2N bytes, skipped                         (only if aux_count > 0)
//       the symbols' bytes, back to back
//       code count C, 4 bytes
//       auxiliary block: a 4-byte word whose upper 25 bits are the      (only if aux_count > 0)
//       distance from that word to the codes; the rest is not read
//       C codes, packed, most significant bit first
#pragma once

#include <bit>

#include "frame/tavo_env.h"

namespace tavo {

constexpr ub4 spak_magic = 0x5350414b; // "SPAK"
constexpr ub1 spak_flag_required = 0x02;
constexpr ub1 spak_flags_refused = 0x09;
constexpr ub4 spak_head_size = 18;
constexpr ub4 spak_widest_code = 10;

// Code width of a dictionary of n symbols, ceil(log2 n): 0 for a single one. No symbols at all give 32, too wide.
[[gnu::always_inline]] constexpr ub4 spak_code_width(ub4 n) { return static_cast<ub4>(std::bit_width(n - 1)); }

} // namespace tavo

extern "C" {
// Decodes the stream at src into dst, which has room for `capacity` bytes. Returns TAVO_DONE, with *out_len equal to
// the head's raw_length, or TAVO_BAD_INPUT: the head is refused (nothing allocated, *out_len and dst untouched), or the
// symbols decoded didn't add up to raw_length (*out_len is what they came to, dst holds them). Scratch comes from
// ctx->temp_allocate and is released before return.
//
// Once the head has passed, N, C and the lengths are trusted: dst has to have room for the symbols' true sum, which is
// raw_length in a sound stream; nothing behind it is written. What is read past the stream: one byte behind the last
// code, and, if it ends sooner than that, up to 8 bytes from the start of the last symbol. The loops prefetch 512 bytes
// ahead on both sides.
//
// For W below 3 only the last 32 to 63 codes (all of them, up to 63) are decoded by value: in the blocks before them
// each code counts as 0. An encoder doesn't send longer streams of such dictionaries.
tavo_spak_decode_fn tavo_spak_decode_dydi;

// The code loops of the wide codes: decode `count` codes of 8, 9, 10 bits to dst and return the bytes written. symbols
// and lengths are indexed by code; only the first lengths[c] bytes of symbols[c] belong to the symbol. Nothing is
// written behind the bytes returned.
typedef ub8 tavo_spak_codes_fn(const ub1 *codes, ub4 count, const ub8 *symbols, const ub1 *lengths,
                               ub1 *dst) TAVO_NOEXCEPT;
tavo_spak_codes_fn spak_decode_dict_8_bit;
tavo_spak_codes_fn spak_decode_dict_9_bit;
tavo_spak_codes_fn spak_decode_dict_10_bit;
}
