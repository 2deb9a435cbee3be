// The octree strategy: limits, root scope, splitting, the tree's shape after a
// build, and the descent of locate.
#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <limits>
#include <memory>

#include "torva/space/octree_node.h"
#include "torva/space/octree_spacemgr.h"
#include "torva/space/thresholder.h"
#include "torva_testing/random_layout.h"

namespace torva {
namespace {

using testing::box;

template <std::int64_t N>
void visit(const octree_node<N>& node, const std::function<void(const octree_node<N>&)>& f) {
  f(node);
  if (node.children)
    for (int i = 0; i < 8; ++i) visit(node.children[i], f);
}

template <std::int64_t N>
int deepest(const octree_node<N>& root) {
  int d = 0;
  visit<N>(root, [&d](const octree_node<N>& n) { d = std::max(d, int(n.depth)); });
  return d;
}

// A layout of `count` small cubes clustered about a point, in a window of edge 64.
std::unique_ptr<circuit_layout> cluster(int count, double x = 10.3, double y = 20.7, double z = 30.1) {
  auto layout = std::make_unique<circuit_layout>();
  layout->data.window = box(0, 0, 0, 64, 64, 64);
  for (int i = 0; i < count; ++i) {
    const double o = 0.37 * i;
    testing::add_block(*layout, testing::cuboid_shape(box(x + o, y, z, x + o + 0.2, y + 0.2, z + 0.2)));
  }
  for (const wire_block& b : layout->data.wire_blocks) layout->blocks.push_back(&b);
  return layout;
}

const cuboid_t space64 = box(0, 0, 0, 64, 64, 64);

TEST(Thresholder, NegativeSettingsSelectTheTemplateDefaults) {
  thresholder<20, 12> t;
  t.set(-1, -5);
  EXPECT_EQ(t.count, 20);
  EXPECT_EQ(t.depth, 12);
  t.set(0, 0);
  EXPECT_EQ(t.count, 0);
  EXPECT_EQ(t.depth, 0);
  thresholder<7, 10> u;
  u.set(-1, 3);
  EXPECT_EQ(u.count, 7);
  EXPECT_EQ(u.depth, 3);
}

TEST(OctreeSpacemgr, EmptyLayoutIsOneLeafThatAnswersEveryPoint) {
  circuit_layout layout;
  configure config;
  octree_spacemgr<0> tree;
  tree.initialize(config, space64, layout);
  EXPECT_EQ(tree.root.children, nullptr);
  EXPECT_TRUE(tree.root.list.candidates.empty());
  EXPECT_EQ(tree.root.list.kind, spacemgr_all);
  EXPECT_EQ(tree.find_list(point3{{1, 2, 3}}), &tree.root.list);
  EXPECT_EQ(tree.find_list(point3{{-500, 900, 3}}), &tree.root.list);
}

TEST(OctreeSpacemgr, RootCubeAndScopeFollowTheDepthLimit) {
  circuit_layout layout;
  const cuboid_t space = box(-10, 0, 4, 54, 32, 12);  // longest edge 64, half 32
  struct expectation {
    int max_depth;
    double scope;
  } cases[] = {
      {-1, 32.0 / 32},  // the default 12: 2^(6 - 1)
      {12, 32.0 / 32}, {13, 32.0 / 32}, {5, 32.0 / 2}, {2, 32.0}, {3, 32.0},
      // 0 and 1 shift by a masked -1: the most negative 32-bit power.
      {0, 32.0 / double(std::numeric_limits<std::int32_t>::min())},
      {1, 32.0 / double(std::numeric_limits<std::int32_t>::min())},
  };
  for (const expectation& e : cases) {
    configure config;
    config.max_depth = e.max_depth;
    octree_spacemgr<3> tree;
    tree.initialize(config, space, layout);
    EXPECT_DOUBLE_EQ(tree.root.list.scope_bound.value, e.scope) << "max_depth " << e.max_depth;
    EXPECT_DOUBLE_EQ(tree.root.list.cube.half.value, 32.0);
    EXPECT_DOUBLE_EQ(tree.root.list.cube.center[0].value, 22.0);
    EXPECT_DOUBLE_EQ(tree.root.list.cube.center[1].value, 16.0);
    EXPECT_DOUBLE_EQ(tree.root.list.cube.center[2].value, 8.0);
    EXPECT_EQ(tree.root.list.kind, spacemgr_cuboid);
    EXPECT_EQ(tree.root.config, &config);
    EXPECT_EQ(tree.threshold.depth, e.max_depth < 0 ? 12 : e.max_depth);
    EXPECT_EQ(tree.threshold.count, 20);
  }
}

TEST(OctreeNode, NoCandidatesAllowedSplitsOnTheFirstAcceptedBlockButDoesNotRecurse) {
  auto layout = cluster(1);
  configure config;
  config.max_candidates = 0;
  config.max_depth = 2;  // scope = half: every block of the window is in reach
  octree_spacemgr<0> tree;
  tree.initialize(config, space64, *layout);
  ASSERT_NE(tree.root.children, nullptr);
  EXPECT_TRUE(tree.root.list.candidates.empty());
  EXPECT_EQ(tree.root.list.candidates.capacity(), 0u);
  // The children got the candidate but were not split by the parent's split.
  int holding = 0;
  for (int i = 0; i < 8; ++i) {
    EXPECT_EQ(tree.root.children[i].children, nullptr);
    EXPECT_EQ(tree.root.children[i].depth, 1);
    holding += tree.root.children[i].list.candidates.empty() ? 0 : 1;
  }
  EXPECT_GE(holding, 1);
}

TEST(OctreeNode, LeavesOfTheDepthLimitStillSplitAndTheirChildrenNever) {
  for (int limit : {0, 1, 3, 5}) {
    auto layout = cluster(40);
    configure config;
    config.max_candidates = 0;
    config.max_depth = limit;
    octree_node<0> root;
    root.list.initialize(config, make_cube(space64), 64.0);
    root.config = &config;
    root.list.kind = spacemgr_all;
    thresholder<20, 12> limits;
    limits.set(config.max_candidates, config.max_depth);
    for (wire_block const* b : layout->blocks) root.try_insert(b, limits);
    root.complete();
    EXPECT_EQ(deepest(root), limit + 1) << "depth limit " << limit;
  }
}

TEST(OctreeNode, ChildrenTileTheParentAndTakeTheScopeShareByDepth) {
  auto layout = cluster(60);
  configure config;
  config.max_candidates = 1;
  config.max_depth = 9;
  config.octree_scope_ratio = 0.8;
  octree_node<0> root;
  root.list.initialize(config, make_cube(space64), 40.0);
  root.config = &config;
  thresholder<20, 16> limits;
  limits.set(config.max_candidates, config.max_depth);
  for (wire_block const* b : layout->blocks) root.try_insert(b, limits);
  root.complete();
  int parents_at_6_or_deeper = 0;
  visit<0>(root, [&](const octree_node<0>& n) {
    if (!n.children) return;
    EXPECT_TRUE(n.list.candidates.empty());
    const double q = 0.5 * n.list.cube.half.value;
    const double expected_scope = n.list.scope_bound.value * (n.depth < 6 ? 0.8 : 0.5);
    if (n.depth >= 6) ++parents_at_6_or_deeper;
    for (int i = 0; i < 8; ++i) {
      const octree_node<0>& c = n.children[i];
      EXPECT_EQ(c.depth, n.depth + 1);
      EXPECT_EQ(c.config, &config);
      EXPECT_EQ(c.list.kind, spacemgr_all);
      EXPECT_DOUBLE_EQ(c.list.cube.half.value, n.list.cube.half.value - q);
      for (int axis = 0; axis < 3; ++axis) {
        const double sign = (i >> axis) & 1 ? 1.0 : -1.0;
        EXPECT_DOUBLE_EQ(c.list.cube.center[axis].value, n.list.cube.center[axis].value + sign * q);
      }
      EXPECT_DOUBLE_EQ(c.list.scope_bound.value, expected_scope);
    }
  });
  EXPECT_GT(parents_at_6_or_deeper, 0);
}

TEST(OctreeNode, LeafListsAreSortedAndMarkTheirCuboids) {
  testing::layout_recipe recipe;
  recipe.blocks = 120;
  auto layout = testing::make_random_layout(recipe, 5);
  for (const wire_block& b : layout->data.wire_blocks) layout->blocks.push_back(&b);
  configure config;
  config.max_candidates = 3;
  config.double_incline_ratio = true;
  octree_spacemgr<0> tree;
  tree.initialize(config, layout->data.window, *layout);
  int leaves = 0;
  visit<0>(tree.root, [&](const octree_node<0>& n) {
    if (n.children) return;
    ++leaves;
    const auto& c = n.list.candidates;
    EXPECT_EQ(c.capacity(), c.size());
    for (std::size_t i = 0; i < c.size(); ++i) {
      const bool cuboid = c[i].block->shape_kind == shape_cuboid;
      EXPECT_EQ(c[i].is_cuboid, cuboid);
      EXPECT_EQ(c[i].in_tree_cuboid, cuboid);
      EXPECT_EQ(c[i].ratio, cuboid ? 1 : 2);
      const double d = manhattan_distance(n.list.cube.center, *c[i].block).value - n.list.cube.half.value;
      EXPECT_NEAR(c[i].distance.value, d, 1e-12);
      if (i > 0) {
        EXPECT_LE(c[i - 1].distance.value, c[i].distance.value + 1e-10);
      }
    }
  });
  EXPECT_GT(leaves, 8);
}

TEST(OctreeNode, ABlockBeyondANodesBoundIsNotOfferedToItsChildren) {
  configure config;
  config.max_candidates = 0;
  config.max_depth = 4;
  octree_node<0> root;
  root.list.initialize(config, make_cube(space64), 2.0);
  root.config = &config;
  thresholder<20, 12> limits;
  limits.set(config.max_candidates, config.max_depth);
  auto layout = cluster(1, 31, 31, 31);  // reaches into the root cube
  root.try_insert(layout->blocks[0], limits);
  ASSERT_NE(root.children, nullptr);
  // 2.5 beyond the root's cube: outside the bound of 2.
  testing::add_block(*layout, testing::cuboid_shape(box(66.5, 10, 10, 67, 11, 11)));
  root.try_insert(&layout->data.wire_blocks.back(), limits);
  visit<0>(root, [&](const octree_node<0>& n) {
    for (const auto& e : n.list.candidates) EXPECT_NE(e.block, &layout->data.wire_blocks.back());
  });
}

TEST(OctreeNode, AnotherFamilyTightensTheBoundAndIsNotStored) {
  auto layout = std::make_unique<circuit_layout>();
  testing::add_block(*layout, testing::cylinder_shape(30, 30, 30, 0.5, 0.5));
  configure config;
  octree_node<3> root;
  cube_t cube;
  cube.center = point3{{30, 30, 33}};
  cube.half = 1.0;  // the cylinder is 1.5 from this cube: every point of it is within 3.5
  root.list.initialize(config, cube, 10.0);
  root.config = &config;
  root.list.kind = spacemgr_cuboid;
  thresholder<20, 12> limits;
  root.try_insert(&layout->data.wire_blocks[0], limits);
  EXPECT_TRUE(root.list.candidates.empty());
  EXPECT_NEAR(root.list.bound.value, 3.5, 1e-12);
}

TEST(OctreeNode, LocateSendsPointsOnADividingPlaneUpward) {
  auto layout = cluster(30, 31, 31, 31);
  configure config;
  config.max_candidates = 0;
  config.max_depth = 0;  // the root splits once; its children, of depth 1, never do
  octree_spacemgr<0> tree;
  tree.initialize(config, space64, *layout);
  ASSERT_NE(tree.root.children, nullptr);
  const octree_node<0>* kids = tree.root.children.get();
  ASSERT_EQ(kids[0].children, nullptr);  // one level: the children are leaves here
  // Centre (32, 32, 32): just below the plane within the tolerance goes up.
  EXPECT_EQ(tree.root.locate(point3{{32 - 1e-11, 10, 10}}), &kids[1].list);
  EXPECT_EQ(tree.root.locate(point3{{32 - 1e-9, 10, 10}}), &kids[0].list);
  EXPECT_EQ(tree.root.locate(point3{{32, 32, 32}}), &kids[7].list);
  EXPECT_EQ(tree.root.locate(point3{{10, 40, 10}}), &kids[2].list);
  EXPECT_EQ(tree.root.locate(point3{{10, 10, 40}}), &kids[4].list);
  // Outside the root cube: a border leaf, no test.
  EXPECT_EQ(tree.root.locate(point3{{-100, 100, -100}}), &kids[2].list);
}

TEST(OctreeNode, DescentReachesTheLeafWhoseCubeHoldsThePoint) {
  testing::layout_recipe recipe;
  recipe.blocks = 200;
  recipe.spread = 0.5;
  auto layout = testing::make_random_layout(recipe, 9);
  for (const wire_block& b : layout->data.wire_blocks) layout->blocks.push_back(&b);
  configure config;
  config.max_candidates = 2;
  config.max_depth = 8;
  octree_spacemgr<0> tree;
  tree.initialize(config, layout->data.window, *layout);
  std::mt19937_64 rng(3);
  std::uniform_real_distribution<double> unit(0, 100);
  for (int i = 0; i < 2000; ++i) {
    const point3 p{{unit(rng), unit(rng), unit(rng)}};
    const candidate_list* l = tree.find_list(p);
    for (int axis = 0; axis < 3; ++axis) {
      EXPECT_LE(std::fabs(p[axis].value - l->cube.center[axis].value), l->cube.half.value + 1e-9);
    }
  }
  EXPECT_GE(deepest(tree.root), 3);
}

}  // namespace
}  // namespace torva
