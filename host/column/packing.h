// Packed codes: W bits each, without gaps, the most significant bit first; code r occupies stream bits r*W to r*W + W -
// 1, and stream bit 0 is the most significant bit of byte 0.
#pragma once

#include <span>
#include <vector>

#include <tavo/tavo.h>

namespace host {

// Kernels load whole vectors: this many readable bytes follow the last code byte of every column.
constexpr std::size_t readable_behind = 64;

// The narrowest width with kernels, of 1 to 20, 24 and 32 bits, that holds all codes up to `largest`.
unsigned width_for(ub8 largest);

// Width code of the dispatch table.
unsigned width_code(unsigned width);

constexpr ub8 packed_bytes(ub8 codes, unsigned width) { return (codes * width + 7) / 8; }

// The packed stream, followed by readable_behind zero bytes. Each code must fit.
std::vector<ub1> pack(std::span<const ub4> codes, unsigned width);

} // namespace host
