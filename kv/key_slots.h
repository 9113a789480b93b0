// Keys brought into the form of a table's key slots, and hashes into 64 bits, a chunk of rows at a time. Build and
// probe share it: a key has the same slot bytes on both sides.
#pragma once

#include "kv/bucket.h"
#include "kv/row_source.h"

namespace tavo {

constexpr ub4 chunk_rows = 10 * batch_rows;
constexpr ub4 buffer_rows = chunk_rows + 16;
constexpr unsigned largest_key = 12;

// A column of keys.
struct key_column {
    enum form_t {
        fixed,          // elements of `bytes` bytes at `data`
        packed_lp,      // 10-byte elements: ub2 length, address (TAVO_LP)
        separate_lp,    // addresses at `data`, lengths at `lengths` (TAVO_LP_SEP)
        records_lp_at0, // record stream of `bytes` bytes a row: address at 0, ub2 length at 8
        records_lp_at16 // the same at 16 and 24
    };
    form_t form;
    const ub1 *data;
    const ub2 *lengths;
    ub4 bytes;
};

// A column of hashes, as 64-bit values.
struct hash_column {
    enum form_t {
        wide,        // ub8
        narrow,      // ub4
        cached,      // ub4 codes, their ub4 hashes in `table`
        record_word, // the ub8 at byte `offset` of records of `bytes` bytes
    };
    form_t form;
    const ub1 *data;
    const ub4 *table;
    ub4 bytes, offset;
};

struct key_buffer {
    alignas(64) ub1 slots[buffer_rows * largest_key];
};
struct hash_buffer {
    alignas(64) ub8 hashes[buffer_rows];
};

// Whether a chunk is used where it stands: then rows need not be cut into chunks at all.
inline bool in_place(const key_column &keys, ub4 slot_bytes) noexcept {
    return keys.form == key_column::fixed && keys.bytes == slot_bytes;
}
inline bool in_place(const hash_column &hashes) noexcept { return hashes.form == hash_column::wide; }

// The slots of rows row to row + n - 1: in the column itself or in the buffer. `rows` is the column's size. A fixed key
// wider than the slot is a caller's bug.
const ub1 *key_slots(const key_column &keys, ub4 slot_bytes, ub8 row, ub4 n, ub4 rows, key_buffer &buffer) noexcept;

// The hashes of those rows.
const ub8 *wide_hashes(const hash_column &hashes, ub8 row, ub4 n, hash_buffer &buffer) noexcept;

} // namespace tavo
