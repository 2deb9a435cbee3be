// A walker's memory of the candidate list it used last, and the search of one
// list for the nearest block. Each walking thread owns its caches; nothing
// here locks or allocates.
#pragma once

#include "torva/foundation/double_wrapper.h"
#include "torva/foundation/point.h"
#include "torva/geometry/distance.h"
#include "torva/layout/records.h"
#include "torva/space/candidate_list.h"

namespace torva {

struct nearest_result {
  wire_block const* block = nullptr;  // the nearest block found, or null
  sea::double_wrapper distance;       // its distance from the point
  sea::double_wrapper reach;          // radius up to which no nearer block can be ruled out
};

// Where a comparison below shows the tolerance eps it is a plain double
// comparison with eps applied once, exactly as written.
struct candidate_list_cache {
  candidate_list const* list = nullptr;  // not owned
  sea::double_wrapper scope;             // radius the list is good for at the last point

  // The radius up to which `list` answers exactly from p; stored in `scope`.
  sea::double_wrapper get_scope(const point3& p) noexcept {
    constexpr double eps = sea::double_wrapper::tolerance;
    const candidate_list& l = *list;
    const double mx = tolerant_abs(l.cube.center[0] - p[0]).value;
    const double my = tolerant_abs(l.cube.center[1] - p[1]).value;
    const double mz = tolerant_abs(l.cube.center[2] - p[2]).value;
    double far = mx;
    if (my - eps > far) far = my;
    if (mz - eps > far) far = mz;
    scope = l.scope_bound.value - (far - l.cube.half.value);
    return scope;
  }

  // True when the cached list can serve p (p lies in its cube, within eps).
  bool match(const point3& p) noexcept {
    if (list == nullptr) return false;
    if (list->kind == spacemgr_none) return true;
    const double s = get_scope(p).value;
    return !(list->scope_bound.value - sea::double_wrapper::tolerance > s);
  }

  // The nearest block of the list from p, no farther than the smaller of
  // limit and scope. `scope` must be valid for p (match or get_scope).
  nearest_result nearest(const point3& p, sea::double_wrapper limit) const noexcept {
    static const nearest_result dummy{nullptr, 1e9, 1e9};
    constexpr double eps = sea::double_wrapper::tolerance;
    const candidate_list& l = *list;
    if (l.kind == spacemgr_none) return dummy;
    double best = limit.value >= scope.value - eps ? scope.value : limit.value;
    double reach = best;
    wire_block const* hit = nullptr;
    const point2 plan{{p[0], p[1]}};
    for (const candidate_list::candidate& e : l.candidates) {
      const double b = reach - eps;
      if (!(b > e.distance.value)) break;  // sorted: nothing later comes closer
      const shape_t& shape = *e.block;
      const double above = p[2].value - shape.outer_box.upper[2].value;
      const double below = shape.outer_box.lower[2].value - p[2].value;
      const double dz = above - eps > below ? above : below;
      if (!(b > dz)) continue;  // the cheap vertical test first
      const double dh = horizontal_manhattan_distance(plan, shape).value;
      if (!(b > dh)) continue;
      const double d = dh < dz - eps ? dz : dh;
      if (0.0001 - 1e-10 > d) return nearest_result{e.block, 0.0, 0.0};  // on the conductor
      if (best - eps > d) {
        hit = e.block;
        // A ratio-2 block may be up to twice as far in truth: keep others in play up to there.
        const double widened = d * e.ratio;
        reach = widened < best - eps ? widened : best;
        best = d;
      } else {
        reach = d;
      }
    }
    return nearest_result{hit, best, reach};
  }
};

}  // namespace torva
