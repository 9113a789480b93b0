// Running sums of 32-bit numbers, 16 at a time, wrapping.
#pragma once

#include "frame/tavo_types.h"
#include "portable/intrinsics.h"

namespace tavo {

class running_sums {
public:
    // Lane i becomes the sum of all numbers so far up to and with lane i. Within a register numbers are brought
    // together first, so that one register waits for the last by an addition and a permutation alone.
    [[gnu::always_inline]] __m512i next(__m512i v) noexcept {
        v = _mm512_add_epi32(v, _mm512_bslli_epi128(v, 4)); // within each quarter
        v = _mm512_add_epi32(v, _mm512_bslli_epi128(v, 8));
        const __m512i quarters = _mm512_shuffle_epi32(v, _MM_PERM_DDDD); // a quarter's sum in all its lanes
        v = _mm512_add_epi32(v, _mm512_maskz_shuffle_i32x4(0xfff0, quarters, quarters, _MM_SHUFFLE(2, 1, 0, 0)));
        const __m512i halves = _mm512_shuffle_epi32(v, _MM_PERM_DDDD);
        v = _mm512_add_epi32(v, _mm512_maskz_shuffle_i32x4(0xff00, halves, halves, _MM_SHUFFLE(1, 0, 0, 0)));
        const __m512i sums = _mm512_add_epi32(v, carry);
        carry = _mm512_permutexvar_epi32(_mm512_set1_epi32(15), sums);
        return sums;
    }

private:
    __m512i carry = _mm512_setzero_si512();
};

} // namespace tavo
