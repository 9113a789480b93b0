// Marking ascending, disjoint stretches of rows in a bit vector that starts out all clear or all set.
#pragma once

#include <immintrin.h>

#include <cstring>

#include "frame/tavo_types.h"

namespace tavo {

// Set: the vector starts from zero and marked rows are set; otherwise it starts from ones and they are cleared.
//
// The rows marked in the current word are gathered in a register and stored once, with no word read back: stretches are
// often so short that several fall into one word, and a load right behind an overlapping store would wait for it. Long
// stretches are filled by whole words. Nothing outside the vector's (rows + 63) / 64 words is touched.
template <bool Set>
class row_marker {
public:
    row_marker(ub8 *words, ub8 rows) noexcept : words_(words), rows_(rows) {
        std::memset(words, background, (rows + 63) / 64 * 8);
    }

    // Rows first to first + n - 1, behind all those marked before, inside the vector.
    [[gnu::always_inline]] inline void mark(ub8 first, ub8 n) noexcept {
        if (n == 0)
            return;
        marked_ += n;
        const ub8 behind = first + n;
        if (first / 64 != current_) {
            flush();
            current_ = first / 64;
            pending_ = 0;
        }
        pending_ |= low_bits(n < 64 ? n : 64) << first % 64;
        if (behind / 64 != current_) {
            flush();
            fill(current_ + 1, behind / 64);
            current_ = behind / 64;
            pending_ = low_bits(behind % 64);
        }
    }

    // Ends the marking: bits above the last row are clear, rows marked is what comes back.
    ub8 finish() noexcept {
        flush();
        if (!Set && rows_ % 64 != 0)
            words_[rows_ / 64] &= low_bits(rows_ % 64);
        return marked_;
    }

private:
    static constexpr int background = Set ? 0 : 0xff;

    static ub8 low_bits(ub8 n) noexcept { return _bzhi_u64(~0ull, static_cast<unsigned>(n)); }

    // A stretch that ended with the vector leaves current_ behind it, with nothing pending.
    void flush() noexcept {
        if (pending_ != 0)
            words_[current_] = Set ? pending_ : ~pending_;
    }

    // Whole words from `from` up to `to`.
    void fill(ub8 from, ub8 to) noexcept {
        if (to - from <= 8)
            _mm512_mask_storeu_epi64(words_ + from, static_cast<__mmask8>(low_bits(to - from)),
                                     _mm512_set1_epi64(Set ? -1 : 0));
        else
            std::memset(words_ + from, ~background, (to - from) * 8);
    }

    ub8 *words_;
    ub8 rows_;
    ub8 current_ = 0; // the word that pending_ belongs to
    ub8 pending_ = 0; // its rows marked so far
    ub8 marked_ = 0;
};

} // namespace tavo
