// The compact index against the plain grid it copies: on random and generated
// layouts, with and without the critical box, halving cells, the double
// ratio, any number of entries in a slot, one or two building threads, every
// answer (block, distance, reach) must be the pair's bit for bit, over fresh
// caches with limits from negative to unbounded and over walk-like paths with
// caches kept. Each answer is also held against a scan over every block: never
// more than the true clearance, and a named block lies at the distance named.
#include <gtest/gtest.h>
#include <malloc.h>

#include <cmath>
#include <cstring>
#include <random>
#include <string>

#include "torva/geometry/distance.h"
#include "torva/layout/generator.h"
#include "torva/space/compact_index.h"
#include "torva/space/layout_fields.h"
#include "torva/space/space_manager.h"
#include "torva_testing/log_capture.h"
#include "torva_testing/random_layout.h"

namespace torva {
namespace {

double truth(const circuit_layout& layout, const point3& p) {
  double best = 1e300;
  for (wire_block const* b : layout.blocks) best = std::min(best, manhattan_distance(p, *b).value);
  return best;
}

bool same(const nearest_result& a, const nearest_result& b) {
  return a.block == b.block && std::memcmp(&a.distance, &b.distance, sizeof(double)) == 0 &&
         std::memcmp(&a.reach, &b.reach, sizeof(double)) == 0;
}

std::string text(const point3& p, double limit) {
  char s[160];
  std::snprintf(s, sizeof s, "(%.17g, %.17g, %.17g) limit %.17g", p[0].value, p[1].value, p[2].value, limit);
  return s;
}

struct comparison {
  const circuit_layout& layout;
  const space_manager_interface& pair;
  const compact_index& index;
  std::string where;
  int named = 0;  // answers that named a block
  nearest_result last;

  // False after the first failure, so that a broken case reports one point.
  bool check(const point3& p, double limit, candidate_list_cache& c1, candidate_list_cache& c2, compact_cache& c) {
    const nearest_result a = pair.nearest(p, limit, c1, c2);
    const nearest_result b = index.nearest(p, limit, c);
    last = b;
    EXPECT_TRUE(same(a, b)) << where << " at " << text(p, limit) << ": pair " << a.block << " " << a.distance.value
                            << " " << a.reach.value << ", index " << b.block << " " << b.distance.value << " "
                            << b.reach.value;
    if (b.block != nullptr) {
      ++named;
      const double d = manhattan_distance(p, *b.block).value;
      if (b.distance.value == 0.0 && b.reach.value == 0.0) {
        EXPECT_LT(d, 0.0001) << where << " at " << text(p, limit);
      } else {
        EXPECT_NEAR(d, b.distance.value, 1e-10) << where << " at " << text(p, limit);
      }
    }
    const double t = truth(layout, p);
    if (t >= 0.0) {
      EXPECT_LE(b.distance.value, t + 1e-10) << where << " at " << text(p, limit);
    }
    return !::testing::Test::HasFailure();
  }
};

// Fresh caches for scattered points and limits from below zero to unbounded,
// then walks with the caches kept, each step on the cube the answer allows.
int compare_answers(const circuit_layout& layout, const configure& config, int in_slot, std::uint64_t seed,
                    const std::string& where) {
  configure plain = config;
  plain.spacemgr_type = 9;
  space_manager pair;
  pair.initialize(plain, layout);
  const compact_index index = build_compact_index(config, layout, in_slot);
  comparison cmp{layout, *pair, index, where + " in_slot " + std::to_string(index.in_slot), 0, {}};
  std::mt19937_64 rng(seed);
  std::uniform_real_distribution<double> unit(0.0, 1.0);
  const cuboid_t& w = layout.data.window;
  const double size = w.upper[0].value - w.lower[0].value;
  auto anywhere = [&] {
    point3 p;
    for (int k = 0; k < 3; ++k) p[k] = w.lower[k].value + (w.upper[k].value - w.lower[k].value) * unit(rng);
    return p;
  };
  const double limits[] = {1e9, -0.3 * size, 0.0, 1e-7, 0.02 * size, 0.3 * size};
  for (int i = 0; i < 300; ++i) {
    candidate_list_cache c1, c2;
    compact_cache c;
    if (!cmp.check(anywhere(), limits[i % 6], c1, c2, c)) return cmp.named;
  }
  candidate_list_cache c1, c2;
  compact_cache c;
  point3 p = anywhere();
  for (int i = 0; i < 1500; ++i) {
    const double limit = i % 7 == 0 ? 0.05 * size : 1e9;
    if (!cmp.check(p, limit, c1, c2, c)) return cmp.named;
    const double half = cmp.last.distance.value;
    if (!(half > 1e-3 * size)) {
      p = anywhere();
      continue;
    }
    const int face = int(unit(rng) * 6) % 6;
    for (int k = 0; k < 3; ++k) p[k] = p[k].value + half * (2 * unit(rng) - 1);
    p[face % 3] = p[face % 3].value + (face < 3 ? half : -half);
  }
  return cmp.named;
}

struct index_case {
  const char* name;
  testing::layout_recipe recipe;
};

const index_case cases[] = {
    {"sparse", {.blocks = 30, .spread = 0.9}},
    {"crowded", {.blocks = 150, .touching_share = 0.3, .spread = 0.4}},
    {"cylinders_prisms", {.blocks = 60, .cylinder_share = 0.6, .prism_share = 0.4}},
    {"slender_overlapping", {.blocks = 60, .min_edge = 0.1, .max_edge = 30, .spread = 0.6}},
    {"neumann", {.blocks = 60, .touching_share = 0.3, .spread = 0.4, .boundary = 2}},
    {"small_middle", {.blocks = 12, .spread = 0.2}},
};

// Settings per round: critical box, halving with a small candidate limit, the
// double ratio, entries in a slot.
struct round_settings {
  bool critical, decrease, double_ratio;
  int in_slot;
};
const round_settings rounds[] = {
    {false, false, false, -1}, {true, false, false, 0}, {false, true, false, 2},
    {true, true, true, 4},     {false, false, true, 1}, {true, false, false, 3},
};

// The plain grid on a coarse grid, as the oracle test builds it: cells about
// a tenth of the window.
void make_coarse(circuit_layout& layout) {
  derive_layout_fields(layout);
  layout.coarse_grid = true;
  layout.space_margin = 0.005 * size_of(layout.data.window).value;
}

TEST(CompactIndex, AnswersAsThePlainGridBitForBit) {
  testing::log_capture log;
  int named = 0;
  std::uint64_t seed = 90;
  for (const index_case& ic : cases) {
    for (const round_settings& r : rounds) {
      auto layout = testing::make_random_layout(ic.recipe, ++seed);
      make_coarse(*layout);
      configure config;
      config.use_critical_box = r.critical;
      config.decrease_enabled = r.decrease;
      config.max_candidates = r.decrease ? 3 : -1;
      config.max_depth = r.decrease ? 4 : -1;
      config.double_incline_ratio = r.double_ratio;
      named += compare_answers(*layout, config, r.in_slot, seed * 7,
                               std::string(ic.name) + " seed " + std::to_string(seed));
      if (::testing::Test::HasFailure()) return;
    }
  }
  EXPECT_GT(named, 5000);  // the comparison had blocks to name
}

// Generated interconnect (polygons, cylinders, tapered slices) on a finer
// grid, built on one and on two threads.
TEST(CompactIndex, GeneratedWiresOnTwoThreadsAnswerAsThePair) {
  testing::log_capture log;
  for (layout_kind kind : {layout_kind::crossing, layout_kind::mixed}) {
    generator_params g;
    g.kind = kind;
    g.blocks = 400;
    g.layers = 3;
    g.polygon_share = 0.2;
    g.cylinder_share = 0.2;
    g.incline_share = 0.2;
    g.seed = 5;
    circuit_layout layout;
    build_circuit(generate_layout(g), layout);
    layout.data.boundary = 1;
    derive_layout_fields(layout);
    layout.coarse_grid = true;
    layout.space_margin = 0.001 * size_of(layout.data.window).value;  // about 100k cells
    for (int threads : {1, 2}) {
      configure config;
      config.thread_count = threads;
      compare_answers(layout, config, -1, 11 + threads, "generated, threads " + std::to_string(threads));
      if (::testing::Test::HasFailure()) return;
    }
  }
}

// The integer bounds of the overflow groups, for points anywhere in their
// cell: a lane's distance never above the entry's distance from the cell, its
// lower bound never above the box's from the point, and the side bounds of the
// slot never above any overflow box's distance from the point.
TEST(CompactIndex, IntegerBoundsNeverExceedTheExactDistances) {
  testing::log_capture log;
  auto layout = testing::make_random_layout({.blocks = 150, .touching_share = 0.3, .spread = 0.4}, 3);
  make_coarse(*layout);
  configure config;
  const compact_index index = build_compact_index(config, *layout, 0);
  std::mt19937_64 rng(4);
  std::uniform_real_distribution<double> unit(-1.0, 1.0);
  int lanes = 0;
  for (std::uint64_t cell = 0; cell < index.grid.cell_count; cell += 7) {
    const auto* slot = reinterpret_cast<const compact_head*>(index.slots.data + cell * index.slot_bytes);
    const std::uint32_t n = slot->count();
    const compact_level& lv = index.levels[slot->level()];
    const cube_t cube = index.grid.cell_cube(cell);
    const std::uint8_t* run = index.overflow.data + 2 * std::size_t(slot->overflow);
    for (int trial = 0; trial < 20; ++trial) {
      point3 p;
      for (int a = 0; a < 3; ++a) p[a] = cube.center[a].value + cube.half.value * unit(rng);
      std::int16_t up[3], down[3];
      for (int a = 0; a < 3; ++a)
        ASSERT_TRUE(compact_detail::point_units((p[a].value - cube.center[a].value) * lv.inv_unit, up[a], down[a]));
      const double side_low = overflow_floor(*slot, p, cube.center, cube.half.value, lv.side_unit);
      for (std::uint32_t first = 0; first < n; first += compact_layout::lanes) {
        const unsigned s = std::min<unsigned>(compact_layout::lanes, n - first);
        const std::uint8_t* base = run + compact_layout::entry_bytes * first;
        std::int16_t dist[8], low[8];
        for (unsigned lane = 0; lane < s; ++lane) {
          const compact_detail::group_bounds g(base, s, up, down);
          std::memcpy(&dist[lane], base + 2 * lane, 2);
          std::int16_t f[7];
          for (int k = 0; k < 7; ++k) std::memcpy(&f[k], base + 2 * (s * k + lane), 2);
          // The lane's bound from the integers, and the group's pass agreeing with it.
          int m = -32768;
          for (int a = 0; a < 3; ++a) m = std::max({m, f[1 + 2 * a] - up[a], down[a] - f[2 + 2 * a]});
          low[lane] = std::int16_t(m);
          EXPECT_EQ(g.low_below(std::int16_t(m + 1)) >> lane & 1u, 1u);
          EXPECT_EQ(g.low_below(std::int16_t(m)) >> lane & 1u, 0u);
        }
        for (unsigned lane = 0; lane < s; ++lane) {
          const compact_entry& e = index.blocks[compact_layout::block_number(base, s, lane)].entry;
          const double from_cell = (distance(e.box, cube.center) - cube.half).value;
          double box_low = -1e300;
          for (int a = 0; a < 3; ++a)
            box_low = std::max({box_low, e.box.lower[a].value - p[a].value, p[a].value - e.box.upper[a].value});
          EXPECT_LE(dist[lane] * lv.unit, from_cell) << "cell " << cell << " lane " << first + lane;
          if (low[lane] > -8191) {
            EXPECT_LE(low[lane] * lv.unit, box_low) << "cell " << cell << " lane " << first + lane;
          }
          EXPECT_LE(side_low, box_low + 1e-9) << "cell " << cell << " lane " << first + lane;
          ++lanes;
        }
      }
    }
  }
  EXPECT_GT(lanes, 10000);
}

// The slots are sized so that the index holds no more than the pair's cells
// and their lists do, as the allocator counts them.
TEST(CompactIndex, HoldsNoMoreThanThePlainGrid) {
  testing::log_capture log;
  generator_params g;
  g.kind = layout_kind::crossing;
  g.blocks = 3000;
  g.layers = 4;
  g.polygon_share = 0.05;
  g.cylinder_share = 0.05;
  circuit_layout layout;
  build_circuit(generate_layout(g), layout);
  layout.data.boundary = 1;
  derive_layout_fields(layout);
  configure config;
  config.spacemgr_type = 9;
  auto heap = [] {
    const struct mallinfo2 m = mallinfo2();
    return m.uordblks + m.hblkhd;
  };
  const std::size_t before = heap();
  space_manager pair;
  pair.initialize(config, layout);
  const std::size_t held = heap() - before;
  if (held == 0) GTEST_SKIP() << "the allocator counts no heap here (a sanitizer's allocator)";
  const compact_index index = build_compact_index(config, layout);
  EXPECT_GT(index.in_slot, 0u);
  EXPECT_LE(index.bytes(), held);
}

}  // namespace
}  // namespace torva
