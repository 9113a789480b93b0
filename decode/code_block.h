// Blocks of 64 rows of a packed column: what kernels that go by a selection bit vector step by.
//
//   block     64 rows from a multiple of block_alignment on: 8W bytes of codes, 8 bytes of a selection bit vector
#pragma once

#include <cstring>
#include <numeric>

#include "frame/tavo_types.h"
#include "portable/intrinsics.h"

namespace tavo {

constexpr unsigned block_rows = 64;

// Rows at whose multiples both the code stream and a bit vector fall on byte boundaries, and where blocks begin.
template <unsigned W>
constexpr ub8 block_alignment = std::lcm(8u, W);

template <unsigned W>
constexpr ub8 next_block_start(ub8 row) {
    return (row + block_alignment<W> - 1) / block_alignment<W> * block_alignment<W>;
}

template <unsigned W>
[[gnu::always_inline]] inline const ub1 *block_codes(const ub1 *codes, ub8 row) noexcept {
    return codes + row / 8 * W;
}

constexpr ub8 row_batch = 256; // row numbers asked of an iterator at a time, on the stack

// From a block without a selected row on: the row of the next block that has one, or of the first that isn't whole.
[[gnu::always_inline]] inline ub8 skip_unselected_blocks(const ub1 *bits, ub8 row, ub8 rows) noexcept {
    constexpr ub8 load_rows = 512;
    for (; row + 4 * load_rows <= rows; row += 4 * load_rows) {
        const ub1 *p = bits + row / 8;
        const __m512i words =
            _mm512_or_si512(_mm512_or_si512(_mm512_loadu_si512(p), _mm512_loadu_si512(p + 64)),
                            _mm512_or_si512(_mm512_loadu_si512(p + 128), _mm512_loadu_si512(p + 192)));
        if (_mm512_test_epi64_mask(words, words) != 0)
            break;
    }
    for (; row + load_rows <= rows; row += load_rows) {
        const __m512i words = _mm512_loadu_si512(bits + row / 8);
        if (const __mmask8 selected = _mm512_test_epi64_mask(words, words); selected != 0)
            return row + block_rows * static_cast<ub8>(__builtin_ctz(selected));
    }
    for (; row + block_rows <= rows; row += block_rows) {
        ub8 word;
        std::memcpy(&word, bits + row / 8, sizeof word);
        if (word != 0)
            break;
    }
    return row;
}

} // namespace tavo
