#include "torva/layout/solids.h"

#include <deque>
#include <mutex>

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
