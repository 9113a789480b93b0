#include "xlate/translate.h"
#include "xlate/xlate_kernels.h"

TAVO_XLATE_KERNELS(TAVO_XLATE_MEMBER, ind)
