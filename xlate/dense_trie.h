// From codes to symbols: a trie of 256-way blocks, a byte of the code a level, the high byte first. Its root has the
// depth less one in the low two bits and grows upward as codes do. Leaf slots hold the address of a record's length.
#pragma once

#include "xlate/dense_worker.h"

namespace tavo {

constexpr unsigned trie_levels(ub8 code) noexcept {
    return code < 1u << 8 ? 1 : code < 1u << 16 ? 2 : code < 1u << 24 ? 3 : 4;
}
constexpr unsigned trie_depth(ub8 root) noexcept { return static_cast<unsigned>(root & 3) + 1; }
constexpr ub8 trie_block(ub8 root) noexcept { return root & ~ub8{3}; }

inline ub8 &trie_slot(ub8 block, ub8 code, unsigned level) noexcept {
    return word_at(block + (code >> 8 * level & 255) * 8);
}

// The slot of a code that the trie has.
template <class Steps>
[[gnu::always_inline]] inline ub8 &trie_leaf(const tavo_dgk &d, ub8 code) noexcept {
    const ub8 root = Steps::acquire(d.code_trie);
    ub8 block = trie_block(root);
    for (unsigned level = trie_depth(root) - 1; level > 0; level--)
        block = Steps::acquire(trie_slot(block, code, level));
    return trie_slot(block, code, 0);
}

// Puts a new block where a word leads nowhere yet. The loser of a race takes the winner's. 0: no memory.
template <class Steps>
inline ub8 lead_to_block(dense_memory<Steps> &memory, ub8 &word, ub8 flags, ub8 only_entry) noexcept {
    const ub8 block = memory.cut_trie_block();
    if (block == 0)
        return 0;
    word_at(block) = only_entry;
    ub8 before = only_entry == 0 ? 0 : only_entry | (flags - 1);
    // Release: the block is zeroed, and its first entry written, before anyone comes there.
    if (Steps::replace(word, before, block | flags))
        return block | flags;
    memory.return_trie_block();
    return before;
}

// The leaf block of a code, which is made if there is none. 0: no memory.
template <class Steps>
inline ub8 extend_trie(tavo_dgk &d, dense_memory<Steps> &memory, ub8 code) noexcept {
    const unsigned levels = trie_levels(code);
    ub8 root = Steps::acquire(d.code_trie);
    while (root == 0 || trie_depth(root) < levels) {
        root = root == 0 ? lead_to_block(memory, d.code_trie, levels - 1, 0)
                         : lead_to_block(memory, d.code_trie, trie_depth(root), trie_block(root));
        if (root == 0)
            return 0;
    }
    ub8 block = trie_block(root);
    for (unsigned level = trie_depth(root) - 1; level > 0; level--) {
        ub8 &slot = trie_slot(block, code, level);
        ub8 next = Steps::acquire(slot);
        if (next == 0)
            next = lead_to_block(memory, slot, 0, 0);
        if (next == 0)
            return 0;
        block = next;
    }
    return block;
}

} // namespace tavo
