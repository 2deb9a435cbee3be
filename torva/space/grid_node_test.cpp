// The flat grid cells: what an offer stores, and how a crowded cell halves
// the radius it vouches for.
#include <gtest/gtest.h>

#include <cstdint>

#include "torva/foundation/configure.h"
#include "torva/geometry/distance.h"
#include "torva/space/base_grid_node.h"
#include "torva/space/incline_node.h"
#include "torva/space/thresholder.h"
#include "torva_testing/random_layout.h"

namespace torva {
namespace {

using testing::add_cuboid;
using testing::add_cylinder;
using testing::box;
using testing::p3;

// The unit cell centred at the origin (half 0.5) with the given scope.
template <class Node>
Node make_cell(const configure& config, double scope) {
  Node node;
  node.setup(config, cube_t{p3(0, 0, 0), 0.5}, scope);
  return node;
}

// Offers the block with a candidate limit of `count` and a depth limit of Depth.
template <int Depth = 16, class Node>
void offer(Node& node, const wire_block* b, int count) {
  thresholder<20, Depth> limits;
  limits.count = count;
  node.try_insert(b, limits);
}

configure decreasing() {
  configure config;
  config.decrease_enabled = true;
  return config;
}

TEST(FlatCell, StoresByTheOuterBoxWithTheRatioAndKeepsCuboidsOutOfInclineCells) {
  circuit_layout layout;
  configure config = decreasing();
  // A cylinder of radius 1 whose outer box corner is 0.5 from the cell in x
  // and y: box distance 0.5, exact distance larger.
  const wire_block* cyl = add_cylinder(layout, 2.0, 2.0, 0.0, 1.0, 0.5);
  ASSERT_GT(manhattan_distance(p3(0, 0, 0), *cyl).value - 0.5, 0.5);
  for (bool doubled : {false, true}) {
    config.double_incline_ratio = doubled;
    auto cell = make_cell<base_grid_node<5>>(config, 2.0);
    offer<10>(cell, cyl, 20);
    ASSERT_EQ(cell.list.candidates.size(), 1u);
    EXPECT_DOUBLE_EQ(cell.list.candidates[0].distance.value, 0.5);
    EXPECT_EQ(cell.list.candidates[0].ratio, doubled ? 2 : 1);
  }
  // A cuboid reaching into the cell: the plain cell takes it; incline cells
  // do not even tighten their bound by it, nor halve.
  const wire_block* inside = add_cuboid(layout, box(-0.2, -0.2, -0.2, 0.2, 0.2, 0.2));
  auto plain = make_cell<base_grid_node<5>>(config, 2.0);
  auto one = make_cell<incline_node<1>>(config, 2.0);
  auto two = make_cell<incline_node<2>>(config, 2.0);
  offer(plain, inside, 0);
  offer(one, inside, 0);
  offer(two, inside, 0);
  ASSERT_EQ(plain.list.candidates.size(), 1u);
  EXPECT_DOUBLE_EQ(plain.list.candidates[0].distance.value, -0.7);
  EXPECT_TRUE(one.list.candidates.empty() && two.list.candidates.empty());
  EXPECT_DOUBLE_EQ(one.list.bound.value, 2.0);
  EXPECT_EQ(one.level, 0);
}

TEST(FlatCell, WithoutDecreaseTheListHasNoLimit) {
  circuit_layout layout;
  auto cell = make_cell<incline_node<2>>(configure{}, 10.0);
  for (int i = 0; i < 30; ++i) offer(cell, add_cylinder(layout, 1.0 + 0.25 * i, 0.0, 0.0, 0.1, 0.1), 20);
  EXPECT_EQ(cell.list.candidates.size(), 30u);
  EXPECT_EQ(cell.level, 0);
  EXPECT_DOUBLE_EQ(cell.list.scope_bound.value, 10.0);
}

TEST(FlatCell, ZeroLimitHalvesUntilTheDepthLimitOrAnEmptyList) {
  circuit_layout layout;
  const configure config = decreasing();
  // A cylinder reaching into the cell survives every halving.
  const wire_block* in = add_cylinder(layout, 0.4, 0.0, 0.0, 0.2, 0.2);
  auto cell = make_cell<incline_node<2>>(config, 1.0);
  offer(cell, in, 0);
  EXPECT_EQ(cell.level, 16);
  EXPECT_DOUBLE_EQ(cell.list.scope_bound.value, 1.0 / 65536.0);
  EXPECT_DOUBLE_EQ(cell.list.bound.value, 1.0);  // the bound is left alone
  ASSERT_EQ(cell.list.candidates.size(), 1u);
  // At the depth limit the cell takes all it is offered.
  offer(cell, add_cylinder(layout, 1.0, 0.0, 0.0, 0.05, 0.05), 0);
  EXPECT_EQ(cell.level, 16);
  EXPECT_EQ(cell.list.candidates.size(), 2u);

  // The plain grid's default of 10 halvings: a 1024th of the scope at most.
  auto plain = make_cell<base_grid_node<5>>(config, 1.0);
  offer<10>(plain, in, 0);
  EXPECT_EQ(plain.level, 10);
  EXPECT_DOUBLE_EQ(plain.list.scope_bound.value, 1.0 / 1024.0);

  // Exact gap from the cell 0.3: kept at scope 0.5, dropped at 0.25, and the
  // halving stops with the list empty.
  auto emptied = make_cell<incline_node<2>>(config, 1.0);
  offer(emptied, add_cylinder(layout, 1.0, 0.0, 0.0, 0.2, 0.2), 0);
  EXPECT_EQ(emptied.level, 2);
  EXPECT_DOUBLE_EQ(emptied.list.scope_bound.value, 0.25);
  EXPECT_TRUE(emptied.list.candidates.empty());
  EXPECT_EQ(emptied.list.candidates.capacity(), 0u);
}

TEST(FlatCell, DecreaseThinsByTheExactSolidAndKeepsBoxDistances) {
  circuit_layout layout;
  auto cell = make_cell<base_grid_node<5>>(decreasing(), 4.0);
  // Box 1 away but exact distance about 1.83 (a diagonal cylinder), and two
  // blocks close by. The third offer crowds the cell: scope 4 -> 2 keeps all
  // three, and -> 1 drops the cylinder.
  const wire_block* diag = add_cylinder(layout, 2.5, 2.5, 0.0, 1.0, 0.5);
  const wire_block* a = add_cuboid(layout, box(0.6, -0.1, -0.1, 0.7, 0.1, 0.1));
  const wire_block* b = add_cuboid(layout, box(-0.1, 0.7, -0.1, 0.1, 0.8, 0.1));
  for (auto* x : {diag, a, b}) offer<10>(cell, x, 2);
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
  offer<10>(cell, late, 2);
  ASSERT_EQ(cell.list.candidates.size(), 3u);
  EXPECT_EQ(cell.list.candidates[2].block, late);
}

TEST(FlatCell, CompleteDropsANonCuboidWhoseSolidIsOutOfReach) {
  circuit_layout layout;
  // Outer box 0.5 from the cell, exact solid about 0.79 away: kept with a
  // scope of 1, stored by its box with a scope of 0.75 and dropped at the end.
  const wire_block* diag = add_cylinder(layout, 2.0, 2.0, 0.0, 1.0, 0.5);
  auto cell = make_cell<base_grid_node<5>>(configure{}, 1.0);
  auto tight = make_cell<base_grid_node<5>>(configure{}, 0.75);
  offer<10>(cell, diag, 20);
  offer<10>(tight, diag, 20);
  ASSERT_EQ(tight.list.candidates.size(), 1u);  // stays until complete
  cell.complete();
  tight.complete();
  EXPECT_EQ(cell.list.candidates.size(), 1u);
  EXPECT_TRUE(tight.list.candidates.empty());
}

}  // namespace
}  // namespace torva
