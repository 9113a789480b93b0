// Lanes folded into one number. Sums of floats are not among these: compilers differ in the order of their additions,
// so kernels write the order out.
#pragma once

#include <cstdint>

#include "portable/lanes.h"

namespace tavo::portable {

template <class Lane, class Vector, class F>
inline Lane reduce(Vector v, F &&join) {
    const auto of = lanes<Lane>(v);
    Lane result = of[0];
    for (unsigned i = 1; i < of.size(); i++)
        result = join(result, of[i]);
    return result;
}

} // namespace tavo::portable

#define TAVO_REDUCE(name, Result, Lane, joined)                                                                        \
    inline Result _mm512_reduce_##name(__m512i v) {                                                                    \
        return static_cast<Result>(tavo::portable::reduce<Lane>(v, [](Lane a, Lane b) { return joined; }));            \
    }
TAVO_REDUCE(add_epi32, int, std::uint32_t, a + b)
TAVO_REDUCE(add_epi64, long long, std::uint64_t, a + b)
TAVO_REDUCE(or_epi32, int, std::uint32_t, a | b)
TAVO_REDUCE(or_epi64, long long, std::uint64_t, a | b)
TAVO_REDUCE(and_epi64, long long, std::uint64_t, a &b)
TAVO_REDUCE(min_epi32, int, std::int32_t, a < b ? a : b)
TAVO_REDUCE(max_epi32, int, std::int32_t, a < b ? b : a)
TAVO_REDUCE(min_epu32, unsigned, std::uint32_t, a < b ? a : b)
TAVO_REDUCE(max_epu32, unsigned, std::uint32_t, a < b ? b : a)
TAVO_REDUCE(min_epu64, unsigned long long, std::uint64_t, a < b ? a : b)
TAVO_REDUCE(max_epu64, unsigned long long, std::uint64_t, a < b ? b : a)
#undef TAVO_REDUCE
