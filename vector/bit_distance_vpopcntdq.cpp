// The dense members of bit vectors, counting by instruction. Selected only where tavo_has_vpopcdq is set.
#include "bitvec/instruction_count.h"
#include "vector/bits.h"
#include "vector/distance_kernels.h"

#define TAVO_BITS_MEMBER(family)                                                                                       \
    TAVO_DISTANCE_KERNEL(tavo_dbv_##family##_vpopc_bitmsb0_bitmsb0) {                                                  \
        using namespace tavo::vector;                                                                                  \
        return dense_bits<bit_family::family, tavo::bitwise::instruction_count>(dims, left, right, metric, result);    \
    }

extern "C" {
TAVO_EACH_BIT_DISTANCE(TAVO_BITS_MEMBER)
}
