// Members of the bitwise kernels. The two families are the same code: the lbiwv names are aliases of the lbiv ones.
#include "bitvec/bitwise.h"

#include <string.h>

#include "bitvec/bitvec.h"
#include "frame/processor.h"
#include "frame/tavo_status.h"

namespace tavo {
namespace {

using bitwise::op;
using bitwise::operands;

template <op Op>
[[gnu::always_inline]] inline ub4 counted(const operands &v, ub8 nbits) {
    if (tavo_has_vpopcdq)
        return bitwise::run_with_instruction<Op>(v, nbits);
    return bitwise::run<Op, bitwise::nibble_count>(v, nbits);
}

template <op Op>
[[gnu::always_inline]] inline ub4 combine(ub4 *count, void *dst, const void *a, const void *b, const void *c,
                                          ub8 nbits) {
    const operands v{static_cast<ub1 *>(dst), static_cast<const ub1 *>(a), static_cast<const ub1 *>(b),
                     static_cast<const ub1 *>(c)};
    if (count != nullptr)
        *count = counted<Op>(v, nbits);
    else
        bitwise::run<Op, bitwise::no_count>(v, nbits);
    return TAVO_DONE;
}

// Sets or clears bits first to last, both inclusive, a byte at a time: the vector may have any alignment.
template <bool Set>
[[gnu::always_inline]] inline ub4 fill_range(void *bits, ub8 first, ub8 last) {
    auto *bytes = static_cast<ub1 *>(bits);
    const auto change = [=](ub8 byte, unsigned mask) {
        bytes[byte] = static_cast<ub1>(Set ? bytes[byte] | mask : bytes[byte] & ~mask);
    };
    const ub8 first_byte = first / 8, last_byte = last / 8;
    const unsigned from_first = 0xffu << first % 8, to_last = 0xffu >> (7 - last % 8);
    if (first_byte == last_byte) {
        change(first_byte, from_first & to_last);
        return TAVO_DONE;
    }
    change(first_byte, from_first);
    memset(bytes + first_byte + 1, Set ? 0xff : 0x00, last_byte - first_byte - 1);
    change(last_byte, to_last);
    return TAVO_DONE;
}

} // namespace
} // namespace tavo

extern "C" {

#define TAVO_SAME_CODE(name) [[gnu::alias("tavo_lbiv" #name "_dydi")]]

ub4 tavo_lbivpopcnt_dydi(ub4 *count, const void *bits, ub8 nbits) noexcept {
    return *count = tavo::counted<tavo::op::popcnt>({nullptr, static_cast<const ub1 *>(bits), nullptr, nullptr}, nbits);
}
TAVO_SAME_CODE(popcnt) ub4 tavo_lbiwvpopcnt_dydi(ub4 *count, const void *bits, ub8 nbits) noexcept;

ub4 tavo_lbivnot_dydi(void *dst, ub4 *count, const void *src, ub8 nbits) noexcept {
    return tavo::combine<tavo::op::not1>(count, dst, src, nullptr, nullptr, nbits);
}
TAVO_SAME_CODE(not ) ub4 tavo_lbiwvnot_dydi(void *dst, ub4 *count, const void *src, ub8 nbits) noexcept;

#define TAVO_TWO_OPERANDS(name, o)                                                                                     \
    ub4 tavo_lbiv##name##_dydi(void *dst, ub4 *count, const void *a, const void *b, ub8 nbits) noexcept {              \
        return tavo::combine<tavo::op::o>(count, dst, a, b, nullptr, nbits);                                           \
    }                                                                                                                  \
    TAVO_SAME_CODE(name)                                                                                               \
    ub4 tavo_lbiwv##name##_dydi(void *dst, ub4 *count, const void *a, const void *b, ub8 nbits) noexcept;
TAVO_TWO_OPERANDS(and, and2)
TAVO_TWO_OPERANDS(or, or2)
TAVO_TWO_OPERANDS(xor, xor2)
TAVO_TWO_OPERANDS(andnot, andnot)
#undef TAVO_TWO_OPERANDS

#define TAVO_THREE_OPERANDS(o)                                                                                         \
    ub4 tavo_lbiv##o##_dydi(void *dst, ub4 *count, const void *a, const void *b, const void *c, ub8 nbits) noexcept {  \
        return tavo::combine<tavo::op::o>(count, dst, a, b, c, nbits);                                                 \
    }                                                                                                                  \
    TAVO_SAME_CODE(o)                                                                                                  \
    ub4 tavo_lbiwv##o##_dydi(void *dst, ub4 *count, const void *a, const void *b, const void *c, ub8 nbits) noexcept;
TAVO_THREE_OPERANDS(and3)
TAVO_THREE_OPERANDS(or3)
TAVO_THREE_OPERANDS(xor3)
#undef TAVO_THREE_OPERANDS

ub4 tavo_lbivset_range_dydi(void *bits, ub8 first, ub8 last) noexcept {
    return tavo::fill_range<true>(bits, first, last);
}
TAVO_SAME_CODE(set_range) ub4 tavo_lbiwvset_range_dydi(void *bits, ub8 first, ub8 last) noexcept;

ub4 tavo_lbivclr_range_dydi(void *bits, ub8 first, ub8 last) noexcept {
    return tavo::fill_range<false>(bits, first, last);
}
TAVO_SAME_CODE(clr_range) ub4 tavo_lbiwvclr_range_dydi(void *bits, ub8 first, ub8 last) noexcept;

} // extern "C"
