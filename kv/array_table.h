// The image of the array kinds: a key is an index, its slot leads to its rows.
//
//   arid4   region 0: groups of 8 keys: ub1 has_record, ub1 spilled (a bit a key), eight ub4 cells. A cell is 0, or row
//           id plus 1, or with has_record the id of a record.
//           region 1: records of 17 bytes: ub1 count, four ub4 values. Once spilled the count is 2, values 0 and 1
//           stay, and the address of the newest node takes the place of values 2 and 3. region 2: units of 2 bytes,
//           from which nodes are cut: ub2 count, ub2 capacity, address of the next node at byte 4, values from byte 12.
//           The nodes of a key are a ring; the newest leads to the oldest.
//   arid8   region 0: one tagged word a key (slot_tag).
//           region 1: units of 8 bytes: blocks of four words, and nodes: next, ub4 count, ub4 capacity, values. A block
//           that spills becomes the head of its list, with capacity 2. The newest node's next is the head's address
//           with bit 0 set: way back and end mark in one.
//   acnt    region 0: for 32 keys two ub4 words, a bit a key: seen, seen twice.
//           region 1: a ub8 a key: occurrences less one, of a key seen twice.
#pragma once

#include <cstring>

#include "frame/tavo_kv.h"

namespace tavo {

constexpr unsigned list_key_bits = 17;    // keys in a segment of arid4 and arid8
constexpr unsigned list_unit_log2 = 17;   // units in a segment of nodes
constexpr unsigned counter_key_bits = 18; // keys, and counters, in a segment of acnt
constexpr unsigned list4_group_bytes = 34, list4_record_bytes = 17, list4_record_log2 = 14, list4_unit_bytes = 2;
constexpr unsigned list4_inline_rows = 4, list4_spilled_rows = 2;
constexpr ub4 largest_node = 4000; // rows of an arid4 node, units of an arid8 node

// Unaligned fields.
template <class T>
[[gnu::always_inline]] inline T load_as(const void *p) noexcept {
    T v;
    std::memcpy(&v, p, sizeof v);
    return v;
}
template <class T>
[[gnu::always_inline]] inline void store_as(void *p, T v) noexcept {
    std::memcpy(p, &v, sizeof v);
}

// How a list grows: the figure for the node behind one of this capacity.
inline ub4 grown(ub4 capacity) noexcept {
    const double wanted = (capacity + 2.0) * 1.618;
    return wanted < largest_node ? static_cast<ub4>(wanted) : largest_node;
}

// Element `id` of a region of elements of `Bytes` bytes; null if its segment has no address.
template <unsigned Bytes>
inline ub1 *element_of(const tavo_kv_region &region, ub8 id) noexcept {
    auto *segment = static_cast<ub1 *>(region.segments[id >> region.element_bits]);
    return segment ? segment + (id & ((ub8{1} << region.element_bits) - 1)) * Bytes : nullptr;
}

// ---- arid4 ----

struct list4_key {
    ub1 *group;
    unsigned bit; // the key's number in its group

    bool has_record() const noexcept { return group[0] >> bit & 1; }
    bool spilled() const noexcept { return group[1] >> bit & 1; }
    void set_record() const noexcept { group[0] |= static_cast<ub1>(1u << bit); }
    void set_spilled() const noexcept { group[1] |= static_cast<ub1>(1u << bit); }
    ub4 cell() const noexcept { return load_as<ub4>(group + 2 + 4 * bit); }
    void set_cell(ub4 v) const noexcept { store_as(group + 2 + 4 * bit, v); }
};

inline list4_key list4_key_of(const tavo_kv *kv, ub4 key) noexcept {
    auto *segment = static_cast<ub1 *>(kv->region[0].segments[key >> list_key_bits]);
    return {segment + ((key & ((1u << list_key_bits) - 1)) >> 3) * list4_group_bytes, key & 7};
}

struct list4_record {
    ub1 *at;

    ub4 count() const noexcept { return at[0]; }
    void set_count(ub4 n) const noexcept { at[0] = static_cast<ub1>(n); }
    ub1 *value(ub4 i) const noexcept { return at + 1 + 4 * i; }
    ub1 *newest() const noexcept { return load_as<ub1 *>(at + 9); }
    void set_newest(ub1 *node) const noexcept { store_as(at + 9, node); }
    // A record of four whose first node was refused is marked as spilled and holds its four rows all the same.
    bool has_nodes(const list4_key &key) const noexcept { return key.spilled() && count() == list4_spilled_rows; }
};

struct list4_node {
    static constexpr unsigned header = 12, first_capacity = 8;
    ub1 *at;

    ub4 count() const noexcept { return load_as<ub2>(at); }
    void set_count(ub4 n) const noexcept { store_as(at, static_cast<ub2>(n)); }
    ub4 capacity() const noexcept { return load_as<ub2>(at + 2); }
    void set_capacity(ub4 n) const noexcept { store_as(at + 2, static_cast<ub2>(n)); }
    ub1 *next() const noexcept { return load_as<ub1 *>(at + 4); }
    void set_next(ub1 *node) const noexcept { store_as(at + 4, node); }
    ub1 *value(ub4 i) const noexcept { return at + header + 4 * i; }
    static constexpr ub4 units(ub4 capacity) noexcept { return (capacity * 4 + header + 1) >> 1; }
};
static_assert(list4_node::units(list4_node::first_capacity) == 22);

// ---- arid8 ----

enum slot_tag : ub8 { block_of_two = 1, block_of_three = 3, block_of_four = 5, list_of_nodes = 7 };
constexpr ub8 slot_tags = 7;

inline ub8 *list8_slot_of(const tavo_kv *kv, ub4 key) noexcept {
    auto *segment = static_cast<ub8 *>(kv->region[0].segments[key >> list_key_bits]);
    return segment + (key & ((1u << list_key_bits) - 1));
}
inline ub8 single_row(ub8 slot) noexcept { return (slot >> 1) - 1; } // of a slot with an even tag
inline ub8 *block_of(ub8 slot) noexcept { return reinterpret_cast<ub8 *>(slot & ~slot_tags); }
constexpr unsigned block_units = 4;
// The rows of a block by age: two to four of them are in use.
constexpr unsigned block_word[4] = {2, 3, 0, 1};

struct list8_node {
    static constexpr ub4 first_capacity = 7, header_units = 2;
    ub8 next; // a node, or with bit 0 set the list's head
    ub4 count, capacity;

    ub8 *values() noexcept { return reinterpret_cast<ub8 *>(this + 1); }
    const ub8 *values() const noexcept { return reinterpret_cast<const ub8 *>(this + 1); }
};
static_assert(sizeof(list8_node) == 16);
inline list8_node *node_of(ub8 slot) noexcept { return reinterpret_cast<list8_node *>(slot & ~slot_tags); }

// ---- acnt ----

struct seen_bits {
    ub4 *words; // seen, seen twice
    unsigned bit;

    bool once() const noexcept { return words[0] >> bit & 1; }
    bool twice() const noexcept { return words[1] >> bit & 1; }
    void set_once() const noexcept { words[0] |= 1u << bit; }
    void set_twice() const noexcept { words[1] |= 1u << bit; }
};
inline seen_bits seen_bits_of(const tavo_kv *kv, ub4 key) noexcept {
    auto *segment = static_cast<ub4 *>(kv->region[0].segments[key >> counter_key_bits]);
    return {segment + 2 * ((key & ((1u << counter_key_bits) - 1)) >> 5), key & 31};
}
inline ub8 *counter_of(const tavo_kv *kv, ub4 key) noexcept {
    auto *segment = static_cast<ub8 *>(kv->region[1].segments[key >> counter_key_bits]);
    return segment + (key & ((1u << counter_key_bits) - 1));
}

} // namespace tavo
