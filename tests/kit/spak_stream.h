// Writing spak streams, for tests and benchmarks: of any dictionary and codes.
#pragma once

#include <span>
#include <vector>

#include "frame/tavo_types.h"

namespace tavo::test {

// A stream as its parts: to be taken apart, spoiled and put together at will.
struct spak_stream {
    std::vector<std::vector<ub1>> symbols; // each of 0 to 8 bytes
    std::vector<ub4> codes;
    ub1 format = 0, flags = 0x02;
    sb2 aux_count = 0;
    std::vector<ub1> aux_body; // what lies between the auxiliary block's word and the codes
    ub1 nibble_noise = 0xf;    // the unused nibble of an odd number of symbols

    unsigned width() const; // of a code
    // What a decoder is to write: the symbols of the codes, one after another.
    std::vector<ub1> decoded() const;
    // The stream; raw_length is what decoded() comes to unless given.
    std::vector<ub1> bytes() const { return bytes(static_cast<ub4>(decoded().size())); }
    std::vector<ub1> bytes(ub4 raw_length) const;
};

// A stream that decodes to `plain`: every byte is a symbol.
spak_stream spak_of(std::span<const ub1> plain);

} // namespace tavo::test
