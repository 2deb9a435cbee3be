// The ten strategy pairs, the automatic choice and the compact index on generated layouts
// (crossing wires on several metal layers, with a share of polygon prisms and
// cylinders), beside two baselines measured in the same run on the same query
// points: a brute-force scan over every block, and Embree 3's BVH point query
// with a callback that computes the same signed maximum-norm distance. Embree
// is used here only; the library never links it.
//
// One command runs it all and prints a summary per layout at the end:
//   build/bench/grid_benchmark [--grid_sizes=10000,100000,1000000]
//                              [--grid_points=50000] [--grid_repetitions=3]
//                              [--grid_max_candidates=N] [--grid_max_depth=N]
//                              [--grid_decrease=0|1] [--grid_start=box|net]
//                              [any Google Benchmark flag]
// The last three set the candidate and depth limits of every tree and grid
// (configure's defaults when left out) and whether flat cells halve.
//
// Figures:
// - build/<pair>/<blocks>/threads:<t>: time of space_manager::initialize with
//   configure::thread_count = t; counter peak_MiB is the growth of the
//   resident set's high-water mark during the build (the kernel's mark is
//   reset before it, freed heap is handed back first).
// - query/<pair>/<blocks>: ns per nearest() on a walk-like stream of points,
//   one walker, caches kept from step to step. Counters: cand, the mean number
//   of list entries scanned per query over the first --grid_verify points
//   (entries that passed the sorted cut-off of the list, counted by a copy of
//   the scan over the same lists, outside the timing); bad, answers of the first --grid_verify points that break the
//   contract (farther than the true nearest block, or naming a block not at
//   the answered distance); radius, the mean answered distance over the true
//   one (the share of the free cube that a walker may use).
// - query/brute and query/embree: the same points answered exactly; cand is
//   the number of blocks measured per query.
// - build/compact/<blocks>/threads:<t> and query/compact/<blocks>: the compact
//   index of grid-none-nd (counter held_MiB: what it holds), on the same
//   stream; counter differ: answers of the first --grid_verify points that
//   differ in any bit from grid-none-nd's with the same caches (0 expected).
//
// The walk: a walker starts at a random point of the critical box that lies
// outside every conductor, and jumps to a uniformly random point on the
// surface of the largest empty cube about its position (radius taken from the
// exact nearest distance, cut at the window wall) until it comes within 0.01
// of a conductor; then a new walker starts. Every position is one query.
// With --grid_start=net a walker starts instead on a surface about one net,
// as the walks of one capacitance extraction do: the box of the middle net of
// the layout grown by half its gap to the nearest other conductor. Those
// queries gather round one conductor, so far fewer of the structure's cells
// and blocks are touched than by starts anywhere in the critical box.
//
// The simple pairs (and hybrid-simple) build one list over all blocks of a
// family, quadratic in their number: they are left out above 100000 blocks.
//
// The streams and layouts are in grid_bench_walks.*, the pairs' counted scans
// and checks in grid_bench_pairs.h, the closing table in grid_bench_summary.*,
// Embree's point query in embree_baseline.*.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "embree_baseline.h"
#include "torva/foundation/configure.h"
#include "torva/geometry/distance.h"
#include "torva/space/candidate_list_cache.h"
#include "torva/space/compact_index.h"
#include "torva/space/space_manager.h"
#include "torva_testing/log_capture.h"
#include "grid_bench_pairs.h"
#include "grid_bench_summary.h"
#include "grid_bench_walks.h"

namespace torva::grid_bench {
namespace {

testing::log_capture* logs = nullptr;

// The manager that the query benchmark of a pair uses: the last one built by
// its two-thread build benchmark.
// The configure lives beside it: a manager keeps a pointer to it.
struct built_manager {
  std::uint64_t size = 0;
  int index = -1;
  std::unique_ptr<configure> config;
  std::unique_ptr<space_manager> manager;
};
built_manager kept;

void bm_build(benchmark::State& state, std::uint64_t size, int index, int threads) {
  bench_layout& b = layout_for(size);
  double peak = 0.0;
  double cpu = 0.0;
  for (auto _ : state) {
    if (threads == 2) kept = built_manager{};
    auto config = std::make_unique<configure>(config_for(index, threads));
    auto manager = std::make_unique<space_manager>();
    memory_probe probe;
    const double c0 = process_cpu_seconds();
    const auto t0 = std::chrono::steady_clock::now();
    manager->initialize(*config, b.layout);
    const auto t1 = std::chrono::steady_clock::now();
    cpu = process_cpu_seconds() - c0;
    peak = std::max(peak, probe.peak_mib());
    state.SetIterationTime(std::chrono::duration<double>(t1 - t0).count());
    logs->clear();
    if (threads == 2) kept = built_manager{size, index, std::move(config), std::move(manager)};
  }
  state.counters["peak_MiB"] = peak;
  state.counters["cpu_ms"] = cpu * 1e3;
  state.SetLabel(info_of(index, b.layout).name);
}

void bm_query(benchmark::State& state, std::uint64_t size, int index) {
  bench_layout& b = layout_for(size);
  if (kept.size != size || kept.index != index || !kept.manager) {
    kept = built_manager{size, index, std::make_unique<configure>(config_for(index, 2)),
                         std::make_unique<space_manager>()};
    kept.manager->initialize(*kept.config, b.layout);
    logs->clear();
  }
  const space_manager_interface& m = **kept.manager;
  candidate_list_cache v1, v2;
  const stream_check check = check_stream(b, [&](std::size_t k) { return m.nearest(b.points[k], b.limits[k], v1, v2); });
  candidate_list_cache c1, c2;
  std::size_t i = 0;
  const std::size_t n = b.points.size();
  for (auto _ : state) {
    nearest_result r = m.nearest(b.points[i], b.limits[i], c1, c2);
    benchmark::DoNotOptimize(r);
    if (++i == n) i = 0;
  }
  state.counters["cand"] = info_of(index, b.layout).scanned(m, b);
  state.counters["bad"] = double(check.bad);
  state.counters["radius"] = check.share;
  state.SetLabel(info_of(index, b.layout).name);
}

// ---------------------------------------------------------------- compact index

// The index the query benchmark uses: the last one built by the two-thread build.
struct built_compact {
  std::uint64_t size = 0;
  std::unique_ptr<compact_index> index;
};
built_compact kept_compact;

void bm_compact_build(benchmark::State& state, std::uint64_t size, int threads) {
  bench_layout& b = layout_for(size);
  double peak = 0.0, cpu = 0.0, mib = 0.0;
  for (auto _ : state) {
    if (threads == 2) kept_compact = built_compact{};
    const configure config = config_for(9, threads);
    memory_probe probe;
    const double c0 = process_cpu_seconds();
    const auto t0 = std::chrono::steady_clock::now();
    auto index = std::make_unique<compact_index>(build_compact_index(config, b.layout));
    const auto t1 = std::chrono::steady_clock::now();
    cpu = process_cpu_seconds() - c0;
    peak = std::max(peak, probe.peak_mib());
    mib = double(index->bytes()) / 1048576.0;
    state.SetIterationTime(std::chrono::duration<double>(t1 - t0).count());
    if (threads == 2) kept_compact = built_compact{size, std::move(index)};
  }
  state.counters["peak_MiB"] = peak;
  state.counters["cpu_ms"] = cpu * 1e3;
  state.counters["held_MiB"] = mib;
}

void bm_compact_query(benchmark::State& state, std::uint64_t size) {
  bench_layout& b = layout_for(size);
  if (kept_compact.size != size || !kept_compact.index)
    kept_compact = built_compact{size, std::make_unique<compact_index>(build_compact_index(config_for(9, 2), b.layout))};
  const compact_index& x = *kept_compact.index;
  compact_cache v;
  const stream_check check = check_stream(b, [&](std::size_t k) { return x.nearest(b.points[k], b.limits[k], v); });
  // Answers that differ in any bit from grid-none-nd's, over the same points with the same caches.
  std::size_t differ = 0;
  {
    if (kept.size != size || kept.index != 9 || !kept.manager) {
      kept = built_manager{size, 9, std::make_unique<configure>(config_for(9, 2)), std::make_unique<space_manager>()};
      kept.manager->initialize(*kept.config, b.layout);
      logs->clear();
    }
    candidate_list_cache c1, c2;
    compact_cache c;
    const std::size_t n = std::min(options.verify, b.points.size());
    for (std::size_t i = 0; i < n; ++i) {
      const nearest_result p = (*kept.manager)->nearest(b.points[i], b.limits[i], c1, c2);
      const nearest_result q = x.nearest(b.points[i], b.limits[i], c);
      differ += p.block != q.block || std::memcmp(&p.distance, &q.distance, sizeof(double)) != 0 ||
                std::memcmp(&p.reach, &q.reach, sizeof(double)) != 0;
    }
  }
  compact_cache c;
  std::size_t i = 0;
  const std::size_t n = b.points.size();
  for (auto _ : state) {
    nearest_result r = x.nearest(b.points[i], b.limits[i], c);
    benchmark::DoNotOptimize(r);
    if (++i == n) i = 0;
  }
  state.counters["bad"] = double(check.bad);
  state.counters["radius"] = check.share;
  state.counters["differ"] = double(differ);
}

void bm_brute(benchmark::State& state, std::uint64_t size) {
  bench_layout& b = layout_for(size);
  std::size_t i = 0;
  const std::size_t n = b.points.size();
  for (auto _ : state) {
    double d = brute_nearest(b.layout.blocks, b.points[i], b.limits[i]);
    benchmark::DoNotOptimize(d);
    if (++i == n) i = 0;
  }
  state.counters["cand"] = double(b.layout.blocks.size());
}

void bm_embree_build(benchmark::State& state, std::uint64_t size, int threads) {
  bench_layout& b = layout_for(size);
  double peak = 0.0;
  double cpu = 0.0;
  for (auto _ : state) {
    embree_index index;
    memory_probe probe;
    const double c0 = process_cpu_seconds();
    const auto t0 = std::chrono::steady_clock::now();
    index.build(b.layout.blocks, threads);
    const auto t1 = std::chrono::steady_clock::now();
    cpu = process_cpu_seconds() - c0;
    peak = std::max(peak, probe.peak_mib());
    state.SetIterationTime(std::chrono::duration<double>(t1 - t0).count());
  }
  state.counters["peak_MiB"] = peak;
  state.counters["cpu_ms"] = cpu * 1e3;
}

void bm_embree_query(benchmark::State& state, std::uint64_t size) {
  bench_layout& b = layout_for(size);
  std::size_t i = 0;
  const std::size_t n = b.points.size();
  for (auto _ : state) {
    double d = b.embree.nearest(b.points[i], b.limits[i]);
    benchmark::DoNotOptimize(d);
    if (++i == n) i = 0;
  }
  std::size_t visited = 0;
  for (std::size_t k = 0; k < n; ++k) b.embree.nearest(b.points[k], b.limits[k], &visited);
  state.counters["cand"] = double(visited) / double(n);
  state.counters["walks"] = double(b.walks);
}

void register_all() {
  for (std::uint64_t size : options.sizes) {
    const std::string n = std::to_string(size);
    // One run only for the largest layouts: a build takes seconds there.
    const int reps = size >= 1000000 ? 1 : options.repetitions;
    for (int threads : {1, 2})
      benchmark::RegisterBenchmark(("build/embree/" + n + "/threads:" + std::to_string(threads)).c_str(),
                                   bm_embree_build, size, threads)
          ->Unit(benchmark::kMillisecond)
          ->UseManualTime()
          ->Iterations(1)
          ->Repetitions(reps)
          ->ReportAggregatesOnly(reps > 1);
    benchmark::RegisterBenchmark(("query/embree/" + n).c_str(), bm_embree_query, size)
        ->Repetitions(reps)
        ->ReportAggregatesOnly(reps > 1);
    benchmark::RegisterBenchmark(("query/brute/" + n).c_str(), bm_brute, size)
        ->Repetitions(reps)
        ->ReportAggregatesOnly(reps > 1);
    for (int index = 0; index <= auto_index; ++index) {
      if (left_out(index, size)) continue;
      const std::string name = index == auto_index ? std::string("auto") : pairs[index].name;
      for (int threads : {1, 2})
        benchmark::RegisterBenchmark(("build/" + name + "/" + n + "/threads:" + std::to_string(threads)).c_str(),
                                     bm_build, size, index, threads)
            ->Unit(benchmark::kMillisecond)
            ->UseManualTime()
            ->Iterations(1)
            ->Repetitions(reps)
            ->ReportAggregatesOnly(reps > 1);
      benchmark::RegisterBenchmark(("query/" + name + "/" + n).c_str(), bm_query, size, index)
          ->Repetitions(reps)
          ->ReportAggregatesOnly(reps > 1);
      // The compact index right after the pair it copies, whose manager its query compares with.
      if (index != 9) continue;
      for (int threads : {1, 2})
        benchmark::RegisterBenchmark(("build/compact/" + n + "/threads:" + std::to_string(threads)).c_str(),
                                     bm_compact_build, size, threads)
            ->Unit(benchmark::kMillisecond)
            ->UseManualTime()
            ->Iterations(1)
            ->Repetitions(reps)
            ->ReportAggregatesOnly(reps > 1);
      benchmark::RegisterBenchmark(("query/compact/" + n).c_str(), bm_compact_query, size)
          ->Repetitions(reps)
          ->ReportAggregatesOnly(reps > 1);
    }
  }
}

}  // namespace
}  // namespace torva::grid_bench

int main(int argc, char** argv) {
  torva::grid_bench::take_own_flags(argc, argv);
  torva::testing::log_capture logs;  // the library reports on the logger's channels
  torva::grid_bench::logs = &logs;
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  torva::grid_bench::register_all();
  torva::grid_bench::collecting_reporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  torva::grid_bench::print_summary(reporter);
  torva::grid_bench::kept = torva::grid_bench::built_manager{};
  torva::grid_bench::kept_compact = torva::grid_bench::built_compact{};
  torva::grid_bench::current_layout.reset();
  benchmark::Shutdown();
  return 0;
}
