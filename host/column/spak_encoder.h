// Compresses bytes to a spak stream, which the library's spak_decode turns back.
//
// A stream is a head, a dictionary of up to 1024 symbols of 1 to 8 bytes, and a run of codes of one width, each naming
// a symbol; the symbols of the codes, one after another, are the bytes. All integers are big-endian:
//
//   0   4  "SPAK"                       18               lengths of the symbols, 4 bits each, high half first
//   4   1  0                            then             the symbols' bytes, one after another
//   5   1  flags, 0x02                  then         4   number of codes
//   6   4  0                            then             codes, packed, most significant bit first, of as many bits
//   10  2  0: no auxiliary areas                         as the largest code needs
//   12  4  bytes that it decodes to
//   16  2  symbols, N
#pragma once

#include <span>
#include <vector>

#include <tavo/tavo.h>

#include "host/column/block.h"

namespace host {

struct spak_symbol {
    ub8 bytes;       // the first one lowest; zero above the length
    unsigned length; // 1 to 8
    bool operator==(const spak_symbol &) const = default;
};
struct spak_dictionary {
    std::vector<spak_symbol> symbols;
    ub8 expected_bytes = 0; // of the whole stream, judged by a sample that the symbols were not made from
};
// A dictionary for these bytes, from a sample of them; every byte that occurs in them is a symbol.
spak_dictionary spak_train(std::span<const ub1> plain);

// Judged by a short training and a small sample: can a stream be expected to be clearly smaller than these bytes?
bool spak_may_pay(std::span<const ub1> plain);

struct spak_stream {
    block<ub1> bytes; // the stream, followed by readable_behind zero bytes
    ub8 size = 0;     // of the stream alone
};
// `plain` is at most 4 GiB - 1 bytes long, and the dictionary is from spak_train of it.
spak_stream spak_encode(std::span<const ub1> plain, const spak_dictionary &dictionary);

} // namespace host
