// The facade through which the client reaches space management: it picks one
// of ten pairs of search strategies by configure::spacemgr_type (or, for the
// value 10, by the size of the layout), constructs it behind the abstract
// interface and fills it.
//
//  value  pair            first strategy                                second strategy
//  0      simple-simple   simple_spacemgr<3>                            simple_spacemgr<1>
//  1      octree-octree   octree_spacemgr<3>                            octree_spacemgr<1>
//  2      hybrid-hybrid   grid of octree_node<3>                        grid of octree_node<1>
//  3      simple-none     simple_spacemgr<0>                            unused_spacemgr
//  4      octree-none     octree_spacemgr<0>                            unused_spacemgr
//  5      hybrid-none     grid of octree_node<0>                        unused_spacemgr
//  6      hybrid-simple   grid of octree_node<3>                        simple_spacemgr<1>
//  7      hybrid-grid     grid of octree_node<3>                        grid of incline_node<1>
//  8      hybrid-grid-nd  grid of octree_node<3>                        grid of incline_node<2>
//  9      grid-none-nd    grid of base_grid_node<5>                     unused_spacemgr
//  10     automatic: one of 3, 5, 7 or 9
//
// A value above 10 does nothing at all: no log line, and the wrapper keeps
// what it held.
#pragma once

#include <cstdint>
#include <memory>

#include "torva/foundation/abstract_wrapper.h"
#include "torva/foundation/configure.h"
#include "torva/layout/records.h"
#include "torva/space/base_grid_node.h"
#include "torva/space/basic_grid_spacemgr.h"
#include "torva/space/basic_space_manager.h"
#include "torva/space/incline_node.h"
#include "torva/space/octree_node.h"
#include "torva/space/octree_spacemgr.h"
#include "torva/space/simple_spacemgr.h"
#include "torva/space/space_manager_interface.h"
#include "torva/space/unused_spacemgr.h"

namespace torva {

using hybrid_cuboid_grid = basic_grid_spacemgr<octree_node<3>, 20, 16>;
using hybrid_incline_grid = basic_grid_spacemgr<octree_node<1>, 20, 16>;
using hybrid_all_grid = basic_grid_spacemgr<octree_node<0>, 20, 16>;
using incline_grid = basic_grid_spacemgr<incline_node<1>, 20, 16>;
using incline_nd_grid = basic_grid_spacemgr<incline_node<2>, 20, 16>;
using plain_grid = basic_grid_spacemgr<base_grid_node<5>, 20, 10>;

using simple_simple_manager = basic_space_manager<simple_spacemgr<3>, simple_spacemgr<1>>;
using octree_octree_manager = basic_space_manager<octree_spacemgr<3>, octree_spacemgr<1>>;
using hybrid_hybrid_manager = basic_space_manager<hybrid_cuboid_grid, hybrid_incline_grid>;
using simple_none_manager = basic_space_manager<simple_spacemgr<0>, unused_spacemgr>;
using octree_none_manager = basic_space_manager<octree_spacemgr<0>, unused_spacemgr>;
using hybrid_none_manager = basic_space_manager<hybrid_all_grid, unused_spacemgr>;
using hybrid_simple_manager = basic_space_manager<hybrid_cuboid_grid, simple_spacemgr<1>>;
using hybrid_grid_manager = basic_space_manager<hybrid_cuboid_grid, incline_grid>;
using hybrid_grid_nd_manager = basic_space_manager<hybrid_cuboid_grid, incline_nd_grid>;
using grid_none_nd_manager = basic_space_manager<plain_grid, unused_spacemgr>;

// The strategy value that the automatic choice (value 10) settles on for a
// layout: 3, 5, 7 or 9. Logs nothing.
std::uint32_t automatic_spacemgr_type(const circuit_layout& layout);

struct space_manager : sea::abstract_wrapper<space_manager_interface, std::unique_ptr<space_manager_interface>> {
  // Chooses, constructs and fills the pair; the new pair is installed before it
  // is filled. The layout and the configure must outlive the manager.
  void initialize(const configure& config, const circuit_layout& layout);
};

}  // namespace torva
