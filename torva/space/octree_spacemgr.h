// One octree of candidate lists over the whole search space.
//
// octree_spacemgr<3> with octree_spacemgr<1> splits the blocks into cuboids and
// other solids (each tree is offered every block, and its lists store only
// their own family); octree_spacemgr<0> holds all blocks alone.
#pragma once

#include <cstdint>

#include "torva/foundation/configure.h"
#include "torva/foundation/double_wrapper.h"
#include "torva/foundation/point.h"
#include "torva/geometry/cube.h"
#include "torva/layout/records.h"
#include "torva/space/candidate_list.h"
#include "torva/space/octree_node.h"
#include "torva/space/thresholder.h"

namespace torva {

template <std::int64_t N>
struct octree_spacemgr {
  octree_node<N> root;
  thresholder<20, 12> threshold;

  // Builds the tree over `space`; the layout and the configure must outlive it.
  void initialize(const configure& config, const cuboid_t& space, const circuit_layout& layout) {
    threshold.set(config.max_candidates, config.max_depth);
    cube_t cube;
    cube.half = size_of(space) * 0.5;
    for (int axis = 0; axis < 3; ++axis)
      cube.center[axis] = middle_helper(space.lower[axis], space.upper[axis], 0.5);
    // The root vouches for a share of its half size that shrinks with the
    // depth limit: half / 2^(depth/2 - 1). The power is taken as a 32-bit
    // shift with the count masked to five bits, so a depth limit of 0 or 1
    // gives a tiny negative scope; that is kept as it stands.
    const std::int32_t s = threshold.depth / 2 - 1;
    const std::int32_t power = static_cast<std::int32_t>(1u << (static_cast<std::uint32_t>(s) & 31u));
    const sea::double_wrapper scope = cube.half / static_cast<double>(power);
    root.children.reset();
    root.list.initialize(config, cube, scope);
    root.config = &config;
    root.depth = 0;
    root.list.kind = N;
    for (wire_block const* block : layout.blocks) root.try_insert(block, threshold);
    root.complete();
  }

  candidate_list const* find_list(const point3& point) const noexcept { return root.locate(point); }
};

}  // namespace torva
