// Approximations. The manual bounds their relative error by 2^-14 and leaves the value itself to the processor; here it
// is the nearest there is. A kernel that uses one must not let a result depend on more than that.
#pragma once

#include <cmath>

#include "portable/lanes.h"

inline __m512d _mm512_rsqrt14_pd(__m512d v) {
    const auto of = tavo::portable::lanes<double>(v);
    return tavo::portable::from_lanes<__m512d, double>([&](unsigned i) { return 1 / std::sqrt(of[i]); });
}
