// Test support for the space subsystem: conductor blocks built the way the
// layout readers build them, kept at stable addresses, and candidates for a
// list's cube. Only the *_test.cpp programs include this.
#pragma once

#include <cstddef>
#include <algorithm>
#include <deque>
#include <utility>
#include <string>
#include <vector>

#include "torva/geometry/distance.h"
#include "torva/layout/records.h"
#include "torva/space/candidate_list.h"

namespace torva::testing {

inline cuboid_t box(double x0, double y0, double z0, double x1, double y1, double z1) {
  cuboid_t c;
  c.lower = point3{{x0, y0, z0}};
  c.upper = point3{{x1, y1, z1}};
  return c;
}

inline cube_t cube_at(double x, double y, double z, double half) {
  cube_t c;
  c.center = point3{{x, y, z}};
  c.half = half;
  return c;
}

// Blocks live in a deque so that candidates may point at them.
struct block_store {
  std::deque<wire_block> blocks;

  const wire_block* add(const shape_t& shape) {
    blocks.emplace_back(shape, "b" + std::to_string(blocks.size()), short(-1));
    return &blocks.back();
  }

  const wire_block* cuboid(const cuboid_t& c) { return add(make_cuboid_shape(c)); }

  // A cuboid cut into n slices of equal width across `axis` (0 x, 1 y): each
  // slice is both an inner and an outer piece, all of the same height.
  const wire_block* sliced_cuboid(const cuboid_t& c, int axis, int n) {
    shape_t s = make_cuboid_shape(c);
    s.inner_pieces.clear();
    s.outer_pieces.clear();
    const double lo = c.lower[axis].value;
    const double step = (c.upper[axis].value - lo) / n;
    for (int k = 0; k < n; ++k) {
      cuboid_t piece = c;
      piece.lower[axis] = lo + step * k;
      piece.upper[axis] = k + 1 == n ? c.upper[axis].value : lo + step * (k + 1);
      s.inner_pieces.push_back(piece);
      s.outer_pieces.push_back(piece);
    }
    return add(s);
  }

  // As a layout reader fills a cylinder: the inscribed square as inner box,
  // the bounding box as outer box.
  const wire_block* cylinder(double x, double y, double z, double r, double half_height) {
    cylinder_t cyl;
    cyl.center = point3{{x, y, z}};
    cyl.radius = r;
    cyl.half_height = half_height;
    shape_t s;
    s.solid = new_solid(cyl);
    const double q = 0.7071067811865476 * r;
    s.inner_box = box(x - q, y - q, z - half_height, x + q, y + q, z + half_height);
    s.outer_box = box(x - r, y - r, z - half_height, x + r, y + r, z + half_height);
    s.inner_pieces = {s.inner_box};
    s.outer_pieces = {s.outer_box};
    s.shape_kind = shape_cylinder;
    return add(s);
  }

  // As a layout reader fills a convex prism (vertices anticlockwise): a thin
  // rod about the mean of the vertices as inner box, the bounding box outside.
  const wire_block* prism(const std::vector<point2>& points, double bottom, double top) {
    nprism_t p;
    p.size = points.size();
    for (std::size_t i = 0; i < points.size() && i < 8; ++i) p.points[i] = points[i];
    p.bottom = bottom;
    p.top = top;
    shape_t s;
    s.solid = new_solid(p);
    double cx = 0.0, cy = 0.0;
    point2 lo = points.front(), hi = points.front();
    for (const point2& v : points) {
      cx += v[0].value;
      cy += v[1].value;
      lo = minimal(lo, v);
      hi = maximal(hi, v);
    }
    cx /= double(points.size());
    cy /= double(points.size());
    s.inner_box = box(cx - 0.0001, cy - 0.0001, bottom, cx + 0.0001, cy + 0.0001, top);
    s.outer_box = box(lo[0], lo[1], bottom, hi[0], hi[1], top);
    s.inner_pieces = {s.inner_box};
    s.outer_pieces = {s.outer_box};
    s.shape_kind = shape_prism;
    return add(s);
  }
};

// The y range of a convex polygon (anticlockwise) on the vertical line at x.
inline std::pair<double, double> y_range_at(const std::vector<point2>& points, double x) {
  double lo = 1e300, hi = -1e300;
  for (std::size_t i = 0; i < points.size(); ++i) {
    const point2& a = points[i];
    const point2& b = points[(i + 1) % points.size()];
    const double x0 = std::min(a[0].value, b[0].value), x1 = std::max(a[0].value, b[0].value);
    if (x < x0 || x > x1) continue;
    double y;
    if (x1 - x0 < 1e-12) {
      lo = std::min({lo, a[1].value, b[1].value});
      hi = std::max({hi, a[1].value, b[1].value});
      continue;
    }
    y = a[1].value + (b[1].value - a[1].value) * (x - a[0].value) / (b[0].value - a[0].value);
    lo = std::min(lo, y);
    hi = std::max(hi, y);
  }
  return {lo, hi};
}

// A convex prism cut into n slices of equal width across x, the pieces made
// as the prism cutter makes them: each slice is the polygon between the
// chords at its two ends (and any vertex between), its inner piece the thin
// rod about the mean of that polygon's vertices, its outer piece the polygon's
// bounding box. The shape's inner box stays the rod of the whole prism.
inline const wire_block* sliced_prism(block_store& store, const std::vector<point2>& points, double bottom,
                                      double top, int n) {
  const wire_block* whole = store.prism(points, bottom, top);
  shape_t s = *whole;
  s.inner_pieces.clear();
  s.outer_pieces.clear();
  const double x_lo = s.outer_box.lower[0].value, x_hi = s.outer_box.upper[0].value;
  const double step = (x_hi - x_lo) / n;
  for (int k = 0; k < n; ++k) {
    const double x0 = x_lo + step * k, x1 = k + 1 == n ? x_hi : x_lo + step * (k + 1);
    std::vector<std::pair<double, double>> slice;
    for (double x : {x0, x1}) {
      auto [l, h] = y_range_at(points, x);
      slice.emplace_back(x, l);
      if (h - l > 1e-12) slice.emplace_back(x, h);
    }
    for (const point2& v : points)
      if (v[0].value > x0 && v[0].value < x1) slice.emplace_back(v[0].value, v[1].value);
    double cx = 0, cy = 0, ylo = 1e300, yhi = -1e300;
    for (auto [x, y] : slice) {
      cx += x;
      cy += y;
      ylo = std::min(ylo, y);
      yhi = std::max(yhi, y);
    }
    cx /= double(slice.size());
    cy /= double(slice.size());
    s.inner_pieces.push_back(box(cx - 0.0001, cy - 0.0001, bottom, cx + 0.0001, cy + 0.0001, top));
    s.outer_pieces.push_back(box(x0, ylo, bottom, x1, yhi, top));
  }
  return store.add(s);
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

}  // namespace torva::testing
