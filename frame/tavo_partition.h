/* The descriptor of a partition step: rows are scattered by bits of their hashes into one buffer a partition.
 *
 * The partition of a row is (hash & mask) >> low_bit, mask having the bits 0 to high_bit set. Its record goes to
 * write_pointers[partition], which moves behind it. Records lie back to back and have any alignment that the host's
 * buffers give them; all words in them are in the processor's byte order. TAVO_PARTITION_RECORD_BITS of flags choose
 * the record; another combination of them is refused with TAVO_UNSUPPORTED:
 *
 *   flags                                                       bytes   record
 *   TAVO_PARTITION_HASH                                           8     hash
 *   TAVO_PARTITION_HASH | _ROW_ID                                16     row id, hash
 *   TAVO_PARTITION_HASH | _VALUE                                 16     value, hash
 *   TAVO_PARTITION_HASH | _VALUE | _ROW_ID                       24     value, hash, row id
 *   TAVO_PARTITION_HASH | _KEY_REFERENCE                         24     key address, ub2 key length and zeros, hash
 *   TAVO_PARTITION_HASH | _KEY_REFERENCE | _ROW_ID               32     row id, hash, key address, length and zeros
 *   TAVO_PARTITION_HASH | _FIXED_KEY                             24     hash, record_extra bytes of key, zeros
 *
 * The rows' hashes are the first vector's: a ub8 a row if it carries TAVO_HASHES; word 1 of each 16-byte record of the
 * class TAVO_RECORD_RIDHASH, which are copied whole for TAVO_PARTITION_HASH with or without _ROW_ID (other classes of
 * records are refused); else the first vector is the key column itself, in any form that column hashing takes, hashed
 * with seed 0. rids gives row ids by its first_row and may be null for records without one; so may the value or key
 * column. env->resume_row, and for a TAVO_LV key column env->resume_offset, are zero before the first call; on
 * TAVO_PARTITION_FULL they say where to go on, and env->full_partition which partition has no room.
 *
 * The second of them is a record stream that table builds take as TAVO_RECORD_RIDHASH, the fifth one as
 * TAVO_RECORD_LPHASH, the sixth as TAVO_RECORD_RIDLPHASH. */
#ifndef TAVO_PARTITION_H
#define TAVO_PARTITION_H

#include "tavo_avx512g.h"
#include "tavo_kv.h"

#ifdef __cplusplus
extern "C" {
#endif

struct tavo_partition_ctx {
    ub1 flags;        /* what a record holds: TAVO_PARTITION_... */
    ub1 high_bit;     /* highest hash bit of the partition number, 0 to 63 */
    ub1 low_bit;      /* lowest hash bit of it, not above high_bit */
    ub4 record_extra; /* TAVO_PARTITION_FIXED_KEY: bytes of each key element that the record carries, at most 16 and at
                         most the element's width */
    ub1 **write_pointers; /* one a partition: where its next record goes; advanced by the kernel */
    ub1 **end_pointers;   /* one a partition: the end of its buffer */
};

/* tavo_partition_ctx.flags */
#define TAVO_PARTITION_ROW_ID 0x01u        /* the row id: first_row of the row id vector and the row's number */
#define TAVO_PARTITION_VALUE 0x04u         /* a value column: TAVO_FIXED of 32 bits (zero-extended) or 64 */
#define TAVO_PARTITION_HASH 0x08u          /* the hash; every record has it */
#define TAVO_PARTITION_GIVEN_HASHES 0x10u  /* refuse a key column: the first vector has to hold hashes */
#define TAVO_PARTITION_KEY_REFERENCE 0x20u /* key references from a TAVO_LP or TAVO_LP_SEP column */
#define TAVO_PARTITION_FIXED_KEY 0x40u     /* key bytes from a TAVO_FIXED column */
#define TAVO_PARTITION_RECORD_BITS 0x6du

TAVO_STATIC_ASSERT(sizeof(tavo_partition_ctx) == 24, "size of tavo_partition_ctx");
TAVO_OFFSET(tavo_partition_ctx, flags, 0);
TAVO_OFFSET(tavo_partition_ctx, high_bit, 1);
TAVO_OFFSET(tavo_partition_ctx, low_bit, 2);
TAVO_OFFSET(tavo_partition_ctx, record_extra, 4);
TAVO_OFFSET(tavo_partition_ctx, write_pointers, 8);
TAVO_OFFSET(tavo_partition_ctx, end_pointers, 16);

#ifdef __cplusplus
}
#endif

#endif
