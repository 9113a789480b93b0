// Which counting the feature word selects. This program has the bitwise members with a recording function in the place
// of the one that counts by instruction, so it tells the two apart on any processor.
#include <gtest/gtest.h>

#include "bitvec/bitvec.h"
#include "bitvec/bitwise.h"
#include "frame/processor.h"

constinit ub4 tavo_has_vpopcdq = 0;

namespace {

using tavo::bitwise::op;

constexpr ub4 recorded = 0x5ec0;
int calls;
op last_op;
ub8 last_nbits;

} // namespace

namespace tavo::bitwise {

template <op Op>
ub4 run_with_instruction(const operands &, ub8 nbits) noexcept {
    calls++;
    last_op = Op;
    last_nbits = nbits;
    return recorded;
}
#define TAVO_DEFINE(o) template ub4 run_with_instruction<op::o>(const operands &v, ub8 nbits) noexcept;
TAVO_EACH_BITWISE_OP(TAVO_DEFINE)
#undef TAVO_DEFINE

} // namespace tavo::bitwise

namespace {

TEST(CountingChoice, FollowsTheFeatureWord) {
    static constexpr ub8 nbits = 3000;
    static const ub8 a[47] = {0xff}, b[47] = {0x0f}, c[47] = {0x03};
    static ub8 dst[47];
    struct {
        op which;
        ub4 (*call)(ub4 *count);
        ub4 count;
    } const members[] = {
        {op::popcnt, [](ub4 *n) { return tavo_lbivpopcnt_dydi(n, a, nbits); }, 8},
        {op::not1, [](ub4 *n) { return tavo_lbivnot_dydi(dst, n, a, nbits); }, nbits - 8},
        {op::and2, [](ub4 *n) { return tavo_lbivand_dydi(dst, n, a, b, nbits); }, 4},
        {op::or2, [](ub4 *n) { return tavo_lbivor_dydi(dst, n, a, b, nbits); }, 8},
        {op::xor2, [](ub4 *n) { return tavo_lbivxor_dydi(dst, n, a, b, nbits); }, 4},
        {op::andnot, [](ub4 *n) { return tavo_lbivandnot_dydi(dst, n, b, a, nbits); }, 4},
        {op::and3, [](ub4 *n) { return tavo_lbivand3_dydi(dst, n, a, b, c, nbits); }, 2},
        {op::or3, [](ub4 *n) { return tavo_lbivor3_dydi(dst, n, a, b, c, nbits); }, 8},
        {op::xor3, [](ub4 *n) { return tavo_lbivxor3_dydi(dst, n, a, b, c, nbits); }, 6},
    };
    for (const auto &m : members) {
        SCOPED_TRACE(static_cast<int>(m.which));
        calls = 0;
        ub4 count = 0;
        tavo_has_vpopcdq = 0;
        m.call(&count);
        EXPECT_EQ(calls, 0);
        EXPECT_EQ(count, m.count);

        tavo_has_vpopcdq = 1;
        m.call(&count);
        EXPECT_EQ(calls, 1);
        EXPECT_EQ(last_op, m.which);
        EXPECT_EQ(last_nbits, nbits);
        EXPECT_EQ(count, recorded);
        if (m.which != op::popcnt) { // nothing to count: neither method
            m.call(nullptr);
            EXPECT_EQ(calls, 1);
        }
    }
}

} // namespace
