// The members that probe tables with keys taken from the hash.
#include "kv/kv_probe_members.h"

TAVO_PROBE_HASH_KERNELS(TAVO_PROBE_MEMBER, TAVO_COUNT_MEMBER)
