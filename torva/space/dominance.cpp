// Dominance: when one block is at least as near as another from every point of
// a list's cube, the other is needless there. These tests are the hot spot of
// building the search structures: they allocate nothing, except the interval
// lists of the merged test for a shape cut into more than 32 slices.
//
// Where a test shows the tolerance eps it is a plain double comparison with eps
// applied once, exactly in the form written; std::max / std::min of
// double_wrapper values are the tolerant ones (of two nearly equal values the
// first stands).
#include <algorithm>
#include <cstdint>
#include <vector>

#include "torva/geometry/distance.h"
#include "torva/space/candidate_list.h"

namespace torva {

namespace {

constexpr double eps = sea::double_wrapper::tolerance;

using sea::double_wrapper;

// Box A of a dominator against box B of a dominated block, for the cube
// (c, h): passes when the box from c to the nearest point of B grown by
// r = dB - h lies inside A grown by s = dB / r0 - h. With r0 = 1 a pass means
// that from every point of the cube A is no farther than B (within eps).
bool box_dominates(const cube_t& cube, const cuboid_t& a, const cuboid_t& b, std::int32_t r0) noexcept {
  const double_wrapper h = cube.half;
  const double_wrapper db = distance(b, cube.center) - h;
  const double_wrapper q = db / double_wrapper(r0);
  if ((distance(a, cube.center) - h).value - eps > q.value) return false;  // cheap early exit
  const double_wrapper r = db - h;
  const double_wrapper s = q - h;
  point3 grown_lo;
  point3 grown_hi;
  for (int i = 0; i < 3; ++i) {
    grown_lo[i] = b.lower[i] - r;
    grown_hi[i] = b.upper[i] + r;
  }
  const point3 p = maximal(grown_lo, cube.center);
  const point3 q_corner = minimal(grown_hi, cube.center);
  for (int i = 0; i < 3; ++i)
    if (!(p[i].value + eps >= (a.lower[i] - s).value)) return false;
  for (int i = 0; i < 3; ++i)
    if (!((a.upper[i] + s).value + eps >= q_corner[i].value)) return false;
  return true;
}

// A closed interval of one axis. Plain doubles without initialisers, so that
// the stack array of interval_list costs nothing until it is used.
struct interval {
  double lo;
  double hi;
};

// The intervals of one axis while a group is merged. Only the last interval is
// ever joined and each box is merged once, so the list never holds more than
// the group's size; groups of up to 32 slices (the common case by far) stay on
// the stack.
class interval_list {
 public:
  explicit interval_list(std::size_t capacity) {
    if (capacity > inline_capacity) {
      spill_.resize(capacity);
      data_ = spill_.data();
    }
  }
  interval_list(const interval_list&) = delete;
  interval_list& operator=(const interval_list&) = delete;

  bool empty() const noexcept { return size_ == 0; }
  std::size_t size() const noexcept { return size_; }
  const interval& operator[](std::size_t i) const noexcept { return data_[i]; }

  // Joins (l, u) with the last interval when the two, each grown by d, touch;
  // appends it otherwise. No sorting: the outcome depends on the order of the
  // boxes, the price of a single pass.
  void merge(double_wrapper l, double_wrapper u, double_wrapper d) noexcept {
    if (size_ != 0) {
      interval& last = data_[size_ - 1];
      const double_wrapper last_lo = last.lo, last_hi = last.hi;
      if ((u + d).value + eps >= (last_lo - d).value && (last_hi + d).value + eps >= (l - d).value) {
        last.lo = std::min(last_lo, l).value;
        last.hi = std::max(last_hi, u).value;
        return;
      }
    }
    data_[size_++] = interval{l.value, u.value};
  }

 private:
  static constexpr std::size_t inline_capacity = 32;

  interval inline_[inline_capacity];
  std::vector<interval> spill_;
  interval* data_ = inline_;
  std::size_t size_ = 0;
};

}  // namespace

bool candidate_list::dominate_new_halden(const candidate& a, const candidate& b) const {
  const shape_t& sa = *a.block;
  const shape_t& sb = *b.block;
  return box_dominates(cube, sa.inner_box, sb.outer_box, a.ratio);
}

bool candidate_list::dominate(const candidate& a, const candidate& b) const {
  // Merged intervals know no ratio, so they are off when ratios can be 2.
  const bool merged = !double_incline_ratio && group_optimize;
  const bool piecewise = !merged && group_dominance;
  if (!merged && !piecewise) return dominate_new_halden(a, b);

  if (dominate_new_halden(a, b)) return true;
  const shape_t& sa = *a.block;
  const shape_t& sb = *b.block;
  // Nothing was cut: the single boxes have already failed.
  if (sa.inner_pieces.size() <= 1 && sb.outer_pieces.size() <= 1) return false;

  const double_wrapper h = cube.half;
  if (merged) {
    const double ma = (manhattan_distance(cube.center, sa) - h).value;
    for (const cuboid_t& piece : sb.outer_pieces) {
      const double_wrapper d = distance(piece, cube.center) - h;
      if (ma - eps > d.value) return false;
      if (!dominate_group_optimize_impl(sa.inner_pieces, piece, d)) return false;
    }
    return true;
  }

  // Piecewise: every piece of b must be shadowed by one piece of a.
  for (const cuboid_t& piece : sb.outer_pieces) {
    bool shadowed = false;
    for (const cuboid_t& inner : sa.inner_pieces) {
      if (box_dominates(cube, inner, piece, a.ratio)) {
        shadowed = true;
        break;
      }
    }
    if (!shadowed) return false;
  }
  return true;
}

// Does the group, each box grown by d, form a wall between the cube and the
// target? An empty group shadows nothing (it has no first box to give the
// common z range of the slices), so it answers false.
bool candidate_list::dominate_group_optimize_impl(const std::vector<cuboid_t>& group, const cuboid_t& target,
                                                  sea::double_wrapper d) const {
  if (group.empty()) return false;

  const double dv = d.value;
  double cl[3];
  double ch[3];
  for (int i = 0; i < 3; ++i) {
    cl[i] = (cube.center[i] - cube.half).value;
    ch[i] = (cube.center[i] + cube.half).value;
  }
  // The slices of one shape share their z range; the first box speaks for all.
  const double gzl = group.front().lower[2].value;
  const double gzh = group.front().upper[2].value;

  const std::int64_t dir = relative_direction(cube, target);
  if (dir < 0 || dir > 5) return false;

  // The part of the target's extent that lies inside the cube shrunk by d.
  double span_lo[3];
  double span_hi[3];
  for (int i = 0; i < 3; ++i) {
    const double tl = target.lower[i].value;
    const double th = target.upper[i].value;
    span_lo[i] = tl < cl[i] + dv - eps ? cl[i] + dv : tl;
    span_hi[i] = th - eps > ch[i] - dv ? ch[i] - dv : th;
  }
  auto covers = [&](const interval& iv, int axis) {
    return !(iv.lo - eps > span_lo[axis]) && !(span_hi[axis] - eps > iv.hi);
  };

  const int axis = static_cast<int>(dir % 3);
  const bool plus_side = dir < 3;
  // Admission by the extent along the direction: the box starts no later than
  // the target and comes within d of the cube.
  auto admitted = [&](const cuboid_t& g) {
    const double lo = axis == 2 ? gzl : g.lower[axis].value;
    const double hi = axis == 2 ? gzh : g.upper[axis].value;
    if (plus_side)
      return target.lower[axis].value + eps >= lo && dv + hi + eps >= ch[axis];
    return hi + eps >= target.upper[axis].value && cl[axis] + eps >= lo - dv;
  };

  if (axis == 2) {
    interval_list xs(group.size());
    interval_list ys(group.size());
    for (const cuboid_t& g : group) {
      if (!admitted(g)) continue;
      ys.merge(g.lower[1], g.upper[1], d);
      xs.merge(g.lower[0], g.upper[0], d);
      for (std::size_t i = 0; i < xs.size(); ++i) {
        if (!covers(xs[i], 0)) continue;
        for (std::size_t j = 0; j < ys.size(); ++j)
          if (covers(ys[j], 1)) return true;
      }
    }
    return false;
  }

  // A side target: the slices' common height must span the target's, then
  // one horizontal axis must be covered (x for a y side, y for an x side).
  if (gzl - eps > span_lo[2] || span_hi[2] - eps > gzh) return false;
  const int across = axis == 1 ? 0 : 1;
  interval_list list(group.size());
  for (const cuboid_t& g : group)
    if (admitted(g)) list.merge(g.lower[across], g.upper[across], d);
  if (list.empty()) return false;
  for (std::size_t i = 0; i < list.size(); ++i)
    if (covers(list[i], across)) return true;
  return false;
}

}  // namespace torva
