// Columns of numbers, read a register at a time.
//
//   float_column     binary32 or binary64, native or in comparable form: 16 or 8 lanes of the type
//   integer_column   signed integers of 8 to 64 bits, native or most significant byte first: 8 lanes of 64 bits
//
// Columns have any alignment. Exactly the rows asked for are read; in the lanes behind them there is no particular
// number: what is done with those is masked.
#pragma once

#include <cstring>
#include <type_traits>

#include "frame/comparable.h"
#include "frame/lane_sum.h"

namespace tavo {

template <class T>
[[gnu::always_inline]] inline T read_native(const void *p) noexcept {
    T v;
    std::memcpy(&v, p, sizeof v);
    return v;
}
template <class T>
[[gnu::always_inline]] inline void write_native(void *p, T v) noexcept {
    std::memcpy(p, &v, sizeof v);
}

// ---- Floating-point lanes: one name for the instructions of both types ----

template <class Number>
struct float_lanes;

template <>
struct float_lanes<f32> {
    using value = float;
    using lanes = __m512;
    using half = __m256;
    using mask = __mmask16;
    static constexpr unsigned count = 16;

    [[gnu::always_inline]] static lanes of_bits(__m512i v) noexcept { return _mm512_castsi512_ps(v); }
    [[gnu::always_inline]] static __m512i load(const ub1 *p) noexcept { return _mm512_loadu_si512(p); }
    [[gnu::always_inline]] static __m512i load(const ub1 *p, mask m) noexcept { return _mm512_maskz_loadu_epi32(m, p); }
    [[gnu::always_inline]] static void store(void *p, lanes v) noexcept { _mm512_storeu_ps(p, v); }
    [[gnu::always_inline]] static void store(void *p, mask m, lanes v) noexcept { _mm512_mask_storeu_ps(p, m, v); }
    [[gnu::always_inline]] static lanes broadcast(value v) noexcept { return _mm512_set1_ps(v); }
    [[gnu::always_inline]] static lanes zero() noexcept { return _mm512_setzero_ps(); }
    [[gnu::always_inline]] static lanes add(lanes a, lanes b) noexcept { return _mm512_add_ps(a, b); }
    [[gnu::always_inline]] static lanes sub(lanes a, lanes b) noexcept { return _mm512_sub_ps(a, b); }
    [[gnu::always_inline]] static lanes mul(lanes a, lanes b) noexcept { return _mm512_mul_ps(a, b); }
    [[gnu::always_inline]] static lanes keep(mask m, lanes v) noexcept { return _mm512_maskz_mov_ps(m, v); }
    [[gnu::always_inline]] static half zero_half() noexcept { return _mm512_castps512_ps256(zero()); }
    [[gnu::always_inline]] static half low(lanes v) noexcept { return _mm512_castps512_ps256(v); }
    [[gnu::always_inline]] static half high(lanes v) noexcept { return _mm512_extractf32x8_ps(v, 1); }
    [[gnu::always_inline]] static half add(half a, half b) noexcept { return _mm256_add_ps(a, b); }
    template <unsigned I>
    [[gnu::always_inline]] static value lane(lanes v) noexcept {
        const half eight = I < 8 ? low(v) : high(v);
        const __m128 four = I % 8 < 4 ? _mm256_castps256_ps128(eight) : _mm256_extractf128_ps(eight, 1);
        return _mm_cvtss_f32(I % 4 == 0 ? four : _mm_shuffle_ps(four, four, I % 4));
    }
};

template <>
struct float_lanes<f64> {
    using value = double;
    using lanes = __m512d;
    using half = __m256d;
    using mask = __mmask8;
    static constexpr unsigned count = 8;

    [[gnu::always_inline]] static lanes of_bits(__m512i v) noexcept { return _mm512_castsi512_pd(v); }
    [[gnu::always_inline]] static __m512i load(const ub1 *p) noexcept { return _mm512_loadu_si512(p); }
    [[gnu::always_inline]] static __m512i load(const ub1 *p, mask m) noexcept { return _mm512_maskz_loadu_epi64(m, p); }
    [[gnu::always_inline]] static void store(void *p, lanes v) noexcept { _mm512_storeu_pd(p, v); }
    [[gnu::always_inline]] static void store(void *p, mask m, lanes v) noexcept { _mm512_mask_storeu_pd(p, m, v); }
    [[gnu::always_inline]] static lanes broadcast(value v) noexcept { return _mm512_set1_pd(v); }
    [[gnu::always_inline]] static lanes zero() noexcept { return _mm512_setzero_pd(); }
    [[gnu::always_inline]] static lanes add(lanes a, lanes b) noexcept { return _mm512_add_pd(a, b); }
    [[gnu::always_inline]] static lanes sub(lanes a, lanes b) noexcept { return _mm512_sub_pd(a, b); }
    [[gnu::always_inline]] static lanes mul(lanes a, lanes b) noexcept { return _mm512_mul_pd(a, b); }
    [[gnu::always_inline]] static lanes keep(mask m, lanes v) noexcept { return _mm512_maskz_mov_pd(m, v); }
    [[gnu::always_inline]] static half zero_half() noexcept { return _mm512_castpd512_pd256(zero()); }
    [[gnu::always_inline]] static half low(lanes v) noexcept { return _mm512_castpd512_pd256(v); }
    [[gnu::always_inline]] static half high(lanes v) noexcept { return _mm512_extractf64x4_pd(v, 1); }
    [[gnu::always_inline]] static half add(half a, half b) noexcept { return _mm256_add_pd(a, b); }
    template <unsigned I>
    [[gnu::always_inline]] static value lane(lanes v) noexcept {
        const half four = I < 4 ? low(v) : high(v);
        const __m128d two = I % 4 < 2 ? _mm256_castpd256_pd128(four) : _mm256_extractf128_pd(four, 1);
        return _mm_cvtsd_f64(I % 2 == 0 ? two : _mm_unpackhi_pd(two, two));
    }
};

// The mask of the first n lanes, n below or at their number.
template <class Number>
[[gnu::always_inline]] inline typename float_lanes<Number>::mask first_lanes(ub8 n) noexcept {
    return static_cast<typename float_lanes<Number>::mask>(_bzhi_u32(0xffff, static_cast<ub4>(n)));
}

// A running sum in half a register: lane i of 8 (binary64: of 4) adds up rows i, i + 8, i + 16 ..., each lane in the
// order of its rows; total() folds the lanes. A row that a mask leaves out is added as 0: a lane starts at +0 and so
// never becomes -0, the one number that this would change.
template <class Number>
class half_register_sum {
    using lanes = float_lanes<Number>;

public:
    [[gnu::always_inline]] void add(typename lanes::lanes rows) noexcept {
        sum = lanes::add(lanes::add(sum, lanes::low(rows)), lanes::high(rows));
    }
    [[gnu::always_inline]] void add(typename lanes::lanes rows, typename lanes::mask kept) noexcept {
        add(lanes::keep(kept, rows));
    }
    [[gnu::always_inline]] typename lanes::value total() const noexcept { return lane_sum(sum); }

private:
    typename lanes::half sum = lanes::zero_half();
};

template <class Number, bool Comparable>
struct float_column {
    using lanes = float_lanes<Number>;
    using value = typename lanes::value;
    using mask = typename lanes::mask;
    using partial_sum = half_register_sum<Number>;
    static constexpr unsigned bytes = sizeof(value), count = lanes::count, block = count / 2;

    [[gnu::always_inline]] static typename lanes::lanes decoded(__m512i stored) noexcept {
        if constexpr (Comparable)
            return lanes::of_bits(decode_comparable<Number>(stored));
        else
            return lanes::of_bits(stored);
    }
    [[gnu::always_inline]] static mask first(ub8 rows) noexcept { return first_lanes<Number>(rows); }
    [[gnu::always_inline]] static typename lanes::lanes load(const ub1 *p) noexcept { return decoded(lanes::load(p)); }
    [[gnu::always_inline]] static typename lanes::lanes load(const ub1 *p, ub8 rows) noexcept {
        return decoded(lanes::load(p, first_lanes<Number>(rows)));
    }
    [[gnu::always_inline]] static value one(const ub1 *p) noexcept {
        if constexpr (Comparable)
            return __builtin_bit_cast(value, load_comparable<Number>(p));
        else
            return read_native<value>(p);
    }

    // A register of rows, to be taken one by one.
    struct rows_at {
        typename lanes::lanes rows;
        [[gnu::always_inline]] explicit rows_at(const ub1 *p) noexcept : rows(load(p)) {}
        template <unsigned I>
        [[gnu::always_inline]] value row() const noexcept {
            return lanes::template lane<I>(rows);
        }
    };
};

// ---- Integers ----

// A running sum of 64-bit integers, wrapping: any order gives the same.
class integer_lane_sum {
public:
    [[gnu::always_inline]] void add(__m512i rows) noexcept { sum = _mm512_add_epi64(sum, rows); }
    [[gnu::always_inline]] void add(__m512i rows, __mmask8 kept) noexcept {
        sum = _mm512_mask_add_epi64(sum, kept, sum, rows);
    }
    [[gnu::always_inline]] ub8 total() const noexcept { return static_cast<ub8>(_mm512_reduce_add_epi64(sum)); }

private:
    __m512i sum = _mm512_setzero_si512();
};

template <unsigned Bytes, bool BigEndian>
struct integer_column {
    using value = ub8; // of a signed number, as it wraps
    using mask = __mmask8;
    using partial_sum = integer_lane_sum;
    static constexpr unsigned bytes = Bytes, count = 8, block = 8;

    [[gnu::always_inline]] static __m512i load(const ub1 *p) noexcept {
        if constexpr (Bytes == 1) {
            return _mm512_cvtepi8_epi64(_mm_maskz_loadu_epi8(0xff, p));
        } else if constexpr (Bytes == 2) {
            const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i *>(p));
            return _mm512_cvtepi16_epi64(BigEndian ? _mm_shuffle_epi8(v, reversal_of<__m128i>()) : v);
        } else if constexpr (Bytes == 4) {
            const __m256i v = _mm256_loadu_si256(reinterpret_cast<const __m256i *>(p));
            return _mm512_cvtepi32_epi64(BigEndian ? _mm256_shuffle_epi8(v, reversal_of<__m256i>()) : v);
        } else {
            const __m512i v = _mm512_loadu_si512(p);
            return BigEndian ? reverse_bytes_in_lanes<8>(v) : v;
        }
    }
    [[gnu::always_inline]] static value one(const ub1 *p) noexcept {
        if constexpr (Bytes == 1) {
            return static_cast<ub8>(static_cast<sb8>(static_cast<signed char>(*p)));
        } else {
            using bits = std::conditional_t<Bytes == 2, ub2, std::conditional_t<Bytes == 4, ub4, ub8>>;
            const bits stored = read_native<bits>(p);
            constexpr unsigned above = 64 - 8 * Bytes;
            const ub8 v = BigEndian ? reversed_bytes(stored) : stored;
            return static_cast<ub8>(static_cast<sb8>(v << above) >> above);
        }
    }

    // A register of rows, to be taken one by one: from memory, where each can be the operand of an addition to memory.
    struct rows_at {
        alignas(64) value rows[count];
        [[gnu::always_inline]] explicit rows_at(const ub1 *p) noexcept { _mm512_store_si512(rows, load(p)); }
        template <unsigned I>
        [[gnu::always_inline]] value row() const noexcept {
            return rows[I];
        }
    };

private:
    template <class Register>
    [[gnu::always_inline]] static Register reversal_of() noexcept {
        return read_native<Register>(comparable::reversal<Bytes>.byte);
    }
};

// Calls f with the type of an integer column of so many bits; false for a width that there is none of. One byte has no
// order.
template <class F>
[[gnu::always_inline]] inline bool with_integer_column(ub4 width_bits, bool big_endian, F &&f) noexcept {
    switch (width_bits & 0xff) {
    case 8: f(integer_column<1, false>{}); return true;
    case 16: big_endian ? f(integer_column<2, true>{}) : f(integer_column<2, false>{}); return true;
    case 32: big_endian ? f(integer_column<4, true>{}) : f(integer_column<4, false>{}); return true;
    case 64: big_endian ? f(integer_column<8, true>{}) : f(integer_column<8, false>{}); return true;
    default: return false;
    }
}

// The sum of a column of integers, wrapping.
template <class Column>
ub8 integer_total(Column, const ub1 *data, ub8 rows) noexcept {
    integer_lane_sum sums[2];
    ub8 row = 0;
    for (; row + 2 * Column::count <= rows; row += 2 * Column::count) {
        sums[0].add(Column::load(data + row * Column::bytes));
        sums[1].add(Column::load(data + (row + Column::count) * Column::bytes));
    }
    ub8 total = sums[0].total() + sums[1].total();
    for (; row < rows; row++)
        total += Column::one(data + row * Column::bytes);
    return total;
}

} // namespace tavo
