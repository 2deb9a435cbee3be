// The shapes a reader makes of its solids, shared by the text and binary forms.
#pragma once

#include "torva/solids/solids.h"

namespace torva::internal {

// Cylinder: inner box the square of half side 0.7071067811865476 r about the
// axis, outer box the bounding box, both over the full height; shape_kind 1.
shape_t make_cylinder_shape(const cylinder_t& c);

// Prism over the vertices of `poly`: inner box a thin rod of half side 0.0001
// about the mean of the vertices, outer box the bounding box; shape_kind 2.
// Fewer than 3 or more than 8 vertices: "ERROR: vertex number not supported."
// on logger::error, then sea::fatal_error "GEOMETRY ERROR.\n".
shape_t make_prism_shape(const nprism_large_t& poly);

// The plain cuboid shape that stands for a cylinder when only cuboids are
// wanted: the square of equal area about the axis, half side
// radius * 0.886226925452759, over the full height.
shape_t make_equal_area_cuboid_shape(const point3& center, double radius, double half_height);

// The first line of the report on a convex piece that the rest can't take
// (not anticlockwise, or more than four vertices), or null for a good piece.
const char* bad_piece_complaint(const nprism_large_t& piece);

// The plain cuboid shape of the bounding box of `poly`, from bottom to top.
shape_t make_bounding_cuboid_shape(const nprism_large_t& poly);

// For a convex piece the rest can't take: after the caller's first line, the
// piece's vertices and z range on logger::detail, then sea::fatal_error
// "GEOMETRY ERROR. \n".
[[noreturn]] void throw_bad_piece(const nprism_large_t& piece);

}  // namespace torva::internal
