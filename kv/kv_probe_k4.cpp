// The members that probe tables with keys of 4 bytes and values.
#include "kv/kv_probe_members.h"

TAVO_PROBE_K4_KERNELS(TAVO_PROBE_MEMBER, TAVO_COUNT_MEMBER)
