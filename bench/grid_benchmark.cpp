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
#include <benchmark/benchmark.h>
#include <malloc.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <map>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "embree_baseline.h"
#include "torva/foundation/configure.h"
#include "torva/geometry/distance.h"
#include "torva/layout/generator.h"
#include "torva/space/candidate_list_cache.h"
#include "torva/space/compact_index.h"
#include "torva/space/layout_fields.h"
#include "torva/space/space_manager.h"
#include "torva_testing/log_capture.h"

namespace torva {
namespace {

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
bench_options options;

// ---------------------------------------------------------------- memory

long status_kib(const char* key) {
  FILE* f = std::fopen("/proc/self/status", "r");
  if (f == nullptr) return 0;
  char line[256];
  long value = 0;
  const std::size_t n = std::strlen(key);
  while (std::fgets(line, sizeof line, f) != nullptr)
    if (std::strncmp(line, key, n) == 0) value = std::strtol(line + n, nullptr, 10);
  std::fclose(f);
  return value;
}

// The growth of the resident high-water mark from now on.
double process_cpu_seconds() {
  timespec t{};
  clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &t);
  return double(t.tv_sec) + 1e-9 * double(t.tv_nsec);
}

struct memory_probe {
  long base = 0;
  memory_probe() {
    malloc_trim(0);
    base = status_kib("VmRSS:");
    if (FILE* f = std::fopen("/proc/self/clear_refs", "w")) {
      std::fputs("5", f);  // resets VmHWM to the present resident size
      std::fclose(f);
    }
  }
  double peak_mib() const { return double(status_kib("VmHWM:") - base) / 1024.0; }
};

double brute_nearest(const std::vector<wire_block const*>& blocks, const point3& p, double limit) {
  double best = limit;
  for (wire_block const* b : blocks) best = std::min(best, manhattan_distance(p, *b).value);
  return best;
}

// ---------------------------------------------------------------- layouts

struct bench_layout {
  std::uint64_t size = 0;
  circuit_layout layout;
  embree_index embree;
  std::vector<point3> points;
  std::vector<double> limits;
  std::vector<double> truth;  // exact nearest distance, cut at the limit
  std::size_t walks = 0;
};

double wall_distance(const cuboid_t& window, const point3& p) { return -distance(window, p).value; }

// The box of the middle net grown by half its maximum-norm gap to the
// nearest block of another net: the surface on which one net's walks start.
cuboid_t gaussian_box(const circuit_layout& layout) {
  const auto& nets = layout.data.wire_nets;
  const wire_net& net = nets[nets.size() / 2];
  cuboid_t box = net.blocks.front()->outer_box;
  for (const wire_block* b : net.blocks)
    for (int k = 0; k < 3; ++k) {
      box.lower[k] = std::min(box.lower[k].value, b->outer_box.lower[k].value);
      box.upper[k] = std::max(box.upper[k].value, b->outer_box.upper[k].value);
    }
  double gap = INFINITY;
  for (const wire_block* b : layout.blocks) {
    if (b->net == &net) continue;
    double g = -INFINITY;
    for (int k = 0; k < 3; ++k)
      g = std::max({g, b->outer_box.lower[k].value - box.upper[k].value,
                    box.lower[k].value - b->outer_box.upper[k].value});
    if (g > 0) gap = std::min(gap, g);
  }
  const double grow = std::isfinite(gap) ? 0.5 * gap : 0.01;
  for (int k = 0; k < 3; ++k) {
    box.lower[k] = box.lower[k].value - grow;
    box.upper[k] = box.upper[k].value + grow;
  }
  return box;
}

// A uniformly random point on the surface of the box.
point3 on_surface(const cuboid_t& box, std::mt19937_64& rng) {
  std::uniform_real_distribution<double> unit(0.0, 1.0);
  double area[3];
  for (int k = 0; k < 3; ++k) {
    const int a = (k + 1) % 3, c = (k + 2) % 3;
    area[k] = (box.upper[a].value - box.lower[a].value) * (box.upper[c].value - box.lower[c].value);
  }
  double pick = unit(rng) * (area[0] + area[1] + area[2]);
  int axis = 0;
  while (axis < 2 && pick > area[axis]) pick -= area[axis++];
  point3 p;
  for (int k = 0; k < 3; ++k)
    p[k] = box.lower[k].value + (box.upper[k].value - box.lower[k].value) * unit(rng);
  p[axis] = unit(rng) < 0.5 ? box.lower[axis] : box.upper[axis];
  return p;
}

void make_walks(bench_layout& b) {
  std::mt19937_64 rng(20261122u + b.size);
  std::uniform_real_distribution<double> unit(0.0, 1.0);
  const cuboid_t& window = b.layout.data.window;
  const cuboid_t& critical = b.layout.data.critical_box;
  const cuboid_t gaussian = options.from_net ? gaussian_box(b.layout) : critical;
  constexpr double stop = 0.01;
  point3 p;
  bool walking = false;
  int steps = 0;
  while (b.points.size() < options.points) {
    if (!walking) {
      if (options.from_net) {
        p = on_surface(gaussian, rng);
      } else {
        for (int k = 0; k < 3; ++k)
          p[k] = critical.lower[k].value + (critical.upper[k].value - critical.lower[k].value) * unit(rng);
      }
      if (!(wall_distance(window, p) > 0)) continue;
      if (b.embree.nearest(p, wall_distance(window, p)) < stop) continue;
      walking = true;
      steps = 0;
      ++b.walks;
    }
    const double limit = wall_distance(window, p);
    const double r = b.embree.nearest(p, limit);
    b.points.push_back(p);
    b.limits.push_back(limit);
    b.truth.push_back(r);
    if (r < stop || ++steps > 5000) {
      walking = false;
      continue;
    }
    // A uniformly random point on the surface of the cube of half side r.
    const int face = int(unit(rng) * 6) % 6;
    const int axis = face % 3;
    for (int k = 0; k < 3; ++k) p[k] = p[k].value + (k == axis ? (face < 3 ? r : -r) : r * (2 * unit(rng) - 1));
    if (!(wall_distance(window, p) > 0)) walking = false;
  }
}

std::unique_ptr<bench_layout> current_layout;

bench_layout& layout_for(std::uint64_t size) {
  if (current_layout && current_layout->size == size) return *current_layout;
  current_layout.reset();
  auto b = std::make_unique<bench_layout>();
  b->size = size;
  generator_params params;
  params.kind = layout_kind::crossing;
  params.blocks = size;
  params.layers = 4;
  params.polygon_share = 0.05;
  params.cylinder_share = 0.05;
  params.seed = 7;
  build_circuit(generate_layout(params), b->layout);
  b->layout.data.boundary = 1;
  derive_layout_fields(b->layout);
  b->embree.build(b->layout.blocks, 2);
  make_walks(*b);
  // The Embree answers stand as the truth: check them against the scan on a sample.
  for (std::size_t i = 0; i < b->points.size(); i += std::max<std::size_t>(1, b->points.size() / 200)) {
    const double d = brute_nearest(b->layout.blocks, b->points[i], b->limits[i]);
    if (std::fabs(d - b->truth[i]) > 1e-12) {
      std::fprintf(stderr, "Embree and the scan differ at point %zu: %.17g vs %.17g\n", i, b->truth[i], d);
      std::exit(2);
    }
  }
  current_layout = std::move(b);
  return *current_layout;
}

// ---------------------------------------------------------------- pairs

// A copy of the list scan that counts the entries it looks at.
nearest_result counted_scan(const candidate_list_cache& cache, const point3& p, double limit, std::size_t& n) {
  constexpr double eps = sea::double_wrapper::tolerance;
  const candidate_list& l = *cache.list;
  if (l.kind == spacemgr_none) return nearest_result{nullptr, 1e9, 1e9};
  double best = limit >= cache.scope.value - eps ? cache.scope.value : limit;
  double reach = best;
  wire_block const* hit = nullptr;
  const point2 plan{{p[0], p[1]}};
  for (const candidate_list::candidate& e : l.candidates) {
    const double b = reach - eps;
    if (!(b > e.distance.value)) break;
    ++n;
    const shape_t& shape = *e.block;
    const double above = p[2].value - shape.outer_box.upper[2].value;
    const double below = shape.outer_box.lower[2].value - p[2].value;
    const double dz = above - eps > below ? above : below;
    if (!(b > dz)) continue;
    const double dh = horizontal_manhattan_distance(plan, shape).value;
    if (!(b > dh)) continue;
    const double d = dh < dz - eps ? dz : dh;
    if (0.0001 - 1e-10 > d) return nearest_result{e.block, 0.0, 0.0};
    if (best - eps > d) {
      hit = e.block;
      const double widened = d * e.ratio;
      reach = widened < best - eps ? widened : best;
      best = d;
    } else {
      reach = d;
    }
  }
  return nearest_result{hit, best, reach};
}

template <class Pair, class Strategy>
nearest_result counted_query(const Pair& m, const Strategy& s, const point3& p, double limit, std::size_t& n) {
  constexpr double eps = sea::double_wrapper::tolerance;
  if (m.use_critical && !contains(m.critical, p)) {
    const double d = -distance(m.wall_box, p).value;
    const double r = d < limit - eps ? d : limit;
    return nearest_result{nullptr, r, r};
  }
  if constexpr (uses_boundary_box<typename Pair::first_type, typename Pair::second_type>) {
    if (!contains(m.search_space, p)) {
      const double d = distance(m.wall_box, p).value;
      const double r = d < limit - eps ? d : limit;
      return nearest_result{nullptr, r, r};
    }
  }
  candidate_list_cache cache;
  cache.list = s.find_list(p);
  cache.get_scope(p);
  return counted_scan(cache, p, limit, n);
}

// Over the first --grid_verify points of the stream (a list over a whole
// family makes this as slow as the scan over all blocks).
template <class Pair>
double mean_scanned(const space_manager_interface& manager, const bench_layout& b) {
  const Pair& m = dynamic_cast<const Pair&>(manager);
  std::size_t n = 0;
  const std::size_t count = std::max<std::size_t>(1, std::min(options.verify, b.points.size()));
  for (std::size_t i = 0; i < count; ++i) {
    const nearest_result r1 = counted_query(m, m.first, b.points[i], b.limits[i], n);
    counted_query(m, m.second, b.points[i], r1.distance.value, n);
  }
  return double(n) / double(count);
}

struct pair_info {
  const char* name;
  std::uint32_t type;
  bool quadratic;  // one list over a whole family: left out on large layouts
  double (*scanned)(const space_manager_interface&, const bench_layout&);
};

const pair_info pairs[] = {
    {"simple-simple", 0, true, &mean_scanned<simple_simple_manager>},
    {"octree-octree", 1, false, &mean_scanned<octree_octree_manager>},
    {"hybrid-hybrid", 2, false, &mean_scanned<hybrid_hybrid_manager>},
    {"simple-none", 3, true, &mean_scanned<simple_none_manager>},
    {"octree-none", 4, false, &mean_scanned<octree_none_manager>},
    {"hybrid-none", 5, false, &mean_scanned<hybrid_none_manager>},
    {"hybrid-simple", 6, true, &mean_scanned<hybrid_simple_manager>},
    {"hybrid-grid", 7, false, &mean_scanned<hybrid_grid_manager>},
    {"hybrid-grid-nd", 8, false, &mean_scanned<hybrid_grid_nd_manager>},
    {"grid-none-nd", 9, false, &mean_scanned<grid_none_nd_manager>},
};
constexpr int auto_index = 10;

const pair_info& info_of(int index, const circuit_layout& layout) {
  return index == auto_index ? pairs[automatic_spacemgr_type(layout)] : pairs[index];
}

bool left_out(int index, std::uint64_t size) {
  if (size <= 100000) return false;
  if (index == auto_index) return false;
  return pairs[index].quadratic;
}

testing::log_capture* logs = nullptr;

configure config_for(int index, int threads) {
  configure config;
  config.spacemgr_type = index == auto_index ? 10u : pairs[index].type;
  config.thread_count = threads;
  config.max_candidates = options.max_candidates;
  config.incline_max_candidates = options.max_candidates;
  config.max_depth = options.max_depth;
  config.incline_max_depth = options.max_depth;
  config.decrease_enabled = options.decrease;
  return config;
}

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

// The contract on the first --grid_verify points of the stream, asked in
// order with one walker's caches: answers that break it (farther than the
// true nearest block, or naming a block not at the answered distance), and
// the mean share of the true distance answered.
struct stream_check {
  std::size_t bad = 0;
  double share = 0.0;
};

template <class Answer>
stream_check check_stream(const bench_layout& b, Answer&& answer) {
  stream_check c;
  const std::size_t n = std::min(options.verify, b.points.size());
  for (std::size_t i = 0; i < n; ++i) {
    const nearest_result r = answer(i);
    const double truth = b.truth[i];
    bool ok = r.distance.value <= truth + 1e-9;
    if (r.block != nullptr) {
      const double d = manhattan_distance(b.points[i], *r.block).value;
      ok = ok && (r.distance.value == 0.0 ? d < 0.0001 : std::fabs(d - r.distance.value) <= 1e-9);
    }
    c.bad += ok ? 0 : 1;
    c.share += truth > 0 ? std::min(1.0, std::max(0.0, r.distance.value) / truth) : 1.0;
  }
  c.share /= double(std::max<std::size_t>(1, n));
  return c;
}

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

// ---------------------------------------------------------------- summary

struct result {
  double time = 0;  // real time per iteration, in the benchmark's unit
  double cpu = 0;   // CPU time of the benchmark's thread per iteration
  std::map<std::string, double> counters;
  std::string label;
};

class collecting_reporter : public benchmark::ConsoleReporter {
 public:
  std::map<std::string, result> results;

  void ReportRuns(const std::vector<Run>& runs) override {
    for (const Run& run : runs) {
      const bool aggregate = run.run_type == Run::RT_Aggregate;
      if (aggregate && run.aggregate_name != "median") continue;
      std::string name = run.run_name.function_name;
      result& r = results[name];
      r.time = run.GetAdjustedRealTime();
      r.cpu = run.GetAdjustedCPUTime();
      r.label = run.report_label;
      for (const auto& [key, counter] : run.counters) r.counters[key] = counter.value;
    }
    ConsoleReporter::ReportRuns(runs);
  }
};

void print_summary(const collecting_reporter& reporter) {
  auto find = [&](const std::string& name) -> const result* {
    auto it = reporter.results.find(name);
    return it == reporter.results.end() ? nullptr : &it->second;
  };
  auto counter = [](const result* r, const char* key) {
    if (r == nullptr) return -1.0;
    auto it = r->counters.find(key);
    return it == r->counters.end() ? -1.0 : it->second;
  };
  std::printf("\n==== summary: medians where there are repetitions. Builds: wall ms / CPU ms of the\n"
              "==== process. Queries: ns of wall time and of the thread's CPU time per query.\n");
  std::map<std::string, std::map<std::uint64_t, double>> build2_by_pair;
  for (std::uint64_t size : options.sizes) {
    const std::string n = std::to_string(size);
    std::printf("\n-- %s blocks\n", n.c_str());
    std::printf("%-15s %17s %17s %9s %10s %9s %9s %5s %6s\n", "method", "build 1 thread", "build 2 threads",
                "peak MiB", "wall ns/q", "cpu ns/q", "cand/q", "bad", "radius");
    double best_cpu = 0;
    std::string best_name;
    std::string auto_name;
    double auto_cpu = 0;
    auto row = [&](const std::string& name, const result* b1, const result* b2, const result* q,
                   const char* note) {
      char build1[32] = "-", build2[32] = "-";
      if (b1 != nullptr) std::snprintf(build1, sizeof build1, "%.1f/%.1f", b1->time, counter(b1, "cpu_ms"));
      if (b2 != nullptr) std::snprintf(build2, sizeof build2, "%.1f/%.1f", b2->time, counter(b2, "cpu_ms"));
      const double peak = std::max(counter(b1, "peak_MiB"), counter(b2, "peak_MiB"));
      std::printf("%-15s %17s %17s %9.1f %10.1f %9.1f %9.2f %5.0f %6.3f%s\n", name.c_str(), build1, build2, peak,
                  q != nullptr ? q->time : -1.0, q != nullptr ? q->cpu : -1.0, counter(q, "cand"),
                  counter(q, "bad"), counter(q, "radius"), note);
    };
    for (int index = 0; index <= auto_index; ++index) {
      const std::string name = index == auto_index ? std::string("auto") : pairs[index].name;
      const result* b1 = find("build/" + name + "/" + n + "/threads:1");
      const result* b2 = find("build/" + name + "/" + n + "/threads:2");
      const result* q = find("query/" + name + "/" + n);
      if (b1 == nullptr && b2 == nullptr && q == nullptr) {
        std::printf("%-15s %s\n", name.c_str(),
                    left_out(index, size) ? "(left out: one list over a whole family, quadratic build)" : "(not run)");
        continue;
      }
      const std::string note = index == auto_index && q != nullptr ? "  -> " + q->label : "";
      row(name, b1, b2, q, note.c_str());
      if (q == nullptr) continue;
      if (index == auto_index) {
        auto_name = q->label;
        auto_cpu = q->cpu;
      } else {
        if (best_name.empty() || q->cpu < best_cpu) {
          best_cpu = q->cpu;
          best_name = name;
        }
        if (b2 != nullptr) build2_by_pair[name][size] = b2->time;
      }
    }
    const result* compact_q = find("query/compact/" + n);
    const result* compact_b2 = find("build/compact/" + n + "/threads:2");
    char held[48] = "";
    if (compact_b2 != nullptr) std::snprintf(held, sizeof held, "  (holds %.1f MiB)", counter(compact_b2, "held_MiB"));
    if (compact_q != nullptr || compact_b2 != nullptr)
      row("compact", find("build/compact/" + n + "/threads:1"), compact_b2, compact_q, held);
    const result* embree_q = find("query/embree/" + n);
    row("embree-bvh", find("build/embree/" + n + "/threads:1"), find("build/embree/" + n + "/threads:2"), embree_q,
        "");
    row("brute-force", nullptr, nullptr, find("query/brute/" + n), "");
    if (!best_name.empty()) {
      std::printf("fastest pair by CPU time: %s, %.1f ns/query", best_name.c_str(), best_cpu);
      if (embree_q != nullptr) std::printf(" (Embree / fastest = %.2f)", embree_q->cpu / best_cpu);
      std::printf("\nautomatic choice: %s, %.1f ns/query (%.2f times the fastest)\n", auto_name.c_str(), auto_cpu,
                  auto_cpu / best_cpu);
    }
    if (compact_q != nullptr) {
      const result* plain = find("query/grid-none-nd/" + n);
      std::printf("compact index: %.1f ns/query, %.0f answers of %zu differing from grid-none-nd's", compact_q->cpu,
                  counter(compact_q, "differ"), options.verify);
      if (embree_q != nullptr) std::printf(" (Embree / compact = %.2f)", embree_q->cpu / compact_q->cpu);
      if (plain != nullptr) std::printf(" (grid-none-nd / compact = %.2f)", plain->cpu / compact_q->cpu);
      std::printf("\n");
    }
  }
  if (options.sizes.size() > 1) {
    std::printf("\n-- growth of the two-thread build's wall time from one size to the next\n");
    for (const auto& [name, by_size] : build2_by_pair) {
      std::printf("%-15s", name.c_str());
      double previous = 0;
      for (const auto& [size, ms] : by_size) {
        if (previous > 0) std::printf("  x%.2f", ms / previous);
        previous = ms;
      }
      std::printf("\n");
    }
  }
}

// ---------------------------------------------------------------- main

std::vector<std::uint64_t> parse_sizes(const char* text) {
  std::vector<std::uint64_t> sizes;
  const char* s = text;
  while (*s != '\0') {
    char* end = nullptr;
    const unsigned long long v = std::strtoull(s, &end, 10);
    if (end == s) break;
    if (v > 0) sizes.push_back(v);
    s = *end == ',' ? end + 1 : end;
  }
  return sizes;
}

// Takes this program's own flags out of argv before Google Benchmark reads it.
void take_own_flags(int& argc, char** argv) {
  int out = 1;
  for (int i = 1; i < argc; ++i) {
    const char* a = argv[i];
    if (std::strncmp(a, "--grid_sizes=", 13) == 0) {
      options.sizes = parse_sizes(a + 13);
    } else if (std::strncmp(a, "--grid_points=", 14) == 0) {
      options.points = std::max<std::size_t>(1, std::strtoull(a + 14, nullptr, 10));
    } else if (std::strncmp(a, "--grid_verify=", 14) == 0) {
      options.verify = std::strtoull(a + 14, nullptr, 10);
    } else if (std::strncmp(a, "--grid_max_candidates=", 22) == 0) {
      options.max_candidates = std::atoi(a + 22);
    } else if (std::strncmp(a, "--grid_max_depth=", 17) == 0) {
      options.max_depth = std::atoi(a + 17);
    } else if (std::strncmp(a, "--grid_decrease=", 16) == 0) {
      options.decrease = std::atoi(a + 16) != 0;
    } else if (std::strncmp(a, "--grid_start=", 13) == 0) {
      if (std::strcmp(a + 13, "net") == 0) {
        options.from_net = true;
      } else if (std::strcmp(a + 13, "box") != 0) {
        std::fprintf(stderr, "--grid_start takes box or net, not %s\n", a + 13);
        std::exit(1);
      }
    } else if (std::strncmp(a, "--grid_repetitions=", 19) == 0) {
      options.repetitions = std::max(1, std::atoi(a + 19));
    } else {
      argv[out++] = argv[i];
    }
  }
  argc = out;
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
}  // namespace torva

int main(int argc, char** argv) {
  torva::take_own_flags(argc, argv);
  torva::testing::log_capture logs;  // the library reports on the logger's channels
  torva::logs = &logs;
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  torva::register_all();
  torva::collecting_reporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  torva::print_summary(reporter);
  torva::kept = torva::built_manager{};
  torva::kept_compact = torva::built_compact{};
  torva::current_layout.reset();
  benchmark::Shutdown();
  return 0;
}
