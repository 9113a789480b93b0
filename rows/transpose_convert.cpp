// A reference table to a packed one: the bytes of its elements are copied together, row after row, and indexed anew.
// Contract: frame/tavo_rows.h.
//
// Rows go in groups of up to 64 elements, whose lengths are added up before anything is written: so only bytes and
// index entries of rows that fit are ever written. Elements are fetched 32 records ahead of the copy.
#include "frame/tavo_status.h"
#include "rows/element_batch.h"
#include "rows/partition_entry.h"
#include "rows/row_tables.h"

namespace tavo {
namespace {

constexpr ub4 records_ahead = 32;
constexpr unsigned record_bytes = lp_elements::record_bytes;

// The source: records from first_row to last_row, and what of them is fetched.
struct record_source {
    const ub1 *at, *end;

    static void fetch(const ub1 *record) noexcept { __builtin_prefetch(load_address(record + sizeof(ub2)), 0, 1); }
    void fetch_first() const noexcept {
        for (ub8 i = 0; i < records_ahead && at + i * record_bytes < end; i++)
            fetch(at + i * record_bytes);
    }
    // For the k-th record from `at`: the one 32 further on.
    [[gnu::always_inline]] void operator()(ub4 k) const noexcept {
        const ub1 *further = at + (ub8{k} + records_ahead) * record_bytes;
        if (further < end)
            fetch(further);
    }
};

// Where bytes and index entries go.
struct packed_table {
    ub1 *to;
    const ub1 *end;
    ub1 *record;    // null: no reference index
    ub1 *sum_entry; // null: no cla index
    ub4 sum;        // of all sizes so far

    ub8 room() const noexcept { return static_cast<ub8>(end - to); }
    // Index entries of n pieces.
    void index(const ub8 *addresses, const ub4 *sizes, ub4 n) noexcept {
        if (record) {
            write_records(record, addresses, sizes, n);
            record += ub8{n} * record_bytes;
        }
        if (sum_entry) {
            ub4 total = sum;
            for (ub4 k = 0; k < n; k++) {
                total += sizes[k];
                memcpy(sum_entry + k * sizeof total, &total, sizeof total);
            }
            sum_entry += n * sizeof total;
            sum = total;
        }
    }
};

// Head: bytes before an element, for its length. RowIndex: one entry a row, else one an element.
template <unsigned Head, bool RowIndex>
class converter {
public:
    converter(packed_table &table, record_source source, ub4 cols) noexcept
        : table_(table), source_(source), cols_(cols) {}

    // Converts up to n rows, and returns the number of those that fit.
    ub8 convert(ub8 n) noexcept {
        source_.fetch_first();
        if (cols_ == 0) {
            for (ub8 row = 0; RowIndex && row < n; row++)
                index_one(0);
            return n;
        }
        const ub4 group = cols_ < element_batch::capacity ? element_batch::capacity / cols_ : 1;
        for (ub8 row = 0; row < n; row += group) {
            const ub4 rows = n - row < group ? static_cast<ub4>(n - row) : group;
            const ub4 fitting = cols_ <= element_batch::capacity ? convert_group(rows) : convert_wide_row();
            if (fitting != rows)
                return row + fitting;
        }
        return n;
    }

private:
    // Rows of one batch.
    ub4 convert_group(ub4 rows) noexcept {
        read_records(batch_, 0, source_.at, rows * cols_);
        const batch_extent extent = extent_of(batch_.length, rows * cols_);
        if (extent.bytes + ub8{Head} * rows * cols_ > table_.room()) [[unlikely]]
            rows = rows_that_fit();
        if constexpr (RowIndex)
            index_rows(rows);
        else
            index_elements(rows * cols_);
        write_batch(rows * cols_, extent.widest);
        return rows;
    }
    // Where n elements go, which will be written from table_.to on, each behind its head; the end behind them.
    void place(ub8 *start, ub4 n) const noexcept {
        ub8 at = reinterpret_cast<ub8>(table_.to);
        for (ub4 k = 0; k < n; k++) {
            start[k] = at + Head;
            at += Head + batch_.length[k];
        }
        start[n] = at + Head;
    }
    void index_elements(ub4 n) noexcept {
        ub8 start[element_batch::capacity + 8];
        if (table_.record)
            place(start, n);
        table_.index(start, batch_.length, n);
    }
    void index_rows(ub4 rows) noexcept {
        ub8 start[element_batch::capacity + 8];
        ub4 size[element_batch::capacity + 8];
        place(start, rows * cols_);
        for (ub4 row = 0; row < rows; row++) { // the rows' own places overwrite those of elements already seen
            const ub8 first = start[row * cols_];
            size[row] = static_cast<ub4>(start[(row + 1) * cols_] - first);
            start[row] = first - Head;
        }
        table_.index(start, size, rows);
    }
    // The entry of one piece at table_.to.
    void index_one(ub8 bytes) noexcept {
        const ub8 address[8] = {reinterpret_cast<ub8>(table_.to)};
        const ub4 size[8] = {static_cast<ub4>(bytes)};
        table_.index(address, size, 1);
    }
    ub8 size_of_row(ub4 row) const noexcept {
        ub8 size = ub8{Head} * cols_;
        for (ub4 col = 0; col < cols_; col++)
            size += batch_.length[row * cols_ + col];
        return size;
    }
    ub4 rows_that_fit() const noexcept {
        ub4 row = 0;
        for (ub8 room = table_.room(), size; (size = size_of_row(row)) <= room; row++)
            room -= size;
        return row;
    }

    // One row of several batches: 1 if it fits, else 0.
    ub4 convert_wide_row() noexcept {
        ub8 size = ub8{Head} * cols_;
        for (ub4 col = 0; col < cols_; col++)
            size += load_ub2(source_.at + ub8{col} * record_bytes);
        if (size > table_.room())
            return 0;
        if constexpr (RowIndex)
            index_one(size);
        for (ub4 col = 0; col < cols_;) {
            const ub4 left = cols_ - col, n = left < element_batch::capacity ? left : element_batch::capacity;
            read_records(batch_, 0, source_.at, n);
            if constexpr (!RowIndex)
                index_elements(n);
            write_batch(n, extent_of(batch_.length, n).widest);
            col += n;
        }
        return 1;
    }

    void write_batch(ub4 n, ub4 widest) noexcept {
        table_.to = copy_elements<Head>(table_.to, batch_, n, widest, source_);
        source_.at += ub8{n} * record_bytes;
    }

    packed_table &table_;
    record_source source_;
    ub4 cols_;
    element_batch batch_;
};

} // namespace
} // namespace tavo

using namespace tavo;

extern "C" ub4 tavo_transpose_convert_dydi(tavo_gather_spec *shape, const tavo_gather_spec *from, sb4 to_part,
                                           sb4 from_part, ub4 first_row, ub4 last_row, tavo_env *env) noexcept {
    if (!shape || !(shape->flags & (TAVO_TABLE_REFERENCE | TAVO_TABLE_CLA)))
        return TAVO_UNSUPPORTED;
    if (last_row < first_row) {
        env->resume_row = first_row;
        return TAVO_DONE;
    }
    const ub4 cols = from->row_cols;
    const ub8 rows = ub8{last_row} - first_row + 1, row_bytes = ub8{cols} * record_bytes;
    const ub1 *first = entry_of(from->ref_tables, from_part) + first_row * row_bytes;
    packed_table table{entry_of(shape->byte_cursor, to_part), entry_of(shape->byte_end, to_part), nullptr, nullptr, 0};
    if (shape->flags & TAVO_TABLE_REFERENCE)
        table.record = entry_of(shape->ref_cursor, to_part);
    if (shape->flags & TAVO_TABLE_CLA) {
        table.sum_entry = reinterpret_cast<ub1 *>(entry_of(shape->cla_cursor, to_part));
        if (first_row == 0) {
            memcpy(table.sum_entry, &table.sum, sizeof table.sum);
            table.sum_entry += sizeof table.sum;
        } else {
            memcpy(&table.sum, table.sum_entry - sizeof table.sum, sizeof table.sum);
        }
    }
    const record_source source{first, first + rows * row_bytes};
    const bool lengths_before = (shape->flags & (TAVO_TABLE_WITH_LENGTHS | TAVO_TABLE_CLA)) == TAVO_TABLE_WITH_LENGTHS;
    const ub8 fitting = shape->flags & TAVO_TABLE_ONE_ELEMENT ? converter<2, true>(table, source, cols).convert(rows)
                        : lengths_before                      ? converter<2, false>(table, source, cols).convert(rows)
                                                              : converter<0, false>(table, source, cols).convert(rows);
    entry_of(shape->byte_cursor, to_part) = table.to;
    if (table.record)
        entry_of(shape->ref_cursor, to_part) = table.record;
    // The leading entry goes with row 0: a call that does not write that row is made again from row 0.
    if (table.sum_entry && (first_row != 0 || fitting != 0))
        entry_of(shape->cla_cursor, to_part) = reinterpret_cast<ub4 *>(table.sum_entry);
    env->resume_row = static_cast<ub4>(first_row + fitting);
    return fitting == rows ? TAVO_DONE : TAVO_TARGET_FULL;
}
