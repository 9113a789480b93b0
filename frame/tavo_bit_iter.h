/* The bit iterator: walks the set (or clear) bits of a bit vector. The record lives with its caller and owns nothing:
 * it may be dropped at any time. The vector must not change during the walk. */
#ifndef TAVO_BIT_ITER_H
#define TAVO_BIT_ITER_H

#include "tavo_vec.h"

#ifdef __cplusplus
extern "C" {
#endif

typedef struct tavo_bit_iter {
    const ub8 *next; /* next 64-bit word to load, null for an empty iterator */
    ub8 nbits;       /* bits in the vector */
    ub8 base;        /* number of bit 0 of the current word; may wrap below 0 in lbiv iterators */
    ub8 word;        /* bits of the current word that are not yet delivered */
} tavo_bit_iter;

/* End marks of the two families: a caller compares with the mark of its own family. */
#define TAVO_LBIV_END 0xffffffffull
#define TAVO_LBIWV_END 0xffffffffffffffffull

TAVO_STATIC_ASSERT(sizeof(tavo_bit_iter) == 32, "size of tavo_bit_iter");
TAVO_OFFSET(tavo_bit_iter, next, 0);
TAVO_OFFSET(tavo_bit_iter, nbits, 8);
TAVO_OFFSET(tavo_bit_iter, base, 16);
TAVO_OFFSET(tavo_bit_iter, word, 24);

#ifdef __cplusplus
}
#endif

#endif
