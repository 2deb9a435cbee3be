#include "torva/layout/solids.h"

#include <deque>
#include <mutex>

#include "torva/foundation/errors.h"
#include "torva/foundation/logger.h"

namespace torva {

namespace {

template <class T>
T* keep(const T& value) {
  // Never destroyed: shapes anywhere in the process may still point here.
  static std::mutex* lock = new std::mutex;
  static std::deque<T>* store = new std::deque<T>;
  std::lock_guard<std::mutex> guard(*lock);
  store->push_back(value);
  return &store->back();
}

}  // namespace

cuboid_t* new_solid(const cuboid_t& c) { return keep(c); }
cylinder_t* new_solid(const cylinder_t& c) { return keep(c); }
nprism_t* new_solid(const nprism_t& p) { return keep(p); }

shape_t make_cuboid_shape(const cuboid_t& c) {
  shape_t s;
  s.solid = new_solid(c);
  s.inner_box = c;
  s.outer_box = c;
  s.inner_pieces = {c};
  s.outer_pieces = {c};
  s.shape_kind = shape_cuboid;
  return s;
}

shape_t make_cylinder_shape(const cylinder_t& c) {
  const sea::double_wrapper r = c.radius;
  const sea::double_wrapper s = 0.7071067811865476 * r;
  const sea::double_wrapper h = c.half_height;
  const point3& o = c.center;
  shape_t shape;
  shape.solid = new_solid(c);
  shape.inner_box = cuboid_t{{{o[0] - s, o[1] - s, o[2] - h}}, {{o[0] + s, o[1] + s, o[2] + h}}};
  shape.outer_box = cuboid_t{{{o[0] - r, o[1] - r, o[2] - h}}, {{o[0] + r, o[1] + r, o[2] + h}}};
  shape.inner_pieces = {shape.inner_box};
  shape.outer_pieces = {shape.outer_box};
  shape.shape_kind = shape_cylinder;
  return shape;
}

shape_t make_prism_shape(const point2* vertices, std::uint64_t count, sea::double_wrapper bottom,
                         sea::double_wrapper top) {
  if (count < 3 || count > 8) {
    sea::writer& err = *logger::instance().error;
    err("ERROR: vertex number not supported.");
    err("\n");
    err.flush();
    throw sea::fatal_error("GEOMETRY ERROR.\n");
  }
  nprism_t prism;
  double sx = 0.0, sy = 0.0;
  point2 lo = vertices[0], hi = vertices[0];
  for (std::uint64_t i = 0; i < count; ++i) {
    prism.points[i] = vertices[i];
    sx += vertices[i][0].value;
    sy += vertices[i][1].value;
    lo = minimal(lo, vertices[i]);
    hi = maximal(hi, vertices[i]);
  }
  prism.size = count;
  prism.bottom = bottom;
  prism.top = top;
  const double cx = sx / double(count);
  const double cy = sy / double(count);
  shape_t shape;
  shape.solid = new_solid(prism);
  shape.inner_box = cuboid_t{{{cx - 0.0001, cy - 0.0001, bottom}}, {{cx + 0.0001, cy + 0.0001, top}}};
  shape.outer_box = cuboid_t{{{lo[0], lo[1], bottom}}, {{hi[0], hi[1], top}}};
  shape.inner_pieces = {shape.inner_box};
  shape.outer_pieces = {shape.outer_box};
  shape.shape_kind = shape_prism;
  return shape;
}

sea::writer& cuboid_t::write_to(sea::writer& out) const {
  lower.write_to(out);
  out(":");
  upper.write_to(out);
  out(", xlen: ");
  out.format("%.12f", double(upper[0] - lower[0]));
  out(", ylen: ");
  out.format("%.12f", double(upper[1] - lower[1]));
  out(", zlen: ");
  return out.format("%.12f", double(upper[2] - lower[2]));
}

sea::writer& nprism_t::write_to(sea::writer& out) const {
  for (std::uint64_t i = 0; i < size && i < 8; ++i) {
    out("(");
    out.format("%.12f", double(points[i][0]));
    out(", ");
    out.format("%.12f", double(points[i][1]));
    out(") ");
  }
  out.format("%.12f", double(bottom));
  out(" ");
  return out.format("%.12f", double(top));
}

}  // namespace torva
