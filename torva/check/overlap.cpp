#include "torva/check/overlap.h"

#include <algorithm>
#include <cmath>
#include <cstdint>

#include "torva/check/coincident.h"

namespace torva {

namespace {

// A convex figure in plan view: a polygon, or a circle when `round`.
struct plan {
  std::vector<point2> points;
  bool round = false;
  double cx = 0, cy = 0, r = 0;
};

plan plan_of(const shape_t& s) {
  plan p;
  if (s.shape_kind == shape_cylinder) {
    p.round = true;
    p.cx = s.cylinder().center[0].value;
    p.cy = s.cylinder().center[1].value;
    p.r = s.cylinder().radius.value;
  } else if (s.shape_kind == shape_prism) {
    const nprism_t& q = s.prism();
    p.points.assign(q.points, q.points + std::min<std::uint64_t>(q.size, 8));
  } else {
    const cuboid_t& c = s.outer_box;
    p.points = {point2{c.lower[0], c.lower[1]}, point2{c.upper[0], c.lower[1]}, point2{c.upper[0], c.upper[1]},
                point2{c.lower[0], c.upper[1]}};
  }
  return p;
}

// True when some edge normal of `a` parts the two polygons.
bool parted_by_edges_of(const std::vector<point2>& a, const std::vector<point2>& b, double tol) {
  for (std::size_t i = 0; i < a.size(); ++i) {
    const point2& p = a[i];
    const point2& q = a[(i + 1) % a.size()];
    double nx = q[1].value - p[1].value, ny = p[0].value - q[0].value;
    const double len = std::hypot(nx, ny);
    if (!(len > 0)) continue;
    nx /= len;
    ny /= len;
    double lo_a = HUGE_VAL, hi_a = -HUGE_VAL, lo_b = HUGE_VAL, hi_b = -HUGE_VAL;
    for (const point2& v : a) {
      const double d = v[0].value * nx + v[1].value * ny;
      lo_a = std::min(lo_a, d);
      hi_a = std::max(hi_a, d);
    }
    for (const point2& v : b) {
      const double d = v[0].value * nx + v[1].value * ny;
      lo_b = std::min(lo_b, d);
      hi_b = std::max(hi_b, d);
    }
    if (hi_a <= lo_b + tol || hi_b <= lo_a + tol) return true;
  }
  return false;
}

// Distance from a point to a convex polygon, 0 inside it.
double distance_to(const std::vector<point2>& poly, double x, double y) {
  bool inside_ccw = true, inside_cw = true;
  double best = HUGE_VAL;
  for (std::size_t i = 0; i < poly.size(); ++i) {
    const double ax = poly[i][0].value, ay = poly[i][1].value;
    const double bx = poly[(i + 1) % poly.size()][0].value, by = poly[(i + 1) % poly.size()][1].value;
    const double cross = (bx - ax) * (y - ay) - (by - ay) * (x - ax);
    inside_ccw = inside_ccw && cross >= 0;
    inside_cw = inside_cw && cross <= 0;
    const double ex = bx - ax, ey = by - ay, len2 = ex * ex + ey * ey;
    double t = len2 > 0 ? ((x - ax) * ex + (y - ay) * ey) / len2 : 0.0;
    t = std::clamp(t, 0.0, 1.0);
    best = std::min(best, std::hypot(x - ax - t * ex, y - ay - t * ey));
  }
  return inside_ccw || inside_cw ? 0.0 : best;
}

bool plans_overlap(const plan& a, const plan& b, double tol) {
  if (a.round && b.round) return std::hypot(a.cx - b.cx, a.cy - b.cy) < a.r + b.r - tol;
  if (a.round || b.round) {
    const plan& c = a.round ? a : b;
    const plan& p = a.round ? b : a;
    return distance_to(p.points, c.cx, c.cy) < c.r - tol;
  }
  return !parted_by_edges_of(a.points, b.points, tol) && !parted_by_edges_of(b.points, a.points, tol);
}

bool boxes_meet(const cuboid_t& a, const cuboid_t& b, double tol) {
  for (int k = 0; k < 3; ++k)
    if (!(std::min(a.upper[k].value, b.upper[k].value) - std::max(a.lower[k].value, b.lower[k].value) > tol))
      return false;
  return true;
}

// A tree of boxes: leaves of a few blocks, each node the box of its blocks.
class box_tree {
 public:
  explicit box_tree(const std::vector<const wire_block*>& blocks) : blocks_(blocks), order_(blocks.size()) {
    for (std::size_t k = 0; k < order_.size(); ++k) order_[k] = k;
    if (order_.empty()) return;
    nodes_.resize(1);
    build(0, 0, order_.size());
  }

  // Calls f(j) for every block j whose box meets `box`.
  template <class F>
  void visit(const cuboid_t& box, double tol, F&& f) const {
    if (nodes_.empty()) return;
    std::vector<std::size_t> stack{0};
    while (!stack.empty()) {
      const node& n = nodes_[stack.back()];
      stack.pop_back();
      if (!boxes_meet(n.box, box, tol)) continue;
      if (n.left == 0) {
        for (std::size_t k = n.begin; k < n.end; ++k)
          if (boxes_meet(blocks_[order_[k]]->outer_box, box, tol)) f(order_[k]);
      } else {
        stack.push_back(n.left);
        stack.push_back(n.left + 1);
      }
    }
  }

 private:
  struct node {
    cuboid_t box;
    std::size_t begin, end;
    std::size_t left = 0;  // children at left and left + 1; 0 for a leaf
  };

  // Fills node `at` with the blocks order_[begin, end) and, above a few, two children.
  void build(std::size_t at, std::size_t begin, std::size_t end) {
    cuboid_t box = blocks_[order_[begin]]->outer_box;
    for (std::size_t k = begin; k < end; ++k) {
      box.lower = minimal(box.lower, blocks_[order_[k]]->outer_box.lower);
      box.upper = maximal(box.upper, blocks_[order_[k]]->outer_box.upper);
    }
    nodes_[at] = node{box, begin, end};
    if (end - begin <= 8) return;
    int axis = 0;
    for (int k = 1; k < 3; ++k)
      if (box.upper[k].value - box.lower[k].value > box.upper[axis].value - box.lower[axis].value) axis = k;
    const std::size_t mid = begin + (end - begin) / 2;
    auto centre = [&](std::size_t i) {
      const cuboid_t& b = blocks_[i]->outer_box;
      return b.lower[axis].value + b.upper[axis].value;
    };
    std::nth_element(order_.begin() + long(begin), order_.begin() + long(mid), order_.begin() + long(end),
                     [&](std::size_t x, std::size_t y) { return centre(x) < centre(y); });
    const std::size_t left = nodes_.size();
    nodes_.resize(left + 2);
    nodes_[at].left = left;
    build(left, begin, mid);
    build(left + 1, mid, end);
  }

  const std::vector<const wire_block*>& blocks_;
  std::vector<std::size_t> order_;
  std::vector<node> nodes_;
};

}  // namespace

bool solids_overlap(const shape_t& a, const shape_t& b, double tolerance) {
  if (!boxes_meet(a.outer_box, b.outer_box, tolerance)) return false;
  return plans_overlap(plan_of(a), plan_of(b), tolerance);
}

overlap_search find_overlaps_across_nets(const std::vector<const wire_block*>& all, std::size_t max_pairs) {
  overlap_search out;
  // A box that is not finite has no place to overlap in (and no order to sort by).
  std::vector<const wire_block*> blocks;
  for (const wire_block* b : all) {
    bool finite = true;
    for (int k = 0; k < 3; ++k)
      finite = finite && std::isfinite(b->outer_box.lower[k].value) && std::isfinite(b->outer_box.upper[k].value);
    if (finite) blocks.push_back(b);
  }
  const box_tree tree(blocks);
  constexpr double tol = 1e-10;
  for (std::size_t i = 0; i < blocks.size(); ++i) {
    const wire_block& a = *blocks[i];
    tree.visit(a.outer_box, tol, [&](std::size_t j) {
      if (j <= i) return;
      const wire_block& b = *blocks[j];
      if (a.net == b.net || same_solid(a, b) || !solids_overlap(a, b, tol)) return;
      if (out.count++ < max_pairs) out.pairs.emplace_back(&a, &b);
    });
  }
  return out;
}

}  // namespace torva
