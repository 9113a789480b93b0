// Packed codes as the block loop and the sparse walk of a scan read them.
#pragma once

#include "scan/code_lanes.h"

namespace tavo {

// Consecutive rows of packed codes, as the block loop reads them. Test takes the source bytes of one compare,
// test(source), or of the first n rows of one, test.first(source, n), of which it may take nothing but these rows.
template <unsigned W, class Test>
class code_rows {
    using lanes = typename Test::lanes;

public:
    static constexpr unsigned rows = lanes::rows;
    static constexpr ub4 rows_behind = 0;

    [[gnu::always_inline]] code_rows(const ub1 *codes, const Test &code_test) noexcept
        : position(codes), test(code_test) {}
    // One 64-byte line a line consumed, 832 bytes ahead of the block. Whole-element widths trust the hardware
    // prefetcher.
    [[gnu::always_inline]] void start_block() const noexcept {
        constexpr bool whole = W == 8 || W == 16 || W == 32 || W == 64;
#pragma GCC unroll 8
        for (unsigned line = 0; line < (whole ? 0 : (8 * lanes::bytes + 63) / 64); line++)
            __builtin_prefetch(position + 832 + 64 * line);
    }
    [[gnu::always_inline]] ub8 next() noexcept {
        const ub8 hits = test(lanes::load(position));
        position += lanes::bytes;
        return hits;
    }
    [[gnu::always_inline]] ub8 next_exact() noexcept { return next(); }
    [[gnu::always_inline]] ub8 last(unsigned n) const noexcept { return test.first(lanes::load_first(position, n), n); }

private:
    const ub1 *position;
    Test test;
};

// Single rows of packed codes; holds(x) tells of one code.
template <unsigned W, class Holds>
struct code_column {
    const ub1 *codes;
    Holds holds;

    [[gnu::always_inline]] bool qualifies(ub4 row) const noexcept { return holds(packed_code<W>(codes, row)); }
    [[gnu::always_inline]] const ub1 *address(ub4 row) const noexcept { return codes + static_cast<ub8>(row) * W / 8; }
};

} // namespace tavo
