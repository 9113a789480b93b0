// Counting of bits by instruction: a counting method as in bitwise.h, for sources that are compiled with VPOPCNTDQ.
#pragma once

#include "frame/tavo_types.h"
#include "portable/intrinsics.h"

namespace tavo::bitwise {

struct instruction_count {
    __m512i counts_u64x8;

    [[gnu::always_inline]] void add(__m512i block) {
        counts_u64x8 = _mm512_add_epi64(counts_u64x8, _mm512_popcnt_epi64(block));
    }
    [[gnu::always_inline]] void add4(const __m512i (&blocks)[4]) {
#pragma GCC unroll 4
        for (int i = 0; i < 4; i++)
            add(blocks[i]);
    }
    [[gnu::always_inline]] ub4 total() const { return static_cast<ub4>(_mm512_reduce_add_epi64(counts_u64x8)); }
};

} // namespace tavo::bitwise
