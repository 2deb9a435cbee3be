// The facade: which pair each strategy value builds and logs, the automatic
// choice by the size and shape of the layout, and values beyond the table.
#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <string>

#include "torva/foundation/configure.h"
#include "torva/space/space_manager.h"
#include "torva_testing/log_capture.h"
#include "torva_testing/random_layout.h"

namespace torva {
namespace {

using testing::add_cuboid;
using testing::add_cylinder;
using testing::box;

// A row of n unit cuboids along x, one apart, in a window around them.
void row_of_cuboids(circuit_layout& layout, int n) {
  for (int i = 0; i < n; ++i) add_cuboid(layout, box(2.0 * i, 0, 0, 2.0 * i + 1, 1, 1));
  testing::set_window(layout, box(-1, -1, -1, 2.0 * n, 2, 2), 0.01);
}

template <class Pair>
bool holds(const space_manager& m) {
  return dynamic_cast<const Pair*>(m.get()) != nullptr;
}

std::size_t count_of(const std::string& text, const std::string& word) {
  std::size_t n = 0;
  for (std::size_t at = text.find(word); at != std::string::npos; at = text.find(word, at + 1)) ++n;
  return n;
}

TEST(SpaceManager, EachValueBuildsAndLogsItsPair) {
  circuit_layout layout;
  row_of_cuboids(layout, 3);
  const struct {
    std::uint32_t value;
    const char* line;
    bool (*check)(const space_manager&);
    std::size_t grids;
  } rows[] = {
      {0, "using simple-simple space manager\n", &holds<simple_simple_manager>, 0},
      {1, "using octree-octree space manager\n", &holds<octree_octree_manager>, 0},
      {2, "using hybrid-hybrid space manager\n", &holds<hybrid_hybrid_manager>, 2},
      {3, "using simple-none space manager\n", &holds<simple_none_manager>, 0},
      {4, "using octree-none space manager\n", &holds<octree_none_manager>, 0},
      {5, "using hybrid-none space manager\n", &holds<hybrid_none_manager>, 1},
      {6, "using hybrid-simple space manager\n", &holds<hybrid_simple_manager>, 1},
      {7, "using hybrid-grid space manager\n", &holds<hybrid_grid_manager>, 2},
      {8, "using hybrid-grid-nd space manager\n", &holds<hybrid_grid_nd_manager>, 2},
      {9, "using grid-none-nd space manager\n", &holds<grid_none_nd_manager>, 1},
  };
  for (const auto& r : rows) {
    SCOPED_TRACE(r.value);
    testing::log_capture log;
    configure config;
    config.spacemgr_type = r.value;
    space_manager manager;
    manager.initialize(config, layout);
    ASSERT_TRUE(manager);
    EXPECT_TRUE(r.check(manager));
    // The pair's line comes first, then the pair's own box line; each grid
    // logs its size once.
    const std::string& text = log.info();
    const std::string box_line = r.value == 9 ? "use boundary box.\n" : "Don't use critical box.\n";
    EXPECT_EQ(text.substr(0, std::string(r.line).size() + box_line.size()), r.line + box_line);
    EXPECT_EQ(count_of(text, "grid size: "), r.grids);
  }
}

TEST(SpaceManager, ValuesAboveTenDoNothingAndLeaveAHeldPair) {
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
  config.spacemgr_type = 4;
  manager.initialize(config, layout);
  const space_manager_interface* held = manager.get();
  log.clear();
  config.spacemgr_type = 11;
  manager.initialize(config, layout);
  EXPECT_EQ(manager.get(), held);
  EXPECT_EQ(log.info(), "");
  // A valid value replaces the pair.
  config.spacemgr_type = 9;
  manager.initialize(config, layout);
  EXPECT_TRUE(holds<grid_none_nd_manager>(manager));
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

// The choice reads cuboid_size, prism_size, the number of blocks,
// crowding_ratio, coarse_grid and the critical box; each row states them.
TEST(AutomaticChoice, ThresholdsOfTheRules) {
  static const circuit_layout* many = [] {
    auto* l = new circuit_layout;
    for (int i = 0; i < 10001; ++i) add_cuboid(*l, box(i, 0, 0, i + 0.5, 1, 1));
    return l;
  }();
  const cuboid_t cube_like = box(0, 0, 0, 10, 10, 10);
  const struct {
    std::int32_t cuboids, prisms;
    int blocks;
    double crowding;
    bool coarse;
    cuboid_t critical;
    std::uint32_t choice;
  } rows[] = {
      // Up to 49 blocks one list; 50 go on, in a cube-like box to hybrid-none.
      {40, 9, 49, 0, false, cube_like, 3},
      {41, 9, 50, 0, false, cube_like, 5},
      // With no cuboids 800 prisms pass rule 2 and take hybrid-grid; 801 the
      // plain grid. The limit is 50000 at most.
      {0, 800, 800, 0, false, cube_like, 7},
      {0, 801, 801, 0, false, cube_like, 9},
      {1000, 50000, 5000, 0, false, cube_like, 7},
      {1000, 50001, 5000, 0, false, cube_like, 9},
      // The arithmetic is 32-bit: 80 * (c + 10) wraps to -79200, below any prism count.
      {2147482648, 0, 100, 0, false, cube_like, 9},
      // Large, crowded (beyond 0.5 by more than the tolerance) or coarse: the plain grid.
      {10000, 0, 10000, 0, false, cube_like, 5},
      {10001, 0, 10001, 0, false, cube_like, 9},
      {100, 0, 100, 0.5, false, cube_like, 5},
      {100, 0, 100, 0.5 + 5e-11, false, cube_like, 5},
      {100, 0, 100, 0.5 + 2e-10, false, cube_like, 9},
      {100, 0, 100, 0, true, cube_like, 9},
      // Prisms beyond the cuboids take hybrid-grid.
      {100, 110, 210, 0, false, cube_like, 5},
      {100, 111, 211, 0, false, cube_like, 7},
      {20000, 10001, 10000, 0, false, cube_like, 7},
      // Below 200 blocks a box longer than 100 times its shortest edge takes one list.
      {100, 0, 100, 0, false, box(0, 0, 0, 1000, 5, 1), 3},
      {100, 0, 100, 0, false, box(0, 0, 0, 100, 5, 1), 5},
      {100, 0, 100, 0, false, box(0, 0, 0, 2, 100 + 2e-10, 1), 3},
      {200, 0, 200, 0, false, box(0, 0, 0, 1e6, 1, 1), 5},
  };
  for (const auto& r : rows) {
    circuit_layout layout;
    layout.blocks.assign(many->blocks.begin(), many->blocks.begin() + r.blocks);
    layout.cuboid_size = r.cuboids;
    layout.prism_size = r.prisms;
    layout.crowding_ratio = r.crowding;
    layout.coarse_grid = r.coarse;
    layout.data.critical_box = r.critical;
    EXPECT_EQ(automatic_spacemgr_type(layout), r.choice)
        << r.cuboids << " cuboids, " << r.prisms << " prisms, " << r.blocks << " blocks";
  }
}

}  // namespace
}  // namespace torva
