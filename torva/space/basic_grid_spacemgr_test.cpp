// The uniform grid: sizing for each cell type, the clamped index ranges of
// blocks and points, the log lines, and the choice between the single-thread
// and the threaded build. Answers on random layouts are in nearest_oracle_test.cpp.
#include <gtest/gtest.h>

#include <cstdint>
#include <string>

#include "torva/foundation/configure.h"
#include "torva/space/base_grid.h"
#include "torva/space/base_grid_node.h"
#include "torva/space/basic_grid_spacemgr.h"
#include "torva/space/incline_node.h"
#include "torva/space/octree_node.h"
#include "torva_testing/log_capture.h"
#include "torva_testing/random_layout.h"

namespace torva {
namespace {

using testing::add_cuboid;
using testing::box;
using testing::p3;

using plain_grid = basic_grid_spacemgr<base_grid_node<5>, 20, 10>;
using incline_grid = basic_grid_spacemgr<incline_node<1>, 20, 16>;
using hybrid_grid = basic_grid_spacemgr<octree_node<3>, 20, 16>;

template <class Grid>
std::unique_ptr<Grid> make_grid(const configure& config, const cuboid_t& space, const circuit_layout& layout) {
  auto grid = std::make_unique<Grid>();
  grid->initialize(config, space, layout);
  return grid;
}

TEST(GridSizing, PlainGridLogsItsSpaceLengthScopeAndSize) {
  testing::log_capture log;
  circuit_layout layout;
  layout.space_margin = 0.25;  // 20 * m = 5 beats the million-cell length 0.1
  layout.crowding_ratio = 1.5;
  const auto grid = make_grid<plain_grid>(configure{}, box(0, 0, 0, 10, 10, 10), layout);
  EXPECT_EQ(log.info(),
            "spacemgr space: (0.000000000000, 0.000000000000, 0.000000000000):"
            "(10.000000000000, 10.000000000000, 10.000000000000), xlen: 10.000000000000, "
            "ylen: 10.000000000000, zlen: 10.000000000000\n"
            "grid length: 5.000000000000\n"
            "grid scope: 2.000000000000\n"
            "grid size: 8\n"
            "single thread space management starts.\n");
  // Every cell starts with the grid's scope and its own cube, z fastest.
  EXPECT_DOUBLE_EQ(grid->nodes[7].list.cube.center[0].value, 7.5);
  EXPECT_DOUBLE_EQ(grid->nodes[7].list.cube.half.value, 2.5);
  EXPECT_DOUBLE_EQ(grid->nodes[1].list.cube.center[2].value, 7.5);
  EXPECT_DOUBLE_EQ(grid->nodes[1].list.cube.center[0].value, 2.5);
  for (std::uint64_t c = 0; c < grid->cell_count; ++c) EXPECT_DOUBLE_EQ(grid->nodes[c].list.scope_bound.value, 2.0);
}

TEST(GridSizing, PlainGridAimsAtAMillionCellsAndPadsToCentre) {
  testing::log_capture log;
  circuit_layout layout;
  configure config;
  config.max_candidates = 7;
  config.max_depth = 0;
  const auto grid = make_grid<plain_grid>(config, box(0, 0, 0, 200, 100, 50), layout);
  EXPECT_NEAR(grid->length.value, 1.0, 1e-12);
  EXPECT_EQ(grid->count_x * grid->count_y * grid->count_z, 1000000u);
  EXPECT_EQ(grid->threshold.count, 7);  // zero and above are taken as they are
  EXPECT_EQ(grid->threshold.depth, 0);
  // Cells of 5: an exact multiple has no pad, 7 is padded by 1.5 on each side.
  layout.space_margin = 0.25;
  const auto padded = make_grid<plain_grid>(config, box(0, 0, 0, 10, 7, 5), layout);
  EXPECT_EQ(padded->count_y, 2u);
  EXPECT_EQ(padded->count_z, 1u);
  const double expected[2][3] = {{0.0, -1.5, 0.0}, {10.0, 8.5, 5.0}};
  for (int k = 0; k < 3; ++k) {
    EXPECT_DOUBLE_EQ(padded->bounds.lower[k].value, expected[0][k]);
    EXPECT_DOUBLE_EQ(padded->bounds.upper[k].value, expected[1][k]);
  }
}

TEST(GridSizing, HybridDivisorFollowsTheTruncatedHalfDepth) {
  circuit_layout layout;
  const struct {
    int max_depth;
    double length;
    std::uint64_t cells_x;
  } rows[] = {{16, 1.0, 256}, {15, 2.0, 128}, {-1, 1.0, 256}, {3, 128.0, 2}};
  for (const auto& r : rows) {
    SCOPED_TRACE(r.max_depth);
    testing::log_capture log;
    configure config;
    config.max_depth = r.max_depth;
    const auto grid = make_grid<hybrid_grid>(config, box(0, 0, 0, 256, 256, 1), layout);
    EXPECT_DOUBLE_EQ(grid->length.value, r.length);
    EXPECT_EQ(grid->count_x, r.cells_x);
    EXPECT_EQ(grid->count_z, 1u);
    EXPECT_NE(log.info().find("grid scope: " + std::to_string(r.length).substr(0, 5)), std::string::npos);
    EXPECT_EQ(grid->threshold.depth, r.max_depth < 0 ? 16 : r.max_depth);
  }
  // 100 / 256 is below 0.51 * 10, so the length is 5.1 and the scope stays:
  // at most two layers along the shortest edge.
  testing::log_capture log;
  const auto flat = make_grid<hybrid_grid>(configure{}, box(0, 0, 0, 100, 100, 10), layout);
  EXPECT_DOUBLE_EQ(flat->length.value, 5.1);
  EXPECT_EQ(flat->count_z, 2u);
  EXPECT_EQ(flat->count_x, 20u);
  EXPECT_DOUBLE_EQ(flat->nodes[0].list.scope_bound.value, 0.390625);
}

TEST(GridSizing, InclineGridIgnoresTheDepthAndReadsItsOwnLimits) {
  testing::log_capture log;
  circuit_layout layout;
  configure config;
  config.max_depth = 2;
  config.max_candidates = 3;
  config.incline_max_candidates = 5;
  const auto grid = make_grid<incline_grid>(config, box(0, 0, 0, 64, 32, 16), layout);
  EXPECT_DOUBLE_EQ(grid->length.value, 2.0);
  EXPECT_EQ(grid->count_x, 32u);
  EXPECT_EQ(grid->count_y, 16u);
  EXPECT_EQ(grid->count_z, 8u);
  EXPECT_EQ(grid->threshold.count, 5);
  EXPECT_EQ(grid->threshold.depth, 16);
  EXPECT_DOUBLE_EQ(grid->nodes[0].list.scope_bound.value, 2.0);
  // A near cube: the shortest edge's share wins when it is the larger.
  EXPECT_DOUBLE_EQ(make_grid<incline_grid>(config, box(0, 0, 0, 64, 64, 63.999), layout)->length.value, 63.999 * 0.031251);
}

TEST(GridSizing, CoarseGridRaisesLengthAndScopeByTheMargin) {
  testing::log_capture log;
  circuit_layout layout;
  layout.coarse_grid = true;
  layout.space_margin = 1.0;
  const auto incline = make_grid<incline_grid>(configure{}, box(0, 0, 0, 64, 32, 16), layout);
  EXPECT_DOUBLE_EQ(incline->length.value, 20.0);
  EXPECT_DOUBLE_EQ(incline->nodes[0].list.scope_bound.value, 8.0);
  EXPECT_EQ(incline->cell_count, 4u * 2u * 1u);
  // A scope already above 8 * m stays.
  const auto plain = make_grid<plain_grid>(configure{}, box(0, 0, 0, 40, 40, 40), layout);
  EXPECT_DOUBLE_EQ(plain->length.value, 20.0);
  EXPECT_DOUBLE_EQ(plain->nodes[0].list.scope_bound.value, 20.0);
}

TEST(GridIndex, RangesAndCellsAreClampedToTheGrid) {
  // 10 x 10 x 10 unit cells over [0, 10]^3, set by hand.
  base_grid<base_grid_node<5>> g;
  g.length = 1.0;
  g.count_x = g.count_y = g.count_z = 10;
  g.cell_count = 1000;
  g.bounds = box(0, 0, 0, 10, 10, 10);
  g.nodes = make_cell_array<base_grid_node<5>>(1000);
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
  const auto nan_lo = g.lower_bound(p3(nan, 1e300, -1e300), 1.0);
  const auto nan_hi = g.upper_bound(p3(nan, 1e300, -1e300), 1.0);
  EXPECT_EQ(nan_lo[0], 0u);
  EXPECT_EQ(nan_hi[0], 0u);
  EXPECT_EQ(nan_lo[1], 10u);
  EXPECT_EQ(nan_hi[2], 0u);

  // Points below the low side land in the last cell.
  auto index = [](std::uint64_t i, std::uint64_t j, std::uint64_t k) { return (i * 10 + j) * 10 + k; };
  EXPECT_EQ(g.cell_of(p3(0, 0, 0)), 0u);
  EXPECT_EQ(g.cell_of(p3(2.5, 3.5, 4.5)), index(2, 3, 4));
  EXPECT_EQ(g.cell_of(p3(-0.5, 5.5, 10.5)), index(9, 5, 9));
  EXPECT_EQ(g.cell_of(p3(-1e-11, 0, 0)), index(9, 0, 0));  // just below: the far end
  EXPECT_EQ(g.cell_of(p3(1e9, -1e9, 10)), index(9, 9, 9));
  EXPECT_EQ(g.cell_of(p3(nan, 1, 1)), index(9, 1, 1));
  EXPECT_EQ(g.locate_cell(p3(2.5, 3.5, 4.5)), &g.nodes[index(2, 3, 4)].list);
}

TEST(GridBuild, ABuildReplacesTheLastAndAZeroEdgeSpaceHasACell) {
  testing::log_capture log;
  circuit_layout layout;
  layout.space_margin = 0.25;
  add_cuboid(layout, box(1, 1, 1, 2, 2, 2));
  auto grid = make_grid<plain_grid>(configure{}, box(0, 0, 0, 10, 10, 10), layout);
  EXPECT_EQ(grid->cell_count, 8u);
  layout.space_margin = 0.125;
  grid->initialize(configure{}, box(0, 0, 0, 10, 10, 10), layout);
  EXPECT_EQ(grid->cell_count, 64u);
  EXPECT_EQ(grid->nodes[0].list.candidates.size(), 1u);
  EXPECT_EQ(grid->nodes[63].list.candidates.size(), 0u);
  grid->initialize(configure{}, box(0, 0, 0, 0, 0, 0), circuit_layout{});
  EXPECT_EQ(grid->cell_count, 1u);
  EXPECT_EQ(grid->find_list(p3(1, 2, 3)), &grid->nodes[0].list);
}

TEST(GridBuild, ThreadedAboveFiveThousandBlocksOnly) {
  // Small cuboids spread over [0, 10]^3.
  circuit_layout layout;
  layout.space_margin = 0.25;
  for (int i = 0; i < 5001; ++i) {
    const double x = 0.5 + (i % 18) * 0.5, y = 0.5 + (i / 18 % 18) * 0.5, z = 0.5 + (i / 324) * 0.5;
    add_cuboid(layout, box(x, y, z, x + 0.1, y + 0.1, z + 0.1));
  }
  circuit_layout five_thousand = layout;
  five_thousand.blocks.pop_back();
  const struct {
    const circuit_layout* layout;
    int thread_count, thread_num, parts;  // parts 0: the single-thread build
  } rows[] = {{&five_thousand, 2, 1, 0}, {&layout, 2, 1, 2}, {&layout, 1, 4, 0},
              {&layout, 0, 4, 4},        {&layout, -1, 0, 0}, {&layout, 0, 3, 3}};
  for (const auto& r : rows) {
    SCOPED_TRACE(::testing::Message() << r.layout->blocks.size() << " blocks, " << r.thread_count << " threads");
    testing::log_capture log;
    circuit_layout l = *r.layout;
    l.data.thread_num = r.thread_num;
    configure config;
    config.thread_count = r.thread_count;
    const auto grid = make_grid<plain_grid>(config, box(0, 0, 0, 10, 10, 10), l);
    const std::string& text = log.info();
    EXPECT_EQ(text.substr(text.find('\n', text.find("grid size: ")) + 1),
              r.parts ? "multhread space management starts.\n" : "single thread space management starts.\n");
    EXPECT_EQ(grid->next_part, r.parts);  // each building thread claims one range
    EXPECT_EQ(grid->claim_lock.load(), 0);
  }
}

}  // namespace
}  // namespace torva
