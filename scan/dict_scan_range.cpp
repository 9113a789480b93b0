#include "scan/dict_scan.h"
#include "scan/dict_scan_kernels.h"

TAVO_EACH_TWO_CONSTANT_DICT_SCAN(TAVO_TWO_CONSTANT_MEMBER, , 0)
