#include "torva/import/gds_path.h"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace torva {

namespace {

// Products of two coordinates need more than 64 bits.
__extension__ typedef __int128 wide;

struct vec {
  double x = 0, y = 0;
};
vec operator+(vec a, vec b) { return {a.x + b.x, a.y + b.y}; }
vec operator-(vec a, vec b) { return {a.x - b.x, a.y - b.y}; }
vec operator*(vec a, double s) { return {a.x * s, a.y * s}; }
double cross(vec a, vec b) { return a.x * b.y - a.y * b.x; }
double dot(vec a, vec b) { return a.x * b.x + a.y * b.y; }

double sign(double v) { return v > 0 ? 1.0 : (v < 0 ? -1.0 : 0.0); }

// One segment of the centre line: its direction (whole numbers), length, and
// the left half-width offset, snapped as the header says.
struct segment {
  vec d;
  double length = 0;
  vec offset;
};

// A length along a segment's direction, snapped to equal whole steps on a
// diagonal and exact on an axis.
vec along(const segment& s, double length) {
  if (s.d.x != 0 && s.d.y != 0 && std::fabs(s.d.x) == std::fabs(s.d.y)) {
    const double step = std::round(length / std::numbers::sqrt2);
    return {sign(s.d.x) * step, sign(s.d.y) * step};
  }
  return s.d * (length / s.length);
}

segment make_segment(gds_point a, gds_point b, double half) {
  segment s;
  s.d = {double(b.x - a.x), double(b.y - a.y)};
  s.length = std::hypot(s.d.x, s.d.y);
  const vec left{-s.d.y, s.d.x};
  s.offset = along(segment{left, s.length, {}}, half);
  return s;
}

vec at(gds_point p) { return {double(p.x), double(p.y)}; }

// Where the offset lines of two segments meet at a vertex (side +1 left, -1 right).
vec mitre(vec p, const segment& a, const segment& b, double side) {
  const vec a0 = p + a.offset * side, b0 = p + b.offset * side;
  const double c = cross(a.d, b.d);
  if (std::fabs(c) <= 1e-9 * a.length * b.length) return b0;
  const double t = cross(b0 - a0, b.d) / c;
  return a0 + a.d * t;
}

// Intermediate points of a half circle about centre, from the direction of
// `from` turning clockwise by pi.
void half_circle(vec centre, vec from, int segments, std::vector<vec>& out) {
  const double radius = std::hypot(from.x, from.y), start = std::atan2(from.y, from.x);
  for (int j = 1; j < segments; ++j) {
    const double phi = start - std::numbers::pi * j / segments;
    out.push_back({centre.x + radius * std::cos(phi), centre.y + radius * std::sin(phi)});
  }
}

void emit(const std::vector<vec>& ring, std::vector<std::vector<gds_point>>& out) {
  std::vector<gds_point> r;
  r.reserve(ring.size());
  for (vec v : ring) r.push_back({std::llround(v.x), std::llround(v.y)});
  if (gds_normalize_ring(r) && gds_area(r) != 0) out.push_back(std::move(r));
}

}  // namespace

double gds_area(std::span<const gds_point> ring) {
  wide twice = 0;
  const std::size_t n = ring.size();
  for (std::size_t i = 0; i < n; ++i) {
    const gds_point a = ring[i], b = ring[(i + 1) % n];
    twice += wide(a.x) * b.y - wide(b.x) * a.y;
  }
  return double(twice) / 2;
}

bool gds_normalize_ring(std::vector<gds_point>& ring) {
  ring.erase(std::unique(ring.begin(), ring.end()), ring.end());
  while (ring.size() > 1 && ring.back() == ring.front()) ring.pop_back();
  if (ring.size() < 3) return false;
  if (gds_area(ring) < 0) std::reverse(ring.begin(), ring.end());
  return true;
}

bool gds_path_outline(std::span<const gds_point> centre, const gds_path_style& style,
                      std::vector<std::vector<gds_point>>& out) {
  std::vector<gds_point> p(centre.begin(), centre.end());
  p.erase(std::unique(p.begin(), p.end()), p.end());
  if (p.size() < 2 || style.width <= 0) return false;
  const double half = double(style.width) / 2;
  const std::size_t n = p.size();
  std::vector<segment> seg;
  for (std::size_t i = 0; i + 1 < n; ++i) seg.push_back(make_segment(p[i], p[i + 1], half));

  // A vertex where the path is split instead of mitred.
  auto sharp = [&](std::size_t k) {
    const segment &a = seg[k - 1], &b = seg[k];
    const double c = dot(a.d, b.d) / (a.length * b.length);
    if (c < -0.5 - 1e-12) return true;
    const double s = std::fabs(cross(a.d, b.d)) / (a.length * b.length);
    return half * s / (1 + c) > std::min(a.length, b.length) / 2;
  };

  double begin_ext = 0, end_ext = 0;
  if (style.ends == gds_path_ends::extended) begin_ext = end_ext = half;
  if (style.ends == gds_path_ends::custom) {
    begin_ext = double(style.begin_extension);
    end_ext = double(style.end_extension);
  }
  const bool round = style.ends == gds_path_ends::round;
  const int arc = std::clamp(style.round_end_segments, 2, 1024);

  std::size_t a = 0;
  const std::size_t before = out.size();
  for (std::size_t b = 1; b < n; ++b) {
    if (b != n - 1 && !sharp(b)) continue;
    // The piece over vertices a..b.
    std::vector<vec> left, right;
    vec start = at(p[a]), end = at(p[b]);
    if (a == 0) start = start - along(seg[0], begin_ext);
    if (b == n - 1) end = end + along(seg[n - 2], end_ext);
    left.push_back(start + seg[a].offset);
    right.push_back(start - seg[a].offset);
    for (std::size_t k = a + 1; k < b; ++k) {
      left.push_back(mitre(at(p[k]), seg[k - 1], seg[k], 1));
      right.push_back(mitre(at(p[k]), seg[k - 1], seg[k], -1));
    }
    left.push_back(end + seg[b - 1].offset);
    right.push_back(end - seg[b - 1].offset);

    std::vector<vec> ring = left;
    if (round && b == n - 1) half_circle(end, seg[b - 1].offset, arc, ring);
    ring.insert(ring.end(), right.rbegin(), right.rend());
    if (round && a == 0) half_circle(start, seg[0].offset * -1, arc, ring);
    emit(ring, out);

    if (b != n - 1) {
      // The bevel outside the turn at the split.
      const segment &s0 = seg[b - 1], &s1 = seg[b];
      const double side = cross(s0.d, s1.d) > 0 ? -1 : 1;
      const vec v = at(p[b]);
      emit({v, v + s0.offset * side, v + s1.offset * side}, out);
    }
    a = b;
  }
  return out.size() > before;
}

}  // namespace torva
