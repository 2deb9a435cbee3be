#include "torva/geometry/faces.h"

#include <algorithm>
#include <cstdint>

namespace torva {

void generate_planes_for_cuboid(const cuboid_t& c, std::vector<plane_t>& out) {
  for (direction_t direction = 0; direction < 6; ++direction) {
    const int k = int(direction % 3);
    rectangle_t r;
    r.origin = c.lower;
    if (direction < 3) r.origin[k] = c.upper[k];
    r.length_a = c.upper[(k + 1) % 3] - c.lower[(k + 1) % 3];
    r.length_b = c.upper[(k + 2) % 3] - c.lower[(k + 2) % 3];
    r.direction = direction;
    out.push_back(r);
  }
}

void generate_planes_for_prism(const nprism_t& p, std::vector<plane_t>& out) {
  const std::uint64_t n = std::min<std::uint64_t>(p.size, 8);
  for (std::uint64_t m = 1; m + 1 < n; ++m) {
    out.push_back(triangle_t{p.bottom, p.points[0], p.points[m], p.points[m + 1], 5});
    out.push_back(triangle_t{p.top, p.points[0], p.points[m], p.points[m + 1], 2});
  }
  const sea::double_wrapper height = p.top - p.bottom;
  for (std::uint64_t i = 0; i < n; ++i) {
    const point2& a = p.points[i];
    const point2& b = p.points[i + 1 == n ? 0 : i + 1];
    if (a[0] == b[0]) {
      rectangle_t r;
      r.origin = point3{{a[0], std::min(a[1], b[1]), p.bottom}};
      r.length_a = tolerant_abs(b[1] - a[1]);
      r.length_b = height;
      r.direction = b[1] > a[1] ? 0 : 3;
      out.push_back(r);
    } else if (a[1] == b[1]) {
      rectangle_t r;
      r.origin = point3{{std::min(a[0], b[0]), a[1], p.bottom}};
      r.length_a = height;
      r.length_b = tolerant_abs(b[0] - a[0]);
      r.direction = b[0] > a[0] ? 4 : 1;
      out.push_back(r);
    } else {
      out.push_back(incline_t{point3{{a[0], a[1], p.bottom}}, b[0] - a[0], b[1] - a[1], height});
    }
  }
}

}  // namespace torva
