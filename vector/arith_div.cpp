#include "vector/arith_members.h"

TAVO_ARITH_MEMBERS(div)
