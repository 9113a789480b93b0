// The control stream: one small field a row, 1, 2 or 4 bits for numbers of 16, 32 or 64 bits, the first row of a byte in
// its top bits. In dynp columns the field is the element's length less one; beside fixed columns it is the tz.
//
// Four bytes hold the fields of one 512-bit compare at every width.
#pragma once

#include <string.h>

#include "frame/tavo_types.h"
#include "portable/intrinsics.h"
#include "tables/unpack_masks.h"

namespace tavo {

template <unsigned W>
constexpr unsigned control_bits = W == 16 ? 1 : W == 32 ? 2 : 4;
template <unsigned W>
constexpr unsigned rows_per_control_byte = 8 / control_bits<W>;

// The definition: the field of one row.
template <unsigned W>
[[gnu::always_inline]] constexpr unsigned control_field(const ub1 *stream, ub8 row) noexcept {
    constexpr unsigned rows = rows_per_control_byte<W>;
    return stream[row / rows] >> control_bits<W> * (rows - 1 - row % rows) & ((1u << control_bits<W>)-1);
}

[[gnu::always_inline]] inline ub4 four_control_bytes(const ub1 *stream) noexcept {
    ub4 bytes;
    memcpy(&bytes, stream, sizeof bytes);
    return bytes;
}
// The bytes of n rows, at most four, and zeros; no other byte is read.
template <unsigned W>
[[gnu::always_inline]] inline ub4 control_bytes_of(const ub1 *stream, unsigned n) noexcept {
    const unsigned bytes = (n * control_bits<W> + 7) / 8;
    return static_cast<ub4>(
        _mm_cvtsi128_si32(_mm_maskz_loadu_epi8(static_cast<__mmask16>((1u << bytes) - 1), stream)));
}

// The vector form: the fields of four bytes, one a lane of W bits.
template <unsigned W>
class control_lanes {
public:
    [[gnu::always_inline]] control_lanes() noexcept : shifts(_mm512_load_si512(rows.row[0])) {
        if constexpr (W == 16)
            spread = _mm512_load_si512(rows.row[1]);
    }
    [[gnu::always_inline]] __m512i operator()(ub4 four_bytes) const noexcept {
        constexpr int field = (1 << control_bits<W>)-1;
        if constexpr (W == 16)
            return _mm512_and_si512(
                _mm512_srlv_epi16(_mm512_shuffle_epi8(_mm512_set1_epi32(static_cast<int>(four_bytes)), spread), shifts),
                _mm512_set1_epi16(field));
        else if constexpr (W == 32)
            return _mm512_and_si512(_mm512_srlv_epi32(_mm512_set1_epi32(static_cast<int>(four_bytes)), shifts),
                                    _mm512_set1_epi32(field));
        else
            return _mm512_and_si512(_mm512_srlv_epi64(_mm512_set1_epi64(four_bytes), shifts),
                                    _mm512_set1_epi64(field));
    }

private:
    // Row 0: the right shift of each lane. Row 1, for 16-bit lanes, which cannot hold the four bytes: selectors of the
    // one that holds the lane's field.
    static constexpr mask_rows_64<2> rows = [] {
        mask_rows_64<2> t{};
        t.clear_selectors();
        for (unsigned lane = 0; lane < 512 / W; lane++) {
            const unsigned byte = lane / rows_per_control_byte<W>;
            const unsigned in_byte =
                control_bits<W> * (rows_per_control_byte<W> - 1 - lane % rows_per_control_byte<W>);
            t.put(0, lane * W / 8, W / 8, W == 16 ? in_byte : 8 * byte + in_byte);
            t.row[1][lane * W / 8] = static_cast<ub1>(byte);
        }
        return t;
    }();

    __m512i shifts, spread;
};

} // namespace tavo
