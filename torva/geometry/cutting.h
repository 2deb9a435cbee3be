// Cutting solids into slices, each with a box inside it and a box around it:
// the pairs that inner_pieces and outer_pieces of a shape hold. Exported for
// the client, which decides when to cut and into how many parts; nothing in
// the library calls these. All append to the vectors they are given.
//
// A prism is read through at most its first 8 vertices (all that nprism_t can
// hold); a slice that would need more than 8 vertices, which only a
// non-convex or corrupt outline can produce, is left out.
#pragma once

#include <vector>

#include "torva/foundation/double_wrapper.h"
#include "torva/foundation/point.h"
#include "torva/solids/solids.h"

namespace torva {

// `parts` equal slices across the longer plan side (y of two nearly equal
// sides); each slice is both its inner and its outer box. Nothing for parts < 1.
void cut_cuboid(const cuboid_t& c, int parts, std::vector<cuboid_t>& inner, std::vector<cuboid_t>& outer);

// Slices across the longer plan span, at every vertex and at `parts` - 1
// uniform positions (a uniform position within tolerance of a vertex falls
// away). For each slice: a thin rod about its centre as the inner box, its
// bounding box as the outer box.
void cut_prism(const nprism_t& p, int parts, std::vector<cuboid_t>& inner, std::vector<cuboid_t>& outer);

// The same slices as prism shapes (shape_kind 2), each slice's prism a new
// solid that lives as long as the process.
void cut_prism_for_shape(const nprism_t& p, int parts, std::vector<shape_t>& out);

// The chord of the outline at constant x (or y): its points from low y to high
// y (low x to high x). A vertex on the line gives one point; an edge lying on
// the line gives exactly its two ends.
std::vector<point2> intersect_x(const nprism_t& p, sea::double_wrapper x);
std::vector<point2> intersect_y(const nprism_t& p, sea::double_wrapper y);

}  // namespace torva
