#include "aggregate/sum_distinct_kernels.h"

#include "frame/tavo_status.h"

#define TAVO_NOTHING(name)                                                                                             \
    extern "C" ub4 name(tavo_vec *, tavo_vec *, tavo_env *, ub4) noexcept { return TAVO_DONE; }
#define TAVO_DICT_MEMBERS(W) TAVO_NOTHING(tavo_sum_dict_##W##bit) TAVO_NOTHING(tavo_distinct_dict_##W##bit)
#define TAVO_FIXED_MEMBER(W) TAVO_NOTHING(tavo_sum_fixed_##W##bit)

TAVO_EACH_DECODE_WIDTH(TAVO_DICT_MEMBERS)
TAVO_EACH_SUM_FIXED_WIDTH(TAVO_FIXED_MEMBER)
