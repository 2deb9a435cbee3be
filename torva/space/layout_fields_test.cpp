// The derived layout fields. That no block outside the critical box is nearer
// than the wall is held on random layouts by nearest_oracle_test.cpp.
#include <gtest/gtest.h>

#include "torva/space/layout_fields.h"
#include "torva_testing/random_layout.h"

namespace torva {
namespace {

using namespace torva::testing;

bool box_inside(const cuboid_t& inner, const cuboid_t& outer) {
  for (int k = 0; k < 3; ++k)
    if (inner.lower[k].value < outer.lower[k].value || inner.upper[k].value > outer.upper[k].value) return false;
  return true;
}

TEST(DeriveLayoutFields, ListsEveryBlockOnceInOrderAndCountsTheFamilies) {
  auto layout = make_random_layout({.blocks = 50}, 1);
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

TEST(DeriveLayoutFields, TheMarginIsAShareOfTheLongestEdgeOfWindowOrBlocks) {
  circuit_layout layout;
  layout.data.window = box(0, 0, 0, 200, 50, 10);
  add_cuboid(layout, box(1, 1, 1, 2, 2, 2));
  derive_layout_fields(layout);
  EXPECT_DOUBLE_EQ(layout.space_margin, 200 * 1e-4);
  derive_options options;
  options.margin_ratio = 0.01;
  derive_layout_fields(layout, options);
  EXPECT_DOUBLE_EQ(layout.space_margin, 2.0);
  // Blocks beyond a window that is too small still set the scale, and the
  // critical box stays inside the window.
  layout.data.window = box(0, 0, 0, 1, 1, 1);
  add_cuboid(layout, box(0, 0, 0, 500, 1, 1));
  add_cuboid(layout, box(12, 12, 12, 14, 14, 14));
  derive_layout_fields(layout);
  EXPECT_DOUBLE_EQ(layout.space_margin, 500 * 1e-4);
  EXPECT_TRUE(box_inside(layout.data.critical_box, layout.data.window));
}

TEST(DeriveLayoutFields, TheCriticalBoxLiesHalfwayBetweenBlocksAndWalls) {
  circuit_layout layout;
  layout.data.window = box(0, 0, 0, 100, 100, 100);
  add_cuboid(layout, box(40, 40, 40, 50, 50, 50));
  add_cylinder(layout, 55, 55, 55, 5, 5);               // up to 60
  add_cuboid(layout, box(45, 0, 45, 46, 10, 46));       // touches y = 0
  derive_layout_fields(layout);
  const cuboid_t& c = layout.data.critical_box;
  EXPECT_DOUBLE_EQ(c.lower[0].value, 20);
  EXPECT_DOUBLE_EQ(c.upper[0].value, 80);
  EXPECT_DOUBLE_EQ(c.lower[1].value, 0);  // a block reaches the wall
  EXPECT_DOUBLE_EQ(c.upper[1].value, 80);
  EXPECT_DOUBLE_EQ(c.lower[2].value, 20);
  EXPECT_DOUBLE_EQ(c.upper[2].value, 80);
}

TEST(DeriveLayoutFields, AnEmptyLayoutTakesTheWindowAsItsCriticalBox) {
  circuit_layout layout;
  layout.data.window = box(-1, -2, -3, 4, 5, 6);
  layout.crowding_ratio = 0.7;
  derive_layout_fields(layout);
  EXPECT_TRUE(layout.blocks.empty());
  EXPECT_EQ(layout.cuboid_size + layout.prism_size, 0);
  EXPECT_EQ(layout.crowding_ratio, 0.0);
  for (int k = 0; k < 3; ++k) {
    EXPECT_EQ(layout.data.critical_box.lower[k].value, layout.data.window.lower[k].value);
    EXPECT_EQ(layout.data.critical_box.upper[k].value, layout.data.window.upper[k].value);
  }
  EXPECT_DOUBLE_EQ(layout.space_margin, 9 * 1e-4);
}

TEST(DeriveLayoutFields, CrowdingIsTheFilledShareOfTheBlocksBox) {
  const struct {
    std::vector<cuboid_t> blocks;
    double crowding;
  } rows[] = {
      {{box(1, 1, 1, 3, 3, 3)}, 1.0},
      {{box(0, 0, 0, 1, 1, 1), box(9, 9, 9, 10, 10, 10)}, 2.0 / 1000.0},
      {{box(0, 0, 0, 1, 1, 1), box(0, 0, 0, 1, 1, 1), box(0, 0, 0, 1, 1, 1)}, 1.0},  // overlaps are capped
      {{box(0, 0, 5, 10, 10, 5)}, 0.0},  // no volume to fill
  };
  for (const auto& r : rows) {
    circuit_layout layout;
    layout.data.window = box(0, 0, 0, 100, 100, 100);
    for (const cuboid_t& c : r.blocks) add_cuboid(layout, c);
    derive_layout_fields(layout);
    EXPECT_DOUBLE_EQ(layout.crowding_ratio, r.crowding);
  }
}

TEST(DeriveLayoutFields, CoarseGridFromTheBlockCount) {
  auto layout = make_random_layout({.blocks = 30}, 2);
  derive_layout_fields(*layout);
  EXPECT_FALSE(layout->coarse_grid);
  derive_options options;
  for (std::size_t threshold : {30u, 31u, 0u}) {
    options.coarse_grid_blocks = threshold;
    derive_layout_fields(*layout, options);
    EXPECT_EQ(layout->coarse_grid, threshold == 30) << threshold;
  }
}

}  // namespace
}  // namespace torva
