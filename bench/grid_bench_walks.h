// The streams of query points the grid benchmark replays, and what its
// figures share: the options of the run, the generated layouts with their
// walk-like streams and exact answers (from Embree's BVH, checked against a
// scan), and a probe of the resident memory's high-water mark.
#pragma once

#include <cstdint>
#include <memory>
#include <random>
#include <vector>

#include "embree_baseline.h"
#include "torva/space/space_manager.h"

namespace torva::grid_bench {

struct bench_options {
  std::vector<std::uint64_t> sizes{10000, 100000};
  std::size_t points = 50000;
  std::size_t verify = 2000;
  int repetitions = 3;
  int max_candidates = -1;  // configure::max_candidates and incline_max_candidates; negative: defaults
  int max_depth = -1;       // configure::max_depth and incline_max_depth; negative: defaults
  bool decrease = false;    // configure::decrease_enabled
  bool from_net = false;    // walks start on a surface about one net instead of anywhere
};
extern bench_options options;

// Takes this program's own flags (--grid_*) out of argv before Google
// Benchmark reads it.
void take_own_flags(int& argc, char** argv);

// CPU time of the whole process, in seconds.
double process_cpu_seconds();

// The growth of the resident high-water mark from its construction on (the
// kernel's mark is reset, freed heap handed back first).
struct memory_probe {
  long base = 0;
  memory_probe();
  double peak_mib() const;
};

double brute_nearest(const std::vector<wire_block const*>& blocks, const point3& p, double limit);

struct bench_layout {
  std::uint64_t size = 0;
  circuit_layout layout;
  embree_index embree;
  std::vector<point3> points;
  std::vector<double> limits;
  std::vector<double> truth;  // exact nearest distance, cut at the limit
  std::size_t walks = 0;
};

// The generated layout of `size` blocks with its stream, made on first use
// and kept until another size is asked for.
bench_layout& layout_for(std::uint64_t size);
extern std::unique_ptr<bench_layout> current_layout;

}  // namespace torva::grid_bench
