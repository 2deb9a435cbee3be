// The one-list strategy and the empty second strategy.
#include <gtest/gtest.h>

#include <memory>

#include "torva/space/candidate_list_cache.h"
#include "torva/space/simple_spacemgr.h"
#include "torva/space/unused_spacemgr.h"
#include "torva_testing/random_layout.h"

namespace torva {
namespace {

using testing::box;

// Window [0, 40] x [0, 20] x [0, 10]: its cube has centre (20, 10, 5) and half 20.
std::unique_ptr<circuit_layout> mixed_layout() {
  auto layout = std::make_unique<circuit_layout>();
  layout->data.window = box(0, 0, 0, 40, 20, 10);
  testing::add_block(*layout, testing::cuboid_shape(box(1, 1, 1, 2, 2, 2)));       // inside
  testing::add_block(*layout, testing::cylinder_shape(30, 10, 5, 1, 1));         // inside
  testing::add_block(*layout, testing::cuboid_shape(box(60, 0, 0, 61, 1, 1)));    // touches x = 60 from outside
  testing::add_block(*layout, testing::cuboid_shape(box(20, 10, 24, 21, 11, 25)));  // above the window, inside the cube
  testing::add_block(*layout, testing::cuboid_shape(box(100, 100, 100, 101, 101, 101)));  // far away
  testing::add_block(*layout, testing::prism_shape({point2{{4, 14}}, point2{{6, 14.5}}, point2{{5.5, 16}}, point2{{4.2, 15.5}}}, 2, 3));
  for (const wire_block& b : layout->data.wire_blocks) layout->blocks.push_back(&b);
  return layout;
}

TEST(SimpleSpacemgr, OneListOverTheCubeOfTheSpaceWithScopeZero) {
  auto layout = mixed_layout();
  configure config;
  simple_spacemgr<0> all;
  all.initialize(config, layout->data.window, *layout);
  EXPECT_EQ(all.kind, spacemgr_all);
  EXPECT_DOUBLE_EQ(all.scope_bound.value, 0.0);
  EXPECT_DOUBLE_EQ(all.cube.half.value, 20.0);
  EXPECT_DOUBLE_EQ(all.cube.center[0].value, 20.0);
  EXPECT_DOUBLE_EQ(all.cube.center[1].value, 10.0);
  EXPECT_DOUBLE_EQ(all.cube.center[2].value, 5.0);
  // Blocks that reach into the cube by more than the tolerance, and no others.
  std::vector<const wire_block*> kept;
  for (const auto& e : all.candidates) {
    kept.push_back(e.block);
    EXPECT_FALSE(e.in_tree_cuboid);
    EXPECT_EQ(e.is_cuboid, e.block->shape_kind == shape_cuboid);
    EXPECT_EQ(e.ratio, 1);
    EXPECT_LT(e.distance.value, 0.0);
  }
  const auto& blocks = layout->data.wire_blocks;
  for (std::size_t i : {0u, 1u, 3u, 5u})
    EXPECT_NE(std::find(kept.begin(), kept.end(), &blocks[i]), kept.end()) << "block " << i;
  for (std::size_t i : {2u, 4u})
    EXPECT_EQ(std::find(kept.begin(), kept.end(), &blocks[i]), kept.end()) << "block " << i;
  EXPECT_EQ(all.find_list(point3{{1, 2, 3}}), &all);
  EXPECT_EQ(all.find_list(point3{{-1e6, 0, 0}}), &all);
}

TEST(SimpleSpacemgr, APairSplitsTheFamiliesAndDoubleRatioMarksNonCuboids) {
  auto layout = mixed_layout();
  configure config;
  config.double_incline_ratio = true;
  simple_spacemgr<3> cuboids;
  simple_spacemgr<1> others;
  cuboids.initialize(config, layout->data.window, *layout);
  others.initialize(config, layout->data.window, *layout);
  EXPECT_EQ(cuboids.kind, spacemgr_cuboid);
  EXPECT_EQ(others.kind, spacemgr_incline);
  ASSERT_FALSE(cuboids.candidates.empty());
  ASSERT_FALSE(others.candidates.empty());
  for (const auto& e : cuboids.candidates) {
    EXPECT_TRUE(e.is_cuboid);
    EXPECT_EQ(e.ratio, 1);
  }
  for (const auto& e : others.candidates) {
    EXPECT_FALSE(e.is_cuboid);
    EXPECT_EQ(e.ratio, 2);
  }
}

TEST(SimpleSpacemgr, APointInsideTheCubeIsAnsweredUpToItsDistanceFromTheCubeWall) {
  circuit_layout layout;  // no blocks
  layout.data.window = box(0, 0, 0, 10, 10, 10);
  configure config;
  simple_spacemgr<0> s;
  s.initialize(config, layout.data.window, layout);
  candidate_list_cache cache;
  cache.list = s.find_list(point3{{2, 5, 5}});
  EXPECT_DOUBLE_EQ(cache.get_scope(point3{{2, 5, 5}}).value, 2.0);
  const nearest_result r = cache.nearest(point3{{2, 5, 5}}, 1e9);
  EXPECT_EQ(r.block, nullptr);
  EXPECT_DOUBLE_EQ(r.distance.value, 2.0);
}

TEST(UnusedSpacemgr, HoldsAnEmptyListOfKindNoneWhoseAnswerNeverWins) {
  auto layout = mixed_layout();
  configure config;
  unused_spacemgr u;
  u.initialize(config, layout->data.window, *layout);
  EXPECT_EQ(u.list.kind, spacemgr_none);
  EXPECT_TRUE(u.list.candidates.empty());
  EXPECT_EQ(u.find_list(point3{{1, 1, 1}}), &u.list);
  EXPECT_EQ(u.find_list(point3{{-7, 100, 1}}), &u.list);
  candidate_list_cache cache;
  cache.list = u.find_list(point3{{1, 1, 1}});
  EXPECT_TRUE(cache.match(point3{{1000, 1, 1}}));
  const nearest_result r = cache.nearest(point3{{1.5, 1.5, 1.5}}, 0.5);
  EXPECT_EQ(r.block, nullptr);
  EXPECT_DOUBLE_EQ(r.distance.value, 1e9);
}

}  // namespace
}  // namespace torva
