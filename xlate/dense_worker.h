// What one worker does with the memory of the dictionary: pool blocks, pages and trie blocks, each against its budget.
//
// A pool block's first word is its end. Records grow from its start, trie blocks from its end.
#pragma once

#include <cstring>

#include "frame/tavo_dense.h"
#include "frame/tavo_status.h"
#include "xlate/dense_node.h"

namespace tavo {

constexpr ub8 largest_block = 0x100000, smallest_block = 4096, block_head = 8;
constexpr ub4 page_cost = 64;
constexpr ub8 trie_fanout = 256, trie_block_bytes = trie_fanout * 8, trie_block_room = trie_block_bytes + 63;

// The library's part of a worker's record.
struct dense_worker_state {
    ub8 trie_range;   // codes of trie_base, by their upper 24 bits, plus 1
    ub8 code_block;   // the 8 codes that have been taken last
    ub4 block_opened; // they have been taken, but the first of them has not been given away yet
    ub4 leads;        // has the service duty
};
static_assert(sizeof(dense_worker_state) <= sizeof(tavo_dgk_worker::library_state));

inline dense_worker_state &state_of(tavo_dgk_worker &worker) noexcept {
    return *reinterpret_cast<dense_worker_state *>(worker.library_state);
}
inline ub1 *address(ub8 word) noexcept { return reinterpret_cast<ub1 *>(word); }
inline ub8 &word_at(ub8 place) noexcept { return *reinterpret_cast<ub8 *>(place); }

template <class Steps>
class dense_memory {
public:
    explicit dense_memory(tavo_dgk_worker *worker) noexcept : w(*worker), d(*worker->dgk) {}

    // Makes the pool block have `bytes` bytes. False: status says why not.
    [[gnu::always_inline]] bool reserve(ub8 bytes) noexcept {
        return w.pool_end - w.pool_cursor >= bytes || find_block(bytes);
    }

    // A zeroed trie block, 0 if there is none.
    ub8 cut_trie_block() noexcept {
        if (!reserve(trie_block_room))
            return 0;
        w.pool_end = (w.pool_end - trie_block_bytes) & ~ub8{63};
        w.pool_bytes += trie_block_bytes;
        std::memset(address(w.pool_end), 0, trie_block_bytes);
        return w.pool_end;
    }
    // Takes the last one back: another worker's stands in its place.
    void return_trie_block() noexcept {
        w.pool_end += trie_block_bytes;
        w.pool_bytes -= trie_block_bytes;
    }

    // What hangs on a full node of this level: a page of empty nodes, or one node that is locked. 0: status says why
    // not.
    ub8 child_for(unsigned level) noexcept { return level < page_levels ? new_page() : deep_node(); }

    // A worker that has to wait keeps a block on offer, so that others need not ask the host. False: nothing to do.
    bool service() noexcept {
        const ub8 budget = Steps::relaxed(d.pool_budget);
        if (Steps::relaxed(d.spare_block) != 0 || budget == 0)
            return false;
        const ub8 want = budget > 3000 ? budget : 3000;
        const ub8 room = w.spare_block == 0 ? 0 : word_at(w.spare_block) - w.spare_block;
        if (room > want + 3000) {
            const ub8 end = word_at(w.spare_block), piece = (end - want) & ~ub8{63};
            word_at(w.spare_block) = piece;
            word_at(piece) = end;
            if (!offer(piece))
                word_at(w.spare_block) = end;
            return true;
        }
        if (room <= 2100) {
            if (!claim(smallest_block))
                return false;
            const ub8 block = allocate_block();
            give_back(w.pool_credit);
            if (block == 0)
                return false;
            w.spare_block = block; // what is left of the former is too small for anyone
        }
        if (offer(w.spare_block))
            w.spare_block = 0;
        return true;
    }

    void give_back(ub8 bytes) noexcept {
        w.pool_credit -= static_cast<ub4>(bytes);
        if (bytes != 0)
            Steps::add(d.pool_budget, bytes);
    }
    // Up to so many bytes of the budget; as many as there are.
    ub8 take_budget(ub8 at_most, ub8 at_least) noexcept {
        ub8 budget = Steps::relaxed(d.pool_budget);
        for (;;) {
            const ub8 bytes = budget < at_most ? budget : at_most;
            if (bytes < at_least)
                return 0;
            // A count alone: the block comes from the host, not from another worker.
            if (Steps::replace_count(d.pool_budget, budget, budget - bytes))
                return bytes;
        }
    }

private:
    [[gnu::noinline]] bool find_block(ub8 bytes) noexcept {
        if (const ub8 block = Steps::take(d.spare_block); block != 0) {
            const ub8 size = word_at(block) - block;
            give_back(size < w.pool_credit ? size : w.pool_credit);
            if (size >= bytes + block_head) {
                enter(block);
                return true;
            }
            if (w.spare_block == 0)
                w.spare_block = block;
        }
        if (w.spare_block != 0 && word_at(w.spare_block) - w.spare_block >= bytes + block_head) {
            enter(w.spare_block);
            w.spare_block = 0;
            return true;
        }
        const ub8 needed = bytes + block_head > smallest_block ? bytes + block_head : smallest_block;
        if (!claim(needed)) {
            w.block_debt += static_cast<ub4>((needed - w.pool_credit + 1023) / 1024);
            w.status = TAVO_BUDGET_EXHAUSTED;
            return false;
        }
        const ub8 block = allocate_block();
        if (block == 0) {
            w.status = TAVO_ALLOCATION_REFUSED;
            return false;
        }
        enter(block);
        return true;
    }
    void enter(ub8 block) noexcept {
        w.pool_cursor = block + block_head;
        w.pool_end = word_at(block);
    }

    // Brings pool_credit to `needed` bytes at least, and to the largest block's if the budget has that.
    bool claim(ub8 needed) noexcept {
        if (w.pool_credit >= needed)
            return true;
        const ub8 bytes = take_budget(largest_block - w.pool_credit, needed - w.pool_credit);
        w.pool_credit += static_cast<ub4>(bytes);
        return bytes != 0;
    }
    ub8 allocate_block() noexcept {
        const ub8 size = w.pool_credit < largest_block ? w.pool_credit : largest_block;
        void *block = nullptr;
        w.heap->allocate(w.heap, size, "DGKPool", 1, 0, &block);
        if (block == nullptr)
            return 0;
        w.pool_credit -= static_cast<ub4>(size);
        const auto place = reinterpret_cast<ub8>(block);
        word_at(place) = place + size;
        return place;
    }
    // Release: whoever takes the block reads its first word.
    bool offer(ub8 block) noexcept {
        ub8 none = 0;
        return Steps::replace(d.spare_block, none, block);
    }

    // ---- pages ----

    static ub4 &uses_of(ub8 page) noexcept { return *reinterpret_cast<ub4 *>(page + page_bytes); }

    ub8 new_page() noexcept {
        if (w.local_free_count != 0) {
            const ub8 page = w.local_free_pages;
            w.local_free_pages = word_at(page);
            w.local_free_count--;
            word_at(page) = 0;
            return page;
        }
        // The tag counts takings: a page that was taken and freed again between load and exchange is not mistaken.
        for (ub8 first = Steps::acquire(d.free_pages); child_of(first) != 0;) {
            const ub8 page = child_of(first);
            const ub8 next = Steps::relaxed(word_at(page)); // another's node by now, if the exchange fails
            if (Steps::replace(d.free_pages, first, next | ((first + 1) & 31))) {
                Steps::store_relaxed(word_at(page), ub8{0});
                return page;
            }
        }
        return allocate_page();
    }
    ub8 allocate_page() noexcept {
        if (w.page_credit < page_cost) {
            sb8 budget = Steps::relaxed(d.page_budget);
            do
                if (budget < page_cost) {
                    w.page_debt += page_cost;
                    w.status = TAVO_BUDGET_EXHAUSTED;
                    return 0;
                }
            while (!Steps::replace_count(d.page_budget, budget, budget - page_cost));
            w.page_credit += page_cost;
        }
        void *block = nullptr;
        w.heap->allocate(w.heap, page_block_bytes, "HashT", 1, 0, &block);
        if (block == nullptr) {
            w.status = TAVO_ALLOCATION_REFUSED;
            return 0;
        }
        w.page_credit -= page_cost;
        const ub8 page = (reinterpret_cast<ub8>(block) + 63) & ~ub8{63};
        // The use count stands behind the nodes: of a block aligned to 8, 8 bytes at least are left there.
        std::memset(address(page), 0, page_bytes + sizeof(ub4));
        return page;
    }

    // One locked node of the page that all workers cut from.
    ub8 deep_node() noexcept {
        for (;;) {
            ub8 page = Steps::acquire(d.current_page);
            if (page & 1) {
                Steps::yield();
                continue;
            }
            if (page != 0) {
                const ub4 node = Steps::add(uses_of(page), ub4{1});
                if (node < page_nodes)
                    return locked(page + node * sizeof(dense_node));
            }
            if (!Steps::replace(d.current_page, page, page | 1))
                continue;
            const ub8 fresh = new_page();
            if (fresh == 0) {
                Steps::release(d.current_page, page); // as it was; the next one tries again
                return 0;
            }
            Steps::store_relaxed(uses_of(fresh), ub4{1});
            const ub8 node = locked(fresh);
            Steps::release(d.current_page, fresh); // with its nodes zeroed and its use count
            return node;
        }
    }
    // Relaxed: nobody knows the node until its parent leads there.
    static ub8 locked(ub8 node) noexcept {
        Steps::store_relaxed(reinterpret_cast<dense_node *>(node)->head, node_lock);
        return node;
    }

    tavo_dgk_worker &w;
    tavo_dgk &d;
};

} // namespace tavo
