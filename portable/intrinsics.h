// What kernels include in place of <immintrin.h>: the processor's vector instructions.
#pragma once

#include <immintrin.h>
