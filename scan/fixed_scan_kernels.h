// The family list of the scans of fixed-width numbers: every (operator, width, tz rule) once, and the eight members that
// walk a selection under a name of their own.
#pragma once

#include "scan/scan_list.h"

// clang-format off
#define TAVO_EACH_FIXED_WIDTH(K, ...) K(8, __VA_ARGS__) K(16, __VA_ARGS__) K(32, __VA_ARGS__) K(64, __VA_ARGS__)
#define TAVO_EACH_SHORT_FIXED_WIDTH(K, ...) K(8, __VA_ARGS__) K(16, __VA_ARGS__)
#define TAVO_EACH_LONG_FIXED_WIDTH(K, ...) K(32, __VA_ARGS__) K(64, __VA_ARGS__)
// clang-format on

#define TAVO_EACH_ONE_CONSTANT_FIXED_SCAN(K, tag, variant)                                                             \
    TAVO_EACH_ONE_CONSTANT_OPERATOR(TAVO_EACH_FIXED_WIDTH, K, fixed, tag, variant)
#define TAVO_EACH_TWO_CONSTANT_FIXED_SCAN(K, tag, variant)                                                             \
    TAVO_EACH_TWO_CONSTANT_OPERATOR(TAVO_EACH_FIXED_WIDTH, K, fixed, tag, variant)
// The second variant's ranges, apart: those of 32 and 64 bits have a member of their own that walks the selection.
#define TAVO_EACH_SHORT_FIXED_TZ_RANGE(K)                                                                              \
    TAVO_EACH_TWO_CONSTANT_OPERATOR(TAVO_EACH_SHORT_FIXED_WIDTH, K, fixed, _tz, 1)
#define TAVO_EACH_SELECTIVE_FIXED_SCAN(K)                                                                              \
    TAVO_EACH_TWO_CONSTANT_OPERATOR(TAVO_EACH_LONG_FIXED_WIDTH, K, fixed, _tz, 1)

extern "C" {
TAVO_EACH_ONE_CONSTANT_FIXED_SCAN(TAVO_DECLARE_SCAN, , 0)
TAVO_EACH_ONE_CONSTANT_FIXED_SCAN(TAVO_DECLARE_SCAN, _tz, 1)
TAVO_EACH_TWO_CONSTANT_FIXED_SCAN(TAVO_DECLARE_RANGE_SCAN, , 0)
TAVO_EACH_TWO_CONSTANT_FIXED_SCAN(TAVO_DECLARE_RANGE_SCAN, _tz, 1)
#define TAVO_DECLARE(width, form, op, number, tag, variant)                                                            \
    tavo_range_scan_fn tavo_##op##_##form##_##width##bit##tag##_selective;
TAVO_EACH_SELECTIVE_FIXED_SCAN(TAVO_DECLARE)
#undef TAVO_DECLARE
}

namespace tavo {

consteval void put_fixed_scans(dispatch_tables &t) {
    TAVO_EACH_ONE_CONSTANT_FIXED_SCAN(TAVO_PUT_SCAN, , 0)
    TAVO_EACH_ONE_CONSTANT_FIXED_SCAN(TAVO_PUT_SCAN, _tz, 1)
    TAVO_EACH_TWO_CONSTANT_FIXED_SCAN(TAVO_PUT_SCAN, , 0)
    TAVO_EACH_TWO_CONSTANT_FIXED_SCAN(TAVO_PUT_SCAN, _tz, 1)
}

} // namespace tavo
