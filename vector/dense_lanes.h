// Distance of two dense vectors of one element type, in lanes.
//
// Three stages: main blocks with independent accumulators, single registers into accumulator 0, a masked rest into the
// same. The lanes of accumulators 1 and up are summed when the main blocks are done, each as told in forms.h, and added
// to the totals in the order of the accumulators; accumulator 0 comes last. Which element meets which accumulator and
// lane, and so every rounding, is part of a member's result.
#pragma once

#include <type_traits>

#include "vector/metrics.h"

namespace tavo::vector {

// Registers of a main block.
template <class Metric>
constexpr unsigned block_registers(base type) {
    return std::is_same_v<Metric, cosine> || type == base::int8 ? 3 : 8;
}

// bfloat16 comes dealt where a block has pairs of registers.
template <class Metric, base Type>
constexpr bool dealt = (Type == base::bfloat16) && (block_registers<Metric>(Type) % 2 == 0);

// Brings the lanes of two dealt accumulators into the order of the elements.
[[gnu::always_inline]] inline void gather_dealt(__m512 &even, __m512 &odd) {
    const __m512i first = _mm512_setr_epi32(0, 16, 1, 17, 2, 18, 3, 19, 4, 20, 5, 21, 6, 22, 7, 23);
    const __m512i second = _mm512_add_epi32(first, _mm512_set1_epi32(8));
    const __m512 low = _mm512_permutex2var_ps(even, first, odd);
    odd = _mm512_permutex2var_ps(even, second, odd);
    even = low;
}

template <class Metric, class Left, class Right>
[[gnu::always_inline]] inline typename Metric::totals dense_lanes(ub4 dims, const ub1 *left, const ub1 *right) {
    using L = typename loader<Left>::lanes;
    constexpr base type = Left::type;
    constexpr unsigned registers = block_registers<Metric>(type), step = L::count * Left::bytes;
    const auto threshold = L::broadcast(hamming_threshold(type, type));

    typename Metric::template accumulator<L> sums[registers];
#pragma GCC unroll 8
    for (unsigned k = 0; k < registers; k++)
        sums[k].clear();
    typename Metric::totals totals{};

    const bool any_block = dims >= registers * L::count;
    ub4 blocks = dims / (registers * L::count), rest = dims % (registers * L::count);
    if (any_block) {
        do {
            decltype(loader<Left>::one(left)) a[2], b[2];
#pragma GCC unroll 4
            for (unsigned k = 0; k + 1 < registers; k += 2) {
                if constexpr (dealt<Metric, type>) {
                    loader<Left>::dealt(left + k * step, a);
                    loader<Right>::dealt(right + k * step, b);
                } else {
                    loader<Left>::two(left + k * step, a);
                    loader<Right>::two(right + k * step, b);
                }
                sums[k].step(a[0], b[0], threshold);
                sums[k + 1].step(a[1], b[1], threshold);
            }
            if constexpr (registers % 2 != 0)
                sums[registers - 1].step(loader<Left>::one(left + (registers - 1) * step),
                                         loader<Right>::one(right + (registers - 1) * step), threshold);
            left += registers * step;
            right += registers * step;
        } while (--blocks != 0);
        if constexpr (dealt<Metric, type> && !std::is_same_v<Metric, hamming>) {
#pragma GCC unroll 4
            for (unsigned k = 0; k < registers; k += 2)
                gather_dealt(sums[k].sum, sums[k + 1].sum);
        }
    }
#pragma GCC unroll 1
    for (; rest >= L::count; rest -= L::count, left += step, right += step)
        sums[0].step(loader<Left>::one(left), loader<Right>::one(right), threshold);
    if (rest != 0) {
        const auto m = L::first(rest);
        sums[0].step(loader<Left>::masked(left, m), loader<Right>::masked(right, m), threshold, m);
    }
    if (any_block)
        Metric::template accumulator<L>::add_all(totals, sums);
    else
        sums[0].add_to(totals);
    return totals;
}

} // namespace tavo::vector
