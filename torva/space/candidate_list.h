// The candidate list of one cube of space: the conductor blocks that can be
// the nearest block for some point of the cube, sorted by their distance from
// the cube once complete. Blocks too far away to matter and blocks dominated
// by another block of the list (at least as near from every point of the
// cube) are thrown out while the list fills.
//
// Phases: initialize, the owner sets `kind`, any number of add / try_add on
// one thread, then complete; after that the list is read-only and may be read
// by any number of threads.
//
// Dominance modes, from the configure flags: merged intervals
// (group_optimize, unless double_incline_ratio), piece by piece
// (group_dominance), else the single inner box against the single outer box.
// The first argument of a dominance test is always the dominator.
//
// Choices where the rules are silent:
// - A list of kind spacemgr_none is never filled by its owner; if it is, it
//   behaves like spacemgr_all (the query side ignores it anyway).
// - dominate_group_optimize_impl answers false for an empty group instead of
//   reading a first box that is not there, so a dominator with no inner
//   pieces shadows no cut target.
// - complete orders not-a-number distances (only a direct add can bring one
//   in; try_add refuses them) after all others, so the sort stays well defined.
//
// Limits worth knowing: merged dominance merges the x and the y intervals of
// a target above or below the cube in two separate lists, so an x interval of
// one box may pair with a y interval of another. For groups whose boxes share
// their extent across the cut (the slices of a cuboid) it is exact; for the
// rods of a prism cut along a diagonal it can shadow a block that is nearer
// from part of the cube. The piecewise and plain modes are exact.
#pragma once

#include <cstdint>
#include <vector>

#include "torva/foundation/configure.h"
#include "torva/foundation/double_wrapper.h"
#include "torva/geometry/cube.h"
#include "torva/layout/records.h"

namespace torva {

// What a list keeps and whether it filters.
enum spacemgr_t : std::int64_t {
  spacemgr_all = 0,          // every candidate; tightening, eviction, dominance
  spacemgr_incline = 1,      // stores non-cuboids; cuboids still tighten and evict
  spacemgr_incline_nd = 2,   // stores non-cuboids; no tightening, no dominance
  spacemgr_cuboid = 3,       // stores cuboids; non-cuboids still tighten and evict
  spacemgr_none = 4,         // the empty list of an unused strategy
  spacemgr_all_nd = 5,       // every candidate; no tightening, no dominance
};

struct candidate_list {
  struct candidate {
    wire_block const* block = nullptr;  // also serves as the shape
    sea::double_wrapper distance;       // manhattan_distance(centre, shape) - half
    bool is_cuboid = false;
    bool in_tree_cuboid = false;        // carried along, never read by the list
    std::int32_t ratio = 1;             // 2 for a non-cuboid under double_incline_ratio

    bool operator<(const candidate& other) const noexcept { return distance < other.distance; }
  };

  std::int64_t kind = spacemgr_all;
  bool group_dominance = false;
  bool group_optimize = false;
  bool double_incline_ratio = false;
  cube_t cube;
  sea::double_wrapper scope_bound;  // the reach the list must answer for, from the cube's surface
  sea::double_wrapper bound;        // current limit; starts at scope_bound and only shrinks
  std::vector<candidate> candidates;

  void initialize(const configure& config, const cube_t& c, sea::double_wrapper bound_value);
  void add(const candidate& x);
  bool try_add(const candidate& x);
  bool dominate(const candidate& a, const candidate& b) const;
  bool dominate_new_halden(const candidate& a, const candidate& b) const;
  bool dominate_group_optimize_impl(const std::vector<cuboid_t>& group, const cuboid_t& target,
                                    sea::double_wrapper d) const;
  void complete();
};

}  // namespace torva
