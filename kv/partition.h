// Radix partitioning of rows by bits of their hashes; records and contract stand in frame/tavo_partition.h.
//
//   hashes   flag TAVO_HASHES: a ub8 a row; class TAVO_RECORD_RIDHASH: records of row id and hash, which are copied
//            whole (16 bytes, with or without TAVO_PARTITION_ROW_ID; no column; other classes of records are
//            refused); else the key column itself, in any
//            form that column hashing takes, hashed with seed 0
//   rids     its first_row is the row id of row 0; not read for records without a row id
//   column   values or keys of the records; not read, and may be null, for records without any
//   env      resume_row: where to start and, on return, the first row not written. resume_offset: where that row's
//            element of a TAVO_LV key column starts. full_partition
//   result   TAVO_DONE; TAVO_PARTITION_FULL, the next record has no room in its partition; TAVO_UNSUPPORTED, with
//            nothing written. A vector that has no rows left is done, whatever the form
//
// Nothing outside the records is written, nothing behind the columns read but the 3 bytes behind packed codes.
#pragma once

#include "frame/tavo_partition.h"

extern "C" ub4 tavo_partition_dydi(tavo_partition_ctx *ctx, tavo_vec *hashes_or_keys, tavo_vec *rids, tavo_vec *column,
                                   tavo_hash_fn *hash, tavo_env *env) noexcept;
