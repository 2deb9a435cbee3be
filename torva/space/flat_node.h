// The one code behind the two flat grid cells (incline_node and
// base_grid_node): a cell that stays one cube and, when its list grows past the
// candidate limit, halves the radius it vouches for instead of splitting.
#pragma once

#include <cstdint>
#include <utility>
#include <vector>

#include "torva/foundation/configure.h"
#include "torva/foundation/double_wrapper.h"
#include "torva/foundation/point.h"
#include "torva/geometry/cube.h"
#include "torva/geometry/distance.h"
#include "torva/layout/records.h"
#include "torva/space/candidate_list.h"

namespace torva::space_internal {

// Kind is the spacemgr_t value the list is given; NonCuboidOnly makes the cell
// ignore cuboid blocks altogether (no distance, no list, no halving).
template <std::int64_t Kind, bool NonCuboidOnly>
struct flat_node {
  candidate_list list;        // its cube is the cell
  bool may_decrease = false;  // configure::decrease_enabled, copied at set-up
  std::int32_t level = 0;     // halvings done so far

  // Set-up by the grid: the cell's cube and the grid's scope.
  void setup(const configure& config, const cube_t& cube, sea::double_wrapper scope) {
    list.initialize(config, cube, scope);
    list.kind = Kind;
    may_decrease = config.decrease_enabled;
    level = 0;
  }

  // Offers one block. The block is measured by its outer box, which is never
  // farther than the exact solid, so the cheap test keeps every block that can
  // matter; the exact solid is measured only when the cell halves.
  template <class Thresholder>
  void try_insert(wire_block const* block, Thresholder& limits) {
    const shape_t& shape = *block;
    const bool cuboid = shape.shape_kind == shape_cuboid;
    if constexpr (NonCuboidOnly) {
      if (cuboid) return;
    }
    candidate_list::candidate e;
    e.block = block;
    e.distance = distance(shape.outer_box, list.cube.center) - list.cube.half;
    e.is_cuboid = cuboid;
    e.in_tree_cuboid = cuboid;
    e.ratio = (list.double_incline_ratio && !cuboid) ? 2 : 1;
    list.try_add(e);
    if (may_decrease && crowded(limits) && level < limits.depth) {
      ++level;
      decrease(limits);
    }
  }

  // Halves scope_bound and keeps only the candidates whose exact solid lies
  // within the new scope of the cube; repeats while the cell stays crowded and
  // halvings are left. `bound` is left alone on purpose: later offers are
  // still gated by it.
  template <class Thresholder>
  void decrease(Thresholder& limits) {
    constexpr double eps = sea::double_wrapper::tolerance;
    std::vector<candidate_list::candidate> old = std::move(list.candidates);
    std::vector<candidate_list::candidate>().swap(list.candidates);
    list.scope_bound = 0.5 * list.scope_bound;
    for (const candidate_list::candidate& e : old) {
      const sea::double_wrapper g = manhattan_distance(list.cube.center, *e.block) - list.cube.half;
      // Through add, so that a filtering list tightens and evicts again.
      if (!(g.value - eps > list.scope_bound.value)) list.add(e);
    }
    if (crowded(limits) && level < limits.depth) {
      std::vector<candidate_list::candidate>().swap(old);
      ++level;
      decrease(limits);
    }
  }

  void complete() { list.complete(); }

  // A flat cell has no descent: the point's list is the cell's.
  candidate_list const* locate(const point3&) const noexcept { return &list; }

 private:
  template <class Thresholder>
  bool crowded(const Thresholder& limits) const noexcept {
    return static_cast<std::int64_t>(list.candidates.size()) > static_cast<std::int64_t>(limits.count);
  }
};

}  // namespace torva::space_internal
