// The oracle of nearest-conductor search: on many random layouts, for every
// pair of strategies and every dominance mode, the answers of a manager are
// checked against a brute-force scan over all blocks that uses no code of the
// search structures (only the distance functions of the geometry).
//
// What an answer must hold, for a point outside the conductors:
// - its distance never exceeds the nearest block's distance (plus 1e-10), nor
//   the limit: a walker jumps in a cube of that size and must hit nothing;
// - a named block lies at exactly that distance (or, when the answer is the
//   "on the conductor" 0, nearer than 0.0001);
// - with every ratio 1, where the nearest block lies within the caches' scope
//   and the limit, the answer is that block's distance;
// - the lists it came from mark each entry as cuboid or not, with ratio 2 for
//   the others under the double ratio.
//
// Adding a pair is one line in `pairs` below.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <functional>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "torva/foundation/abstract_wrapper.h"
#include "torva/geometry/distance.h"
#include "torva/layout/generator.h"
#include "torva/space/layout_fields.h"
#include "torva/space/space_manager.h"
#include "torva/space/space_manager_interface.h"
#include "torva_testing/log_capture.h"
#include "torva_testing/random_layout.h"

namespace torva {
namespace {

using manager_holder = sea::abstract_wrapper<space_manager_interface>;
using build_function = void (*)(manager_holder&, const configure&, const circuit_layout&);

template <class Pair>
void build(manager_holder& holder, const configure& config, const circuit_layout& layout) {
  holder.construct<Pair>().initialize(config, layout);
}

// The plain grid aims at a million cells whatever the layout: on these small
// layouts that makes every build slow and leaves a scope too small to check
// much. It is built here as a client builds a coarse grid: with coarse_grid set
// and a margin of a two-hundredth of the window, so that cells are about a
// tenth of it. The manager keeps the blocks of the layout itself.
template <class Pair>
void build_coarse(manager_holder& holder, const configure& config, const circuit_layout& layout) {
  circuit_layout coarse = layout;  // its blocks list still points into `layout`
  coarse.coarse_grid = true;
  coarse.space_margin = 0.005 * size_of(layout.data.window).value;
  holder.construct<Pair>().initialize(config, coarse);
}

// The pair that the automatic choice settles on for the layout.
void build_automatic(manager_holder& holder, const configure& config, const circuit_layout& layout) {
  switch (automatic_spacemgr_type(layout)) {
    case 3: return build<simple_none_manager>(holder, config, layout);
    case 5: return build<hybrid_none_manager>(holder, config, layout);
    case 7: return build<hybrid_grid_manager>(holder, config, layout);
    default: return build_coarse<grid_none_nd_manager>(holder, config, layout);
  }
}

// Flat incline_node<1> cells measure a block by its outer box and tighten
// their bound by that measure, which is less than the solid's: a prism whose
// box reaches into a cell while its solid does not can pull the bound below
// the solid and is then dropped on completion, and the cell answers up to its
// scope past it. So hybrid-grid keeps the contract only where no such block
// stands; its answers are still checked for naming blocks at the answered
// distance and for keeping within the limit.
bool always_exact(const circuit_layout&) { return true; }
bool never_exact(const circuit_layout&) { return false; }
bool automatic_exact(const circuit_layout& layout) { return automatic_spacemgr_type(layout) != 7; }

struct pair_entry {
  const char* name;
  build_function make;
  bool (*exact)(const circuit_layout&) = &always_exact;  // whether answers must match the scan
};

// Every pair built so far.
const pair_entry pairs[] = {
    {"simple_simple", &build<simple_simple_manager>},
    {"octree_octree", &build<octree_octree_manager>},
    {"simple_none", &build<simple_none_manager>},
    {"octree_none", &build<octree_none_manager>},
    {"hybrid_hybrid", &build<hybrid_hybrid_manager>},
    {"hybrid_none", &build<hybrid_none_manager>},
    {"hybrid_simple", &build<hybrid_simple_manager>},
    {"hybrid_grid", &build<hybrid_grid_manager>, &never_exact},
    {"hybrid_grid_nd", &build<hybrid_grid_nd_manager>},
    {"grid_none_nd", &build_coarse<grid_none_nd_manager>},
    {"automatic", &build_automatic, &automatic_exact},
};

enum class dominance { plain, piecewise, merged };
const char* const dominance_names[] = {"plain", "piecewise", "merged"};

struct brute_answer {
  double distance = 1e300;
  std::size_t index = 0;
};

brute_answer brute_nearest(const circuit_layout& layout, const point3& p) {
  brute_answer best;
  for (std::size_t i = 0; i < layout.data.wire_blocks.size(); ++i) {
    const double d = manhattan_distance(p, layout.data.wire_blocks[i]).value;
    if (d < best.distance) best = {d, i};
  }
  return best;
}

// The inward distance from p to the nearest face of the box.
double wall_distance(const cuboid_t& box, const point3& p) {
  double d = 1e300;
  for (int k = 0; k < 3; ++k)
    d = std::min({d, p[k].value - box.lower[k].value, box.upper[k].value - p[k].value});
  return d;
}

bool strictly_inside(const cuboid_t& box, const point3& p) {
  for (int k = 0; k < 3; ++k)
    if (!(p[k].value > box.lower[k].value + 1e-9 && p[k].value < box.upper[k].value - 1e-9)) return false;
  return true;
}

// A random point of the window that lies in no conductor. One point in eight
// is snapped to a coarse lattice, so that it falls on the dividing planes of
// trees and on faces of blocks.
point3 random_free_point(const circuit_layout& layout, std::mt19937_64& rng) {
  const cuboid_t& w = layout.data.window;
  std::uniform_real_distribution<double> unit(0.0, 1.0);
  for (;;) {
    point3 p;
    const bool snap = unit(rng) < 0.125;
    for (int k = 0; k < 3; ++k) {
      double t = unit(rng);
      if (snap) t = std::round(t * 64) / 64;
      p[k] = w.lower[k].value + (w.upper[k].value - w.lower[k].value) * t;
    }
    if (brute_nearest(layout, p).distance >= 0.0) return p;
  }
}

struct oracle {
  const circuit_layout& layout;
  const configure& config;
  const space_manager_interface& manager;
  std::string where;
  bool exact = true;  // answers must not exceed, and within scope must equal, the scan's
  int checked_equal = 0;

  // Checks one answer; returns false after the first failure so that a broken
  // pair reports one point and not thousands.
  bool check(const point3& p, double limit, const nearest_result& r, const candidate_list_cache& first,
             const candidate_list_cache& second, bool fresh) {
    constexpr double eps = 1e-10;
    const brute_answer truth = brute_nearest(layout, p);
    const std::string at = where + " at (" + std::to_string(p[0].value) + ", " + std::to_string(p[1].value) +
                           ", " + std::to_string(p[2].value) + ") limit " + std::to_string(limit);
    if (exact) {
      EXPECT_LE(r.distance.value, truth.distance + eps) << at << ": claims more room than there is";
    }
    EXPECT_LE(r.distance.value, limit + eps) << at << ": beyond the limit";
    if (r.block != nullptr) {
      const double d = manhattan_distance(p, *r.block).value;
      if (r.distance.value == 0.0 && r.reach.value == 0.0) {
        EXPECT_LT(d, 0.0001) << at << ": on-conductor answer for a block that is farther";
      } else {
        EXPECT_NEAR(d, r.distance.value, eps) << at << ": the named block is not at the answered distance";
      }
    }
    // Every list marks its entries by family; the double ratio doubles the non-cuboids.
    for (const candidate_list_cache* c : {&first, &second})
      for (std::size_t i = 0; fresh && c->list != nullptr && i < c->list->candidates.size(); ++i) {
        const candidate_list::candidate& e = c->list->candidates[i];
        const bool cuboid = e.block->shape_kind == shape_cuboid;
        EXPECT_TRUE(e.is_cuboid == cuboid && e.ratio == (config.double_incline_ratio && !cuboid ? 2 : 1))
            << at << ": entry " << i << " of a list is marked wrongly";
      }
    const bool by_wall = config.use_critical_box && layout.data.boundary == 1 &&
                         !contains(layout.data.critical_box, p);
    if (by_wall) {
      // A reused cache whose cube still holds the point answers from its list
      // before any box test; only a fresh query must meet the wall.
      if (!fresh) return !::testing::Test::HasFailure();
      const double wall = std::min(wall_distance(layout.data.window, p), limit);
      EXPECT_EQ(r.block, nullptr) << at;
      EXPECT_NEAR(r.distance.value, wall, eps) << at << ": outside the critical box the wall answers";
    } else if (exact && !config.double_incline_ratio) {
      double scope = first.scope.value;
      if (second.list != nullptr && second.list->kind != spacemgr_none) scope = std::min(scope, second.scope.value);
      if (truth.distance < std::min(scope, limit) - 1e-9) {
        ++checked_equal;
        if (truth.distance < 0.0001 - eps) {
          EXPECT_EQ(r.distance.value, 0.0) << at << ": on a conductor";
        } else {
          EXPECT_NEAR(r.distance.value, truth.distance, 1e-9)
              << at << ": missed block " << truth.index << " within scope " << scope;
        }
      }
    }
    return !::testing::Test::HasFailure();
  }
};

struct layout_case {
  const char* name;
  std::function<std::unique_ptr<circuit_layout>(std::uint64_t seed)> make;
  configure settings;  // limits and ratios of the trees; flags are set per mode
};

// A small interconnect layout of the generator: wires of polygons, cylinders,
// tapered blocks cut into slices, and boxes.
std::unique_ptr<circuit_layout> generated(layout_kind kind, std::uint64_t seed) {
  generator_params p;
  p.kind = kind;
  p.blocks = 120;
  p.layers = 3;
  p.polygon_share = 0.2;
  p.cylinder_share = 0.2;
  p.incline_share = 0.2;
  p.seed = seed;
  auto layout = std::make_unique<circuit_layout>();
  build_circuit(generate_layout(p), *layout);
  layout->data.boundary = 1;
  return layout;
}

std::vector<layout_case> layout_cases() {
  struct row {
    const char* name;
    testing::layout_recipe recipe;
    int max_candidates, max_depth;
    double scope_ratio;
  };
  const row rows[] = {
      {"sparse", {.blocks = 30, .spread = 0.9}, -1, -1, 0.5},
      {"crowded", {.blocks = 150, .touching_share = 0.3, .spread = 0.4}, 4, 6, 0.7},
      {"cuboids_touching", {.blocks = 80, .cylinder_share = 0, .prism_share = 0, .touching_share = 0.5}, 2, 8, 0.5},
      {"cylinders_prisms", {.blocks = 60, .cylinder_share = 0.6, .prism_share = 0.4}, 3, -1, 1.0},
      {"cut_pieces", {.blocks = 70, .cylinder_share = 0.2, .prism_share = 0.3, .touching_share = 0.4, .max_pieces = 4}, 0, 5, 0.5},
      {"slender_overlapping", {.blocks = 60, .min_edge = 0.1, .max_edge = 30, .spread = 0.6}, 5, 3, 0.5},
      {"neumann", {.blocks = 60, .touching_share = 0.3, .spread = 0.4, .boundary = 2}, 1, 10, 0.6},
      // All blocks in the middle: a large critical-box margin.
      {"small_middle", {.blocks = 12, .spread = 0.2}, 1, 2, 0.5},
  };
  std::vector<layout_case> cases;
  for (const row& r : rows) {
    configure c;
    c.max_candidates = r.max_candidates;
    c.max_depth = r.max_depth;
    c.octree_scope_ratio = r.scope_ratio;
    cases.push_back({r.name, [recipe = r.recipe](std::uint64_t seed) { return testing::make_random_layout(recipe, seed); }, c});
  }
  configure wires;
  wires.max_candidates = 3;
  wires.max_depth = 9;
  cases.push_back({"generated_crossing", [](std::uint64_t seed) { return generated(layout_kind::crossing, seed); }, wires});
  cases.push_back({"generated_mixed", [](std::uint64_t seed) { return generated(layout_kind::mixed, seed); }, wires});
  return cases;
}

using oracle_param = std::tuple<int, dominance, bool>;

class NearestOracle : public ::testing::TestWithParam<oracle_param> {};

TEST_P(NearestOracle, AnswersNeverExceedTheNearestBlockAndAreExactWithinScope) {
  const auto [pair_index, dom, double_ratio] = GetParam();
  const pair_entry& entry = pairs[pair_index];
  testing::log_capture log;
  std::uint64_t seed = 1000 * std::uint64_t(pair_index) + 17 * std::uint64_t(dom) + (double_ratio ? 7 : 0);
  int equal_checks = 0;
  for (const layout_case& lc : layout_cases()) {
    for (int critical = 0; critical < 2; ++critical) {
      for (int round = 0; round < 2; ++round) {
        const std::uint64_t layout_seed = seed++;
        auto layout = lc.make(layout_seed);
        derive_layout_fields(*layout);
        configure config = lc.settings;
        config.group_dominance = dom == dominance::piecewise;
        config.group_optimize = dom == dominance::merged;
        config.double_incline_ratio = double_ratio;
        config.use_critical_box = critical == 1;
        manager_holder holder;
        entry.make(holder, config, *layout);
        oracle check{*layout, config, *holder,
                     std::string(entry.name) + "/" + lc.name + " seed " + std::to_string(layout_seed) +
                         (critical ? " critical" : ""),
                     entry.exact(*layout)};
        std::mt19937_64 rng(layout_seed * 31 + 5);
        std::uniform_real_distribution<double> unit(0.0, 1.0);
        const double size = layout->data.window.upper[0].value - layout->data.window.lower[0].value;

        // Fresh caches for every point, with limits from tiny to unbounded.
        for (int i = 0; i < 250; ++i) {
          const point3 p = random_free_point(*layout, rng);
          const double limit = i % 3 == 0 ? 1e9 : size * unit(rng) * (i % 3 == 1 ? 0.5 : 0.02);
          candidate_list_cache first, second;
          const nearest_result r = holder->nearest(p, limit, first, second);
          if (!check.check(p, limit, r, first, second, true)) return;
        }
        // Reused caches along walk-like paths: each next point on the surface of
        // the cube that the last answer allows; a new path when it gets small.
        candidate_list_cache first, second;
        point3 p = random_free_point(*layout, rng);
        for (int i = 0; i < 500; ++i) {
          const double limit = i % 5 == 0 ? size * 0.05 : 1e9;
          const nearest_result r = holder->nearest(p, limit, first, second);
          if (!check.check(p, limit, r, first, second, false)) return;
          const double half = r.distance.value;
          if (half < size * 1e-3) {
            p = random_free_point(*layout, rng);
            continue;
          }
          point3 next = p;
          const int face = int(unit(rng) * 6) % 6;
          for (int k = 0; k < 3; ++k) next[k] = p[k].value + half * (2 * unit(rng) - 1);
          next[face % 3] = p[face % 3].value + (face < 3 ? half : -half);
          if (!strictly_inside(layout->data.window, next) || brute_nearest(*layout, next).distance < 0.0)
            next = random_free_point(*layout, rng);
          p = next;
        }
        equal_checks += check.checked_equal;
      }
    }
  }
  // The exactness check must have had something to check.
  if (!double_ratio && entry.exact != &never_exact) {
    EXPECT_GT(equal_checks, 1000);
  }
}

std::string oracle_name(const ::testing::TestParamInfo<oracle_param>& info) {
  const auto [pair_index, dom, double_ratio] = info.param;
  return std::string(pairs[pair_index].name) + "_" + dominance_names[int(dom)] + (double_ratio ? "_ratio2" : "_ratio1");
}

INSTANTIATE_TEST_SUITE_P(AllPairs, NearestOracle,
                         ::testing::Combine(::testing::Range(0, int(std::size(pairs))),
                                            ::testing::Values(dominance::plain, dominance::piecewise,
                                                              dominance::merged),
                                            ::testing::Bool()),
                         oracle_name);

}  // namespace
}  // namespace torva
