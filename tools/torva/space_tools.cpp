#include "space_tools.h"

#include <malloc.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>

#include "memory_budget.h"
#include "torva/foundation/errors.h"
#include "torva/geometry/distance.h"
#include "torva/space/layout_fields.h"

namespace torva::cli {

void add_index_options(CLI::App& sub, index_options& o, bool with_strategy) {
  if (with_strategy)
    sub.add_option("-s,--strategy", o.strategy,
                   "Pair of search strategies: 0 simple-simple, 1 octree-octree, 2 hybrid-hybrid, 3 simple-none, "
                   "4 octree-none, 5 hybrid-none, 6 hybrid-simple, 7 hybrid-grid, 8 hybrid-grid-nd, 9 grid-none-nd, "
                   "10 chosen by the layout's size")
        ->capture_default_str()
        ->check(CLI::Range(0u, 10u));
  sub.add_option("-t,--threads", o.threads, "Threads for building a grid (0: the layout's thread-num)")
      ->capture_default_str()
      ->check(CLI::Range(0, 1024));
  sub.add_option("--max-candidates", o.max_candidates, "Candidate limit of a tree leaf or grid cell (negative: default)");
  sub.add_option("--max-depth", o.max_depth, "Depth limit of trees and grids (negative: default)");
  sub.add_flag("--critical-box", o.critical_box,
               "Under a Dirichlet window, answer by the window wall outside the box that holds the blocks");
  sub.add_flag("--group-dominance", o.group_dominance, "Thin candidate lists piece by piece");
  sub.add_flag("--group-optimize", o.group_optimize, "Thin candidate lists by merged intervals");
  sub.add_flag("--double-incline-ratio", o.double_incline_ratio, "Give non-cuboid candidates the ratio 2");
  sub.add_flag("--decrease", o.decrease, "Let crowded flat grid cells halve their scope");
  sub.add_option("--incline-slices", o.read.incline_slices, "Slices of a conductor block with a side slope")
      ->capture_default_str();
  sub.add_flag("--cuboids-only", o.read.cuboids_only, "Read cylinders and polygon pieces as their bounding boxes");
}

ready_layout prepare_layout(const std::string& path, const index_options& o) {
  ready_layout r;
  r.in = read_layout(path, o.read);
  const auto start = std::chrono::steady_clock::now();
  derive_layout_fields(*r.in.layout);
  merge_coincident_blocks(*r.in.layout, path);
  r.derive_seconds = seconds_since(start);
  if (r.in.layout->blocks.empty()) throw input_error(path + ": the layout has no conductor blocks to index");
  return r;
}

std::uint64_t heap_in_use() {
  const struct mallinfo2 m = mallinfo2();
  return m.uordblks + m.hblkhd;
}

configure configure_for(const index_options& o, unsigned strategy) {
  configure c;
  c.spacemgr_type = strategy;
  c.max_candidates = o.max_candidates;
  c.max_depth = o.max_depth;
  c.thread_count = o.threads;
  c.use_critical_box = o.critical_box;
  c.group_dominance = o.group_dominance;
  c.group_optimize = o.group_optimize;
  c.double_incline_ratio = o.double_incline_ratio;
  c.decrease_enabled = o.decrease;
  return c;
}

std::unique_ptr<built_index> build_index(const circuit_layout& layout, const index_options& o, unsigned strategy,
                                         bool show_progress) {
  auto b = std::make_unique<built_index>();
  b->config = configure_for(o, strategy);
  configure& c = b->config;
  c.spacemgr_type = fit_search_to_budget(layout, c);  // may take the plain grid, or refuse

  take_info();
  const std::uint64_t before = heap_in_use();
  const auto start = std::chrono::steady_clock::now();
  {
    std::unique_ptr<progress_bar> bar;
    if (show_progress) bar = std::make_unique<progress_bar>("building index", 0, std::function<std::uint64_t()>{});
    try {
      const memory_watch watch("building the search structure (strategy " + std::to_string(c.spacemgr_type) + ")");
      b->manager.initialize(b->config, layout);
    } catch (const sea::base_error& e) {
      if (bar) bar->finish();
      const std::string lines = take_errors();
      throw input_error("building the index: " + (lines.empty() ? std::string(e.what()) : lines));
    }
  }
  b->seconds = seconds_since(start);
  const std::uint64_t after = heap_in_use();
  b->heap_bytes = after > before ? after - before : 0;
  b->log = take_info();
  if (!b->manager) throw input_error("strategy " + std::to_string(strategy) + " built no index");
  const std::string tag = "using ";
  const std::size_t at = b->log.find(tag);
  if (at != std::string::npos) {
    const std::size_t end = b->log.find(" space manager", at);
    if (end != std::string::npos) b->pair = b->log.substr(at + tag.size(), end - at - tag.size());
  }
  return b;
}

brute_answer brute_nearest(const circuit_layout& layout, const point3& p) {
  brute_answer best;
  for (wire_block const* b : layout.blocks) {
    const double d = manhattan_distance(p, *b).value;
    if (d < best.distance) best = {d, b};
  }
  return best;
}

double reach_of(const candidate_list_cache& first, const candidate_list_cache& second) {
  double r = 1e300;
  if (first.list != nullptr && first.list->kind != spacemgr_none) r = first.scope.value;
  if (second.list != nullptr && second.list->kind != spacemgr_none) r = std::min(r, second.scope.value);
  return r;
}

verdict judge(const circuit_layout& layout, const point3& p, const nearest_result& r, double limit, double reach) {
  constexpr double tol = 1e-9;
  const brute_answer truth = brute_nearest(layout, p);
  const double said = r.distance.value;
  if (truth.distance < 0.0001 - 1e-10) {
    // On or in a conductor: the answer is 0 with the block the point touches.
    if (said == 0.0 && r.block != nullptr && manhattan_distance(p, *r.block).value < 0.0001) return verdict::exact;
    return said <= truth.distance + tol ? verdict::short_of : verdict::wrong;
  }
  if (said > truth.distance + tol || said > limit + tol) return verdict::wrong;
  if (r.block != nullptr) {
    const double d = manhattan_distance(p, *r.block).value;
    if (std::abs(d - said) > tol) return verdict::wrong;
  }
  if (std::abs(said - std::min(truth.distance, limit)) <= tol && (r.block != nullptr || said >= limit - tol))
    return verdict::exact;
  if (r.block == nullptr) {
    const cuboid_t& w = layout.data.window;
    double wall = 1e300;
    for (int k = 0; k < 3; ++k)
      wall = std::min({wall, p[k].value - w.lower[k].value, w.upper[k].value - p[k].value});
    // The plain grid answers a point beyond its space by the distance to the
    // box that holds every block, measured outward.
    const double outward = distance(layout.data.critical_box, p).value;
    if (std::abs(said - std::min(reach, limit)) <= tol || std::abs(said - std::min(wall, limit)) <= tol ||
        (outward > 0.0 && std::abs(said - std::min(outward, limit)) <= tol))
      return verdict::reach;
  }
  return verdict::short_of;
}

cuboid_t sampling_box(const circuit_layout& layout) {
  cuboid_t box = layout.data.window;
  bool flat = false;
  for (int k = 0; k < 3; ++k) flat = flat || !(box.upper[k].value > box.lower[k].value);
  if (flat && !layout.blocks.empty()) {
    box = layout.blocks.front()->outer_box;
    for (wire_block const* b : layout.blocks) {
      box.lower = minimal(box.lower, b->outer_box.lower);
      box.upper = maximal(box.upper, b->outer_box.upper);
    }
  }
  return box;
}

point3 random_point(const circuit_layout& layout, std::mt19937_64& rng) {
  const cuboid_t box = sampling_box(layout);
  std::uniform_real_distribution<double> unit(0.0, 1.0);
  point3 p;
  for (int k = 0; k < 3; ++k) p[k] = box.lower[k].value + (box.upper[k].value - box.lower[k].value) * unit(rng);
  return p;
}

std::string point_text(const point3& p) {
  char b[96];
  std::snprintf(b, sizeof b, "(%g, %g, %g)", double(p[0]), double(p[1]), double(p[2]));
  return b;
}

std::string block_text(const wire_block* b) {
  if (b == nullptr) return "none";
  std::string net = b->net != nullptr ? b->net->name : std::string("?");
  return net + "/" + (b->name.empty() ? std::string("(unnamed)") : b->name);
}

}  // namespace torva::cli
