// The exactness of the lists against a brute-force oracle: a walker must never
// be told that a cube around it is empty when a conductor is inside it.
//
// Random small layouts of cuboids (some cut into slices), cylinders and convex
// prisms around a random cube; lists filled in each dominance mode, completed,
// and queried through the cache at random points of the cube. The answer is
// compared with the nearest of ALL blocks by manhattan_distance. Merged
// dominance is held only to the groups for which it is exact (see
// merged_mode_scope). TORVA_EXACTNESS_TRIALS raises the number of layouts.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <random>
#include <string>
#include <vector>

#include "torva/geometry/distance.h"
#include "torva/space/candidate_list.h"
#include "torva/space/candidate_list_cache.h"
#include "torva_testing/random_layout.h"

namespace torva {
namespace {

using testing::candidate_for;

constexpr double tol = 1e-10;
constexpr double on_conductor = 0.0001 - 1e-10;

// 2 to 14 blocks about a random cube in the middle of a window of edge 14,
// most cuboids and prisms cut into two to five slices. `symmetric` keeps cut
// prisms symmetric across the cut (see merged_mode_scope).
struct layout_case {
  std::unique_ptr<circuit_layout> layout;
  std::vector<const wire_block*> blocks;
  cube_t cube;
  double scope = 0.0;
  std::mt19937_64 rng;

  layout_case(std::uint64_t seed, bool symmetric) : rng(seed) {
    const std::size_t n = integer(2, 14);
    layout = testing::make_random_layout({.blocks = n, .window = 14, .min_edge = 0.2, .max_edge = 5,
                                          .cylinder_share = 0.25, .prism_share = 0.25, .spread = 1.0,
                                          .max_pieces = 5, .symmetric_cuts = symmetric},
                                         rng());
    blocks = layout->blocks;
    cube = testing::cube_at(7 + uniform(-2, 2), 7 + uniform(-2, 2), 7 + uniform(-2, 2), uniform(0.25, 2.5));
    scope = integer(0, 3) == 0 ? 0.0 : uniform(0.0, 4.0);
  }

  double uniform(double lo, double hi) { return std::uniform_real_distribution<double>(lo, hi)(rng); }
  int integer(int lo, int hi) { return std::uniform_int_distribution<int>(lo, hi)(rng); }

  // A point of the cube; now and then exactly on a face.
  point3 point_in() {
    point3 p;
    const int face = integer(0, 9);
    for (int i = 0; i < 3; ++i) p[i] = cube.center[i] + uniform(-1.0, 1.0) * cube.half;
    if (face >= 6) p[face % 3] = cube.center[face % 3] + (face < 9 ? cube.half : -cube.half);
    return p;
  }
};

enum class fill_by { try_add, gated_add };

candidate_list build(const layout_case& c, const configure& config, std::int64_t kind, fill_by how,
                     std::vector<const wire_block*> order) {
  candidate_list list;
  list.initialize(config, c.cube, c.scope);
  list.kind = kind;
  for (const wire_block* b : order) {
    const candidate_list::candidate x = candidate_for(list, b);
    if (how == fill_by::try_add)
      list.try_add(x);
    else if (list.bound - tol > x.distance)
      list.add(x);
  }
  list.complete();
  return list;
}

// The distance of the nearest of all blocks.
double brute_force(const layout_case& c, const point3& p) {
  double t = 1e300;
  for (const wire_block* b : c.blocks) t = std::min(t, manhattan_distance(p, *b).value);
  return t;
}

// Checks one answer at p against the oracle; `within` is the smaller of the
// limit and the scope at p. Returns an empty string when all holds.
std::string check(const nearest_result& r, const point3& p, double truth, double within, bool reach_is_distance) {
  // Never more room than there is: a point on or in a conductor is answered 0.
  if (r.distance.value > std::max(truth, 0.0) + tol)
    return "answer " + std::to_string(r.distance.value) + " beyond the true nearest " + std::to_string(truth);
  const double named = r.block != nullptr ? manhattan_distance(p, *r.block).value : 0.0;
  if (r.block != nullptr && r.distance.value == 0.0 && r.reach.value == 0.0 && !(on_conductor > named))
    return "answered on a conductor, but the block is " + std::to_string(named) + " away";
  if (r.block != nullptr && (r.distance.value != 0.0 || r.reach.value != 0.0) && named != r.distance.value)
    return "the named block is not at the answered distance";
  if (truth < within - tol) {
    if (r.block == nullptr) return "no block named though the nearest lies within scope and limit";
    if (truth < on_conductor) {
      if (r.distance.value != 0.0 || r.reach.value != 0.0) return "a point on a conductor not answered 0";
    } else {
      if (std::abs(r.distance.value - truth) > tol) return "the answer is not the true nearest";
      if (reach_is_distance && r.reach.value != r.distance.value) return "reach differs from distance";
    }
  }
  return {};
}

struct mode {
  const char* name;
  bool group_dominance;
  bool group_optimize;
  bool double_ratio;
};

constexpr mode modes[] = {
    {"plain", false, false, false},
    {"piecewise", true, false, false},
    {"merged", false, true, false},
    {"plain, ratio 2", false, false, true},
    {"piecewise, ratio 2", true, false, true},
};

// Merged dominance takes the x and the y interval of a target above or below
// the cube from two separate lists of merged intervals, so the two may come
// from different boxes of the group: for slices whose boxes differ in both x
// and y (the rods of a prism cut along a diagonal) it can claim a wall that is
// not there (see MergedModeTakesItsXAndYIntervalsFromDifferentBoxes in
// candidate_list_test.cpp). It is exact when the boxes share their extent
// across the cut, as the slices of a cuboid do and the rods of a prism that is
// symmetric about the cutting direction do; the oracle holds it to that.
bool merged_mode_scope(const mode& m) { return m.group_optimize && !m.double_ratio; }

configure config_of(const mode& m) {
  configure config;
  config.group_dominance = m.group_dominance;
  config.group_optimize = m.group_optimize;
  config.double_incline_ratio = m.double_ratio;
  return config;
}

const int trials = [] {
  const char* v = std::getenv("TORVA_EXACTNESS_TRIALS");
  return v != nullptr && std::atoi(v) > 0 ? std::atoi(v) : 400;
}();
constexpr int points_per_trial = 24;

// One list of every block, filled by try_add or by add behind the bound gate.
// Pairs of lists are held to brute force by nearest_oracle_test.cpp.
TEST(CandidateListExactness, ListsOfEveryBlockAgreeWithBruteForce) {
  for (const mode& m : modes) {
    const configure config = config_of(m);
    int failures = 0;
    int exact_checks = 0;
    for (int trial = 0; trial < trials && failures < 5; ++trial) {
      layout_case c(1000 + trial, merged_mode_scope(m));
      std::vector<const wire_block*> order = c.blocks;
      std::shuffle(order.begin(), order.end(), std::mt19937_64(trial));
      const candidate_list lists[] = {build(c, config, spacemgr_all, fill_by::try_add, order),
                                      build(c, config, spacemgr_all, fill_by::gated_add, order)};
      for (const candidate_list& list : lists) ASSERT_EQ(list.candidates.capacity(), list.candidates.size());
      for (int k = 0; k < points_per_trial; ++k) {
        const point3 p = c.point_in();
        const double limit = c.integer(0, 1) == 0 ? 1e9 : c.uniform(0.0, 5.0);
        const double truth = brute_force(c, p);
        std::string why;
        for (int l = 0; l < 2 && why.empty(); ++l) {
          candidate_list_cache cache;
          cache.list = &lists[l];
          const double within = std::min(limit, cache.get_scope(p).value);
          exact_checks += truth < within - tol;
          why = check(cache.nearest(p, limit), p, truth, within, !m.double_ratio);
          if (!why.empty()) why = (l == 0 ? "(try_add) " : "(add) ") + why;
        }
        if (!why.empty()) {
          ++failures;
          ADD_FAILURE() << m.name << ", trial " << trial << ", point " << k << ": " << why;
        }
      }
    }
    // The oracle must have had real work: many points whose nearest lay in reach.
    EXPECT_GT(exact_checks, trials * points_per_trial / 4) << m.name;
  }
}

// Dominance itself: whenever a dominates b for the cube (b not reaching into
// it), a is at least as near as b from every point of the cube.
TEST(CandidateListExactness, ADominatorIsAsNearFromEveryPointOfTheCube) {
  for (const mode& m : modes) {
    if (m.double_ratio) continue;  // with ratio 2 the computed distances are not compared one to one
    const configure config = config_of(m);
    int failures = 0;
    int dominated_pairs = 0;
    int by_groups = 0;  // pairs that only the piece tests could settle
    for (int trial = 0; trial < trials && failures < 5; ++trial) {
      layout_case c(90000 + trial, merged_mode_scope(m));
      candidate_list list;
      list.initialize(config, c.cube, 100.0);
      for (const wire_block* a : c.blocks)
        for (const wire_block* b : c.blocks) {
          if (a == b) continue;
          const candidate_list::candidate ca = candidate_for(list, a);
          const candidate_list::candidate cb = candidate_for(list, b);
          if (-tol > cb.distance.value || !list.dominate(ca, cb)) continue;
          ++dominated_pairs;
          if (!list.dominate_new_halden(ca, cb)) ++by_groups;
          for (int k = 0; k < 16; ++k) {
            const point3 p = c.point_in();
            const double da = manhattan_distance(p, *a).value;
            const double db = manhattan_distance(p, *b).value;
            if (da > db + tol) {
              ++failures;
              ADD_FAILURE() << m.name << ", trial " << trial << ": dominator at " << da << ", dominated at " << db;
              break;
            }
          }
        }
    }
    EXPECT_GT(dominated_pairs, trials) << m.name;
    // The cut solids must give the piece tests work of their own.
    if (m.group_dominance || m.group_optimize) {
      EXPECT_GT(by_groups, trials / 20) << m.name;
    }
  }
}

}  // namespace
}  // namespace torva
