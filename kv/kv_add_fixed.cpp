// The members that add rows with keys in slots.
#include "kv/kv_add_members.h"

TAVO_ADD_FIXED_KERNELS(TAVO_ADD_MEMBER)
