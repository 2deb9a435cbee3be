#include "torva/layout/internal/shapes.h"

#include <cstddef>

#include "torva/foundation/errors.h"
#include "torva/foundation/logger.h"
#include "torva/geometry/convex_decomposition.h"

namespace torva::internal {

shape_t make_cylinder_shape(const cylinder_t& c) {
  const sea::double_wrapper r = c.radius;
  const sea::double_wrapper s = 0.7071067811865476 * r;
  const sea::double_wrapper h = c.half_height;
  const point3& o = c.center;
  shape_t shape;
  shape.solid = new_solid(c);
  shape.inner_box = cuboid_t{{o[0] - s, o[1] - s, o[2] - h}, {o[0] + s, o[1] + s, o[2] + h}};
  shape.outer_box = cuboid_t{{o[0] - r, o[1] - r, o[2] - h}, {o[0] + r, o[1] + r, o[2] + h}};
  shape.inner_pieces = {shape.inner_box};
  shape.outer_pieces = {shape.outer_box};
  shape.shape_kind = shape_cylinder;
  return shape;
}

namespace {

// Bounding box of the vertices in plan view; (0,0) for none.
void plan_bounds(const nprism_large_t& poly, point2& low, point2& high) {
  low = high = poly.points.empty() ? point2{} : poly.points.front();
  for (const point2& p : poly.points) {
    low = minimal(low, p);
    high = maximal(high, p);
  }
}

}  // namespace

shape_t make_prism_shape(const nprism_large_t& poly) {
  const std::size_t n = poly.points.size();
  if (n < 3 || n > 8) {
    sea::writer& out = *logger::instance().error;
    out.print("ERROR: vertex number not supported.");
    out.write('\n');
    out.flush();
    throw sea::fatal_error("GEOMETRY ERROR.\n");
  }

  nprism_t prism;
  double cx = 0.0;
  double cy = 0.0;
  for (std::size_t k = 0; k < n; ++k) {
    prism.points[k] = poly.points[k];
    cx += poly.points[k][0].value;
    cy += poly.points[k][1].value;
  }
  prism.bottom = poly.bottom;
  prism.top = poly.top;
  prism.size = n;
  cx /= static_cast<double>(n);
  cy /= static_cast<double>(n);

  point2 low;
  point2 high;
  plan_bounds(poly, low, high);

  shape_t shape;
  shape.solid = new_solid(prism);
  shape.inner_box = cuboid_t{{cx - 0.0001, cy - 0.0001, poly.bottom}, {cx + 0.0001, cy + 0.0001, poly.top}};
  shape.outer_box = cuboid_t{{low[0], low[1], poly.bottom}, {high[0], high[1], poly.top}};
  shape.inner_pieces = {shape.inner_box};
  shape.outer_pieces = {shape.outer_box};
  shape.shape_kind = shape_prism;
  return shape;
}

shape_t make_bounding_cuboid_shape(const nprism_large_t& poly) {
  point2 low;
  point2 high;
  plan_bounds(poly, low, high);
  return make_cuboid_shape(cuboid_t{{low[0], low[1], poly.bottom}, {high[0], high[1], poly.top}});
}

shape_t make_equal_area_cuboid_shape(const point3& center, double radius, double half_height) {
  const double d = radius * 0.886226925452759;
  return make_cuboid_shape(cuboid_t{{center[0] - d, center[1] - d, center[2] - half_height},
                                    {center[0] + d, center[1] + d, center[2] + half_height}});
}

const char* bad_piece_complaint(const nprism_large_t& piece) {
  if (!is_anticlock(piece.points.cbegin(), piece.points.size()))
    return "ERROR: (Geometry) convex vertex should be anticlock.\n";
  if (piece.points.size() > 4) return "ERROR: (Geometry) convex sides should less than 5.\n";
  return nullptr;
}

void throw_bad_piece(const nprism_large_t& piece) {
  sea::writer& detail = *logger::instance().detail;
  for (std::size_t k = 0; k < piece.points.size(); ++k) {
    detail("pt %lu:(%.12f, %.12f)\n", static_cast<unsigned long>(k), double(piece.points[k][0]),
           double(piece.points[k][1]));
    detail.flush();
  }
  detail("z <min:%.12f;max: %.12f>\n", double(piece.bottom), double(piece.top));
  detail.flush();
  throw sea::fatal_error("GEOMETRY ERROR. \n");
}

}  // namespace torva::internal
