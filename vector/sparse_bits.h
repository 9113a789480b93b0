// Distances of sparse bit vectors: the lists of dimension numbers are the sets, and their common part decides all.
#pragma once

#include "vector/bits.h"
#include "vector/sparse_merge.h"

namespace tavo::vector {

template <bit_family Family>
[[gnu::always_inline]] inline ub8 sparse_bits(const void *left, const void *right, ub4 metric, double *result) {
    sparse_merge merge{sparse_list_of(left), sparse_list_of(right), 0, 0};
    match matches[match_room];
    ub4 both = 0;
    while (const ub4 n = next_matches(merge, matches))
        both += n;
    const ub4 a = merge.left.count, b = merge.right.count, one = a + b - 2 * both;
    if constexpr (Family == bit_family::cosine)
        *result = bit_cosine(both, a, b, metric);
    else if constexpr (Family == bit_family::jaccard)
        *result = bit_jaccard(both, a + b - both, metric);
    else if constexpr (Family == bit_family::dotprod)
        *result = bit_dotprod(both, metric);
    else if constexpr (Family == bit_family::euclid)
        *result = euclid_result(one, metric);
    else
        *result = static_cast<double>(one);
    return 0;
}

} // namespace tavo::vector
