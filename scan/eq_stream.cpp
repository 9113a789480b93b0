// Comparison of two columns of one element layout, row by row.
//
//   rows      left.size
//   result    res.count: the rows where both elements are equal; res.bits: their bits, (n + 63) / 64 words, zeros above
//             row n. A column with all rows equal leaves res.bits untouched: there count and status say it all
//   status    short path: 0. General path: 1 if no row is equal, else 0
//
// The short path is taken where one side has TAVO_OVERREAD_OK and no element is longer than 8 bytes. With the flag on
// both sides it reads 8 bytes at the start of an element; otherwise nothing but the elements is read.
//
// The layouts are tried in the order LV_SEP, LV, LP_SEP, LP; what is none of these is fixed.
#include "frame/element_layout.h"
#include "frame/tavoc_avx512g.h"
#include "scan/compare_lanes.h"
#include "scan/row_operations.h"

namespace tavo {
namespace {

// Elements by row, the same for both ways of reaching them: a walk knows only the next one.
template <class Cursor>
struct walked {
    Cursor cursor;
    walked(const tavo_vec *vec, const ub1 *data) noexcept : cursor(vec, data, 0) {}
    [[gnu::always_inline]] element next(ub4 row) noexcept {
        const element e = cursor.at(row);
        cursor.next(row);
        return e;
    }
};
template <class Elements>
struct indexed {
    Elements elements;
    indexed(const tavo_vec *vec, const ub1 *data) noexcept : elements(vec, data) {}
    [[gnu::always_inline]] element next(ub4 row) const noexcept { return elements(row); }
};
template <class Elements>
struct pointed : indexed<Elements> {
    using indexed<Elements>::indexed;
    [[gnu::always_inline]] void prefetch(ub4 row) const noexcept { __builtin_prefetch(this->elements(row).bytes); }
};

// ---- Two elements ----

struct same_bytes {
    [[gnu::always_inline]] bool operator()(element a, element b) const noexcept {
        if (a.length != b.length)
            return false;
        ub4 left = a.length;
        for (; left > 64; left -= 64, a.bytes += 64, b.bytes += 64)
            if (_mm512_cmpneq_epi8_mask(_mm512_loadu_si512(a.bytes), _mm512_loadu_si512(b.bytes)) != 0)
                return false;
        const __mmask64 rest = _bzhi_u64(~0ull, left);
        return _mm512_cmpneq_epi8_mask(_mm512_maskz_loadu_epi8(rest, a.bytes),
                                       _mm512_maskz_loadu_epi8(rest, b.bytes)) == 0;
    }
};
// Elements of up to 8 bytes as numbers. Of an empty one nothing counts.
struct same_words {
    [[gnu::always_inline]] bool operator()(element a, element b) const noexcept {
        ub8 x, y;
        memcpy(&x, a.bytes, sizeof x);
        memcpy(&y, b.bytes, sizeof y);
        return (_bzhi_u64(x ^ y, 8 * a.length) | (a.length ^ b.length)) == 0;
    }
};
struct same_words_exactly {
    [[gnu::always_inline]] static ub8 word(element e) noexcept {
        const auto bytes = static_cast<__mmask16>(_bzhi_u32(0xff, e.length));
        return static_cast<ub8>(_mm_cvtsi128_si64(_mm_maskz_loadu_epi8(bytes, e.bytes)));
    }
    [[gnu::always_inline]] bool operator()(element a, element b) const noexcept {
        return ((word(a) ^ word(b)) | (a.length ^ b.length)) == 0;
    }
};

// ---- All rows ----

// words(w, rows) has the equal rows among the `rows` from 64w on. Writes bits from the first unequal row on, and ones
// before it.
template <class Words>
[[gnu::always_inline]] inline ub4 compare_all(ub8 *bits, ub4 n, Words words) noexcept {
    ub8 count = 0;
    bool all_equal = true;
    for (ub4 w = 0; w < (static_cast<ub8>(n) + 63) / 64; w++) {
        const ub4 rows = n - 64 * w < 64 ? n - 64 * w : 64;
        const ub8 equal = words(w, rows);
        if (all_equal && equal != _bzhi_u64(~0ull, rows)) {
            all_equal = false;
            memset(bits, 0xff, 8 * static_cast<ub8>(w));
        }
        if (!all_equal)
            bits[w] = equal;
        count += static_cast<ub8>(__builtin_popcountll(equal));
    }
    return static_cast<ub4>(count);
}

template <class Stream, class Same>
ub4 compare_streams(ub8 *bits, ub4 n, Stream left, Stream right) noexcept {
    constexpr ub4 ahead = 128; // rows, by which pointers are followed before their elements are needed
    constexpr bool by_pointer = requires { left.prefetch(n); };
    const auto prefetch = [&](ub8 from, ub8 to) {
        if constexpr (by_pointer)
            for (to = to < n ? to : n; from < to; from++) {
                left.prefetch(static_cast<ub4>(from));
                right.prefetch(static_cast<ub4>(from));
            }
    };
    prefetch(0, ahead);
    return compare_all(bits, n, [&](ub4 w, ub4 rows) {
        const ub4 first = 64 * w;
        prefetch(static_cast<ub8>(first) + ahead, static_cast<ub8>(first) + ahead + 64);
        ub8 equal = 0;
        for (ub4 i = 0; i < rows; i++)
            equal |= static_cast<ub8>(Same{}(left.next(first + i), right.next(first + i))) << i;
        return equal;
    });
}

// Fixed elements as wide as a lane, whole registers at a time.
template <unsigned LaneBits>
ub4 compare_lanes_of_columns(ub8 *bits, ub4 n, const ub1 *left, const ub1 *right) noexcept {
    constexpr unsigned rows_per_compare = 512 / LaneBits;
    return compare_all(bits, n, [&](ub4 w, ub4 rows) {
        const ub8 byte = static_cast<ub8>(w) * 64 * LaneBits / 8;
        ub8 equal = 0;
#pragma GCC unroll 8
        for (ub4 i = 0; i < 64; i += rows_per_compare) {
            const ub4 there = rows > i ? rows - i : 0;
            const __mmask64 bytes = _bzhi_u64(~0ull, there < rows_per_compare ? there * LaneBits / 8 : 64);
            const ub8 at = byte + i * LaneBits / 8;
            const auto hits = compare_lanes<LaneBits, _MM_CMPINT_EQ>(_mm512_maskz_loadu_epi8(bytes, left + at),
                                                                     _mm512_maskz_loadu_epi8(bytes, right + at));
            equal |= hits_of_mask(hits) << i;
        }
        return _bzhi_u64(equal, rows);
    });
}

enum class path { general, short_exact, short_overread };

template <class Stream>
ub4 compare_layout(ub8 *bits, ub4 n, path p, const tavo_vec *left_vec, const ub1 *left, const tavo_vec *right_vec,
                   const ub1 *right) noexcept {
    const Stream a(left_vec, left), b(right_vec, right);
    switch (p) {
    case path::short_overread: return compare_streams<Stream, same_words>(bits, n, a, b);
    case path::short_exact: return compare_streams<Stream, same_words_exactly>(bits, n, a, b);
    default: return compare_streams<Stream, same_bytes>(bits, n, a, b);
    }
}

} // namespace
} // namespace tavo

ub4 tavo_eq_stream_dydi(tavo_vec *res, tavo_vec *left, tavo_vec *right, tavo_env *env) noexcept {
    using namespace tavo;
    const tavo_enc_ctx *left_enc = TAVO_VEC_ENC_CTX(left), *right_enc = TAVO_VEC_ENC_CTX(right);
    const ub4 layouts = left_enc->flags & right_enc->flags;
    const bool varying = (layouts & (TAVO_LV_SEP | TAVO_LV | TAVO_LP_SEP | TAVO_LP)) != 0;
    const auto longest_of = [varying](const tavo_enc_ctx *enc) {
        const ub4 bytes = fixed_element_bytes(enc);
        return varying || bytes < enc->max_len ? enc->max_len : bytes;
    };
    const bool is_short = ((left_enc->flags | right_enc->flags) & TAVO_OVERREAD_OK) != 0 && longest_of(left_enc) <= 8 &&
                          longest_of(right_enc) <= 8;
    const path p = !is_short ? path::general : (layouts & TAVO_OVERREAD_OK) ? path::short_overread : path::short_exact;
    const kernel_texts texts = TAVO_KERNEL_TEXTS(tavo_eq_stream_dydi);
    const ub1 *a = column_data(left, env, texts), *b = column_data(right, env, texts);
    const ub4 n = TAVO_VEC_SIZE(left);
    res->count = [&] {
        if (layouts & TAVO_LV_SEP)
            return compare_layout<walked<lv_sep_cursor>>(res->bits, n, p, left, a, right, b);
        if (layouts & TAVO_LV)
            return compare_layout<walked<lv_cursor>>(res->bits, n, p, left, a, right, b);
        if (layouts & TAVO_LP_SEP)
            return compare_layout<pointed<lp_sep_elements>>(res->bits, n, p, left, a, right, b);
        if (layouts & TAVO_LP)
            return compare_layout<pointed<lp_elements>>(res->bits, n, p, left, a, right, b);
        if (fixed_element_bytes(left_enc) == fixed_element_bytes(right_enc))
            switch (fixed_element_bytes(left_enc)) {
            case 1: return compare_lanes_of_columns<8>(res->bits, n, a, b);
            case 2: return compare_lanes_of_columns<16>(res->bits, n, a, b);
            case 4: return compare_lanes_of_columns<32>(res->bits, n, a, b);
            case 8: return compare_lanes_of_columns<64>(res->bits, n, a, b);
            }
        return compare_layout<indexed<fixed_elements>>(res->bits, n, p, left, a, right, b);
    }();
    return !is_short && res->count == 0 ? TAVO_NONE_SELECTED : TAVO_DONE;
}
