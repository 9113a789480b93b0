#include "host/column/symbol_table.h"

#include <algorithm>
#include <bit>
#include <fmt/format.h>

#include "host/column/packing.h"
#include "host/error.h"

namespace host {

namespace {
constexpr std::size_t block_symbols = 16, longest_front_coded = 8;

ub4 big_endian(ub8 value) { return __builtin_bswap32(static_cast<ub4>(value)); }
} // namespace

std::vector<ub1> front_code(std::span<const std::string> symbols, std::size_t length) {
    std::vector<ub1> blocks;
    for (std::size_t first = 0; first < symbols.size(); first += block_symbols) {
        const auto block = symbols.subspan(first, std::min(block_symbols, symbols.size() - first));
        std::size_t shared = length;
        for (const std::string &symbol : block) {
            const auto differs =
                std::mismatch(symbol.begin(), symbol.begin() + static_cast<std::ptrdiff_t>(shared), block[0].begin());
            shared = static_cast<std::size_t>(differs.first - symbol.begin());
        }
        blocks.push_back(static_cast<ub1>(shared));
        blocks.insert(blocks.end(), block[0].begin(), block[0].begin() + static_cast<std::ptrdiff_t>(shared));
        for (const std::string &symbol : block)
            blocks.insert(blocks.end(), symbol.begin() + static_cast<std::ptrdiff_t>(shared), symbol.end());
    }
    return blocks;
}

symbol_table::symbol_table(const std::string &column, std::span<const std::string> symbols)
    : count_(static_cast<ub4>(symbols.size())) {
    ub8 total = 0;
    bool one_length = true;
    for (const std::string &symbol : symbols) {
        if (symbol.size() > 0xffff)
            throw error(fmt::format("column {} does not fit: it has a value of {} bytes, where 65535 is the limit",
                                    column, symbol.size()));
        total += symbol.size();
        one_length = one_length && symbol.size() == symbols[0].size();
    }
    if (total > 0xffffffff)
        throw error(fmt::format("column {} does not fit: its different values take {} bytes, where 4 GiB is the limit",
                                column, total));
    symbol_bytes_ = static_cast<ub4>(total);
    const std::size_t length = symbols.empty() ? 0 : symbols[0].size();
    if (one_length) {
        length_[0] = static_cast<ub1>(length >> 8);
        length_[1] = static_cast<ub1>(length);
        held_bytes_ = plain_bytes_ = total + sizeof length_;
        if (length >= 1 && length <= longest_front_coded) {
            front_ = front_code(symbols, length);
            if (front_.size() < total) {
                held_bytes_ = front_.size() + sizeof length_;
                front_.resize(front_.size() + readable_behind);
                return;
            }
            front_.clear();
        }
    } else {
        cla_.reserve(symbols.size() + 1);
        ub8 end = 0;
        cla_.push_back(0);
        for (const std::string &symbol : symbols)
            cla_.push_back(big_endian(end += symbol.size()));
        held_bytes_ = plain_bytes_ = total + cla_.size() * sizeof(ub4);
        cla_.resize(cla_.size() + readable_behind / sizeof(ub4));
    }
    bytes_.reserve(total + readable_behind);
    for (const std::string &symbol : symbols)
        bytes_.insert(bytes_.end(), symbol.begin(), symbol.end());
    bytes_.resize(total + readable_behind);
}

void symbol_table::describe(tavo_enc_ctx &enc) {
    enc.flags |= TAVO_DICT;
    enc.symbol_count = count_;
    enc.symbols = std::bit_cast<ub8>(bytes_.data());
    if (one_length()) {
        enc.dict_kind = TAVO_DICT_ONE_LEN;
        enc.symbol_len = reinterpret_cast<ub2 *>(length_);
    } else {
        enc.dict_kind = TAVO_DICT_CLA;
        enc.cla = cla_.data();
    }
}

bool symbol_table::expand(const tavo_specialized_ctx &ctx, tavo_enc_ctx &enc) {
    if (!front_coded() || !bytes_.empty())
        return false;
    if (ctx.prefix_decode == nullptr)
        throw error("the library has no operation tavo_prefix_decode_dydi");
    bytes_.resize(symbol_bytes_ + readable_behind);
    tavo_enc_ctx front{};
    front.prefix_block = block_symbols;
    front.prefix_len = static_cast<sb2>(symbol_bytes_ / count_);
    front.prefix_count = count_;
    tavo_vec src{}, dst{};
    src.data = front_.data();
    src.enc = &front;
    src.size = (count_ + block_symbols - 1) / block_symbols;
    dst.data = bytes_.data();
    if (const ub4 status = ctx.prefix_decode(&dst, &src, nullptr); status != TAVO_DONE)
        throw error(fmt::format("tavo_prefix_decode_dydi failed with status {}", status));
    enc.symbols = std::bit_cast<ub8>(bytes_.data());
    return true;
}

} // namespace host
