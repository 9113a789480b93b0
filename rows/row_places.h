// Where the table rows are that codes name: codes read from their column, split, and turned into addresses, a block of
// rows at a time.
#pragma once

#include "frame/element_layout.h"
#include "frame/tavo_rows.h"

namespace tavo {

// Rows of a block, which is also how far ahead of the copy table rows are fetched.
constexpr ub4 block_rows = 32;

struct row_places {
    alignas(64) ub8 row[block_rows];  // the row's index
    alignas(64) ub8 part[block_rows]; // its partition; not written for a table of one
    alignas(64) ub8 at[block_rows];   // the row's address
};

// The codes of a source, as eight-byte numbers.
class row_codes {
public:
    static bool readable(const tavo_enc_ctx *enc) noexcept {
        return (enc->flags & TAVO_FIXED) != 0 || (enc->flags & TAVO_ELEMENT_CLASS) == TAVO_RECORD_CODE;
    }
    row_codes(const tavo_enc_ctx *enc, const ub1 *data) noexcept
        : data_(data), bytes_(enc->flags & TAVO_FIXED ? fixed_element_bytes(enc) : record_bytes),
          records_((enc->flags & TAVO_FIXED) == 0) {}

    // The codes of n rows, at most a block, from `row` on.
    void read(ub8 row, ub4 n, ub8 *codes) const noexcept {
        const ub1 *from = data_ + row * bytes_;
        if (records_) {
            for (ub4 i = 0; i < n; i++)
                memcpy(&codes[i], from + i * record_bytes + 8, sizeof codes[i]);
            return;
        }
        const auto eights = [&](auto widened) {
            for (ub4 i = 0; i < n; i += 8, from += 8 * bytes_)
                _mm512_store_si512(codes + i, widened(_bzhi_u32(0xff, n - i)));
        };
        switch (bytes_) {
        case 8: return eights([&](ub4 rows) { return _mm512_maskz_loadu_epi64(static_cast<__mmask8>(rows), from); });
        case 4:
            return eights([&](ub4 rows) {
                return _mm512_cvtepu32_epi64(_mm256_maskz_loadu_epi32(static_cast<__mmask8>(rows), from));
            });
        case 2:
            return eights([&](ub4 rows) {
                return _mm512_cvtepu16_epi64(_mm_maskz_loadu_epi16(static_cast<__mmask8>(rows), from));
            });
        case 1:
            return eights([&](ub4 rows) {
                return _mm512_cvtepu8_epi64(_mm_maskz_loadu_epi8(static_cast<__mmask16>(rows), from));
            });
        default:
            const auto there = static_cast<__mmask16>(_bzhi_u32(0xff, bytes_));
            for (ub4 i = 0; i < n; i++, from += bytes_)
                codes[i] = static_cast<ub8>(_mm_cvtsi128_si64(_mm_maskz_loadu_epi8(there, from)));
        }
    }

private:
    static constexpr unsigned record_bytes = 16;
    const ub1 *data_;
    unsigned bytes_;
    bool records_;
};

inline ub8 address_in(const void *array, ub8 i) noexcept {
    ub8 address;
    memcpy(&address, static_cast<const ub1 *>(array) + i * sizeof address, sizeof address);
    return address;
}

// Codes, and the table that they lead to: `tables` is an array of addresses, one a partition, of tables with rows of
// `row_bytes` bytes.
class row_finder {
public:
    row_finder(row_codes codes, const tavo_gather_spec *shape, const void *tables, ub8 row_bytes) noexcept
        : codes_(codes), tables_(tables), row_bytes_(row_bytes), row_mask_(_bzhi_u64(~0ull, shape->part_low)),
          part_low_(shape->part_low),
          part_mask_(
              part_low_ >= 64 ? 0 : _bzhi_u64(~0ull, shape->part_top >= 63 ? 64 : shape->part_top + 1u) & ~row_mask_) {}

    // The places of n rows, at most a block, from `row` of the source on.
    [[gnu::noinline]] void find(ub8 row, ub4 n, row_places &places) const noexcept {
        codes_.read(row, n, places.row);
        const __m512i row_mask = _mm512_set1_epi64(static_cast<long long>(row_mask_)),
                      row_bytes = _mm512_set1_epi64(static_cast<long long>(row_bytes_));
        if (part_mask_ == 0) [[likely]] {
            const __m512i table = n == 0 ? row_mask : _mm512_set1_epi64(static_cast<long long>(address_in(tables_, 0)));
            for (ub4 i = 0; i < n; i += 8) {
                const __m512i index = _mm512_and_si512(_mm512_load_si512(places.row + i), row_mask);
                _mm512_store_si512(places.row + i, index);
                _mm512_store_si512(places.at + i, _mm512_add_epi64(table, _mm512_mullo_epi64(index, row_bytes)));
            }
            return;
        }
        for (ub4 i = 0; i < n; i += 8) {
            const __m512i code = _mm512_load_si512(places.row + i), index = _mm512_and_si512(code, row_mask);
            const __m512i part =
                _mm512_srl_epi64(_mm512_and_si512(code, _mm512_set1_epi64(static_cast<long long>(part_mask_))),
                                 _mm_cvtsi32_si128(part_low_));
            _mm512_store_si512(places.row + i, index);
            _mm512_store_si512(places.part + i, part);
            _mm512_store_si512(places.at + i, _mm512_mullo_epi64(index, row_bytes));
        }
        for (ub4 i = 0; i < n; i++)
            places.at[i] += address_in(tables_, places.part[i]);
    }
    bool has_parts() const noexcept { return part_mask_ != 0; }

private:
    row_codes codes_;
    const void *tables_;
    ub8 row_bytes_, row_mask_;
    int part_low_;
    ub8 part_mask_;
};

} // namespace tavo
