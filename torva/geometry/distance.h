// Distances between points and solids, in the maximum norm and signed:
// the half side of the smallest axis-parallel square or cube centred on the
// point that reaches the solid, negative inside it. (The "manhattan" names are
// historical; no sum of gaps is ever taken.)
//
// These stand in the innermost loop of every nearest-conductor query: inline,
// no allocation, the solid reached through one pointer.
#pragma once

#include <algorithm>
#include <cmath>
#include <cstdint>

#include "torva/foundation/double_wrapper.h"
#include "torva/foundation/point.h"
#include "torva/geometry/cube.h"
#include "torva/solids/solids.h"

namespace torva {

namespace geometry_detail {
// Positive outside the span [lo, hi], minus the distance to the nearer end inside.
inline sea::double_wrapper gap(sea::double_wrapper v, sea::double_wrapper lo, sea::double_wrapper hi) noexcept {
  return std::max(lo - v, v - hi);
}
}  // namespace geometry_detail

inline sea::double_wrapper distance(const cuboid_t& c, const point3& p) noexcept {
  using geometry_detail::gap;
  const sea::double_wrapper gx = gap(p[0], c.lower[0], c.upper[0]);
  const sea::double_wrapper gy = gap(p[1], c.lower[1], c.upper[1]);
  const sea::double_wrapper gz = gap(p[2], c.lower[2], c.upper[2]);
  return std::max(std::max(gx, gy), gz);
}

// True also for a point up to the tolerance outside a face.
inline bool contains(const cuboid_t& c, const point3& p) noexcept {
  for (int i = 0; i < 3; ++i)
    if (!(p[i] >= c.lower[i])) return false;
  for (int i = 0; i < 3; ++i)
    if (!(p[i] <= c.upper[i])) return false;
  return true;
}

inline sea::double_wrapper horizontal_manhattan_distance(const point2& p, const cuboid_t& c) noexcept {
  using geometry_detail::gap;
  return std::max(gap(p[0], c.lower[0], c.upper[0]), gap(p[1], c.lower[1], c.upper[1]));
}

inline sea::double_wrapper horizontal_manhattan_distance(const point2& p, const shape_t& s) noexcept {
  switch (s.shape_kind) {
    case shape_cuboid:
      // A cuboid is its own bounding box. Reading the box that sits in the
      // shape spares the query a dependent load of the solid elsewhere in
      // memory, the costliest step of a scan over blocks not in the cache.
      return horizontal_manhattan_distance(p, s.outer_box);
    case shape_cylinder: {
      const cylinder_t& cyl = s.cylinder();
      const sea::double_wrapper a = tolerant_abs(p[0] - cyl.center[0]);
      const sea::double_wrapper b0 = p[1] - cyl.center[1];
      const sea::double_wrapper b = tolerant_abs(b0);
      sea::double_wrapper w = a;
      if (b0 > 0.0)
        w = a - b0;
      else if (b0 < 0.0)
        w = a + b0;
      const sea::double_wrapper u = tolerant_abs(w);
      const sea::double_wrapper r = cyl.radius;
      if (r > u) {
        // The corner of the square meets the circle.
        return (a + b - std::sqrt(double(r * r + r * r - w * w))) * 0.5;
      }
      // A side of the square meets the circle.
      return std::max(a, b) - r;
    }
    case shape_prism: {
      sea::double_wrapper d = horizontal_manhattan_distance(p, s.outer_box);
      const nprism_t& prism = s.prism();
      // A prism holds at most 8 vertices; a larger count is never read past the array.
      const std::uint64_t n = prism.size < 8 ? prism.size : 8;
      if (n == 0) return d;
      // The prism is the intersection of its box and the half planes of its
      // inclined edges; axis-parallel edges are answered by the box.
      for (std::uint64_t i = 0; i < n; ++i) {
        const point2& a = prism.points[i];
        const point2& b = prism.points[i + 1 == n ? 0 : i + 1];
        if (a[0] == b[0] || a[1] == b[1]) continue;
        const sea::double_wrapper dx = b[0] - a[0];
        const sea::double_wrapper dy = b[1] - a[1];
        const sea::double_wrapper edge =
            (dy * (p[0] - a[0]) - dx * (p[1] - a[1])) / (tolerant_abs(dy) + tolerant_abs(dx));
        d = std::max(d, edge);
      }
      return d;
    }
    default:
      return 1e9;
  }
}

// The height of every kind of solid comes from its outer box.
inline sea::double_wrapper manhattan_distance(const point3& p, const shape_t& s) noexcept {
  const sea::double_wrapper hd = horizontal_manhattan_distance(point2{{p[0], p[1]}}, s);
  const sea::double_wrapper gz = std::max(s.outer_box.lower[2] - p[2], p[2] - s.outer_box.upper[2]);
  return std::max(hd, gz);
}

// Which side of the cube the box lies on: 0 +x, 1 +y, 2 +z, 3 -x, 4 -y, 5 -z.
// Each candidate is compared with the first value, not with the best so far,
// so the last index whose value exceeds d0 wins; that is deliberate.
inline std::int64_t relative_direction(const cube_t& c, const cuboid_t& b) noexcept {
  const double d[6] = {
      b.lower[0] - c.center[0], b.lower[1] - c.center[1], b.lower[2] - c.center[2],
      c.center[0] - b.upper[0], c.center[1] - b.upper[1], c.center[2] - b.upper[2],
  };
  std::int64_t result = 0;
  for (int i = 1; i < 6; ++i)
    if (d[i] - sea::double_wrapper::tolerance > d[0]) result = i;
  return result;
}

}  // namespace torva
