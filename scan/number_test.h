// Comparison of numbers that may carry a tz: the pair (number, tz) is ordered by the number, unsigned, and where numbers
// are equal by the tz, signed. Equal means both equal.
#pragma once

#include <string.h>

#include <type_traits>

#include "frame/tavo_vec.h"
#include "scan/compare_lanes.h"
#include "scan/scan_operator.h"

namespace tavo {

struct tz_number {
    ub8 number;
    sb4 tz;
};

// What decides where numbers differ: the operator without its equality.
constexpr int strict_predicate(int predicate) {
    return predicate == _MM_CMPINT_LE ? _MM_CMPINT_LT : predicate == _MM_CMPINT_NLT ? _MM_CMPINT_NLE : predicate;
}

// The definition, for one row.
template <class Op, bool Tz>
[[gnu::always_inline]] inline bool number_qualifies(tz_number x, tz_number lo, tz_number hi) noexcept {
    if constexpr (!Tz) {
        return qualifies<Op, false>(x.number, lo.number, hi.number);
    } else {
        const auto one = [x]<int Predicate>(std::integral_constant<int, Predicate>, tz_number c) {
            return x.number == c.number ? holds<Predicate>(x.tz, c.tz) : holds<Predicate>(x.number, c.number);
        };
        return one(std::integral_constant<int, Op::low>{}, lo) && one(std::integral_constant<int, Op::high>{}, hi);
    }
}

// The vector form: numbers in lanes of W bits, tz values in lanes of the same width.
template <class Op, unsigned W, bool Tz>
class number_test {
public:
    [[gnu::always_inline]] number_test(tz_number lo_constant, tz_number hi_constant) noexcept
        : lo(broadcast_lanes<W>(lo_constant.number)) {
        if constexpr (Op::is_range)
            hi = broadcast_lanes<W>(hi_constant.number);
        if constexpr (Tz)
            lo_tz = broadcast_lanes<W>(static_cast<ub8>(sb8{lo_constant.tz}));
        if constexpr (Tz && Op::is_range)
            hi_tz = broadcast_lanes<W>(static_cast<ub8>(sb8{hi_constant.tz}));
    }

    [[gnu::always_inline]] ub8 operator()(__m512i numbers) const noexcept {
        auto hits = compare_lanes<W, Op::low>(numbers, lo);
        if constexpr (Op::is_range)
            hits = compare_lanes<W, Op::high>(hits, numbers, hi);
        return hits_of_mask(hits);
    }
    [[gnu::always_inline]] ub8 operator()(__m512i numbers, __m512i tz) const noexcept {
        ub8 hits = hits_of_mask(compare_pairs<Op::low>(numbers, lo, tz, lo_tz));
        if constexpr (Op::is_range)
            hits &= hits_of_mask(compare_pairs<Op::high>(numbers, hi, tz, hi_tz));
        return hits;
    }

private:
    template <int Predicate>
    [[gnu::always_inline]] static auto compare_pairs(__m512i numbers, __m512i c, __m512i tz, __m512i c_tz) noexcept {
        const auto ties = compare_lanes<W, _MM_CMPINT_EQ>(numbers, c);
        if constexpr (Predicate == _MM_CMPINT_EQ) {
            return compare_tz<Predicate>(ties, tz, c_tz);
        } else {
            const auto decided = compare_lanes<W, strict_predicate(Predicate)>(numbers, c);
            return static_cast<decltype(ties)>(decided | compare_tz<Predicate>(ties, tz, c_tz));
        }
    }
    template <int Predicate, class Mask>
    [[gnu::always_inline]] static Mask compare_tz(Mask among, __m512i tz, __m512i c_tz) noexcept {
        if constexpr (W == 16)
            return _mm512_mask_cmp_epi16_mask(among, tz, c_tz, Predicate);
        else if constexpr (W == 32)
            return _mm512_mask_cmp_epi32_mask(among, tz, c_tz, Predicate);
        else
            return _mm512_mask_cmp_epi64_mask(among, tz, c_tz, Predicate);
    }

    __m512i lo, hi, lo_tz, hi_tz;
};

// A big-endian number of W bits at p.
template <unsigned W>
[[gnu::always_inline]] inline ub8 load_number(const void *p) noexcept {
    std::conditional_t<W == 8, ub1, std::conditional_t<W == 16, ub2, std::conditional_t<W == 32, ub4, ub8>>> x;
    memcpy(&x, p, sizeof x);
    return __builtin_bswap64(x) >> (64 - W);
}
// The top `width_bits` of W bits.
template <unsigned W>
[[gnu::always_inline]] inline ub8 leading_bits(unsigned width_bits) noexcept {
    return (~0ull << (W - width_bits)) & (~0ull >> (64 - W));
}

// A constant of W bits, stored as the elements of a column are: most significant byte first. Of its number the top
// width_bits count. The tz byte, signed, stands at lengths.
template <unsigned W, bool Tz>
[[gnu::always_inline]] inline tz_number read_number(const tavo_vec *constant, unsigned width_bits) noexcept {
    tz_number c{load_number<W>(constant->data) & leading_bits<W>(width_bits), 0};
    if constexpr (Tz)
        c.tz = static_cast<signed char>(*reinterpret_cast<const ub1 *>(constant->lengths));
    return c;
}

} // namespace tavo
