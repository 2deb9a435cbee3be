// The solid records every conductor and dielectric is held as: the three
// simple solids, the prism of many vertices a reader takes in, and the shape
// record that carries one of them with its boxes. The floor the geometry and
// the layout both stand on.
#pragma once

#include <cstdint>
#include <vector>

#include "torva/foundation/double_wrapper.h"
#include "torva/foundation/point.h"
#include "torva/foundation/writer.h"

namespace torva {

// An axis-aligned box: the corner of least x, y, z, then the greatest.
struct cuboid_t {
  point3 lower;
  point3 upper;

  // "(x, y, z):(x, y, z), xlen: ..., ylen: ..., zlen: ..." without a line end.
  sea::writer& write_to(sea::writer& out) const;
};

// A vertical cylinder: the middle of its axis, radius and half height.
struct cylinder_t {
  point3 center;
  sea::double_wrapper radius;
  sea::double_wrapper half_height;
};

// A vertical prism over a convex polygon, anticlockwise in plan view. A plain
// value: room for 8 vertices because growing a prism doubles its vertices.
struct nprism_t {
  point2 points[8];
  sea::double_wrapper bottom;
  sea::double_wrapper top;
  std::uint64_t size = 0;

  // "(x, y) " for each vertex, then bottom, a blank, top.
  sea::writer& write_to(sea::writer& out) const;
};

// A prism over a polygon of any number of vertices, as read from a file.
// `size` always equals points.size().
struct nprism_large_t {
  std::uint64_t size = 0;
  std::vector<point2> points;
  sea::double_wrapper bottom;
  sea::double_wrapper top;
};

// shape_kind values.
inline constexpr std::uint32_t shape_cuboid = 0;
inline constexpr std::uint32_t shape_cylinder = 1;
inline constexpr std::uint32_t shape_prism = 2;

// The solid of a block. Copies share `solid`, which is never released (see
// new_solid); the box vectors are owned and copied.
struct shape_t {
  const void* solid = nullptr;        // cuboid_t, cylinder_t or nprism_t by shape_kind
  cuboid_t inner_box;                 // lies within the solid
  cuboid_t outer_box;                 // bounds the solid
  std::vector<cuboid_t> inner_pieces; // boxes within each cut piece
  std::vector<cuboid_t> outer_pieces; // bounding boxes of the same pieces
  std::uint32_t shape_kind = 0;

  const cuboid_t& cuboid() const noexcept { return *static_cast<const cuboid_t*>(solid); }
  const cylinder_t& cylinder() const noexcept { return *static_cast<const cylinder_t*>(solid); }
  const nprism_t& prism() const noexcept { return *static_cast<const nprism_t*>(solid); }
};

// Allocates a solid that lives as long as the process: shapes are copied freely
// and share it, so nobody may free it. The storage stays reachable from a
// process-wide store (leak checkers see it as in use). Thread-safe.
cuboid_t* new_solid(const cuboid_t& c);
cylinder_t* new_solid(const cylinder_t& c);
nprism_t* new_solid(const nprism_t& p);

// The plain cuboid shape: both boxes and both piece lists are the cuboid.
shape_t make_cuboid_shape(const cuboid_t& c);

}  // namespace torva
