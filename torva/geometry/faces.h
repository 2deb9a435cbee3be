// The faces of a solid, for the client; the library itself reads none.
#pragma once

#include <vector>

#include "torva/geometry/planes.h"
#include "torva/solids/solids.h"

namespace torva {

// Six rectangles, for direction 0 to 5 in that order.
void generate_planes_for_cuboid(const cuboid_t& c, std::vector<plane_t>& out);

// The lids as a fan of triangles from vertex 0, each first at the bottom
// (direction 5) and then at the top (direction 2); then one face per edge: a
// rectangle for an axis-parallel edge, an incline otherwise.
void generate_planes_for_prism(const nprism_t& p, std::vector<plane_t>& out);

}  // namespace torva
