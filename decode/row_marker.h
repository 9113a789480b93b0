// Marking ascending, disjoint stretches of rows in a bit vector that is otherwise all clear or all set.
#pragma once

#include <cstring>

#include "frame/tavo_types.h"
#include "portable/intrinsics.h"

namespace tavo {

// Set: marked rows are set, all others clear; otherwise marked rows are clear, all others set.
//
// Each of the (rows + 63) / 64 words is written once and none is read; nothing outside them is touched. The rows marked
// in the current word are gathered in a register: stretches are often so short that several fall into one word, and a
// load right behind a store that overlaps it would have to wait. Whole words are filled with memory's speed.
template <bool Set>
class row_marker {
public:
    row_marker(ub8 *words, ub8 rows) noexcept : words_(words), rows_(rows) {}

    // Rows first to first + n - 1: behind all those marked before, inside the vector.
    [[gnu::always_inline]] inline void mark(ub8 first, ub8 n) noexcept {
        if (n == 0)
            return;
        marked_ += n;
        const ub8 behind = first + n;
        if (first / 64 != current_) {
            store();
            fill(others, current_ + 1, first / 64);
            current_ = first / 64;
            pending_ = 0;
        }
        pending_ |= low_bits(n < 64 ? n : 64) << first % 64;
        if (behind / 64 != current_) {
            store();
            fill(marks, current_ + 1, behind / 64);
            current_ = behind / 64;
            pending_ = low_bits(behind % 64);
        }
    }

    // Writes what is left, with clear bits above the last row; returns the number of rows marked.
    ub8 finish() noexcept {
        const ub8 words = (rows_ + 63) / 64;
        if (current_ < words) { // not if the last stretch ended with the last word
            store();
            fill(others, current_ + 1, words);
        }
        if (!Set && rows_ % 64 != 0)
            words_[words - 1] &= low_bits(rows_ % 64);
        return marked_;
    }

private:
    static constexpr int marks = Set ? -1 : 0, others = ~marks;

    static ub8 low_bits(ub8 n) noexcept { return _bzhi_u64(~0ull, static_cast<unsigned>(n)); }

    void store() noexcept { words_[current_] = Set ? pending_ : ~pending_; }

    // Whole words from `from` up to `to`, which is not below.
    void fill(int bits, ub8 from, ub8 to) noexcept {
        if (from == to)
            return;
        if (to - from <= 8)
            _mm512_mask_storeu_epi64(words_ + from, static_cast<__mmask8>(low_bits(to - from)),
                                     _mm512_set1_epi64(bits));
        else
            std::memset(words_ + from, bits, (to - from) * 8);
    }

    ub8 *words_;
    ub8 rows_;
    ub8 current_ = 0; // the word that pending_ belongs to; all before it are written
    ub8 pending_ = 0; // its rows marked so far
    ub8 marked_ = 0;
};

} // namespace tavo
