// The bit vector of rows that pass a test, as kernels with env.start_row leave it: bits from start_row on are set or
// cleared up to the end of the last word, those before stay; count, and first and last row, 0xffffffff for none.
#pragma once

#include <bit>

#include "bitvec/bitvec.h"
#include "frame/tavo_status.h"
#include "frame/tavo_vec.h"
#include "portable/intrinsics.h"

namespace tavo {

// Bits set row by row in ascending batches. Words are cleared as the walk reaches them, not before: they may be those
// of the selection that is walked.
class passing_row_marker {
public:
    passing_row_marker(ub8 *bits, ub4 start_row) noexcept : bits_(bits), start_row_(start_row), next_(start_row / 64) {}

    // The walk has read the selection up to this row.
    [[gnu::always_inline]] void reach(ub4 row) noexcept { clear_up_to(row / 64 + 1ull); }
    [[gnu::always_inline]] void mark(ub4 row) noexcept { bits_[row / 64] |= 1ull << row % 64; }
    void finish(ub4 rows) noexcept { clear_up_to((rows + 63ull) / 64); }

private:
    [[gnu::always_inline]] void clear_up_to(ub8 end) noexcept {
        for (; next_ < end; next_++)
            bits_[next_] = next_ == start_row_ / 64 ? _bzhi_u64(bits_[next_], start_row_ % 64) : 0;
    }

    ub8 *bits_;
    ub4 start_row_;
    ub8 next_; // first word not cleared yet
};

// Stores what a kernel found in the result's words from `start_row` on: how many rows, the first and the last.
inline ub4 report_passing(tavo_vec *res, ub4 start_row, ub4 rows) noexcept {
    auto *extent = static_cast<ub4 *>(res->data);
    extent[0] = extent[1] = ~0u;
    res->count = 0;
    if (start_row >= rows)
        return TAVO_NONE_SELECTED;
    const ub4 first = start_row / 64, last = (rows - 1) / 64;
    const ub8 in_first = ~0ull << start_row % 64;
    ub4 total = 0;
    tavo_lbiwvpopcnt_dydi(&total, res->bits + first, (last - first + 1ull) * 64);
    total -= static_cast<ub4>(std::popcount(res->bits[first] & ~in_first));
    res->count = total;
    if (total == 0)
        return TAVO_NONE_SELECTED;
    ub4 w = first;
    ub8 word = res->bits[w] & in_first;
    while (word == 0)
        word = res->bits[++w];
    extent[0] = w * 64 + static_cast<ub4>(_tzcnt_u64(word));
    for (w = last; (word = res->bits[w]) == 0;)
        w--;
    extent[1] = w * 64 + 63 - static_cast<ub4>(_lzcnt_u64(word));
    return TAVO_DONE;
}

} // namespace tavo
