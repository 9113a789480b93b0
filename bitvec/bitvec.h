// The bit-vector operations, for callers inside the library. Their contracts stand in frame/tavo_avx512g.h.
#pragma once

#include "frame/tavo_bit_iter.h"

#define TAVO_BITVEC_FAMILY(F)                                                                                          \
    ub4 tavo_##F##popcnt_dydi(ub4 *count, const void *bits, ub8 nbits) noexcept;                                       \
    ub4 tavo_##F##not_dydi(void *dst, ub4 *count, const void *src, ub8 nbits) noexcept;                                \
    ub4 tavo_##F##and_dydi(void *dst, ub4 *count, const void *a, const void *b, ub8 nbits) noexcept;                   \
    ub4 tavo_##F##or_dydi(void *dst, ub4 *count, const void *a, const void *b, ub8 nbits) noexcept;                    \
    ub4 tavo_##F##xor_dydi(void *dst, ub4 *count, const void *a, const void *b, ub8 nbits) noexcept;                   \
    ub4 tavo_##F##andnot_dydi(void *dst, ub4 *count, const void *a, const void *b, ub8 nbits) noexcept;                \
    ub4 tavo_##F##and3_dydi(void *dst, ub4 *count, const void *a, const void *b, const void *c, ub8 nbits) noexcept;   \
    ub4 tavo_##F##or3_dydi(void *dst, ub4 *count, const void *a, const void *b, const void *c, ub8 nbits) noexcept;    \
    ub4 tavo_##F##xor3_dydi(void *dst, ub4 *count, const void *a, const void *b, const void *c, ub8 nbits) noexcept;   \
    ub4 tavo_##F##set_range_dydi(void *bits, ub8 first, ub8 last) noexcept;                                            \
    ub4 tavo_##F##clr_range_dydi(void *bits, ub8 first, ub8 last) noexcept;                                            \
    ub4 tavo_##F##_ictx_ini2_dydi(tavo_bit_iter *it, const void *bits, ub8 nbits, ub1 invert, ub8 start) noexcept;     \
    ub8 tavo_##F##iter_dydi(tavo_bit_iter *it) noexcept;                                                               \
    ub8 tavo_##F##iter_clr_dydi(tavo_bit_iter *it) noexcept;                                                           \
    ub8 tavo_##F##ones_dydi(tavo_bit_iter *it, ub4 *out, ub8 capacity) noexcept;                                       \
    ub8 tavo_##F##run_dydi(ub8 a, ub8 b) noexcept;                                                                     \
    ub8 tavo_##F##runs_dydi(ub8 a, ub8 b, ub8 c, ub8 d) noexcept;

extern "C" {
TAVO_BITVEC_FAMILY(lbiv)
TAVO_BITVEC_FAMILY(lbiwv)
}
