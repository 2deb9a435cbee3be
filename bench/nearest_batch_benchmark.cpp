// One batch of nearest-conductor queries in plain C++, as a client of the
// library writes it: the batch split across OpenMP threads, each keeping its
// own pair of caches, answers written into vectors made for the batch. The
// Python module's Index.nearest does the same work behind numpy arrays;
// bench/python_nearest_batch.py runs both on one layout and one set of points
// and compares them.
//
//   build/bench/nearest_batch_benchmark [--batch_layout=FILE --batch_points=FILE] [--batch_threads=N]
//       [--benchmark_repetitions=5]
// --batch_points is a file of float64 x, y, z rows. Without the two files, a
// generated crossing of 100,000 segments and 10^6 points uniform in its
// search space are used.
#include <benchmark/benchmark.h>
#include <omp.h>

#include <cstdio>
#include <cstring>
#include <fstream>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "torva/foundation/logger.h"
#include "torva/layout/cap3d_parser.h"
#include "torva/layout/generator.h"
#include "torva/space/layout_fields.h"
#include "torva/space/space_manager.h"

namespace {

using namespace torva;

std::string layout_file, points_file;
int threads = 2;

struct fixture {
  circuit_layout layout;
  configure config;
  space_manager manager;
  std::vector<double> points;
};

std::unique_ptr<fixture> make_fixture() {
  auto f = std::make_unique<fixture>();
  if (!layout_file.empty()) {
    Cap3dParser parser(f->layout.data, 4, true, false);
    if (!parser.parse(layout_file, "")) throw std::runtime_error("cannot read " + layout_file);
    derive_layout_fields(f->layout);
  } else {
    generator_params p;
    p.kind = layout_kind::crossing;
    p.blocks = 100000;
    p.layers = 4;
    build_circuit(generate_layout(p), f->layout);
    derive_layout_fields(f->layout);
  }
  f->config.spacemgr_type = 10;
  f->config.thread_count = threads;
  f->manager.initialize(f->config, f->layout);
  if (!points_file.empty()) {
    std::ifstream in(points_file, std::ios::binary | std::ios::ate);
    const std::size_t bytes = std::size_t(in.tellg());
    f->points.resize(bytes / sizeof(double));
    in.seekg(0);
    in.read(reinterpret_cast<char*>(f->points.data()), std::streamsize(f->points.size() * sizeof(double)));
  } else {
    const cuboid_t& s = f->manager->space();
    std::mt19937_64 rng(1);
    std::uniform_real_distribution<double> unit(0.0, 1.0);
    f->points.resize(3000000);
    for (std::size_t i = 0; i < f->points.size(); ++i) {
      const int k = int(i % 3);
      f->points[i] = s.lower[k].value + (s.upper[k].value - s.lower[k].value) * unit(rng);
    }
  }
  return f;
}

void batch(benchmark::State& state) {
  static const std::unique_ptr<fixture> f = make_fixture();
  const std::int64_t n = std::int64_t(f->points.size() / 3);
  for (auto _ : state) {
    std::vector<double> distance(n), reach(n);
    std::vector<const wire_block*> block(n);
#pragma omp parallel num_threads(threads)
    {
      candidate_list_cache first, second;
#pragma omp for schedule(static)
      for (std::int64_t i = 0; i < n; ++i) {
        const double* q = &f->points[3 * i];
        const nearest_result r = f->manager->nearest(point3{{q[0], q[1], q[2]}}, 1e9, first, second);
        distance[i] = r.distance.value;
        reach[i] = r.reach.value;
        block[i] = r.block;
      }
    }
    benchmark::DoNotOptimize(distance.data());
    benchmark::DoNotOptimize(block.data());
  }
  state.counters["points"] = double(n);
  state.counters["blocks"] = double(f->layout.blocks.size());
}
BENCHMARK(batch)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace

int main(int argc, char** argv) {
  auto& log = logger::instance();
  log.set_info(std::make_unique<sea::string_writer>());
  log.set_detail(std::make_unique<sea::string_writer>());
  log.set_warning(std::make_unique<sea::file_writer>(stderr));
  log.set_error(std::make_unique<sea::file_writer>(stderr));
  std::vector<char*> rest;
  for (int i = 0; i < argc; ++i) {
    const char* a = argv[i];
    if (std::strncmp(a, "--batch_layout=", 15) == 0)
      layout_file = a + 15;
    else if (std::strncmp(a, "--batch_points=", 15) == 0)
      points_file = a + 15;
    else if (std::strncmp(a, "--batch_threads=", 16) == 0)
      threads = std::atoi(a + 16);
    else
      rest.push_back(argv[i]);
  }
  int count = int(rest.size());
  benchmark::Initialize(&count, rest.data());
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  return 0;
}
