/* Row-major tables: built from columns by the transposes, read by code by the gathers, that is how the result rows of a
 * join or a group-by come together.
 *
 * A code is a 64-bit number that names a table row: the row's index in the low part_low bits, its partition in the bits
 * above them, up to bit part_top.
 *
 *   index      code AND ((1 << part_low) - 1); all of the code with part_low 64
 *   partition  (code AND ((1 << (part_top + 1)) - 1)) >> part_low; 0 with part_low 64
 *
 * A table has one of three forms. The element of row i and column c in partition p:
 *
 *   TAVO_TABLE_REFERENCE  the record of 10 bytes at ref_tables[p] + (i * row_cols + c) * 10: native ub2 length and
 *                         8-byte address
 *   TAVO_TABLE_CLA        with t = cla_tables[p] and k = i * row_cols + c: t[k + 1] - t[k] bytes at
 *                         part_bases[p] + t[k]; the entries are native ub4
 *   TAVO_TABLE_FIXED      col_bytes[c] bytes at part_bases[p] + i * row_bytes + col_offsets[c]
 *
 * Gathers read codes from `src`, by the flags of its context:
 *
 *   TAVO_FIXED            width_bits / 8 bytes each, native and unsigned; of more than 8 bytes the first 8
 *   TAVO_RECORD_CODE      in TAVO_ELEMENT_CLASS: the second word of records of 16 bytes
 *
 * and write elements to `dst`, by the first of these flags that its context has:
 *
 *   flag          data                      lengths       room an element takes of byte_size   tables
 *   TAVO_LV_SEP   the bytes                 the length    length                               reference, cla
 *   TAVO_LV       ub2 length and the bytes                length + 2                           reference, cla
 *   TAVO_LP_SEP   the address               the length    8                                    all
 *   TAVO_LP       record of 10 bytes                      10                                   reference, cla
 *   TAVO_FIXED    the bytes                               length                               fixed
 *
 * Elements come back to back, those of one row after the other; `lengths` is native ub2. dst->byte_size is the room in
 * bytes. There is no limit in elements: `lengths` has a place for every element that the room allows.
 *
 *   1. Set env->resume_row to 0 and call.
 *   2. TAVO_ROWS_FULL (19): the output is full and env->resume_row is the row that did not fit. Elements of its first
 *      columns may stand in the output: drop them. Drain the rest, and call again with the same env.
 *   3. TAVO_DONE: all rows are written, env->resume_row is src->size. dst itself is not written: its rows are those
 *      from the resume_row before the call to the one after it.
 *
 * gather also takes a src of TAVO_LP_SEP or TAVO_LP with a dst of TAVO_LV_SEP or TAVO_LV: then it copies the bytes that
 * src points at and reads no table (the table may be null).
 *
 * TAVO_UNSUPPORTED (2): a form or layout that is none of these; nothing is written. Codes are not checked. Nothing is
 * read outside the elements, records and codes, nothing is written outside the elements.
 *
 * Several threads may gather from one table at once. Columns of one table may be transposed by different threads.
 *
 * All memory is the host's: tables, arrays by partition, and what the addresses in them lead to. Nothing is aligned,
 * but for the arrays of pointers and of ub8 below. */
#ifndef TAVO_ROWS_H
#define TAVO_ROWS_H

#include "tavo_avx512g.h"

#ifdef __cplusplus
extern "C" {
#endif

struct tavo_gather_spec {
    ub4 flags;        /* TAVO_TABLE_... */
    ub2 row_cols;     /* columns of a table row */
    ub2 row_bytes;    /* fixed: bytes of a table row */
    ub1 *col_bytes;   /* fixed: width of each column */
    ub1 *col_offsets; /* fixed: where each column stands in a row */
    ub1 part_top;     /* bit number of the top bit of the partition in a code, 0 to 63 */
    ub1 part_low;     /* bits of the row index, 0 to 64; the partition begins at this bit */
    /* One entry a partition. */
    ub1 **ref_tables;  /* reference: the table */
    ub4 **cla_tables;  /* cla: the table, rows * row_cols + 1 entries (rows + 1 with TAVO_TABLE_ONE_ELEMENT) */
    ub8 *part_bases;   /* cla: address of the element bytes; fixed: address of the table */
    ub1 **ref_cursor;  /* transposes: where the next record of the reference table goes */
    ub4 **cla_cursor;  /* transpose_convert: where the next entry of the cla table goes */
    ub1 **byte_cursor; /* transpose_convert: where the next byte goes; transpose_fixed: the table */
    ub1 **byte_end;    /* transpose_convert: end of the room for bytes */
};

/* tavo_gather_spec.flags. Of several forms the gathers take the first in this order. */
#define TAVO_TABLE_REFERENCE 16u
#define TAVO_TABLE_CLA 8u
#define TAVO_TABLE_FIXED 4u
#define TAVO_TABLE_ONE_ELEMENT                                                                                         \
    2u                              /* gather: a row is one element, whatever row_cols says: that of column 0.         \
                                       transpose_convert: makes one element of all columns of a row */
#define TAVO_TABLE_WITH_LENGTHS 32u /* transpose_convert, reference tables: a length stands before the bytes */

/* Element class of a code source: records of two words, the second being the code. */
#define TAVO_RECORD_CODE 0x41000000u

/* The transposes write a table column by column, or turn one table into another. They allocate nothing. `part` is the
 * partition; a negative one means that the table has none, and stands for 0 (transpose_fixed aborts on it). src is
 * compressed only if its decomp_slot is filled: there is no env to decompress with.
 *
 * transpose_reference  needs TAVO_TABLE_REFERENCE. Writes a reference to each of src->size elements of src, of any
 *                      layout (TAVO_FIXED, TAVO_LV_SEP, TAVO_LV, TAVO_LP_SEP, TAVO_LP, the first that is set), into
 *                      column `col` of the rows from ref_cursor[part] on. The cursor stays: the next column begins
 *                      there too, and the host moves it by rows * row_cols * 10 before it appends further rows.
 * transpose_fixed      needs TAVO_TABLE_FIXED. Writes src->size values into column `col` of the rows from
 *                      byte_cursor[part] on, row_bytes apart. Values: TAVO_FIXED, back to back, of col_bytes[col] bytes
 *                      where that is 1, 2, 4 or 8, else of width_bits / 8 bytes; or with TAVO_SIDE_TABLE | TAVO_DICT
 *                      and 4 or 8 bytes the entry of enc->side_table, ub4 or ub8, that the ub4 code in data names.
 *                      The cursor stays.
 * transpose_convert    copies the element bytes of rows first_row to last_row of the reference table
 *                      from->ref_tables[from_part] together and writes a new index of them. The flags of `table`:
 *
 *     flags                    bytes of a row                     index
 *     REFERENCE | ONE_ELEMENT  per column ub2 length and bytes    one record a row: size of all that, its address
 *     REFERENCE | WITH_LENGTHS the same                           one record a column: the bytes behind the length
 *     REFERENCE                the columns' bytes                 one record a column
 *     CLA | ONE_ELEMENT        per column ub2 length and bytes    one entry a row
 *     CLA                      the columns' bytes                 one entry a column
 *     REFERENCE | CLA          as with REFERENCE and as with CLA, with or without ONE_ELEMENT: both indexes
 *
 *                      ONE_ELEMENT goes before WITH_LENGTHS, which says nothing next to CLA. Lengths are ub2: that of
 *                      a row or element of 65536 bytes and more is cut off, its sum in a cla index is not.
 *                      Bytes go to byte_cursor[to_part], up to byte_end[to_part]; records to ref_cursor[to_part]; cla
 *                      entries, the sum of all sizes so far, to cla_cursor[to_part]. A call with first_row 0 begins the
 *                      partition with the entry 0; a later one goes on from the entry before the cursor. All cursors
 *                      are moved. Whole rows only: on TAVO_TARGET_FULL (18) env->resume_row is the first row that did
 *                      not fit, and nothing of it is left: give more room and call again with it as first_row. On
 *                      TAVO_DONE resume_row is last_row + 1. With last_row below first_row nothing is done but
 *                      env->resume_row = first_row.
 *
 * TAVO_UNSUPPORTED (2): the flag is missing, the source has none of the layouts, or table is null (convert). */

TAVO_STATIC_ASSERT(sizeof(tavo_gather_spec) == 88, "size of tavo_gather_spec");
TAVO_OFFSET(tavo_gather_spec, flags, 0);
TAVO_OFFSET(tavo_gather_spec, row_cols, 4);
TAVO_OFFSET(tavo_gather_spec, row_bytes, 6);
TAVO_OFFSET(tavo_gather_spec, col_bytes, 8);
TAVO_OFFSET(tavo_gather_spec, col_offsets, 16);
TAVO_OFFSET(tavo_gather_spec, part_top, 24);
TAVO_OFFSET(tavo_gather_spec, part_low, 25);
TAVO_OFFSET(tavo_gather_spec, ref_tables, 32);
TAVO_OFFSET(tavo_gather_spec, cla_tables, 40);
TAVO_OFFSET(tavo_gather_spec, part_bases, 48);
TAVO_OFFSET(tavo_gather_spec, ref_cursor, 56);
TAVO_OFFSET(tavo_gather_spec, cla_cursor, 64);
TAVO_OFFSET(tavo_gather_spec, byte_cursor, 72);
TAVO_OFFSET(tavo_gather_spec, byte_end, 80);

#ifdef __cplusplus
}
#endif

#endif
