// Data and baselines of the vector benchmarks.
#pragma once

#include <cstdlib>
#include <cstring>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "bench/kit/plain.h"
#include "frame/tavo.h"
#include "portable/intrinsics.h"

namespace tavo::bench {

struct free_block {
    void operator()(void *p) const { std::free(p); }
};
// 64-byte aligned memory of whole cache lines.
inline std::unique_ptr<ub1, free_block> block(std::size_t bytes) {
    return std::unique_ptr<ub1, free_block>(static_cast<ub1 *>(std::aligned_alloc(64, (bytes + 63) / 64 * 64 + 64)));
}

inline std::size_t element_bits(ub4 type) {
    switch (type) {
    case TAVO_ELEM_FLOAT: return 32;
    case TAVO_ELEM_DOUBLE: return 64;
    case TAVO_ELEM_INT8: return 8;
    case TAVO_ELEM_BITMSB0: return 1;
    default: return 16;
    }
}

// Elements of a type: numbers of size 1, in either form (comparable float bytes are as good as any other).
inline void fill_elements(ub1 *to, std::size_t elements, ub4 type, std::mt19937_64 &rng) {
    std::uniform_real_distribution<float> number(-1, 1);
    for (std::size_t i = 0; i < elements; i++)
        switch (type) {
        case TAVO_ELEM_FLOAT: reinterpret_cast<float *>(to)[i] = number(rng); break;
        case TAVO_ELEM_DOUBLE: reinterpret_cast<double *>(to)[i] = number(rng); break;
        case TAVO_ELEM_FLOAT16: reinterpret_cast<ub2 *>(to)[i] = static_cast<ub2>((rng() & 0x83ff) | 0x3800); break;
        case TAVO_ELEM_BFLOAT16: reinterpret_cast<ub2 *>(to)[i] = static_cast<ub2>((rng() & 0x807f) | 0x3f00); break;
        case TAVO_ELEM_INT8: to[i] = static_cast<ub1>(rng()); break;
        default:
            if (i % 8 == 0)
                to[i / 8] = static_cast<ub1>(rng());
        }
}

// The limit in cache: loads both operands and does next to nothing with them.
[[gnu::noinline]] inline unsigned long load_both(const ub1 *a, const ub1 *b, std::size_t bytes) {
    __m512i sum[8] = {};
    std::size_t i = 0;
    for (; i + 256 <= bytes; i += 256)
#pragma GCC unroll 4
        for (std::size_t k = 0; k < 4; k++) {
            sum[k] = _mm512_or_si512(sum[k], _mm512_loadu_si512(a + i + 64 * k));
            sum[k + 4] = _mm512_or_si512(sum[k + 4], _mm512_loadu_si512(b + i + 64 * k));
        }
    for (; i + 64 <= bytes; i += 64)
        sum[0] = _mm512_ternarylogic_epi64(sum[0], _mm512_loadu_si512(a + i), _mm512_loadu_si512(b + i), 0xfe);
    for (int k = 1; k < 8; k++)
        sum[0] = _mm512_or_si512(sum[0], sum[k]);
    return static_cast<unsigned long>(_mm512_reduce_or_epi64(sum[0]));
}

} // namespace tavo::bench
