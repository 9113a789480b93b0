/* Join tables: the key-to-value multimap (KV table) that layout_kv shapes, create_add_kv fills, probe_kv and
 * mut_kv_scan read.
 *
 *   1. Set kv->flags to TAVO_KV_FLAGS(kind, type), zero the rest, call layout_kv(ndv, rows, &kv->flags, kv, ...).
 *   2. For every region give `segments` room for segment_count addresses. A segment is 1 << element_bits elements,
 *      tavo_kv_segment_bytes bytes, zeroed and 64-byte aligned. Region 0 is mapped whole before rows are added;
 *      the others may be mapped as the allocator callback hands out elements. Store in mapped_segments how many
 *      addresses stand.
 *   3. create_add_kv, as often as wanted, up to the rows that layout was told. On any result but 0 and 2 map what
 *      tavo_kv_status names and call again with the same arguments: env->resume_row remembers the rows done. Zero it
 *      for the next batch.
 *   4. probe_kv with env->aux pointing at a zeroed tavo_aux_info. On TAVO_PROBE_FULL drain the outputs, set
 *      value_out->size to the capacity again and call again with the same arguments.
 *
 * The library allocates nothing and keeps nothing: all memory is the host's. Nothing is read or written outside the
 * segments, vectors and records named here. */
#ifndef TAVO_KV_H
#define TAVO_KV_H

#include <stddef.h>

#include "tavo_avx512g.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Low byte of tavo_kv.flags: kKvV is a key of K bytes and a value of V bytes. 0 and 14 are no types. */
enum tavo_kv_type {
    TAVO_KV_K2V4 = 1,
    TAVO_KV_K2V8 = 2,
    TAVO_KV_K4 = 3,
    TAVO_KV_K4V4 = 4,
    TAVO_KV_K4V8 = 5,
    TAVO_KV_K6 = 6,
    TAVO_KV_K6V4 = 7,
    TAVO_KV_K6V8 = 8,
    TAVO_KV_K8 = 9,
    TAVO_KV_K8V4 = 10,
    TAVO_KV_K8V8 = 11,
    TAVO_KV_K10V4 = 12,
    TAVO_KV_K12 = 13,
    TAVO_KV_K12V4 = 15
};

/* Bits 8 to 11 of tavo_kv.flags: where a row's key comes from. */
enum tavo_kv_kind {
    TAVO_KV_HASH_VALUE = 0, /* the hash itself: bits 32 and up of a 64-bit hash, 0 replaced by 1; a 32-bit hash as it
                               is. k2v4 k2v8 k4v4 k4v8 */
    TAVO_KV_FIXED_KEY = 1,  /* a fixed-width column no wider than the key slot. All types but k2v4 k2v8 */
    TAVO_KV_GD = 2,         /* native ub4 codes of a global dictionary. k4 k4v4 k4v8 */
    TAVO_KV_LP = 3,         /* variable-length keys: a length byte and the bytes, zero-filled, in the slot; all keys
                               longer than the slot less one share the slot 255, 0, 0 ... Types as kind 1 */
    TAVO_KV_ARRAY = 4,      /* native ub4 keys used as an index, row lists: k4v4 (arid4) or k4v8 (arid8) */
    TAVO_KV_ARRAY_COUNT = 5 /* native ub4 keys used as an index, occurrences: k4 (acnt) */
};

#define TAVO_KV_FLAGS(kind, type) ((ub4)(kind) << 8 | (ub4)(type))
#define TAVO_KV_TYPE(flags) ((flags)&0xffu)
#define TAVO_KV_KIND(flags) ((flags) >> 8 & 0xfu)
#define TAVO_KV_PTR 0x4000u      /* pointer form; written by layout_kv */
#define TAVO_KV_PREFETCH 0x8000u /* probes and scans prefetch chains; written by layout_kv */
#define TAVO_KV_UNIQUE 0x10000u  /* host: array kinds keep the first row of a key */

struct tavo_kv_region {
    ub4 segment_count;   /* out of layout: segments that the host must be ready to provide */
    ub1 segment_id_bits; /* out of layout: log2 of the segment numbers that a hash is masked to (region 0) */
    ub1 element_bits;    /* out of layout: log2 of the elements (buckets, keys, units) in one segment */
    ub1 alloc_hint;      /* out of layout: for the host's allocator; not read again */
    ub2 element_size;    /* out of layout: bits of an element; 34 (bytes of a group of 8 keys) in region 0 of arid4 */
    ub2 entries;         /* out of layout: entries of an element; the capacity of a bucket */
    ub4 one;             /* out of layout, region 0: 1 */
    void **segments;     /* host: segment_count addresses; element e is in segments[e >> element_bits] */
    ub4 mapped_segments; /* host: how many of the addresses are in use; bounds the keys of the array kinds */
};

struct tavo_kv {
    ub4 flags;                /* type, kind, TAVO_KV_... */
    ub4 key_bits;             /* TAVO_KV_FIXED_KEY: width of the key column, set by the first add */
    tavo_kv_region region[3]; /* 0 the table; 1 overflow buckets or second-level records; 2 list nodes of arid4 */
};

/* tavo_kv_alloc_fn, create_add_kv's callback: hands out `count` elements in a row of the region that is passed (they
 * must not straddle a segment), zeroed and mapped, stores the first one's number in *id and returns 0. Ids of region 1
 * of a table in index form stay below 2^(32 - count bits) - 1, at least 2^28 - 1. On any other result, which
 * create_add_kv returns, *id holds the element that was wanted: tavo_kv_status then names its segment. The callback
 * gets no handle: a host finds its own from the address of the region (&kv->region[i]). */

/* Written by a kernel that stopped (build) or added to when one ends (probe). */
union tavo_kv_status {
    struct {
        ub4 region_class; /* what is missing: 0 a segment of region 0, 1 of region 1, 2 of region 2 */
        ub8 segment;      /* its number */
    } build;
    struct {
        ub8 rows;        /* added to: rows that went one by one, without prefetching */
        ub8 chain_steps; /* added to: overflow buckets entered. A call that stops adds nothing to either */
    } probe;
};

/* A probe's state between calls, at env->aux; zeroed by the host before a pass. Modes that write output need one. */
struct tavo_aux_info {
    ub8 tavo_aux_stream_position;     /* buckets of the current row's chain already done; array kinds: the list node
                                         reached (arid4, arid8) or matches already written (acnt) */
    ub8 tavo_aux_stream2_current_pos; /* position in that node */
    ub8 *nonmatch_bv; /* modes with NONMATCH: bit (row id - bv_base) is cleared at a match; the host sets
                         all rows' bits before */
    ub8 bv_base;      /* subtracted from ids before a bit vector is indexed */
    ub8 *segbv;       /* modes with SEGBV: bit (build value - bv_base) is set for a matched value */
};

/* probe_kv's mode: what goes out for a match. Values need a kXvY type; the modes marked k only a key-only one. Hash
 * value tables take TAVO_PROBE_PAIRS only. Others are refused with TAVO_MODE_REFUSED. */
enum tavo_kv_probe_mode {
    TAVO_PROBE_PAIRS = 0,          /* probe row id and build value; key-only types: probe row id */
    TAVO_PROBE_COUNT = 1,          /* number of matches */
    TAVO_PROBE_VALUES = 3,         /* build values */
    TAVO_PROBE_COUNT_DISTINCT = 4, /* k: number of rows with a match */
    TAVO_PROBE_DISTINCT = 5,       /* as PAIRS, one for a row: the newest entry of the first bucket with a match; the
                                      newest of an array's list */
    TAVO_PROBE_COUNT_NONMATCH = 6, /* k: number of matches plus rows without any */
    TAVO_PROBE_NONMATCH = 7,       /* as PAIRS, and nonmatch_bv */
    TAVO_PROBE_COUNT_MUTKV = 8,    /* COUNT, and matched entries are marked in the table (pointer form) */
    TAVO_PROBE_PAIRS_MUTKV = 9,    /* PAIRS, and the same */
    TAVO_PROBE_COUNT_SEGBV = 10,   /* COUNT, and segbv */
    TAVO_PROBE_PAIRS_SEGBV = 11    /* PAIRS, and segbv */
};

/* mut_kv_scan's mode. */
enum tavo_kv_scan_mode {
    TAVO_SCAN_MARKED = 1,        /* values of entries that mutkv probes have marked */
    TAVO_SCAN_COUNT_MARKED = 2,  /* their number */
    TAVO_SCAN_UNMARKED = 3,      /* values of all other entries */
    TAVO_SCAN_COUNT_UNMARKED = 4 /* their number */
};

/* Where a scan of a table has got to; zeroed by the host (or set to a segment) before the first call. */
struct tavo_kv_scan_position {
    ub4 segment;        /* in-out: segment being scanned */
    ub8 bucket;         /* in-out: bucket in it */
    ub8 chain_position; /* in-out: buckets of this chain already done */
    ub8 count;          /* out: entries reported by this call, counted or written */
};

/* Element classes of a record stream (TAVO_ELEMENT_CLASS of the hash vector's flags), for create_add_kv. The stream is
 * the hash vector's data, back to back; fields in the order given, native byte order, at these offsets. */
#define TAVO_RECORD_KEY32 0x03000000u           /* the array kinds: ub4 keys; pass the vector as hashes and as keys */
#define TAVO_RECORD_GDCACHEDHASH 0x12000000u    /* 8 bytes: ub4 key 0, ub4 hash 4 */
#define TAVO_RECORD_RIDGDCACHEDHASH 0x13000000u /* 16: ub4 key 0, ub4 hash 4, ub8 row id 8 */
#define TAVO_RECORD_RIDHASH 0x21000000u         /* 16: ub8 row id 0, ub8 hash 8 */
#define TAVO_RECORD_GDHASH 0x22000000u          /* 16: ub8 hash 0, ub4 key 8 */
#define TAVO_RECORD_RIDGDHASH 0x23000000u /* 16: ub4 hash 0, ub4 key 4, ub8 row id 8; array kinds: hash not read */
#define TAVO_RECORD_FIXEDHASH 0x24000000u /* 16: ub8 hash 0, key of 4 or 8 bytes 8 */
#define TAVO_RECORD_RIDFIXEDHASH                                                                                       \
    0x25000000u                           /* 16: ub4 hash 0, key of 4 or 8 bytes 4, row id to the end: ub8 8 behind a  \
                                             key of 4 bytes, ub4 12 behind one of 8 */
#define TAVO_RECORD_LPHASH 0x28000000u    /* 24: address of the key 0, ub2 its length 8, ub8 hash 16 */
#define TAVO_RECORD_RIDLPHASH 0x29000000u /* 32: ub8 row id 0, ub8 hash 8, address of the key 16, ub2 its length 24 */

/* Bytes of one segment of a region. */
static inline ub8 tavo_kv_segment_bytes(const tavo_kv *kv, ub4 region) {
    const tavo_kv_region *r = &kv->region[region];
    ub8 elements = (ub8)1 << r->element_bits;
    if (region == 0 && TAVO_KV_KIND(kv->flags) == TAVO_KV_ARRAY && TAVO_KV_TYPE(kv->flags) == TAVO_KV_K4V4)
        return (elements >> 3) * r->element_size; /* groups of 8 keys */
    return (elements * r->element_size) >> 3;
}

TAVO_STATIC_ASSERT(sizeof(tavo_kv_region) == 32, "size of tavo_kv_region");
TAVO_OFFSET(tavo_kv_region, segment_count, 0);
TAVO_OFFSET(tavo_kv_region, segment_id_bits, 4);
TAVO_OFFSET(tavo_kv_region, element_bits, 5);
TAVO_OFFSET(tavo_kv_region, alloc_hint, 6);
TAVO_OFFSET(tavo_kv_region, element_size, 8);
TAVO_OFFSET(tavo_kv_region, entries, 10);
TAVO_OFFSET(tavo_kv_region, one, 12);
TAVO_OFFSET(tavo_kv_region, segments, 16);
TAVO_OFFSET(tavo_kv_region, mapped_segments, 24);
TAVO_STATIC_ASSERT(sizeof(tavo_kv) == 104, "size of tavo_kv");
TAVO_OFFSET(tavo_kv, key_bits, 4);
TAVO_OFFSET(tavo_kv, region, 8);
TAVO_STATIC_ASSERT(sizeof(tavo_kv_status) == 16, "size of tavo_kv_status");
TAVO_OFFSET(tavo_kv_status, build.region_class, 0);
TAVO_OFFSET(tavo_kv_status, build.segment, 8);
TAVO_OFFSET(tavo_kv_status, probe.rows, 0);
TAVO_OFFSET(tavo_kv_status, probe.chain_steps, 8);
TAVO_STATIC_ASSERT(sizeof(tavo_aux_info) == 40, "size of tavo_aux_info");
TAVO_OFFSET(tavo_aux_info, tavo_aux_stream_position, 0);
TAVO_OFFSET(tavo_aux_info, tavo_aux_stream2_current_pos, 8);
TAVO_OFFSET(tavo_aux_info, nonmatch_bv, 16);
TAVO_OFFSET(tavo_aux_info, bv_base, 24);
TAVO_OFFSET(tavo_aux_info, segbv, 32);
TAVO_STATIC_ASSERT(sizeof(tavo_kv_scan_position) == 32, "size of tavo_kv_scan_position");
TAVO_OFFSET(tavo_kv_scan_position, segment, 0);
TAVO_OFFSET(tavo_kv_scan_position, bucket, 8);
TAVO_OFFSET(tavo_kv_scan_position, chain_position, 16);
TAVO_OFFSET(tavo_kv_scan_position, count, 24);

#ifdef __cplusplus
}
#endif

#endif
