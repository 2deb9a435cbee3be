// Repair of polygon outlines and their split into convex pieces of at most
// four vertices, the only polygons the rest of the library understands.
//
// A polygon may arrive in either sense of rotation, with repeated vertices,
// collinear runs, or touching itself. `convex_decomposition` repairs it, turns
// it anticlockwise and splits it along inner diagonals at reflex vertices. What
// cannot be repaired is dropped with a warning on logger::warning; nothing
// throws, and pieces already found for other parts of the polygon are kept.
#pragma once

#include <cstdint>
#include <vector>

#include "torva/foundation/point.h"
#include "torva/solids/solids.h"

namespace torva {

// Appends the convex pieces of `poly` to `out` (neither cleared nor sorted),
// depth first: of each split, the part from the partner vertex forward to the
// reflex vertex comes before the other part.
void convex_decomposition(const nprism_large_t& poly, std::vector<nprism_large_t>& out);

// True unless some right-turning corner of the outline is an extreme point,
// that is no other vertex lies beyond it. Needs no area; a size of 0 is true.
bool is_anticlock(std::vector<point2>::const_iterator first, std::uint64_t size);
bool is_anticlock(std::vector<point2>::iterator first, std::uint64_t size);

// True when q lies in the box spanned by p and r; collinearity is not tested.
bool onSegment(point2 p, point2 q, point2 r);

// True when p lies on the segment from a to b. The cross product is not
// normalised, so the collinearity test scales with the lengths involved.
bool is_point_on_segment(const point2& p, const point2& a, const point2& b);

// v divided by its length; v is left unchanged. A zero vector gives NaN, and
// every comparison with the result is then false.
point2 normalized_vector(point2& v);

}  // namespace torva
