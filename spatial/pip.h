// Points in polygons. What the operations do for a host stands in frame/tavo_spatial.h.
#pragma once

#include "frame/tavo_avx512g.h"

extern "C" {
ub4 tavo_spatial_pip_dydi(tavo_vec *res, tavo_vec *xs, tavo_vec *ys, tavo_vec *px, tavo_vec *py) noexcept;
ub4 tavo_spheric_pip_dydi(tavo_vec *res, tavo_vec *polygon, tavo_vec *points, const void *, const void *,
                          double tolerance) noexcept;
}
