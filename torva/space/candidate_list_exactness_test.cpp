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
#include <numbers>
#include <random>
#include <string>
#include <vector>

#include "torva/geometry/distance.h"
#include "torva/space/candidate_list.h"
#include "torva/space/candidate_list_cache.h"
#include "torva/space/internal/test_blocks.h"

namespace torva {
namespace {

using testing::block_store;
using testing::box;
using testing::candidate_for;
using testing::cube_at;

constexpr double tol = 1e-10;
constexpr double on_conductor = 0.0001 - 1e-10;

struct layout_case {
  block_store store;
  std::vector<const wire_block*> blocks;
  cube_t cube;
  double scope = 0.0;
};

class random_layouts {
 public:
  explicit random_layouts(std::uint64_t seed) : rng_(seed) {}

  double uniform(double lo, double hi) { return std::uniform_real_distribution<double>(lo, hi)(rng_); }
  int integer(int lo, int hi) { return std::uniform_int_distribution<int>(lo, hi)(rng_); }

  // `aligned` makes every cut prism symmetric about a line of constant y, so
  // that the rods of its slices share one y extent (see merged_mode_scope).
  void fill(layout_case& c, bool cut, bool aligned = false) {
    aligned_ = aligned;
    c.cube = cube_at(uniform(-2, 2), uniform(-2, 2), uniform(-2, 2), uniform(0.25, 2.5));
    c.scope = integer(0, 3) == 0 ? 0.0 : uniform(0.0, 4.0);
    const int n = integer(2, 14);
    for (int i = 0; i < n; ++i) c.blocks.push_back(block(c.store, cut));
  }

  point3 point_in(const cube_t& cube) {
    point3 p;
    const int face = integer(0, 9);  // now and then exactly on a face
    for (int i = 0; i < 3; ++i) p[i] = cube.center[i] + uniform(-1.0, 1.0) * cube.half;
    if (face < 6) return p;
    const int axis = face % 3;
    p[axis] = cube.center[axis] + (face < 9 ? cube.half : -cube.half);
    return p;
  }

 private:
  const wire_block* block(block_store& store, bool cut) {
    const double x = uniform(-7, 7), y = uniform(-7, 7), z = uniform(-7, 7);
    switch (integer(0, 3)) {
      case 0:
      case 1: {
        const double hx = uniform(0.1, 2.5), hy = uniform(0.1, 2.5), hz = uniform(0.1, 2.5);
        const cuboid_t c = box(x - hx, y - hy, z - hz, x + hx, y + hy, z + hz);
        if (cut && integer(0, 1) == 0) return store.sliced_cuboid(c, integer(0, 1), integer(2, 5));
        return store.cuboid(c);
      }
      case 2:
        return store.cylinder(x, y, z, uniform(0.1, 2.0), uniform(0.1, 2.0));
      default: {
        const double hz = uniform(0.1, 2.0);
        const bool sliced = cut && integer(0, 1) == 0;
        if (sliced && aligned_) {
          const double a = uniform(0.3, 2.5), b = uniform(0.3, 2.5), e = uniform(0.3, 2.5);
          std::vector<point2> points;
          if (integer(0, 1) == 0) {  // a kite: left tip, bottom, right tip, top
            const double m = uniform(-a + 0.1, e - 0.1);
            points = {point2{{x - a, y}}, point2{{x + m, y - b}}, point2{{x + e, y}}, point2{{x + m, y + b}}};
          } else {  // a triangle pointing to +x
            points = {point2{{x - a, y - b}}, point2{{x + e, y}}, point2{{x - a, y + b}}};
          }
          return testing::sliced_prism(store, points, z - hz, z + hz, integer(2, 5));
        }
        // A convex polygon: vertices on a circle in rising angle (anticlockwise),
        // the gaps wide enough that the rod about the vertex mean lies inside.
        const int k = integer(3, 4);
        const double r = uniform(0.3, 2.5);
        std::vector<double> angles;
        for (;;) {
          angles.clear();
          for (int i = 0; i < k; ++i) angles.push_back(uniform(0, 2 * std::numbers::pi));
          std::sort(angles.begin(), angles.end());
          bool wide = 2 * std::numbers::pi - angles.back() + angles.front() > 0.5;
          for (int i = 1; i < k; ++i) wide = wide && angles[i] - angles[i - 1] > 0.5;
          if (wide) break;
        }
        std::vector<point2> points;
        for (double a : angles) points.push_back(point2{{x + r * std::cos(a), y + r * std::sin(a)}});
        if (sliced) return testing::sliced_prism(store, points, z - hz, z + hz, integer(2, 5));
        return store.prism(points, z - hz, z + hz);
      }
    }
  }

  std::mt19937_64 rng_;
  bool aligned_ = false;
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

struct truth_t {
  double distance = 1e300;
};

truth_t brute_force(const layout_case& c, const point3& p) {
  truth_t t;
  for (const wire_block* b : c.blocks) t.distance = std::min(t.distance, manhattan_distance(p, *b).value);
  return t;
}

// Checks one answer against the oracle; `within` is the smaller of the limit
// and the scope at p. Returns an empty string when all holds.
std::string check(const nearest_result& r, const truth_t& truth, double within, bool reach_is_distance,
                  bool pair = false) {
  // Never more room than there is: a point on or in a conductor is answered 0.
  if (r.distance.value > std::max(truth.distance, 0.0) + tol)
    return "answer " + std::to_string(r.distance.value) + " beyond the true nearest " + std::to_string(truth.distance);
  if (truth.distance < within - tol) {
    // In a pair the first answer stands on a tie within the tolerance. Where the
    // scope is (about) 0, on the cube's face with a scope bound of 0, the first
    // list answers "no block, 0" and the second's "on a conductor, 0" ties with
    // it: the room claimed is right (none), the block is not named.
    if (pair && r.block == nullptr && truth.distance < on_conductor && std::abs(r.distance.value) <= tol) return {};
    if (r.block == nullptr) return "no block named though the nearest lies within scope and limit";
    if (truth.distance < on_conductor) {
      if (r.distance.value != 0.0 || r.reach.value != 0.0) return "a point on a conductor not answered 0";
    } else {
      if (std::abs(r.distance.value - truth.distance) > tol) return "the answer is not the true nearest";
      if (reach_is_distance && r.reach.value != r.distance.value) return "reach differs from distance";
    }
  }
  return {};
}

std::string check_named(const nearest_result& r, const point3& p) {
  if (r.block == nullptr) return {};
  const double named = manhattan_distance(p, *r.block).value;
  if (r.distance.value == 0.0 && r.reach.value == 0.0) {
    if (!(on_conductor > named)) return "answered on a conductor, but the block is " + std::to_string(named) + " away";
  } else if (named != r.distance.value) {
    return "the named block is not at the answered distance";
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

TEST(CandidateListExactness, OneListOfEveryBlockAgreesWithBruteForce) {
  for (const mode& m : modes) {
    const configure config = config_of(m);
    int failures = 0;
    int exact_checks = 0;
    for (int trial = 0; trial < trials && failures < 5; ++trial) {
      random_layouts rnd(1000 + trial);
      layout_case c;
      rnd.fill(c, true, merged_mode_scope(m));
      std::vector<const wire_block*> order = c.blocks;
      std::shuffle(order.begin(), order.end(), std::mt19937_64(trial));
      for (fill_by how : {fill_by::try_add, fill_by::gated_add}) {
        const candidate_list list = build(c, config, spacemgr_all, how, order);
        ASSERT_EQ(list.candidates.capacity(), list.candidates.size());
        for (int k = 0; k < points_per_trial; ++k) {
          const point3 p = rnd.point_in(c.cube);
          const double limit = rnd.integer(0, 1) == 0 ? 1e9 : rnd.uniform(0.0, 5.0);
          candidate_list_cache cache;
          cache.list = &list;
          const double scope = cache.get_scope(p).value;
          const nearest_result r = cache.nearest(p, limit);
          const truth_t truth = brute_force(c, p);
          const double within = std::min(limit, scope);
          if (truth.distance < within - tol) ++exact_checks;
          std::string why = check(r, truth, within, !m.double_ratio);
          if (why.empty()) why = check_named(r, p);
          if (!why.empty()) {
            ++failures;
            ADD_FAILURE() << m.name << ", trial " << trial << (how == fill_by::try_add ? " (try_add)" : " (add)")
                          << ", point " << k << ": " << why;
          }
        }
      }
    }
    // The oracle must have had real work: many points whose nearest lay in reach.
    EXPECT_GT(exact_checks, trials * points_per_trial / 4) << m.name;
  }
}

// A cuboid list and a list of the other solids, each offered every block, as
// a pair of strategies holds them; the second is asked with the first answer
// as its limit and the nearer answer wins.
TEST(CandidateListExactness, APairOfCuboidAndOtherSolidListsAgreesWithBruteForce) {
  for (const mode& m : modes) {
    const configure config = config_of(m);
    int failures = 0;
    for (int trial = 0; trial < trials && failures < 5; ++trial) {
      random_layouts rnd(50000 + trial);
      layout_case c;
      rnd.fill(c, true, merged_mode_scope(m));
      const candidate_list cuboids = build(c, config, spacemgr_cuboid, fill_by::try_add, c.blocks);
      const candidate_list others = build(c, config, spacemgr_incline, fill_by::try_add, c.blocks);
      for (int k = 0; k < points_per_trial; ++k) {
        const point3 p = rnd.point_in(c.cube);
        const double limit = rnd.integer(0, 1) == 0 ? 1e9 : rnd.uniform(0.0, 5.0);
        candidate_list_cache first, second;
        first.list = &cuboids;
        second.list = &others;
        const double scope = first.get_scope(p).value;
        second.get_scope(p);
        nearest_result r = first.nearest(p, limit);
        const nearest_result r2 = second.nearest(p, r.distance);
        if (r.distance - tol > r2.distance) {
          const double old = r.distance.value;
          r.block = r2.block;
          r.distance = r2.distance;
          r.reach = r2.reach.value < old - tol ? r2.reach.value : old;
        }
        std::string why = check(r, brute_force(c, p), std::min(limit, scope), false, true);
        if (why.empty()) why = check_named(r, p);
        if (!why.empty()) {
          ++failures;
          ADD_FAILURE() << m.name << ", trial " << trial << ", point " << k << ": " << why;
        }
      }
    }
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
      random_layouts rnd(90000 + trial);
      layout_case c;
      rnd.fill(c, true, merged_mode_scope(m));
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
            const point3 p = rnd.point_in(c.cube);
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
