#include "torva/geometry/convex_decomposition.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <initializer_list>
#include <utility>

#include "torva/foundation/double_wrapper.h"
#include "torva/foundation/logger.h"
#include "torva/geometry/internal/polygon_repair.h"

namespace torva {

namespace {

using sea::double_wrapper;

// Tolerantly equal in x and in y.
bool same_point(const point2& a, const point2& b) { return a[0] == b[0] && a[1] == b[1]; }

double_wrapper dot(const point2& a, const point2& b) { return a[0] * b[0] + a[1] * b[1]; }

// normalized_vector of a difference, for the many places that need one of a temporary.
point2 direction(const point2& to, const point2& from) {
  point2 v = to - from;
  return normalized_vector(v);
}

point2 normalized_sum(const point2& a, const point2& b) {
  point2 v = a + b;
  return normalized_vector(v);
}

// 0 collinear, 1 clockwise, 2 anticlockwise.
int orientation(const point2& p, const point2& q, const point2& r) {
  const double_wrapper v = (q[1] - p[1]) * (r[0] - q[0]) - (q[0] - p[0]) * (r[1] - q[1]);
  if (v == 0.0) return 0;
  return v > 0.0 ? 1 : 2;
}

template <class It>
bool is_anticlock_impl(It first, std::uint64_t size) {
  for (std::uint64_t i = 0; i < size; ++i) {
    const std::uint64_t j = (i + 1) % size;
    const std::uint64_t k = (i + 2) % size;
    const point2& pi = first[i];
    const point2& pj = first[j];
    const point2& pk = first[k];
    const point2 a = pj - pi;
    const double_wrapper c = (pk[1] - pj[1]) * a[0] - (pk[0] - pj[0]) * a[1];
    if (!(c.value < -1e-10)) continue;  // no right turn at j
    // The bisector pointing out past the corner at j.
    const point2 m = normalized_sum(direction(pj, pi), direction(pj, pk));
    bool dent = false;
    for (std::uint64_t t = 0; t < size; ++t) {
      if (t == i || t == j || t == k) continue;
      if (dot(direction(first[t], pj), m).value - 1e-10 > 0.0) {
        dent = true;  // some vertex lies beyond this corner
        break;
      }
    }
    if (!dent) return false;  // a true outer corner turning right
  }
  return true;
}

void warn_points_numbered_from_one(const nprism_large_t& poly) {
  sea::writer& w = *logger::instance().warning;
  for (std::size_t n = 0; n < poly.points.size(); ++n) {
    w("\tpt%lu:(%.12f, %.12f)\n", static_cast<unsigned long>(n + 1), double(poly.points[n][0]),
      double(poly.points[n][1]));
    w.flush();
  }
}

void make_anticlock(nprism_large_t& poly) {
  if (!is_anticlock(poly.points.cbegin(), poly.size)) std::reverse(poly.points.begin(), poly.points.end());
}

// Index of the first reflex vertex, or -1 when the polygon is convex.
std::int64_t first_reflex(const nprism_large_t& p) {
  const std::uint64_t n = p.size;
  for (std::uint64_t i = 0; i < n; ++i) {
    const point2& prev = p.points[(i + n - 1) % n];
    const point2& cur = p.points[i];
    const point2& next = p.points[(i + 1) % n];
    const double_wrapper v = (next[1] - cur[1]) * (cur[0] - prev[0]) - (next[0] - cur[0]) * (cur[1] - prev[1]);
    if (v.value < -1e-10) return static_cast<std::int64_t>(i);
  }
  return -1;
}

void emit_convex(const nprism_large_t& p, std::vector<nprism_large_t>& out) {
  if (p.size <= 4) {
    out.push_back(p);
    return;
  }
  auto emit = [&](std::initializer_list<std::uint64_t> idx) {
    nprism_large_t piece;
    for (std::uint64_t k : idx) piece.points.push_back(p.points[k]);
    piece.size = piece.points.size();
    piece.bottom = p.bottom;
    piece.top = p.top;
    make_anticlock(piece);
    out.push_back(std::move(piece));
  };
  emit({0, 1, 2, 3});
  for (std::uint64_t m = 4; m < p.size; ++m) {
    if (same_point(p.points[m], p.points[0])) continue;
    emit({0, m - 1, m});
  }
}

// Whether the diagonal from reflex vertex i to j may split p.
bool diagonal_passes(const nprism_large_t& p, std::uint64_t i, std::uint64_t j) {
  const std::uint64_t n = p.size;
  const std::vector<point2>& v = p.points;
  const point2& pi = v[i];
  const point2& pj = v[j];

  // The half plane of the bisector into the polygon at the reflex corner.
  const point2 m = normalized_sum(direction(pi, v[(i + n - 1) % n]), direction(pi, v[(i + 1) % n]));
  if (dot(direction(pj, pi), m).value < -1e-10) return false;

  // No other vertex may stand on the diagonal.
  for (std::uint64_t k = 0; k < n; ++k) {
    if (same_point(v[k], pi) || same_point(v[k], pj)) continue;
    if (is_point_on_segment(v[k], pi, pj)) return false;
  }

  // No edge away from its ends may cross or touch it.
  for (std::uint64_t k = 0; k < n; ++k) {
    const point2& a = v[k];
    const point2& b = v[(k + 1) % n];
    if (same_point(a, pi) || same_point(a, pj) || same_point(b, pi) || same_point(b, pj)) continue;
    const int o1 = orientation(a, b, pi);
    const int o2 = orientation(a, b, pj);
    const int o3 = orientation(pi, pj, a);
    const int o4 = orientation(pi, pj, b);
    if (o1 != o2 && o3 != o4) return false;
    if (o1 == 0 && onSegment(a, pi, b)) return false;
    if (o2 == 0 && onSegment(a, pj, b)) return false;
    if (o3 == 0 && onSegment(pi, a, pj)) return false;
    if (o4 == 0 && onSegment(pi, b, pj)) return false;
  }

  // A polygon touching itself may pass the place of j twice; then the
  // diagonal must enter by the inner wedge at j.
  bool pinched = false;
  for (std::uint64_t t = (j + 1 == n ? 0 : j + 1); t < n; ++t) {
    if (t != j && same_point(v[t], pj)) {
      pinched = true;
      break;
    }
  }
  if (!pinched) return true;
  const point2& before = v[(j + n - 1) % n];
  const point2& after = v[(j + 1) % n];
  const point2 e1 = direction(pj, before);
  const point2 e2 = direction(pj, after);
  const point2 bis = normalized_sum(e1, e2);
  const point2 c = direction(pj, pi);
  const bool a_test = dot(c, bis) < dot(bis, e1);
  const bool b_test = ((after[1] - pj[1]) * e1[0] - (after[0] - pj[0]) * e1[1]).value < -1e-10;
  return a_test == b_test;
}

void warn_no_diagonal(const nprism_large_t& poly) {
  sea::writer& w = *logger::instance().warning;
  w("WARNING: (Geometry) input poly not vaild(may have same vertexs or self intersection)");
  w("\n");
  w.flush();
  for (std::size_t n = 0; n < poly.points.size(); ++n) {
    w("pt %lu:(%.12f, %.12f)\n", static_cast<unsigned long>(n), double(poly.points[n][0]),
      double(poly.points[n][1]));
    w.flush();
  }
  w("z <min:%.12f;max: %.12f>\n", double(poly.bottom), double(poly.top));
  w.flush();
}

nprism_large_t part(const nprism_large_t& p, std::uint64_t from, std::uint64_t to) {
  nprism_large_t r;
  add_points(p, static_cast<int>(from), static_cast<int>(to), r.points);
  r.size = r.points.size();
  r.bottom = p.bottom;
  r.top = p.top;
  return r;
}

}  // namespace

point2 normalized_vector(point2& v) {
  const double len = std::sqrt(double(v[0] * v[0] + v[1] * v[1]));
  point2 r;
  r[0] = v[0] / len;
  r[1] = v[1] / len;
  return r;
}

bool onSegment(point2 p, point2 q, point2 r) {
  return q[0] <= std::max(p[0], r[0]) && q[0] >= std::min(p[0], r[0]) && q[1] <= std::max(p[1], r[1]) &&
         q[1] >= std::min(p[1], r[1]);
}

bool is_point_on_segment(const point2& p, const point2& a, const point2& b) {
  const double_wrapper c = (p[0] - a[0]) * (p[1] - b[1]) - (p[1] - a[1]) * (p[0] - b[0]);
  if (!(c == 0.0)) return false;
  if (p[0] > a[0] && p[0] > b[0]) return false;
  if (p[0] < a[0] && p[0] < b[0]) return false;
  if (p[1] > a[1] && p[1] > b[1]) return false;
  if (p[1] < a[1] && p[1] < b[1]) return false;
  return true;
}

bool is_anticlock(std::vector<point2>::const_iterator first, std::uint64_t size) {
  return is_anticlock_impl(first, size);
}

bool is_anticlock(std::vector<point2>::iterator first, std::uint64_t size) {
  return is_anticlock_impl(first, size);
}

void add_points(const nprism_large_t& poly, int from, int to, std::vector<point2>& out) {
  const int n = static_cast<int>(poly.points.size());
  if (n == 0 || from < 0 || to < 0 || from >= n || to >= n) return;
  for (int k = from;; k = (k + 1 == n ? 0 : k + 1)) {
    out.push_back(poly.points[k]);
    if (k == to) break;
  }
}

bool delete_duplicate_point(nprism_large_t& poly) {
  const std::vector<point2>& in = poly.points;
  std::vector<point2> out(in.begin(), in.begin() + std::min<std::size_t>(2, in.size()));
  if (in.size() >= 3) {
    for (std::size_t n = 2; n < in.size(); ++n) {
      const point2& c = in[n];
      const point2 a = out[out.size() - 2];
      const point2 b = out.back();
      const double_wrapper x = (b[1] - a[1]) * (b[0] - c[0]) - (b[0] - a[0]) * (b[1] - c[1]);
      if (!(x == 0.0)) {
        out.push_back(c);
      } else if (same_point(c, b)) {
        out.back() = c;
      } else if (is_point_on_segment(c, b, a)) {
        // The outline runs back over itself.
        sea::writer& w = *logger::instance().warning;
        w("WARNING: (Geometry) input poly not vaild(may have same verexs).");
        w("\n");
        w.flush();
        warn_points_numbered_from_one(poly);
        return false;
      } else {
        out.back() = c;  // straight on
      }
    }
  }
  if (out.size() < 3) {
    sea::writer& w = *logger::instance().warning;
    w("WARNING: (Geometry) number of valid vertexes less than 3 after deleting collinear vertexes.");
    w("\n");
    w.flush();
    return false;
  }
  {
    const point2 f = out.front();
    const point2 last = out.back();
    const point2 prev = out[out.size() - 2];
    if ((f[0] - prev[0]) * (f[1] - last[1]) - (f[0] - last[0]) * (f[1] - prev[1]) == 0.0) out.pop_back();
  }
  if (out.size() >= 2) {
    const point2 f = out.front();
    const point2 second = out[1];
    const point2 last = out.back();
    if ((f[1] - second[1]) * (f[0] - last[0]) - (f[0] - second[0]) * (f[1] - last[1]) == 0.0)
      out.erase(out.begin());
  }
  if (out.size() >= 2 && same_point(out.back(), out.front())) out.pop_back();
  poly.points = std::move(out);
  poly.size = poly.points.size();
  return true;
}

void convex_decomposition(const nprism_large_t& poly, std::vector<nprism_large_t>& out) {
  // An explicit stack instead of recursion, so that an outline of very many
  // vertices cannot exhaust the call stack; popping the first part before the
  // second keeps the depth-first order of the pieces.
  std::vector<nprism_large_t> pending;
  pending.push_back(poly);
  while (!pending.empty()) {
    const nprism_large_t arg = std::move(pending.back());
    pending.pop_back();

    nprism_large_t p = arg;
    p.size = p.points.size();
    if (!delete_duplicate_point(p)) continue;
    if (!p.points.empty()) make_anticlock(p);

    const std::int64_t reflex = first_reflex(p);
    if (reflex < 0) {
      emit_convex(p, out);
      continue;
    }
    const std::uint64_t n = p.size;
    const std::uint64_t i = static_cast<std::uint64_t>(reflex);
    std::uint64_t j = 0;
    bool found = false;
    for (std::uint64_t cand = 0; cand < n && !found; ++cand) {
      if (cand == i || cand == (i + 1) % n || cand == (i + n - 1) % n) continue;
      if (diagonal_passes(p, i, cand)) {
        j = cand;
        found = true;
      }
    }
    // With no valid diagonal j stays 0, a last resort tried without the tests.
    const std::int64_t gap = static_cast<std::int64_t>(j) - static_cast<std::int64_t>(i);
    if (gap >= -1 && gap <= 1) {
      warn_no_diagonal(arg);
      continue;
    }
    nprism_large_t a = part(p, j, i);
    nprism_large_t b = part(p, i, j);
    if (!delete_duplicate_point(a)) continue;
    if (!delete_duplicate_point(b)) continue;
    make_anticlock(a);
    make_anticlock(b);
    pending.push_back(std::move(b));
    pending.push_back(std::move(a));
  }
}

}  // namespace torva
