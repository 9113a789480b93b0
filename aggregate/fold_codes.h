// The extremes of a range of rows: the vector loop over packed codes, W bits each.
//
// Codes are read up to 3 bytes past the last one asked for. Nothing is prefetched: along one stream that is all that is
// read, the processor's own prefetcher is ahead, and prefetches at 512 to 3200 bytes cost a tenth of the speed.
#pragma once

#include <algorithm>

#include "aggregate/code_extremes.h"

namespace tavo {

// Widths with whole codes in a byte: the codes at one place of all bytes are compared where they are, without a
// shuffle.
template <unsigned W>
constexpr bool divides_bytes = W == 1 || W == 2 || W == 4;

template <unsigned W, bool Nullable>
class byte_extremes {
    static_assert(divides_bytes<W>);

public:
    static constexpr unsigned bytes = 64, rows = 512 / W;

    [[gnu::always_inline]] void add(const ub1 *p) noexcept {
        const __m512i source = _mm512_loadu_si512(p);
#pragma GCC unroll 4
        for (unsigned i = 0; i < places; i++)
            at[i].add(_mm512_and_si512(source, place_mask(i)));
    }
    [[gnu::always_inline]] void fold_into(code_extremes &into) const noexcept {
        for (unsigned i = 0; i < places; i++)
            at[i].fold_into(into, shifts[i]);
    }

private:
    static constexpr unsigned places = 8 / W;
    static constexpr unsigned shift(unsigned place) { return 8 - (place + 1) * W; }
    [[gnu::always_inline]] static __m512i place_mask(unsigned place) noexcept {
        return _mm512_set1_epi8(static_cast<char>(((1u << W) - 1) << shift(place)));
    }
    struct place_shifts {
        lane_shifts of_place[places];
        constexpr const lane_shifts &operator[](unsigned place) const { return of_place[place]; }
    };
    static constexpr place_shifts shifts = [] {
        place_shifts s{};
        for (unsigned i = 0; i < places; i++)
            for (ub4 &lane : s.of_place[i].of)
                lane = shift(i);
        return s;
    }();

    lane_extremes<8, Nullable> at[places];
};

// Of bits, it is enough to know whether there is a one, and whether there is a zero.
template <bool Nullable>
class byte_extremes<1, Nullable> {
public:
    static constexpr unsigned bytes = 64, rows = 512;

    [[gnu::always_inline]] void add(const ub1 *p) noexcept {
        const __m512i source = _mm512_loadu_si512(p);
        ones = _mm512_or_si512(ones, source);
        if constexpr (!Nullable)
            all_ones = _mm512_and_si512(all_ones, source);
    }
    [[gnu::always_inline]] void fold_into(code_extremes &into) const noexcept {
        if (_mm512_test_epi64_mask(ones, ones) != 0)
            into.fold(1);
        if (!Nullable && _mm512_cmpneq_epi64_mask(all_ones, _mm512_set1_epi32(-1)) != 0)
            into.fold(0);
    }

private:
    __m512i ones = _mm512_setzero_si512(), all_ones = _mm512_set1_epi32(-1);
};

template <bool Nullable>
[[gnu::always_inline]] inline void fold_code(code_extremes &extremes, ub4 code) noexcept {
    if (!Nullable || code != 0)
        extremes.fold(code);
}

// Folds rows first to stop - 1; without code 0 if Nullable.
template <unsigned W, bool Nullable>
[[gnu::noinline]] code_extremes fold_codes(code_extremes extremes, const ub1 *codes, ub8 first, ub8 stop) noexcept {
    using lanes = code_lanes<W>;
    ub8 row = first;
    for (const ub8 start = std::min((first + 7) / 8 * 8, stop); row < start; row++)
        fold_code<Nullable>(extremes, packed_code<W>(codes, row));
    if (row >= stop)
        return extremes;
    const ub1 *p = codes + row / 8 * W;
    ub8 left = stop - row;

    if constexpr (divides_bytes<W>) {
        using whole = byte_extremes<W, Nullable>;
        if (left >= whole::rows) {
            whole seen;
            for (; left >= whole::rows; left -= whole::rows, p += whole::bytes)
                seen.add(p);
            seen.fold_into(extremes);
        }
    }
    if (left == 0)
        return extremes;
    const lanes source;
    lane_extremes<lanes::lane_bits, Nullable> seen;
    constexpr unsigned at_once = 8;
    if constexpr (!divides_bytes<W>)
        for (; left >= at_once * lanes::rows; left -= at_once * lanes::rows, p += at_once * lanes::bytes)
#pragma GCC unroll 8
            for (unsigned i = 0; i < at_once; i++)
                seen.add(source.fields(lanes::load(p + i * lanes::bytes)));
    for (; left >= lanes::rows; left -= lanes::rows, p += lanes::bytes)
        seen.add(source.fields(lanes::load(p)));
    if (left != 0)
        seen.add(source.fields(lanes::load_first(p, static_cast<unsigned>(left))),
                 static_cast<lane_mask<lanes::lane_bits>>(_bzhi_u64(~0ull, static_cast<unsigned>(left))));
    seen.fold_into(extremes, field_shifts<W>);
    return extremes;
}

} // namespace tavo
