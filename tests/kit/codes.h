// Packed code streams, the plain way: bit by bit, most significant bit first.
#pragma once

#include <random>
#include <vector>

#include "frame/tavo_types.h"

namespace tavo::test {

// Where every lane is an access of its own, and a sanitizer looks at each, columns are shorter.
#ifdef TAVO_PORTABLE
inline constexpr bool every_lane_costs = true;
#else
inline constexpr bool every_lane_costs = false;
#endif

// The code widths of the dictionary kernels.
inline const std::vector<unsigned> &code_widths() {
    static const std::vector<unsigned> widths = {1,  2,  3,  4,  5,  6,  7,  8,  9,  10, 11, 12,
                                                 13, 14, 15, 16, 17, 18, 19, 20, 24, 32, 64};
    return widths;
}
inline ub8 largest_code(unsigned width) { return width == 64 ? ~0ull : (1ull << width) - 1; }

// `behind` bytes of noise follow the last code byte.
inline std::vector<ub1> pack_codes(const std::vector<ub8> &codes, unsigned width, std::size_t behind = 0) {
    std::vector<ub1> out((codes.size() * width + 7) / 8 + behind, 0);
    std::size_t position = 0;
    for (ub8 code : codes)
        for (unsigned bit = width; bit-- > 0; position++)
            if (code >> bit & 1)
                out[position / 8] |= static_cast<ub1>(0x80 >> position % 8);
    for (std::size_t bit = position; bit < out.size() * 8; bit++) // noise, also in the last code byte's spare bits
        if ((bit * 2654435761u >> 7) & 1)
            out[bit / 8] |= static_cast<ub1>(0x80 >> bit % 8);
    return out;
}

inline std::vector<ub8> unpack_codes(const ub1 *packed, std::size_t n, unsigned width) {
    std::vector<ub8> codes(n, 0);
    for (std::size_t bit = 0; bit < n * width; bit++)
        codes[bit / width] = codes[bit / width] << 1 | (packed[bit / 8] >> (7 - bit % 8) & 1);
    return codes;
}

// Codes that favour the ends of their range, where comparisons go wrong.
inline std::vector<ub8> random_codes(std::size_t n, unsigned width, std::mt19937_64 &rng) {
    const ub8 top = largest_code(width);
    std::vector<ub8> codes(n);
    for (ub8 &code : codes)
        switch (rng() % 8) {
        case 0: code = 0; break;
        case 1: code = top; break;
        case 2: code = top / 2 + (rng() & 1); break;
        default: code = rng() & top;
        }
    return codes;
}

// Row counts around every block and word boundary.
inline const std::vector<ub4> &boundary_sizes() {
    static const std::vector<ub4> sizes = {0,   1,   15,  16,  17,  31,  32,  33,  63,   64,   65,   127, 128,
                                           129, 255, 256, 257, 511, 512, 513, 767, 1023, 1024, 1025, 4097};
    return sizes;
}

} // namespace tavo::test
