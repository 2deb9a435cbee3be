// Cubes by centre and half edge, and the helpers that make them.
#pragma once

#include <algorithm>
#include <functional>

#include "torva/foundation/double_wrapper.h"
#include "torva/foundation/point.h"
#include "torva/solids/solids.h"

namespace torva {

struct cube_t {
  point3 center;
  sea::double_wrapper half;  // half of the edge
};

// a + (b - a) * t, plain arithmetic in that order.
inline sea::double_wrapper middle_helper(sea::double_wrapper a, sea::double_wrapper b, double t) noexcept {
  return a + (b - a) * t;
}

// The longest edge; of nearly equal edges the earlier axis stands.
inline sea::double_wrapper size_of(const cuboid_t& c) noexcept {
  const sea::double_wrapper x = c.upper[0] - c.lower[0];
  const sea::double_wrapper y = c.upper[1] - c.lower[1];
  const sea::double_wrapper z = c.upper[2] - c.lower[2];
  return std::max(std::max(x, y), z);
}

// The cube about the cuboid's centre whose edge is the cuboid's longest edge.
inline cube_t make_cube(const cuboid_t& c) noexcept {
  using namespace std::placeholders;
  cube_t cube;
  cube.center = operate(c.lower, c.upper, std::bind(middle_helper, _1, _2, 0.5));
  const sea::double_wrapper s = size_of(c);
  cube.half = s - s * 0.5;
  return cube;
}

}  // namespace torva
