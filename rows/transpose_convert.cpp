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
    // The index entry of `size` bytes at `bytes`.
    [[gnu::always_inline]] void index(const ub1 *bytes, ub8 size) noexcept {
        if (record) {
            put_lp(record, 0, {bytes, static_cast<ub4>(size)});
            record += record_bytes;
        }
        if (sum_entry) {
            sum += static_cast<ub4>(size);
            memcpy(sum_entry, &sum, sizeof sum);
            sum_entry += sizeof sum;
        }
    }
    // The entries of n elements that go to `to`, each behind `head` bytes.
    template <unsigned Head>
    void index_elements(const element_batch &batch, ub4 n) noexcept {
        if (record) {
            alignas(64) ub8 target[element_batch::capacity + 8];
            ub8 at = reinterpret_cast<ub8>(to);
            for (ub4 k = 0; k < n; k++) {
                target[k] = at + Head;
                at += Head + batch.length[k];
            }
            write_records(record, target, batch.length, n);
            record += n * record_bytes;
        }
        if (sum_entry)
            for (ub4 k = 0; k < n; k++, sum_entry += sizeof sum) {
                sum += batch.length[k];
                memcpy(sum_entry, &sum, sizeof sum);
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
                table_.index(table_.to, 0);
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
        if constexpr (RowIndex) {
            ub1 *start = table_.to;
            for (ub4 row = 0; row < rows; row++) {
                const ub8 size = size_of_row(row);
                table_.index(start, size);
                start += size;
            }
        }
        write_batch(rows * cols_, extent.widest);
        return rows;
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
            table_.index(table_.to, size);
        for (ub4 col = 0; col < cols_;) {
            const ub4 left = cols_ - col, n = left < element_batch::capacity ? left : element_batch::capacity;
            read_records(batch_, 0, source_.at, n);
            write_batch(n, extent_of(batch_.length, n).widest);
            col += n;
        }
        return 1;
    }

    void write_batch(ub4 n, ub4 widest) noexcept {
        if constexpr (!RowIndex)
            table_.template index_elements<Head>(batch_, n);
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

extern "C" ub4 tavo_transpose_convert_dydi(tavo_gather_spec *spec, const tavo_gather_spec *from, sb4 to_part,
                                           sb4 from_part, ub4 first_row, ub4 last_row, tavo_env *env) noexcept {
    if (!spec || !(spec->flags & (TAVO_TABLE_REFERENCE | TAVO_TABLE_CLA)))
        return TAVO_UNSUPPORTED;
    if (last_row < first_row) {
        env->resume_row = first_row;
        return TAVO_DONE;
    }
    const ub4 cols = from->row_cols;
    const ub8 rows = ub8{last_row} - first_row + 1, row_bytes = ub8{cols} * record_bytes;
    const ub1 *first = entry_of(from->ref_tables, from_part) + first_row * row_bytes;
    packed_table table{entry_of(spec->byte_cursor, to_part), entry_of(spec->byte_end, to_part), nullptr, nullptr, 0};
    if (spec->flags & TAVO_TABLE_REFERENCE)
        table.record = entry_of(spec->ref_cursor, to_part);
    if (spec->flags & TAVO_TABLE_CLA) {
        table.sum_entry = reinterpret_cast<ub1 *>(entry_of(spec->cla_cursor, to_part));
        if (first_row == 0) {
            memcpy(table.sum_entry, &table.sum, sizeof table.sum);
            table.sum_entry += sizeof table.sum;
        } else {
            memcpy(&table.sum, table.sum_entry - sizeof table.sum, sizeof table.sum);
        }
    }
    const record_source source{first, first + rows * row_bytes};
    const bool lengths_before = (spec->flags & (TAVO_TABLE_WITH_LENGTHS | TAVO_TABLE_CLA)) == TAVO_TABLE_WITH_LENGTHS;
    const ub8 fitting = spec->flags & TAVO_TABLE_ONE_ELEMENT ? converter<2, true>(table, source, cols).convert(rows)
                        : lengths_before                     ? converter<2, false>(table, source, cols).convert(rows)
                                                             : converter<0, false>(table, source, cols).convert(rows);
    entry_of(spec->byte_cursor, to_part) = table.to;
    if (table.record)
        entry_of(spec->ref_cursor, to_part) = table.record;
    // The leading entry goes with row 0: a call that does not write that row is made again from row 0.
    if (table.sum_entry && (first_row != 0 || fitting != 0))
        entry_of(spec->cla_cursor, to_part) = reinterpret_cast<ub4 *>(table.sum_entry);
    env->resume_row = static_cast<ub4>(first_row + fitting);
    return fitting == rows ? TAVO_DONE : TAVO_TARGET_FULL;
}
