// The family list of the translations: every (lookup, element, output, layout) once, and the group-key members.
#pragma once

#include "frame/dispatch_table.h"
#include "frame/tavo_xlate.h"

// K(lookup, element, output's part of the name, whether there is an output, layout's part of the name, the layout's
// source, the layout's number)
#define TAVO_XLATE_EACH_LAYOUT(K, lookup, element, c2d_tag, c2d)                                                       \
    K(lookup, element, c2d_tag, c2d, , plain_codes, 0)                                                                 \
    K(lookup, element, c2d_tag, c2d, _cla, cla_numbers, 1)                                                             \
    K(lookup, element, c2d_tag, c2d, _const, const_numbers, 2)                                                         \
    K(lookup, element, c2d_tag, c2d, _sep, sep_numbers, 3)
#define TAVO_XLATE_EACH_OUTPUT(K, lookup, element)                                                                     \
    TAVO_XLATE_EACH_LAYOUT(K, lookup, element, , false)                                                                \
    TAVO_XLATE_EACH_LAYOUT(K, lookup, element, _c2d, true)
// The members of one lookup. bit has no output.
#define TAVO_XLATE_KERNELS(K, lookup)                                                                                  \
    TAVO_XLATE_EACH_LAYOUT(K, lookup, bit, , false)                                                                    \
    TAVO_XLATE_EACH_OUTPUT(K, lookup, nib)                                                                             \
    TAVO_XLATE_EACH_OUTPUT(K, lookup, ub1)                                                                             \
    TAVO_XLATE_EACH_OUTPUT(K, lookup, ub2)                                                                             \
    TAVO_XLATE_EACH_OUTPUT(K, lookup, ub4)

#define TAVO_XLATE_GROUPKEY_KERNELS(K) K(nib) K(ub1) K(ub2) K(ub4)

extern "C" {
#define TAVO_DECLARE(lookup, element, c2d_tag, c2d, layout_tag, source, form)                                          \
    tavo_xlate_fn tavo_xlate_##lookup##_##element##c2d_tag##layout_tag;
TAVO_XLATE_KERNELS(TAVO_DECLARE, sim)
TAVO_XLATE_KERNELS(TAVO_DECLARE, off)
TAVO_XLATE_KERNELS(TAVO_DECLARE, ind)
#undef TAVO_DECLARE
#define TAVO_DECLARE(element) tavo_xlate_groupkey_fn tavo_xlate_groupkey_##element##_c2d;
TAVO_XLATE_GROUPKEY_KERNELS(TAVO_DECLARE)
#undef TAVO_DECLARE
}

namespace tavo {

consteval void put_xlate(dispatch_tables &t) {
    enum element { bit, nib, ub1, ub2, ub4 };
    enum lookup { sim = TAVO_CLASS_FIXED, off = TAVO_CLASS_DICT, ind = TAVO_CLASS_DYNP, groupkey = TAVO_CLASS_OTHER };
#define TAVO_PUT(lookup, element, c2d_tag, c2d, layout_tag, source, form)                                              \
    t.put(dispatch_index(TAVO_OP_XLATE, lookup, (form)*8 + element, c2d),                                              \
          tavo_xlate_##lookup##_##element##c2d_tag##layout_tag,                                                        \
          "tavo_xlate_" #lookup "_" #element #c2d_tag #layout_tag);
    TAVO_XLATE_KERNELS(TAVO_PUT, sim)
    TAVO_XLATE_KERNELS(TAVO_PUT, off)
    TAVO_XLATE_KERNELS(TAVO_PUT, ind)
#undef TAVO_PUT
#define TAVO_PUT(element)                                                                                              \
    t.put(dispatch_index(TAVO_OP_XLATE, groupkey, element, TAVO_VARIANT_SECOND), tavo_xlate_groupkey_##element##_c2d,  \
          "tavo_xlate_groupkey_" #element "_c2d");
    TAVO_XLATE_GROUPKEY_KERNELS(TAVO_PUT)
#undef TAVO_PUT
}

} // namespace tavo
