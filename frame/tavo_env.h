/* The per-call environment, the host's callback record and the record that the spak decoder receives. */
#ifndef TAVO_ENV_H
#define TAVO_ENV_H

#include "tavo_vec.h"

#ifdef __cplusplus
extern "C" {
#endif

typedef struct tavo_spak_ctx tavo_spak_ctx;
typedef struct tavo_aux_info tavo_aux_info;

/* Per-call environment; belongs to one thread during a call. It carries the state of a resumable kernel: a caller
 * leaves the resume fields untouched between calls of one pass and zeroes them before a new pass. */
struct tavo_env {
    tavo_host *host;    /* callback record; needed for spak and run-length columns */
    ub8 *sel_bits;      /* row selection of this call, or null (run-level for TAVO_RLE scans) */
    ub1 flags;          /* TAVO_ENV_... */
    ub1 flags2;         /* TAVO_ENV2_... */
    ub8 sel_count;      /* bits set in sel_bits, where the caller knows it: a scan sets it for rle_expand, the burst
                           kernels read it */
    ub4 full_partition; /* out: partition that had no room */
    ub4 resume_row;     /* in-out: next row or position to process */
    ub4 run_index;      /* in-out: run reached, in kernels that walk runs */
    ub4 run_end;        /* in-out: row at which that run ends */
    ub4 parsed_rows;    /* out: rows parsed well */
    ub8 resume_offset;  /* in-out: byte offset reached in a variable-length source */
    ub4 *ones_vec;      /* position list: rows to process, ascending, or null; replaces sel_bits unless a kernel says
                           otherwise */
    ub4 ones_vec_size;  /* entries in ones_vec */
    ub4 start_row;      /* first row to process (bloom, translation); input only */
    ub8 *valid_rows;    /* a per-row failure of a flexible vector operation clears the row's bit */
    ub1 result_flags;   /* out: TAVO_RESULT_... bits ORed in; never cleared by a kernel */
    ub1 result_flags2;  /* out: value 1: a translation kernel has applied sel_bits */
    void *symbol_refs;  /* optional output of prefix decode: 16-byte records, ub8 address, ub2 length, zeros */
    void *xlate_ctx;    /* translation context */
    void *xlate_out;    /* output array of the _c2d translation kernels */
    tavo_aux_info *aux; /* probe: chain position and bit vectors that survive between calls, or null */
};

/* tavo_env.flags */
#define TAVO_ENV_SPARSE 2u         /* walk sel_bits row by row instead of scanning all rows and masking afterwards */
#define TAVO_ENV_WIDE 4u           /* decode_unpack: ub4 elements at every width; decode_symbol: src.data is ub4 */
#define TAVO_ENV_MULTIPLY_KEYS 16u /* group keys by the multiply rule */
#define TAVO_ENV_SUM 128u          /* sum while converting */
/* tavo_env.flags2 */
#define TAVO_ENV2_BIG_ENDIAN 1u /* big-endian integer source */
#define TAVO_ENV2_COPY 2u       /* copy form of symbol decode */
/* tavo_env.result_flags */
#define TAVO_RESULT_SCAN_SELECTED 2u    /* a scan has applied sel_bits: the caller need not AND again */
#define TAVO_RESULT_DECODE_SELECTED 4u  /* decode has honoured the row selection */
#define TAVO_RESULT_SET_SELECTED 16u    /* set membership has applied sel_bits */
#define TAVO_RESULT_BLOOM_SELECTED 32u  /* bloom has applied sel_bits */
#define TAVO_RESULT_UNPACK_SELECTED 64u /* decode_unpack has honoured the selection; the resume fields are current */

/* Long-lived allocation: heap, label and tag are passed through; the constants are 8 and the alignment 64. Must return
 * a block of size bytes or not return: the result is not tested. 3 bytes behind the block must be readable too: kernels
 * read the packed codes there as in any column. */
typedef void *tavo_allocate_fn(void *handle, ub8 heap, ub8 size, const char *label, ub4 unit, ub4 alignment, ub8 tag);
/* Scratch allocation; the cookie goes back to temp_release. The fifth argument is 0. The result is not tested. */
typedef void *tavo_temp_allocate_fn(void *handle, ub8 size, const char *label, ub4 alignment, ub4 zero, ub8 *cookie);
typedef void tavo_temp_release_fn(void *handle, void *block, ub8 cookie);
/* Decoder of spak streams, the signature of the descriptor's spak_decode. Returns TAVO_DONE or TAVO_BAD_INPUT. */
typedef ub4 tavo_spak_decode_fn(tavo_spak_ctx *ctx, const ub1 *src, ub1 *dst, ub4 *out_len, ub4 capacity) TAVO_NOEXCEPT;

struct tavo_host {
    void *handle;                         /* first argument of every callback. Points at a block of at least 72 ub8
                                             words: the 72nd is handed to hostraiseierr */
    ub8 heap;                             /* opaque, passed to allocate */
    tavo_allocate_fn *allocate;           /* buffers that outlive the call (decompressed columns) */
    tavo_temp_allocate_fn *temp_allocate; /* scratch, released before the call returns */
    tavo_temp_release_fn *temp_release;   /* gives back a block of temp_allocate, with the cookie that came with it */
    tavo_spak_decode_fn *spak_decode;     /* the host stores the descriptor's spak_decode here */
    ub1 flags;                            /* 0x10 or 0x20 set: tavo_spak_ctx.flag is 1 */
};

/* What the decoder receives from a kernel's prologue. */
struct tavo_spak_ctx {
    void *handle;                         /* tavo_host.handle: first argument of the two callbacks */
    ub8 heap;                             /* tavo_host.heap; not used by the decoder */
    tavo_temp_allocate_fn *temp_allocate; /* tavo_host.temp_allocate: the decoder's scratch */
    tavo_temp_release_fn *temp_release;   /* tavo_host.temp_release: called before the decoder returns */
    ub4 flag;                             /* 1 if tavo_host.flags has 0x10 or 0x20, else 0; not read by the decoder */
};

/* Provided by the host process, the one symbol that the library imports from it: raises an internal error. word72 is
 * ((ub8 *)handle)[71]; the last argument, the number of further arguments, is 0. It may return: the kernel then goes
 * on as if nothing had happened. It must not unwind through the library. */
void hostraiseierr(void *handle, ub8 word72, const char *message, ub4 zero);

TAVO_STATIC_ASSERT(sizeof(tavo_env) == 128, "size of tavo_env");
TAVO_OFFSET(tavo_env, host, 0);
TAVO_OFFSET(tavo_env, sel_bits, 8);
TAVO_OFFSET(tavo_env, flags, 16);
TAVO_OFFSET(tavo_env, flags2, 17);
TAVO_OFFSET(tavo_env, sel_count, 24);
TAVO_OFFSET(tavo_env, full_partition, 32);
TAVO_OFFSET(tavo_env, resume_row, 36);
TAVO_OFFSET(tavo_env, run_index, 40);
TAVO_OFFSET(tavo_env, run_end, 44);
TAVO_OFFSET(tavo_env, parsed_rows, 48);
TAVO_OFFSET(tavo_env, resume_offset, 56);
TAVO_OFFSET(tavo_env, ones_vec, 64);
TAVO_OFFSET(tavo_env, ones_vec_size, 72);
TAVO_OFFSET(tavo_env, start_row, 76);
TAVO_OFFSET(tavo_env, valid_rows, 80);
TAVO_OFFSET(tavo_env, result_flags, 88);
TAVO_OFFSET(tavo_env, result_flags2, 89);
TAVO_OFFSET(tavo_env, symbol_refs, 96);
TAVO_OFFSET(tavo_env, xlate_ctx, 104);
TAVO_OFFSET(tavo_env, xlate_out, 112);
TAVO_OFFSET(tavo_env, aux, 120);

TAVO_STATIC_ASSERT(sizeof(tavo_host) == 56, "size of tavo_host");
TAVO_OFFSET(tavo_host, handle, 0);
TAVO_OFFSET(tavo_host, heap, 8);
TAVO_OFFSET(tavo_host, allocate, 16);
TAVO_OFFSET(tavo_host, temp_allocate, 24);
TAVO_OFFSET(tavo_host, temp_release, 32);
TAVO_OFFSET(tavo_host, spak_decode, 40);
TAVO_OFFSET(tavo_host, flags, 48);

TAVO_STATIC_ASSERT(sizeof(tavo_spak_ctx) == 40, "size of tavo_spak_ctx");
TAVO_OFFSET(tavo_spak_ctx, handle, 0);
TAVO_OFFSET(tavo_spak_ctx, heap, 8);
TAVO_OFFSET(tavo_spak_ctx, temp_allocate, 16);
TAVO_OFFSET(tavo_spak_ctx, temp_release, 24);
TAVO_OFFSET(tavo_spak_ctx, flag, 32);

#ifdef __cplusplus
}
#endif

#endif
