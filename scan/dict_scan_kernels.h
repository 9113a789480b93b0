// The family list of the dictionary-code scans: every (operator, code width, null rule) once.
#pragma once

#include "frame/dispatch_table.h"

// clang-format off
#define TAVO_EACH_SCAN_WIDTH(K, ...)                                                                                   \
    K(1, __VA_ARGS__) K(2, __VA_ARGS__) K(3, __VA_ARGS__) K(4, __VA_ARGS__) K(5, __VA_ARGS__) K(6, __VA_ARGS__)        \
    K(7, __VA_ARGS__) K(8, __VA_ARGS__) K(9, __VA_ARGS__) K(10, __VA_ARGS__) K(11, __VA_ARGS__) K(12, __VA_ARGS__)     \
    K(13, __VA_ARGS__) K(14, __VA_ARGS__) K(15, __VA_ARGS__) K(16, __VA_ARGS__) K(17, __VA_ARGS__)                     \
    K(18, __VA_ARGS__) K(19, __VA_ARGS__) K(20, __VA_ARGS__) K(24, __VA_ARGS__) K(32, __VA_ARGS__) K(64, __VA_ARGS__)
// clang-format on

// K(width, operator, operation number, null tag, variant)
#define TAVO_EACH_ONE_CONSTANT_SCAN(K, null_tag, variant)                                                              \
    TAVO_EACH_SCAN_WIDTH(K, eq, TAVO_OP_EQ, null_tag, variant)                                                         \
    TAVO_EACH_SCAN_WIDTH(K, lt, TAVO_OP_LT, null_tag, variant)                                                         \
    TAVO_EACH_SCAN_WIDTH(K, gt, TAVO_OP_GT, null_tag, variant)                                                         \
    TAVO_EACH_SCAN_WIDTH(K, le, TAVO_OP_LE, null_tag, variant)                                                         \
    TAVO_EACH_SCAN_WIDTH(K, ge, TAVO_OP_GE, null_tag, variant)                                                         \
    TAVO_EACH_SCAN_WIDTH(K, ne, TAVO_OP_NE, null_tag, variant)
#define TAVO_EACH_TWO_CONSTANT_SCAN(K, null_tag, variant)                                                              \
    TAVO_EACH_SCAN_WIDTH(K, gt_lt, TAVO_OP_GT_LT, null_tag, variant)                                                   \
    TAVO_EACH_SCAN_WIDTH(K, gt_le, TAVO_OP_GT_LE, null_tag, variant)                                                   \
    TAVO_EACH_SCAN_WIDTH(K, ge_lt, TAVO_OP_GE_LT, null_tag, variant)                                                   \
    TAVO_EACH_SCAN_WIDTH(K, ge_le, TAVO_OP_GE_LE, null_tag, variant)

#define TAVO_EACH_DICT_SCAN(K)                                                                                         \
    TAVO_EACH_ONE_CONSTANT_SCAN(K, , 0)                                                                                \
    TAVO_EACH_ONE_CONSTANT_SCAN(K, _null, 1)                                                                           \
    TAVO_EACH_TWO_CONSTANT_SCAN(K, , 0)                                                                                \
    TAVO_EACH_TWO_CONSTANT_SCAN(K, _null, 1)

extern "C" {
#define TAVO_DECLARE(width, op, number, null_tag, variant) tavo_scan_fn tavo_##op##_dict_##width##bit##null_tag;
TAVO_EACH_ONE_CONSTANT_SCAN(TAVO_DECLARE, , 0)
TAVO_EACH_ONE_CONSTANT_SCAN(TAVO_DECLARE, _null, 1)
#undef TAVO_DECLARE
#define TAVO_DECLARE(width, op, number, null_tag, variant) tavo_range_scan_fn tavo_##op##_dict_##width##bit##null_tag;
TAVO_EACH_TWO_CONSTANT_SCAN(TAVO_DECLARE, , 0)
TAVO_EACH_TWO_CONSTANT_SCAN(TAVO_DECLARE, _null, 1)
#undef TAVO_DECLARE
}

namespace tavo {

consteval void put_dict_scans(dispatch_tables &t) {
#define TAVO_PUT(width, op, number, null_tag, variant)                                                                 \
    t.put(dispatch_index(number, TAVO_CLASS_DICT, width_code(width), variant),                                         \
          tavo_##op##_dict_##width##bit##null_tag, "tavo_" #op "_dict_" #width "bit" #null_tag);
    TAVO_EACH_DICT_SCAN(TAVO_PUT)
#undef TAVO_PUT
}

} // namespace tavo
