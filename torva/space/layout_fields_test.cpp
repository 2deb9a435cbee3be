// The derived layout fields and the promises that the search structures rely on.
#include <gtest/gtest.h>

#include <random>

#include "torva/geometry/distance.h"
#include "torva/space/layout_fields.h"
#include "torva_testing/random_layout.h"

namespace torva {
namespace {

using testing::box;

double wall_distance(const cuboid_t& w, const point3& p) {
  double d = 1e300;
  for (int k = 0; k < 3; ++k) d = std::min({d, p[k].value - w.lower[k].value, w.upper[k].value - p[k].value});
  return d;
}

bool box_inside(const cuboid_t& inner, const cuboid_t& outer) {
  for (int k = 0; k < 3; ++k)
    if (inner.lower[k].value < outer.lower[k].value || inner.upper[k].value > outer.upper[k].value) return false;
  return true;
}

TEST(DeriveLayoutFields, ListsEveryBlockOnceInOrderAndCountsTheFamilies) {
  testing::layout_recipe recipe;
  recipe.blocks = 50;
  auto layout = testing::make_random_layout(recipe, 1);
  derive_layout_fields(*layout);
  derive_layout_fields(*layout);  // again: replaced, not appended
  const auto& blocks = layout->data.wire_blocks;
  ASSERT_EQ(layout->blocks.size(), blocks.size());
  int cuboids = 0;
  for (std::size_t i = 0; i < blocks.size(); ++i) {
    EXPECT_EQ(layout->blocks[i], &blocks[i]);
    cuboids += blocks[i].shape_kind == shape_cuboid;
  }
  EXPECT_EQ(layout->cuboid_size, cuboids);
  EXPECT_EQ(layout->prism_size, int(blocks.size()) - cuboids);
  EXPECT_GT(layout->prism_size, 0);
  EXPECT_GT(layout->cuboid_size, 0);
}

TEST(DeriveLayoutFields, TheMarginIsAShareOfTheLongestEdge) {
  auto layout = std::make_unique<circuit_layout>();
  layout->data.window = box(0, 0, 0, 200, 50, 10);
  testing::add_block(*layout, testing::cuboid_shape(box(1, 1, 1, 2, 2, 2)));
  derive_layout_fields(*layout);
  EXPECT_DOUBLE_EQ(layout->space_margin, 200 * 1e-4);
  derive_options options;
  options.margin_ratio = 0.01;
  derive_layout_fields(*layout, options);
  EXPECT_DOUBLE_EQ(layout->space_margin, 2.0);
  // Blocks beyond a window that is too small still set the scale.
  layout->data.window = box(0, 0, 0, 1, 1, 1);
  testing::add_block(*layout, testing::cuboid_shape(box(0, 0, 0, 500, 1, 1)));
  derive_layout_fields(*layout);
  EXPECT_DOUBLE_EQ(layout->space_margin, 500 * 1e-4);
}

TEST(DeriveLayoutFields, TheCriticalBoxLiesHalfwayBetweenBlocksAndWalls) {
  auto layout = std::make_unique<circuit_layout>();
  layout->data.window = box(0, 0, 0, 100, 100, 100);
  testing::add_block(*layout, testing::cuboid_shape(box(40, 40, 40, 50, 50, 50)));
  testing::add_block(*layout, testing::cylinder_shape(55, 55, 55, 5, 5));  // up to 60
  testing::add_block(*layout, testing::cuboid_shape(box(45, 0, 45, 46, 10, 46)));  // touches y = 0
  derive_layout_fields(*layout);
  const cuboid_t& c = layout->data.critical_box;
  EXPECT_DOUBLE_EQ(c.lower[0].value, 20);
  EXPECT_DOUBLE_EQ(c.upper[0].value, 80);
  EXPECT_DOUBLE_EQ(c.lower[1].value, 0);  // a block reaches the wall
  EXPECT_DOUBLE_EQ(c.upper[1].value, 80);
  EXPECT_DOUBLE_EQ(c.lower[2].value, 20);
  EXPECT_DOUBLE_EQ(c.upper[2].value, 80);
}

TEST(DeriveLayoutFields, OutsideTheCriticalBoxNoBlockIsNearerThanTheWall) {
  std::mt19937_64 rng(11);
  std::uniform_real_distribution<double> unit(0, 1);
  for (double spread : {0.1, 0.3, 0.6, 0.95}) {
    for (std::uint64_t seed = 0; seed < 6; ++seed) {
      testing::layout_recipe recipe;
      recipe.blocks = 25;
      recipe.spread = spread;
      auto layout = testing::make_random_layout(recipe, seed + 100);
      derive_layout_fields(*layout);
      const cuboid_t& c = layout->data.critical_box;
      const cuboid_t& w = layout->data.window;
      ASSERT_TRUE(box_inside(c, w));
      for (const wire_block& b : layout->data.wire_blocks) EXPECT_TRUE(box_inside(b.outer_box, c));
      int outside = 0;
      for (int i = 0; i < 3000; ++i) {
        point3 p;
        for (int k = 0; k < 3; ++k) p[k] = 100 * unit(rng);
        if (contains(c, p)) continue;
        ++outside;
        double nearest = 1e300;
        for (const wire_block& b : layout->data.wire_blocks)
          nearest = std::min(nearest, manhattan_distance(p, b).value);
        EXPECT_LE(wall_distance(w, p), nearest) << "spread " << spread << " seed " << seed;
      }
      if (spread < 0.5) {
        EXPECT_GT(outside, 0);
      }
    }
  }
}

TEST(DeriveLayoutFields, AnEmptyLayoutTakesTheWindowAsItsCriticalBox) {
  circuit_layout layout;
  layout.data.window = box(-1, -2, -3, 4, 5, 6);
  layout.crowding_ratio = 0.7;
  derive_layout_fields(layout);
  EXPECT_TRUE(layout.blocks.empty());
  EXPECT_EQ(layout.cuboid_size, 0);
  EXPECT_EQ(layout.prism_size, 0);
  EXPECT_EQ(layout.crowding_ratio, 0.0);
  EXPECT_FALSE(layout.coarse_grid);
  for (int k = 0; k < 3; ++k) {
    EXPECT_EQ(layout.data.critical_box.lower[k].value, layout.data.window.lower[k].value);
    EXPECT_EQ(layout.data.critical_box.upper[k].value, layout.data.window.upper[k].value);
  }
  EXPECT_DOUBLE_EQ(layout.space_margin, 9 * 1e-4);
}

TEST(DeriveLayoutFields, BlocksBeyondTheWindowLeaveTheCriticalBoxInsideIt) {
  auto layout = std::make_unique<circuit_layout>();
  layout->data.window = box(0, 0, 0, 10, 10, 10);
  testing::add_block(*layout, testing::cuboid_shape(box(12, 12, 12, 14, 14, 14)));
  derive_layout_fields(*layout);
  EXPECT_TRUE(box_inside(layout->data.critical_box, layout->data.window));
}

TEST(DeriveLayoutFields, CrowdingIsTheFilledShareOfTheBlocksBox) {
  auto one = std::make_unique<circuit_layout>();
  one->data.window = box(0, 0, 0, 100, 100, 100);
  testing::add_block(*one, testing::cuboid_shape(box(1, 1, 1, 3, 3, 3)));
  derive_layout_fields(*one);
  EXPECT_DOUBLE_EQ(one->crowding_ratio, 1.0);

  auto corners = std::make_unique<circuit_layout>();
  corners->data.window = box(0, 0, 0, 100, 100, 100);
  testing::add_block(*corners, testing::cuboid_shape(box(0, 0, 0, 1, 1, 1)));
  testing::add_block(*corners, testing::cuboid_shape(box(9, 9, 9, 10, 10, 10)));
  derive_layout_fields(*corners);
  EXPECT_DOUBLE_EQ(corners->crowding_ratio, 2.0 / 1000.0);

  auto stacked = std::make_unique<circuit_layout>();
  stacked->data.window = box(0, 0, 0, 100, 100, 100);
  for (int i = 0; i < 3; ++i) testing::add_block(*stacked, testing::cuboid_shape(box(0, 0, 0, 1, 1, 1)));
  derive_layout_fields(*stacked);
  EXPECT_DOUBLE_EQ(stacked->crowding_ratio, 1.0);  // overlaps are capped

  auto flat = std::make_unique<circuit_layout>();
  flat->data.window = box(0, 0, 0, 100, 100, 100);
  testing::add_block(*flat, testing::cuboid_shape(box(0, 0, 5, 10, 10, 5)));
  derive_layout_fields(*flat);
  EXPECT_EQ(flat->crowding_ratio, 0.0);  // no volume to fill

  testing::layout_recipe recipe;
  for (double spread : {0.2, 0.9}) {
    recipe.spread = spread;
    auto r = testing::make_random_layout(recipe, 4);
    derive_layout_fields(*r);
    EXPECT_GE(r->crowding_ratio, 0.0);
    EXPECT_LE(r->crowding_ratio, 1.0);
  }
}

TEST(DeriveLayoutFields, CoarseGridFromTheBlockCount) {
  testing::layout_recipe recipe;
  recipe.blocks = 30;
  auto layout = testing::make_random_layout(recipe, 2);
  derive_layout_fields(*layout);
  EXPECT_FALSE(layout->coarse_grid);
  derive_options options;
  options.coarse_grid_blocks = 30;
  derive_layout_fields(*layout, options);
  EXPECT_TRUE(layout->coarse_grid);
  options.coarse_grid_blocks = 31;
  derive_layout_fields(*layout, options);
  EXPECT_FALSE(layout->coarse_grid);
  options.coarse_grid_blocks = 0;
  derive_layout_fields(*layout, options);
  EXPECT_FALSE(layout->coarse_grid);
}

}  // namespace
}  // namespace torva
