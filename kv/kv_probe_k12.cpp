// The members that probe tables with keys of 10 and 12 bytes and values.
#include "kv/kv_probe_members.h"

TAVO_PROBE_K12_KERNELS(TAVO_PROBE_MEMBER, TAVO_COUNT_MEMBER)
