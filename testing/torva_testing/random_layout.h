// Test and benchmark helper for the search structures: conductor blocks built
// in memory by the library's own shape builders and cutters (so they carry the
// boxes and pieces that a reader and the client's cutting give them), random
// layouts of them, and the candidate a list builder makes of a block.
// Header-only; every random function is deterministic in its seed.
#pragma once

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <memory>
#include <numbers>
#include <random>
#include <string>
#include <vector>

#include "torva/geometry/cutting.h"
#include "torva/geometry/distance.h"
#include "torva/layout/internal/shapes.h"
#include "torva/layout/records.h"
#include "torva/space/candidate_list.h"

namespace torva::testing {

inline point3 p3(double x, double y, double z) { return point3{{x, y, z}}; }
inline point2 p2(double x, double y) { return point2{{x, y}}; }
inline cuboid_t box(double x0, double y0, double z0, double x1, double y1, double z1) {
  return cuboid_t{p3(x0, y0, z0), p3(x1, y1, z1)};
}
inline cube_t cube_at(double x, double y, double z, double half) { return cube_t{p3(x, y, z), half}; }

// Appends a block to the layout's deque (where it never moves), lists it in
// layout.blocks and counts its family, as derive_layout_fields would.
inline const wire_block* add_block(circuit_layout& layout, const shape_t& shape) {
  auto& blocks = layout.data.wire_blocks;
  const wire_block& b = blocks.emplace_back(shape, "b" + std::to_string(blocks.size()), short(-1));
  layout.blocks.push_back(&b);
  ++(b.shape_kind == shape_cuboid ? layout.cuboid_size : layout.prism_size);
  return &b;
}

// A Dirichlet window with the critical box equal to it.
inline void set_window(circuit_layout& layout, const cuboid_t& window, double margin) {
  layout.data.boundary = 1;
  layout.data.window = window;
  layout.data.critical_box = window;
  layout.space_margin = margin;
}

// The shape with its piece lists replaced by what `cut` appends, when pieces > 1.
template <class Cut>
shape_t cut_into(shape_t s, int pieces, Cut cut) {
  if (pieces <= 1) return s;
  s.inner_pieces.clear();
  s.outer_pieces.clear();
  cut(pieces, s.inner_pieces, s.outer_pieces);
  return s;
}

// A cuboid; `pieces` above 1 cuts it into equal slices across its longer plan side.
inline const wire_block* add_cuboid(circuit_layout& layout, const cuboid_t& c, int pieces = 1) {
  return add_block(layout, cut_into(make_cuboid_shape(c), pieces, [&c](int n, auto& in, auto& out) {
                     cut_cuboid(c, n, in, out);
                   }));
}

inline const wire_block* add_cylinder(circuit_layout& layout, double x, double y, double z, double radius,
                                      double half_height) {
  return add_block(layout, internal::make_cylinder_shape(cylinder_t{p3(x, y, z), radius, half_height}));
}

// A prism over a convex outline given anticlockwise; `pieces` above 1 cuts it
// at its vertices and at pieces - 1 even positions across its longer plan span.
inline const wire_block* add_prism(circuit_layout& layout, const std::vector<point2>& outline, double bottom,
                                   double top, int pieces = 1) {
  const shape_t s = internal::make_prism_shape(nprism_large_t{outline.size(), outline, bottom, top});
  return add_block(layout, cut_into(s, pieces, [&s](int n, auto& in, auto& out) { cut_prism(s.prism(), n, in, out); }));
}

// The candidate of a block for a list's cube, as the builders make it.
inline candidate_list::candidate candidate_for(const candidate_list& list, const wire_block* block) {
  candidate_list::candidate c;
  c.block = block;
  c.distance = manhattan_distance(list.cube.center, *block) - list.cube.half;
  c.is_cuboid = block->shape_kind == shape_cuboid;
  c.in_tree_cuboid = c.is_cuboid;
  c.ratio = list.double_incline_ratio && !c.is_cuboid ? 2 : 1;
  return c;
}

// A convex outline of n vertices on an ellipse, anticlockwise. No two vertices
// are closer than half a radian, so the rod about their mean lies well inside.
inline std::vector<point2> random_outline(std::mt19937_64& rng, double cx, double cy, double rx, double ry, int n) {
  std::uniform_real_distribution<double> angle(0.0, 2 * std::numbers::pi);
  std::vector<double> a(n);
  for (bool wide = false; !wide;) {
    for (double& v : a) v = angle(rng);
    std::sort(a.begin(), a.end());
    wide = 2 * std::numbers::pi - a.back() + a.front() > 0.5;
    for (int i = 1; i < n; ++i) wide = wide && a[i] - a[i - 1] > 0.5;
  }
  std::vector<point2> outline;
  for (double v : a) outline.push_back(p2(cx + rx * std::cos(v), cy + ry * std::sin(v)));
  return outline;
}

// A kite or a triangle symmetric about y = cy and longer in x than in y: the
// cutter slices it across x, and the rods of all its slices share one y extent.
inline std::vector<point2> symmetric_outline(std::mt19937_64& rng, double cx, double cy, double rx, double ry) {
  std::uniform_real_distribution<double> unit(0.0, 1.0);
  const double b = std::min(ry, 0.45 * rx), m = rx * (unit(rng) - 0.5);
  if (unit(rng) < 0.5) return {p2(cx - rx, cy), p2(cx + m, cy - b), p2(cx + rx, cy), p2(cx + m, cy + b)};
  return {p2(cx - rx, cy - b), p2(cx + rx, cy), p2(cx - rx, cy + b)};
}

struct layout_recipe {
  std::size_t blocks = 40;
  double window = 100.0;  // the window is [0, window]^3
  double min_edge = 1.0, max_edge = 10.0;
  double cylinder_share = 0.15;  // of the blocks
  double prism_share = 0.15;
  double touching_share = 0.2;  // blocks placed face to face with the block before
  double spread = 0.8;          // share of the window that block centres fill (crowding)
  int max_pieces = 1;           // cuboids and prisms are cut into 1..max_pieces slices
  bool symmetric_cuts = false;  // cut prisms from symmetric_outline only
  int boundary = 1;             // 1 dirichlet, 2 neumann
};

// A random layout of cuboids, cylinders and prisms in a cubic window. Blocks
// may overlap (crowded recipes) and touch (touching_share).
inline std::unique_ptr<circuit_layout> make_random_layout(const layout_recipe& r, std::uint64_t seed) {
  auto layout = std::make_unique<circuit_layout>();
  std::mt19937_64 rng(seed);
  auto unit = [&rng] { return std::uniform_real_distribution<double>(0.0, 1.0)(rng); };
  const double w = r.window, lo = w * (1 - r.spread) * 0.5, hi = w - lo;
  layout->data.window = box(0, 0, 0, w, w, w);
  layout->data.boundary = r.boundary;
  for (std::size_t i = 0; i < r.blocks; ++i) {
    double e[3], c[3];
    for (double& v : e) v = r.min_edge + (r.max_edge - r.min_edge) * unit();
    for (double& v : c) v = lo + (hi - lo) * unit();
    if (i > 0 && unit() < r.touching_share) {
      const cuboid_t& last = layout->data.wire_blocks.back().outer_box;
      const int t = int(unit() * 3) % 3;
      for (int k = 0; k < 3; ++k) c[k] = 0.5 * (last.lower[k].value + last.upper[k].value);
      c[t] = unit() < 0.5 ? last.upper[t].value + e[t] * 0.5 : last.lower[t].value - e[t] * 0.5;
    }
    for (int k = 0; k < 3; ++k) c[k] = std::clamp(c[k], e[k] * 0.5, w - e[k] * 0.5);
    const int pieces = 1 + int(unit() * r.max_pieces) % std::max(1, r.max_pieces);
    const double pick = unit(), zl = c[2] - 0.5 * e[2], zh = c[2] + 0.5 * e[2];
    if (pick < r.cylinder_share) {
      add_cylinder(*layout, c[0], c[1], c[2], 0.5 * std::min(e[0], e[1]), 0.5 * e[2]);
    } else if (pick < r.cylinder_share + r.prism_share) {
      add_prism(*layout,
                r.symmetric_cuts && pieces > 1 ? symmetric_outline(rng, c[0], c[1], 0.5 * e[0], 0.5 * e[1])
                                               : random_outline(rng, c[0], c[1], 0.5 * e[0], 0.5 * e[1], unit() < 0.5 ? 3 : 4),
                zl, zh, pieces);
    } else {
      add_cuboid(*layout, box(c[0] - 0.5 * e[0], c[1] - 0.5 * e[1], zl, c[0] + 0.5 * e[0], c[1] + 0.5 * e[1], zh), pieces);
    }
  }
  return layout;
}

}  // namespace torva::testing
