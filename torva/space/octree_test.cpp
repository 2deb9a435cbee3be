// The octree strategy: limits, root scope, splitting at the limits, the scope
// share of children, and the descent of locate.
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

using namespace torva::testing;

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

const cuboid_t space64 = box(0, 0, 0, 64, 64, 64);

// `count` small cubes in a row from (x, y, z), in a window of edge 64.
std::unique_ptr<circuit_layout> cluster(int count, double x = 10.3, double y = 20.7, double z = 30.1) {
  auto layout = std::make_unique<circuit_layout>();
  layout->data.window = space64;
  for (int i = 0; i < count; ++i) add_cuboid(*layout, box(x + 0.37 * i, y, z, x + 0.37 * i + 0.2, y + 0.2, z + 0.2));
  return layout;
}

// A root over space64 with the given bound, filled by hand with the layout's blocks.
template <class Limits>
void fill_root(octree_node<0>& root, const configure& config, double bound, const circuit_layout& layout) {
  root.list.initialize(config, make_cube(space64), bound);
  root.config = &config;
  Limits limits;
  limits.set(config.max_candidates, config.max_depth);
  for (wire_block const* b : layout.blocks) root.try_insert(b, limits);
  root.complete();
}

TEST(Thresholder, NegativeSettingsSelectTheTemplateDefaults) {
  thresholder<20, 12> t;
  t.set(-1, -5);
  EXPECT_EQ(t.count, 20);
  EXPECT_EQ(t.depth, 12);
  t.set(0, 0);
  EXPECT_EQ(t.count, 0);
  EXPECT_EQ(t.depth, 0);
}

TEST(OctreeSpacemgr, RootCubeAndScopeFollowTheDepthLimit) {
  circuit_layout layout;
  const cuboid_t space = box(-10, 0, 4, 54, 32, 12);  // longest edge 64, half 32
  const struct {
    int max_depth;
    double scope;
  } rows[] = {
      {-1, 32.0 / 32},  // the default 12: 2^(6 - 1)
      {12, 32.0 / 32}, {13, 32.0 / 32}, {5, 32.0 / 2}, {2, 32.0}, {3, 32.0},
      // 0 and 1 shift by a masked -1: the most negative 32-bit power.
      {0, 32.0 / double(std::numeric_limits<std::int32_t>::min())},
      {1, 32.0 / double(std::numeric_limits<std::int32_t>::min())},
  };
  for (const auto& r : rows) {
    SCOPED_TRACE(r.max_depth);
    configure config;
    config.max_depth = r.max_depth;
    octree_spacemgr<3> tree;
    tree.initialize(config, space, layout);
    EXPECT_DOUBLE_EQ(tree.root.list.scope_bound.value, r.scope);
    EXPECT_DOUBLE_EQ(tree.root.list.cube.half.value, 32.0);
    EXPECT_DOUBLE_EQ(tree.root.list.cube.center[0].value, 22.0);
    EXPECT_DOUBLE_EQ(tree.root.list.cube.center[1].value, 16.0);
    EXPECT_DOUBLE_EQ(tree.root.list.cube.center[2].value, 8.0);
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
    holding += tree.root.children[i].list.candidates.empty() ? 0 : 1;
  }
  EXPECT_GE(holding, 1);
}

TEST(OctreeNode, LeavesOfTheDepthLimitStillSplitAndTheirChildrenNever) {
  auto layout = cluster(40);
  for (int limit : {0, 1, 3, 5}) {
    configure config;
    config.max_candidates = 0;
    config.max_depth = limit;
    octree_node<0> root;
    fill_root<thresholder<20, 12>>(root, config, 64.0, *layout);
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
  fill_root<thresholder<20, 16>>(root, config, 40.0, *layout);
  int parents_at_6_or_deeper = 0;
  visit<0>(root, [&](const octree_node<0>& n) {
    if (!n.children) return;
    EXPECT_TRUE(n.list.candidates.empty());
    const double q = 0.5 * n.list.cube.half.value;
    const double expected_scope = n.list.scope_bound.value * (n.depth < 6 ? 0.8 : 0.5);
    parents_at_6_or_deeper += n.depth >= 6;
    for (int i = 0; i < 8; ++i) {
      const octree_node<0>& c = n.children[i];
      EXPECT_EQ(c.depth, n.depth + 1);
      EXPECT_DOUBLE_EQ(c.list.cube.half.value, n.list.cube.half.value - q);
      for (int axis = 0; axis < 3; ++axis)
        EXPECT_DOUBLE_EQ(c.list.cube.center[axis].value, n.list.cube.center[axis].value + ((i >> axis) & 1 ? q : -q));
      EXPECT_DOUBLE_EQ(c.list.scope_bound.value, expected_scope);
    }
  });
  EXPECT_GT(parents_at_6_or_deeper, 0);
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
  ASSERT_EQ(kids[0].children, nullptr);
  // Centre (32, 32, 32): just below the plane within the tolerance goes up.
  EXPECT_EQ(tree.root.locate(p3(32 - 1e-11, 10, 10)), &kids[1].list);
  EXPECT_EQ(tree.root.locate(p3(32 - 1e-9, 10, 10)), &kids[0].list);
  EXPECT_EQ(tree.root.locate(p3(32, 32, 32)), &kids[7].list);
  EXPECT_EQ(tree.root.locate(p3(10, 40, 10)), &kids[2].list);
  EXPECT_EQ(tree.root.locate(p3(10, 10, 40)), &kids[4].list);
  // Outside the root cube: a border leaf, no test.
  EXPECT_EQ(tree.root.locate(p3(-100, 100, -100)), &kids[2].list);
}

}  // namespace
}  // namespace torva
