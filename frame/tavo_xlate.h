/* Translation of dictionary codes, or of decimal numbers, through a table that the host builds: operation TAVO_OP_XLATE
 * of the dispatch table, tavo_xlate_<lookup>_<element>[_c2d][_<layout>].
 *
 *   res->bits     set for the rows that have a partner, else cleared, from env->start_row on up to the end of the last
 *                 word; bits before start_row stay. May be env->sel_bits itself
 *   res->data     two ub4: the first and the last such row, 0xffffffff for none
 *   res->count    their number
 *   src           size rows in one of the layouts below. A stream (TAVO_SPAK) is decompressed first
 *   dict->bits    the table
 *   env           xlate_ctx: a tavo_xlate_ctx; start_row; sel_bits, or null: rows that count. result_flags2 |= 1 where
 *                 sel_bits has been applied; result_flags stays. Neither ones_vec nor src->sel is read
 *   env->xlate_out  _c2d: one entry a row, by row number: the partner or, where the row has none, all ones. Rows that
 *                 do not count keep what they had
 *   returns       TAVO_DONE; TAVO_NONE_SELECTED if no row has a partner; TAVO_UNSUPPORTED, with nothing written, if src
 *                 has not the form of the layout
 *
 * Lookup of a code from low to high. Other codes have no partner; for them the entry of the nearest such code may be
 * loaded, and none if low is above high:
 *
 *   sim   table[code]
 *   off   table[code - low]
 *   ind   table is an array of leaf addresses: leaf = table[code >> shift], entry code & ((1 << shift) - 1) of it. A
 *         null leaf: no partner
 *
 * Elements; an entry of all ones means no partner:
 *
 *   bit   entry i is bit i & 7 of byte i >> 3; 1 means no partner, 0 a partner. Has no _c2d member
 *   nib   the low half of byte i >> 1 for an even i, the high half for an odd one; xlate_out has a byte a row
 *   ub1, ub2, ub4   native numbers of 1, 2, 4 bytes, of any alignment
 *
 * Layouts of src:
 *
 *   (none)  big-endian ub4 codes; enc has TAVO_HASHES and a width_bits of 32
 *   _cla    numbers in a byte pool at data: row r is the bytes from enc->cla[r] up to enc->cla[r + 1] (big-endian ub4)
 *   _const  numbers of width_bits / 8 bytes each, back to back
 *   _sep    numbers back to back, their lengths in lengths
 *
 * A decimal number is byte 128 alone for 0; else an exponent byte of 192 and more for positive numbers, the count of
 * digit pairs before the point being that less 192, and one byte for each base-100 digit pair, the pair plus 1. Its
 * code is its pairs at 7 bits each, zero pairs behind the last one included: 4702 is {194, 48, 3} and has code 47 << 7
 * | 2, 100 is {194, 2} and has code 1 << 7. Rows without a code have no partner: negative numbers and fractions, more
 * than four stored pairs, codes of more than 32 bits, no byte at all.
 *
 * Nothing is read past the end of table, leaves, codes, numbers, lengths or offsets. With sel_bits only selected rows'
 * codes and numbers are read (and up to 7 bytes before a number, of the same array), but all lengths of _sep up to the
 * last selected row. */
#ifndef TAVO_XLATE_H
#define TAVO_XLATE_H

#include "tavo_types.h"
#include "tavo_vec.h"

#ifdef __cplusplus
extern "C" {
#endif

typedef struct tavo_xlate_ctx tavo_xlate_ctx;
typedef struct tavo_xlate_groupkey_ctx tavo_xlate_groupkey_ctx;

/* What env->xlate_ctx points at. */
struct tavo_xlate_ctx {
    ub4 low;   /* smallest code with an entry in the table */
    ub4 high;  /* largest one; below low: there is none */
    ub4 shift; /* ind: log2 of a leaf's entries */
};

/* Fourth argument of tavo_xlate_groupkey_{nib,ub1,ub2,ub4}_c2d(keys, src, ignored, ctx), class TAVO_CLASS_OTHER: adds
 * one column to composite group keys, key[r] += table[code[r]] * stride, modulo 2^32. keys->data is a ub4 array that
 * holds what the columns before gave; src->data are big-endian ub4 codes, src->size of them, and src->enc is not read.
 * Codes are trusted. Returns TAVO_DONE. Nothing is read past the end of the table. */
struct tavo_xlate_groupkey_ctx {
    ub4 stride;        /* product of the former columns' cardinalities */
    const void *table; /* entries of the member's element, by code */
};

TAVO_STATIC_ASSERT(sizeof(tavo_xlate_ctx) == 12, "size of tavo_xlate_ctx");
TAVO_OFFSET(tavo_xlate_ctx, low, 0);
TAVO_OFFSET(tavo_xlate_ctx, high, 4);
TAVO_OFFSET(tavo_xlate_ctx, shift, 8);

TAVO_STATIC_ASSERT(sizeof(tavo_xlate_groupkey_ctx) == 16, "size of tavo_xlate_groupkey_ctx");
TAVO_OFFSET(tavo_xlate_groupkey_ctx, stride, 0);
TAVO_OFFSET(tavo_xlate_groupkey_ctx, table, 8);

#ifdef __cplusplus
}
#endif

#endif
