// Entering rows in the array kinds: a key is an index, each key has a list of its rows or a count of them.
//
// All rows up to a multiple of four go in batches: first all keys of a batch are checked and their slots fetched, then
// the rows are entered. The last rows go one by one. In a batch the last key of the mapped range does not pass; it
// passes among the last rows only. Hosts that want it have one segment more mapped.
#pragma once

#include <algorithm>

#include "frame/tavo_status.h"
#include "frame/tavoc_avx512g.h"
#include "kv/array_table.h"
#include "kv/row_source.h"

namespace tavo {

// What the adding of one row came to: 0, or why there was no room, with the status set.
using add_result = ub4;

// Row ids of 4 bytes.
struct list4_adder {
    using value = ub4;
    tavo_kv *kv;
    tavo_kv_alloc_fn *alloc;
    tavo_kv_status *status;

    void prefetch(ub4 key) const noexcept { _mm_prefetch(list4_key_of(kv, key).group, _MM_HINT_T0); }

    add_result add(ub4 key, ub4 v) const noexcept {
        const list4_key slot = list4_key_of(kv, key);
        if (slot.has_record())
            return tavo_kv_list4_append(slot, v);
        if (slot.cell() == 0) {
            slot.set_cell(v + 1);
            return TAVO_DONE;
        }
        if (kv->flags & TAVO_KV_UNIQUE)
            return TAVO_DONE;
        return tavo_kv_list4_append2(slot, v);
    }

private:
    // The second row of a key: its first record.
    add_result tavo_kv_list4_append2(list4_key slot, ub4 v) const noexcept {
        ub8 id = 0;
        if (const ub4 refused = alloc(&kv->region[1], 1, &id)) {
            missing(1, id >> list4_record_log2);
            return refused;
        }
        // The text is part of the interface, to the blank.
        // clang-format off
        TAVO_ASSERT(id == (ub4) id);
        // clang-format on
        const list4_record record{element_of<list4_record_bytes>(kv->region[1], id)};
        record.set_count(2);
        store_as(record.value(0), slot.cell() - 1);
        store_as(record.value(1), v);
        slot.set_record();
        slot.set_cell(static_cast<ub4>(id));
        return TAVO_DONE;
    }

    add_result tavo_kv_list4_append(list4_key slot, ub4 v) const noexcept {
        const list4_record record{element_of<list4_record_bytes>(kv->region[1], slot.cell())};
        if (!record.has_nodes(slot)) {
            const ub4 held = record.count();
            if (held < list4_inline_rows) {
                store_as(record.value(held), v);
                record.set_count(held + 1);
                return TAVO_DONE;
            }
            // The first node takes over the record's last two rows and leads to itself.
            const auto [at, refused] = new_node(slot, list4_node::first_capacity);
            if (!at)
                return refused;
            const list4_node node{at};
            node.set_count(3);
            node.set_capacity(list4_node::first_capacity);
            node.set_next(at);
            store_as(node.value(0), load_as<ub8>(record.value(2)));
            store_as(node.value(2), v);
            record.set_newest(at);
            record.set_count(list4_spilled_rows);
            slot.set_spilled();
            return TAVO_DONE;
        }
        const list4_node newest{record.newest()};
        const ub4 held = newest.count();
        if (held < newest.capacity()) {
            store_as(newest.value(held), v);
            newest.set_count(held + 1);
            return TAVO_DONE;
        }
        const ub4 capacity = grown(newest.capacity());
        const auto [at, refused] = new_node(slot, capacity);
        if (!at)
            return refused;
        const list4_node node{at};
        node.set_count(1);
        node.set_capacity(capacity);
        store_as(node.value(0), v);
        node.set_next(newest.next());
        newest.set_next(at);
        record.set_newest(at);
        return TAVO_DONE;
    }

    struct node_or_refusal {
        ub1 *at;
        ub4 refused;
    };
    // A refusal with exactly 1 drops the row and marks the key as spilled: the host has chosen to go without.
    node_or_refusal new_node(list4_key slot, ub4 capacity) const noexcept {
        ub8 id = 0;
        if (const ub4 refused = alloc(&kv->region[2], list4_node::units(capacity), &id)) {
            missing(2, id >> list_unit_log2);
            if (refused != 1)
                return {nullptr, refused};
            slot.set_spilled();
            return {nullptr, TAVO_DONE};
        }
        return {element_of<list4_unit_bytes>(kv->region[2], id), TAVO_DONE};
    }

    void missing(ub4 region_class, ub8 segment) const noexcept {
        status->build.region_class = region_class;
        status->build.segment = segment;
    }
};

// Row ids of 8 bytes.
struct list8_adder {
    using value = ub8;
    tavo_kv *kv;
    tavo_kv_alloc_fn *alloc;
    tavo_kv_status *status;

    void prefetch(ub4 key) const noexcept { _mm_prefetch(list8_slot_of(kv, key), _MM_HINT_T0); }

    add_result add(ub4 key, ub8 v) const noexcept {
        ub8 *slot = list8_slot_of(kv, key);
        switch (*slot & slot_tags) {
        case block_of_two: {
            block_of(*slot)[0] = v;
            *slot += 2;
            return TAVO_DONE;
        }
        case block_of_three: {
            block_of(*slot)[1] = v;
            *slot += 2;
            return TAVO_DONE;
        }
        case block_of_four: return spill(slot, v);
        case list_of_nodes: return append(slot, v);
        default: break;
        }
        if (*slot == 0) {
            *slot = v * 2 + 2;
            return TAVO_DONE;
        }
        if (kv->flags & TAVO_KV_UNIQUE)
            return TAVO_DONE;
        auto *block = static_cast<ub8 *>(units(block_units));
        if (!block)
            return TAVO_SEGMENT_MISSING;
        block[2] = single_row(*slot);
        block[3] = v;
        *slot = reinterpret_cast<ub8>(block) + block_of_two;
        return TAVO_DONE;
    }

private:
    // The fifth row: the block becomes the head of a list, its later two rows move to the first node.
    add_result spill(ub8 *slot, ub8 v) const noexcept {
        auto *node = static_cast<list8_node *>(units(list8_node::header_units + list8_node::first_capacity));
        if (!node)
            return TAVO_SEGMENT_MISSING;
        ub8 *block = block_of(*slot);
        node->next = reinterpret_cast<ub8>(block) + 1;
        node->count = 3;
        node->capacity = list8_node::first_capacity;
        node->values()[0] = block[0];
        node->values()[1] = block[1];
        node->values()[2] = v;
        block[0] = reinterpret_cast<ub8>(node);
        block[1] = ub8{2} << 32 | 2; // count and capacity of the head
        *slot = reinterpret_cast<ub8>(node) + list_of_nodes;
        return TAVO_DONE;
    }

    add_result append(ub8 *slot, ub8 v) const noexcept {
        list8_node *newest = node_of(*slot);
        if (newest->count < newest->capacity) {
            newest->values()[newest->count++] = v;
            return TAVO_DONE;
        }
        const ub4 words = grown(newest->capacity);
        auto *node = static_cast<list8_node *>(units(words));
        if (!node)
            return TAVO_SEGMENT_MISSING;
        node->next = newest->next;
        node->count = 1;
        node->capacity = words - list8_node::header_units;
        node->values()[0] = v;
        newest->next = reinterpret_cast<ub8>(node);
        *slot = reinterpret_cast<ub8>(node) + list_of_nodes;
        return TAVO_DONE;
    }

    void *units(ub4 n) const noexcept {
        ub8 id = 0;
        const ub4 refused = alloc(&kv->region[1], n, &id);
        void *at = refused ? nullptr : element_of<8>(kv->region[1], id);
        if (!at) {
            status->build.region_class = 1;
            status->build.segment = id >> list_unit_log2;
        }
        return at;
    }
};

// Occurrences.
struct counter_adder {
    tavo_kv *kv;
    tavo_kv_status *status;

    void prefetch(ub4 key) const noexcept { _mm_prefetch(seen_bits_of(kv, key).words, _MM_HINT_T0); }

    add_result add(ub4 key) const noexcept {
        const seen_bits seen = seen_bits_of(kv, key);
        if (!seen.once()) {
            seen.set_once();
            return TAVO_DONE;
        }
        if (kv->flags & TAVO_KV_UNIQUE)
            return TAVO_DONE;
        const ub4 segment = key >> counter_key_bits;
        if (segment >= kv->region[1].mapped_segments || !kv->region[1].segments[segment]) {
            status->build.region_class = 1;
            status->build.segment = segment;
            return TAVO_SEGMENT_MISSING;
        }
        ub8 *counter = counter_of(kv, key);
        *counter = seen.twice() ? *counter + 1 : 1;
        seen.set_twice();
        return TAVO_DONE;
    }
};

// Rows of the array kinds: Add(row) enters one, Key(row) is its key, Prefetch(key) fetches its slot. Keys below
// batch_limit pass in a batch, those below tail_limit among the last rows; a key that does not pass there is reported
// with tail_class.
template <class Key, class Prefetch, class Add>
ub4 add_to_array(ub4 count, sb8 batch_limit, sb8 tail_limit, ub4 tail_class, ub4 key_bits, ub4 *done,
                 tavo_kv_status *status, Key &&key_of, Prefetch &&prefetch, Add &&add) noexcept {
    const auto beyond = [&](ub4 region_class, ub4 key, ub4 row) -> ub4 {
        status->build.region_class = region_class;
        status->build.segment = key >> key_bits;
        *done = row;
        return TAVO_KEY_BEYOND_MAP;
    };
    const ub4 in_batches = count & ~3u;
    ub4 row = 0;
    while (row < in_batches) {
        const ub4 end = row + std::min(batch_rows, in_batches - row);
        ub4 largest = 0;
        for (ub4 r = row; r < end; r++)
            largest = std::max(largest, key_of(r));
        if (largest >= batch_limit)
            return beyond(0, largest, row);
        for (ub4 r = row; r < end; r++)
            prefetch(key_of(r));
        for (; row < end; row++)
            if (const ub4 refused = add(row)) {
                *done = row;
                return refused;
            }
    }
    for (; row < count; row++) {
        if (key_of(row) >= tail_limit)
            return beyond(tail_class, key_of(row), row);
        if (const ub4 refused = add(row)) {
            *done = row;
            return refused;
        }
    }
    *done = count;
    return TAVO_DONE;
}

// What a row of a list is made of.
namespace array_rows_of {
template <class Value>
struct ridgd {
    static ub4 key(const ub1 *records, const ub1 *, ub8 row) noexcept { return load_as<ub4>(records + row * 16 + 4); }
    using value = record_field<16, 8, 8, sizeof(Value)>;
};
template <class Value>
struct key32_payload {
    static ub4 key(const ub1 *, const ub1 *keys, ub8 row) noexcept { return load_as<ub4>(keys + row * 4); }
    using value = value_array<sizeof(Value)>;
};
template <class Value>
struct key32_autorid : key32_payload<Value> {
    using value = row_number<sizeof(Value)>;
};
} // namespace array_rows_of

template <class Adder, class Rows>
ub4 add_to_lists(tavo_kv *kv, ub4 count, const void *record_array, const void *key_array, const void *value_array,
                 ub4 *done, tavo_kv_alloc_fn *alloc, tavo_kv_status *status) noexcept {
    const auto *records = static_cast<const ub1 *>(record_array);
    const auto *keys = static_cast<const ub1 *>(key_array);
    const auto *values = static_cast<const ub1 *>(value_array);
    const Adder adder{kv, alloc, status};
    const sb8 limit = (static_cast<sb8>(kv->region[0].mapped_segments) << list_key_bits) - 1;
    return add_to_array(
        count, limit, limit + 1, 0, list_key_bits, done, status, [&](ub4 row) { return Rows::key(records, keys, row); },
        [&](ub4 key) { adder.prefetch(key); },
        [&](ub4 row) {
            typename Adder::value v;
            Rows::value::copy(reinterpret_cast<ub1 *>(&v), records, values, row);
            return adder.add(Rows::key(records, keys, row), v);
        });
}

} // namespace tavo
