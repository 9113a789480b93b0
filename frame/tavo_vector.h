/* Stored vectors: element types, the image of a vector, metrics, the entries of a nearest-neighbour search, text,
 * conversion, arithmetic.
 *
 * A vector column comes in two shapes. In a uniform column every row has the element type, dimension count and form
 * that its tavo_enc_ctx states (value_type, vec_dims, TAVO_NATIVE), and a row is a bare run of elements. In a flexible
 * column (TAVO_VEC_BY_POINTER and TAVO_VEC_IMAGES) every row is an image with a head of its own.
 *
 * Whatever the shape, two properties make up the form of a vector.
 *
 * Native or comparable: native elements are as the processor keeps them, little-endian IEEE bits. Comparable elements
 * are big-endian and ordered byte by byte as their numbers are: of the element's bits, a number with a clear sign bit
 * gets it set, one with a set sign bit is complemented. A writer makes -0.0 a +0.0 and every NaN the pattern FFC00000
 * (float) or FFF8000000000000 (double). int8 and bitmsb0 are the same in both forms.
 *
 * Dense or sparse: a dense vector has exactly as many elements as dimensions. A sparse one lists the elements that are
 * not zero. Its layout, at p (a row of a uniform column, or the data of an image), is in three pieces.
 *
 * 1. At p, count, ub2 big-endian: the number of listed elements. 0 is fine.
 *
 * 2. At p + 2, count dimension numbers, ub4 big-endian, strictly ascending. They count from 0 or from 1: kernels only
 * compare them.
 *
 * 3. Behind these, count values in the same order. Native float, double, float16 and bfloat16 start at the ADDRESS
 * p + 2 + 4 * count rounded up to a multiple of 8, so a writer knows the final address modulo 8. Comparable ones and
 * int8 follow at once, unaligned. bitmsb0 has no values: the dimension numbers are those of the set bits.
 *
 * Kernels read exactly the elements of an operand and nothing behind them, with one exception: where a host hands a
 * comparable sparse vector to a native kernel, up to 7 bytes past it are read, as the values' address is rounded up. */
#ifndef TAVO_VECTOR_H
#define TAVO_VECTOR_H

#include "tavo_vec.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Element types as columns, operations and kernels number them. 3 and 4 are not vector elements. */
enum tavo_elem_type {
    TAVO_ELEM_FLOAT = TAVO_VALUE_FLOAT,      /* binary32 */
    TAVO_ELEM_DOUBLE = TAVO_VALUE_DOUBLE,    /* binary64 */
    TAVO_ELEM_INT8 = TAVO_VALUE_INT8,        /* signed byte */
    TAVO_ELEM_BITMSB0 = TAVO_VALUE_BITMSB0,  /* one bit, eight to a byte, the most significant bit first; the dimension
                                                count counts bits. Unused bits of the last byte are zero: they count */
    TAVO_ELEM_FLOAT16 = TAVO_VALUE_FLOAT16,  /* binary16 */
    TAVO_ELEM_BFLOAT16 = TAVO_VALUE_BFLOAT16 /* upper half of a binary32 */
};

/* Element types as images number them: another numbering. */
enum lvector_type {
    LVECTOR_FLOAT16 = 1,
    LVECTOR_FLOAT = 2,
    LVECTOR_DOUBLE = 3,
    LVECTOR_INT8 = 4,
    LVECTOR_BITMSB0 = 5,
    LVECTOR_BFLOAT16 = 6
};

/* ---- The image: bytes, numbers of the head big-endian ---- */

typedef ub1 lvector;

#define LVECTOR_MAGIC 0xdbu     /* byte 0 */
#define LVECTOR_LAST_VERSION 3u /* byte 1: 0 to 3 are accepted */
#define LVECTOR_AT_VERSION 1u   /* byte 2 is reserved and never read */
#define LVECTOR_AT_FLAGS 3u     /* ub1, LVECTOR_FLAG_... */
#define LVECTOR_AT_TYPE 4u      /* ub1, enum lvector_type */
#define LVECTOR_AT_DIMS 5u      /* ub4, dimensions; bits for bitmsb0 */
#define LVECTOR_AT_AUX 9u       /* 8 bytes of the writer's own; no operation reads them */
/* Where the data stands: behind the head, but for dense native float, double, float16 and bfloat16, which are aligned
 * to 8 if the image is. */
#define LVECTOR_HEAD_SIZE 17u
#define LVECTOR_ALIGNED_DATA 24u

#define LVECTOR_FLAG_PASSED 0x01u /* passed on, not interpreted */
#define LVECTOR_FLAG_MARK 0x02u   /* format marks: at least one of the two must be set */
#define LVECTOR_FLAG_MARK2 0x10u
#define LVECTOR_FLAG_NATIVE 0x08u /* set: native form; clear: comparable form */
#define LVECTOR_FLAG_SPARSE 0x20u /* set: sparse layout; clear: dense */
#define LVECTOR_FLAGS_KEPT 0x3bu  /* what goes into lvector_header.flags; 0x04, 0x40 and 0x80 are dropped */

/* The head of an image in memory. */
typedef struct lvector_header {
    ub1 type;        /* stored type byte as it stands: not checked */
    ub1 data_offset; /* of the data from the image's start: 17 or 24 */
    ub1 aux_offset;  /* of the writer's 8 bytes: 9 */
    ub1 flags;       /* flags byte and LVECTOR_FLAGS_KEPT */
    ub4 dims;        /* dimension count, in the processor's byte order; not checked */
} lvector_header;

/* Statuses of an image's head. Operations don't hand them on: a bad query ends the operation with TAVO_UNSUPPORTED, a
 * bad row loses its bit in tavo_env.valid_rows. */
#define LVECTOR_BAD_MAGIC (-251)
#define LVECTOR_BAD_VERSION (-226)
#define LVECTOR_NO_FORMAT_MARK (-245)

/* ---- Metrics ---- */

enum tavo_metric {
    tavo_metric_euclid = 1,            /* root of the sum of squared differences */
    tavo_metric_euclid_squared = 2,    /* sum of squared differences */
    tavo_metric_cosine_similarity = 3, /* dot product over the product of the norms; NaN where a norm is 0 */
    tavo_metric_cosine_distance = 4,   /* 1 - similarity, not clamped */
    tavo_metric_dotprod = 5,           /* dot product */
    tavo_metric_dotprod_negated = 6,   /* its negative: smaller is nearer */
    tavo_metric_manhattan = 7,         /* sum of absolute differences; dense int8: see below */
    tavo_metric_hamming = 8,           /* number of positions that differ (floating point: by a threshold that the types
                                          decide; NaN never differs) */
    tavo_metric_jaccard_similarity = 9, /* bits alone: intersection over union; NaN for two empty vectors */
    tavo_metric_jaccard_distance = 10   /* 1 - similarity */
};

/* tavo_metric_manhattan of two dense int8 vectors is the low 32 bits of the sum, unsigned: the sum itself for any two
 * of up to 16,843,009 dimensions (2^32 - 1 over the largest difference, 255). */

/* ---- vector_distance and vector_topk ----
 *
 * query is the left operand, col the right one. query->size 1: one vector against every row of col; equal sizes: row by
 * row (1 and 1 counts as that). A vector of more than one row has TAVO_VEC_BY_POINTER: data is an array of row
 * pointers; without it, data points at the one row. Rows come from env->sel_bits, else from env->ones_vec, else all,
 * from env->resume_row on, which moves on to the row (or list position) to go on with. Both vectors are flexible or
 * neither.
 *
 * Uniform operands: enc->value_type and TAVO_NATIVE of either side say what its rows are. The dimension count of both
 * sides is col's enc->vec_dims. The query's is not read, so nothing can be checked: the query must hold that many
 * elements. Beside an int8 side without TAVO_NATIVE the other one is read as native, whatever its own flag says, so
 * give int8 columns TAVO_NATIVE. (With a scratch for one query against several rows, the query is taken for native.)
 *
 * Flexible operands: type, form, layout and dimension count come from the head of every image. value_type, vec_dims and
 * TAVO_NATIVE of query and col are not read, nor is the layout argument. The rule for int8 holds for images too.
 *
 * vector_distance: res->data is an array of res->size doubles; a call does at most that many rows and writes their
 * distances back to back in the order of the visit. It is done when resume_row says so: a full output is status 0. All
 * res->size doubles are comparable on return unless res->enc->flags has TAVO_NATIVE.
 *
 * vector_topk: res->data is an array of res->size = k >= 1 entries; res->size becomes the number of rows found, nearest
 * first. One call visits all rows from resume_row on. Smaller is nearer whatever the metric, so pass a distance
 * (negated dot product, cosine distance). NaN is farther than any number. Entries behind the final size are untouched.
 *
 * scratch is null, or memory in which a comparable query is decoded once instead of for each row: for a uniform query
 * aligned to 8 and as long as the query in native form plus 7 bytes; for a flexible one long enough for the head too,
 * and for a dense image scratch + 17 aligned to 8.
 *
 * In flexible operations a row whose image is bad, has another dimension count than the query or a type that cannot be
 * compared with it loses its bit in env->valid_rows, which may be null. Its place in a distance output keeps what stood
 * there, which is made comparable with the rest. In an output of nearest rows it has no place.
 *
 * Statuses: TAVO_DONE; TAVO_UNSUPPORTED for row counts that don't fit, several rows without row pointers, a bad query
 * image; TAVO_BAD_INPUT for one flexible operand of two, or no kernel for the operands. */

/* The argument layout, for uniform columns: 0 dense or 1 sparse for either side. */
#define TAVO_VECTOR_LAYOUT(query_sparse, col_sparse) ((ub8)(query_sparse) << 1 | (ub8)(col_sparse) << 3)

/* Element of vector_topk's result array. */
typedef struct tavo_topk_entry {
    ub4 row;         /* row number in the column, in the processor's byte order */
    double distance; /* native or comparable, as the flags of res say */
} tavo_topk_entry;

/* ---- vector_parse: vectors from text ----
 *
 * text->enc->vec_charset: 0 for single-byte text, 1 for big-endian UTF-16. With TAVO_LP_SEP, text->size rows: data is
 * an array of pointers, lengths the rows' lengths in bytes. Without it one row, of byte_size bytes at data. Nothing
 * beyond a text is read.
 *
 * res->enc: value_type TAVO_ELEM_FLOAT, _DOUBLE or _INT8; vec_dims, the number of elements that every row must have, or
 * 0 for any number; TAVO_NATIVE. res->data receives the elements of all good rows without gaps; res->size is the room,
 * in elements. With vec_dims 0, res->lengths receives the number of elements of each row (modulo 65536). norms is null,
 * or norms->data receives one native double for each row, at the row's place. bad_rows is null, or a bit vector of
 * whole words: bits of bad rows are set, no bit is cleared. env->parsed_rows receives the number of good rows.
 *
 * A row is a list of numbers in brackets, commas between them, blanks (U+0020 alone) anywhere but in a number:
 * "[1.5, -2e3, .5, 7.]". In a row of fixed length a ] before its end separates as a comma does.
 *
 * Rounding. A number of fewer than 8 units between its separators, blanks and sign included, is the sum of its digits
 * times 1000000.0 down to 1.0 and 0.1 down to 0.0000001; the eight products, counted from the first unit of the
 * mantissa, the point's being 0, are added by halves (0 and 4, 1 and 5, ...). Of a longer one, digits before the point
 * are collected by fused multiply-adds, and those behind it each divided by their power of ten and added, in order. An
 * exponent multiplies by pow(10.0, exponent); it wraps at 32 bits. So whole numbers below 2^53 are exact, others are
 * within a few units in the last place of a double: "0.3" is 3 * 0.1, not the double nearest to 0.3. (Where the power
 * itself is subnormal or infinite, with exponents beyond some 300, less is right.) float is the double narrowed. int8
 * is rounded, halves away from zero; numbers that are above 127 or below -128 before they are rounded don't fit. The
 * norm is that of the doubles (of the rounded numbers for int8).
 *
 * Statuses: TAVO_DONE; TAVO_UNSUPPORTED for another charset or type, or vec_dims 0 without res->lengths;
 * TAVO_BAD_NUMBER (no digit where one is needed, something else than a comma or bracket behind a number, a number
 * beyond the type: infinite or NaN, or beyond int8; NaN as int8 is 0, and TAVO_OUT_OF_RANGE if there are norms);
 * TAVO_BAD_SHAPE (no opening bracket, end of the text inside, too many elements, something behind the closing bracket);
 * TAVO_TEXT_FULL, no room for the next element. The last one always ends the call. The two before it end it if bad_rows
 * is null; else the row is marked, what it had written is written over by the next row, its norm and length are left
 * alone, and in the end the status is TAVO_DONE. TAVO_OUT_OF_RANGE: a row's sum of squares is beyond double; the call
 * ends at once, parsed_rows is not set. */

/* ---- vector_convert_fp: from one element type to another ----
 *
 * src->size rows of src->enc->vec_dims elements, back to back, of src->enc->value_type; res->data receives as many of
 * res->enc->value_type. TAVO_ELEM_FLOAT, _DOUBLE and _INT8; floats are comparable on both sides, whatever the flags
 * say. res->size is not read. norms is null or norms->data receives one native double a row. env is not used. The same
 * type on both sides: a copy, without tests.
 *
 * double to float: a result that is infinite or NaN makes the row bad. To int8: rounded, halves away from zero, from
 * the number as float; above 127 or below -128 before it is rounded makes the row bad. NaN doesn't: what byte comes of
 * it is not said, but with norms the status is TAVO_OUT_OF_RANGE.
 *
 * A bad row ends the call with TAVO_BAD_SHAPE. With bad_rows its bit is set instead, and the next good row's elements
 * and norm take its place: what it has written may stand behind the last good row, so res->data has room for all rows.
 * Squares of a norm are of the elements' type, float ones in float: elements of 1.9e19 and more refuse a norm, those
 * below 2.6e-23 count as 0; they are summed as doubles. TAVO_OUT_OF_RANGE: a row's sum of squares is infinite or NaN;
 * the call ends at once. TAVO_UNSUPPORTED: another type. */

/* ---- vector_arith: sums, differences, products, quotients ---- */

enum tavo_vector_op {
    TAVO_VECTOR_ADD = 19, /* a + b */
    TAVO_VECTOR_SUB = 20, /* a - b */
    TAVO_VECTOR_MUL = 21, /* a * b */
    TAVO_VECTOR_DIV = 22  /* a / b */
};

/* Element by element: of a column's rows and those of another one, one vector, or one number. TAVO_ELEM_FLOAT, _DOUBLE
 * and _INT8 in either form, dense. The result, of res->enc or of each output image, is double for all operands, float
 * if none is a double, int8 if both are. Operands are converted to the result's type first; then there is one rounding.
 *
 * Columns of several rows have TAVO_VEC_BY_POINTER, and so has a single vector, or TAVO_VEC_IMAGES with it for images:
 * all flexible or all uniform. A number has neither of the two but TAVO_CONSTANT; data points at it, value_type and
 * TAVO_NATIVE say what it is. `first` is the operand with the rows: b if a has one row and b several, else a. Row r's
 * result goes to row r of res, an array of pointers (TAVO_VEC_BY_POINTER) like the columns; output images hold a valid
 * head, of the dimension count of the operands, when the call starts. Uniform operands have first's vec_dims.
 *
 * Rows come from env as for vector_distance; one call does them all, whatever res->size is. norms is null, or has as
 * many rows as first: norms->data[r] receives the Euclidean norm of row r's result. In the end all of norms is
 * comparable unless norms->enc has TAVO_NATIVE. scratch is as for vector_distance; it serves a single float or double
 * vector.
 *
 * One vector keeps its side of a difference or quotient. A number belongs to the right: with the number as `a`
 * and a uniform column of several rows as `b` the kernel reads a vector at the number's address and takes the first
 * element of each row for the number. (With a flexible column it computes row op number.)
 *
 * A result that is infinite, NaN or beyond int8 is TAVO_OUT_OF_RANGE, and so is a norm. Results are tested in blocks
 * (64 floats, 32 doubles, 256 int8; then 16, 8 or 32; then one by one; quotients of int8 one by one), and a block in
 * which one fails is not stored. A norm's squares are of the result's type, as in conversion.
 * int8 by int8: a number 0 as divisor is TAVO_DIVISION_BY_ZERO. An int8 result is truncated, and a 0 in the divisor has
 * that status too. A float or double result of two int8 vectors is a quotient of floats, 0.5 for 1 / 2, without a test:
 * a zero divisor gives infinity or NaN; but the elements behind the last whole 16 (float) or 8 (double) are divided as
 * integers are, 0 for 1 / 2, and a zero divisor is TAVO_DIVISION_BY_ZERO there.
 *
 * In uniform columns these statuses end the call at their row: rows before it are written, resume_row is as it was. In
 * flexible ones the row loses its bit in env->valid_rows, as does one with an image that is refused, sparse, of another
 * dimension count than the others or of types without a kernel. Others: TAVO_UNSUPPORTED for operands of other
 * shapes, norms of another size, a bad image of the one vector; TAVO_BAD_INPUT for another operation, flexible with
 * uniform, types without a kernel. */

TAVO_STATIC_ASSERT(sizeof(lvector_header) == 8, "size of lvector_header");
TAVO_OFFSET(lvector_header, type, 0);
TAVO_OFFSET(lvector_header, data_offset, 1);
TAVO_OFFSET(lvector_header, aux_offset, 2);
TAVO_OFFSET(lvector_header, flags, 3);
TAVO_OFFSET(lvector_header, dims, 4);

TAVO_STATIC_ASSERT(sizeof(tavo_topk_entry) == 16, "size of tavo_topk_entry");
TAVO_OFFSET(tavo_topk_entry, row, 0);
TAVO_OFFSET(tavo_topk_entry, distance, 8);

#ifdef __cplusplus
}
#endif

#endif
