// The strategy pairs as the grid benchmark runs them, and the checks of
// their answers: a copy of the list scan that counts the entries it looks at,
// the mean count over a stream, and the contract held on a stream's first
// points.
#pragma once

#include <algorithm>
#include <cmath>
#include <cstdint>

#include "grid_bench_walks.h"
#include "torva/foundation/configure.h"
#include "torva/geometry/distance.h"
#include "torva/space/candidate_list_cache.h"
#include "torva/space/space_manager.h"

namespace torva::grid_bench {

// A copy of the list scan that counts the entries it looks at.
inline nearest_result counted_scan(const candidate_list_cache& cache, const point3& p, double limit, std::size_t& n) {
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

inline const pair_info pairs[] = {
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

inline const pair_info& info_of(int index, const circuit_layout& layout) {
  return index == auto_index ? pairs[automatic_spacemgr_type(layout)] : pairs[index];
}

inline bool left_out(int index, std::uint64_t size) {
  if (size <= 100000) return false;
  if (index == auto_index) return false;
  return pairs[index].quadratic;
}

inline configure config_for(int index, int threads) {
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

}  // namespace torva::grid_bench
