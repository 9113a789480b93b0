#include "aggregate/arithmetic.h"

TAVO_EACH_ARITH_OPERATOR(TAVO_ARITH_MEMBERS, double)
