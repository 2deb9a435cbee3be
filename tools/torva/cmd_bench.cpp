// torva bench LAYOUT: how fast each pair of search strategies answers the
// queries of a random walk, against measuring every block; beside them the
// compact index (the plain grid's answers, packed for the walk) and, where
// the program was built with it, Embree's BVH point query.
//
// The walk is that of a floating random walk: from a point, ask the nearest
// conductor, jump to a random point on the surface of the cube of that half
// side, and stop near a conductor or at the wall. A walk starts anywhere in
// the window, or (--stream walk) on a surface about one net, as the walks of
// one extraction do. One walk sequence is made with the first pair asked,
// then replayed on every structure, so that all meet the same points in the
// same order (and so the same cache behaviour).
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "commands.h"
#include "space_tools.h"
#include "torva/geometry/distance.h"
#include "torva/space/compact_index.h"
#include "torva/space/walk_start.h"

#ifdef TORVA_EMBREE
#include "embree_baseline.h"
#endif

namespace torva::cli {

namespace {

struct bench_args {
  std::string path;
  std::string strategy = "all";
  std::uint64_t queries = 200000;
  std::uint64_t brute_queries = 0;  // 0: as many as about 2e7 block distances allow
  int repeat = 3;
  double budget = 2.0;  // seconds per pass
  std::uint64_t seed = 1;
  std::string stream = "window";  // where walks start: anywhere in the window, or `walk`: about one net
  std::string net;                // the net of --stream walk; empty: the middle one
  index_options o;
};

std::vector<unsigned> strategies_of(const std::string& s) {
  if (s == "all") return {0, 1, 2, 3, 4, 5, 6, 7, 8, 9};
  return {static_cast<unsigned>(std::stoul(s))};
}

// A random point of the cube's surface about `c` of half side `h`.
point3 on_cube(const point3& c, double h, std::mt19937_64& rng) {
  std::uniform_real_distribution<double> unit(-1.0, 1.0);
  std::uniform_int_distribution<int> face(0, 5);
  const int f = face(rng);
  point3 p;
  for (int k = 0; k < 3; ++k) p[k] = c[k].value + h * unit(rng);
  p[f % 3] = c[f % 3].value + (f < 3 ? h : -h);
  return p;
}

struct walk_points {
  std::vector<point3> points;
  std::uint64_t walks = 0;
};

walk_points make_walk(const circuit_layout& layout, const space_manager& m, std::uint64_t count, std::uint64_t seed,
                      const cuboid_t* start_surface) {
  walk_points w;
  w.points.reserve(count);
  std::mt19937_64 rng(seed);
  const cuboid_t box = sampling_box(layout);
  double longest = 0;
  for (int k = 0; k < 3; ++k) longest = std::max(longest, box.upper[k].value - box.lower[k].value);
  const double absorb = 1e-3 * longest;  // a walk ends this near a conductor
  auto start = [&] { return start_surface != nullptr ? on_surface(*start_surface, rng) : random_point(layout, rng); };
  candidate_list_cache first, second;
  point3 p = start();
  ++w.walks;
  while (w.points.size() < count) {
    w.points.push_back(p);
    const nearest_result r = m->nearest(p, 1e9, first, second);
    const double d = r.distance.value;
    point3 next;
    const bool absorbed = !(d > absorb);
    if (!absorbed) next = on_cube(p, d, rng);
    if (absorbed || !contains(box, next)) {
      next = start();
      ++w.walks;
    }
    p = next;
  }
  return w;
}

// Nanoseconds per query over the points, the best of `repeat` passes. A pass
// stops after `budget` seconds (checked every 256 queries), so that a pair
// that scans long lists on a large layout does not hold up the rest.
struct timing {
  double ns = 0.0;
  std::size_t queries = 0;  // of the last pass
};

template <class Ask>
timing time_queries(const std::vector<point3>& points, int repeat, double budget, Ask&& ask_all) {
  timing best{1e300, 0};
  volatile double sink = 0;
  for (int r = 0; r < repeat; ++r) {
    double sum = 0;
    std::size_t done = 0;
    const auto start = std::chrono::steady_clock::now();
    double s = 0;
    auto ask = ask_all();  // fresh caches for the pass
    while (done < points.size()) {
      const std::size_t end = std::min(points.size(), done + 256);
      for (; done < end; ++done) sum += ask(points[done]);
      s = seconds_since(start);
      if (s > budget) break;
    }
    sink = sink + sum;
    const double ns = s * 1e9 / double(done);
    if (ns < best.ns) best = {ns, done};
  }
  return best;
}

timing time_queries(const space_manager& m, const std::vector<point3>& points, int repeat, double budget) {
  return time_queries(points, repeat, budget, [&m] {
    return [&m, first = candidate_list_cache{}, second = candidate_list_cache{}](const point3& p) mutable {
      return m->nearest(p, 1e9, first, second).distance.value;
    };
  });
}

double time_brute(const circuit_layout& layout, const std::vector<point3>& points) {
  volatile double sink = 0;
  double sum = 0;
  const auto start = std::chrono::steady_clock::now();
  for (const point3& p : points) sum += brute_nearest(layout, p).distance;
  const double s = seconds_since(start);
  sink = sink + sum;
  return s * 1e9 / double(points.size());
}

void print_row(const char* name, double seconds, std::uint64_t bytes, const timing& t, double brute,
               std::size_t points) {
  std::printf("%8s  %-18s  %10s  %10s  %12.1f  %14.1f  %7.1fx", "-", name, format_seconds(seconds).c_str(),
              format_bytes(double(bytes)).c_str(), t.ns, brute, brute / t.ns);
  if (t.queries < points) std::printf("  (first %zu queries, time budget)", t.queries);
  std::printf("\n");
  std::fflush(stdout);
}

// The compact index of the plain grid under the same settings, and Embree.
void bench_baselines(const circuit_layout& layout, const bench_args& a, const std::vector<point3>& points,
                     double brute) {
  {
    configure config = configure_for(a.o, 9);
    const auto start = std::chrono::steady_clock::now();
    const compact_index index = build_compact_index(config, layout);
    const double seconds = seconds_since(start);
    const std::uint64_t bytes = index.bytes();
    const timing t = time_queries(points, a.repeat, a.budget, [&index] {
      return [&index, cache = compact_cache{}](const point3& p) mutable {
        return index.nearest(p, 1e9, cache).distance.value;
      };
    });
    print_row("compact", seconds, bytes, t, brute, points.size());
  }
#ifdef TORVA_EMBREE
  {
    const std::uint64_t before = heap_in_use();
    const auto start = std::chrono::steady_clock::now();
    embree_index bvh;
    bvh.build(layout.blocks, std::max(1, a.o.threads > 0 ? a.o.threads : layout.data.thread_num));
    const double seconds = seconds_since(start);
    const std::uint64_t after = heap_in_use();
    const timing t = time_queries(points, a.repeat, a.budget,
                                  [&bvh] { return [&bvh](const point3& p) { return bvh.nearest(p, 1e9); }; });
    print_row("embree", seconds, after > before ? after - before : 0, t, brute, points.size());
  }
#else
  std::printf("%8s  %-18s  not built in (Embree was not found when the program was built)\n", "-", "embree");
#endif
}

int run_bench(const bench_args& a) {
  const std::vector<unsigned> list = strategies_of(a.strategy);
  const ready_layout ready = prepare_layout(a.path, a.o);
  const circuit_layout& layout = ready.layout();
  std::printf("layout       %s: %zu conductor blocks (%d cuboid, %d other), read in %s\n", a.path.c_str(),
              layout.blocks.size(), int(layout.cuboid_size), int(layout.prism_size),
              format_seconds(ready.in.read_seconds).c_str());

  cuboid_t surface;
  if (a.stream == "walk") {
    const auto& nets = layout.data.wire_nets;
    const wire_net* net = nullptr;
    for (const wire_net& n : nets)
      if (!n.blocks.empty() && (a.net.empty() ? &n == &nets[nets.size() / 2] : n.name == a.net)) net = &n;
    if (net == nullptr && a.net.empty())
      for (const wire_net& n : nets)
        if (!n.blocks.empty() && net == nullptr) net = &n;
    if (net == nullptr) throw input_error(a.net.empty() ? "no net with blocks" : "no net named " + a.net + " with blocks");
    surface = surface_about(layout, *net);
    std::printf("stream       walks from a surface about net %s\n", net->name.c_str());
  }
  walk_points walk;
  {
    const auto guide = build_index(layout, a.o, list.front(), true);
    walk = make_walk(layout, guide->manager, a.queries, a.seed, a.stream == "walk" ? &surface : nullptr);
  }
  std::uint64_t brute_n = a.brute_queries;
  if (brute_n == 0) brute_n = std::max<std::uint64_t>(200, 20000000ull / layout.blocks.size());
  brute_n = std::min<std::uint64_t>(brute_n, walk.points.size());
  const std::vector<point3> brute_points(walk.points.begin(), walk.points.begin() + static_cast<long>(brute_n));
  const double brute = time_brute(layout, brute_points);
  std::printf("walk         %zu queries in %llu walks; brute force timed on the first %llu: %.1f ns per query\n",
              walk.points.size(), (unsigned long long)walk.walks, (unsigned long long)brute_n, brute);
  std::printf("%-8s  %-18s  %10s  %10s  %12s  %14s  %8s\n", "strategy", "pair", "build", "heap", "ns/query",
              "brute ns/query", "speed-up");
  for (unsigned s : list) {
    std::unique_ptr<built_index> index;
    try {
      index = build_index(layout, a.o, s, true);
    } catch (const input_error& e) {
      if (list.size() == 1) throw;
      std::printf("%8u  %-18s  not built: %s\n", s, "?", e.what());
      continue;
    }
    const timing t = time_queries(index->manager, walk.points, a.repeat, a.budget);
    std::printf("%8u  %-18s  %10s  %10s  %12.1f  %14.1f  %7.1fx", s, index->pair.c_str(),
                format_seconds(index->seconds).c_str(), format_bytes(double(index->heap_bytes)).c_str(), t.ns, brute,
                brute / t.ns);
    if (t.queries < walk.points.size()) std::printf("  (first %zu queries, time budget)", t.queries);
    std::printf("\n");
    std::fflush(stdout);
  }
  bench_baselines(layout, a, walk.points, brute);
  return exit_ok;
}

}  // namespace

command add_bench(CLI::App& app) {
  auto* sub = app.add_subcommand("bench", "Time walk-like nearest-conductor queries on each pair of strategies");
  auto a = std::make_shared<bench_args>();
  sub->add_option("LAYOUT", a->path, "A cap3d layout file, text or binary")->required();
  sub->add_option("-s,--strategy", a->strategy, "A strategy value 0..10, or all (0 to 9)")
      ->capture_default_str()
      ->check(CLI::IsMember({"all", "0", "1", "2", "3", "4", "5", "6", "7", "8", "9", "10"}));
  sub->add_option("-q,--queries", a->queries, "Queries of the walk")
      ->capture_default_str()
      ->check(CLI::Range(std::uint64_t{1}, std::uint64_t{1000000000}));
  sub->add_option("--brute-queries", a->brute_queries, "Queries timed by brute force (0: by the layout's size)")
      ->capture_default_str();
  sub->add_option("--repeat", a->repeat, "Passes over the walk; the best is shown")
      ->capture_default_str()
      ->check(CLI::Range(1, 100));
  sub->add_option("--budget", a->budget, "Seconds a pass may take; a slower pair is timed on the queries done by then")
      ->capture_default_str()
      ->check(CLI::PositiveNumber);
  sub->add_option("--seed", a->seed, "Seed of the walk")->capture_default_str();
  sub->add_option("--stream", a->stream,
                  "Where walks start: anywhere in the window, or walk: on a surface about one net, as the walks "
                  "of one extraction")
      ->capture_default_str()
      ->check(CLI::IsMember({"window", "walk"}));
  sub->add_option("--net", a->net, "The net of --stream walk (default: the middle net of the layout)");
  add_index_options(*sub, a->o, false);
  return {sub, [a] { return run_bench(*a); }, false,
          [a] { return run_files{{{"layout file", a->path}}, {}}; }};
}

}  // namespace torva::cli
