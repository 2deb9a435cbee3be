// A grid built by several threads holds exactly what the one-thread build of
// the same layout holds: every cell, every tree node, every candidate.
#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <type_traits>

#include "torva/foundation/configure.h"
#include "torva/space/base_grid_node.h"
#include "torva/space/basic_grid_spacemgr.h"
#include "torva/space/incline_node.h"
#include "torva/space/octree_node.h"
#include "torva_testing/log_capture.h"
#include "torva_testing/random_layout.h"

namespace torva {
namespace {

using testing::add_cuboid;
using testing::add_cylinder;
using testing::add_prism;
using testing::box;

// How much the compared grids hold: candidates, tree nodes below the cells,
// and halvings of flat cells; a comparison of empty grids proves nothing.
struct grid_load {
  std::uint64_t candidates = 0, inner_nodes = 0, halvings = 0;
};

void expect_same_list(const candidate_list& a, const candidate_list& b, const std::string& where, grid_load& load) {
  EXPECT_EQ(a.kind, b.kind) << where;
  for (int k = 0; k < 3; ++k) EXPECT_EQ(a.cube.center[k].value, b.cube.center[k].value) << where;
  EXPECT_EQ(a.cube.half.value, b.cube.half.value) << where;
  EXPECT_EQ(a.scope_bound.value, b.scope_bound.value) << where;
  EXPECT_EQ(a.bound.value, b.bound.value) << where;
  ASSERT_EQ(a.candidates.size(), b.candidates.size()) << where;
  load.candidates += a.candidates.size();
  for (std::size_t i = 0; i < a.candidates.size(); ++i) {
    const auto& x = a.candidates[i];
    const auto& y = b.candidates[i];
    EXPECT_TRUE(x.block == y.block && x.distance.value == y.distance.value && x.is_cuboid == y.is_cuboid &&
                x.in_tree_cuboid == y.in_tree_cuboid && x.ratio == y.ratio)
        << where << " candidate " << i;
  }
}

template <auto N>
void expect_same_node(const octree_node<N>& a, const octree_node<N>& b, const std::string& where, grid_load& load) {
  EXPECT_EQ(a.depth, b.depth) << where;
  expect_same_list(a.list, b.list, where, load);
  ASSERT_EQ(a.children == nullptr, b.children == nullptr) << where;
  if (!a.children) return;
  ++load.inner_nodes;
  for (int i = 0; i < 8; ++i) expect_same_node(a.children[i], b.children[i], where + "/" + std::to_string(i), load);
}

template <class Node>
void expect_same_node(const Node& a, const Node& b, const std::string& where, grid_load& load) {
  EXPECT_EQ(a.level, b.level) << where;
  EXPECT_EQ(a.may_decrease, b.may_decrease) << where;
  load.halvings += static_cast<std::uint64_t>(a.level);
  expect_same_list(a.list, b.list, where, load);
}

template <class Grid>
grid_load expect_same_grid(const Grid& a, const Grid& b) {
  grid_load load;
  EXPECT_EQ(a.cell_count, b.cell_count);
  for (std::uint64_t c = 0; c < a.cell_count && !::testing::Test::HasFailure(); ++c)  // one broken cell tells enough
    expect_same_node(a.nodes[c], b.nodes[c], "cell " + std::to_string(c), load);
  return load;
}

// 5400 blocks in a few crowded layers: cuboid wires, with cylinders and
// prisms among them.
circuit_layout& crowded_layout() {
  static circuit_layout* layout = [] {
    auto* l = new circuit_layout;
    l->space_margin = 0.5;
    for (int i = 0; i < 5400; ++i) {
      const int layer = i % 3;
      const double a = (i / 3) % 60 * 0.33, b = (i / 180) * 0.66;
      const double z = 1.0 + layer * 2.5;
      if (i % 7 == 3) {
        add_cylinder(*l, 0.5 + a, 0.5 + b, z + 0.2, 0.1, 0.2);
      } else if (i % 11 == 5) {
        add_prism(*l, {{{a, b}}, {{a + 0.3, b}}, {{a + 0.2, b + 0.2}}, {{a + 0.1, b + 0.2}}}, z, z + 0.3);
      } else if (layer == 1) {
        add_cuboid(*l, box(a, b, z, a + 0.2, b + 0.5, z + 0.4));
      } else {
        add_cuboid(*l, box(b, a, z, b + 0.5, a + 0.2, z + 0.4));
      }
    }
    return l;
  }();
  return *layout;
}

template <class Grid>
void check_threads(const cuboid_t& space, configure config, std::initializer_list<int> thread_counts,
                   std::uint64_t expected_cells = 0) {
  testing::log_capture log;
  const circuit_layout& layout = crowded_layout();
  ASSERT_GT(layout.blocks.size(), 5000u);
  config.thread_count = 1;
  auto single = std::make_unique<Grid>();
  single->initialize(config, space, layout);
  ASSERT_NE(log.info().find("single thread space management starts."), std::string::npos);
  if (expected_cells != 0) {
    ASSERT_EQ(single->cell_count, expected_cells);
  }
  for (int threads : thread_counts) {
    SCOPED_TRACE(threads);
    log.clear();
    config.thread_count = threads;
    auto many = std::make_unique<Grid>();
    many->initialize(config, space, layout);
    many->initialize(config, space, layout);  // a second build starts afresh
    ASSERT_NE(log.info().find("multhread space management starts."), std::string::npos);
    EXPECT_EQ(many->next_part, threads);
    const grid_load load = expect_same_grid(*single, *many);
    EXPECT_GT(load.candidates, single->cell_count);
    if constexpr (grid_internal::tree_cell<std::remove_reference_t<decltype(single->nodes[0])>>) {
      EXPECT_GT(load.inner_nodes, 0u);
    } else if (config.decrease_enabled) {
      EXPECT_GT(load.halvings, 0u);
    }
  }
}

const cuboid_t space = box(-1, -1, 0, 21, 21, 9);

TEST(ThreadedGridBuild, HybridCellsMatchTheSingleThreadBuild) {
  configure config;
  config.max_candidates = 4;
  // Over a cube, 2 x 2 x 2 cells: 9 threads leave all parts but the last empty.
  check_threads<basic_grid_spacemgr<octree_node<3>, 20, 16>>(box(-1, -1, -6, 21, 21, 16), config, {2, 3, 9}, 8);
  check_threads<basic_grid_spacemgr<octree_node<0>, 20, 16>>(space, config, {2, 3});
  check_threads<basic_grid_spacemgr<octree_node<1>, 20, 16>>(space, config, {2});
}

TEST(ThreadedGridBuild, InclineCellsMatchTheSingleThreadBuild) {
  configure config;
  config.decrease_enabled = true;
  config.incline_max_candidates = 3;
  config.double_incline_ratio = true;
  check_threads<basic_grid_spacemgr<incline_node<1>, 20, 16>>(space, config, {2, 3});
  check_threads<basic_grid_spacemgr<incline_node<2>, 20, 16>>(space, config, {2});
}

TEST(ThreadedGridBuild, PlainCellsMatchTheSingleThreadBuild) {
  configure config;
  config.decrease_enabled = true;
  config.max_candidates = 6;
  circuit_layout& layout = crowded_layout();
  layout.coarse_grid = true;  // 20 * m = 10: 3 x 3 x 1 cells
  check_threads<basic_grid_spacemgr<base_grid_node<5>, 20, 10>>(space, config, {2, 3, 10}, 9);
  layout.coarse_grid = false;
}

}  // namespace
}  // namespace torva
