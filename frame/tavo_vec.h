/* The column vector descriptor and its encoding context.
 *
 * All records belong to the host: the library creates and frees none of them, writes only the fields named here as
 * outputs, and keeps no pointer beyond a call (the decompressed buffer behind decomp_slot stays with the host).
 *
 * Bit vectors are arrays of ub8 words; row r is bit r mod 64, counted from the least significant bit, of word r / 64.
 * A vector of n rows occupies (n + 63) / 64 words. Set means selected. Bits above the row count in the last word are
 * zero in everything that a column kernel hands back. The bitwise operations (lbivand and the like) write (n + 7) / 8
 * bytes and no further: they clear the spare bits of the last byte and leave the bytes behind it, so zero the last word
 * of a fresh vector before it is their dst.
 *
 * Packed codes run the other way: the code of row r of a W-bit column occupies stream bits r*W to r*W + W - 1, where
 * stream bit 0 is the most significant bit of byte 0 and a code's most significant bit comes first. The buffer must be
 * readable for 3 bytes past its last code byte. */
#ifndef TAVO_VEC_H
#define TAVO_VEC_H

#include <stddef.h>

#include "tavo_types.h"

#ifdef __cplusplus
extern "C" {
#endif

typedef struct tavo_vec tavo_vec;
typedef struct tavo_enc_ctx tavo_enc_ctx;
typedef struct tavo_env tavo_env;
typedef struct tavo_host tavo_host;

/* Widens a run-level bit vector to rows: env->sel_bits is the run bit vector and env->sel_count its population, res
 * the scan's result record, src its source. Returns the scan's status. It is expected to call the burst kernel of the
 * column's run table through the dispatch table. */
typedef ub4 tavo_rle_expand_fn(tavo_host *host, tavo_vec *res, tavo_vec *src, tavo_env *env);

/* A vector plays one of four roles: source (src), result of a scan (res: only bits, count, size), output of a
 * row-moving kernel (dst), or constant: data points at one value in the width of the kernel. For packed codes it is in
 * the processor's byte order (1 byte for 8-bit codes, 2 for 16, 8 for 64, 4 for every other width); for fixed and dynp
 * numbers in the column's, most significant byte first, in the width of the kernel's name. */
struct tavo_vec {
    void *data;      /* column data as enc states, or a spak stream; output array; constant. Any alignment for codes */
    ub2 *lengths;    /* element lengths of TAVO_LV_SEP / TAVO_LP_SEP columns; lengths output of a decode;
                        in dynp and _tz scans a byte stream of control or tz fields; constant vector of a _tz
                        scan: the tz byte */
    ub2 *indicators; /* decode output: 2 for a null row, else 0 */
    tavo_enc_ctx *enc;  /* encoding of a source */
    ub8 *sel;           /* source: rows that count, or null; a scan ANDs its result with it. Runs that count for
                           TAVO_RLE: a run-level bit vector of run_count bits */
    ub8 *bits;          /* result: the bit vector that a scan writes, (size + 63) / 64 words. Constant's place of a
                           set kernel: the set, one bit a code */
    ub4 count;          /* out: rows selected by a scan, elements written by a decode */
    ub4 size;           /* rows; on an output of a row-moving kernel its capacity in elements. selective and the
                           hash-table kernels write the elements written here, decode kernels into count */
    ub4 decomp_size;    /* bytes of the column data after spak decompression */
    void **decomp_slot; /* caches the decompressed buffer; null contents: not yet decompressed. Filled without a guard:
                           a column not yet decompressed belongs to one thread */
    ub8 decomp_tag;     /* passed on as last argument of tavo_host.allocate */
    ub8 first_row;      /* row id of the first row (flag TAVO_ROWID_BASE) */
    ub8 byte_size;      /* variable-length output: capacity of data in bytes on entry, bytes used on return;
                           single text row: its length */
};

struct tavo_enc_ctx {
    ub1 kernel_row;     /* dispatch index of an operation on this column is kernel_row * 32 + operation */
    ub8 symbols;        /* address of the dictionary's symbol bytes */
    ub2 *symbol_len;    /* one_len dictionary: the symbol length, big-endian */
    ub4 *cla;           /* cla dictionary: symbol_count + 1 cumulative lengths, big-endian; symbol c is the bytes from
                           symbols + cla[c] up to symbols + cla[c + 1] */
    ub4 symbol_count;   /* symbols in the dictionary */
    ub4 dict_kind;      /* TAVO_DICT_ONE_LEN or TAVO_DICT_CLA; any other value is refused with status 24
                           (hashing and partitioning take it for TAVO_DICT_CLA) */
    void *run_table;    /* TAVO_RLE: rows of each run, ub1 or big-endian ub2 entries */
    ub1 run_entry_bits; /* 8 or 16 */
    ub4 run_count;      /* TAVO_RLE: runs, and so codes in the stream */
    ub4 *run_cla;       /* _cla burst kernels: run i covers rows run_cla[i] to run_cla[i + 1] - 1, big-endian */
    tavo_rle_expand_fn *rle_expand; /* the host's; called at the end of a scan of a TAVO_RLE column */
    ub8 *run_bits;     /* TAVO_RLE: where a scan writes its run-level result, (run_count + 63) / 64 words */
    ub1 prefix_block;  /* front-coded dictionary: symbols a block, 16 */
    sb2 prefix_len;    /* front-coded dictionary: symbol length, 1 to 8 */
    ub4 prefix_count;  /* front-coded dictionary: symbols */
    ub1 segmented;     /* bloom filter: non-zero if bits is a table of segment addresses, 0 if it is the one array */
    ub4 hash_mask;     /* bloom filter: the bits that count of a row's byte-swapped hash */
    ub4 segment_shift; /* bloom filter: the masked hash shifted right by this is the segment's number */
    ub4 bit_mask;      /* bloom filter: masked hash AND this is the bit's position in its segment, bit p & 7 of
                          byte p >> 3 */
    ub4 flags;         /* flag word, below */
    ub4 width_bits;    /* element width of a TAVO_FIXED column, code width of a packed column; the low byte counts */
    ub1 width_code;    /* width code of the elements: 7, 15, 21, 22 for 8, 16, 32, 64 bits */
    ub4 vec_dims;      /* dimensions of a uniform vector column */
    ub1 value_type;    /* TAVO_VALUE_... */
    ub1 vec_charset;   /* vector text: 0 single-byte, 1 big-endian UTF-16 */
    ub2 max_len;       /* longest element of a variable-length column, in bytes */
    void *side_table;  /* values or hashes unpacked per code, for the kernels that say so */
};

/* tavo_enc_ctx.flags */
#define TAVO_NATIVE 0x01u              /* numbers in native form; clear: comparable form */
#define TAVO_CONSTANT 0x04u            /* the operand is a constant or a scalar */
#define TAVO_VEC_BY_POINTER 0x20u      /* vectors: data is one pointer per row ... */
#define TAVO_VEC_IMAGES 0x10u          /* ... and, with the former, each leads to a stored image */
#define TAVO_HASHES 0x80u              /* the vector holds hashes */
#define TAVO_PACKED_KEYS 0x100u        /* bit-packed dictionary codes, fit for group keys */
#define TAVO_RLE 0x200u                /* data holds one code per run; rows are run_table expansions */
#define TAVO_FIXED 0x800u              /* fixed-width elements, width_bits / 8 bytes each, back to back */
#define TAVO_LV_SEP 0x1000u            /* element bytes back to back, their lengths in lengths */
#define TAVO_LV 0x2000u                /* each element a native ub2 length and that many bytes, back to back */
#define TAVO_LP_SEP 0x4000u            /* data is an array of 8-byte element addresses, their lengths in lengths */
#define TAVO_LP 0x8000u                /* data is an array of 10-byte packed records: ub2 length, 8-byte address */
#define TAVO_SPAK 0x10000u             /* data is a spak stream that decompresses to decomp_size bytes */
#define TAVO_ROWID_BASE 0x20000u       /* row ids are made from first_row: id of row r is first_row + r */
#define TAVO_OVERREAD_OK 0x40000u      /* 8 bytes may be read at the start of any element, however short */
#define TAVO_TZ 0x80000u               /* all rows share one tz value, in the first byte of lengths */
#define TAVO_DICT 0x100000u            /* dictionary-coded: data holds codes, dict_kind says how symbols are found */
#define TAVO_ACCUMULATORS 0x200000u    /* accumulator vector in record layout */
#define TAVO_SIDE_TABLE 0x800000u      /* codes with values unpacked in side_table */
#define TAVO_ELEMENT_CLASS 0x7f000000u /* element class of a record stream */

/* tavo_enc_ctx.dict_kind. An empty symbol is the null symbol; code 0 is the null code of the _null kernels. */
#define TAVO_DICT_ONE_LEN 0u /* all symbols have the length at symbol_len; symbol c starts at symbols + c * length */
#define TAVO_DICT_CLA 1u     /* lengths cumulated in cla */

/* tavo_enc_ctx.value_type */
#define TAVO_VALUE_FLOAT 1u
#define TAVO_VALUE_DOUBLE 2u
#define TAVO_VALUE_INTEGER 3u /* signed, by width_bits */
#define TAVO_VALUE_INT8 5u
#define TAVO_VALUE_BITMSB0 6u
#define TAVO_VALUE_FLOAT16 7u
#define TAVO_VALUE_BFLOAT16 8u

#define TAVO_VEC_SIZE(vec) ((vec)->size)
#define TAVO_VEC_ENC_CTX(vec) ((vec)->enc)
#define TAVO_ENC_CTX_FLAG(ctx, flag) (((ctx)->flags & (flag)) != 0)

#define TAVO_OFFSET(type, field, bytes)                                                                                \
    TAVO_STATIC_ASSERT(offsetof(type, field) == (bytes), #type "." #field " stands at a fixed offset")

TAVO_STATIC_ASSERT(sizeof(tavo_vec) == 96, "size of tavo_vec");
TAVO_OFFSET(tavo_vec, data, 0);
TAVO_OFFSET(tavo_vec, lengths, 8);
TAVO_OFFSET(tavo_vec, indicators, 16);
TAVO_OFFSET(tavo_vec, enc, 24);
TAVO_OFFSET(tavo_vec, sel, 32);
TAVO_OFFSET(tavo_vec, bits, 40);
TAVO_OFFSET(tavo_vec, count, 48);
TAVO_OFFSET(tavo_vec, size, 52);
TAVO_OFFSET(tavo_vec, decomp_size, 56);
TAVO_OFFSET(tavo_vec, decomp_slot, 64);
TAVO_OFFSET(tavo_vec, decomp_tag, 72);
TAVO_OFFSET(tavo_vec, first_row, 80);
TAVO_OFFSET(tavo_vec, byte_size, 88);

TAVO_STATIC_ASSERT(sizeof(tavo_enc_ctx) == 136, "size of tavo_enc_ctx");
TAVO_OFFSET(tavo_enc_ctx, kernel_row, 0);
TAVO_OFFSET(tavo_enc_ctx, symbols, 8);
TAVO_OFFSET(tavo_enc_ctx, symbol_len, 16);
TAVO_OFFSET(tavo_enc_ctx, cla, 24);
TAVO_OFFSET(tavo_enc_ctx, symbol_count, 32);
TAVO_OFFSET(tavo_enc_ctx, dict_kind, 36);
TAVO_OFFSET(tavo_enc_ctx, run_table, 40);
TAVO_OFFSET(tavo_enc_ctx, run_entry_bits, 48);
TAVO_OFFSET(tavo_enc_ctx, run_count, 52);
TAVO_OFFSET(tavo_enc_ctx, run_cla, 56);
TAVO_OFFSET(tavo_enc_ctx, rle_expand, 64);
TAVO_OFFSET(tavo_enc_ctx, run_bits, 72);
TAVO_OFFSET(tavo_enc_ctx, prefix_block, 80);
TAVO_OFFSET(tavo_enc_ctx, prefix_len, 82);
TAVO_OFFSET(tavo_enc_ctx, prefix_count, 84);
TAVO_OFFSET(tavo_enc_ctx, segmented, 88);
TAVO_OFFSET(tavo_enc_ctx, hash_mask, 92);
TAVO_OFFSET(tavo_enc_ctx, segment_shift, 96);
TAVO_OFFSET(tavo_enc_ctx, bit_mask, 100);
TAVO_OFFSET(tavo_enc_ctx, flags, 104);
TAVO_OFFSET(tavo_enc_ctx, width_bits, 108);
TAVO_OFFSET(tavo_enc_ctx, width_code, 112);
TAVO_OFFSET(tavo_enc_ctx, vec_dims, 116);
TAVO_OFFSET(tavo_enc_ctx, value_type, 120);
TAVO_OFFSET(tavo_enc_ctx, vec_charset, 121);
TAVO_OFFSET(tavo_enc_ctx, max_len, 122);
TAVO_OFFSET(tavo_enc_ctx, side_table, 128);

#ifdef __cplusplus
}
#endif

#endif
