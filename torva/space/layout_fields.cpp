#include "torva/space/layout_fields.h"

#include <algorithm>

#include "torva/geometry/cube.h"

namespace torva {

namespace {

double volume(const cuboid_t& box) {
  double v = 1.0;
  for (int axis = 0; axis < 3; ++axis) v *= std::max(0.0, box.upper[axis].value - box.lower[axis].value);
  return v;
}

double longest_edge(const cuboid_t& box) {
  double e = 0.0;
  for (int axis = 0; axis < 3; ++axis) e = std::max(e, box.upper[axis].value - box.lower[axis].value);
  return e;
}

}  // namespace

void derive_layout_fields(circuit_layout& layout, const derive_options& options) {
  circuit_layout::raw& raw = layout.data;
  const cuboid_t& window = raw.window;

  layout.blocks.clear();
  layout.blocks.reserve(raw.wire_blocks.size());
  layout.cuboid_size = 0;
  layout.prism_size = 0;
  cuboid_t bounds;
  double filled = 0.0;
  for (const wire_block& block : raw.wire_blocks) {
    layout.blocks.push_back(&block);
    if (block.shape_kind == shape_cuboid)
      ++layout.cuboid_size;
    else
      ++layout.prism_size;
    const cuboid_t& box = block.outer_box;
    if (layout.blocks.size() == 1) {
      bounds = box;
    } else {
      for (int axis = 0; axis < 3; ++axis) {
        bounds.lower[axis] = std::min(bounds.lower[axis].value, box.lower[axis].value);
        bounds.upper[axis] = std::max(bounds.upper[axis].value, box.upper[axis].value);
      }
    }
    filled += volume(box);
  }

  const double edge = std::max(longest_edge(window), layout.blocks.empty() ? 0.0 : longest_edge(bounds));
  layout.space_margin = std::max(0.0, options.margin_ratio * edge);

  if (layout.blocks.empty()) {
    raw.critical_box = window;
    layout.crowding_ratio = 0.0;
  } else {
    cuboid_t critical;
    for (int axis = 0; axis < 3; ++axis) {
      // Halfway between the blocks and the wall; the wall itself where a block reaches it.
      const double lo_wall = window.lower[axis].value;
      const double hi_wall = window.upper[axis].value;
      const double lo = bounds.lower[axis].value;
      const double hi = bounds.upper[axis].value;
      double c_lo = lo > lo_wall ? lo - (lo - lo_wall) * 0.5 : lo_wall;
      double c_hi = hi < hi_wall ? hi + (hi_wall - hi) * 0.5 : hi_wall;
      // Blocks wholly beyond one wall would turn the box inside out; clip to the window.
      c_lo = std::clamp(c_lo, std::min(lo_wall, hi_wall), std::max(lo_wall, hi_wall));
      c_hi = std::clamp(c_hi, std::min(lo_wall, hi_wall), std::max(lo_wall, hi_wall));
      if (c_hi < c_lo) c_hi = c_lo;
      critical.lower[axis] = c_lo;
      critical.upper[axis] = c_hi;
    }
    raw.critical_box = critical;
    const double space = volume(bounds);
    layout.crowding_ratio = space > 0.0 ? std::min(1.0, filled / space) : 0.0;
  }

  layout.coarse_grid =
      options.coarse_grid_blocks > 0 && layout.blocks.size() >= options.coarse_grid_blocks;
}

}  // namespace torva
