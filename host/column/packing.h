// Packed codes: W bits each, without gaps, the most significant bit first; code r occupies stream bits r*W to r*W + W -
// 1, and stream bit 0 is the most significant bit of byte 0.
#pragma once

#include <span>
#include <vector>

#include <tavo/tavo.h>

#include "host/column/block.h"

namespace host {

// Kernels load whole vectors: this many readable bytes follow the last code byte of every column.
constexpr std::size_t readable_behind = 64;

// The narrowest width with kernels, of 1 to 20, 24 and 32 bits, that holds all codes up to `largest`.
unsigned width_for(ub8 largest);

// Width code of the dispatch table.
unsigned width_code(unsigned width);

constexpr ub8 packed_bytes(ub8 codes, unsigned width) { return (codes * width + 7) / 8; }

// The packed stream, followed by readable_behind zero bytes. Each code must fit.
block<ub1> pack(std::span<const ub4> codes, unsigned width);
// The same in the memory of the codes.
block<ub1> pack_in_place(block<ub4> codes, unsigned width);

// Codes of one width, one behind the other, written as they come.
class code_writer {
public:
    code_writer(ub1 *to, unsigned width) : to_(to), width_(width) {}
    void write(ub4 code) {
        pending_ = pending_ << width_ | code;
        for (bits_ += width_; bits_ >= 8; bits_ -= 8)
            *to_++ = static_cast<ub1>(pending_ >> (bits_ - 8));
    }
    // Writes the bits of a last byte that is not full; returns where the stream ends.
    ub1 *finish() {
        if (bits_ > 0)
            *to_++ = static_cast<ub1>(pending_ << (8 - bits_));
        bits_ = 0;
        return to_;
    }

private:
    ub1 *to_;
    unsigned width_, bits_ = 0;
    ub8 pending_ = 0; // its low bits_ bits wait to be written, the upper of them first
};

} // namespace host
