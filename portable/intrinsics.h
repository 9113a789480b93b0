// What kernels include in place of <immintrin.h>: the processor's vector instructions, or the same functions for every
// processor in the portable form of the library. Kernels are one text for both: they call intrinsics, and use nothing
// of the vector types beside them (no operators, no subscripts), no inline assembly, no built-ins of one processor.
#pragma once

#ifdef TAVO_PORTABLE
#include "portable/everywhere.h"
#else
#include <immintrin.h>
#endif
