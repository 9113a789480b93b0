// The approximate reciprocal square root of the form under test.
#include "portable/intrinsics.h"

#include "tests/spatial/spheric_model.h"

namespace tavo::test {

double rsqrt14(double v) {
    double lanes[8];
    _mm512_storeu_pd(lanes, _mm512_rsqrt14_pd(_mm512_set1_pd(v)));
    return lanes[0];
}

} // namespace tavo::test
