// Reading one code of a packed stream: the definition of the layout that every vector loop has to agree with.
//
// The code of row r is stream bits r*W to r*W + W - 1, most significant bit first, bit 0 being the top bit of byte 0.
// The read touches 4 bytes from the code's first byte on, so up to 3 past the last code byte, for all widths but 1, 8,
// 16, 32 and 64, which read the code alone.
#pragma once

#include <string.h>

#include <type_traits>

#include "frame/tavo_types.h"

namespace tavo {

inline ub4 load_big_endian_4(const ub1 *p) noexcept {
    ub4 word;
    memcpy(&word, p, sizeof word);
    return __builtin_bswap32(word);
}

template <unsigned W>
using code_value = std::conditional_t<(W > 32), ub8, ub4>;

// Position is the type in which the code's bit position is computed: ub8, or ub4 where a kernel wraps at 2^32 bits.
template <unsigned W, class Position = ub8>
[[gnu::always_inline]] inline code_value<W> packed_code(const ub1 *codes, ub8 row) noexcept {
    static_assert((W >= 1 && W <= 20) || W == 24 || W == 32 || W == 64);
    const ub8 bit = static_cast<Position>(row * W);
    const ub1 *p = codes + bit / 8;
    if constexpr (W == 1) {
        return *p >> (7 - bit % 8) & 1;
    } else if constexpr (W == 8) {
        return *p;
    } else if constexpr (W == 16) {
        ub2 word;
        memcpy(&word, p, sizeof word);
        return __builtin_bswap16(word);
    } else if constexpr (W == 24) {
        return load_big_endian_4(p) >> 8;
    } else if constexpr (W == 32) {
        return load_big_endian_4(p);
    } else if constexpr (W == 64) {
        ub8 word;
        memcpy(&word, p, sizeof word);
        return __builtin_bswap64(word);
    } else {
        return load_big_endian_4(p) << bit % 8 >> (32 - W);
    }
}

// The same with the width known at run time only, 1 to 25 bits or 32: it touches 4 bytes for every width.
[[gnu::always_inline]] inline ub4 packed_code(const ub1 *codes, ub8 row, unsigned width) noexcept {
    const ub8 bit = row * width;
    return load_big_endian_4(codes + bit / 8) << bit % 8 >> (32 - width);
}

} // namespace tavo
