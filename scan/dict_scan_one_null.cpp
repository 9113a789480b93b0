#include "scan/dict_scan.h"
#include "scan/dict_scan_kernels.h"

TAVO_EACH_ONE_CONSTANT_DICT_SCAN(TAVO_ONE_CONSTANT_MEMBER, _null, 1)
