// The uniform grid: sizing for each cell type, the index ranges of blocks and
// points, which cells a block is offered to, the log lines, and the choice
// between the single-thread and the threaded build.
#include <gtest/gtest.h>

#include <cstdint>
#include <string>

#include "torva/foundation/configure.h"
#include "torva/space/base_grid.h"
#include "torva/space/base_grid_node.h"
#include "torva/space/basic_grid_spacemgr.h"
#include "torva/space/incline_node.h"
#include "torva/space/internal/grid_test_layouts.h"
#include "torva/space/octree_node.h"
#include "torva_testing/log_capture.h"

namespace torva {
namespace {

using grid_testing::add_cuboid;
using grid_testing::add_cylinder;
using grid_testing::box;
using grid_testing::p3;

using plain_grid = basic_grid_spacemgr<base_grid_node<5>, 20, 10>;
using incline_grid = basic_grid_spacemgr<incline_node<1>, 20, 16>;
using hybrid_grid = basic_grid_spacemgr<octree_node<3>, 20, 16>;

// The text of the first `lines` lines that a grid logs on the info channel.
std::string head(const std::string& text, int lines) {
  std::size_t at = 0;
  for (int i = 0; i < lines && at != std::string::npos; ++i) {
    at = text.find('\n', at);
    if (at != std::string::npos) ++at;
  }
  return text.substr(0, at);
}

TEST(GridSizing, PlainGridLogsItsSpaceLengthScopeAndSize) {
  testing::log_capture log;
  circuit_layout layout;
  layout.space_margin = 0.25;  // 20 * m = 5 beats the million-cell length 0.1
  layout.crowding_ratio = 1.5;
  configure config;
  auto grid = std::make_unique<plain_grid>();
  grid->initialize(config, box(0, 0, 0, 10, 10, 10), layout);
  EXPECT_EQ(log.info(),
            "spacemgr space: (0.000000000000, 0.000000000000, 0.000000000000):"
            "(10.000000000000, 10.000000000000, 10.000000000000), xlen: 10.000000000000, "
            "ylen: 10.000000000000, zlen: 10.000000000000\n"
            "grid length: 5.000000000000\n"
            "grid scope: 2.000000000000\n"
            "grid size: 8\n"
            "single thread space management starts.\n");
  EXPECT_EQ(grid->count_x, 2u);
  EXPECT_EQ(grid->cell_count, 8u);
  EXPECT_EQ(grid->threshold.count, 20);
  EXPECT_EQ(grid->threshold.depth, 10);
  // Every cell starts with the grid's scope and its own cube, z fastest.
  const cube_t last = grid->nodes[7].list.cube;
  EXPECT_DOUBLE_EQ(last.center[0].value, 7.5);
  EXPECT_DOUBLE_EQ(last.half.value, 2.5);
  EXPECT_DOUBLE_EQ(grid->nodes[1].list.cube.center[2].value, 7.5);
  EXPECT_DOUBLE_EQ(grid->nodes[1].list.cube.center[0].value, 2.5);
  for (std::uint64_t c = 0; c < grid->cell_count; ++c) {
    EXPECT_DOUBLE_EQ(grid->nodes[c].list.scope_bound.value, 2.0);
    EXPECT_EQ(grid->nodes[c].list.kind, spacemgr_all_nd);
  }
}

TEST(GridSizing, PlainGridAimsAtAMillionCells) {
  testing::log_capture log;
  circuit_layout layout;
  configure config;
  config.max_candidates = 7;
  config.max_depth = 0;
  auto grid = std::make_unique<plain_grid>();
  grid->initialize(config, box(0, 0, 0, 200, 100, 50), layout);
  EXPECT_NEAR(grid->length.value, 1.0, 1e-12);
  EXPECT_EQ(grid->count_x * grid->count_y * grid->count_z, 1000000u);
  EXPECT_EQ(grid->threshold.count, 7);  // zero and above are taken as they are
  EXPECT_EQ(grid->threshold.depth, 0);
}

TEST(GridSizing, PadCentresTheGridAndAnExactMultipleHasNone) {
  testing::log_capture log;
  circuit_layout layout;
  layout.space_margin = 0.25;
  configure config;
  auto grid = std::make_unique<plain_grid>();
  grid->initialize(config, box(0, 0, 0, 10, 7, 5), layout);
  EXPECT_EQ(grid->count_x, 2u);
  EXPECT_EQ(grid->count_y, 2u);
  EXPECT_EQ(grid->count_z, 1u);
  EXPECT_DOUBLE_EQ(grid->bounds.lower[0].value, 0.0);
  EXPECT_DOUBLE_EQ(grid->bounds.upper[0].value, 10.0);
  EXPECT_DOUBLE_EQ(grid->bounds.lower[1].value, -1.5);
  EXPECT_DOUBLE_EQ(grid->bounds.upper[1].value, 8.5);
  EXPECT_DOUBLE_EQ(grid->bounds.lower[2].value, 0.0);
  EXPECT_DOUBLE_EQ(grid->bounds.upper[2].value, 5.0);
}

TEST(GridSizing, HybridDivisorFollowsTheTruncatedHalfDepth) {
  circuit_layout layout;
  struct expectation {
    int max_depth;
    double length;
    std::uint64_t cells_x;
  };
  for (auto [depth, length, cells] : {expectation{16, 1.0, 256}, expectation{15, 2.0, 128},
                                      expectation{-1, 1.0, 256}, expectation{3, 128.0, 2}}) {
    testing::log_capture log;
    configure config;
    config.max_depth = depth;
    auto grid = std::make_unique<hybrid_grid>();
    grid->initialize(config, box(0, 0, 0, 256, 256, 1), layout);
    EXPECT_DOUBLE_EQ(grid->length.value, length) << depth;
    EXPECT_EQ(grid->count_x, cells) << depth;
    EXPECT_EQ(grid->count_z, 1u) << depth;
    EXPECT_NE(log.info().find("grid scope: " + std::to_string(length).substr(0, 5)), std::string::npos);
    EXPECT_EQ(grid->threshold.depth, depth < 0 ? 16 : depth);
    EXPECT_EQ(grid->nodes[0].list.kind, spacemgr_cuboid);
    EXPECT_EQ(grid->nodes[0].depth, 0);
    EXPECT_EQ(grid->nodes[0].config, &config);
  }
}

TEST(GridSizing, HybridKeepsAtMostTwoLayersAlongTheShortestEdge) {
  testing::log_capture log;
  circuit_layout layout;
  configure config;
  auto grid = std::make_unique<hybrid_grid>();
  grid->initialize(config, box(0, 0, 0, 100, 100, 10), layout);
  // 100 / 256 is below 0.51 * 10, so the length is 5.1 and the scope stays.
  EXPECT_DOUBLE_EQ(grid->length.value, 5.1);
  EXPECT_EQ(grid->count_z, 2u);
  EXPECT_EQ(grid->count_x, 20u);
  EXPECT_NE(log.info().find("grid scope: 0.390625000000\n"), std::string::npos);
  EXPECT_DOUBLE_EQ(grid->nodes[0].list.scope_bound.value, 0.390625);
}

TEST(GridSizing, InclineGridIgnoresTheDepthAndReadsItsOwnLimits) {
  testing::log_capture log;
  circuit_layout layout;
  configure config;
  config.max_depth = 2;
  config.max_candidates = 3;
  config.incline_max_candidates = 5;
  auto grid = std::make_unique<incline_grid>();
  grid->initialize(config, box(0, 0, 0, 64, 32, 16), layout);
  EXPECT_DOUBLE_EQ(grid->length.value, 2.0);
  EXPECT_EQ(grid->count_x, 32u);
  EXPECT_EQ(grid->count_y, 16u);
  EXPECT_EQ(grid->count_z, 8u);
  EXPECT_EQ(grid->threshold.count, 5);
  EXPECT_EQ(grid->threshold.depth, 16);
  EXPECT_NE(log.info().find("grid scope: 2.000000000000\n"), std::string::npos);
  // A near cube: the shortest edge's share wins when it is the larger.
  auto flat = std::make_unique<incline_grid>();
  flat->initialize(config, box(0, 0, 0, 64, 64, 63.999), layout);
  EXPECT_DOUBLE_EQ(flat->length.value, 63.999 * 0.031251);
}

TEST(GridSizing, CoarseGridRaisesLengthAndScopeByTheMargin) {
  testing::log_capture log;
  circuit_layout layout;
  layout.coarse_grid = true;
  layout.space_margin = 1.0;
  configure config;
  auto incline = std::make_unique<incline_grid>();
  incline->initialize(config, box(0, 0, 0, 64, 32, 16), layout);
  EXPECT_DOUBLE_EQ(incline->length.value, 20.0);
  EXPECT_DOUBLE_EQ(incline->nodes[0].list.scope_bound.value, 8.0);
  EXPECT_EQ(incline->cell_count, 4u * 2u * 1u);
  // A scope already above 8 * m stays.
  auto plain = std::make_unique<plain_grid>();
  plain->initialize(config, box(0, 0, 0, 40, 40, 40), layout);
  EXPECT_DOUBLE_EQ(plain->length.value, 20.0);
  EXPECT_DOUBLE_EQ(plain->nodes[0].list.scope_bound.value, 20.0);
}

// A grid of 10 x 10 x 10 unit cells over [0, 10]^3, set by hand.
base_grid<base_grid_node<5>> unit_grid() {
  base_grid<base_grid_node<5>> g;
  g.length = 1.0;
  g.count_x = g.count_y = g.count_z = 10;
  g.cell_count = 1000;
  g.bounds = box(0, 0, 0, 10, 10, 10);
  g.nodes = make_cell_array<base_grid_node<5>>(1000);
  return g;
}

TEST(GridIndex, RangesAreClampedToTheGrid) {
  const auto g = unit_grid();
  const auto lo = g.lower_bound(p3(-5, 3.5, 20), 1.0);
  const auto hi = g.upper_bound(p3(-5, 3.5, 20), 1.0);
  EXPECT_EQ(lo[0], 0u);
  EXPECT_EQ(lo[1], 2u);
  EXPECT_EQ(lo[2], 10u);
  EXPECT_EQ(hi[0], 0u);
  EXPECT_EQ(hi[1], 5u);
  EXPECT_EQ(hi[2], 10u);
  // An exact cell boundary: the ceiling does not round up.
  EXPECT_EQ(g.upper_bound(p3(3, 3, 3), 1.0)[0], 4u);
  EXPECT_EQ(g.lower_bound(p3(3, 3, 3), 1.0)[0], 2u);
  // Not-a-number and infinities give a range, never a fault.
  const double nan = std::nan("");
  EXPECT_EQ(g.lower_bound(p3(nan, 1e300, -1e300), 1.0)[1], 10u);
  EXPECT_EQ(g.upper_bound(p3(nan, 1e300, -1e300), 1.0)[2], 0u);
}

TEST(GridIndex, PointsBelowTheLowSideLandInTheLastCell) {
  const auto g = unit_grid();
  auto index = [](std::uint64_t i, std::uint64_t j, std::uint64_t k) { return (i * 10 + j) * 10 + k; };
  EXPECT_EQ(g.cell_of(p3(0, 0, 0)), 0u);
  EXPECT_EQ(g.cell_of(p3(2.5, 3.5, 4.5)), index(2, 3, 4));
  EXPECT_EQ(g.cell_of(p3(-0.5, 5.5, 10.5)), index(9, 5, 9));
  EXPECT_EQ(g.cell_of(p3(-1e-11, 0, 0)), index(9, 0, 0));  // just below: the far end
  EXPECT_EQ(g.cell_of(p3(1e9, -1e9, 10)), index(9, 9, 9));
  EXPECT_EQ(g.cell_of(p3(std::nan(""), 1, 1)), index(9, 1, 1));
  EXPECT_EQ(g.locate_cell(p3(2.5, 3.5, 4.5)), &g.nodes[index(2, 3, 4)].list);
}

// Which cells hold the block in a grid of 2 x 2 x 2 cells of 5 over [0, 10]^3
// with scope 2.
std::vector<std::uint64_t> cells_holding(const plain_grid& grid, const wire_block* b) {
  std::vector<std::uint64_t> cells;
  for (std::uint64_t c = 0; c < grid.cell_count; ++c)
    for (const auto& e : grid.nodes[c].list.candidates)
      if (e.block == b) cells.push_back(c);
  return cells;
}

TEST(GridBuild, BlocksGoToTheCellsOfTheirRange) {
  testing::log_capture log;
  circuit_layout layout;
  layout.space_margin = 0.25;
  layout.crowding_ratio = 1.5;
  const wire_block* corner = add_cuboid(layout, box(0, 0, 0, 1, 1, 1));
  const wire_block* large = add_cuboid(layout, box(1, 1, 1, 6, 9, 9));
  const wire_block* beyond = add_cuboid(layout, box(12.5, 1, 1, 13, 2, 2));  // 2.5 past the far side
  const wire_block* within = add_cylinder(layout, 11.5, 1.5, 1.5, 0.4, 0.4);  // 1.1 past it
  configure config;
  auto grid = std::make_unique<plain_grid>();
  grid->initialize(config, box(0, 0, 0, 10, 10, 10), layout);
  EXPECT_EQ(cells_holding(*grid, corner), (std::vector<std::uint64_t>{0}));
  EXPECT_EQ(cells_holding(*grid, large), (std::vector<std::uint64_t>{0, 1, 2, 3, 4, 5, 6, 7}));
  EXPECT_TRUE(cells_holding(*grid, beyond).empty());
  EXPECT_EQ(cells_holding(*grid, within), (std::vector<std::uint64_t>{4}));
  // Lists are complete: sorted by distance.
  const auto& first = grid->nodes[0].list.candidates;
  ASSERT_EQ(first.size(), 2u);
  EXPECT_LE(first[0].distance.value, first[1].distance.value);
}

TEST(GridBuild, InitializeAgainReplacesTheCells) {
  testing::log_capture log;
  circuit_layout layout;
  layout.space_margin = 0.25;
  add_cuboid(layout, box(1, 1, 1, 2, 2, 2));
  configure config;
  auto grid = std::make_unique<plain_grid>();
  grid->initialize(config, box(0, 0, 0, 10, 10, 10), layout);
  EXPECT_EQ(grid->cell_count, 8u);
  layout.space_margin = 0.125;
  grid->initialize(config, box(0, 0, 0, 10, 10, 10), layout);
  EXPECT_EQ(grid->cell_count, 64u);
  EXPECT_EQ(grid->nodes[0].list.candidates.size(), 1u);
  EXPECT_EQ(grid->nodes[63].list.candidates.size(), 0u);
}

TEST(GridBuild, ZeroEdgeSpaceStillHasACell) {
  testing::log_capture log;
  circuit_layout layout;
  configure config;
  auto grid = std::make_unique<plain_grid>();
  grid->initialize(config, box(0, 0, 0, 0, 0, 0), layout);
  EXPECT_EQ(grid->cell_count, 1u);
  EXPECT_EQ(grid->find_list(p3(1, 2, 3)), &grid->nodes[0].list);
}

// A layout of n small cuboids spread over [0, 10]^3.
void fill(circuit_layout& layout, int n) {
  for (int i = 0; i < n; ++i) {
    const double x = 0.5 + (i % 18) * 0.5, y = 0.5 + (i / 18 % 18) * 0.5, z = 0.5 + (i / 324) * 0.5;
    add_cuboid(layout, box(x, y, z, x + 0.1, y + 0.1, z + 0.1));
  }
}

struct thread_case {
  int blocks;
  int thread_count;
  int thread_num;
  bool threaded;
  int parts;
};

TEST(GridBuild, ThreadedAboveFiveThousandBlocksOnly) {
  for (auto tc : {thread_case{5000, 2, 1, false, 0}, thread_case{5001, 2, 1, true, 2},
                  thread_case{5001, 1, 4, false, 0}, thread_case{5001, 0, 4, true, 4},
                  thread_case{5001, -1, 0, false, 0}, thread_case{5001, 0, 3, true, 3}}) {
    testing::log_capture log;
    circuit_layout layout;
    layout.space_margin = 0.25;
    layout.data.thread_num = tc.thread_num;
    fill(layout, tc.blocks);
    configure config;
    config.thread_count = tc.thread_count;
    auto grid = std::make_unique<plain_grid>();
    grid->initialize(config, box(0, 0, 0, 10, 10, 10), layout);
    const std::string expected = tc.threaded ? "multhread space management starts.\n"
                                             : "single thread space management starts.\n";
    EXPECT_EQ(log.info().substr(head(log.info(), 4).size()), expected) << tc.blocks << " " << tc.thread_count;
    // Each building thread claims one range.
    EXPECT_EQ(grid->next_part, tc.parts);
    EXPECT_EQ(grid->claim_lock.load(), 0);
  }
}

}  // namespace
}  // namespace torva
