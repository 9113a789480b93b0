// Predicate scans of numbers of varying length: the one text of 60 kernels, one for each (operator, width W, tz rule).
//
//   source    n elements of 1 to W / 8 bytes, back to back in src.data: the leading bytes of a big-endian number of W
//             bits whose other bytes are zero. src.lengths is their control stream: each one's length less one
//   tz        in a _tz member the control field is also the row's tz
//   constant  W / 8 bytes in the column's byte order; its tz, a signed byte, at lengths
//   result    bit r of res.bits set where row r qualifies; zeros above row n in the last word; res.count
//
// Nothing outside the n elements and their control bytes is read.
#pragma once

#include "scan/dynp_masks.h"
#include "scan/number_test.h"
#include "scan/scan_frame.h"

namespace tavo {

// Consecutive rows, as the block loop reads them: four control bytes to a compare.
template <class Op, unsigned W, bool Tz>
class dynp_rows {
public:
    static constexpr unsigned rows = 512 / W;
    static constexpr ub4 rows_behind = 16; // of a byte at least: what the last 16-byte load of a block may reach into

    [[gnu::always_inline]] dynp_rows(const ub1 *data, const ub1 *controls, tz_number lo, tz_number hi) noexcept
        : position(data), control(controls), test(lo, hi) {}
    [[gnu::always_inline]] void start_block() const noexcept {}
    [[gnu::always_inline]] ub8 next() noexcept {
        const ub4 fields = four_control_bytes(control);
        control += 4;
        return hits<false>(fields);
    }
    [[gnu::always_inline]] ub8 next_exact() noexcept {
        const ub4 fields = four_control_bytes(control);
        control += 4;
        return hits<true>(fields);
    }
    // The rows behind the last one have fields all the same, as if of one byte each, and their lanes are nobody's.
    [[gnu::always_inline]] ub8 last(unsigned n) noexcept {
        const unsigned bits = n * control_bits<W>;
        ub4 fields = control_bytes_of<W>(control, n);
        const unsigned spare = (8 - bits % 8) % 8; // low bits of the last byte
        if (spare != 0)
            fields &= ~(((1u << spare) - 1) << bits / 8 * 8);
        return hits<true>(fields, n);
    }

private:
    static constexpr unsigned group = rows_per_control_byte<W>;

    // The elements of the first n rows.
    template <bool Exact>
    [[gnu::always_inline]] ub8 hits(ub4 fields, unsigned n = rows) noexcept {
        const __m512i numbers = [&] {
            const __m128i a = elements<Exact>(fields & 0xff, n);
            const __m128i b = elements<Exact>(fields >> 8 & 0xff, n > group ? n - group : 0);
            const __m128i c = elements<Exact>(fields >> 16 & 0xff, n > 2 * group ? n - 2 * group : 0);
            const __m128i d = elements<Exact>(fields >> 24, n > 3 * group ? n - 3 * group : 0);
            const __m512i ab = _mm512_inserti32x4(_mm512_castsi128_si512(a), b, 1);
            return _mm512_inserti32x4(_mm512_inserti32x4(ab, c, 2), d, 3);
        }();
        if constexpr (Tz)
            return test(numbers, tz_lanes(fields));
        else
            return test(numbers);
    }
    // The numbers of one control byte, of whose rows the first n are there.
    template <bool Exact>
    [[gnu::always_inline]] __m128i elements(ub4 fields, unsigned n) noexcept {
        unsigned length = dynp_lengths<W / 8>.row[fields];
        __m128i source;
        if constexpr (Exact) {
            length -= n < group ? group - n : 0;
            source = _mm_maskz_loadu_epi8(static_cast<__mmask16>(_bzhi_u32(0xffff, length)), position);
        } else {
            source = _mm_loadu_si128(reinterpret_cast<const __m128i *>(position));
        }
        position += length;
        return _mm_shuffle_epi8(
            source, _mm_load_si128(reinterpret_cast<const __m128i *>(dynp_shuffles<W / 8>.row[fields])));
    }

    struct no_lanes {};
    const ub1 *position, *control;
    number_test<Op, W, Tz> test;
    [[no_unique_address]] std::conditional_t<Tz, control_lanes<W>, no_lanes> tz_lanes;
};

// Bytes of the elements of eight control bytes: each field is a length less one.
template <unsigned W>
[[gnu::always_inline]] inline ub8 bytes_of_eight_groups(const ub1 *control) noexcept {
    constexpr ub8 lowest_bits = W == 16 ? ~0ull : W == 32 ? 0x5555555555555555 : 0x1111111111111111;
    ub8 fields, bytes = 8 * rows_per_control_byte<W>;
    memcpy(&fields, control, sizeof fields);
#pragma GCC unroll 4
    for (unsigned bit = 0; bit < control_bits<W>; bit++)
        bytes += static_cast<ub8>(__builtin_popcountll(fields >> bit & lowest_bits)) << bit;
    return bytes;
}

// Single rows, asked for in ascending order: there is no index, so the walk adds up the lengths of the rows between.
template <class Op, unsigned W, bool Tz>
struct dynp_column {
    const ub1 *position; // of the first element of the control byte `reached`
    const ub1 *control;
    tz_number lo, hi;
    ub4 reached = 0;

    [[gnu::always_inline]] bool qualifies(ub4 row) noexcept {
        constexpr unsigned rows = rows_per_control_byte<W>;
        const ub4 group = row / rows;
        for (; group - reached >= 8; reached += 8)
            position += bytes_of_eight_groups<W>(control + reached);
        for (; reached != group; reached++)
            position += dynp_lengths<W / 8>.row[control[reached]];
        // The rows before it in its control byte: the table's length without what it counts for the others.
        const unsigned before = row % rows;
        const unsigned fields = control[group] & ~(0xffu >> before * control_bits<W>);
        const ub1 *element = position + dynp_lengths<W / 8>.row[fields] - (rows - before);
        const unsigned field = control_field<W>(control, row);
        const __m128i bytes = _mm_maskz_loadu_epi8(static_cast<__mmask16>((2u << field) - 1), element);
        const ub8 stored = static_cast<ub8>(_mm_cvtsi128_si64(bytes));
        return number_qualifies<Op, Tz>({__builtin_bswap64(stored) >> (64 - W), static_cast<sb4>(field)}, lo, hi);
    }
};

template <class Op, unsigned W, bool Tz>
struct dynp_call {
    tz_number lo, hi{};
    const ub1 *controls;

    [[gnu::always_inline]] dynp_call(const tavo_vec *src, const tavo_vec *lo_vec, const tavo_vec *hi_vec) noexcept
        : lo(read_number<W, Tz>(lo_vec, W)), controls(reinterpret_cast<const ub1 *>(src->lengths)) {
        if constexpr (Op::is_range)
            hi = read_number<W, Tz>(hi_vec, W);
    }
};

template <class Op, unsigned W, bool Tz>
ub4 sparse_dynp_scan(tavo_vec *res, tavo_vec *src, const tavo_vec *lo, const tavo_vec *hi, tavo_env *env,
                     const kernel_texts &texts) noexcept {
    const dynp_call<Op, W, Tz> call(src, lo, hi);
    const ub1 *data = column_data(src, env, texts);
    return scan_selected(res, src, env, dynp_column<Op, W, Tz>{data, call.controls, call.lo, call.hi});
}

template <class Op, unsigned W, bool Tz>
[[gnu::always_inline]] inline ub4 dynp_scan(tavo_vec *res, tavo_vec *src, const tavo_vec *lo, const tavo_vec *hi,
                                            tavo_env *env, const kernel_texts &texts) noexcept {
    if (walks_selection(env))
        return sparse_dynp_scan<Op, W, Tz>(res, src, lo, hi, env, texts);
    return scan_all(res, src, env, texts, [&](const ub1 *data, ub8 *bv, ub4 n) {
        const dynp_call<Op, W, Tz> call(src, lo, hi);
        return scan_blocks(dynp_rows<Op, W, Tz>(data, call.controls, call.lo, call.hi), bv, n);
    });
}

} // namespace tavo
