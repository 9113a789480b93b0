/* Groups of rows: keys, sums, arithmetic on columns, conversion of numbers. The operations groupkey, gby_sum, sum_vec,
 * prefix_sum_vec and convert of the descriptor, and the dispatch table's add, sub and mul.
 *
 * Numbers. Floating-point columns are native (TAVO_NATIVE: little-endian IEEE) or in comparable form: big-endian, a
 * number that isn't negative with its top bit set, a negative one with all bits inverted, so that the order of the
 * bytes is that of the numbers. Integers are signed, in two's complement; in grouped sums their byte order is
 * TAVO_ENV2_BIG_ENDIAN of env->flags2, in convert it is native with TAVO_NATIVE and big-endian without. Columns have
 * any alignment; exactly their elements are read.
 *
 * groupkey(keys, key_space, cols, ncols, temp, env): one native ub4 key a row from ncols columns of packed codes.
 *   rule       TAVO_ENV_MULTIPLY_KEYS: key * symbol_count + code, column by column; else (key << width_bits) + code
 *   cols       an array of ncols vectors of one size, each with TAVO_PACKED_KEYS, width_bits, symbol_count, and the
 *              kernel_row of the plain variant, which is that of unpacking
 *   temp       scratch: data, an array of size ub4. The work goes in pieces of so many rows: 1,000 to 3,000 stay in
 *              the first cache. A size of 0 aborts
 *   keys       data; size, its capacity in keys. On return count says how many were written
 *   key_space  receives the number that all keys are below
 *   env        host (scratch of 12 bytes a column comes from temp_allocate), flags, sel_bits or ones_vec, resume_row.
 *              It isn't changed: a host that gets TAVO_ROWS_FULL knows by keys->count how many of the selected rows
 *              are done, and sets resume_row (with ones_vec: the list) for the next call itself
 *   result     TAVO_DONE; TAVO_ROWS_FULL: keys is full, and there may be more; TAVO_DONE says that there is none;
 *              TAVO_UNSUPPORTED: a column lacks TAVO_PACKED_KEYS; TAVO_OUT_OF_RANGE: the key space is 2^32 or more.
 *              With the last two nothing has been written
 *
 * gby_sum(acc, src, keys, env, offsets): adds the src->size values of a measure column to accumulators.
 *   src        enc->value_type float, double or integer (width_bits 8, 16, 32, 64; of another nothing is added)
 *   keys       data: src->size native ub4 keys, not checked; keys or data null: one group
 *   acc        an array of src's type, integers as sb8: size is the number of groups. Without keys the total is added
 *              to element 0. Two or three groups of floats are summed in registers, in an order of their own:
 *              docs/host-guide.md.
 *              Or, with TAVO_ACCUMULATORS in enc->flags, records of (enc->width_bits + 7) / 8 bytes, all of
 *              width_bits counting: float or double only. Without keys record 0's sum and count are replaced; with
 *              keys the values are taken as native, whatever src's flags say
 *   offsets    of a record's sum and count (TAVO_OFFSET_OF_...), in bytes; may be null for an array
 *   env        may be null for floats and native integers that aren't compressed
 *   result     TAVO_DONE; TAVO_BAD_INPUT: no such type, integers in records, or records without offsets
 *
 * sum_vec(res, src, env): adds up ub1 values (enc->width_code 7) or big-endian ub2 values (15) into the ub4 at
 *   res->data, wrapping; other width codes add nothing. src->size less env->resume_row values are read, from
 *   resume_row BYTES behind src->data on. TAVO_DONE
 *
 * prefix_sum_vec(res, src, env): res->data[0] = 0 and [i + 1] = [i] + src->data[i]: src->size + 1 native ub4. res is
 *   not src. env may be null. TAVO_DONE
 *
 * add, sub, mul (pattern arith; TAVO_ARITH_KERNEL_ROW): res, a, b, env. One result a row, native, to res->data, which
 *   may be a's or b's; or, _sum, their sum added to the number at res->data. All are of the row's type, a and b each
 *   in the form that it says. Rows: the larger of a->size and b->size. TAVO_CONSTANT in enc->flags: data is one number
 *   (both: a's). enc must be given, env isn't read; compressed columns are not decompressed. TAVO_DONE
 *
 * convert(dst, src, env): src->size numbers between comparable and native form, by enc->value_type: float, double,
 *   float16, bfloat16; dst->data may be src's. TAVO_NATIVE in enc->flags is src's form; dst gets the other. Encoding
 *   stores -0 as +0 and every NaN as one. With TAVO_ENV_SUM the numbers are summed instead, and the sum is added to
 *   the float, double or sb8 at dst->data: comparable floats and doubles, integers of either byte order. env may be
 *   null unless the column is compressed.
 *   TAVO_DONE; TAVO_BAD_INPUT: no such type, or a sum that isn't one of these. Integers without a sum abort */
#ifndef TAVO_GROUP_H
#define TAVO_GROUP_H

#include "tavo_avx512g.h"

#ifdef __cplusplus
extern "C" {
#endif

/* The two offsets of gby_sum's last argument, and the count offset that means: no count. */
#define TAVO_OFFSET_OF_SUM 0
#define TAVO_OFFSET_OF_COUNT 1
#define TAVO_NO_COUNT (-1)

/* Arithmetic: value_type TAVO_VALUE_FLOAT or TAVO_VALUE_DOUBLE, an operand's form 0 for native and 1 for comparable,
 * variant TAVO_VARIANT_PLAIN for a result a row and TAVO_VARIANT_SECOND for a sum:
 *
 *   row = TAVO_ARITH_KERNEL_ROW(TAVO_VARIANT_PLAIN, TAVO_VALUE_DOUBLE, 0, 1);
 *   ctx->dispatch_table[TAVO_DISPATCH_INDEX(row, TAVO_OP_MUL)].arith(&res, &a, &b, NULL);    double_n_c */
#define TAVO_ARITH_WIDTH_CODE(value_type, a_form, b_form)                                                              \
    ((unsigned)(value_type) + 4u * (unsigned)(a_form) + 8u * (unsigned)(b_form))
#define TAVO_ARITH_KERNEL_ROW(variant, value_type, a_form, b_form)                                                     \
    TAVO_KERNEL_ROW(variant, TAVO_ARITH_WIDTH_CODE(value_type, a_form, b_form), TAVO_CLASS_FIXED)

#ifdef __cplusplus
}
#endif

#endif
