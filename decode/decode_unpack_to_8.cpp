#include "decode/decode_unpack.h"

TAVO_EACH_DECODE_WIDTH_TO_8(TAVO_UNPACK_MEMBER)
