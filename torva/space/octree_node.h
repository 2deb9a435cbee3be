// One node of an octree of candidate lists: the cell of the octree strategy
// and of the hybrid grids. Only leaves hold candidates; a node with children
// keeps its bound, which still gates the descent of later insertions.
//
// Child i lies on the upper side along x if bit 0 of i is set, along y if bit
// 1, along z if bit 2; the eight children tile the parent's cube.
//
// A tree is built on one thread and is read-only after complete(); locate()
// may then run from any number of threads.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "torva/foundation/configure.h"
#include "torva/foundation/double_wrapper.h"
#include "torva/foundation/point.h"
#include "torva/geometry/distance.h"
#include "torva/layout/records.h"
#include "torva/space/candidate_list.h"

namespace torva {

template <std::int64_t N>
struct octree_node {
  std::unique_ptr<octree_node[]> children;  // eight, or null for a leaf
  candidate_list list;                      // its cube is the node's cube, its kind N
  std::int32_t depth = 0;                   // 0 for a root
  configure const* config = nullptr;        // not owned

  // Files a block into the subtree: the gate on this node's bound cuts whole
  // subtrees off at the price of one distance. A leaf that accepted the block
  // and now holds more than limits.count candidates splits while its depth is
  // at most limits.depth; split() does not recurse, so a leaf may stay crowded
  // until a later insertion reaches one of its children.
  template <class Thresholder>
  void try_insert(wire_block const* block, Thresholder& limits) {
    constexpr double eps = sea::double_wrapper::tolerance;
    const sea::double_wrapper d = manhattan_distance(list.cube.center, *block) - list.cube.half;
    if (!(list.bound.value - eps > d.value)) return;
    if (children) {
      for (int i = 0; i < 8; ++i) children[i].try_insert(block, limits);
      return;
    }
    const bool cuboid = block->shape_kind == shape_cuboid;
    candidate_list::candidate c;
    c.block = block;
    c.distance = d;
    c.is_cuboid = cuboid;
    c.in_tree_cuboid = cuboid;
    c.ratio = list.double_incline_ratio && !cuboid ? 2 : 1;
    if (list.try_add(c) && static_cast<std::int64_t>(list.candidates.size()) > limits.count &&
        depth <= limits.depth)
      split();
  }

  // Turns the leaf into eight children and hands each of them the candidates
  // of the leaf that reach it. Blocks that the leaf refused to store (those of
  // the other family) are not offered again.
  void split() {
    const sea::double_wrapper half = list.cube.half;
    const sea::double_wrapper q = 0.5 * half;
    const sea::double_wrapper h = half - q;
    // Children's scopes shrink by the configured share near the root, by half deeper down.
    const sea::double_wrapper scope =
        depth < 6 ? list.scope_bound * config->octree_scope_ratio : list.scope_bound * 0.5;
    children.reset(new octree_node[8]());
    for (int i = 0; i < 8; ++i) {
      octree_node& child = children[i];
      cube_t cube;
      for (int axis = 0; axis < 3; ++axis)
        cube.center[axis] = (i >> axis) & 1 ? list.cube.center[axis] + q : list.cube.center[axis] - q;
      cube.half = h;
      child.list.initialize(*config, cube, scope);
      child.config = config;
      child.depth = depth + 1;
      child.list.kind = N;
      for (const candidate_list::candidate& e : list.candidates) {
        const bool cuboid = e.block->shape_kind == shape_cuboid;
        candidate_list::candidate c;
        c.block = e.block;
        c.distance = manhattan_distance(cube.center, *e.block) - h;
        c.is_cuboid = cuboid;
        c.in_tree_cuboid = cuboid;
        c.ratio = e.ratio;
        child.list.try_add(c);
      }
    }
    std::vector<candidate_list::candidate>().swap(list.candidates);
  }

  // Freezes every leaf's list.
  void complete() {
    if (!children) {
      list.complete();
      return;
    }
    for (int i = 0; i < 8; ++i) children[i].complete();
  }

  // The list of the leaf that holds the point. A point on a dividing plane, or
  // within the tolerance below it, goes to the upper child. There is no test
  // that the point lies in the root's cube: a point outside ends in a border
  // leaf, whose scope from there is then small or negative.
  candidate_list const* locate(const point3& point) const noexcept {
    if (!children) return &list;
    constexpr double eps = sea::double_wrapper::tolerance;
    const double x = point[0].value + eps;
    const double y = point[1].value + eps;
    const double z = point[2].value + eps;
    const octree_node* node = this;
    while (node->children) {
      const point3& c = node->list.cube.center;
      const int index = (x >= c[0].value ? 1 : 0) | (y >= c[1].value ? 2 : 0) | (z >= c[2].value ? 4 : 0);
      node = &node->children[index];
    }
    return &node->list;
  }
};

}  // namespace torva
