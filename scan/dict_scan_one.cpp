#include "scan/dict_scan_members.h"

TAVO_EACH_ONE_CONSTANT_SCAN(TAVO_ONE_CONSTANT_MEMBER, , 0)
