// One candidate list for the whole search space: the smallest strategy.
//
// Its list has the scope 0: it takes just the blocks that reach into the cube
// about the space, and a query point inside that cube is answered up to its
// distance from the cube's wall.
#pragma once

#include <cstdint>

#include "torva/foundation/configure.h"
#include "torva/foundation/double_wrapper.h"
#include "torva/foundation/point.h"
#include "torva/geometry/cube.h"
#include "torva/geometry/distance.h"
#include "torva/layout/records.h"
#include "torva/space/candidate_list.h"

namespace torva {

template <std::int64_t N>
struct simple_spacemgr : candidate_list {
  // Fills the list from every block; the layout and the configure must outlive it.
  void initialize(const configure& config, const cuboid_t& space, const circuit_layout& layout) {
    constexpr double eps = sea::double_wrapper::tolerance;
    const cube_t c = make_cube(space);
    candidate_list::initialize(config, c, SS_ZERO);
    kind = N;
    for (wire_block const* block : layout.blocks) {
      const bool cuboid = block->shape_kind == shape_cuboid;
      candidate e;
      e.block = block;
      e.distance = manhattan_distance(c.center, *block) - c.half;
      e.is_cuboid = cuboid;
      e.in_tree_cuboid = false;
      e.ratio = double_incline_ratio && !cuboid ? 2 : 1;
      // No dominance question is asked of the newcomer itself: add, not try_add.
      if (bound.value - eps > e.distance.value) add(e);
    }
    complete();
  }

  candidate_list const* find_list(const point3&) const noexcept { return this; }
};

}  // namespace torva
