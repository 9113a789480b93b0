// The bitwise kernels counting by instruction. Called only where tavo_has_vpopcdq is set.
#include "bitvec/bitwise.h"

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

template <op Op>
ub4 run_with_instruction(const operands &v, ub8 nbits) noexcept {
    return run<Op, instruction_count>(v, nbits);
}

#define TAVO_DEFINE(o) template ub4 run_with_instruction<op::o>(const operands &v, ub8 nbits) noexcept;
TAVO_EACH_BITWISE_OP(TAVO_DEFINE)
#undef TAVO_DEFINE

} // namespace tavo::bitwise
