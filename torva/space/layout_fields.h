// Derives the fields that the search structures read beside the parsed
// layout: circuit_layout::blocks, space_margin, cuboid_size, prism_size,
// crowding_ratio, coarse_grid, and circuit_layout::raw::critical_box. Call it
// once after parsing (and after any cutting of pieces); from then on nobody
// writes to the layout. It may be called again after the layout changed.
//
// Definitions:
//
// blocks        Pointers to every conductor block of raw::wire_blocks, in
//               that order, each once.
//
// space_margin  margin_ratio times the longest edge of the window (of the
//               blocks' bounding box when that is longer, so a window that
//               is missing or too small still gets a margin). Non-negative.
//               The search space is its box grown by this on every side, so
//               that points on the window's faces lie strictly inside it.
//
// critical_box  The bounding box B of the blocks' outer boxes, grown on each
//               side by half the gap between B and the window's wall on that
//               side, then clipped to the window. Why half: a point p of the
//               window that lies outside this box lies, along some axis,
//               nearer to the window's wall than to the midway plane between
//               wall and B, so its distance to that wall is less than its
//               distance to B, which no block undercuts. So outside the box
//               no block is nearer than the window wall, and every part of a
//               block inside the window lies inside the box. Where a block
//               reaches the wall or beyond, the box side is the window's.
//               With no blocks at all the box is the window.
//
// cuboid_size   Number of blocks whose shape_kind is 0.
// prism_size    Number of the others (cylinders, prisms, anything not a cuboid):
//               the family that the second strategy of a pair holds.
//
// crowding_ratio The share of B's volume that the outer boxes of the blocks
//               fill: the sum of their volumes over B's volume, capped at 1
//               (overlapping blocks count twice). 0 when there are no blocks
//               or B has no volume. A layout packed with conductors is near 1;
//               a few wires in a large box are near 0.
//
// coarse_grid   True when the layout has at least coarse_grid_blocks blocks
//               (0 turns the rule off): a grid over so many blocks keeps its
//               cells no smaller than twenty margins to bound its memory.
#pragma once

#include <cstddef>

#include "torva/layout/records.h"

namespace torva {

struct derive_options {
  double margin_ratio = 1e-4;                // space_margin as a share of the longest edge
  std::size_t coarse_grid_blocks = 1000000;  // block count from which coarse_grid is set; 0: never
};

void derive_layout_fields(circuit_layout& layout, const derive_options& options = {});

}  // namespace torva
