// The facade: which pair each strategy value builds and logs, the automatic
// choice by the size and shape of the layout, and values beyond the table.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <limits>
#include <string>

#include "torva/foundation/configure.h"
#include "torva/space/internal/grid_test_layouts.h"
#include "torva/space/space_manager.h"
#include "torva_testing/log_capture.h"

namespace torva {
namespace {

using grid_testing::add_cuboid;
using grid_testing::add_cylinder;
using grid_testing::box;
using grid_testing::p3;
using grid_testing::set_window;

// A row of n unit cuboids along x, one apart, in a window around them.
void row_of_cuboids(circuit_layout& layout, int n) {
  for (int i = 0; i < n; ++i) add_cuboid(layout, box(2.0 * i, 0, 0, 2.0 * i + 1, 1, 1));
  set_window(layout, box(-1, -1, -1, 2.0 * n, 2, 2), 0.01);
}

template <class Pair>
bool holds(const space_manager& m) {
  return dynamic_cast<const Pair*>(m.get()) != nullptr;
}

TEST(SpaceManager, EachValueBuildsAndLogsItsPair) {
  circuit_layout layout;
  row_of_cuboids(layout, 3);
  add_cylinder(layout, 3, 4, 0.5, 0.5, 0.5);
  layout.data.window.upper[1] = 6.0;
  layout.data.critical_box = layout.data.window;
  struct row {
    std::uint32_t value;
    const char* line;
    bool (*check)(const space_manager&);
  };
  const row rows[] = {
      {0, "using simple-simple space manager\n", &holds<simple_simple_manager>},
      {1, "using octree-octree space manager\n", &holds<octree_octree_manager>},
      {2, "using hybrid-hybrid space manager\n", &holds<hybrid_hybrid_manager>},
      {3, "using simple-none space manager\n", &holds<simple_none_manager>},
      {4, "using octree-none space manager\n", &holds<octree_none_manager>},
      {5, "using hybrid-none space manager\n", &holds<hybrid_none_manager>},
      {6, "using hybrid-simple space manager\n", &holds<hybrid_simple_manager>},
      {7, "using hybrid-grid space manager\n", &holds<hybrid_grid_manager>},
      {8, "using hybrid-grid-nd space manager\n", &holds<hybrid_grid_nd_manager>},
      {9, "using grid-none-nd space manager\n", &holds<grid_none_nd_manager>},
  };
  for (const row& r : rows) {
    SCOPED_TRACE(r.value);
    testing::log_capture log;
    configure config;
    config.spacemgr_type = r.value;
    space_manager manager;
    manager.initialize(config, layout);
    ASSERT_TRUE(manager);
    EXPECT_TRUE(r.check(manager));
    // The pair's line comes first, then the pair's own box line.
    const std::string& text = log.info();
    EXPECT_EQ(text.substr(0, std::string(r.line).size()), r.line);
    const std::string box_line = r.value == 9 ? "use boundary box.\n" : "Don't use critical box.\n";
    EXPECT_EQ(text.substr(std::string(r.line).size(), box_line.size()), box_line);
    // Every pair finds the cylinder from a point just beside it.
    candidate_list_cache first, second;
    const nearest_result near = manager->nearest(p3(3, 4.51, 0.5), 10.0, first, second);
    EXPECT_EQ(near.block, layout.blocks.back());
    EXPECT_NEAR(near.distance.value, 0.01, 1e-12);
  }
}

TEST(SpaceManager, ThePlainGridAnswersOutsideItsSpaceByTheBoundaryBox) {
  testing::log_capture log;
  circuit_layout layout;
  row_of_cuboids(layout, 3);  // critical box (-1, -1, -1)-(6, 2, 2), margin 0.01
  layout.data.boundary = 2;   // taken also under a Neumann boundary
  configure config;
  config.spacemgr_type = 9;
  space_manager manager;
  manager.initialize(config, layout);
  const cuboid_t& space = manager->space();
  EXPECT_NEAR(space.lower[0].value, -1.2, 1e-12);
  EXPECT_NEAR(space.upper[0].value, 6.2, 1e-12);
  for (double limit : {10.0, 3.0}) {
    candidate_list_cache first, second;
    const nearest_result r = manager->nearest(p3(10, 0.5, 0.5), limit, first, second);
    EXPECT_EQ(r.block, nullptr);
    EXPECT_DOUBLE_EQ(r.distance.value, std::min(limit, 4.0));
    EXPECT_DOUBLE_EQ(r.reach.value, std::min(limit, 4.0));
  }
}

TEST(SpaceManager, TwoGridsLogTheirLinesTwice) {
  testing::log_capture log;
  circuit_layout layout;
  row_of_cuboids(layout, 3);
  configure config;
  config.spacemgr_type = 7;
  space_manager manager;
  manager.initialize(config, layout);
  const std::string& text = log.info();
  std::size_t count = 0;
  for (std::size_t at = text.find("grid size: "); at != std::string::npos; at = text.find("grid size: ", at + 1))
    ++count;
  EXPECT_EQ(count, 2u);
}

TEST(SpaceManager, AutomaticChoiceLogsSizesThenThePair) {
  testing::log_capture log;
  circuit_layout layout;
  row_of_cuboids(layout, 3);
  add_cylinder(layout, 1, 4, 0.5, 0.5, 0.5);
  configure config;
  config.spacemgr_type = 10;
  space_manager manager;
  manager.initialize(config, layout);
  EXPECT_TRUE(holds<simple_none_manager>(manager));
  const std::string expected = "prism size: 1, cuboid size: 3\nusing simple-none space manager\n";
  EXPECT_EQ(log.info().substr(0, expected.size()), expected);
}

TEST(SpaceManager, ValuesAboveTenDoNothing) {
  testing::log_capture log;
  circuit_layout layout;
  row_of_cuboids(layout, 3);
  configure config;
  space_manager manager;
  for (std::uint32_t value : {11u, 12u, std::numeric_limits<std::uint32_t>::max()}) {
    config.spacemgr_type = value;
    manager.initialize(config, layout);
    EXPECT_FALSE(manager);
  }
  EXPECT_EQ(log.info(), "");
  // A manager already held stays.
  config.spacemgr_type = 4;
  manager.initialize(config, layout);
  const space_manager_interface* held = manager.get();
  log.clear();
  config.spacemgr_type = 11;
  manager.initialize(config, layout);
  EXPECT_EQ(manager.get(), held);
  EXPECT_EQ(log.info(), "");
}

TEST(SpaceManager, InitializeAgainReplacesThePair) {
  testing::log_capture log;
  circuit_layout layout;
  row_of_cuboids(layout, 3);
  configure config;
  space_manager manager;
  config.spacemgr_type = 5;
  manager.initialize(config, layout);
  EXPECT_TRUE(holds<hybrid_none_manager>(manager));
  config.spacemgr_type = 9;
  manager.initialize(config, layout);
  EXPECT_TRUE(holds<grid_none_nd_manager>(manager));
}

// A layout that only states its counts: the choice reads cuboid_size,
// prism_size, the number of blocks, crowding_ratio, coarse_grid and the
// critical box.
struct counts {
  std::int32_t cuboids = 0;
  std::int32_t prisms = 0;
  int blocks = 0;
};

std::uint32_t choice(counts c, double crowding = 0.0, bool coarse = false,
                     cuboid_t critical = box(0, 0, 0, 10, 10, 10)) {
  static circuit_layout* shared = [] {
    auto* l = new circuit_layout;
    for (int i = 0; i < 10001; ++i) add_cuboid(*l, box(i, 0, 0, i + 0.5, 1, 1));
    return l;
  }();
  circuit_layout layout;
  layout.blocks.assign(shared->blocks.begin(), shared->blocks.begin() + c.blocks);
  layout.cuboid_size = c.cuboids;
  layout.prism_size = c.prisms;
  layout.crowding_ratio = crowding;
  layout.coarse_grid = coarse;
  layout.data.critical_box = critical;
  return automatic_spacemgr_type(layout);
}

TEST(AutomaticChoice, FewBlocksTakeOneList) {
  EXPECT_EQ(choice({40, 9, 49}), 3u);
  // 50 go on: with 50 blocks in a cube-like box, hybrid-none.
  EXPECT_EQ(choice({41, 9, 50}), 5u);
}

TEST(AutomaticChoice, ManyPrismsTakeThePlainGrid) {
  // c = 0: 800 prisms pass rule 2 and take hybrid-grid; 801 take grid-none-nd.
  EXPECT_EQ(choice({0, 800, 800}), 7u);
  EXPECT_EQ(choice({0, 801, 801}), 9u);
  // The limit is 50000 at most.
  EXPECT_EQ(choice({1000, 50000, 5000}), 7u);
  EXPECT_EQ(choice({1000, 50001, 5000}), 9u);
  // The arithmetic is 32-bit: 80 * (c + 10) wraps to -79200 here, below any
  // prism count.
  EXPECT_EQ(choice({2147482648, 0, 100}), 9u);
}

TEST(AutomaticChoice, LargeCrowdedOrCoarseLayoutsTakeThePlainGrid) {
  EXPECT_EQ(choice({10000, 0, 10000}), 5u);
  EXPECT_EQ(choice({10001, 0, 10001}), 9u);
  EXPECT_EQ(choice({100, 0, 100}, 0.5), 5u);  // exactly 0.5 does not count
  EXPECT_EQ(choice({100, 0, 100}, 0.5 + 2e-10), 9u);
  EXPECT_EQ(choice({100, 0, 100}, 0.0, true), 9u);
}

TEST(AutomaticChoice, PrismsBeyondTheCuboidsTakeHybridGrid) {
  EXPECT_EQ(choice({100, 110, 210}), 5u);
  EXPECT_EQ(choice({100, 111, 211}), 7u);
  EXPECT_EQ(choice({20000, 10001, 10000}), 7u);
}

TEST(AutomaticChoice, ALongThinBoxWithFewBlocksTakesOneList) {
  // 100 blocks: a box longer than 100 times its shortest edge takes simple-none.
  EXPECT_EQ(choice({100, 0, 100}, 0, false, box(0, 0, 0, 1000, 5, 1)), 3u);
  EXPECT_EQ(choice({100, 0, 100}, 0, false, box(0, 0, 0, 100, 5, 1)), 5u);
  EXPECT_EQ(choice({100, 0, 100}, 0, false, box(0, 0, 0, 2, 100 + 2e-10, 1)), 3u);
  // From 200 blocks on, hybrid-none whatever the box.
  EXPECT_EQ(choice({200, 0, 200}, 0, false, box(0, 0, 0, 1e6, 1, 1)), 5u);
}

}  // namespace
}  // namespace torva
