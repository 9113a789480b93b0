// A dictionary's symbols as the decode kernels take them.
//
//   one_len  all symbols have one length; symbol c starts at c times that length
//   cla      cumulative lengths, big-endian: symbol c is the bytes from entry c up to entry c + 1
//
// An empty symbol is the null symbol. Symbols of one length of 1 to 8 bytes are kept front-coded, 16 to a block, where
// that is smaller, and expanded by the library when values are first asked for.
#pragma once

#include <span>
#include <string>
#include <vector>

#include <tavo/tavo.h>

namespace host {

class symbol_table {
public:
    // Throws if a symbol is longer than 65535 bytes or all together than 4 GiB - 1.
    symbol_table(const std::string &column, std::span<const std::string> symbols);
    symbol_table(const symbol_table &) = delete;
    symbol_table &operator=(const symbol_table &) = delete;

    bool one_length() const { return cla_.empty(); }
    bool front_coded() const { return !front_.empty(); }
    ub8 plain_bytes() const { return plain_bytes_; } // of symbols and lengths
    ub8 held_bytes() const { return held_bytes_; }   // of the form that they are kept in

    // Fills in the dictionary fields of a column. The table must outlive their use.
    void describe(tavo_enc_ctx &enc);

    // Expands front-coded symbols, once; nothing to do otherwise. Returns whether the library was called.
    bool expand(const tavo_specialized_ctx &ctx, tavo_enc_ctx &enc);

private:
    std::vector<ub1>
        bytes_; // the symbols, readable_behind bytes behind them; empty until front-coded ones are expanded
    std::vector<ub1> front_;              // front-coded blocks, readable_behind bytes behind them
    std::vector<ub4> cla_;                // big-endian
    alignas(ub2) ub1 length_[2] = {0, 0}; // big-endian
    ub4 count_, symbol_bytes_ = 0;
    ub8 plain_bytes_ = 0, held_bytes_ = 0;
};

// Blocks of 16 symbols of `length` bytes each: a byte k, the k bytes with which all symbols of the block begin, and of
// each symbol the rest. The last block may have fewer.
std::vector<ub1> front_code(std::span<const std::string> symbols, std::size_t length);

} // namespace host
