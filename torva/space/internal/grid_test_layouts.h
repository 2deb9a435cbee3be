// Small layouts for the grid and strategy tests: blocks are appended to the
// layout's own deque (whose elements never move) and listed in `blocks`.
#pragma once

#include <algorithm>
#include <cmath>
#include <initializer_list>
#include <string>
#include <vector>

#include "torva/layout/records.h"
#include "torva/layout/solids.h"

namespace torva::grid_testing {

inline point3 p3(double x, double y, double z) { return point3{{x, y, z}}; }

inline cuboid_t box(double x0, double y0, double z0, double x1, double y1, double z1) {
  return cuboid_t{p3(x0, y0, z0), p3(x1, y1, z1)};
}

inline const wire_block* add_block(circuit_layout& layout, const shape_t& shape) {
  layout.data.wire_blocks.emplace_back(shape, "b" + std::to_string(layout.data.wire_blocks.size()), 0);
  const wire_block* b = &layout.data.wire_blocks.back();
  layout.blocks.push_back(b);
  return b;
}

inline const wire_block* add_cuboid(circuit_layout& layout, const cuboid_t& c) {
  ++layout.cuboid_size;
  return add_block(layout, make_cuboid_shape(c));
}

inline shape_t cylinder_shape(double cx, double cy, double cz, double radius, double half_height) {
  shape_t s;
  const cylinder_t* cyl = new_solid(cylinder_t{p3(cx, cy, cz), radius, half_height});
  s.solid = cyl;
  const double in = 0.7071067811865476 * radius;
  s.inner_box = box(cx - in, cy - in, cz - half_height, cx + in, cy + in, cz + half_height);
  s.outer_box = box(cx - radius, cy - radius, cz - half_height, cx + radius, cy + radius, cz + half_height);
  s.inner_pieces = {s.inner_box};
  s.outer_pieces = {s.outer_box};
  s.shape_kind = shape_cylinder;
  return s;
}

inline const wire_block* add_cylinder(circuit_layout& layout, double cx, double cy, double cz, double radius,
                                      double half_height) {
  ++layout.prism_size;
  return add_block(layout, cylinder_shape(cx, cy, cz, radius, half_height));
}

// A vertical prism over a convex polygon given anticlockwise in plan view.
inline const wire_block* add_prism(circuit_layout& layout, std::initializer_list<point2> outline, double bottom,
                                   double top) {
  nprism_t p;
  double x0 = 1e300, y0 = 1e300, x1 = -1e300, y1 = -1e300, mx = 0, my = 0;
  for (const point2& v : outline) {
    p.points[p.size++] = v;
    x0 = std::min(x0, v[0].value);
    y0 = std::min(y0, v[1].value);
    x1 = std::max(x1, v[0].value);
    y1 = std::max(y1, v[1].value);
    mx += v[0].value;
    my += v[1].value;
  }
  mx /= double(p.size);
  my /= double(p.size);
  p.bottom = bottom;
  p.top = top;
  shape_t s;
  s.solid = new_solid(p);
  s.inner_box = box(mx - 0.0001, my - 0.0001, bottom, mx + 0.0001, my + 0.0001, top);
  s.outer_box = box(x0, y0, bottom, x1, y1, top);
  s.inner_pieces = {s.inner_box};
  s.outer_pieces = {s.outer_box};
  s.shape_kind = shape_prism;
  ++layout.prism_size;
  return add_block(layout, s);
}

// A Dirichlet window with the critical box equal to it.
inline void set_window(circuit_layout& layout, const cuboid_t& window, double margin) {
  layout.data.boundary = 1;
  layout.data.window = window;
  layout.data.critical_box = window;
  layout.space_margin = margin;
}

}  // namespace torva::grid_testing
