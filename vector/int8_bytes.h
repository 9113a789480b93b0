// int8 against int8 where the result is a whole number: bytes stay bytes.
#pragma once

#include "vector/metrics.h"

namespace tavo::vector {

// Calls each(a, b) with 64 bytes of either operand, zeros behind the end.
template <class Each>
[[gnu::always_inline]] inline void each_64_bytes(ub4 dims, const void *left, const void *right, Each each) {
    const auto *a = static_cast<const ub1 *>(left), *b = static_cast<const ub1 *>(right);
#pragma GCC unroll 4
    for (; dims >= 64; dims -= 64, a += 64, b += 64)
        each(_mm512_loadu_si512(a), _mm512_loadu_si512(b));
    if (dims != 0) {
        const __mmask64 m = _bzhi_u64(~0ull, dims);
        each(_mm512_maskz_loadu_epi8(m, a), _mm512_maskz_loadu_epi8(m, b));
    }
}

[[gnu::always_inline]] inline double int8_hamming(ub4 dims, const void *left, const void *right) {
    ub4 count = 0;
    each_64_bytes(
        dims, left, right, [&](__m512i a, __m512i b) __attribute__((always_inline)) {
            count += static_cast<ub4>(_mm_popcnt_u64(_mm512_cmpneq_epi8_mask(a, b)));
        });
    return count;
}

// The sum is one of 32-bit integers. Flipping the top bits turns the bytes into unsigned ones with the same
// differences.
[[gnu::always_inline]] inline double int8_manhattan(ub4 dims, const void *left, const void *right) {
    const __m512i top = _mm512_set1_epi8(static_cast<char>(0x80));
    __m512i sums_u64x8 = _mm512_setzero_si512();
    each_64_bytes(
        dims, left, right, [&](__m512i a, __m512i b) __attribute__((always_inline)) {
            sums_u64x8 =
                _mm512_add_epi64(sums_u64x8, _mm512_sad_epu8(_mm512_xor_si512(a, top), _mm512_xor_si512(b, top)));
        });
    return static_cast<ub4>(_mm512_reduce_add_epi64(sums_u64x8));
}

} // namespace tavo::vector
