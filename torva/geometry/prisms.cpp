#include "torva/geometry/prisms.h"

#include <algorithm>
#include <cmath>
#include <cstdint>

#include "torva/foundation/errors.h"
#include "torva/foundation/logger.h"

namespace torva {

nprism_t expand_prism(const nprism_t& p, sea::double_wrapper margin) {
  if (p.size > 4) {
    sea::writer& err = *logger::instance().error;
    err("ERROR: (Geometry) convex vertex number should less than 5.");
    err("\n");
    err.flush();
    sea::writer& detail = *logger::instance().detail;
    p.write_to(detail);
    detail("\n");
    detail.flush();
    throw sea::fatal_error("Geometry error. \n");
  }
  nprism_t r;
  const std::uint64_t n = p.size;
  for (std::uint64_t i = 0; i < n; ++i) {
    const point2& a = p.points[i];
    const point2& b = p.points[i + 1 == n ? 0 : i + 1];
    const sea::double_wrapper dx = b[0] - a[0];
    const sea::double_wrapper dy = b[1] - a[1];
    const double len = std::sqrt(double(dx * dx + dy * dy));
    // The outward normal of an anticlockwise outline.
    const point2 normal{{dy / len, -dx / len}};
    r.points[2 * i] = a + normal * margin;
    r.points[2 * i + 1] = b + normal * margin;
  }
  r.bottom = p.bottom - margin;
  r.top = p.top + margin;
  r.size = 2 * n;
  if (r.size < 3 || r.size > 8) {
    sea::writer& err = *logger::instance().error;
    err("ERROR: vertex number not supported.");
    err("\n");
    err.flush();
    throw sea::fatal_error("GEOMETRY ERROR. \n");
  }
  return r;
}

sea::double_wrapper get_ratio(const nprism_t& p) {
  const std::uint64_t n = std::min<std::uint64_t>(p.size, 8);
  auto length = [](const point2& a, const point2& b) -> sea::double_wrapper {
    const sea::double_wrapper dx = b[0] - a[0];
    const sea::double_wrapper dy = b[1] - a[1];
    return std::sqrt(double(dx * dx + dy * dy));
  };
  sea::double_wrapper shortest = length(p.points[0], p.points[1]);
  sea::double_wrapper longest = 0.0;
  for (std::uint64_t i = 0; i < n; ++i) {
    const point2& a = p.points[i];
    const point2& b = p.points[i + 1 == n ? 0 : i + 1];
    const sea::double_wrapper len = length(a, b);
    shortest = std::min(shortest, len);
    if (!(a[0] == b[0]) && !(a[1] == b[1])) longest = std::max(longest, len);
  }
  return longest / shortest;
}

}  // namespace torva
