// The members that add rows with keys of a global dictionary.
#include "kv/kv_add_members.h"

TAVO_ADD_GD_KERNELS(TAVO_ADD_MEMBER)
