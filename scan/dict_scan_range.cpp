#include "scan/dict_scan_members.h"

TAVO_EACH_TWO_CONSTANT_SCAN(TAVO_TWO_CONSTANT_MEMBER, , 0)
