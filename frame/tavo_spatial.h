/* Points in polygons: the operations spatial_pip (plane) and spheric_pip (unit sphere). They are called through the
 * descriptor.
 *
 * Neither says "inside": spatial_pip gives a count of crossings whose parity tells, spheric_pip a byte for each point.
 * All coordinates are binary64 in the processor's order, in plain arrays aligned to 8 bytes, one for each axis. Of all
 * tavo_vec records only the fields named here are read, so enc and the rest may be null. Nothing is allocated, nothing
 * is read outside of the arrays, nothing is checked.
 *
 * ---- spatial_pip(res, xs, ys, px, py): one point, a polygon in the plane ----
 *
 *   xs->size          n, the number of vertices; 0 is fine
 *   xs->data          n x-coordinates
 *   ys->data          n y-coordinates
 *   px->data          one binary64: the point's x
 *   py->data          one binary64: its y
 *   res->data         receives a ub4: how many edges a ray from the point to the right crosses. Odd: it is inside
 *   returns           0
 *
 * An edge counts if exactly one of its ends lies above the point (strictly: a vertex on the point's own line counts as
 * below) and it passes strictly to the right of the point. So of two polygons with a common edge a point on that edge
 * lies in at most one. A comparison with a NaN is false.
 *
 * Which edges there are: with b = n / 4 - 1, or 0 for n below 4, they are those from vertex i to i + 1 for i below
 * n - 1, and ONE FROM THE LAST VERTEX TO VERTEX 4 * b. Below 8 vertices that is vertex 0, and the polygon is closed.
 * From 8 on it is not: the edge from the last vertex to vertex 0 is never tested, and one that the polygon does not
 * have is. A host that has a ring of k >= 8 vertices therefore appends copies of vertex 0 until there are
 * 4 * ((k + 3) / 4 + 1) vertices: then the true closing edge is an ordinary one, and the last leads from vertex 0 to
 * itself and never counts. One copy alone is not enough, as the last edge would lead from vertex 0 to vertex 4 * b.
 *
 * Several rings (holes, islands): add the counts.
 *
 * ---- spheric_pip(res, polygon, points, a, b, tolerance): many points, a polygon on the sphere ----
 *
 *   polygon           three consecutive records: X, Y and Z of the vertices. polygon[0].size is their number n, the
 *                     sizes of the others are not read. The ring is closed by itself: there is an edge from vertex
 *                     n - 1 to vertex 0
 *   points            three consecutive records: X, Y and Z of the points; points[0].size is their number m
 *   a, b              ignored
 *   tolerance         t, in units of the sphere's radius: how near a vertex, an edge or a plane counts as on it
 *   res->data         receives m result bytes
 *                     A point with a NaN gets any of them
 *   returns           0, or TAVO_BAD_INPUT with no byte written: the polygon does not fit in a circle smaller than a
 *                     hemisphere about the middle of its bounding box, or that is the centre of the sphere, or it has
 *                     no vertex (with a tolerance whose square is 0 all bytes are 0 then)
 *
 * Vertices and points are unit vectors; edges are arcs of great circles. Looked for are the edges that cross the
 * arc from the point to one outside of the polygon.
 *
 * A point within t of the great circle of an edge that the arc's own great circle crosses is reported as on the edge,
 * also where it lies beyond the edge's ends. 1e-9 is 6 mm on the Earth and far above what unit vectors of doubles are
 * off. */
#ifndef TAVO_SPATIAL_H
#define TAVO_SPATIAL_H

#include "tavo_vec.h"

/* Result bytes of spheric_pip. count is the number of crossings found when the walk along the ring ended.
 *
 *   TAVO_PIP_OUTSIDE                     outside of the polygon's bounding circle; no edge was looked at
 *   count & TAVO_PIP_COUNT               the point was tested; odd: it is inside
 *   (ub1)(TAVO_PIP_ON_EDGE | count)      on an edge, to within t
 *   (ub1)(TAVO_PIP_ON_VERTEX | count)    on a vertex, to within t
 *
 * A count of 64 or more looks like TAVO_PIP_OUTSIDE, or like TAVO_PIP_ON_VERTEX where it ended on an edge: what is safe
 * to ask is the two questions below. */
#define TAVO_PIP_OUTSIDE 0x40u
#define TAVO_PIP_COUNT 0x7fu
#define TAVO_PIP_ON_EDGE 0x80u
#define TAVO_PIP_ON_VERTEX 0xc0u

/* On the border, to within t. Else: inside. */
#define TAVO_PIP_ON_BORDER(result) (((result)&0x80u) != 0)
#define TAVO_PIP_INSIDE(result) (((result)&0x81u) == 1)

#endif
