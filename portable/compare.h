// Comparisons and tests into masks. A masked one leaves the bits that its mask lacks clear.
#pragma once

#include <cstdint>

#include "portable/lanes.h"

#ifndef _MM_CMPINT_EQ
#define _MM_CMPINT_EQ 0
#define _MM_CMPINT_LT 1
#define _MM_CMPINT_LE 2
#define _MM_CMPINT_NE 4
#define _MM_CMPINT_NLT 5
#define _MM_CMPINT_NLE 6
#define _MM_CMPINT_GE 5
#define _MM_CMPINT_GT 6
#endif
#ifndef _CMP_LE_OQ
#define _CMP_EQ_OQ 0
#define _CMP_UNORD_Q 3
#define _CMP_LT_OQ 17
#define _CMP_LE_OQ 18
#define _CMP_NGT_UQ 26
#define _CMP_GE_OQ 29
#define _CMP_GT_OQ 30
#endif

namespace tavo::portable {

// Numbers 0 to 7 of an integer comparison.
template <class Lane>
inline bool compares(Lane a, Lane b, int predicate) {
    switch (predicate & 7) {
    case 0: return a == b;
    case 1: return a < b;
    case 2: return a <= b;
    case 3: return false;
    case 4: return a != b;
    case 5: return a >= b;
    case 6: return a > b;
    default: return true;
    }
}
// Numbers 0 to 31 of a comparison of floats; those from 16 on differ from those below in what they signal alone.
template <class Lane>
inline bool compares_floats(Lane a, Lane b, int predicate) {
    const bool unordered = a != a || b != b;
    switch (predicate & 15) {
    case 0: return !unordered && a == b;
    case 1: return !unordered && a < b;
    case 2: return !unordered && a <= b;
    case 3: return unordered;
    case 4: return unordered || a != b;
    case 5: return unordered || !(a < b);
    case 6: return unordered || !(a <= b);
    case 7: return !unordered;
    case 8: return unordered || a == b;
    case 9: return unordered || !(a >= b);
    case 10: return unordered || !(a > b);
    case 11: return false;
    case 12: return !unordered && a != b;
    case 13: return !unordered && a >= b;
    case 14: return !unordered && a > b;
    default: return true;
    }
}

template <class Lane, class Vector>
inline auto compare(Vector a, Vector b, int predicate) {
    const auto x = lanes<Lane>(a), y = lanes<Lane>(b);
    return mask_where<lanes_in<Lane, Vector>>([&](unsigned i) {
        if constexpr (std::is_floating_point_v<Lane>)
            return compares_floats(x[i], y[i], predicate);
        else
            return compares(x[i], y[i], predicate);
    });
}
// Lanes in which a and b have a set bit in common, or have none.
template <class Lane, class Vector>
inline auto test(Vector a, Vector b) {
    const auto x = lanes<Lane>(a), y = lanes<Lane>(b);
    return mask_where<lanes_in<Lane, Vector>>([&](unsigned i) { return (x[i] & y[i]) != 0; });
}
template <class Lane, class Vector>
inline auto testn(Vector a, Vector b) {
    const auto x = lanes<Lane>(a), y = lanes<Lane>(b);
    return mask_where<lanes_in<Lane, Vector>>([&](unsigned i) { return (x[i] & y[i]) == 0; });
}

// Lanes of one of the classes: 1 quiet NaN, 2 +0, 4 -0, 8 +infinity, 16 -infinity, 32 subnormal, 64 negative and
// finite, 128 signalling NaN.
template <class Lane, class Bits, class Vector>
inline auto of_class(Vector a, int classes) {
    constexpr unsigned width = 8 * sizeof(Bits), fraction = sizeof(Bits) == 4 ? 23 : 52;
    const auto x = lanes<Bits>(a);
    return mask_where<lanes_in<Lane, Vector>>([&](unsigned i) {
        const Bits u = x[i], magnitude = u & ~(Bits{1} << (width - 1));
        const bool negative = u != magnitude;
        const Bits infinity = (Bits{1} << (width - 1)) - (Bits{1} << fraction);
        if (magnitude > infinity)
            return (classes & (u >> (fraction - 1) & 1 ? 1 : 128)) != 0;
        if (magnitude == infinity)
            return (classes & (negative ? 16 : 8)) != 0;
        if (magnitude == 0)
            return (classes & (negative ? 4 : 2)) != 0;
        return ((classes & 32) != 0 && magnitude >> fraction == 0) || ((classes & 64) != 0 && negative);
    });
}

} // namespace tavo::portable

inline __mmask16 _mm512_fpclass_ps_mask(__m512 a, int classes) {
    return tavo::portable::of_class<float, std::uint32_t>(a, classes);
}
inline __mmask8 _mm512_fpclass_pd_mask(__m512d a, int classes) {
    return tavo::portable::of_class<double, std::uint64_t>(a, classes);
}

#define TAVO_COMPARE_BY_NUMBER(prefix, V, Lane, type)                                                                  \
    inline auto prefix##_cmp_##type##_mask(V a, V b, int predicate) {                                                  \
        return tavo::portable::compare<Lane>(a, b, predicate);                                                         \
    }                                                                                                                  \
    inline auto prefix##_mask_cmp_##type##_mask(std::uint64_t mask, V a, V b, int predicate) {                         \
        const auto all = tavo::portable::compare<Lane>(a, b, predicate);                                               \
        return static_cast<std::remove_const_t<decltype(all)>>(all & mask);                                            \
    }
#define TAVO_COMPARE_BY_NAME(prefix, V, Lane, type, name, predicate)                                                   \
    inline auto prefix##_cmp##name##_##type##_mask(V a, V b) { return prefix##_cmp_##type##_mask(a, b, predicate); }   \
    inline auto prefix##_mask_cmp##name##_##type##_mask(std::uint64_t mask, V a, V b) {                                \
        return prefix##_mask_cmp_##type##_mask(mask, a, b, predicate);                                                 \
    }
#define TAVO_COMPARE_INTEGERS(prefix, V, Lane, type)                                                                   \
    TAVO_COMPARE_BY_NUMBER(prefix, V, Lane, type)                                                                      \
    TAVO_COMPARE_BY_NAME(prefix, V, Lane, type, eq, _MM_CMPINT_EQ)                                                     \
    TAVO_COMPARE_BY_NAME(prefix, V, Lane, type, neq, _MM_CMPINT_NE)                                                    \
    TAVO_COMPARE_BY_NAME(prefix, V, Lane, type, lt, _MM_CMPINT_LT)                                                     \
    TAVO_COMPARE_BY_NAME(prefix, V, Lane, type, le, _MM_CMPINT_LE)                                                     \
    TAVO_COMPARE_BY_NAME(prefix, V, Lane, type, gt, _MM_CMPINT_GT)                                                     \
    TAVO_COMPARE_BY_NAME(prefix, V, Lane, type, ge, _MM_CMPINT_GE)
#define TAVO_TEST_INTEGERS(prefix, V, Lane, type)                                                                      \
    inline auto prefix##_test_##type##_mask(V a, V b) { return tavo::portable::test<Lane>(a, b); }                     \
    inline auto prefix##_testn_##type##_mask(V a, V b) { return tavo::portable::testn<Lane>(a, b); }                   \
    inline auto prefix##_mask_test_##type##_mask(std::uint64_t mask, V a, V b) {                                       \
        const auto all = tavo::portable::test<Lane>(a, b);                                                             \
        return static_cast<std::remove_const_t<decltype(all)>>(all & mask);                                            \
    }                                                                                                                  \
    inline auto prefix##_mask_testn_##type##_mask(std::uint64_t mask, V a, V b) {                                      \
        const auto all = tavo::portable::testn<Lane>(a, b);                                                            \
        return static_cast<std::remove_const_t<decltype(all)>>(all & mask);                                            \
    }
#define TAVO_COMPARE(prefix, V, F, D)                                                                                  \
    TAVO_COMPARE_INTEGERS(prefix, V, std::int8_t, epi8)                                                                \
    TAVO_COMPARE_INTEGERS(prefix, V, std::uint8_t, epu8)                                                               \
    TAVO_COMPARE_INTEGERS(prefix, V, std::int16_t, epi16)                                                              \
    TAVO_COMPARE_INTEGERS(prefix, V, std::uint16_t, epu16)                                                             \
    TAVO_COMPARE_INTEGERS(prefix, V, std::int32_t, epi32)                                                              \
    TAVO_COMPARE_INTEGERS(prefix, V, std::uint32_t, epu32)                                                             \
    TAVO_COMPARE_INTEGERS(prefix, V, std::int64_t, epi64)                                                              \
    TAVO_COMPARE_INTEGERS(prefix, V, std::uint64_t, epu64)                                                             \
    TAVO_TEST_INTEGERS(prefix, V, std::uint8_t, epi8)                                                                  \
    TAVO_TEST_INTEGERS(prefix, V, std::uint16_t, epi16)                                                                \
    TAVO_TEST_INTEGERS(prefix, V, std::uint32_t, epi32)                                                                \
    TAVO_TEST_INTEGERS(prefix, V, std::uint64_t, epi64)                                                                \
    TAVO_COMPARE_BY_NUMBER(prefix, F, float, ps)                                                                       \
    TAVO_COMPARE_BY_NUMBER(prefix, D, double, pd)

TAVO_COMPARE(_mm512, __m512i, __m512, __m512d)
TAVO_COMPARE(_mm256, __m256i, __m256, __m256d)
TAVO_COMPARE(_mm, __m128i, __m128, __m128d)

#undef TAVO_COMPARE_BY_NUMBER
#undef TAVO_COMPARE_BY_NAME
#undef TAVO_COMPARE_INTEGERS
#undef TAVO_TEST_INTEGERS
#undef TAVO_COMPARE
