// Predicate scans of fixed-width numbers: the one text of 80 kernels, one for each (operator, width W, tz rule).
//
//   source    n big-endian unsigned numbers of enc.width_bits bits, back to back; any alignment. width_bits is W, or 24
//             for W = 32, or 40, 48, 56 for W = 64
//   tz        at src.lengths, in a _tz member of 16, 32 or 64 bits: a control stream, or with TAVO_TZ one signed byte
//             for all rows. The _tz members of 8 bits have no tz and do what the plain ones do
//   constant  W / 8 bytes in the column's byte order, of which the first width_bits / 8 count; its tz, a signed byte, at
//             lengths
//   result    bit r of res.bits set where row r qualifies; zeros above row n in the last word; res.count
//
// Nothing before the column is read; the sparse path reads W - width_bits bits past an element, the dense path nothing.
//
// Numbers are compared with the bits that a narrow width lacks as zeros below, elements and constants alike.
#pragma once

#include "scan/code_lanes.h"
#include "scan/dynp_masks.h"
#include "scan/number_test.h"
#include "scan/scan_frame.h"

namespace tavo {

// Elements as wide as their lanes.
template <unsigned W>
class whole_elements {
public:
    [[gnu::always_inline]] explicit whole_elements(unsigned) noexcept {}
    [[gnu::always_inline]] ub8 stride() const noexcept { return 64; }
    [[gnu::always_inline]] __m512i numbers(const ub1 *p) const noexcept { return lanes.fields(lanes.load(p)); }
    [[gnu::always_inline]] __m512i first_numbers(const ub1 *p, unsigned n) const noexcept {
        return lanes.fields(lanes.load_first(p, n));
    }

private:
    code_lanes<W> lanes;
};

// Elements of fewer bytes, which come to the top of their lanes: the words of each 128-bit quarter's elements first, then
// one byte shuffle.
template <unsigned W>
class narrow_elements {
public:
    [[gnu::always_inline]] explicit narrow_elements(unsigned width_bits) noexcept : bytes(width_bits / 8) {
        shuffle = _mm512_broadcast_i32x4(_mm_load_si128(
            reinterpret_cast<const __m128i *>(dynp_shuffles<W / 8>.row[equal_lengths<W / 8>(bytes)])));
        const __m512i quarter = _mm512_srli_epi16(_mm512_load_si512(word_numbers.row[0]), 3);
        const __m512i place = _mm512_and_si512(_mm512_load_si512(word_numbers.row[0]), _mm512_set1_epi16(7));
        const auto quarter_words = static_cast<short>(128 / W * bytes / 2);
        spread = _mm512_add_epi16(_mm512_mullo_epi16(quarter, _mm512_set1_epi16(quarter_words)), place);
    }
    [[gnu::always_inline]] ub8 stride() const noexcept { return 512 / W * bytes; }
    [[gnu::always_inline]] __m512i numbers(const ub1 *p) const noexcept { return load(p, 512 / W); }
    [[gnu::always_inline]] __m512i first_numbers(const ub1 *p, unsigned n) const noexcept { return load(p, n); }

private:
    [[gnu::always_inline]] __m512i load(const ub1 *p, unsigned n) const noexcept {
        const __m512i source = _mm512_maskz_loadu_epi8(_bzhi_u64(~0ull, n * bytes), p);
        return _mm512_shuffle_epi8(_mm512_permutexvar_epi16(spread, source), shuffle);
    }
    static constexpr mask_rows_64<1> word_numbers = [] {
        mask_rows_64<1> t{};
        for (unsigned word = 0; word < 32; word++)
            t.put(0, 2 * word, 2, word);
        return t;
    }();

    unsigned bytes;
    __m512i spread, shuffle;
};

// The tz fields of a column: a stream, or the one of all rows. Only the order of a tz and its constant counts, so with
// one tz for all rows that order is put into the constants, and the fields are zero throughout.
struct tz_source {
    const ub1 *stream;
    bool is_common;

    [[gnu::always_inline]] tz_source(const tavo_vec *src, tz_number &lo, tz_number &hi) noexcept
        : stream(reinterpret_cast<const ub1 *>(src->lengths)),
          is_common(TAVO_ENC_CTX_FLAG(TAVO_VEC_ENC_CTX(src), TAVO_TZ)) {
        if (is_common) {
            const sb4 common = static_cast<signed char>(*stream);
            lo.tz = (lo.tz > common) - (lo.tz < common);
            hi.tz = (hi.tz > common) - (hi.tz < common);
            stream = zeros;
        }
    }

    static constexpr ub1 zeros[4] = {};
};

// Consecutive rows, as the block loop reads them.
template <class Op, unsigned W, bool Tz, class Elements>
class fixed_rows {
public:
    static constexpr unsigned rows = 512 / W;
    static constexpr ub4 rows_behind = 0;

    [[gnu::always_inline]] fixed_rows(const ub1 *data, unsigned width_bits, const ub1 *tz, ub8 tz_stride, tz_number lo,
                                      tz_number hi) noexcept
        : position(data), tz_position(tz), tz_step(tz_stride), elements(width_bits), test(lo, hi) {}
    [[gnu::always_inline]] void start_block() const noexcept {}
    [[gnu::always_inline]] ub8 next() noexcept {
        const __m512i numbers = elements.numbers(position);
        position += elements.stride();
        if constexpr (Tz) {
            const ub4 fields = four_control_bytes(tz_position);
            tz_position += tz_step;
            return test(numbers, tz_lanes(fields));
        } else {
            return test(numbers);
        }
    }
    [[gnu::always_inline]] ub8 next_exact() noexcept { return next(); }
    [[gnu::always_inline]] ub8 last(unsigned n) const noexcept {
        const __m512i numbers = elements.first_numbers(position, n);
        if constexpr (Tz)
            return test(numbers, tz_lanes(control_bytes_of<W>(tz_position, n)));
        else
            return test(numbers);
    }

private:
    struct no_lanes {};
    const ub1 *position, *tz_position;
    ub8 tz_step;
    Elements elements;
    number_test<Op, W, Tz> test;
    [[no_unique_address]] std::conditional_t<Tz, control_lanes<W>, no_lanes> tz_lanes;
};

// Single rows.
template <class Op, unsigned W, bool Tz>
struct fixed_column {
    const ub1 *data;
    unsigned bytes;
    const ub1 *tz;
    bool tz_is_common;
    tz_number lo, hi;

    [[gnu::always_inline]] const ub1 *address(ub4 row) const noexcept { return data + static_cast<ub8>(row) * bytes; }
    [[gnu::always_inline]] bool qualifies(ub4 row) const noexcept {
        tz_number x{load_number<W>(address(row)) & leading_bits<W>(8 * bytes), 0};
        if constexpr (Tz)
            x.tz = tz_is_common ? 0 : static_cast<sb4>(control_field<W>(tz, row));
        return number_qualifies<Op, Tz>(x, lo, hi);
    }
};

// A call's operands, read once.
template <class Op, unsigned W, bool Tz>
struct fixed_call {
    unsigned width_bits;
    tz_number lo, hi{};
    const ub1 *tz = nullptr;
    bool tz_is_common = false;

    [[gnu::always_inline]] fixed_call(const tavo_vec *src, const tavo_vec *lo_vec, const tavo_vec *hi_vec) noexcept
        : width_bits(width_of(TAVO_VEC_ENC_CTX(src)->width_bits & 0xff)), lo(read_number<W, Tz>(lo_vec, width_bits)) {
        if constexpr (Op::is_range)
            hi = read_number<W, Tz>(hi_vec, width_bits);
        if constexpr (Tz) {
            const tz_source source(src, lo, hi);
            tz = source.stream;
            tz_is_common = source.is_common;
        }
    }
    // The widths that a kernel takes; whatever else a context says, elements are as wide as the kernel's name.
    static unsigned width_of(unsigned width_bits) noexcept {
        const bool narrow = W == 32   ? width_bits == 24
                            : W == 64 ? width_bits == 40 || width_bits == 48 || width_bits == 56
                                      : false;
        return narrow ? width_bits : W;
    }

    template <class Elements>
    [[gnu::always_inline]] ub4 scan(const ub1 *data, ub8 *bv, ub4 n) const noexcept {
        return scan_blocks(
            fixed_rows<Op, W, Tz, Elements>(data, width_bits, tz, tz_is_common ? 0 : 4, lo, hi), bv, n);
    }
};

template <class Op, unsigned W, bool Tz>
ub4 sparse_fixed_scan(tavo_vec *res, tavo_vec *src, const tavo_vec *lo, const tavo_vec *hi, tavo_env *env,
                      const kernel_texts &texts) noexcept {
    const fixed_call<Op, W, Tz> call(src, lo, hi);
    const ub1 *data = column_data(src, env, texts);
    return scan_selected(
        res, src, env,
        fixed_column<Op, W, Tz>{data, call.width_bits / 8, call.tz, call.tz_is_common, call.lo, call.hi});
}

// Selective: the member that walks a selection, where it has a name of its own.
template <class Op, unsigned W, bool Variant, tavo_range_scan_fn *Selective = nullptr>
[[gnu::always_inline]] inline ub4 fixed_scan(tavo_vec *res, tavo_vec *src, tavo_vec *lo, tavo_vec *hi, tavo_env *env,
                                             const kernel_texts &texts) noexcept {
    constexpr bool tz = Variant && W != 8;
    if (walks_selection(env)) {
        if constexpr (Selective != nullptr)
            return Selective(res, src, lo, hi, env);
        else
            return sparse_fixed_scan<Op, W, tz>(res, src, lo, hi, env, texts);
    }
    return scan_all(res, src, env, texts, [&](const ub1 *data, ub8 *bv, ub4 n) {
        const fixed_call<Op, W, tz> call(src, lo, hi);
        if constexpr (W >= 32)
            if (call.width_bits != W)
                return call.template scan<narrow_elements<W>>(data, bv, n);
        return call.template scan<whole_elements<W>>(data, bv, n);
    });
}

} // namespace tavo
