// The records of a partition step, each a size and how one is written for a row and its hash.
#pragma once

#include <cstring>

#include "frame/tavo_partition.h"
#include "portable/intrinsics.h"

namespace tavo {

[[gnu::always_inline]] inline void store_words(ub1 *to, const auto... words) noexcept {
    ub8 i = 0;
    ((std::memcpy(to + i, &words, sizeof(ub8)), i += sizeof(ub8)), ...);
}

struct hash_record {
    static constexpr ub8 size = 8;
    [[gnu::always_inline]] void write(ub1 *to, ub8, ub8 hash) const noexcept { store_words(to, hash); }
};

struct row_id_record {
    static constexpr ub8 size = 16;
    ub8 first_row;
    [[gnu::always_inline]] void write(ub1 *to, ub8 row, ub8 hash) const noexcept {
        store_words(to, first_row + row, hash);
    }
};

// A record that the source already holds: row id, hash.
struct copied_record {
    static constexpr ub8 size = 16;
    const ub1 *records;
    [[gnu::always_inline]] void write(ub1 *to, ub8 row, ub8) const noexcept {
        std::memcpy(to, records + row * size, size);
    }
};

template <class Value>
struct value_column {
    const ub1 *values;
    [[gnu::always_inline]] ub8 operator()(ub8 row) const noexcept {
        Value value;
        std::memcpy(&value, values + row * sizeof value, sizeof value);
        return value;
    }
};
template <class Value>
struct value_record {
    static constexpr ub8 size = 16;
    value_column<Value> value;
    [[gnu::always_inline]] void write(ub1 *to, ub8 row, ub8 hash) const noexcept { store_words(to, value(row), hash); }
};
template <class Value>
struct value_row_id_record {
    static constexpr ub8 size = 24;
    value_column<Value> value;
    ub8 first_row;
    [[gnu::always_inline]] void write(ub1 *to, ub8 row, ub8 hash) const noexcept {
        store_words(to, value(row), hash, first_row + row);
    }
};

struct key_reference {
    ub8 address, length;
};
// TAVO_LP
struct key_references {
    const ub1 *records;
    [[gnu::always_inline]] key_reference operator()(ub8 row) const noexcept {
        ub2 length;
        ub8 address;
        std::memcpy(&length, records + row * 10, sizeof length);
        std::memcpy(&address, records + row * 10 + 2, sizeof address);
        return {address, length};
    }
};
// TAVO_LP_SEP
struct key_addresses {
    const ub1 *addresses;
    const ub2 *lengths;
    [[gnu::always_inline]] key_reference operator()(ub8 row) const noexcept {
        ub8 address;
        std::memcpy(&address, addresses + row * 8, sizeof address);
        return {address, lengths[row]};
    }
};
template <class Keys>
struct key_reference_record {
    static constexpr ub8 size = 24;
    Keys key;
    [[gnu::always_inline]] void write(ub1 *to, ub8 row, ub8 hash) const noexcept {
        const auto [address, length] = key(row);
        store_words(to, address, length, hash);
    }
};
template <class Keys>
struct row_id_key_reference_record {
    static constexpr ub8 size = 32;
    Keys key;
    ub8 first_row;
    [[gnu::always_inline]] void write(ub1 *to, ub8 row, ub8 hash) const noexcept {
        const auto [address, length] = key(row);
        store_words(to, first_row + row, hash, address, length);
    }
};

struct fixed_key_record {
    static constexpr ub8 size = 24;
    static constexpr ub4 key_room = 16;
    const ub1 *keys;
    unsigned element_bytes;
    ub4 key_bytes;
    [[gnu::always_inline]] void write(ub1 *to, ub8 row, ub8 hash) const noexcept {
        store_words(to, hash);
        const auto key_m16 = static_cast<__mmask16>(_bzhi_u32(0xffff, key_bytes));
        _mm_storeu_si128(reinterpret_cast<__m128i *>(to + 8),
                         _mm_maskz_loadu_epi8(key_m16, keys + row * element_bytes));
    }
};

} // namespace tavo
