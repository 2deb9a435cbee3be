#include "torva/import/internal/region.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include "torva/geometry/convex_decomposition.h"

namespace torva::internal {

using namespace boost::polygon::operators;

namespace {

grid_point to_grid(const gds_point& p) { return grid_point(int(p.x), int(p.y)); }

template <class Ring>
bool ring_is_manhattan(const Ring& ring) {
  const std::size_t n = ring.size();
  for (std::size_t i = 0; i < n; ++i) {
    const auto& a = ring[i];
    const auto& b = ring[(i + 1) % n];
    if (gtl::x(a) != gtl::x(b) && gtl::y(a) != gtl::y(b)) return false;
  }
  return true;
}

template <class Polygon>
void add_ring_points(piece_store& s, const Polygon& ring) {
  std::vector<grid_point> pts(ring.begin(), ring.end());
  s.add_ring(pts);
}

}  // namespace

bool is_manhattan(std::span<const gds_point> ring) {
  const std::size_t n = ring.size();
  for (std::size_t i = 0; i < n; ++i) {
    const gds_point& a = ring[i];
    const gds_point& b = ring[(i + 1) % n];
    if (a.x != b.x && a.y != b.y) return false;
  }
  return true;
}

// Drops repeated points and the middle one of three on a line, which a
// Manhattan polygon of Boost.Polygon does not take (it keeps corners only).
static void drop_straight_points(std::vector<grid_point>& pts) {
  bool changed = true;
  while (changed && pts.size() >= 3) {
    changed = false;
    std::vector<grid_point> kept;
    const std::size_t n = pts.size();
    for (std::size_t i = 0; i < n; ++i) {
      const grid_point& a = kept.empty() ? pts[(i + n - 1) % n] : kept.back();
      const grid_point& b = pts[i];
      const grid_point& c = pts[(i + 1) % n];
      if (b == c || (a.x() == b.x() && b.x() == c.x()) || (a.y() == b.y() && b.y() == c.y())) {
        changed = true;
        continue;
      }
      kept.push_back(b);
    }
    pts.swap(kept);
  }
}

void region::add(std::span<const gds_point> ring) {
  std::vector<grid_point> pts;
  pts.reserve(ring.size());
  for (const gds_point& p : ring) pts.push_back(to_grid(p));
  if (manhattan && is_manhattan(ring)) {
    drop_straight_points(pts);
    if (pts.size() < 4) return;  // no area
    if (pts.size() == 4) {
      int x0 = pts[0].x(), x1 = x0, y0 = pts[0].y(), y1 = y0;
      for (const grid_point& p : pts) {
        x0 = std::min(x0, p.x()), x1 = std::max(x1, p.x());
        y0 = std::min(y0, p.y()), y1 = std::max(y1, p.y());
      }
      if (x0 < x1 && y0 < y1) m.insert(grid_rect(x0, y0, x1, y1));
      return;
    }
    gtl::polygon_90_data<int> poly;
    poly.set(pts.begin(), pts.end());
    m.insert(poly);
    return;
  }
  make_general();
  gtl::polygon_data<int> poly(pts.begin(), pts.end());
  g.insert(poly);
}

void region::add(const grid_rect& r) {
  if (manhattan)
    m.insert(r);
  else
    g.insert(r);
}

void region::make_general() {
  if (!manhattan) return;
  g.clear();
  g += m;
  m.clear();
  manhattan = false;
}

void unite(region& a, const region& b) {
  if (a.manhattan && b.manhattan) {
    a.m |= b.m;
    return;
  }
  a.make_general();
  if (b.manhattan)
    a.g |= b.m;
  else
    a.g |= b.g;
}

void intersect(region& a, const region& b) {
  if (a.manhattan && b.manhattan) {
    a.m &= b.m;
    return;
  }
  a.make_general();
  if (b.manhattan)
    a.g &= b.m;
  else
    a.g &= b.g;
}

void subtract(region& a, const region& b) {
  if (a.manhattan && b.manhattan) {
    a.m -= b.m;
    return;
  }
  a.make_general();
  if (b.manhattan)
    a.g -= b.m;
  else
    a.g -= b.g;
}

void piece_store::add_ring(std::span<const grid_point> ring) {
  if (ring.size() > 1 && ring.front() == ring.back()) ring = ring.first(ring.size() - 1);
  points.insert(points.end(), ring.begin(), ring.end());
  ring_starts.push_back(points.size());
}

polygon_90 piece_store::polygon_90_of(std::size_t i) const {
  const piece& p = pieces[i];
  polygon_90 out;
  const auto outer = ring(p.first_ring);
  out.set(outer.begin(), outer.end());
  std::vector<gtl::polygon_90_data<int>> holes(p.rings - 1);
  for (std::uint32_t h = 1; h < p.rings; ++h) {
    const auto r = ring(p.first_ring + h);
    holes[h - 1].set(r.begin(), r.end());
  }
  out.set_holes(holes.begin(), holes.end());
  return out;
}

polygon_any piece_store::polygon_of(std::size_t i) const {
  const piece& p = pieces[i];
  polygon_any out;
  const auto outer = ring(p.first_ring);
  out.set(outer.begin(), outer.end());
  std::vector<gtl::polygon_data<int>> holes(p.rings - 1);
  for (std::uint32_t h = 1; h < p.rings; ++h) {
    const auto r = ring(p.first_ring + h);
    holes[h - 1].set(r.begin(), r.end());
  }
  out.set_holes(holes.begin(), holes.end());
  return out;
}

double piece_store::area(std::size_t i) const {
  const piece& p = pieces[i];
  double total = 0;
  for (std::uint32_t r = 0; r < p.rings; ++r) {
    const auto pts = ring(p.first_ring + r);
    long double twice = 0;
    for (std::size_t k = 0; k < pts.size(); ++k) {
      const grid_point& a = pts[k];
      const grid_point& b = pts[(k + 1) % pts.size()];
      twice += (long double)a.x() * b.y() - (long double)b.x() * a.y();
    }
    const double a = double(twice < 0 ? -twice : twice) / 2.0;
    total += r == 0 ? a : -a;
  }
  return total;
}

void extract_pieces(const region& r, piece_store& out) {
  auto start = [&out](bool manhattan) {
    piece_store::piece p;
    p.first_ring = std::uint32_t(out.ring_starts.size() - 1);
    p.manhattan = manhattan;
    return p;
  };
  auto finish = [&out](piece_store::piece& p) {
    p.rings = std::uint32_t(out.ring_starts.size() - 1 - p.first_ring);
    const auto outer = out.ring(p.first_ring);
    int x0 = outer[0].x(), x1 = x0, y0 = outer[0].y(), y1 = y0;
    for (const grid_point& q : outer) {
      x0 = std::min(x0, q.x()), x1 = std::max(x1, q.x());
      y0 = std::min(y0, q.y()), y1 = std::max(y1, q.y());
    }
    p.box = grid_rect(x0, y0, x1, y1);
    out.pieces.push_back(p);
  };
  if (r.manhattan) {
    std::vector<polygon_90> polys;
    r.m.get(polys);
    for (const polygon_90& poly : polys) {
      piece_store::piece p = start(true);
      add_ring_points(out, poly);
      for (auto h = poly.begin_holes(); h != poly.end_holes(); ++h) add_ring_points(out, *h);
      finish(p);
    }
    return;
  }
  std::vector<polygon_any> polys;
  r.g.get(polys);
  for (const polygon_any& poly : polys) {
    piece_store::piece p = start(true);
    add_ring_points(out, poly);
    for (auto h = poly.begin_holes(); h != poly.end_holes(); ++h) add_ring_points(out, *h);
    for (std::uint32_t k = p.first_ring; k < out.ring_starts.size() - 1; ++k) {
      const auto ring = out.ring(k);
      if (!ring_is_manhattan(ring)) p.manhattan = false;
    }
    finish(p);
  }
}

namespace {

void rectangles_to_rings(const std::vector<grid_rect>& rects, std::vector<std::vector<grid_point>>& out) {
  for (const grid_rect& r : rects)
    out.push_back({grid_point(gtl::xl(r), gtl::yl(r)), grid_point(gtl::xh(r), gtl::yl(r)),
                   grid_point(gtl::xh(r), gtl::yh(r)), grid_point(gtl::xl(r), gtl::yh(r))});
}

// Convex parts of an outline without holes, by the library's decomposition.
void convex_parts(std::span<const grid_point> ring, std::vector<std::vector<grid_point>>& out) {
  nprism_large_t poly;
  for (const grid_point& p : ring) poly.points.push_back(point2{{double(p.x()), double(p.y())}});
  poly.size = poly.points.size();
  poly.bottom = 0.0;
  poly.top = 1.0;
  std::vector<nprism_large_t> parts;
  convex_decomposition(poly, parts);
  for (const nprism_large_t& part : parts) {
    std::vector<grid_point> r;
    // The parts keep the outline's own vertices, so they are whole numbers.
    for (const point2& p : part.points) r.emplace_back(int(std::lround(p[0].value)), int(std::lround(p[1].value)));
    out.push_back(std::move(r));
  }
}

}  // namespace

void cut_piece(const piece_store& s, std::size_t i, std::vector<std::vector<grid_point>>& out) {
  const piece_store::piece& p = s.pieces[i];
  if (s.is_rectangle(i)) {
    rectangles_to_rings({p.box}, out);
    return;
  }
  if (p.manhattan) {
    set_90 one;
    one.insert(s.polygon_90_of(i));
    std::vector<grid_rect> across, along;
    one.get_rectangles(across, gtl::HORIZONTAL);
    one.get_rectangles(along, gtl::VERTICAL);
    rectangles_to_rings(along.size() < across.size() ? along : across, out);
    return;
  }
  if (p.rings == 1) {
    convex_parts(s.ring(p.first_ring), out);
    return;
  }
  // Holes first become slices (trapezoids and triangles), then convex parts.
  set_any one;
  one.insert(s.polygon_of(i));
  std::vector<gtl::polygon_data<int>> slices;
  one.get_trapezoids(slices);
  for (const auto& slice : slices) {
    std::vector<grid_point> r(slice.begin(), slice.end());
    if (r.size() > 1 && r.front() == r.back()) r.pop_back();
    if (r.size() <= 4)
      out.push_back(std::move(r));
    else
      convex_parts(r, out);
  }
}

void add_grown(const piece_store& s, int scale, int grow, set_90& out, std::size_t& approximated) {
  set_90 exact;
  std::vector<std::vector<grid_point>> parts;
  for (std::size_t i = 0; i < s.size(); ++i) {
    const piece_store::piece& p = s.pieces[i];
    if (p.manhattan) {
      if (s.is_rectangle(i)) {
        exact.insert(p.box);
      } else {
        exact.insert(s.polygon_90_of(i));
      }
      continue;
    }
    ++approximated;
    parts.clear();
    cut_piece(s, i, parts);
    for (const auto& ring : parts) {
      int x0 = ring[0].x(), x1 = x0, y0 = ring[0].y(), y1 = y0;
      for (const grid_point& q : ring) {
        x0 = std::min(x0, q.x()), x1 = std::max(x1, q.x());
        y0 = std::min(y0, q.y()), y1 = std::max(y1, q.y());
      }
      if (x0 < x1 && y0 < y1) exact.insert(grid_rect(x0, y0, x1, y1));
    }
  }
  if (scale != 1) exact.scale_up(unsigned(scale));
  if (grow > 0) exact.bloat(grow, grow, grow, grow);
  out |= exact;
}

}  // namespace torva::internal
