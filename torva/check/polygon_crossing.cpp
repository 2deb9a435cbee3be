#include "torva/check/polygon_crossing.h"

#include <algorithm>
#include <cmath>

namespace torva {

namespace {

struct edge {
  std::size_t index;  // from vertex `index` of the outline to the next
  double ax, ay, bx, by;
  double min_x() const { return std::min(ax, bx); }
  double max_x() const { return std::max(ax, bx); }
  double min_y() const { return std::min(ay, by); }
  double max_y() const { return std::max(ay, by); }
};

double orient(double ax, double ay, double bx, double by, double cx, double cy) {
  return (bx - ax) * (cy - ay) - (by - ay) * (cx - ax);
}

// The two edges cross at a point inside both; signs within a rounding
// tolerance of the edges' size count as zero, so touching is not crossing.
bool cross(const edge& p, const edge& q, double& x, double& y) {
  const double span = std::max({p.max_x() - p.min_x(), p.max_y() - p.min_y(), q.max_x() - q.min_x(),
                                q.max_y() - q.min_y(), std::fabs(p.ax - q.ax), std::fabs(p.ay - q.ay)});
  const double tol = 1e-10 * span * span;
  const double d1 = orient(p.ax, p.ay, p.bx, p.by, q.ax, q.ay);
  const double d2 = orient(p.ax, p.ay, p.bx, p.by, q.bx, q.by);
  const double d3 = orient(q.ax, q.ay, q.bx, q.by, p.ax, p.ay);
  const double d4 = orient(q.ax, q.ay, q.bx, q.by, p.bx, p.by);
  const bool split_q = (d1 > tol && d2 < -tol) || (d1 < -tol && d2 > tol);
  const bool split_p = (d3 > tol && d4 < -tol) || (d3 < -tol && d4 > tol);
  if (!split_q || !split_p) return false;
  const double t = d3 / (d3 - d4);
  x = p.ax + t * (p.bx - p.ax);
  y = p.ay + t * (p.by - p.ay);
  return true;
}

}  // namespace

polygon_crossing find_self_crossing(const std::vector<point2>& outline, std::uint64_t max_tests) {
  polygon_crossing result;
  // Vertices with their places in the outline, repeats passed over.
  std::vector<std::size_t> at;
  for (std::size_t k = 0; k < outline.size(); ++k) {
    if (!at.empty() && outline[k][0].value == outline[at.back()][0].value &&
        outline[k][1].value == outline[at.back()][1].value)
      continue;
    at.push_back(k);
  }
  while (at.size() > 1 && outline[at.back()][0].value == outline[at.front()][0].value &&
         outline[at.back()][1].value == outline[at.front()][1].value)
    at.pop_back();
  const std::size_t n = at.size();
  if (n < 4) return result;  // a triangle cannot cross itself

  std::vector<edge> edges(n);
  for (std::size_t k = 0; k < n; ++k) {
    const point2& a = outline[at[k]];
    const point2& b = outline[at[(k + 1) % n]];
    edges[k] = edge{k, a[0].value, a[1].value, b[0].value, b[1].value};
  }
  std::vector<std::size_t> order(n);
  for (std::size_t k = 0; k < n; ++k) order[k] = k;
  std::sort(order.begin(), order.end(), [&](std::size_t a, std::size_t b) { return edges[a].min_x() < edges[b].min_x(); });

  std::vector<std::size_t> open;
  std::uint64_t tests = 0;
  for (std::size_t e : order) {
    const edge& q = edges[e];
    std::size_t kept = 0;
    for (std::size_t o : open)
      if (!(edges[o].max_x() < q.min_x())) open[kept++] = o;
    open.resize(kept);
    for (std::size_t o : open) {
      const edge& p = edges[o];
      const std::size_t d = o > e ? o - e : e - o;
      if (d == 1 || d == n - 1) continue;  // neighbours share a vertex
      if (p.max_y() < q.min_y() || q.max_y() < p.min_y()) continue;
      if (++tests > max_tests) {
        result.unchecked = true;
        return result;
      }
      double x = 0.0, y = 0.0;
      if (cross(p, q, x, y)) {
        result.found = true;
        result.edge_a = at[std::min(o, e)];
        result.edge_b = at[std::max(o, e)];
        result.x = x;
        result.y = y;
        return result;
      }
    }
    open.push_back(e);
  }
  return result;
}

}  // namespace torva
