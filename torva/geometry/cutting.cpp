#include "torva/geometry/cutting.h"

#include <algorithm>
#include <cstdint>
#include <set>
#include <utility>

namespace torva {

namespace {

using sea::double_wrapper;

std::uint64_t vertex_count(const nprism_t& p) { return std::min<std::uint64_t>(p.size, 8); }

struct slice {
  nprism_t prism;
  cuboid_t inner;
  cuboid_t outer;
};

// Calls `take` with each slice of the prism, in order.
template <class Take>
void slice_prism(const nprism_t& p, int parts, Take take) {
  const std::uint64_t n = vertex_count(p);
  double_wrapper xmin = p.points[0][0], xmax = p.points[0][0];
  double_wrapper ymin = p.points[0][1], ymax = p.points[0][1];
  for (std::uint64_t i = 0; i < n; ++i) {
    const point2& v = p.points[i];
    if (v[0] < xmin) xmin = v[0];
    if (xmax < v[0]) xmax = v[0];
    if (v[1] < ymin) ymin = v[1];
    if (ymax < v[1]) ymax = v[1];
  }
  const bool along_x = (ymax - ymin) < (xmax - xmin);
  const double_wrapper low = along_x ? xmin : ymin;
  const double_wrapper step = along_x ? (xmax - xmin) / double(parts) : (ymax - ymin) / double(parts);

  // The set compares within the tolerance, so a uniform position close to a
  // vertex coordinate, inserted later, falls away.
  std::set<double_wrapper> cuts;
  for (std::uint64_t i = 0; i < n; ++i) cuts.insert(p.points[i][along_x ? 0 : 1]);
  for (int i = 1; i < parts; ++i) cuts.insert(i * step + low);

  std::vector<point2> last;
  for (const double_wrapper at : cuts) {
    std::vector<point2> chord = along_x ? intersect_x(p, at) : intersect_y(p, at);
    if (!last.empty() && last.size() + chord.size() <= 8) {
      slice s;
      std::uint64_t k = 0;
      if (along_x) {
        for (const point2& v : chord) s.prism.points[k++] = v;
        for (auto it = last.rbegin(); it != last.rend(); ++it) s.prism.points[k++] = *it;
      } else {
        for (const point2& v : last) s.prism.points[k++] = v;
        for (auto it = chord.rbegin(); it != chord.rend(); ++it) s.prism.points[k++] = *it;
      }
      s.prism.size = k;
      s.prism.bottom = p.bottom;
      s.prism.top = p.top;
      double sx = 0.0, sy = 0.0;
      point2 lo = s.prism.points[0], hi = s.prism.points[0];
      for (std::uint64_t v = 0; v < k; ++v) {
        sx += s.prism.points[v][0].value;
        sy += s.prism.points[v][1].value;
        lo = minimal(lo, s.prism.points[v]);
        hi = maximal(hi, s.prism.points[v]);
      }
      const double cx = sx / double(k), cy = sy / double(k);
      s.inner = cuboid_t{{{cx - 0.0001, cy - 0.0001, p.bottom}}, {{cx + 0.0001, cy + 0.0001, p.top}}};
      s.outer = cuboid_t{{{lo[0], lo[1], p.bottom}}, {{hi[0], hi[1], p.top}}};
      take(s);
    }
    last = std::move(chord);
  }
}

}  // namespace

void cut_cuboid(const cuboid_t& c, int parts, std::vector<cuboid_t>& inner, std::vector<cuboid_t>& outer) {
  const double_wrapper xlen = c.upper[0] - c.lower[0];
  const double_wrapper ylen = c.upper[1] - c.lower[1];
  const int axis = xlen > ylen ? 0 : 1;
  const double_wrapper step = (axis == 0 ? xlen : ylen) / double(parts);
  for (int i = 1; i <= parts; ++i) {
    cuboid_t s = c;
    s.lower[axis] = c.lower[axis] + (i - 1) * step;
    s.upper[axis] = c.lower[axis] + i * step;
    inner.push_back(s);
    outer.push_back(s);
  }
}

void cut_prism(const nprism_t& p, int parts, std::vector<cuboid_t>& inner, std::vector<cuboid_t>& outer) {
  slice_prism(p, parts, [&](const slice& s) {
    inner.push_back(s.inner);
    outer.push_back(s.outer);
  });
}

void cut_prism_for_shape(const nprism_t& p, int parts, std::vector<shape_t>& out) {
  slice_prism(p, parts, [&](const slice& s) {
    shape_t shape;
    shape.solid = new_solid(s.prism);
    shape.inner_box = s.inner;
    shape.outer_box = s.outer;
    shape.inner_pieces = {s.inner};
    shape.outer_pieces = {s.outer};
    shape.shape_kind = shape_prism;
    out.push_back(std::move(shape));
  });
}

std::vector<point2> intersect_x(const nprism_t& p, double_wrapper x) {
  std::vector<point2> result;
  const std::uint64_t n = vertex_count(p);
  for (std::uint64_t i = 0; i < n; ++i) {
    const point2& a = p.points[i];
    const point2& b = p.points[i + 1 == n ? 0 : i + 1];
    if (a[0] == b[0]) {
      if (x == a[0]) {
        // The line lies on this edge: its two ends are the chord.
        result.clear();
        result.push_back(point2{{x, a[1]}});
        result.push_back(point2{{x, b[1]}});
        break;
      }
      continue;
    }
    // The end of an edge counts for the next edge, so a vertex gives one point.
    if (x >= std::min(a[0], b[0]) && x <= std::max(a[0], b[0]) && !(x == b[0])) {
      const double_wrapper k = (b[1] - a[1]) / (b[0] - a[0]);
      result.push_back(point2{{x, a[1] + x * k - a[0] * k}});
    }
  }
  if (result.size() == 2 && result[0][1] > result[1][1]) std::swap(result[0], result[1]);
  return result;
}

std::vector<point2> intersect_y(const nprism_t& p, double_wrapper y) {
  std::vector<point2> result;
  const std::uint64_t n = vertex_count(p);
  for (std::uint64_t i = 0; i < n; ++i) {
    const point2& a = p.points[i];
    const point2& b = p.points[i + 1 == n ? 0 : i + 1];
    if (a[1] == b[1]) {
      if (y == a[1]) {
        result.clear();
        result.push_back(point2{{a[0], y}});
        result.push_back(point2{{b[0], y}});
        break;
      }
      continue;
    }
    if (y >= std::min(a[1], b[1]) && y <= std::max(a[1], b[1]) && !(y == b[1])) {
      if (a[0] == b[0]) {
        result.push_back(point2{{a[0], y}});
      } else {
        const double_wrapper k = (b[1] - a[1]) / (b[0] - a[0]);
        result.push_back(point2{{(a[0] * k + y - a[1]) / k, y}});
      }
    }
  }
  if (result.size() == 2 && result[0][0] > result[1][0]) std::swap(result[0], result[1]);
  return result;
}

}  // namespace torva
