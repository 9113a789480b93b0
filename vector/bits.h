// Distances of bit vectors: counts of XOR, AND, OR over blocks of 512 bits.
//
// The text is compiled twice, with and without the population-count instruction; everything in it is always_inline or
// depends on the counting method, so that no body compiled with the instruction can stand in for one without it.
#pragma once

#include "bitvec/bitwise.h"
#include "frame/tavo_vector.h"
#include "vector/metrics.h"

namespace tavo::vector {

enum class bit_family { euclid, cosine, dotprod, manhattan, hamming, jaccard };

// What is counted of a and b: cosine and jaccard from several counts, all others from one.
constexpr int bit_counts(bit_family f) { return f == bit_family::cosine ? 3 : f == bit_family::jaccard ? 2 : 1; }
template <bit_family Family>
[[gnu::always_inline]] inline __m512i counted_bits(int which, __m512i a, __m512i b) {
    if constexpr (Family == bit_family::cosine)
        return which == 0 ? _mm512_and_si512(a, b) : which == 1 ? a : b;
    else if constexpr (Family == bit_family::jaccard)
        return which == 0 ? _mm512_and_si512(a, b) : _mm512_or_si512(a, b);
    else if constexpr (Family == bit_family::dotprod)
        return _mm512_and_si512(a, b);
    else
        return _mm512_xor_si512(a, b);
}

// The result of the counts; sparse vectors have the same.
[[gnu::always_inline]] inline double bit_cosine(ub4 both, ub4 left, ub4 right, ub4 metric) {
    return cosine_result(both, left, right, metric);
}
[[gnu::always_inline]] inline double bit_jaccard(ub4 both, ub4 either, ub4 metric) {
    const double similarity = static_cast<double>(both) / static_cast<double>(either);
    return metric == tavo_metric_jaccard_distance ? 1.0 - similarity : similarity;
}
[[gnu::always_inline]] inline double bit_dotprod(ub4 both, ub4 metric) { // negated as an integer: there is no -0.0
    return static_cast<sb4>(metric == tavo_metric_dotprod_negated ? 0u - both : both);
}

// The unused bits of the last byte count as they stand.
template <bit_family Family, class Count>
[[gnu::always_inline]] inline ub8 dense_bits(ub4 dims, const void *left, const void *right, ub4 metric,
                                             double *result) {
    constexpr ub8 prefetch_distance = 256;
    constexpr int n = bit_counts(Family);
    const auto *a = static_cast<const ub1 *>(left), *b = static_cast<const ub1 *>(right);
    Count count[n]{};
    ub8 bytes = (static_cast<ub8>(dims) + 7) / 8;
    for (; bytes >= 256; bytes -= 256, a += 256, b += 256) {
        __m512i blocks[n][4];
#pragma GCC unroll 4
        for (int k = 0; k < 4; k++) {
            __builtin_prefetch(a + 64 * k + prefetch_distance);
            __builtin_prefetch(b + 64 * k + prefetch_distance);
            const __m512i x = _mm512_loadu_si512(a + 64 * k), y = _mm512_loadu_si512(b + 64 * k);
#pragma GCC unroll 3
            for (int which = 0; which < n; which++)
                blocks[which][k] = counted_bits<Family>(which, x, y);
        }
#pragma GCC unroll 3
        for (int which = 0; which < n; which++)
            count[which].add4(blocks[which]);
    }
#pragma GCC unroll 1
    while (bytes != 0) {
        const ub8 now = bytes < 64 ? bytes : 64;
        const __mmask64 bytes_m64 = _bzhi_u64(~0ull, static_cast<unsigned>(now));
        const __m512i x = _mm512_maskz_loadu_epi8(bytes_m64, a), y = _mm512_maskz_loadu_epi8(bytes_m64, b);
#pragma GCC unroll 3
        for (int which = 0; which < n; which++)
            count[which].add(counted_bits<Family>(which, x, y));
        bytes -= now, a += now, b += now;
    }
    const ub4 first = count[0].total();
    if constexpr (Family == bit_family::cosine)
        *result = bit_cosine(first, count[1].total(), count[2].total(), metric);
    else if constexpr (Family == bit_family::jaccard)
        *result = bit_jaccard(first, count[1].total(), metric);
    else if constexpr (Family == bit_family::dotprod)
        *result = bit_dotprod(first, metric);
    else if constexpr (Family == bit_family::euclid)
        *result = euclid_result(first, metric);
    else
        *result = static_cast<double>(first);
    return 0;
}

} // namespace tavo::vector
