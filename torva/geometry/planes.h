// Faces of solids, made for the client by the face generators.
#pragma once

#include <cstdint>

#include "torva/foundation/double_wrapper.h"
#include "torva/foundation/point.h"

namespace torva {

// Outward normal: 0 +x, 1 +y, 2 +z, 3 -x, 4 -y, 5 -z.
using direction_t = std::uint64_t;

// An axis-parallel rectangle. With k = direction % 3 the normal's axis,
// length_a runs along axis (k + 1) % 3 and length_b along (k + 2) % 3, both
// from origin (the least corner) in the positive sense.
struct rectangle_t {
  point3 origin;
  sea::double_wrapper length_a;
  sea::double_wrapper length_b;
  direction_t direction = 0;
};

// A horizontal triangle at height z.
struct triangle_t {
  sea::double_wrapper z;
  point2 a, b, c;
  direction_t direction = 0;
};

// A vertical face over an inclined edge; its normal follows from the edge,
// which runs anticlockwise around the prism.
struct incline_t {
  point3 origin;           // start of the edge at the bottom
  sea::double_wrapper dx;  // the edge as a signed vector
  sea::double_wrapper dy;
  sea::double_wrapper height;
};

// A face: one of the three alternatives and its tag (0, 3 or 4).
struct plane_t {
  static constexpr std::uint32_t rectangle_tag = 0;
  static constexpr std::uint32_t triangle_tag = 3;
  static constexpr std::uint32_t incline_tag = 4;

  std::uint32_t tag;
  union {
    rectangle_t rectangle;
    triangle_t triangle;
    incline_t incline;
  };

  plane_t() : tag(rectangle_tag), rectangle() {}
  plane_t(const rectangle_t& r) : tag(rectangle_tag), rectangle(r) {}  // NOLINT
  plane_t(const triangle_t& t) : tag(triangle_tag), triangle(t) {}     // NOLINT
  plane_t(const incline_t& i) : tag(incline_tag), incline(i) {}        // NOLINT
};

}  // namespace torva
