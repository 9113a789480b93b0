// Columns to a table of references. Contract: frame/tavo_rows.h.
#include "frame/tavoc_avx512g.h"
#include "rows/column_elements.h"
#include "rows/partition_entry.h"
#include "rows/row_tables.h"

namespace tavo {
namespace {

// Records of 8 u64 lanes, moved up by 1, 2, 4; zeros from the second operand.
struct alignas(64) wide_lane_moves {
    ub8 by[3][8];
};
consteval wide_lane_moves wide_moves_up() {
    wide_lane_moves m{};
    for (unsigned step = 0; step < 3; step++)
        for (unsigned i = 0; i < 8; i++)
            m.by[step][i] = i < 1u << step ? 8 : i - (1u << step);
    return m;
}
constexpr wide_lane_moves wide_lanes_up = wide_moves_up();

// A table of one column: the records lie together, and are put together from registers.
void write_one_column(ub1 *to, const tavo_vec *src, const ub1 *data, ub4 layout, ub4 rows) noexcept {
    const auto *lengths = reinterpret_cast<const ub1 *>(src->lengths);
    const auto rows_from = [rows](ub4 i) {
        return static_cast<__mmask8>(rows - i < 8 ? (1u << (rows - i)) - 1 : 0xff);
    };
    const auto lengths_u16x8 = [=](ub4 i) {
        return _mm_maskz_loadu_epi16(rows_from(i), lengths + sizeof(ub2) * ub8{i});
    };
    const auto at_u64x8 = [](const ub1 *p) {
        return _mm512_set1_epi64(static_cast<long long>(reinterpret_cast<ub8>(p)));
    };
    switch (layout) {
    case TAVO_FIXED: {
        const unsigned bytes = fixed_element_bytes(TAVO_VEC_ENC_CTX(src));
        const __m512i lane = _mm512_setr_epi64(0, 1, 2, 3, 4, 5, 6, 7);
        const __m512i within = _mm512_mullo_epi64(lane, _mm512_set1_epi64(bytes));
        const __m128i length = _mm512_cvtepi64_epi16(_mm512_set1_epi64(bytes));
        return write_records_of(
            to, rows, [&](ub4 i) { return _mm512_add_epi64(at_u64x8(data + ub8{i} * bytes), within); },
            [&](ub4) { return length; });
    }
    case TAVO_LV_SEP: {
        __m512i start_u64x8 = at_u64x8(data);
        return write_records_of(
            to, rows,
            [&](ub4 i) {
                const __m512i length_u64x8 = _mm512_cvtepu16_epi64(lengths_u16x8(i));
                __m512i sums_u64x8 = length_u64x8;
#pragma GCC unroll 3
                for (unsigned step = 0; step < 3; step++)
                    sums_u64x8 = _mm512_add_epi64(
                        sums_u64x8, _mm512_permutex2var_epi64(sums_u64x8, _mm512_load_si512(wide_lanes_up.by[step]),
                                                              _mm512_setzero_si512()));
                const __m512i address = _mm512_add_epi64(start_u64x8, _mm512_sub_epi64(sums_u64x8, length_u64x8));
                start_u64x8 = _mm512_add_epi64(start_u64x8,
                                               _mm512_permutex2var_epi64(sums_u64x8, _mm512_set1_epi64(7), sums_u64x8));
                return address;
            },
            lengths_u16x8);
    }
    case TAVO_LP_SEP:
        return write_records_of(
            to, rows, [&](ub4 i) { return _mm512_maskz_loadu_epi64(rows_from(i), data + sizeof(ub8) * ub8{i}); },
            lengths_u16x8);
    default: memcpy(to, data, ub8{rows} * lp_elements::record_bytes);
    }
}

} // namespace
} // namespace tavo

using namespace tavo;

extern "C" ub4 tavo_transpose_reference_dydi(tavo_gather_spec *shape, tavo_vec *src, ub2 col, sb4 part) noexcept {
    constexpr unsigned record_bytes = lp_elements::record_bytes;
    if (!(shape->flags & TAVO_TABLE_REFERENCE))
        return TAVO_UNSUPPORTED;
    const ub4 layout = column_elements::layout_of(src, TAVO_FIXED | TAVO_LV_SEP | TAVO_LV | TAVO_LP_SEP | TAVO_LP);
    if (layout == 0)
        return TAVO_UNSUPPORTED;
    const ub4 rows = TAVO_VEC_SIZE(src);
    if (rows == 0)
        return TAVO_DONE;
    const ub1 *data = column_data(src, nullptr, TAVO_KERNEL_TEXTS(tavo_transpose_reference_dydi));
    const ub8 row_bytes = ub8{shape->row_cols} * record_bytes;
    ub1 *to = entry_of(shape->ref_cursor, part) + ub8{col} * record_bytes;
    if (row_bytes == record_bytes && layout != TAVO_LV) {
        write_one_column(to, src, data, layout, rows);
        return TAVO_DONE;
    }
    column_elements elements(src, data, layout, 0);
    element_batch batch;
    for (ub4 row = 0; row < rows; row += element_batch::capacity) {
        const ub4 n = rows - row < element_batch::capacity ? rows - row : element_batch::capacity;
        elements.read(batch, n);
        write_records_apart(to, row_bytes, batch.address, batch.length, n);
        to += n * row_bytes;
    }
    return TAVO_DONE;
}
