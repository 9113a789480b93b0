// The members that probe tables with keys alone.
#include "kv/kv_probe_members.h"

TAVO_PROBE_KEY_KERNELS(TAVO_PROBE_MEMBER, TAVO_COUNT_MEMBER)
