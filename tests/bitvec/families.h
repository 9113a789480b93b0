// The two families of bit-vector operations, taken from the descriptor.
#pragma once

#include "frame/tavo.h"

namespace tavo::test {

using two_operand_fn = ub4(void *, ub4 *, const void *, const void *, ub8) noexcept;
using three_operand_fn = ub4(void *, ub4 *, const void *, const void *, const void *, ub8) noexcept;

struct bitvec_family {
    const char *name;
    bool words; // aligned base, whole words of storage
    ub8 end;
    decltype(tavo_specialized_ctx::lbivpopcnt) popcnt;
    decltype(tavo_specialized_ctx::lbivnot) not_;
    two_operand_fn *and_, *or_, *xor_, *andnot;
    three_operand_fn *and3, *or3, *xor3;
    decltype(tavo_specialized_ctx::lbivset_range) set_range, clr_range;
    decltype(tavo_specialized_ctx::lbiv_ictx_ini2) ini2;
    decltype(tavo_specialized_ctx::lbiviter) iter, iter_clr;
    decltype(tavo_specialized_ctx::lbivones) ones;
    decltype(tavo_specialized_ctx::lbivrun) run;
    decltype(tavo_specialized_ctx::lbivruns) runs;
};

#define TAVO_FAMILY(F, words, end)                                                                                     \
    {                                                                                                                  \
#F, words, end, c.F##popcnt, c.F##not, c.F##and, c.F## or, c.F## xor, c.F##andnot, c.F##and3, c.F##or3,        \
            c.F##xor3, c.F##set_range, c.F##clr_range, c.F##_ictx_ini2, c.F##iter, c.F##iter_clr, c.F##ones, c.F##run, \
            c.F##runs                                                                                                  \
    }
inline const bitvec_family (&bitvec_families())[2] {
    static const tavo_specialized_ctx &c = tavo_global_specialized_ctx;
    static const bitvec_family families[] = {TAVO_FAMILY(lbiv, false, 0xffffffffull),
                                             TAVO_FAMILY(lbiwv, true, 0xffffffffffffffffull)};
    return families;
}
#undef TAVO_FAMILY

inline bool bit_at(const ub1 *bytes, ub8 row) { return bytes[row / 8] >> row % 8 & 1; }

} // namespace tavo::test
