// Builders and plan-view checks shared by the geometry tests; not installed.
#pragma once

#include <utility>
#include <vector>

#include "torva/foundation/point.h"
#include "torva/solids/solids.h"

namespace torva::testing {

inline point2 P(double x, double y) { return point2{{x, y}}; }

// A prism over the first 8 of `v`, with its size set to all of `v`.
inline nprism_t prism_of(const std::vector<point2>& v, double bottom = 0.0, double top = 1.0) {
  nprism_t p;
  for (std::size_t i = 0; i < v.size() && i < 8; ++i) p.points[i] = v[i];
  p.size = v.size();
  p.bottom = bottom;
  p.top = top;
  return p;
}

using pairs = std::vector<std::pair<double, double>>;
inline pairs coords(const std::vector<point2>& v) {
  pairs r;
  for (const point2& p : v) r.emplace_back(p[0].value, p[1].value);
  return r;
}
inline pairs coords(const nprism_t& p) { return coords(std::vector<point2>(p.points, p.points + p.size)); }

// Positive for an anticlockwise outline.
inline double signed_area(const std::vector<point2>& v) {
  double s = 0.0;
  for (std::size_t i = 0; i < v.size(); ++i) {
    const point2& a = v[i];
    const point2& b = v[(i + 1) % v.size()];
    s += a[0].value * b[1].value - b[0].value * a[1].value;
  }
  return 0.5 * s;
}

// Whether (x, y) lies in or on a convex anticlockwise outline.
inline bool inside_convex(const std::vector<point2>& v, double x, double y) {
  for (std::size_t i = 0; i < v.size(); ++i) {
    const point2& a = v[i];
    const point2& b = v[(i + 1) % v.size()];
    if ((b[0].value - a[0].value) * (y - a[1].value) - (b[1].value - a[1].value) * (x - a[0].value) < 0) return false;
  }
  return true;
}

}  // namespace torva::testing
