// Cost of one signed maximum-norm distance per kind of solid: the innermost
// call of every nearest-conductor query.
#include <benchmark/benchmark.h>

#include <random>
#include <vector>

#include "torva/geometry/distance.h"
#include "torva/layout/generator.h"

namespace {

// A mixed layout's blocks of one kind, and points around them.
struct fixture {
  torva::circuit_layout circuit;
  std::vector<const torva::wire_block*> blocks;
  std::vector<torva::point3> points;

  explicit fixture(std::uint32_t kind) {
    torva::generator_params p;
    p.kind = torva::layout_kind::mixed;
    p.blocks = 4000;
    p.layers = 2;
    p.polygon_share = kind == torva::shape_prism ? 1.0 : 0.0;
    p.cylinder_share = kind == torva::shape_cylinder ? 1.0 : 0.0;
    torva::build_circuit(torva::generate_layout(p), circuit);
    for (const torva::wire_block* b : circuit.blocks)
      if (b->shape_kind == kind) blocks.push_back(b);
    std::mt19937_64 rng(5);
    const auto& w = circuit.data.window;
    std::uniform_real_distribution<double> x(w.lower[0], w.upper[0]), y(w.lower[1], w.upper[1]),
        z(w.lower[2], w.upper[2]);
    for (int i = 0; i < 1024; ++i) points.push_back(torva::point3{{x(rng), y(rng), z(rng)}});
  }
};

void run(benchmark::State& state, std::uint32_t kind) {
  const fixture f(kind);
  std::size_t b = 0, q = 0;
  double sum = 0;
  for (auto _ : state) {
    sum += torva::manhattan_distance(f.points[q], *f.blocks[b]).value;
    if (++b == f.blocks.size()) b = 0;
    q = (q + 1) & 1023;
  }
  benchmark::DoNotOptimize(sum);
  state.SetItemsProcessed(std::int64_t(state.iterations()));
}

void BM_manhattan_distance_cuboid(benchmark::State& s) { run(s, torva::shape_cuboid); }
void BM_manhattan_distance_cylinder(benchmark::State& s) { run(s, torva::shape_cylinder); }
void BM_manhattan_distance_prism(benchmark::State& s) { run(s, torva::shape_prism); }
BENCHMARK(BM_manhattan_distance_cuboid);
BENCHMARK(BM_manhattan_distance_cylinder);
BENCHMARK(BM_manhattan_distance_prism);

void BM_distance_cuboid(benchmark::State& state) {
  const fixture f(torva::shape_cuboid);
  std::size_t b = 0, q = 0;
  double sum = 0;
  for (auto _ : state) {
    sum += torva::distance(f.blocks[b]->outer_box, f.points[q]).value;
    if (++b == f.blocks.size()) b = 0;
    q = (q + 1) & 1023;
  }
  benchmark::DoNotOptimize(sum);
}
BENCHMARK(BM_distance_cuboid);

}  // namespace

BENCHMARK_MAIN();
