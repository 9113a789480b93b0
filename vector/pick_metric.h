// Selection of a distance kernel.
#pragma once

#include "frame/tavo_avx512g.h"

extern "C" {
// The kernel of a metric for two operands: their element types, whether they are in comparable form (any non-zero
// value), and their layouts (0 dense, 1 sparse). Null if there is none. One step: a table indexed by all of it.
tavo_distance_kernel *tavo_vector_pick_metric_dydi(ub4 metric, ub4 left_type, ub4 left_comparable, ub4 left_layout,
                                                   ub4 right_type, ub4 right_comparable, ub4 right_layout) noexcept;
}
