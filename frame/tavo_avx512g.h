/* The library's one exported object, tavo_global_specialized_ctx: identification, the dispatch table and the named
 * operations. A host opens the library, looks that symbol up, checks magic and texts, calls init_sharedlib once, before
 * it starts kernels on other threads, and reaches everything else through the record:
 *
 *   named operation    ctx->lbiwvand(dst, &count, a, b, nbits)
 *   column kernel      ctx->dispatch_table[TAVO_DISPATCH_INDEX(enc->kernel_row, TAVO_OP_GE_LE)].range_scan(...)
 *
 * A null operation or an empty slot is one that this build does not have. The processor must have AVX-512 F, BW, DQ and
 * VL, BMI1, BMI2, F16C, MOVBE, LZCNT and POPCNT: the library does not check. */
#ifndef TAVO_AVX512G_H
#define TAVO_AVX512G_H

#include "tavo_bit_iter.h"
#include "tavo_env.h"
#include "tavo_vec.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Records of operations that have their own headers. */
typedef struct tavo_partition_ctx tavo_partition_ctx;
typedef struct tavo_gather_spec tavo_gather_spec;
typedef struct tavo_kv tavo_kv;
typedef struct tavo_kv_region tavo_kv_region;
typedef union tavo_kv_status tavo_kv_status;
typedef struct tavo_kv_scan_position tavo_kv_scan_position;
typedef struct tavo_xlate_groupkey_ctx tavo_xlate_groupkey_ctx;
typedef struct tavo_dgk tavo_dgk;
typedef struct tavo_dgk_worker tavo_dgk_worker;
typedef struct tavo_dgk_request tavo_dgk_request;

typedef ub8 tavo_hash_fn(const void *data, ub8 length, ub8 seed);
typedef ub4 tavo_kv_alloc_fn(tavo_kv_region *region, ub4 count, ub8 *id);
typedef ub8 tavo_distance_kernel(ub4 dims, const void *left, const void *right, ub4 metric,
                                 double *result) TAVO_NOEXCEPT;

/* ---- Column kernels: the dispatch table ---- */

/* Calling patterns. */
typedef ub4 tavo_scan_fn(tavo_vec *res, tavo_vec *src, tavo_vec *constant, tavo_env *env) TAVO_NOEXCEPT;
typedef ub4 tavo_range_scan_fn(tavo_vec *res, tavo_vec *src, tavo_vec *lo, tavo_vec *hi, tavo_env *env) TAVO_NOEXCEPT;
typedef ub4 tavo_row_move_fn(tavo_vec *dst, tavo_vec *src, tavo_env *env) TAVO_NOEXCEPT;
typedef ub4 tavo_minmax_fn(tavo_vec *res, tavo_vec *src, tavo_env *env, ub4 mode) TAVO_NOEXCEPT;
typedef ub4 tavo_arith_fn(tavo_vec *res, tavo_vec *a, tavo_vec *b, tavo_env *env) TAVO_NOEXCEPT;
typedef ub4 tavo_xlate_fn(tavo_vec *res, tavo_vec *src, tavo_vec *dict, tavo_env *env) TAVO_NOEXCEPT;
typedef ub4 tavo_xlate_groupkey_fn(tavo_vec *keys, tavo_vec *src, tavo_vec *ignored,
                                   const tavo_xlate_groupkey_ctx *ctx) TAVO_NOEXCEPT;

/* One slot: null, or a kernel of the pattern that belongs to the operation. */
typedef union tavo_kernel_slot {
    tavo_scan_fn *scan;             /* eq lt gt le ge ne, set (the set in the constant's place) */
    tavo_range_scan_fn *range_scan; /* gt_lt gt_le ge_lt ge_le */
    tavo_row_move_fn *row_move;     /* decode, decode_unpack, decode_symbol, burst_rle */
    tavo_minmax_fn *minmax;         /* minmax; sum and distinct, which take its arguments, do nothing and return 0 */
    tavo_arith_fn *arith;           /* add sub mul */
    tavo_xlate_fn *xlate;           /* xlate, but of class TAVO_CLASS_OTHER ... */
    tavo_xlate_groupkey_fn *xlate_groupkey; /* ... where it adds to group keys */
} tavo_kernel_slot;

/* Operation numbers, bits 4 to 0 of a dispatch index. */
enum tavo_operation {
    TAVO_OP_EQ = 0,
    TAVO_OP_LT = 1,
    TAVO_OP_GT = 2,
    TAVO_OP_LE = 3,
    TAVO_OP_GE = 4,
    TAVO_OP_NE = 5,
    TAVO_OP_GT_LT = 6,
    TAVO_OP_GT_LE = 7,
    TAVO_OP_GE_LT = 8,
    TAVO_OP_GE_LE = 9,
    TAVO_OP_DECODE = 10,
    TAVO_OP_DECODE_UNPACK = 11,
    TAVO_OP_DECODE_SYMBOL = 12,
    TAVO_OP_SET = 13,
    TAVO_OP_BURST_RLE = 14,
    TAVO_OP_SUM = 15,
    TAVO_OP_DISTINCT = 16,
    TAVO_OP_XLATE = 17,
    TAVO_OP_ADD = 19,
    TAVO_OP_SUB = 20,
    TAVO_OP_MUL = 21,
    TAVO_OP_MINMAX = 23
};

/* What of a minmax kernel's pair is wanted; any other mode: both. A walk along a selection ends at the best value there
 * can be, and the other half of the pair then means nothing. */
#define TAVO_MINMAX_LOW 1u
#define TAVO_MINMAX_HIGH 2u

/* Encoding classes, bits 6 to 5. */
enum tavo_encoding_class {
    TAVO_CLASS_FIXED = 0, /* translation: sim */
    TAVO_CLASS_DICT = 1,  /* translation: off */
    TAVO_CLASS_DYNP = 2,  /* translation: ind */
    TAVO_CLASS_OTHER = 3
};

/* Variant, bit 12: second form of the operation (_null, _tz, _c2d, _sum). */
enum tavo_variant { TAVO_VARIANT_PLAIN = 0, TAVO_VARIANT_SECOND = 1 };

#define TAVO_DISPATCH_SLOTS 8192u

/* Width code of data kernels, bits 11 to 7: codes 0 to 19 for widths 1 to 20, then these. */
#define TAVO_WIDTH_CODE_24 20u
#define TAVO_WIDTH_CODE_32 21u
#define TAVO_WIDTH_CODE_64 22u

/* Bits 12 to 5 of a dispatch index, which a host keeps in tavo_enc_ctx.kernel_row. */
#define TAVO_KERNEL_ROW(variant, width_code, encoding_class)                                                           \
    ((ub1)(((unsigned)(variant) << 7) | ((unsigned)(width_code) << 2) | (unsigned)(encoding_class)))
#define TAVO_DISPATCH_INDEX(kernel_row, operation) ((unsigned)(ub1)(kernel_row)*32u + (unsigned)(operation))

/* ---- The descriptor: 88 words of 8 bytes ---- */

#define TAVO_MAGIC 0xc16182c0ull

/* One operation a line, its word behind it. */
/* clang-format off */
typedef struct tavo_specialized_ctx {
    ub8 magic;                              /*  0: TAVO_MAGIC */
    const char *version;                    /*  1: "MRV_23.0" */
    ub8 version_number;                     /*  2: 3 */
    const char *build_name;                 /*  3: "smrvavx512g" */
    ub8 sizes[10];                          /*  4 to 13: seven times 8, then 16, 0, 64 */
    const tavo_kernel_slot *dispatch_table; /* 14: TAVO_DISPATCH_SLOTS slots */

    /* Start-up: records the processor's features. word is ignored; info points at three words that are copied.
     * Returns 0. Without it everything works, counting bits by the slower method. */
    ub4 (*init_sharedlib)(ub8 word, const ub4 info[3]) TAVO_NOEXCEPT; /* 15 */
    void (*set_trace_level)(ub4 level) TAVO_NOEXCEPT;                  /* 16: accepted and dropped */

    /* Bitwise kernels. Vectors are taken as bytes: any alignment, exactly (nbits + 7) / 8 bytes are read and written,
     * and the bits above nbits in the last byte of dst are cleared. dst may equal any source. count receives the
     * number of bits set in the result and may be null, except for popcnt, whose count is also the result. */
    ub4 (*lbivpopcnt)(ub4 *count, const void *bits, ub8 nbits) TAVO_NOEXCEPT;                                  /* 17 */
    ub4 (*lbivnot)(void *dst, ub4 *count, const void *src, ub8 nbits) TAVO_NOEXCEPT;                           /* 18 */
    ub4 (*lbivand)(void *dst, ub4 *count, const void *a, const void *b, ub8 nbits) TAVO_NOEXCEPT;              /* 19 */
    ub4 (*lbivor)(void *dst, ub4 *count, const void *a, const void *b, ub8 nbits) TAVO_NOEXCEPT;               /* 20 */
    ub4 (*lbivxor)(void *dst, ub4 *count, const void *a, const void *b, ub8 nbits) TAVO_NOEXCEPT;              /* 21 */
    /* andnot is (NOT a) AND b. */
    ub4 (*lbivandnot)(void *dst, ub4 *count, const void *a, const void *b, ub8 nbits) TAVO_NOEXCEPT;           /* 22 */
    ub4 (*lbivand3)(void *dst, ub4 *count, const void *a, const void *b, const void *c, ub8 nbits) TAVO_NOEXCEPT; /* 23 */
    ub4 (*lbivor3)(void *dst, ub4 *count, const void *a, const void *b, const void *c, ub8 nbits) TAVO_NOEXCEPT;  /* 24 */
    ub4 (*lbivxor3)(void *dst, ub4 *count, const void *a, const void *b, const void *c, ub8 nbits) TAVO_NOEXCEPT; /* 25 */
    /* Set or clear bits first to last, both inclusive; first <= last is the caller's duty. */
    ub4 (*lbivset_range)(void *bits, ub8 first, ub8 last) TAVO_NOEXCEPT;                                       /* 26 */
    ub4 (*lbivclr_range)(void *bits, ub8 first, ub8 last) TAVO_NOEXCEPT;                                       /* 27 */

    /* Bit iterators of byte vectors: any alignment, exactly (nbits + 7) / 8 bytes are read. ictx_ini2 starts a walk
     * over the bits from start; invert 1 is for walks with iter_clr only. iter and iter_clr return the next set or clear
     * bit's number, or TAVO_LBIV_END. ones writes up to capacity numbers of the next set bits to out and returns how
     * many: fewer than capacity means that the vector is exhausted. Only for iterators started with invert 0. */
    ub4 (*lbiv_ictx_ini2)(tavo_bit_iter *it, const void *bits, ub8 nbits, ub1 invert, ub8 start) TAVO_NOEXCEPT; /* 28 */
    ub8 (*lbiviter)(tavo_bit_iter *it) TAVO_NOEXCEPT;                                                           /* 29 */
    ub8 (*lbiviter_clr)(tavo_bit_iter *it) TAVO_NOEXCEPT;                                                       /* 30 */
    ub8 (*lbivones)(tavo_bit_iter *it, ub4 *out, ub8 capacity) TAVO_NOEXCEPT;                                   /* 31 */
    /* Kept in their places, not implemented: run returns the family's end mark, runs returns 0. */
    ub8 (*lbivrun)(ub8 a, ub8 b) TAVO_NOEXCEPT;                    /* 32 */
    ub8 (*lbivruns)(ub8 a, ub8 b, ub8 c, ub8 d) TAVO_NOEXCEPT;     /* 33 */

    /* Word vectors. The bitwise kernels are those of the lbiv family. The iterators need an 8-byte aligned base and
     * whole words of storage, all of which they may read; their end mark is TAVO_LBIWV_END. */
    ub4 (*lbiwvpopcnt)(ub4 *count, const void *bits, ub8 nbits) TAVO_NOEXCEPT;                                 /* 34 */
    ub4 (*lbiwvnot)(void *dst, ub4 *count, const void *src, ub8 nbits) TAVO_NOEXCEPT;                          /* 35 */
    ub4 (*lbiwvand)(void *dst, ub4 *count, const void *a, const void *b, ub8 nbits) TAVO_NOEXCEPT;             /* 36 */
    ub4 (*lbiwvor)(void *dst, ub4 *count, const void *a, const void *b, ub8 nbits) TAVO_NOEXCEPT;              /* 37 */
    ub4 (*lbiwvxor)(void *dst, ub4 *count, const void *a, const void *b, ub8 nbits) TAVO_NOEXCEPT;             /* 38 */
    ub4 (*lbiwvandnot)(void *dst, ub4 *count, const void *a, const void *b, ub8 nbits) TAVO_NOEXCEPT;          /* 39 */
    ub4 (*lbiwvand3)(void *dst, ub4 *count, const void *a, const void *b, const void *c, ub8 nbits) TAVO_NOEXCEPT; /* 40 */
    ub4 (*lbiwvor3)(void *dst, ub4 *count, const void *a, const void *b, const void *c, ub8 nbits) TAVO_NOEXCEPT;  /* 41 */
    ub4 (*lbiwvxor3)(void *dst, ub4 *count, const void *a, const void *b, const void *c, ub8 nbits) TAVO_NOEXCEPT; /* 42 */
    ub4 (*lbiwvset_range)(void *bits, ub8 first, ub8 last) TAVO_NOEXCEPT;                                      /* 43 */
    ub4 (*lbiwvclr_range)(void *bits, ub8 first, ub8 last) TAVO_NOEXCEPT;                                      /* 44 */
    ub4 (*lbiwv_ictx_ini2)(tavo_bit_iter *it, const void *bits, ub8 nbits, ub1 invert, ub8 start) TAVO_NOEXCEPT; /* 45 */
    ub8 (*lbiwviter)(tavo_bit_iter *it) TAVO_NOEXCEPT;                                                         /* 46 */
    ub8 (*lbiwviter_clr)(tavo_bit_iter *it) TAVO_NOEXCEPT;                                                     /* 47 */
    ub8 (*lbiwvones)(tavo_bit_iter *it, ub4 *out, ub8 capacity) TAVO_NOEXCEPT;                                 /* 48 */
    ub8 (*lbiwvrun)(ub8 a, ub8 b) TAVO_NOEXCEPT;                                                               /* 49 */
    ub8 (*lbiwvruns)(ub8 a, ub8 b, ub8 c, ub8 d) TAVO_NOEXCEPT;                                                /* 50 */

    /* From here on some words are null in this build, as said at the top; the comments say what a word is for. */

    /* Tests hashes, from env->start_row on, against a bloom filter (one bit a row for mode 1, else two). hashes carries
     * TAVO_HASHES, else TAVO_UNSUPPORTED; its elements are ub4 if its width_bits is 32, else ub8. filter->bits is the array
     * or, if filter->enc->segmented, a table of segment addresses; arrays are aligned to 8 bytes and whole 64-bit words of
     * them are read. With env->sel_bits only those rows are tested, and TAVO_RESULT_BLOOM_SELECTED is added to
     * env->result_flags. res->bits: rows from start_row on that may match are set, the others cleared, those before stay;
     * res->count how many; res->data two ub4, not null: the first and the last of them, 0xffffffff for none.
     * TAVO_NONE_SELECTED if there is none. */
    ub4 (*bloom)(tavo_vec *res, tavo_vec *hashes, tavo_vec *filter, tavo_env *env, ub1 mode) TAVO_NOEXCEPT;    /* 51 */
    /* Counts the edges of a plane polygon that a ray from one point crosses. */
    ub4 (*spatial_pip)(tavo_vec *res, tavo_vec *xs, tavo_vec *ys, tavo_vec *px, tavo_vec *py) TAVO_NOEXCEPT;   /* 52 */
    /* For points on the unit sphere one byte each: outside, crossing count, on an edge or on a vertex. a and b are
     * ignored. */
    ub4 (*spheric_pip)(tavo_vec *res, tavo_vec *polygon, tavo_vec *points, const void *a, const void *b,
                       double tolerance) TAVO_NOEXCEPT;                                                        /* 53 */
    /* Folds the dictionary codes of several columns into one ub4 group key a row. */
    ub4 (*groupkey)(tavo_vec *keys, ub4 *key_space, tavo_vec *cols, ub4 ncols, tavo_vec *temp, tavo_env *env)
        TAVO_NOEXCEPT;                                                                                         /* 54 */
    /* Adds one column's codes to packed group keys, key[r] |= codes[r] << the lowest bit of the column's field. *in_use
     * is the mask of the field, *used_bits its width, *free_bits the mask of key bits that no column has. A field too
     * narrow for `cardinality` codes is widened first, by the lowest free bits: arrange these so that it stays in one
     * piece. TAVO_OUT_OF_RANGE, with nothing changed, if that takes a bit of width_limit or above. */
    ub4 (*dgk_concatenate)(ub4 rows, ub8 cardinality, const ub4 *codes, ub8 *free_bits, ub4 *used_bits, ub8 *in_use,
                           ub8 *key, ub4 width_limit) TAVO_NOEXCEPT;                                           /* 55 */
    /* Splits packed group keys into their columns' codes: out[c][r] is the field in_use[c] of key[r], 0 for an empty
     * field. */
    ub4 (*extract_dgk)(ub4 rows, const ub8 *key, ub4 ncols, const ub8 *in_use, ub4 *const *out) TAVO_NOEXCEPT; /* 56 */
    /* Adds a column's values to per-group accumulators that the keys select. */
    ub4 (*gby_sum)(tavo_vec *acc, tavo_vec *src, tavo_vec *keys, tavo_env *env, const sb2 offsets[2])
        TAVO_NOEXCEPT;                                                                                         /* 57 */
    /* Converts numbers between comparable and native form, or sums them with TAVO_ENV_SUM. env may be null unless
     * the column is compressed. */
    ub4 (*convert)(tavo_vec *dst, tavo_vec *src, tavo_env *env) TAVO_NOEXCEPT;                                 /* 58 */
    /* Expands a front-coded dictionary: src is its stream, src->size its blocks, the rest in src->enc. dst->data
     * receives prefix_count symbols of prefix_len bytes, back to back. env may be null. */
    ub4 (*prefix_decode)(tavo_vec *dst, tavo_vec *src, tavo_env *env) TAVO_NOEXCEPT;                           /* 59 */
    /* Hashes a column's elements with the host's function: out->data receives one ub8 a row. A seed vector of one row
     * serves all rows. */
    ub4 (*hash)(tavo_vec *out, tavo_vec *column, tavo_vec *seeds, tavo_hash_fn *hash, tavo_env *env) TAVO_NOEXCEPT; /* 60 */
    /* Scatters rows by bits of their hashes into the buffers of a radix partitioning. */
    ub4 (*partition)(tavo_partition_ctx *ctx, tavo_vec *hashes_or_keys, tavo_vec *rids, tavo_vec *column,
                     tavo_hash_fn *hash, tavo_env *env) TAVO_NOEXCEPT;                                         /* 61 */
    /* Copies all elements of the table rows that the codes in src name. 0; 19 when the output is full: env->resume_row
     * is the row that did not fit; 2 for a table or layout that tavo_rows.h does not list. */
    ub4 (*gather)(tavo_vec *dst, tavo_vec *src, const tavo_gather_spec *table, tavo_env *env) TAVO_NOEXCEPT;    /* 62 */
    /* The same for one column of the table. */
    ub4 (*gather_one_col)(tavo_vec *dst, tavo_vec *src, const tavo_gather_spec *table, tavo_env *env, ub4 col)
        TAVO_NOEXCEPT;                                                                                         /* 63 */
    /* The same for a list of columns. */
    ub4 (*gather_cols)(tavo_vec *dst, tavo_vec *src, const ub4 *cols, ub4 ncols, const tavo_gather_spec *table,
                       tavo_env *env) TAVO_NOEXCEPT;                                                           /* 64 */
    /* Writes a column of references to src's elements into a row-major table. The transposes: see tavo_rows.h. */
    ub4 (*transpose_reference)(tavo_gather_spec *table, tavo_vec *src, ub2 col, sb4 part) TAVO_NOEXCEPT;        /* 65 */
    /* Turns rows first_row to last_row of a reference table into a packed table with the elements' bytes together. 18
     * when its bytes are full: env->resume_row is the row that did not fit. */
    ub4 (*transpose_convert)(tavo_gather_spec *table, const tavo_gather_spec *from, sb4 to_part, sb4 from_part,
                             ub4 first_row, ub4 last_row, tavo_env *env) TAVO_NOEXCEPT;                        /* 66 */
    /* Writes a column of values into the fixed-width rows of a table. */
    ub4 (*transpose_fixed)(tavo_gather_spec *table, tavo_vec *src, ub2 col, sb4 part) TAVO_NOEXCEPT;            /* 67 */
    /* Works out the shape of a key-to-value table, for which the host then allocates memory. */
    ub4 (*layout_kv)(ub8 ndv, ub8 rows, ub4 *flags, tavo_kv *kv, ub4 segment_log2, ub4 lower_rows, ub4 upper_rows,
                     ub4 fill_percent, ub4 force_pointer) TAVO_NOEXCEPT;                                       /* 68 */
    /* Enters a batch of rows in a table. */
    ub4 (*create_add_kv)(tavo_kv *kv, tavo_vec *hashes, tavo_vec *values, tavo_vec *keys, sb8 segment_id,
                         tavo_env *env, tavo_kv_alloc_fn *alloc, tavo_kv_status *status) TAVO_NOEXCEPT;        /* 69 */
    /* Finds each row's matches in a table; mode says what is reported of them. */
    ub4 (*probe_kv)(tavo_vec *value_out, void *rid_out, tavo_vec *hashes, tavo_vec *rids, tavo_vec *keys,
                    tavo_kv *kv, ub4 mode, tavo_env *env, tavo_kv_status *status) TAVO_NOEXCEPT;               /* 70 */
    /* Reports the table's rows that probes have marked, or those that they have not. */
    ub4 (*mut_kv_scan)(tavo_vec *out, tavo_kv *kv, ub4 mode, tavo_kv_scan_position *position, ub4 end_segment)
        TAVO_NOEXCEPT;                                                                                         /* 71 */
    /* Finds or creates the dense group code of each row's bytes, from worker->rows_done on: codes->data is a ub4 array
     * by row, codes->count receives the rows that have their code. column: native ub4 dictionary codes (TAVO_DICT),
     * TAVO_LP_SEP, TAVO_LV_SEP or TAVO_FIXED. hashes: one ub8 a row with a width_bits of 64, or null: every symbol then
     * has hash 0, which serves small sets of symbols only; use one or the other throughout a dictionary. out may be null.
     * env is needed for a compressed column and for the error of hashes that are not 64 bits wide; its selection is not
     * read. TAVO_DONE; TAVO_BUDGET_EXHAUSTED: add what out tells to the budgets and call again with the same arguments;
     * TAVO_ALLOCATION_REFUSED: the same once there is memory; TAVO_BAD_INPUT: another form of column or hashes. */
    ub4 (*dgk_symbol2code)(tavo_dgk_request *out, tavo_dgk_worker *worker, tavo_vec *codes, tavo_vec *column,
                           tavo_vec *hashes, tavo_env *env) TAVO_NOEXCEPT;                                     /* 72 */
    /* The symbols of codes->size ub4 codes that the dictionary has given: out->data receives their addresses, ub8,
     * out->lengths their lengths, out->count the number. */
    ub4 (*dgk_code2symbol)(ub8 ignored, const tavo_dgk *trie_holder, tavo_vec *out, tavo_vec *codes) TAVO_NOEXCEPT; /* 73 */
    /* Rows whose elements in two columns of one layout are equal, left->size in all: res->count, and res->bits if a row
     * differs (else these stay untouched). 0; with elements that may be longer than 8 bytes, or without
     * TAVO_OVERREAD_OK on a side, 1 if no row is equal. */
    ub4 (*eq_stream)(tavo_vec *res, tavo_vec *left, tavo_vec *right, tavo_env *env) TAVO_NOEXCEPT;             /* 74 */
    /* Copies the rows in env->ones_vec, else in env->sel_bits, to an output of the same layout. dst->size and, in the LV
     * layouts, dst->byte_size: room on entry, written on return. 23 when the output is full: call again with the same
     * env. 2 without a common layout. */
    ub4 (*selective)(tavo_vec *dst, tavo_vec *src, tavo_env *env) TAVO_NOEXCEPT;                               /* 75 */
    /* Decodes a spak stream; to be stored in tavo_host.spak_decode. *out_len receives the bytes written, also when
     * they are not what the head promised; a refused head leaves it and dst untouched. */
    tavo_spak_decode_fn *spak_decode;                                                                          /* 76 */
    ub4 (*thread_ctx_init)(void) TAVO_NOEXCEPT;                                                                /* 77: 0 */
    ub4 (*thread_ctx_fini)(void) TAVO_NOEXCEPT;                                                                /* 78: 0 */
    /* Adds up 8-bit or big-endian 16-bit values into the ub4 at res->data. env is needed. */
    ub4 (*sum_vec)(tavo_vec *res, tavo_vec *src, tavo_env *env) TAVO_NOEXCEPT;                                 /* 79 */
    /* Compares two ub4 code columns row by row, each through a table of ub4 values or, where that is null, directly.
     * op->data points at 0 to 5 for eq lt gt le ge ne. ORs into res->bits. 0 always. */
    ub4 (*lookup_and_compare)(tavo_vec *res, tavo_vec *left, tavo_vec *right, tavo_vec *left_table,
                              tavo_vec *right_table, tavo_vec *op, tavo_env *env) TAVO_NOEXCEPT;               /* 80 */
    /* Running sums of n ub4 values, wrapping: n + 1 elements, the first 0, the last the total. */
    ub4 (*prefix_sum_vec)(tavo_vec *res, tavo_vec *src, tavo_env *env) TAVO_NOEXCEPT;                          /* 81 */
    /* Distances of a vector column's rows to one query vector or to a second column's rows. */
    ub4 (*vector_distance)(tavo_vec *res, tavo_vec *col, tavo_vec *query, ub8 metric, ub8 layout, tavo_env *env,
                           void *scratch) TAVO_NOEXCEPT;                                                       /* 82 */
    /* The k rows nearest to the query, nearest first; k must be at least 1. */
    ub4 (*vector_topk)(tavo_vec *res, tavo_vec *col, tavo_vec *query, ub8 metric, ub8 layout, tavo_env *env,
                       void *scratch) TAVO_NOEXCEPT;                                                           /* 83 */
    /* The kernel of a metric for two operands' types and forms, or null. */
    tavo_distance_kernel *(*vector_pick_metric)(ub4 metric, ub4 left_type, ub4 left_comparable, ub4 left_layout,
                                                ub4 right_type, ub4 right_comparable, ub4 right_layout)
        TAVO_NOEXCEPT;                                                                                         /* 84 */
    /* Parses the text form of vectors into packed elements and, on request, their norms. */
    ub4 (*vector_parse)(tavo_vec *res, tavo_vec *norms, tavo_vec *text, ub8 *bad_rows, tavo_env *env) TAVO_NOEXCEPT; /* 85 */
    /* Converts dense vectors from one element type to another and, on request, computes their norms. */
    ub4 (*vector_convert_fp)(tavo_vec *res, tavo_vec *norms, tavo_vec *src, ub8 *bad_rows, tavo_env *env)
        TAVO_NOEXCEPT;                                                                                         /* 86 */
    /* Element-wise sum, difference, product or quotient of vectors, or of vectors and a number. */
    ub4 (*vector_arith)(tavo_vec *res, tavo_vec *norms, tavo_vec *a, tavo_vec *b, ub4 op, tavo_env *env,
                        void *scratch) TAVO_NOEXCEPT;                                                          /* 87 */
} tavo_specialized_ctx;
/* clang-format on */

#define TAVO_FIRST_OPERATION_WORD 15u
#define TAVO_OPERATIONS 73u

TAVO_STATIC_ASSERT(sizeof(tavo_kernel_slot) == 8, "a slot is one pointer");
TAVO_STATIC_ASSERT(sizeof(tavo_specialized_ctx) == 704, "88 words");
TAVO_OFFSET(tavo_specialized_ctx, dispatch_table, 14 * 8);
TAVO_OFFSET(tavo_specialized_ctx, init_sharedlib, 15 * 8);
TAVO_OFFSET(tavo_specialized_ctx, lbiv_ictx_ini2, 28 * 8);
TAVO_OFFSET(tavo_specialized_ctx, lbiwvpopcnt, 34 * 8);
TAVO_OFFSET(tavo_specialized_ctx, bloom, 51 * 8);
TAVO_OFFSET(tavo_specialized_ctx, prefix_decode, 59 * 8);
TAVO_OFFSET(tavo_specialized_ctx, layout_kv, 68 * 8);
TAVO_OFFSET(tavo_specialized_ctx, spak_decode, 76 * 8);
TAVO_OFFSET(tavo_specialized_ctx, sum_vec, 79 * 8);
TAVO_OFFSET(tavo_specialized_ctx, vector_arith, 87 * 8);

/* The symbol to look up. */
extern const tavo_specialized_ctx tavo_global_specialized_ctx __attribute__((visibility("default")));

#ifdef __cplusplus
}
#endif

#endif
