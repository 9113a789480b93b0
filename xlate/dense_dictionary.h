// Looking symbols up, and putting new ones in.
//
// Readers take no lock: one store of a node's first word publishes a symbol, after its record, address and tag. A
// worker that finds no symbol reserves what it needs first, so that nothing but a page can be missing under the lock;
// then it locks the node by replacing the very word that its search went by. Where that word has changed, another
// worker may have put the symbol in, and the search starts again. No worker holds two nodes' locks.
#pragma once

#include "xlate/dense_node.h"
#include "xlate/dense_trie.h"
#include "xlate/dense_worker.h"

namespace tavo {

constexpr ub4 codes_in_block = 8;

template <class Steps>
class dense_dictionary {
public:
    explicit dense_dictionary(tavo_dgk_worker *worker) noexcept
        : w(*worker), d(*worker->dgk), memory(worker), first_level(static_cast<dense_node *>(d.first_level)),
          first_mask((1ull << d.table_bits) - 1), first_bits(d.table_bits) {}

    [[gnu::always_inline]] dense_node *first_node(dense_hash hash) const noexcept {
        return first_level + (hash.walk & first_mask);
    }

    // Finds or creates the symbol's code. False: w.status says why not, and the dictionary is as it was.
    [[gnu::always_inline]] bool code_of(dense_symbol symbol, dense_hash hash, ub4 &code) noexcept {
        dense_node *node = first_node(hash);
        const ub8 head = Steps::acquire(node->head);
        if (const ub1 *record = find(node, head, symbol, hash); record != nullptr) [[likely]] {
            code = dense_load<ub4>(record);
            return true;
        }
        return code_beyond(node, symbol, hash, code);
    }

    // The record of the first symbol of this node, as published, that has the hash's tag; null if none has.
    [[gnu::always_inline]] static const ub1 *likely_record(const dense_node *node, dense_hash hash) noexcept {
        const ub8 head = Steps::acquire(node->head);
        const unsigned slot = tagged_slot(Steps::relaxed(node->tags), hash.tags, 0);
        return slot < symbols_of(head) ? address(node->record[slot]) : nullptr;
    }

private:
    // The symbol among those that `head` has published. Tags are relaxed: those below the count were written before the
    // head that was acquired, those above are not looked at.
    [[gnu::always_inline]] static const ub1 *find(const dense_node *node, ub8 head, dense_symbol symbol,
                                                  dense_hash hash) noexcept {
        const ub8 tags = Steps::relaxed(node->tags);
        const unsigned count = symbols_of(head);
        for (unsigned slot = tagged_slot(tags, hash.tags, 0); slot < count;
             slot = tagged_slot(tags, hash.tags, slot + 1)) {
            const ub1 *record = address(node->record[slot]);
            if (record_is(record, symbol))
                return record;
        }
        return nullptr;
    }

    // The same from `node` of the first level on, with what has to be created.
    [[gnu::noinline]] bool code_beyond(dense_node *node, dense_symbol symbol, dense_hash hash, ub4 &code) noexcept {
        unsigned level = 0;
        ub8 walk = hash.walk >> first_bits;
        const auto child = [&](ub8 at) {
            auto *nodes = reinterpret_cast<dense_node *>(at);
            if (level++ >= page_levels)
                return nodes;
            nodes += walk & (page_nodes - 1);
            walk >>= page_index_bits;
            return nodes;
        };
        for (;;) {
            ub8 head = Steps::acquire(node->head);
            if (const ub1 *record = find(node, head, symbol, hash); record != nullptr) {
                code = dense_load<ub4>(record);
                return true;
            }
            if (child_of(head) != 0) {
                node = child(child_of(head));
                continue;
            }
            if (!prepare(symbol))
                return false;
            if (head & node_lock) {
                wait();
                continue;
            }
            // Acquire: what this worker reads under the lock was written before the last one let it go.
            if (!Steps::replace(node->head, head, head | node_lock))
                continue;
            // From here on this worker alone changes the node.
            if (symbols_of(head) == node_symbols) {
                const ub8 hung = memory.child_for(level);
                // Release: the child's nodes are zeroed or locked before anyone comes there.
                Steps::release(node->head, hung == 0 ? head : hung | node_full);
                if (hung == 0)
                    return false;
                node = child(hung);
                if (level <= page_levels)
                    continue; // a node of the page: like any other
                head = 0;     // a node of its own, locked and empty
            }
            code = append(node, head, symbol, hash);
            return true;
        }
    }

    // Everything that a new symbol needs beside a node. Kept where another worker is first.
    bool prepare(dense_symbol symbol) noexcept {
        const ub8 bytes = record_head + symbol.length;
        if (!memory.reserve(bytes))
            return false;
        auto &state = state_of(w);
        if (w.code_cursor % codes_in_block != 0 || (state.block_opened && leaf_stands(state.code_block)))
            return true;
        if (!state.block_opened) {
            // Relaxed: a number that no one else gets.
            state.code_block = Steps::add(d.next_code, ub8{codes_in_block});
            state.block_opened = 1;
        }
        if (!leaf_stands(state.code_block)) {
            const ub8 leaf = extend_trie(d, memory, state.code_block);
            if (leaf == 0)
                return false;
            w.trie_base = leaf;
            state.trie_range = (state.code_block >> 8) + 1;
        }
        return memory.reserve(bytes);
    }
    bool leaf_stands(ub8 code) const noexcept {
        return reinterpret_cast<const dense_worker_state &>(w.library_state).trie_range == (code >> 8) + 1;
    }

    ub4 take_code() noexcept {
        auto &state = state_of(w);
        if (w.code_cursor % codes_in_block == 0) {
            w.code_cursor = state.code_block;
            state.block_opened = 0;
        }
        return static_cast<ub4>(w.code_cursor++);
    }

    // Writes the record and publishes it in the node, whose lock ends with that.
    ub4 append(dense_node *node, ub8 head, dense_symbol symbol, dense_hash hash) noexcept {
        const ub4 code = take_code();
        ub1 *record = address(w.pool_cursor);
        w.pool_cursor += record_head + symbol.length;
        w.pool_bytes += record_head + symbol.length;
        w.new_symbols++;
        std::memcpy(record, &code, sizeof code);
        std::memcpy(record + record_length_at, &symbol.length, sizeof symbol.length);
        if (symbol.length != 0)
            std::memcpy(record + record_head, symbol.bytes, symbol.length);
        // Plain: who has the code has it from this node, after the release below.
        trie_slot(w.trie_base, code, 0) = reinterpret_cast<ub8>(record + record_length_at);
        const unsigned slot = symbols_of(head);
        node->record[slot] = reinterpret_cast<ub8>(record);
        // Relaxed: readers may see the tag before the symbol, and then look at the count they acquired.
        Steps::store_relaxed(node->tags, Steps::relaxed(node->tags) | (hash.tags & 255) << 8 * slot);
        // Release: all of the above comes before the count that lets readers look at it.
        Steps::release(node->head, head + node_one_symbol);
        return code;
    }

    void wait() noexcept {
        if (w.servicing || !memory.service())
            Steps::yield();
    }

    tavo_dgk_worker &w;
    tavo_dgk &d;
    dense_memory<Steps> memory;
    dense_node *first_level;
    ub8 first_mask;
    unsigned first_bits;
};

} // namespace tavo
