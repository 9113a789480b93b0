/* Dense group keys: one dictionary, fed by many threads, that gives each distinct symbol (a byte string) of an
 * aggregation a small code. Operations dgk_symbol2code, dgk_code2symbol, dgk_concatenate, extract_dgk.
 *
 * The host makes one tavo_dgk for an aggregation and one tavo_dgk_worker for each thread. All memory that the
 * dictionary takes comes from a worker's heap and lies within budgets that the host grants; the library gives none of
 * it back: the host drops its heap when the aggregation ends. */
#ifndef TAVO_DENSE_H
#define TAVO_DENSE_H

#include "tavo_types.h"
#include "tavo_vec.h"

#ifdef __cplusplus
extern "C" {
#endif

typedef struct tavo_dgk tavo_dgk;
typedef struct tavo_dgk_worker tavo_dgk_worker;
typedef struct tavo_dgk_heap tavo_dgk_heap;
typedef struct tavo_dgk_request tavo_dgk_request;

/* The host's allocator; what it keeps for itself follows behind. allocate stores the address of `size` bytes, aligned
 * to 8 at least, in *out, or null to refuse. Labels: "HashT" for a secondary table (65600 bytes), "DGKPool" for a pool
 * block (4096 bytes to 1 MiB). Every worker calls its own heap's from its own thread. */
struct tavo_dgk_heap {
    void (*allocate)(tavo_dgk_heap *heap, ub8 size, const char *label, ub4 one, ub4 zero, void **out);
};

/* What the operation tells the host on TAVO_DONE and TAVO_BUDGET_EXHAUSTED. */
struct tavo_dgk_request {
    double symbols; /* estimate of the distinct symbols still to come */
    ub8 pool_bytes; /* to add to pool_budget before the next call */
    ub8 page_units; /* to add to page_budget before the next call */
};

/* The shared dictionary. The host zeroes it and sets table_bits, first_level, worker_count, the budgets and, if codes
 * are not to start at 0, next_code. While workers run it only adds to the budgets, atomically. */
struct tavo_dgk {
    ub8 next_code;     /* next free code; workers take 8 at a time. A multiple of 8 */
    ub8 leader;        /* 1: one of the workers has the service duty */
    ub1 table_bits;    /* log2 of the first level's nodes */
    ub8 code_trie;     /* root of the code-to-symbol trie, its depth less one in the low two bits; 0: none yet */
    ub8 free_pages;    /* free secondary tables, linked through their first word, else zero; the address of the first
                          with a tag of 5 bits that each taking counts up */
    ub8 pool_budget;   /* bytes that workers may still take for symbols */
    sb8 page_budget;   /* what workers may still take for secondary tables; each costs 64 */
    ub8 spare_block;   /* one pool block on offer between workers */
    ub8 current_page;  /* secondary table that deep nodes are cut from; the low bit is set while a worker replaces it */
    ub4 worker_count;  /* threads that feed the dictionary */
    void *first_level; /* 2^table_bits nodes of 64 bytes, aligned to 64, zeroed by the host */
};

/* One thread's part. The host zeroes it and sets dgk, heap and, for one worker at least, servicing; afterwards it reads
 * what it likes and writes nothing. */
struct tavo_dgk_worker {
    tavo_dgk *dgk;         /* the dictionary */
    ub8 code_cursor;       /* the next code; its low three bits count through the 8 that the worker holds */
    ub4 servicing;         /* 1: has, or wants, the service duty; cleared if another worker has it */
    ub4 page_credit;       /* taken from page_budget and not used yet */
    ub4 page_debt;         /* what was missing for a secondary table */
    ub4 pool_credit;       /* bytes taken from pool_budget and not used yet */
    ub4 block_debt;        /* KiB that were missing for a pool block */
    ub8 pool_bytes;        /* bytes used for records and trie */
    ub8 trie_base;         /* trie block of the 256 codes that the last one belongs to */
    ub4 local_free_count;  /* secondary tables in local_free_pages */
    ub8 local_free_pages;  /* linked through their first word, else zero */
    ub8 pool_cursor;       /* free bytes of the pool block */
    ub8 pool_end;          /* their end */
    ub8 spare_block;       /* a block in reserve */
    ub4 status;            /* of the last call: 0, 7 or 8 */
    ub4 rows_done;         /* rows of the column that have their code; the next call goes on there */
    ub8 new_symbols;       /* symbols created since the last estimate ... */
    ub8 new_rows;          /* ... and rows done since */
    ub8 all_symbols;       /* symbols created before ... */
    ub8 all_rows;          /* ... and rows done before */
    ub8 remaining_rows;    /* rows of the column not done at the last estimate */
    double estimate;       /* distinct symbols still to come */
    tavo_dgk_heap *heap;   /* where its memory comes from */
    ub8 library_state[12]; /* the library's own */
};

TAVO_STATIC_ASSERT(sizeof(tavo_dgk_request) == 24, "size of tavo_dgk_request");
TAVO_OFFSET(tavo_dgk_request, symbols, 0);
TAVO_OFFSET(tavo_dgk_request, pool_bytes, 8);
TAVO_OFFSET(tavo_dgk_request, page_units, 16);

TAVO_STATIC_ASSERT(sizeof(tavo_dgk) == 88, "size of tavo_dgk");
TAVO_OFFSET(tavo_dgk, next_code, 0);
TAVO_OFFSET(tavo_dgk, leader, 8);
TAVO_OFFSET(tavo_dgk, table_bits, 16);
TAVO_OFFSET(tavo_dgk, code_trie, 24);
TAVO_OFFSET(tavo_dgk, free_pages, 32);
TAVO_OFFSET(tavo_dgk, pool_budget, 40);
TAVO_OFFSET(tavo_dgk, page_budget, 48);
TAVO_OFFSET(tavo_dgk, spare_block, 56);
TAVO_OFFSET(tavo_dgk, current_page, 64);
TAVO_OFFSET(tavo_dgk, worker_count, 72);
TAVO_OFFSET(tavo_dgk, first_level, 80);

TAVO_STATIC_ASSERT(sizeof(tavo_dgk_worker) == 256, "size of tavo_dgk_worker");
TAVO_OFFSET(tavo_dgk_worker, dgk, 0);
TAVO_OFFSET(tavo_dgk_worker, code_cursor, 8);
TAVO_OFFSET(tavo_dgk_worker, servicing, 16);
TAVO_OFFSET(tavo_dgk_worker, page_credit, 20);
TAVO_OFFSET(tavo_dgk_worker, page_debt, 24);
TAVO_OFFSET(tavo_dgk_worker, pool_credit, 28);
TAVO_OFFSET(tavo_dgk_worker, block_debt, 32);
TAVO_OFFSET(tavo_dgk_worker, pool_bytes, 40);
TAVO_OFFSET(tavo_dgk_worker, trie_base, 48);
TAVO_OFFSET(tavo_dgk_worker, local_free_count, 56);
TAVO_OFFSET(tavo_dgk_worker, local_free_pages, 64);
TAVO_OFFSET(tavo_dgk_worker, pool_cursor, 72);
TAVO_OFFSET(tavo_dgk_worker, pool_end, 80);
TAVO_OFFSET(tavo_dgk_worker, spare_block, 88);
TAVO_OFFSET(tavo_dgk_worker, status, 96);
TAVO_OFFSET(tavo_dgk_worker, rows_done, 100);
TAVO_OFFSET(tavo_dgk_worker, new_symbols, 104);
TAVO_OFFSET(tavo_dgk_worker, new_rows, 112);
TAVO_OFFSET(tavo_dgk_worker, all_symbols, 120);
TAVO_OFFSET(tavo_dgk_worker, all_rows, 128);
TAVO_OFFSET(tavo_dgk_worker, remaining_rows, 136);
TAVO_OFFSET(tavo_dgk_worker, estimate, 144);
TAVO_OFFSET(tavo_dgk_worker, heap, 152);
TAVO_OFFSET(tavo_dgk_worker, library_state, 160);

#ifdef __cplusplus
}
#endif

#endif
