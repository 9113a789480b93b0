// The bloom filter kernels: which rows of a hash vector may be in the set that a filter was built from.
//
//   hashes   flag TAVO_HASHES; elements of 32 or 64 bits as the kernel's name says, by row number. The position is
//   drawn
//            from x, the byte-swapped element or, of 64 bits, its high half, byte-swapped: hashes are big-endian
//   filter   enc: segmented, hash_mask, segment_shift, bit_mask; bits: the array or, if segmented, a table of segment
//            addresses. m = x & hash_mask selects segment m >> segment_shift, and there bit p = m & bit_mask. The
//            two-bit kernels also test bit (x >> 26) & hash_mask & bit_mask of the same 64 bits, so that a row costs
//            one word. Arrays begin at a multiple of 8 bytes and their words of 64 bits are read whole, also where
//            bit_mask names fewer bits. Segment numbers are trusted
//   rows     those of env.sel_bits (selective kernels), else all, from env.start_row on
//   result   bits of the rows from start_row on: set if the row passes, else cleared, up to the end of the last word;
//            those before start_row stay. count: the rows that passed; data: two ub4, the first and the last row that
//            passed, 0xffffffff for none. TAVO_DONE, TAVO_NONE_SELECTED, or TAVO_UNSUPPORTED without the flag
//
// The selective kernels add TAVO_RESULT_BLOOM_SELECTED to env.result_flags, and read no hash of a row that is not
// selected; res.bits may be env.sel_bits itself.
#pragma once

#include "frame/tavo_env.h"

// K(name, bits tested a row, type of a hash, selective)
#define TAVO_BLOOM_KERNELS(K)                                                                                          \
    K(tavo_bloom_hash32, 1, ub4, false)                                                                                \
    K(tavo_bloom_hash32_selective, 1, ub4, true)                                                                       \
    K(tavo_bloom_hash64, 1, ub8, false)                                                                                \
    K(tavo_bloom_hash64_selective, 1, ub8, true)                                                                       \
    K(tavo_2bit_bloom_hash32, 2, ub4, false)                                                                           \
    K(tavo_2bit_bloom_hash32_selective, 2, ub4, true)                                                                  \
    K(tavo_2bit_bloom_hash64, 2, ub8, false)                                                                           \
    K(tavo_2bit_bloom_hash64_selective, 2, ub8, true)

extern "C" {
#define TAVO_DECLARE_BLOOM(name, bits, hash, selective)                                                                \
    ub4 name(tavo_vec *res, tavo_vec *hashes, tavo_vec *filter, tavo_env *env) noexcept;
TAVO_BLOOM_KERNELS(TAVO_DECLARE_BLOOM)
#undef TAVO_DECLARE_BLOOM

// Picks one of them: mode 1 one bit, else two; hashes of 32 bits if their width_bits say so, else of 64; selective if
// env has sel_bits.
ub4 tavo_bloom_dydi(tavo_vec *res, tavo_vec *hashes, tavo_vec *filter, tavo_env *env, ub1 mode) noexcept;
}
