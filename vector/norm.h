// Euclidean norms from sums of squares.
#pragma once

#include <bit>

#include "frame/tavo_status.h"
#include "frame/tavo_types.h"
#include "portable/intrinsics.h"

namespace tavo::vector {

[[gnu::always_inline]] inline double root(double v) {
    if (v < 0.0)
        return 0.0;
    const __m128d x = _mm_set_sd(v);
    return _mm_cvtsd_f64(_mm_sqrt_sd(x, x));
}

// Infinite or NaN: all bits of the exponent are set.
[[gnu::always_inline]] inline bool beyond_range(double v) { return (std::bit_cast<ub8>(v) >> 52 & 0x7ff) == 0x7ff; }
[[gnu::always_inline]] inline bool beyond_range(float v) { return (std::bit_cast<ub4>(v) >> 23 & 0xff) == 0xff; }

// Stores the norm that a sum of squares comes to, but for one beyond range.
[[gnu::always_inline]] inline ub4 store_norm(double squares, double *norm) {
    if (beyond_range(squares))
        return TAVO_OUT_OF_RANGE;
    *norm = root(squares);
    return TAVO_DONE;
}

} // namespace tavo::vector
