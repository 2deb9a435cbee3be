// Speed of nearest-conductor queries on generated interconnect layouts.
//
// For each pair of search strategies and each layout size:
//   build/<pair>/<blocks>   the time of initialize (layout fields derived before)
//   query/<pair>/<blocks>   one query of a walk-like stream with one walker's
//                           caches kept from query to query
//   query/scan/<blocks>     the same stream answered by a scan over all blocks
// The stream: each next point lies on the surface of the cube that the last
// answer allows, as a floating random walk would jump; a walk starts afresh
// at a random point of the window when it comes within 0.01 of a conductor,
// after 200 steps, or when it leaves the window. Counters: blocks, and over
// the first 2000 queries of the stream, the share that a cached list served
// (hit_rate) and the mean answered distance (mean_distance; the scan's is the
// true mean, and a pair's lies below it where scopes cut the answers).
//
// Adding a pair is one line in `pairs` below.
//
// Run from the repository root:
//   cmake -S . -B build-bench -G Ninja -DCMAKE_BUILD_TYPE=Release -DTORVA_BUILD_TESTS=OFF \
//     -DTORVA_BUILD_TOOLS=OFF && cmake --build build-bench --target nearest_benchmark && \
//     build-bench/bench/nearest_benchmark --benchmark_repetitions=3 --benchmark_report_aggregates_only
// The simple pairs hold every block in one list: at 100k blocks their build
// is quadratic (several seconds) and a query costs as much as the scan.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdint>
#include <map>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "torva/foundation/abstract_wrapper.h"
#include "torva/foundation/logger.h"
#include "torva/geometry/distance.h"
#include "torva/layout/generator.h"
#include "torva/space/basic_space_manager.h"
#include "torva/space/layout_fields.h"
#include "torva/space/octree_spacemgr.h"
#include "torva/space/simple_spacemgr.h"
#include "torva/space/unused_spacemgr.h"

namespace {

using namespace torva;
using manager_holder = sea::abstract_wrapper<space_manager_interface>;
using build_function = void (*)(manager_holder&, const configure&, const circuit_layout&);

template <class Pair>
void build(manager_holder& holder, const configure& config, const circuit_layout& layout) {
  holder.construct<Pair>().initialize(config, layout);
}

struct pair_entry {
  const char* name;
  build_function make;
};

const pair_entry pairs[] = {
    {"simple_simple", &build<basic_space_manager<simple_spacemgr<3>, simple_spacemgr<1>>>},
    {"octree_octree", &build<basic_space_manager<octree_spacemgr<3>, octree_spacemgr<1>>>},
    {"simple_none", &build<basic_space_manager<simple_spacemgr<0>, unused_spacemgr>>},
    {"octree_none", &build<basic_space_manager<octree_spacemgr<0>, unused_spacemgr>>},
};

const std::int64_t sizes[] = {10'000, 100'000};

// A crossing layout of four metal layers, a twentieth of the segments
// polygons, a twentieth cylinders and a twentieth tapered (cut into slices).
struct workload {
  circuit_layout layout;
  configure config;
  std::vector<point3> stream;
};

configure bench_configure() {
  configure c;  // the library's defaults: 20 candidates, depth 12, plain dominance
  return c;
}

double scan(const circuit_layout& layout, const point3& p) {
  double best = 1e300;
  for (wire_block const* b : layout.blocks) {
    const double d = manhattan_distance(p, *b).value;
    if (d < best) best = d;
  }
  return best;
}

std::vector<point3> walk_stream(const space_manager_interface& m, const circuit_layout& layout, std::size_t count) {
  std::mt19937_64 rng(12345);
  std::uniform_real_distribution<double> unit(0.0, 1.0);
  const cuboid_t& w = layout.data.window;
  auto fresh = [&] {
    point3 p;
    for (int k = 0; k < 3; ++k) p[k] = w.lower[k].value + (w.upper[k].value - w.lower[k].value) * unit(rng);
    return p;
  };
  auto inside = [&](const point3& p) {
    for (int k = 0; k < 3; ++k)
      if (p[k].value <= w.lower[k].value || p[k].value >= w.upper[k].value) return false;
    return true;
  };
  std::vector<point3> out;
  out.reserve(count);
  candidate_list_cache a, b;
  point3 p = fresh();
  int steps = 0;
  while (out.size() < count) {
    const nearest_result r = m.nearest(p, 1e9, a, b);
    out.push_back(p);
    const double h = r.distance.value;
    if (h < 0.01 || ++steps > 200) {
      p = fresh();
      steps = 0;
      continue;
    }
    point3 next = p;
    const int face = int(unit(rng) * 6) % 6;
    for (int k = 0; k < 3; ++k) next[k] = p[k].value + h * (2 * unit(rng) - 1);
    next[face % 3] = p[face % 3].value + (face < 3 ? h : -h);
    if (!inside(next)) {
      next = fresh();
      steps = 0;
    }
    p = next;
  }
  return out;
}

workload& workload_of(std::int64_t blocks) {
  static std::map<std::int64_t, std::unique_ptr<workload>> cache;
  std::unique_ptr<workload>& w = cache[blocks];
  if (!w) {
    w = std::make_unique<workload>();
    generator_params p;
    p.kind = layout_kind::crossing;
    p.blocks = std::uint64_t(blocks);
    p.layers = 4;
    p.polygon_share = 0.05;
    p.cylinder_share = 0.05;
    p.incline_share = 0.05;
    p.seed = 7;
    build_circuit(generate_layout(p), w->layout);
    derive_layout_fields(w->layout);
    w->layout.data.boundary = 1;
    w->config = bench_configure();
    manager_holder m;
    build<basic_space_manager<octree_spacemgr<3>, octree_spacemgr<1>>>(m, w->config, w->layout);
    w->stream = walk_stream(*m, w->layout, 20000);
  }
  return *w;
}

// One manager per pair and size, built on first use and kept for the run.
const space_manager_interface& manager_of(const pair_entry& pair, std::int64_t blocks) {
  static std::map<std::pair<std::string, std::int64_t>, std::unique_ptr<manager_holder>> cache;
  std::unique_ptr<manager_holder>& m = cache[{pair.name, blocks}];
  if (!m) {
    workload& w = workload_of(blocks);
    m = std::make_unique<manager_holder>();
    pair.make(*m, w.config, w.layout);
  }
  return **m;
}

void BM_build(benchmark::State& state, const pair_entry* pair) {
  workload& w = workload_of(state.range(0));
  for (auto _ : state) {
    manager_holder holder;
    pair->make(holder, w.config, w.layout);
    benchmark::DoNotOptimize(holder.get());
  }
  state.counters["blocks"] = double(w.layout.blocks.size());
}

void BM_query(benchmark::State& state, const pair_entry* pair) {
  workload& w = workload_of(state.range(0));
  const space_manager_interface& m = manager_of(*pair, state.range(0));
  // Measured apart, on the first 2000 queries of the stream.
  {
    candidate_list_cache a, b;
    std::size_t hits = 0;
    double sum = 0;
    const std::size_t n = std::min<std::size_t>(2000, w.stream.size());
    for (std::size_t k = 0; k < n; ++k) {
      candidate_list_cache probe = a;
      hits += probe.match(w.stream[k]);
      sum += m.nearest(w.stream[k], 1e9, a, b).distance.value;
    }
    state.counters["hit_rate"] = double(hits) / double(n);
    state.counters["mean_distance"] = sum / double(n);
  }
  candidate_list_cache a, b;
  std::size_t i = 0;
  for (auto _ : state) {
    const nearest_result r = m.nearest(w.stream[i], 1e9, a, b);
    benchmark::DoNotOptimize(r);
    if (++i == w.stream.size()) i = 0;
  }
  state.counters["blocks"] = double(w.layout.blocks.size());
}

void BM_scan(benchmark::State& state) {
  workload& w = workload_of(state.range(0));
  {
    double sum = 0;
    const std::size_t n = std::min<std::size_t>(2000, w.stream.size());
    for (std::size_t k = 0; k < n; ++k) sum += scan(w.layout, w.stream[k]);
    state.counters["mean_distance"] = sum / double(n);
  }
  std::size_t i = 0;
  for (auto _ : state) {
    const double d = scan(w.layout, w.stream[i]);
    benchmark::DoNotOptimize(d);
    if (++i == w.stream.size()) i = 0;
  }
  state.counters["blocks"] = double(w.layout.blocks.size());
}

}  // namespace

int main(int argc, char** argv) {
  // The managers log their box choice; keep the benchmark's output clean.
  logger& log = logger::instance();
  log.set_info(std::make_unique<sea::string_writer>());
  log.set_detail(std::make_unique<sea::string_writer>());
  log.set_warning(std::make_unique<sea::string_writer>());
  log.set_error(std::make_unique<sea::file_writer>(stderr));
  for (const pair_entry& pair : pairs) {
    for (std::int64_t n : sizes)
      benchmark::RegisterBenchmark((std::string("build/") + pair.name).c_str(), BM_build, &pair)
          ->Arg(n)
          ->Unit(benchmark::kMillisecond)
          ->Iterations(1);
  }
  for (const pair_entry& pair : pairs) {
    for (std::int64_t n : sizes)
      benchmark::RegisterBenchmark((std::string("query/") + pair.name).c_str(), BM_query, &pair)->Arg(n);
  }
  for (std::int64_t n : sizes) benchmark::RegisterBenchmark("query/scan", BM_scan)->Arg(n)->Unit(benchmark::kMicrosecond);
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  return 0;
}
