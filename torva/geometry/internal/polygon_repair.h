// Private steps of the convex decomposition, reachable for tests.
#pragma once

#include <vector>

#include "torva/foundation/point.h"
#include "torva/solids/solids.h"

namespace torva {

// Removes repeated and collinear vertices and a repeated closing vertex. False,
// with a warning, when the outline runs back over itself or fewer than 3
// vertices remain; `poly` is changed only on success. The closing vertices are
// not counted again, so a success may still leave fewer than 3.
bool delete_duplicate_point(nprism_large_t& poly);

// Appends vertices from, from + 1, ... (wrapping at size to 0) up to and
// including `to`; a single vertex when from equals to.
void add_points(const nprism_large_t& poly, int from, int to, std::vector<point2>& out);

}  // namespace torva
