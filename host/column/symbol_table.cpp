#include "host/column/symbol_table.h"

#include <algorithm>
#include <bit>
#include <cstring>
#include <fmt/format.h>

#include "host/column/packing.h"
#include "host/error.h"

namespace host {

namespace {

constexpr std::size_t block_symbols = 16, longest_front_coded = 8;

ub4 big_endian(ub8 value) { return __builtin_bswap32(static_cast<ub4>(value)); }

// Bytes with which all symbols of a block begin.
std::size_t shared_bytes(std::span<const ub1> block, std::size_t length) {
    std::size_t shared = length;
    for (std::size_t at = length; at < block.size(); at += length)
        while (std::memcmp(block.data(), block.data() + at, shared) != 0)
            shared--;
    return shared;
}

// Calls use(block, bytes that its symbols share) for each block of symbols.
template <class Use>
void each_block(std::span<const ub1> symbols, std::size_t length, Use use) {
    for (std::size_t first = 0; first < symbols.size(); first += block_symbols * length) {
        const auto block = symbols.subspan(first, std::min(block_symbols * length, symbols.size() - first));
        use(block, shared_bytes(block, length));
    }
}

ub8 front_coded_bytes(std::span<const ub1> symbols, std::size_t length) {
    ub8 bytes = 0;
    each_block(symbols, length, [&](std::span<const ub1> block, std::size_t shared) {
        bytes += 1 + shared + block.size() / length * (length - shared);
    });
    return bytes;
}

template <class T>
void fill_behind(block<T> &data) {
    const std::size_t size = data.size();
    data.resize(size + readable_behind / sizeof(T));
    std::fill(data.begin() + size, data.end(), T{});
    data.shrink();
}

} // namespace

block<ub1> front_code(std::span<const ub1> symbols, std::size_t length, std::vector<ub4> *places) {
    block<ub1> coded;
    each_block(symbols, length, [&](std::span<const ub1> block, std::size_t shared) {
        if (places != nullptr)
            places->push_back(static_cast<ub4>(coded.size()));
        coded.push_back(static_cast<ub1>(shared));
        coded.append(block.data(), shared);
        for (std::size_t at = 0; at < block.size(); at += length)
            coded.append(block.data() + at + shared, length - shared);
    });
    return coded;
}

symbol_list::symbol_list(std::string column, block<ub4> room) : column_(std::move(column)), cla_(std::move(room)) {
    if (cla_.empty())
        cla_.resize(1);
    cla_[0] = 0;
}

void symbol_list::add(std::string_view symbol) {
    if (symbol.size() > longest)
        throw error(fmt::format("column {} does not fit: it has a value of {} bytes, where {} is the limit", column_,
                                symbol.size(), longest));
    if (bytes_.size() + symbol.size() > most_bytes)
        throw error(fmt::format("column {} does not fit: its different values take more than 4 GiB, which is the limit",
                                column_));
    if (size_ == 0)
        first_length_ = symbol.size();
    one_length_ = one_length_ && symbol.size() == first_length_;
    last_ = bytes_.size();
    bytes_.append(reinterpret_cast<const ub1 *>(symbol.data()), symbol.size());
    size_++;
    if (size_ == cla_.size())
        cla_.push_back(0);
    cla_[size_] = big_endian(bytes_.size());
}

symbol_table::symbol_table(symbol_list list)
    : bytes_(std::move(list.bytes_)), count_(list.size_), symbol_bytes_(static_cast<ub4>(bytes_.size())) {
    const ub8 total = bytes_.size();
    if (list.one_length_) {
        list.cla_.clear();
        length_[0] = static_cast<ub1>(list.first_length_ >> 8);
        length_[1] = static_cast<ub1>(list.first_length_);
        held_bytes_ = plain_bytes_ = total + sizeof length_;
        if (length() >= 1 && length() <= longest_front_coded) {
            const ub8 coded = front_coded_bytes(bytes_, length());
            if (coded < total) {
                front_ = front_code(bytes_, length(), &front_at_);
                held_bytes_ = coded + sizeof length_;
                fill_behind(front_);
                bytes_.clear();
                return;
            }
        }
    } else {
        cla_ = std::move(list.cla_);
        cla_.resize(count_ + std::size_t{1});
        held_bytes_ = plain_bytes_ = total + cla_.size() * sizeof(ub4);
        fill_behind(cla_);
    }
    fill_behind(bytes_);
}

symbol_table::symbol_table(const std::string &column, std::span<const std::string> symbols)
    : symbol_table([&] {
          symbol_list list(column, {});
          for (const std::string &symbol : symbols)
              list.add(symbol);
          return list;
      }()) {}

std::string symbol_table::operator[](ub8 code) const {
    if (!one_length()) {
        const ub4 begin = big_endian(cla_[code]), end = big_endian(cla_[code + 1]);
        return {reinterpret_cast<const char *>(bytes_.data()) + begin, end - begin};
    }
    if (!front_coded())
        return {reinterpret_cast<const char *>(bytes_.data()) + code * length(), length()};
    const char *block = reinterpret_cast<const char *>(front_.data()) + front_at_[code / block_symbols];
    const std::size_t shared = static_cast<unsigned char>(*block), rest = length() - shared;
    std::string symbol(block + 1, shared);
    symbol.append(block + 1 + shared + code % block_symbols * rest, rest);
    return symbol;
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
    bytes_.resize(symbol_bytes_);
    fill_behind(bytes_);
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
