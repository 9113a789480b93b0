// The family list of the set kernels: every code width once.
#pragma once

#include "frame/dispatch_table.h"

// clang-format off
#define TAVO_EACH_SET_SCAN(K)                                                                                          \
    K(1) K(2) K(3) K(4) K(5) K(6) K(7) K(8) K(9) K(10) K(11) K(12) K(13) K(14) K(15) K(16) K(17) K(18) K(19) K(20)     \
    K(24) K(32)
// clang-format on

extern "C" {
#define TAVO_DECLARE(width) tavo_scan_fn tavo_set_dict_##width##bit;
TAVO_EACH_SET_SCAN(TAVO_DECLARE)
#undef TAVO_DECLARE
}

namespace tavo {

consteval void put_set_scans(dispatch_tables &t) {
#define TAVO_PUT(width)                                                                                                \
    t.put(dispatch_index(TAVO_OP_SET, TAVO_CLASS_DICT, width_code(width), 0), tavo_set_dict_##width##bit,              \
          "tavo_set_dict_" #width "bit");
    TAVO_EACH_SET_SCAN(TAVO_PUT)
#undef TAVO_PUT
}

} // namespace tavo
