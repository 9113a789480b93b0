// Table rows that go over as pieces of memory: rows of a fixed table to back-to-back bytes, and rows of a cla table,
// whose elements lie together, to bytes with lengths of their own. Both write the rows that fit as a whole, and leave
// the first that does not.
#pragma once

#include "rows/gather_output.h"
#include "rows/table_form.h"

namespace tavo {

// ---- Fixed tables: columns that follow one another in the row and in the output are one piece ----

class row_pieces {
public:
    template <class Columns>
    row_pieces(const fixed_table &table, Columns columns) noexcept {
        for (ub4 i = 0; i < columns.count() && n_ <= capacity; i++) {
            const ub4 offset = table.col_offsets[columns[i]], bytes = table.col_bytes[columns[i]];
            row_bytes_ += bytes;
            if (n_ != 0 && piece_[n_ - 1].offset + piece_[n_ - 1].bytes == offset)
                piece_[n_ - 1].bytes += bytes;
            else if (bytes != 0 && n_++ < capacity)
                piece_[n_ - 1] = {offset, bytes};
        }
    }
    bool few() const noexcept { return n_ <= capacity; }
    ub8 row_bytes() const noexcept { return row_bytes_; }

    // Rows at n addresses, back to back.
    ub1 *copy(ub1 *to, const ub8 *rows, ub4 n) const noexcept {
        if (n_ == 1)
            switch (row_bytes_) {
            case 1: return copy_pieces<1>(to, rows, n);
            case 2: return copy_pieces<2>(to, rows, n);
            case 4: return copy_pieces<4>(to, rows, n);
            case 8: return copy_pieces<8>(to, rows, n);
            case 16: return copy_pieces<16>(to, rows, n);
            default:
                if (row_bytes_ < 64)
                    return copy_short_pieces(to, rows, n);
            }
        for (ub4 k = 0; k < n; k++)
            for (ub4 i = 0; i < n_; i++)
                to = copy_piece(to, reinterpret_cast<const ub1 *>(rows[k] + piece_[i].offset), piece_[i].bytes);
        return to;
    }

private:
    template <unsigned Bytes>
    ub1 *copy_pieces(ub1 *to, const ub8 *rows, ub4 n) const noexcept {
        const ub8 offset = piece_[0].offset;
        for (ub4 k = 0; k < n; k++, to += Bytes)
            memcpy(to, reinterpret_cast<const ub1 *>(rows[k] + offset), Bytes);
        return to;
    }
    ub1 *copy_short_pieces(ub1 *to, const ub8 *rows, ub4 n) const noexcept {
        const ub8 offset = piece_[0].offset;
        const __mmask64 there = _bzhi_u64(~0ull, static_cast<ub4>(row_bytes_));
        for (ub4 k = 0; k < n; k++, to += row_bytes_)
            _mm512_mask_storeu_epi8(to, there,
                                    _mm512_maskz_loadu_epi8(there, reinterpret_cast<const ub1 *>(rows[k] + offset)));
        return to;
    }
    static ub1 *copy_piece(ub1 *to, const ub1 *from, ub4 bytes) noexcept {
        for (; bytes >= 64; bytes -= 64, from += 64, to += 64)
            _mm512_storeu_si512(to, _mm512_loadu_si512(from));
        if (bytes != 0)
            copy_bytes(to, from, bytes);
        return to + bytes;
    }

    static constexpr ub4 capacity = 32;
    struct piece {
        ub4 offset, bytes;
    };
    piece piece_[capacity];
    ub4 n_ = 0; // capacity + 1: too many
    ub8 row_bytes_ = 0;
};

// Returns the number of rows that it has written, 0 for columns in too many pieces.
template <class Columns>
inline ub4 copy_fixed_rows(const fixed_table &table, Columns columns, gather_output &out, ub8 first, ub8 end) noexcept {
    const row_pieces pieces(table, columns);
    if (!pieces.few() || pieces.row_bytes() == 0)
        return 0;
    const ub8 room = out.room() / pieces.row_bytes();
    if (room < end - first)
        end = first + room;
    row_places places;
    for (ub8 row = first; row < end; row += block_rows) {
        const ub4 n = static_cast<ub4>(end - row < block_rows ? end - row : block_rows);
        table.rows.find(row, n, places);
        out.to = pieces.copy(out.to, places.at, n);
    }
    return static_cast<ub4>(end - first);
}

// ---- Cla tables: all elements of a row are one piece ----

inline ub4 copy_cla_rows(const cla_table &table, ub4 cols, gather_output &out, ub8 first, ub8 end) noexcept {
    row_places places;
    for (ub8 row = first; row < end; row += block_rows) {
        const ub4 n = static_cast<ub4>(end - row < block_rows ? end - row : block_rows);
        table.rows.find(row, n, places);
        for (ub4 k = 0; k < n; k++) {
            const element all = table.together(places, k, 0, cols);
            if (all.length > out.room())
                return static_cast<ub4>(row + k - first);
            copy_bytes(out.to, all.bytes, all.length);
            const ub1 *entry = table.entry(places, k, 0);
            for (ub4 i = 0; i < cols; i += 16) {
                const auto there =
                    static_cast<__mmask16>(_bzhi_u32(0xffff, cols - i < 16 ? cols - i : 16)); // of 8 bits
                const __m512i lengths_u32x16 = _mm512_sub_epi32(_mm512_maskz_loadu_epi32(there, entry + 4 * (i + 1)),
                                                                _mm512_maskz_loadu_epi32(there, entry + 4 * i));
                _mm256_mask_storeu_epi16(out.lengths + 2 * i, there, _mm512_cvtepi32_epi16(lengths_u32x16));
            }
            out.to += all.length;
            out.lengths += 2 * cols;
        }
    }
    return static_cast<ub4>(end - first);
}

} // namespace tavo
