#include "aggregate/minmax.h"

TAVO_EACH_DECODE_WIDTH(TAVO_MINMAX_MEMBER)
