// The geometry of a uniform grid of cubic cells over a box, and the cells
// themselves. The cell (i, j, k) has the flat index (i * count_y + j) * count_z
// + k: z runs fastest.
//
// Index arithmetic is written so that no value, however far outside the grid
// (or not a number), leads to an undefined conversion; for every finite point
// the results are those of the plain floor / ceil and clamps.
#pragma once

#include <cmath>
#include <cstdint>
#include <memory>

#include "torva/foundation/double_wrapper.h"
#include "torva/foundation/point.h"
#include "torva/geometry/cube.h"
#include "torva/solids/solids.h"
#include "torva/space/candidate_list.h"
#include "torva/space/cell_array.h"

namespace torva {

template <class Node>
struct base_grid {
  using index3 = basic_point<unsigned long, 3>;

  sea::double_wrapper length;  // edge of a cell
  std::uint64_t count_x = 0;
  std::uint64_t count_y = 0;
  std::uint64_t count_z = 0;
  std::uint64_t cell_count = 0;  // count_x * count_y * count_z
  cuboid_t bounds;               // the box the cells cover exactly
  cell_array<Node> nodes;  // cell_count cells; null before initialize

  std::uint64_t count(int axis) const noexcept {
    return axis == 0 ? count_x : axis == 1 ? count_y : count_z;
  }

  // First cell index on each axis of a range reaching `radius` below the point:
  // floor((p - radius - lower) / length), raised to 0, lowered to the count.
  index3 lower_bound(const point3& point, sea::double_wrapper radius) const noexcept {
    index3 r;
    for (int a = 0; a < 3; ++a)
      r[a] = clamp_range(std::floor(((point[a] - radius - bounds.lower[a]) / length).value), count(a));
    return r;
  }

  // One past the last cell index on each axis of a range reaching `radius`
  // above the point: ceil((radius + p - lower) / length), clamped likewise.
  index3 upper_bound(const point3& point, sea::double_wrapper radius) const noexcept {
    index3 r;
    for (int a = 0; a < 3; ++a)
      r[a] = clamp_range(std::ceil(((radius + point[a] - bounds.lower[a]) / length).value), count(a));
    return r;
  }

  // The cell of a point. A point below the low side of an axis gives a negative
  // index that, read as unsigned, lands in the last cell of that axis, not the
  // first; queries outside the grid are kept away by the space manager's box
  // tests or end with a small scope.
  std::uint64_t cell_of(const point3& point) const noexcept {
    const std::uint64_t i = clamp_cell(std::floor(((point[0] - bounds.lower[0]) / length).value), count_x);
    const std::uint64_t j = clamp_cell(std::floor(((point[1] - bounds.lower[1]) / length).value), count_y);
    const std::uint64_t k = clamp_cell(std::floor(((point[2] - bounds.lower[2]) / length).value), count_z);
    return (i * count_y + j) * count_z + k;
  }

  // The candidate list that answers for the point: a flat cell's own list, or
  // the leaf of a cell's tree (which descends with the tolerance added).
  candidate_list const* locate_cell(const point3& point) const noexcept {
    return nodes[cell_of(point)].locate(point);
  }

  // The cube of the cell with flat index c.
  cube_t cell_cube(std::uint64_t c) const noexcept {
    const std::uint64_t k = c % count_z;
    const std::uint64_t t = c / count_z;
    const std::uint64_t j = t % count_y;
    const std::uint64_t i = t / count_y;
    const double idx[3] = {double(i), double(j), double(k)};
    cube_t cube;
    for (int a = 0; a < 3; ++a) cube.center[a] = bounds.lower[a] + idx[a] * length + 0.5 * length;
    cube.half = 0.5 * length;
    return cube;
  }

 private:
  // A signed index raised to at least 0, then lowered to at most n.
  static std::uint64_t clamp_range(double f, std::uint64_t n) noexcept {
    if (!(f > 0.0)) return 0;  // also not-a-number, as the signed clamp gives
    if (f >= static_cast<double>(n)) return n;
    return static_cast<std::uint64_t>(f);
  }

  // A signed index read as unsigned and lowered to at most n - 1: every
  // negative index becomes the last one.
  static std::uint64_t clamp_cell(double f, std::uint64_t n) noexcept {
    const std::uint64_t last = n - 1;
    if (!(f >= 0.0)) return last;  // negative or not a number
    if (f >= static_cast<double>(last)) return last;
    return static_cast<std::uint64_t>(f);
  }
};

}  // namespace torva
