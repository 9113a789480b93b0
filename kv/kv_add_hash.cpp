// The members that add rows with keys taken from the hash.
#include "kv/kv_add_members.h"

TAVO_ADD_HASH_KERNELS(TAVO_ADD_MEMBER)
