// Filling a candidate list (the build hot spot: dominance tests are quadratic
// in the list's length) and querying a completed one (the walk's innermost
// operation).
#include <benchmark/benchmark.h>

#include <cmath>
#include <numbers>
#include <random>
#include <vector>

#include "torva/space/candidate_list.h"
#include "torva/space/candidate_list_cache.h"
#include "torva_testing/random_layout.h"

namespace {

using namespace torva;
using testing::box;
using testing::p2;

// A layout of n blocks scattered around the unit cube at the origin: two in
// four cuboids, one a cylinder, one a prism cut into three slices.
struct scene {
  circuit_layout store;
  std::vector<const wire_block*> blocks;

  explicit scene(int n) {
    std::mt19937_64 rng(42);
    std::uniform_real_distribution<double> pos(-6, 6), size(0.2, 1.5), angle(0, 2 * std::numbers::pi);
    for (int i = 0; i < n; ++i) {
      const double x = pos(rng), y = pos(rng), z = pos(rng), a = size(rng), b = size(rng), c = size(rng);
      switch (i % 4) {
        case 0:
        case 1:
          blocks.push_back(testing::add_cuboid(store, box(x - a, y - b, z - c, x + a, y + b, z + c)));
          break;
        case 2:
          blocks.push_back(testing::add_cylinder(store, x, y, z, a, c));
          break;
        default: {
          const double t = angle(rng);
          std::vector<point2> points;
          for (int k = 0; k < 4; ++k)
            points.push_back(p2(x + a * std::cos(t + k * std::numbers::pi / 2), y + a * std::sin(t + k * std::numbers::pi / 2)));
          blocks.push_back(testing::add_prism(store, points, z - c, z + c, 3));
        }
      }
    }
  }
};

configure mode_config(int mode) {
  configure config;
  config.group_dominance = mode == 1;
  config.group_optimize = mode == 2;
  return config;
}

// Arguments: number of blocks, dominance mode (0 plain, 1 piecewise, 2 merged).
void fill_and_complete(benchmark::State& state) {
  const scene s(static_cast<int>(state.range(0)));
  const configure config = mode_config(static_cast<int>(state.range(1)));
  std::size_t kept = 0;
  for (auto _ : state) {
    candidate_list list;
    list.initialize(config, testing::cube_at(0, 0, 0, 1), 4.0);
    list.kind = spacemgr_all;
    for (const wire_block* b : s.blocks) list.try_add(testing::candidate_for(list, b));
    list.complete();
    kept = list.candidates.size();
    benchmark::DoNotOptimize(list.candidates.data());
  }
  state.counters["kept"] = static_cast<double>(kept);
  state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(s.blocks.size()));
}
BENCHMARK(fill_and_complete)->ArgsProduct({{50, 400, 2000}, {0, 1, 2}});

// A list of every candidate (kind 5, no thinning) against the thinned one:
// what dominance buys at query time.
void nearest_query(benchmark::State& state) {
  const scene s(400);
  candidate_list list;
  list.initialize(configure{}, testing::cube_at(0, 0, 0, 1), 4.0);
  list.kind = state.range(0) == 0 ? spacemgr_all : spacemgr_all_nd;
  for (const wire_block* b : s.blocks) list.try_add(testing::candidate_for(list, b));
  list.complete();
  std::mt19937_64 rng(7);
  std::uniform_real_distribution<double> u(-1, 1);
  std::vector<point3> points(1024);
  for (point3& p : points) p = point3{{u(rng), u(rng), u(rng)}};
  candidate_list_cache cache;
  cache.list = &list;
  std::size_t i = 0;
  for (auto _ : state) {
    const point3& p = points[i++ & 1023];
    cache.get_scope(p);
    benchmark::DoNotOptimize(cache.nearest(p, 1e9));
  }
  state.counters["entries"] = static_cast<double>(list.candidates.size());
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(nearest_query)->Arg(0)->Arg(1);

}  // namespace
BENCHMARK_MAIN();
