// Reading the array kinds: a key's rows, or their number.
//
// A list reader copies a key's rows, in the order in which they were added, to an output that may be too small: it
// keeps the node and the position in it in the caller's tavo_aux_info and goes on there in the next call for the same
// key.
#pragma once

#include "frame/tavoc_avx512g.h"
#include "kv/array_table.h"
#include "kv/probe_output.h"

extern "C" {
// Rows of an arid8 slot to `out`. Returns how many; minus capacity if it stopped there; 0 without having read anything
// if the capacity is below 4, or if the slot is empty. _segbv: sets the rows' bits in the aux record's segbv as well.
sb8 tavo_kv_list8_read(const ub8 *slot, tavo_aux_info *ai, ub8 *out, ub4 capacity) noexcept;
sb8 tavo_kv_list8_read_segbv(const ub8 *slot, tavo_aux_info *ai, ub8 *out, ub4 capacity) noexcept;
// Sets the bits only; returns the number of rows.
sb8 tavo_kv_list8_read_noridout_segbv(const ub8 *slot, tavo_aux_info *ai) noexcept;
}

namespace tavo {

constexpr ub4 smallest_list_output = 4; // rows that a reader wants room for

// ---- arid8 ----

struct list8 {
    using value = ub8;
    ub8 *slot;

    static list8 of(const tavo_kv *kv, ub4 key) noexcept { return {list8_slot_of(kv, key)}; }
    const void *slot_address() const noexcept { return slot; }
    // What lies behind the slot, to be fetched ahead.
    const void *behind() const noexcept { return *slot & 1 ? static_cast<const void *>(block_of(*slot)) : slot; }

    bool empty() const noexcept { return *slot == 0; }
    bool single() const noexcept { return (*slot & 1) == 0; }
    value only() const noexcept { return single_row(*slot); }
    unsigned in_block() const noexcept { return static_cast<unsigned>((*slot & slot_tags) >> 1) + 2; } // tags 1, 3, 5
    bool has_nodes() const noexcept { return (*slot & slot_tags) == list_of_nodes; }
    value newest() const noexcept {
        if (single())
            return only();
        if (!has_nodes())
            return block_of(*slot)[block_word[in_block() - 1]];
        const list8_node *node = node_of(*slot);
        return node->values()[node->count - 1];
    }
    sb8 read(tavo_aux_info *ai, value *out, ub4 capacity, bool segbv) const noexcept {
        return segbv ? tavo_kv_list8_read_segbv(slot, ai, out, capacity) : tavo_kv_list8_read(slot, ai, out, capacity);
    }
    ub8 set_bits(tavo_aux_info *ai) const noexcept {
        return static_cast<ub8>(tavo_kv_list8_read_noridout_segbv(slot, ai));
    }

    // Calls f(rows, n) for each run of rows, oldest first.
    template <class F>
    void each_run(F &&f) const noexcept {
        if (single()) {
            const value row = only();
            f(&row, 1);
        } else if (!has_nodes()) {
            const ub8 *block = block_of(*slot);
            const unsigned n = in_block();
            f(block + 2, 2);
            if (n > 2)
                f(block, n - 2);
        } else {
            ub8 next = node_of(*slot)->next - 1;
            do {
                const auto *node = reinterpret_cast<const list8_node *>(next);
                f(node->values(), node->count);
                next = node->next;
            } while ((next & 1) == 0);
        }
    }
};

// ---- arid4 ----

struct list4 {
    using value = ub4;
    const tavo_kv *kv;
    list4_key key;

    static list4 of(const tavo_kv *kv, ub4 key) noexcept { return {kv, list4_key_of(kv, key)}; }
    const void *slot_address() const noexcept { return key.group; }
    const void *behind() const noexcept { return key.has_record() ? record().at : key.group; }

    bool empty() const noexcept { return !key.has_record() && key.cell() == 0; }
    bool single() const noexcept { return !key.has_record(); }
    value only() const noexcept { return key.cell() - 1; }
    list4_record record() const noexcept { return {element_of<list4_record_bytes>(kv->region[1], key.cell())}; }
    value newest() const noexcept {
        if (single())
            return only();
        const list4_record r = record();
        if (!r.has_nodes(key))
            return load_as<value>(r.value(r.count() - 1));
        const list4_node node{r.newest()};
        return load_as<value>(node.value(node.count() - 1));
    }

    // As the readers of arid8.
    ub8 set_bits(tavo_aux_info *ai) const noexcept {
        ub8 total = 0;
        each_run([&](const value *row, ub4 n) {
            set_bit(ai->segbv, *row - ai->bv_base);
            total += n;
        });
        return total;
    }
    sb8 read(tavo_aux_info *ai, value *out, ub4 capacity, bool segbv) const noexcept {
        if (capacity < smallest_list_output)
            return 0;
        ub4 total = 0;
        const list4_record r = record();
        const auto copy = [&](const ub1 *rows, ub4 n) {
            std::memcpy(out + total, rows, std::size_t{n} * sizeof(value));
            for (ub4 i = 0; segbv && i < n; i++)
                set_bit(ai->segbv, out[total + i] - ai->bv_base);
            total += n;
        };
        if (ai->tavo_aux_stream_position == 0) {
            TAVO_ASSERT(ai->tavo_aux_stream2_current_pos == 0);
            copy(r.value(0), r.count());
            if (!r.has_nodes(key))
                return total;
            ai->tavo_aux_stream_position = reinterpret_cast<ub8>(list4_node{r.newest()}.next());
        }
        for (;;) {
            const list4_node node{reinterpret_cast<ub1 *>(ai->tavo_aux_stream_position)};
            const auto position = static_cast<ub4>(ai->tavo_aux_stream2_current_pos);
            const ub4 left = node.count() - position, room = capacity - total;
            if (left > room) {
                copy(node.value(position), room);
                ai->tavo_aux_stream2_current_pos = position + room;
                _mm_prefetch(node.next(), _MM_HINT_T0);
                return -static_cast<sb8>(capacity);
            }
            copy(node.value(position), left);
            ai->tavo_aux_stream2_current_pos = 0;
            ai->tavo_aux_stream_position = node.at == r.newest() ? 0 : reinterpret_cast<ub8>(node.next());
            if (node.at == r.newest())
                return total;
        }
    }

    template <class F>
    void each_run(F &&f) const noexcept {
        const auto run = [&](const ub1 *rows, ub4 n) { // rows of a record stand anywhere
            for (ub4 i = 0; i < n; i++) {
                const auto row = load_as<value>(rows + 4 * i);
                f(&row, 1);
            }
        };
        if (single()) {
            const value row = only();
            f(&row, 1);
            return;
        }
        const list4_record r = record();
        run(r.value(0), r.count());
        if (!r.has_nodes(key))
            return;
        list4_node node{r.newest()};
        do {
            node.at = node.next();
            run(node.value(0), node.count());
        } while (node.at != r.newest());
    }
};

} // namespace tavo
