// Filling, thinning and freezing a candidate list. The dominance tests live in
// dominance.cpp.
//
// Where a test below shows the tolerance eps it is a plain double comparison
// with eps applied once, exactly in the form written; the forms are not
// negations of one another, and the list's exactness rests on each of them.
#include "torva/space/candidate_list.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include "torva/geometry/distance.h"

namespace torva {

namespace {

constexpr double eps = sea::double_wrapper::tolerance;

// Overwrites entry i with the last entry and drops the last: removal in
// constant time, at the price of the order (which matters only after complete).
inline void evict(std::vector<candidate_list::candidate>& list, std::size_t i) {
  if (i + 1 != list.size()) list[i] = list.back();
  list.pop_back();
}

}  // namespace

void candidate_list::initialize(const configure& config, const cube_t& c, sea::double_wrapper bound_value) {
  group_dominance = config.group_dominance;
  group_optimize = config.group_optimize;
  double_incline_ratio = config.double_incline_ratio;
  cube = c;
  scope_bound = bound_value;
  bound = bound_value;
  std::vector<candidate>().swap(candidates);  // give the storage back, not just the entries
}

void candidate_list::add(const candidate& x) {
  if (kind == spacemgr_all_nd) {
    candidates.push_back(x);
    return;
  }
  if (kind == spacemgr_incline_nd) {
    if (!x.is_cuboid) candidates.push_back(x);
    return;
  }

  // Every point of the cube lies within 2h + distance of x (times the ratio in
  // true clearance), so nothing farther than that from the cube can be nearest.
  const double t = (2.0 * cube.half.value + x.distance.value) * x.ratio;
  if (bound.value - eps > t) bound = t;

  for (std::size_t i = 0; i < candidates.size();) {
    const candidate& e = candidates[i];
    const double b = bound.value - eps;
    if (!(b > e.distance.value)) {
      evict(candidates, i);
    } else if (-eps > e.distance.value) {
      ++i;  // a block that reaches into the cube is never evicted by dominance
    } else if (dominate(x, e)) {
      evict(candidates, i);
    } else {
      ++i;
    }
  }

  // A candidate of the other family still tightens and evicts, but is not kept.
  if (x.is_cuboid && kind == spacemgr_incline) return;
  if (!x.is_cuboid && kind == spacemgr_cuboid) return;
  candidates.push_back(x);
}

bool candidate_list::try_add(const candidate& x) {
  if (!(bound.value - eps > x.distance.value)) return false;
  const bool unfiltered = kind == spacemgr_incline_nd || kind == spacemgr_all_nd;
  if (!unfiltered && !(-eps > x.distance.value)) {
    for (const candidate& e : candidates) {
      if (e.block == x.block) return false;
      if (dominate(e, x)) return false;
    }
  }
  add(x);
  return true;
}

void candidate_list::complete() {
  const double limit = cube.half.value + bound.value;
  for (std::size_t i = 0; i < candidates.size();) {
    const shape_t& shape = *candidates[i].block;
    if (shape.shape_kind == shape_cuboid) {
      ++i;
      continue;
    }
    const double m = manhattan_distance(cube.center, shape).value;
    if (limit - eps > m)
      ++i;
    else
      evict(candidates, i);
  }

  if (!candidates.empty()) {
    // Sorted by the plain value: a strict weak order (NaN, which only a direct
    // add can bring in, goes last) whose result never puts an entry before one
    // that is tolerantly smaller, so it is also ascending by candidate::operator<.
    // Plain ascending order is what the early stop of a query relies on.
    std::sort(candidates.begin(), candidates.end(), [](const candidate& a, const candidate& b) {
      const double x = a.distance.value;
      const double y = b.distance.value;
      if (std::isnan(y)) return !std::isnan(x);
      return x < y;
    });
  }

  // A grid keeps a list in every cell: slack capacity is real memory.
  if (candidates.empty()) {
    std::vector<candidate>().swap(candidates);
  } else if (candidates.capacity() > candidates.size()) {
    std::vector<candidate> exact;
    exact.reserve(candidates.size());
    exact.assign(candidates.begin(), candidates.end());
    candidates = std::move(exact);
  }
}

}  // namespace torva
