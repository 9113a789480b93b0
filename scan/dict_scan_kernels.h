// The family list of the dictionary-code scans: every (operator, code width, null rule) once.
#pragma once

#include "scan/scan_list.h"

// clang-format off
#define TAVO_EACH_SCAN_WIDTH(K, ...)                                                                                   \
    K(1, __VA_ARGS__) K(2, __VA_ARGS__) K(3, __VA_ARGS__) K(4, __VA_ARGS__) K(5, __VA_ARGS__) K(6, __VA_ARGS__)        \
    K(7, __VA_ARGS__) K(8, __VA_ARGS__) K(9, __VA_ARGS__) K(10, __VA_ARGS__) K(11, __VA_ARGS__) K(12, __VA_ARGS__)     \
    K(13, __VA_ARGS__) K(14, __VA_ARGS__) K(15, __VA_ARGS__) K(16, __VA_ARGS__) K(17, __VA_ARGS__)                     \
    K(18, __VA_ARGS__) K(19, __VA_ARGS__) K(20, __VA_ARGS__) K(24, __VA_ARGS__) K(32, __VA_ARGS__) K(64, __VA_ARGS__)
// clang-format on

#define TAVO_EACH_ONE_CONSTANT_DICT_SCAN(K, tag, variant)                                                              \
    TAVO_EACH_ONE_CONSTANT_OPERATOR(TAVO_EACH_SCAN_WIDTH, K, dict, tag, variant)
#define TAVO_EACH_TWO_CONSTANT_DICT_SCAN(K, tag, variant)                                                              \
    TAVO_EACH_TWO_CONSTANT_OPERATOR(TAVO_EACH_SCAN_WIDTH, K, dict, tag, variant)

extern "C" {
TAVO_EACH_ONE_CONSTANT_DICT_SCAN(TAVO_DECLARE_SCAN, , 0)
TAVO_EACH_ONE_CONSTANT_DICT_SCAN(TAVO_DECLARE_SCAN, _null, 1)
TAVO_EACH_TWO_CONSTANT_DICT_SCAN(TAVO_DECLARE_RANGE_SCAN, , 0)
TAVO_EACH_TWO_CONSTANT_DICT_SCAN(TAVO_DECLARE_RANGE_SCAN, _null, 1)
}

namespace tavo {

consteval void put_dict_scans(dispatch_tables &t) {
    TAVO_EACH_ONE_CONSTANT_DICT_SCAN(TAVO_PUT_SCAN, , 0)
    TAVO_EACH_ONE_CONSTANT_DICT_SCAN(TAVO_PUT_SCAN, _null, 1)
    TAVO_EACH_TWO_CONSTANT_DICT_SCAN(TAVO_PUT_SCAN, , 0)
    TAVO_EACH_TWO_CONSTANT_DICT_SCAN(TAVO_PUT_SCAN, _null, 1)
}

} // namespace tavo
