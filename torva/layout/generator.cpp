// Makes the description of a generated layout: the wires of each family (bus,
// crossing, mixed) with their solids, the window about them, the media and the tasks.
#include "torva/layout/generator.h"

#include <algorithm>
#include <cmath>

namespace torva {

namespace {

// splitmix64: small, fast, and the same sequence on every platform.
struct random_source {
  std::uint64_t state;
  explicit random_source(std::uint64_t seed) : state(seed) {}
  std::uint64_t next() {
    std::uint64_t z = (state += 0x9e3779b97f4a7c15ull);
    z = (z ^ (z >> 30)) * 0xbf58476d1ce4e5b9ull;
    z = (z ^ (z >> 27)) * 0x94d049bb133111ebull;
    return z ^ (z >> 31);
  }
  double unit() { return double(next() >> 11) * 0x1.0p-53; }  // [0, 1)
  // A multiple of `step` in [lo, hi].
  std::int32_t between(std::int32_t lo, std::int32_t hi, std::int32_t step) {
    const std::uint64_t n = std::uint64_t((hi - lo) / step) + 1;
    return lo + std::int32_t(next() % n) * step;
  }
};

constexpr std::int32_t layer_base = 500;       // z of the bottom of the first layer
constexpr std::int32_t layer_pitch = 800;      // z from one layer to the next
constexpr std::int32_t layer_thickness = 300;  // wire thickness
constexpr std::int32_t cap_thickness = 50;     // dielectric cap over a layer
constexpr std::int32_t margin = 2000;          // window beyond the solids in x and y
constexpr std::int32_t top_margin = 1000;      // window above the last layer

struct wire_style {
  std::int32_t width, spacing, segment;
};

std::int32_t layer_bottom(int k) { return layer_base + k * layer_pitch; }

void add_polygon(generated_layout& g, generated_solid& s, bool along_x, std::int32_t length, std::int32_t width,
                 std::uint64_t choice) {
  // Outlines in wire coordinates: u along the wire, v across it.
  std::vector<std::array<std::int32_t, 2>> uv;
  const std::int32_t c = width / 2;
  switch (choice % 3) {
    case 0: {  // a notch in the upper side: two reflex corners
      const std::int32_t u1 = length / 3, u2 = 2 * length / 3;
      uv = {{0, 0}, {length, 0}, {length, width}, {u2, width}, {u2, width - c}, {u1, width - c}, {u1, width}, {0, width}};
      break;
    }
    case 1:  // a chamfered end: a convex pentagon
      uv = {{0, 0}, {length - c, 0}, {length, c}, {length, width}, {0, width}};
      break;
    default:  // a trapezoid: inclined ends
      uv = {{0, 0}, {length, 0}, {length - c, width}, {c, width}};
      break;
  }
  s.form = generated_form::polygon;
  s.first_vertex = std::uint32_t(g.vertices.size());
  s.vertex_count = std::uint32_t(uv.size());
  for (const auto& p : uv) {
    // A wire along y is the wire along x turned a quarter anticlockwise,
    // which keeps the outline anticlockwise.
    if (along_x)
      g.vertices.push_back({p[0], p[1]});
    else
      g.vertices.push_back({width - p[1], p[0]});
  }
}

void make_segment(generated_layout& g, random_source& rng, const generator_params& p, int layer, bool along_x,
                  std::int32_t across, std::int32_t along, std::int32_t length, std::int32_t width) {
  generated_solid s;
  s.layer = std::int16_t(layer);
  s.z = layer_bottom(layer);
  s.dz = layer_thickness;
  s.x = along_x ? along : across;
  s.y = along_x ? across : along;
  s.dx = along_x ? length : width;
  s.dy = along_x ? width : length;
  const double u = rng.unit();
  const std::uint64_t pick = rng.next();
  if (u < p.polygon_share) {
    add_polygon(g, s, along_x, length, width, pick);
    s.dx = s.dy = 0;
  } else if (u < p.polygon_share + p.cylinder_share) {
    s.form = generated_form::cylinder;
    const std::int32_t r = std::min(length, width) / 2;
    s.x += (along_x ? length : width) / 2;
    s.y += (along_x ? width : length) / 2;
    s.z += layer_thickness / 2;
    s.dx = r;
    s.dy = 0;
  } else if (u < p.polygon_share + p.cylinder_share + p.incline_share) {
    // Etched sides: narrower at the top or at the bottom.
    s.side_tan = (pick & 1) ? 100 : -100;
  }
  g.solids.push_back(s);
}

void fill_layer(generated_layout& g, random_source& rng, const generator_params& p, int layer, std::uint64_t count,
                std::int32_t side) {
  const bool along_x = p.kind == layout_kind::bus || layer % 2 == 0;
  std::int32_t across = 0;
  std::uint64_t made = 0;
  while (made < count) {
    wire_style w{200, 200, 4000};
    if (p.kind == layout_kind::mixed)
      w = wire_style{rng.between(100, 300, 10), rng.between(150, 300, 10), 0};
    generated_net net;
    net.name = "net" + std::to_string(g.conductors.size());
    net.first = std::uint32_t(g.solids.size());
    std::int32_t along = 0;
    while (along < side && made < count) {
      std::int32_t length = p.kind == layout_kind::mixed ? rng.between(1000, 8000, 10) : w.segment;
      length = std::min(length, side - along);
      if (length < w.width) length = w.width;  // no sliver at the end of a wire
      make_segment(g, rng, p, layer, along_x, across, along, length, w.width);
      along += length;
      ++made;
    }
    net.count = std::uint32_t(g.solids.size() - net.first);
    g.conductors.push_back(std::move(net));
    across += w.width + w.spacing;
  }
}

}  // namespace

generated_layout generate_layout(const generator_params& params) {
  generated_layout g;
  g.params = params;
  generator_params& p = g.params;
  p.layers = std::max(1, p.layers);
  auto clamp01 = [](double v) { return std::isnan(v) ? 0.0 : std::clamp(v, 0.0, 1.0); };
  p.polygon_share = clamp01(p.polygon_share);
  p.cylinder_share = clamp01(p.cylinder_share);
  p.incline_share = clamp01(p.incline_share);
  random_source rng(p.seed);

  for (int k = 0; k < p.layers; ++k) g.layer_names.push_back("M" + std::to_string(k + 1));
  g.wire_width_min = p.kind == layout_kind::mixed ? 100 : 200;

  // A square region that the wires of the fullest layer fill about evenly.
  const std::uint64_t per_layer = p.blocks / std::uint64_t(p.layers);
  const std::uint64_t extra = p.blocks % std::uint64_t(p.layers);
  const double pitch = p.kind == layout_kind::mixed ? 425.0 : 400.0;
  const double segment = p.kind == layout_kind::mixed ? 4500.0 : 4000.0;
  const double wanted = std::sqrt(double(per_layer + (extra ? 1 : 0)) * pitch * segment);
  // Round to whole segments so that bus wires end on a segment boundary.
  const std::int32_t side =
      std::int32_t(std::max(1.0, std::ceil(wanted / segment)) * segment);

  g.solids.reserve(p.blocks);
  for (int k = 0; k < p.layers; ++k) fill_layer(g, rng, p, k, per_layer + (std::uint64_t(k) < extra ? 1 : 0), side);

  // Extent of what was made, then the window around it.
  std::int32_t hi_x = side, hi_y = side;
  for (const generated_solid& s : g.solids) {
    if (s.form == generated_form::box) {
      hi_x = std::max(hi_x, s.x + s.dx);
      hi_y = std::max(hi_y, s.y + s.dy);
    } else if (s.form == generated_form::cylinder) {
      hi_x = std::max(hi_x, s.x + s.dx);
      hi_y = std::max(hi_y, s.y + s.dx);
    } else {
      for (std::uint32_t v = 0; v < s.vertex_count; ++v) {
        hi_x = std::max(hi_x, s.x + g.vertices[s.first_vertex + v][0]);
        hi_y = std::max(hi_y, s.y + g.vertices[s.first_vertex + v][1]);
      }
    }
  }
  const std::int32_t last_top = layer_bottom(p.layers - 1) + layer_thickness;
  g.window_lower = {-margin, -margin, 0};
  g.window_upper = {hi_x + margin, hi_y + margin, last_top + cap_thickness + top_margin};

  if (p.media) {
    for (int k = 0; k <= p.layers; ++k) {
      const std::int32_t z_top = k < p.layers ? layer_bottom(k) : g.window_upper[2];
      g.plates.push_back(generated_plate{"ild" + std::to_string(k), z_top, k % 2 ? 2500 : 3900});
    }
    for (int k = 0; k < p.layers; ++k) {
      generated_net cap{"cap" + std::to_string(k), std::uint32_t(g.medium_solids.size()), 1, 7000};
      generated_solid s;
      s.x = g.window_lower[0];
      s.y = g.window_lower[1];
      s.z = layer_bottom(k) + layer_thickness;
      s.dx = g.window_upper[0] - g.window_lower[0];
      s.dy = g.window_upper[1] - g.window_lower[1];
      s.dz = cap_thickness;
      g.medium_solids.push_back(s);
      g.media.push_back(std::move(cap));
    }
    // A trench of low permittivity over the first layer's cap, as a polygon.
    generated_net trench{"trench", std::uint32_t(g.medium_solids.size()), 1, 2000};
    generated_solid s;
    s.form = generated_form::polygon;
    s.z = layer_bottom(0) + layer_thickness + cap_thickness;
    s.dz = layer_pitch - layer_thickness - cap_thickness;
    s.first_vertex = std::uint32_t(g.vertices.size());
    s.vertex_count = 4;
    g.vertices.push_back({0, 0});
    g.vertices.push_back({side, 0});
    g.vertices.push_back({side - 1000, 1000});
    g.vertices.push_back({1000, 1000});
    g.medium_solids.push_back(s);
    g.media.push_back(std::move(trench));
  }

  for (std::uint64_t t = 0; t < p.tasks && t < g.conductors.size(); ++t) g.tasks.push_back(g.conductors[t].name);
  return g;
}

}  // namespace torva
