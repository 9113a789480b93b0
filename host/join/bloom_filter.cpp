#include "host/join/bloom_filter.h"

#include <algorithm>
#include <bit>

namespace host {

bloom_filter::bloom_filter(ub8 hashes)
    : words_(std::max<ub8>(1, std::bit_ceil(std::clamp<ub8>(hashes, 1, ub8{1} << 28) * 16) / 64)) {
    enc_.hash_mask = enc_.bit_mask = static_cast<ub4>(words_.size() * 64 - 1);
    vec_.enc = &enc_;
    vec_.bits = words_.data();
}

bloom_filter::place bloom_filter::place_of(ub8 hash) const {
    const ub4 x = __builtin_bswap32(static_cast<ub4>(hash >> 32)), first = x & enc_.hash_mask & enc_.bit_mask;
    return {first / 64, ub8{1} << first % 64 | ub8{1} << (x >> 26 & enc_.hash_mask & enc_.bit_mask)};
}

void bloom_filter::add(std::span<const ub8> hashes) {
    for (const ub8 hash : hashes) {
        const place p = place_of(hash);
        words_[p.word] |= p.bits;
    }
}

bool bloom_filter::may_hold(ub8 hash) const {
    const place p = place_of(hash);
    return (words_[p.word] & p.bits) == p.bits;
}

} // namespace host
