// The flat grid cells: what an offer stores, and how a crowded cell halves
// the radius it vouches for.
#include <gtest/gtest.h>

#include <cstdint>

#include "torva/foundation/configure.h"
#include "torva/geometry/distance.h"
#include "torva/space/base_grid_node.h"
#include "torva/space/incline_node.h"
#include "torva/space/internal/grid_test_layouts.h"
#include "torva/space/thresholder.h"

namespace torva {
namespace {

using grid_testing::add_cuboid;
using grid_testing::add_cylinder;
using grid_testing::add_prism;
using grid_testing::box;
using grid_testing::p3;

// The unit cell centred at the origin (half 0.5) with the given scope.
template <class Node>
Node make_cell(const configure& config, double scope) {
  Node node;
  node.setup(config, cube_t{p3(0, 0, 0), 0.5}, scope);
  return node;
}

template <class Limits>
Limits limits(int count, int depth) {
  Limits l;
  l.count = count;
  l.depth = depth;
  return l;
}

TEST(FlatCell, SetupCopiesTheFlagAndWritesTheKind) {
  configure config;
  config.decrease_enabled = true;
  auto a = make_cell<incline_node<1>>(config, 2.0);
  auto b = make_cell<incline_node<2>>(config, 2.0);
  auto c = make_cell<base_grid_node<5>>(config, 2.0);
  EXPECT_EQ(a.list.kind, spacemgr_incline);
  EXPECT_EQ(b.list.kind, spacemgr_incline_nd);
  EXPECT_EQ(c.list.kind, spacemgr_all_nd);
  EXPECT_TRUE(a.may_decrease);
  EXPECT_EQ(a.level, 0);
  EXPECT_DOUBLE_EQ(c.list.scope_bound.value, 2.0);
  EXPECT_DOUBLE_EQ(c.list.bound.value, 2.0);
}

TEST(FlatCell, CuboidsNeverReachAnInclineCell) {
  circuit_layout layout;
  configure config;
  config.decrease_enabled = true;
  auto limit = limits<thresholder<20, 16>>(0, 16);
  // A cuboid reaching into the cell, and one just outside it.
  const wire_block* inside = add_cuboid(layout, box(-0.2, -0.2, -0.2, 0.2, 0.2, 0.2));
  const wire_block* near = add_cuboid(layout, box(0.6, -0.1, -0.1, 0.7, 0.1, 0.1));
  for (auto* b : {inside, near}) {
    auto one = make_cell<incline_node<1>>(config, 2.0);
    auto two = make_cell<incline_node<2>>(config, 2.0);
    one.try_insert(b, limit);
    two.try_insert(b, limit);
    // Not even the bound is tightened, and no halving happens.
    EXPECT_TRUE(one.list.candidates.empty());
    EXPECT_DOUBLE_EQ(one.list.bound.value, 2.0);
    EXPECT_DOUBLE_EQ(one.list.scope_bound.value, 2.0);
    EXPECT_EQ(one.level, 0);
    EXPECT_TRUE(two.list.candidates.empty());
  }
  // The plain cell takes the same cuboids.
  auto plain = make_cell<base_grid_node<5>>(config, 2.0);
  plain.try_insert(inside, limit);
  ASSERT_EQ(plain.list.candidates.size(), 1u);
  EXPECT_TRUE(plain.list.candidates[0].is_cuboid);
  EXPECT_TRUE(plain.list.candidates[0].in_tree_cuboid);
  EXPECT_DOUBLE_EQ(plain.list.candidates[0].distance.value, -0.7);
}

TEST(FlatCell, MeasuresTheOuterBoxAndSetsTheRatio) {
  circuit_layout layout;
  configure config;
  auto limit = limits<thresholder<20, 10>>(20, 10);
  // A cylinder of radius 1 whose outer box corner is 0.5 from the cell in x
  // and y: box distance 0.5, exact distance larger.
  const wire_block* cyl = add_cylinder(layout, 2.0, 2.0, 0.0, 1.0, 0.5);
  for (bool doubled : {false, true}) {
    config.double_incline_ratio = doubled;
    auto cell = make_cell<base_grid_node<5>>(config, 2.0);
    cell.try_insert(cyl, limit);
    ASSERT_EQ(cell.list.candidates.size(), 1u);
    const auto& e = cell.list.candidates[0];
    EXPECT_EQ(e.block, cyl);
    EXPECT_DOUBLE_EQ(e.distance.value, 0.5);
    EXPECT_GT(manhattan_distance(p3(0, 0, 0), *cyl).value - 0.5, 0.5);
    EXPECT_FALSE(e.is_cuboid);
    EXPECT_FALSE(e.in_tree_cuboid);
    EXPECT_EQ(e.ratio, doubled ? 2 : 1);
  }
}

TEST(FlatCell, WithoutDecreaseTheListHasNoLimit) {
  circuit_layout layout;
  configure config;  // decrease_enabled false
  auto limit = limits<thresholder<20, 16>>(20, 16);
  auto cell = make_cell<incline_node<2>>(config, 10.0);
  for (int i = 0; i < 30; ++i) add_cylinder(layout, 1.0 + 0.25 * i, 0.0, 0.0, 0.1, 0.1);
  for (auto* b : layout.blocks) cell.try_insert(b, limit);
  EXPECT_EQ(cell.list.candidates.size(), 30u);
  EXPECT_EQ(cell.level, 0);
  EXPECT_DOUBLE_EQ(cell.list.scope_bound.value, 10.0);
}

TEST(FlatCell, NoDominanceNoTighteningInKindsTwoAndFive) {
  circuit_layout layout;
  configure config;
  auto limit = limits<thresholder<20, 16>>(20, 16);
  auto two = make_cell<incline_node<2>>(config, 3.0);
  auto five = make_cell<base_grid_node<5>>(config, 3.0);
  // A wide prism right beside the cell shadows a cylinder behind it; a
  // cylinder whose box lies beyond the bound is refused.
  const wire_block* wall = add_prism(layout, {{{0.6, -5}}, {{0.8, -5}}, {{0.8, 5}}, {{0.6, 5}}}, -5, 5);
  const wire_block* behind = add_cylinder(layout, 2.0, 0.0, 0.0, 0.5, 0.5);
  const wire_block* far = add_cylinder(layout, 4.1, 0.0, 0.0, 0.1, 0.1);  // box 3.5 away
  const wire_block* cube = add_cuboid(layout, box(0.6, 0.6, 0.6, 0.7, 0.7, 0.7));
  for (auto* b : {wall, behind, far, cube, behind}) {
    two.try_insert(b, limit);
    five.try_insert(b, limit);
  }
  // Kind 2: the non-cuboids within the bound, the repeated one twice.
  ASSERT_EQ(two.list.candidates.size(), 3u);
  EXPECT_EQ(two.list.candidates[0].block, wall);
  EXPECT_EQ(two.list.candidates[1].block, behind);
  EXPECT_EQ(two.list.candidates[2].block, behind);
  // Kind 5: the cuboid as well.
  ASSERT_EQ(five.list.candidates.size(), 4u);
  EXPECT_EQ(five.list.candidates[2].block, cube);
  EXPECT_DOUBLE_EQ(two.list.bound.value, 3.0);
  EXPECT_DOUBLE_EQ(five.list.bound.value, 3.0);
}

TEST(FlatCell, InclineOneFiltersByDominance) {
  circuit_layout layout;
  configure config;
  auto limit = limits<thresholder<20, 16>>(20, 16);
  auto one = make_cell<incline_node<1>>(config, 3.0);
  auto two = make_cell<incline_node<2>>(config, 3.0);
  // A tall cylinder 0.05 from the cell, and a small one within its inner box:
  // from every point of the cell the first is at least as near.
  const wire_block* big = add_cylinder(layout, 1.0, 0.0, 0.0, 0.45, 5.0);
  const wire_block* small = add_cylinder(layout, 1.2, 0.0, 0.0, 0.05, 0.05);
  for (auto* b : {big, small}) {
    one.try_insert(b, limit);
    two.try_insert(b, limit);
  }
  ASSERT_EQ(one.list.candidates.size(), 1u);
  EXPECT_EQ(one.list.candidates[0].block, big);
  // The big one tightened the bound: (2h + 0.05) * 1.
  EXPECT_NEAR(one.list.bound.value, 1.05, 1e-12);
  EXPECT_EQ(two.list.candidates.size(), 2u);
  EXPECT_DOUBLE_EQ(two.list.bound.value, 3.0);
}

TEST(FlatCell, ZeroLimitHalvesUntilTheDepthLimitWhenABlockReachesIn) {
  circuit_layout layout;
  configure config;
  config.decrease_enabled = true;
  // A cylinder reaching into the cell survives every halving.
  const wire_block* in = add_cylinder(layout, 0.4, 0.0, 0.0, 0.2, 0.2);
  auto incline_limit = limits<thresholder<20, 16>>(0, 16);
  auto cell = make_cell<incline_node<2>>(config, 1.0);
  cell.try_insert(in, incline_limit);
  EXPECT_EQ(cell.level, 16);
  EXPECT_DOUBLE_EQ(cell.list.scope_bound.value, 1.0 / 65536.0);
  EXPECT_DOUBLE_EQ(cell.list.bound.value, 1.0);  // the bound is left alone
  ASSERT_EQ(cell.list.candidates.size(), 1u);
  // At the depth limit the cell takes all it is offered.
  const wire_block* next = add_cylinder(layout, 1.0, 0.0, 0.0, 0.05, 0.05);
  cell.try_insert(next, incline_limit);
  EXPECT_EQ(cell.level, 16);
  EXPECT_EQ(cell.list.candidates.size(), 2u);

  // The plain grid's default of 10 halvings: a 1024th of the scope at most.
  auto plain_limit = limits<thresholder<20, 10>>(0, 10);
  auto plain = make_cell<base_grid_node<5>>(config, 1.0);
  plain.try_insert(in, plain_limit);
  EXPECT_EQ(plain.level, 10);
  EXPECT_DOUBLE_EQ(plain.list.scope_bound.value, 1.0 / 1024.0);
}

TEST(FlatCell, HalvingStopsWhenTheListEmpties) {
  circuit_layout layout;
  configure config;
  config.decrease_enabled = true;
  auto limit = limits<thresholder<20, 16>>(0, 16);
  // Exact gap from the cell 0.3: kept at scope 0.5, dropped at 0.25.
  const wire_block* cyl = add_cylinder(layout, 1.0, 0.0, 0.0, 0.2, 0.2);
  auto cell = make_cell<incline_node<2>>(config, 1.0);
  cell.try_insert(cyl, limit);
  EXPECT_EQ(cell.level, 2);
  EXPECT_DOUBLE_EQ(cell.list.scope_bound.value, 0.25);
  EXPECT_TRUE(cell.list.candidates.empty());
  EXPECT_EQ(cell.list.candidates.capacity(), 0u);
}

TEST(FlatCell, DecreaseThinsByTheExactSolidAndKeepsBoxDistances) {
  circuit_layout layout;
  configure config;
  config.decrease_enabled = true;
  auto limit = limits<thresholder<20, 10>>(2, 10);
  auto cell = make_cell<base_grid_node<5>>(config, 4.0);
  // Box 1 away but exact distance about 1.83 (a diagonal cylinder), and two
  // blocks close by. The third offer crowds the cell: scope 4 -> 2 keeps all
  // three, and -> 1 drops the cylinder.
  const wire_block* diag = add_cylinder(layout, 2.5, 2.5, 0.0, 1.0, 0.5);
  const wire_block* a = add_cuboid(layout, box(0.6, -0.1, -0.1, 0.7, 0.1, 0.1));
  const wire_block* b = add_cuboid(layout, box(-0.1, 0.7, -0.1, 0.1, 0.8, 0.1));
  for (auto* x : {diag, a, b}) cell.try_insert(x, limit);
  EXPECT_EQ(cell.level, 2);
  EXPECT_DOUBLE_EQ(cell.list.scope_bound.value, 1.0);
  ASSERT_EQ(cell.list.candidates.size(), 2u);
  EXPECT_EQ(cell.list.candidates[0].block, a);
  EXPECT_EQ(cell.list.candidates[1].block, b);
  EXPECT_NEAR(cell.list.candidates[0].distance.value, 0.1, 1e-12);
  EXPECT_NEAR(cell.list.candidates[1].distance.value, 0.2, 1e-12);
  // Later offers are still gated by the unchanged bound, not by the scope.
  EXPECT_DOUBLE_EQ(cell.list.bound.value, 4.0);
  cell.may_decrease = false;
  const wire_block* late = add_cuboid(layout, box(3.0, -0.1, -0.1, 3.1, 0.1, 0.1));  // 2.5 away
  cell.try_insert(late, limit);
  ASSERT_EQ(cell.list.candidates.size(), 3u);
  EXPECT_EQ(cell.list.candidates[2].block, late);
}

TEST(FlatCell, CompleteDropsANonCuboidWhoseSolidIsOutOfReach) {
  circuit_layout layout;
  configure config;
  auto limit = limits<thresholder<20, 10>>(20, 10);
  auto cell = make_cell<base_grid_node<5>>(config, 1.0);
  // Outer box 0.5 from the cell, exact solid about 0.79 away: kept with a
  // scope of 1, stored by its box with a scope of 0.75 and dropped at the end.
  const wire_block* diag = add_cylinder(layout, 2.0, 2.0, 0.0, 1.0, 0.5);
  auto tight = make_cell<base_grid_node<5>>(config, 0.75);
  cell.try_insert(diag, limit);
  tight.try_insert(diag, limit);
  ASSERT_EQ(tight.list.candidates.size(), 1u);  // stays until complete
  cell.complete();
  tight.complete();
  EXPECT_EQ(cell.list.candidates.size(), 1u);
  EXPECT_TRUE(tight.list.candidates.empty());
}

}  // namespace
}  // namespace torva
