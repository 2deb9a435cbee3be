// Test and benchmark helper: builds conductor layouts in memory, shaped as the
// text reader would shape them (boxes of cylinders and prisms included), and
// optionally cut into slices so that the group dominance modes have pieces to
// work on. Header-only; every function is deterministic in its seed.
#pragma once

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "torva/layout/records.h"

namespace torva::testing {

inline cuboid_t box(double x0, double y0, double z0, double x1, double y1, double z1) {
  cuboid_t c;
  c.lower = point3{{x0, y0, z0}};
  c.upper = point3{{x1, y1, z1}};
  return c;
}

namespace layout_detail {

inline bool inside_polygon(const std::vector<point2>& poly, double x, double y) {
  const std::size_t n = poly.size();
  for (std::size_t i = 0; i < n; ++i) {
    const point2& a = poly[i];
    const point2& b = poly[(i + 1) % n];
    const double cross = (b[0].value - a[0].value) * (y - a[1].value) - (b[1].value - a[1].value) * (x - a[0].value);
    if (cross < 0.0) return false;  // anticlockwise: inside lies to the left
  }
  return true;
}

// The convex polygon cut to lo <= coordinate[axis] <= hi (Sutherland-Hodgman on two lines).
inline std::vector<point2> clip(const std::vector<point2>& poly, int axis, double lo, double hi) {
  auto cut = [axis](const std::vector<point2>& in, double v, bool keep_above) {
    std::vector<point2> out;
    const std::size_t n = in.size();
    for (std::size_t i = 0; i < n; ++i) {
      const point2& a = in[i];
      const point2& b = in[(i + 1) % n];
      const double da = keep_above ? a[axis].value - v : v - a[axis].value;
      const double db = keep_above ? b[axis].value - v : v - b[axis].value;
      if (da >= 0) out.push_back(a);
      if ((da >= 0) != (db >= 0)) {
        const double t = da / (da - db);
        out.push_back(point2{{a[0].value + (b[0].value - a[0].value) * t, a[1].value + (b[1].value - a[1].value) * t}});
      }
    }
    return out;
  };
  return cut(cut(poly, lo, true), hi, false);
}

// The largest box about the vertex mean, halved until its corners are inside.
inline cuboid_t inner_piece(const std::vector<point2>& poly, double zl, double zh) {
  double cx = 0, cy = 0;
  for (const point2& p : poly) cx += p[0].value, cy += p[1].value;
  cx /= double(poly.size());
  cy /= double(poly.size());
  double s = 1.0;
  for (const point2& p : poly) s = std::max({s, std::fabs(p[0].value - cx), std::fabs(p[1].value - cy)});
  for (int k = 0; k < 80; ++k, s *= 0.5) {
    if (inside_polygon(poly, cx - s, cy - s) && inside_polygon(poly, cx + s, cy - s) &&
        inside_polygon(poly, cx + s, cy + s) && inside_polygon(poly, cx - s, cy + s))
      break;
  }
  return box(cx - s, cy - s, zl, cx + s, cy + s, zh);
}

inline cuboid_t bounding(const std::vector<point2>& poly, double zl, double zh) {
  double x0 = 1e300, y0 = 1e300, x1 = -1e300, y1 = -1e300;
  for (const point2& p : poly) {
    x0 = std::min(x0, p[0].value), x1 = std::max(x1, p[0].value);
    y0 = std::min(y0, p[1].value), y1 = std::max(y1, p[1].value);
  }
  return box(x0, y0, zl, x1, y1, zh);
}

}  // namespace layout_detail

// Appends a block in a net of its own. `pieces` above 1 cuts the shape into
// that many equal slices along x (axis 0) or y (axis 1).
inline wire_block& add_block(circuit_layout& layout, const shape_t& shape) {
  circuit_layout::raw& raw = layout.data;
  raw.wire_nets.emplace_back("net" + std::to_string(raw.wire_nets.size()), false);
  wire_net& net = raw.wire_nets.back();
  raw.wire_blocks.emplace_back(shape, "b" + std::to_string(raw.wire_blocks.size()), short(-1));
  wire_block& block = raw.wire_blocks.back();
  block.net = &net;
  net.blocks.push_back(&block);
  return block;
}

inline shape_t cuboid_shape(const cuboid_t& c, int pieces = 1, int axis = 0) {
  shape_t s = make_cuboid_shape(c);
  if (pieces > 1) {
    s.inner_pieces.clear();
    s.outer_pieces.clear();
    const double lo = c.lower[axis].value, step = (c.upper[axis].value - lo) / pieces;
    for (int k = 0; k < pieces; ++k) {
      cuboid_t slice = c;
      slice.lower[axis] = lo + step * k;
      slice.upper[axis] = k + 1 == pieces ? c.upper[axis].value : lo + step * (k + 1);
      s.inner_pieces.push_back(slice);
      s.outer_pieces.push_back(slice);
    }
  }
  return s;
}

inline shape_t cylinder_shape(double x, double y, double z, double r, double h, int pieces = 1, int axis = 0) {
  cylinder_t cyl;
  cyl.center = point3{{x, y, z}};
  cyl.radius = r;
  cyl.half_height = h;
  shape_t s;
  s.solid = new_solid(cyl);
  const double q = 0.7071067811865476 * r;
  s.inner_box = box(x - q, y - q, z - h, x + q, y + q, z + h);
  s.outer_box = box(x - r, y - r, z - h, x + r, y + r, z + h);
  s.shape_kind = shape_cylinder;
  if (pieces <= 1) {
    s.inner_pieces = {s.inner_box};
    s.outer_pieces = {s.outer_box};
    return s;
  }
  const int other = 1 - axis;
  const double c_axis = axis == 0 ? x : y, c_other = axis == 0 ? y : x;
  for (int k = 0; k < pieces; ++k) {
    const double a = c_axis - r + 2 * r * k / pieces, b = c_axis - r + 2 * r * (k + 1) / pieces;
    const double near = (a <= c_axis && c_axis <= b) ? 0.0 : std::min(std::fabs(a - c_axis), std::fabs(b - c_axis));
    const double far = std::max(std::fabs(a - c_axis), std::fabs(b - c_axis));
    const double wide = std::sqrt(std::max(0.0, r * r - near * near));
    const double narrow = std::sqrt(std::max(0.0, r * r - far * far)) * (1 - 1e-9);
    cuboid_t outer = s.outer_box, inner = s.outer_box;
    outer.lower[axis] = a, outer.upper[axis] = b;
    outer.lower[other] = c_other - wide, outer.upper[other] = c_other + wide;
    // The inner slice keeps clear of the circle: its corners lie inside.
    const double shrink = (b - a) * 1e-9;
    inner.lower[axis] = a + shrink, inner.upper[axis] = b - shrink;
    inner.lower[other] = c_other - narrow, inner.upper[other] = c_other + narrow;
    s.outer_pieces.push_back(outer);
    s.inner_pieces.push_back(inner);
  }
  return s;
}

// `poly` is convex and anticlockwise, at most 8 vertices.
inline shape_t prism_shape(const std::vector<point2>& poly, double zl, double zh, int pieces = 1, int axis = 0) {
  nprism_t p;
  p.size = poly.size();
  double cx = 0, cy = 0;
  for (std::size_t i = 0; i < poly.size(); ++i) {
    p.points[i] = poly[i];
    cx += poly[i][0].value, cy += poly[i][1].value;
  }
  cx /= double(poly.size()), cy /= double(poly.size());
  p.bottom = zl;
  p.top = zh;
  shape_t s;
  s.solid = new_solid(p);
  s.inner_box = box(cx - 0.0001, cy - 0.0001, zl, cx + 0.0001, cy + 0.0001, zh);
  s.outer_box = layout_detail::bounding(poly, zl, zh);
  s.shape_kind = shape_prism;
  if (pieces <= 1) {
    s.inner_pieces = {s.inner_box};
    s.outer_pieces = {s.outer_box};
    return s;
  }
  const double lo = s.outer_box.lower[axis].value, step = (s.outer_box.upper[axis].value - lo) / pieces;
  for (int k = 0; k < pieces; ++k) {
    const std::vector<point2> slice = layout_detail::clip(poly, axis, lo + step * k, lo + step * (k + 1));
    if (slice.size() < 3) continue;
    s.outer_pieces.push_back(layout_detail::bounding(slice, zl, zh));
    s.inner_pieces.push_back(layout_detail::inner_piece(slice, zl, zh));
  }
  return s;
}

// A convex polygon of n (3 or 4) vertices on an ellipse, anticlockwise.
inline std::vector<point2> random_polygon(std::mt19937_64& rng, double cx, double cy, double rx, double ry, int n) {
  std::uniform_real_distribution<double> angle(0.0, 2 * M_PI);
  std::vector<double> a(n);
  for (double& v : a) v = angle(rng);
  std::sort(a.begin(), a.end());
  std::vector<point2> poly;
  for (double v : a) poly.push_back(point2{{cx + rx * std::cos(v), cy + ry * std::sin(v)}});
  return poly;
}

struct layout_recipe {
  std::size_t blocks = 40;
  double window = 100.0;          // the window is [0, window]^3
  double min_edge = 1.0, max_edge = 10.0;
  double cylinder_share = 0.15;   // of the blocks
  double prism_share = 0.15;
  double touching_share = 0.2;    // blocks placed face to face with the block before
  double spread = 0.8;            // share of the window that block centres fill (crowding)
  int max_pieces = 1;             // blocks are cut into 1..max_pieces slices
  int boundary = 1;               // 1 dirichlet, 2 neumann
};

// A random layout of cuboids, cylinders and prisms in a cubic window. Blocks
// may overlap (crowded recipes) and touch (touching_share).
inline std::unique_ptr<circuit_layout> make_random_layout(const layout_recipe& recipe, std::uint64_t seed) {
  auto layout = std::make_unique<circuit_layout>();
  std::mt19937_64 rng(seed);
  std::uniform_real_distribution<double> unit(0.0, 1.0);
  const double w = recipe.window;
  layout->data.window = box(0, 0, 0, w, w, w);
  layout->data.boundary = recipe.boundary;
  const double lo = w * (1 - recipe.spread) * 0.5, hi = w - lo;
  cuboid_t last;
  bool have_last = false;
  for (std::size_t i = 0; i < recipe.blocks; ++i) {
    double e[3];
    for (double& v : e) v = recipe.min_edge + (recipe.max_edge - recipe.min_edge) * unit(rng);
    double c[3];
    for (double& v : c) v = lo + (hi - lo) * unit(rng);
    const int pieces = 1 + int(unit(rng) * recipe.max_pieces) % std::max(1, recipe.max_pieces);
    const int axis = unit(rng) < 0.5 ? 0 : 1;
    const double pick = unit(rng);
    if (have_last && unit(rng) < recipe.touching_share) {
      // Face to face with the previous block along a random axis.
      const int t = int(unit(rng) * 3) % 3;
      const bool up = unit(rng) < 0.5;
      for (int k = 0; k < 3; ++k) c[k] = 0.5 * (last.lower[k].value + last.upper[k].value);
      c[t] = up ? last.upper[t].value + e[t] * 0.5 : last.lower[t].value - e[t] * 0.5;
    }
    for (int k = 0; k < 3; ++k) c[k] = std::clamp(c[k], e[k] * 0.5, w - e[k] * 0.5);
    shape_t s;
    if (pick < recipe.cylinder_share) {
      const double r = 0.5 * std::min(e[0], e[1]);
      s = cylinder_shape(c[0], c[1], c[2], r, 0.5 * e[2], pieces, axis);
    } else if (pick < recipe.cylinder_share + recipe.prism_share) {
      const int n = unit(rng) < 0.5 ? 3 : 4;
      s = prism_shape(random_polygon(rng, c[0], c[1], 0.5 * e[0], 0.5 * e[1], n), c[2] - 0.5 * e[2],
                      c[2] + 0.5 * e[2], pieces, axis);
    } else {
      s = cuboid_shape(box(c[0] - 0.5 * e[0], c[1] - 0.5 * e[1], c[2] - 0.5 * e[2], c[0] + 0.5 * e[0],
                           c[1] + 0.5 * e[1], c[2] + 0.5 * e[2]),
                       pieces, axis);
    }
    last = s.outer_box;
    have_last = true;
    add_block(*layout, s);
  }
  return layout;
}

// An interconnect-like layout of about `blocks` blocks: metal layers of
// parallel wire segments about 5 long, alternating in direction, with a share
// of cylinders (round pads) and slanted prisms among the segments. Wires are 1
// wide at pitch 2, layers 1 thick at pitch 2.
inline std::unique_ptr<circuit_layout> make_wire_layout(std::size_t blocks, std::uint64_t seed,
                                                        double nonbox_share = 0.05) {
  auto layout = std::make_unique<circuit_layout>();
  std::mt19937_64 rng(seed);
  std::uniform_real_distribution<double> unit(0.0, 1.0);
  const int layers = 8;
  // A square of side S per layer holds S/2 tracks of S/5 segments: S = sqrt(10 n).
  const double per_layer = double(blocks) / layers;
  const int tracks = std::max(1, int(std::sqrt(10.0 * per_layer) / 2));
  const double span = 2.0 * tracks;
  const int segments_per_track = std::max(1, int(per_layer / tracks));
  const double seg = span / segments_per_track;
  const double margin = 5.0;
  layout->data.window = box(-margin, -margin, -margin, span + margin, span + margin, 2.0 * layers + margin);
  layout->data.boundary = 1;
  std::size_t made = 0;
  for (int l = 0; l < layers && made < blocks; ++l) {
    const double z0 = 2.0 * l, z1 = z0 + 1.0;
    for (int t = 0; t < tracks && made < blocks; ++t) {
      const double a0 = 2.0 * t + 0.5, a1 = a0 + 1.0;
      for (int k = 0; k < segments_per_track && made < blocks; ++k, ++made) {
        const double b0 = seg * k + 0.05 * seg + 0.2 * seg * unit(rng), b1 = seg * (k + 1) - 0.05 * seg;
        const double pick = unit(rng);
        shape_t s;
        if (pick < nonbox_share * 0.5) {
          const double cb = 0.5 * (b0 + b1), ca = 0.5 * (a0 + a1);
          s = l % 2 ? cylinder_shape(ca, cb, 0.5 * (z0 + z1), 0.5, 0.5) : cylinder_shape(cb, ca, 0.5 * (z0 + z1), 0.5, 0.5);
        } else if (pick < nonbox_share) {
          // A slanted quadrilateral wire piece.
          std::vector<point2> poly;
          if (l % 2)
            poly = {point2{{a0, b0}}, point2{{a1, b0 + 0.5}}, point2{{a1, b1}}, point2{{a0, b1 - 0.5}}};
          else
            poly = {point2{{b0, a0}}, point2{{b1, a0}}, point2{{b1 - 0.5, a1}}, point2{{b0 + 0.5, a1}}};
          // Anticlockwise in both orientations.
          double area = 0;
          for (std::size_t i = 0; i < poly.size(); ++i) {
            const point2& p = poly[i];
            const point2& q = poly[(i + 1) % poly.size()];
            area += p[0].value * q[1].value - q[0].value * p[1].value;
          }
          if (area < 0) std::reverse(poly.begin(), poly.end());
          s = prism_shape(poly, z0, z1);
        } else if (l % 2) {
          s = cuboid_shape(box(a0, b0, z0, a1, b1, z1));
        } else {
          s = cuboid_shape(box(b0, a0, z0, b1, a1, z1));
        }
        add_block(*layout, s);
      }
    }
  }
  return layout;
}

}  // namespace torva::testing
