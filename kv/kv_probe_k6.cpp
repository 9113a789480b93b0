// The members that probe tables with keys of 6 bytes and values.
#include "kv/kv_probe_members.h"

TAVO_PROBE_K6_KERNELS(TAVO_PROBE_MEMBER, TAVO_COUNT_MEMBER)
