// Vector arithmetic as the contract tells it, one element after the other: what the kernels are held against.
#pragma once

#include "frame/tavo_status.h"
#include "tests/vector/vectors.h"

namespace tavo::test {

struct arith_result {
    ub4 status;
    std::vector<ub8> written; // native bits of the elements that stand in the output, from the first
    double norm;              // if status is 0
};

// `b` is a vector of a's dimensions, or one number. Operands as their kernel reads them: without -0.0 if comparable.
arith_result arith_model(ub4 op, const plain_vector &a, const plain_vector &b, bool scalar, ub4 result_type, bool norm);

} // namespace tavo::test
