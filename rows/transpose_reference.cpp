// Columns to a table of references. Contract: frame/tavo_rows.h.
#include "frame/tavoc_avx512g.h"
#include "rows/column_elements.h"
#include "rows/partition_entry.h"
#include "rows/row_tables.h"

using namespace tavo;

extern "C" ub4 tavo_transpose_reference_dydi(tavo_gather_spec *spec, tavo_vec *src, ub2 col, sb4 part) noexcept {
    constexpr unsigned record_bytes = lp_elements::record_bytes;
    if (!(spec->flags & TAVO_TABLE_REFERENCE))
        return TAVO_UNSUPPORTED;
    const ub4 layout = column_elements::layout_of(src, TAVO_FIXED | TAVO_LV_SEP | TAVO_LV | TAVO_LP_SEP | TAVO_LP);
    if (layout == 0)
        return TAVO_UNSUPPORTED;
    const ub4 rows = TAVO_VEC_SIZE(src);
    if (rows == 0)
        return TAVO_DONE;
    column_elements elements(src, column_data(src, nullptr, TAVO_KERNEL_TEXTS(tavo_transpose_reference_dydi)), layout,
                             0);
    const ub8 cols = spec->row_cols;
    ub1 *to = entry_of(spec->ref_cursor, part) + ub8{col} * record_bytes;
    element_batch batch;
    for (ub4 row = 0; row < rows; row += element_batch::capacity) {
        const ub4 n = rows - row < element_batch::capacity ? rows - row : element_batch::capacity;
        elements.read(batch, n);
        if (cols == 1)
            write_records(to, batch.address, batch.length, n);
        else
            for (ub4 i = 0; i < n; i++)
                put_lp(to, i * cols, {batch.bytes(i), batch.length[i]});
        to += n * cols * record_bytes;
    }
    return TAVO_DONE;
}
