// The intrinsics without their instructions. from_simde.h lists what SIMDe supplies; what it lacks, or does otherwise
// than the instruction, stands in the other files: each function once, by its plain meaning, lane by lane. A kernel
// that needs one more adds its line, or its function, here, and a line to tests/portable/operations.inc, which holds it
// against the instruction.
#pragma once

#include "portable/approximate.h"
#include "portable/bits.h"
#include "portable/compare.h"
#include "portable/convert.h"
#include "portable/from_simde.h"
#include "portable/fused.h"
#include "portable/half.h"
#include "portable/masked.h"
#include "portable/memory.h"
#include "portable/permute.h"
#include "portable/reduce.h"
#include "portable/shift.h"
