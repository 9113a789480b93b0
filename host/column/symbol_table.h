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

#include "host/column/block.h"

namespace host {

// Takes the symbols one by one, in their order.
class symbol_list {
public:
    static constexpr std::size_t longest = 0xffff;
    static constexpr ub8 most_bytes = 0xffffffff;

    // Room for the ends of so many symbols, taken over: the list writes entry i + 1 when symbol i is added.
    symbol_list(std::string column, block<ub4> room);

    // Throws if the symbol is longer than 65535 bytes, or all together are longer than 4 GiB - 1.
    void add(std::string_view symbol);
    // Room for the bytes of all symbols, which may be too much.
    void reserve(std::size_t bytes) { bytes_.reserve(bytes); }
    ub4 size() const { return size_; }
    std::string_view last() const {
        return {reinterpret_cast<const char *>(bytes_.data()) + last_, bytes_.size() - last_};
    }

private:
    friend class symbol_table;
    std::string column_;
    block<ub1> bytes_;
    block<ub4> cla_;
    ub4 size_ = 0;
    std::size_t first_length_ = 0, last_ = 0;
    bool one_length_ = true;
};

class symbol_table {
public:
    symbol_table() : symbol_table(symbol_list("", block<ub4>(1))) {}
    explicit symbol_table(symbol_list symbols);
    // Throws like the list.
    symbol_table(const std::string &column, std::span<const std::string> symbols);

    bool one_length() const { return cla_.empty(); }
    bool front_coded() const { return !front_.empty(); }
    ub8 plain_bytes() const { return plain_bytes_; } // of symbols and lengths
    ub8 held_bytes() const { return held_bytes_; }   // of the form that they are kept in

    ub4 size() const { return count_; }
    std::string operator[](ub8 code) const;

    // Fills in the dictionary fields of a column. The table must outlive their use, and stay where it is.
    void describe(tavo_enc_ctx &enc);

    // Expands front-coded symbols, once; nothing to do otherwise. Returns whether the library was called.
    bool expand(const tavo_specialized_ctx &ctx, tavo_enc_ctx &enc);

private:
    std::size_t length() const { return length_[0] * 256u + length_[1]; } // of each, if they have one

    block<ub1> bytes_; // the symbols, readable_behind bytes behind them; empty until front-coded ones are expanded
    block<ub1> front_; // front-coded blocks, readable_behind bytes behind them
    std::vector<ub4> front_at_;           // where each begins
    block<ub4> cla_;                      // big-endian
    alignas(ub2) ub1 length_[2] = {0, 0}; // big-endian
    ub4 count_ = 0, symbol_bytes_ = 0;
    ub8 plain_bytes_ = 0, held_bytes_ = 0;
};

// Blocks of 16 symbols of `length` bytes each: a byte k, the k bytes with which all symbols of the block begin, and of
// each symbol the rest. The last block may have fewer. `symbols` are the symbols one behind the other; `places`, if not
// null, receives where each block begins.
block<ub1> front_code(std::span<const ub1> symbols, std::size_t length, std::vector<ub4> *places = nullptr);

} // namespace host
