// Growing a prism by a margin and measuring the proportion of its sides.
// Exported for the client.
#pragma once

#include "torva/foundation/double_wrapper.h"
#include "torva/solids/solids.h"

namespace torva {

// The prism grown by `margin` on all sides: each edge moves outward as a
// whole and each vertex splits in two, neighbours joined by a straight bevel;
// bottom and top move by the margin too. A negative margin moves the faces
// inward. More than 4 vertices: "ERROR: (Geometry) convex vertex number should
// less than 5." on logger::error, the prism on logger::detail, and
// sea::fatal_error "Geometry error. \n". A result of fewer than 3 vertices:
// "ERROR: vertex number not supported." and sea::fatal_error "GEOMETRY ERROR. \n".
nprism_t expand_prism(const nprism_t& p, sea::double_wrapper margin);

// The longest inclined side over the shortest side; 0 with no inclined side.
// A zero-length side gives an infinite or not-a-number result.
sea::double_wrapper get_ratio(const nprism_t& p);

}  // namespace torva
