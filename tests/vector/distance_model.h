// The distance of two vectors, plainly: element by element, every rounding where it belongs.
#pragma once

#include "tests/vector/vectors.h"

namespace tavo::test {

// What the kernel of (metric, forms) has to give for two vectors of these forms. with_vnni: by the members that use it.
double model_distance(ub4 metric, const plain_vector &a, const vector_form &left, const plain_vector &b,
                      const vector_form &right, bool with_vnni = false);

} // namespace tavo::test
