// Nodes and records of the dictionary of dense group keys.
//
//   node    one cache line: word 0 has the lock in bit 0, the number of symbols in bits 1 to 5, from bit 6 on the
//   address
//           of the child; word 1 has the symbols' tags, a byte each; words 2 to 7 the addresses of their records
//   record  ub4 code, ub2 length, the symbol's bytes; packed without alignment
//   child   of the first three levels a page of 1024 nodes, which the next 10 bits of the hash choose from; further
//   down
//           one node
//
// Word 0 alone says what a reader may look at: tags and addresses below the count it read never change again.
#pragma once

#include <bit>
#include <cstring>

#include "frame/tavo_types.h"
#include "portable/intrinsics.h"

namespace tavo {

struct dense_node {
    ub8 head;
    ub8 tags;
    ub8 record[6];
};
static_assert(sizeof(dense_node) == 64);

constexpr unsigned node_symbols = 6;
constexpr ub8 node_lock = 1, node_one_symbol = 2, node_full = 2 * node_symbols;
constexpr unsigned page_nodes = 1024, page_index_bits = 10;
constexpr ub8 page_bytes = page_nodes * sizeof(dense_node), page_block_bytes = page_bytes + 64;
constexpr unsigned page_levels = 3; // levels whose children are pages

constexpr unsigned symbols_of(ub8 head) noexcept { return static_cast<unsigned>(head >> 1 & 31); }
constexpr ub8 child_of(ub8 head) noexcept { return head & ~ub8{63}; }

// What a hash of 64 bits gives: a tag, and 40 bits that choose the nodes.
struct dense_hash {
    ub8 walk;
    ub8 tags; // the tag in each of six bytes

    [[gnu::always_inline]] explicit dense_hash(ub8 hash) noexcept {
        const ub8 folded = hash ^ hash >> 48;
        walk = (folded ^ hash >> 48 << 48) >> 8;
        tags = (folded & 255) * 0x10101010101;
    }
};

// The first slot from `slot` on whose tag is the hash's; 6 if no tag byte is. The tags above the sixth byte are zero
// and end the search.
[[gnu::always_inline]] inline unsigned tagged_slot(ub8 node_tags, ub8 hash_tags, unsigned slot) noexcept {
    const ub8 v = node_tags >> 8 * slot ^ hash_tags >> 8 * slot;
    const ub8 zero_bytes = ~v & (v + 0xfffefefefefefeff) & 0x80808080808080;
    return slot + static_cast<unsigned>(std::countr_zero(zero_bytes)) / 8;
}

constexpr ub8 record_head = 6, record_length_at = 4;

template <class T>
[[gnu::always_inline]] inline T dense_load(const ub1 *p) noexcept {
    T value;
    std::memcpy(&value, p, sizeof value);
    return value;
}

// By 32 bytes at a time under a mask, so that symbols of up to 32 bytes, which most are, take no branch on their
// length.
[[gnu::always_inline]] inline bool same_bytes(const ub1 *a, const ub1 *b, ub8 n) noexcept {
    for (;; a += 32, b += 32, n -= 32) {
        const auto bytes_m32 = static_cast<__mmask32>(_bzhi_u32(~0u, n < 32 ? static_cast<unsigned>(n) : 32));
        const __mmask32 differ =
            _mm256_cmpneq_epu8_mask(_mm256_maskz_loadu_epi8(bytes_m32, a), _mm256_maskz_loadu_epi8(bytes_m32, b));
        if (differ != 0)
            return false;
        if (n <= 32) [[likely]]
            return true;
    }
}

struct dense_symbol {
    const ub1 *bytes;
    ub2 length;
};

[[gnu::always_inline]] inline bool record_is(const ub1 *record, dense_symbol symbol) noexcept {
    return dense_load<ub2>(record + record_length_at) == symbol.length &&
           same_bytes(record + record_head, symbol.bytes, symbol.length);
}

} // namespace tavo
