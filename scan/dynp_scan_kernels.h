// The family list of the scans of numbers of varying length: every (operator, width, tz rule) once.
#pragma once

#include "scan/scan_list.h"

#define TAVO_EACH_DYNP_WIDTH(K, ...) K(16, __VA_ARGS__) K(32, __VA_ARGS__) K(64, __VA_ARGS__)

#define TAVO_EACH_ONE_CONSTANT_DYNP_SCAN(K, tag, variant)                                                              \
    TAVO_EACH_ONE_CONSTANT_OPERATOR(TAVO_EACH_DYNP_WIDTH, K, dynp, tag, variant)
#define TAVO_EACH_TWO_CONSTANT_DYNP_SCAN(K, tag, variant)                                                              \
    TAVO_EACH_TWO_CONSTANT_OPERATOR(TAVO_EACH_DYNP_WIDTH, K, dynp, tag, variant)

extern "C" {
TAVO_EACH_ONE_CONSTANT_DYNP_SCAN(TAVO_DECLARE_SCAN, , 0)
TAVO_EACH_ONE_CONSTANT_DYNP_SCAN(TAVO_DECLARE_SCAN, _tz, 1)
TAVO_EACH_TWO_CONSTANT_DYNP_SCAN(TAVO_DECLARE_RANGE_SCAN, , 0)
TAVO_EACH_TWO_CONSTANT_DYNP_SCAN(TAVO_DECLARE_RANGE_SCAN, _tz, 1)
}

namespace tavo {

consteval void put_dynp_scans(dispatch_tables &t) {
    TAVO_EACH_ONE_CONSTANT_DYNP_SCAN(TAVO_PUT_SCAN, , 0)
    TAVO_EACH_ONE_CONSTANT_DYNP_SCAN(TAVO_PUT_SCAN, _tz, 1)
    TAVO_EACH_TWO_CONSTANT_DYNP_SCAN(TAVO_PUT_SCAN, , 0)
    TAVO_EACH_TWO_CONSTANT_DYNP_SCAN(TAVO_PUT_SCAN, _tz, 1)
}

} // namespace tavo
