// Members of the bit iterators, both families.
#include "bitvec/bit_iter.h"

#include "bitvec/bitvec.h"
#include "frame/tavo_status.h"

extern "C" {

#define TAVO_ITERATORS(F, vector)                                                                                      \
    ub4 tavo_##F##_ictx_ini2_dydi(tavo_bit_iter *it, const void *bits, ub8 nbits, ub1 invert, ub8 start) noexcept {    \
        tavo::bit_iter::start<tavo::bit_iter::vector>(it, bits, nbits, invert, start);                                 \
        return TAVO_DONE;                                                                                              \
    }                                                                                                                  \
    ub8 tavo_##F##iter_dydi(tavo_bit_iter *it) noexcept {                                                              \
        return tavo::bit_iter::iterate<tavo::bit_iter::vector, false>(it);                                             \
    }                                                                                                                  \
    ub8 tavo_##F##iter_clr_dydi(tavo_bit_iter *it) noexcept {                                                          \
        return tavo::bit_iter::iterate<tavo::bit_iter::vector, true>(it);                                              \
    }                                                                                                                  \
    ub8 tavo_##F##ones_dydi(tavo_bit_iter *it, ub4 *out, ub8 capacity) noexcept {                                      \
        return tavo::bit_iter::ones<tavo::bit_iter::vector>(it, out, capacity);                                        \
    }                                                                                                                  \
    ub8 tavo_##F##run_dydi(ub8, ub8) noexcept { return tavo::bit_iter::vector::end; }                                  \
    ub8 tavo_##F##runs_dydi(ub8, ub8, ub8, ub8) noexcept { return 0; }
TAVO_ITERATORS(lbiv, byte_vector)
TAVO_ITERATORS(lbiwv, word_vector)
#undef TAVO_ITERATORS

} // extern "C"
