// Where the walks of one net start, for the programs that replay walk-like
// streams of queries (`torva bench --stream walk`, the grid benchmark): the
// net's box grown by half its gap to the nearest block of another net, and
// points drawn uniformly on that box's surface, as an extraction's first
// hops start on a surface about its master.
#pragma once

#include <random>

#include "torva/foundation/point.h"
#include "torva/layout/records.h"
#include "torva/solids/solids.h"

namespace torva {

// The box of the net's blocks grown on every side by half the least
// maximum-norm gap from it to a block of another net (0.01 um when no other
// block lies apart from it).
cuboid_t surface_about(const circuit_layout& layout, const wire_net& net);

// A point drawn uniformly, by area, on the surface of the box.
point3 on_surface(const cuboid_t& box, std::mt19937_64& rng);

}  // namespace torva
