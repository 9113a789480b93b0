// The bitwise kernels counting by instruction. Called only where tavo_has_vpopcdq is set.
#include "bitvec/bitwise.h"
#include "bitvec/instruction_count.h"

namespace tavo::bitwise {

template <op Op>
ub4 run_with_instruction(const operands &v, ub8 nbits) noexcept {
    return run<Op, instruction_count>(v, nbits);
}

#define TAVO_DEFINE(o) template ub4 run_with_instruction<op::o>(const operands &v, ub8 nbits) noexcept;
TAVO_EACH_BITWISE_OP(TAVO_DEFINE)
#undef TAVO_DEFINE

} // namespace tavo::bitwise
