#include "grid_bench_walks.h"

#include <malloc.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include "torva/geometry/distance.h"
#include "torva/layout/generator.h"
#include "torva/space/layout_fields.h"
#include "torva/space/walk_start.h"

namespace torva::grid_bench {

bench_options options;

namespace {

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

}  // namespace

double process_cpu_seconds() {
  timespec t{};
  clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &t);
  return double(t.tv_sec) + 1e-9 * double(t.tv_nsec);
}

memory_probe::memory_probe() {
  malloc_trim(0);
  base = status_kib("VmRSS:");
  if (FILE* f = std::fopen("/proc/self/clear_refs", "w")) {
    std::fputs("5", f);  // resets VmHWM to the present resident size
    std::fclose(f);
  }
}

double memory_probe::peak_mib() const { return double(status_kib("VmHWM:") - base) / 1024.0; }

double brute_nearest(const std::vector<wire_block const*>& blocks, const point3& p, double limit) {
  double best = limit;
  for (wire_block const* b : blocks) best = std::min(best, manhattan_distance(p, *b).value);
  return best;
}

namespace {

double wall_distance(const cuboid_t& window, const point3& p) { return -distance(window, p).value; }

// The surface about the middle net, on which one net's walks start.
cuboid_t gaussian_box(const circuit_layout& layout) {
  const auto& nets = layout.data.wire_nets;
  return surface_about(layout, nets[nets.size() / 2]);
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

}  // namespace

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
namespace {

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

}  // namespace

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

}  // namespace torva::grid_bench
