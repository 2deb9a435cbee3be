// The generated layout built into records the way the text reader would build
// them from its text.
#include "torva/layout/generated_build.h"

#include "torva/geometry/convex_decomposition.h"
#include "torva/layout/internal/shapes.h"

namespace torva {

namespace {

sea::double_wrapper L(std::int64_t units) { return generated_length(units); }

cuboid_t box_of(const generated_solid& s) {
  const point3 base{{L(s.x), L(s.y), L(s.z)}};
  return cuboid_t{base, {{base[0] + L(s.dx), base[1] + L(s.dy), base[2] + L(s.dz)}}};
}

// The vertices as the reader makes them: basepoint plus each pair.
nprism_large_t polygon_of(const generated_layout& g, const generated_solid& s) {
  nprism_large_t poly;
  const sea::double_wrapper bx = L(s.x), by = L(s.y), bz = L(s.z);
  for (std::uint32_t v = 0; v < s.vertex_count; ++v) {
    const auto& c = g.vertices[s.first_vertex + v];
    poly.points.push_back(point2{{bx + L(c[0]), by + L(c[1])}});
  }
  poly.size = poly.points.size();
  poly.bottom = bz;
  poly.top = bz + L(s.dz);
  return poly;
}

void conductor_shapes(const generated_layout& g, const generated_solid& s, const build_options& o,
                      std::vector<shape_t>& out) {
  switch (s.form) {
    case generated_form::cylinder: {
      const point3 c{{L(s.x), L(s.y), L(s.z)}};
      const sea::double_wrapper r = L(s.dx);
      const sea::double_wrapper h = L(s.dz) * 0.5;
      if (o.cuboids_only) {
        const sea::double_wrapper d = r * 0.886226925452759;
        out.push_back(make_cuboid_shape(cuboid_t{{{c[0] - d, c[1] - d, c[2] - h}}, {{c[0] + d, c[1] + d, c[2] + h}}}));
      } else {
        out.push_back(internal::make_cylinder_shape(cylinder_t{c, r, h}));
      }
      return;
    }
    case generated_form::polygon: {
      std::vector<nprism_large_t> pieces;
      convex_decomposition(polygon_of(g, s), pieces);
      for (const nprism_large_t& piece : pieces) {
        out.push_back(o.cuboids_only ? internal::make_bounding_cuboid_shape(piece) : internal::make_prism_shape(piece));
      }
      return;
    }
    case generated_form::box:
      break;
  }
  if (s.side_tan == 0) {
    out.push_back(make_cuboid_shape(box_of(s)));
    return;
  }
  // A leaning block: horizontal slices, each centred on the block's axis.
  const int n = o.incline_slices;
  const double x = L(s.x), y = L(s.y), z = L(s.z);
  const double xlen = L(s.dx), ylen = L(s.dy);
  const double H = L(s.dz), t = L(s.side_tan);
  for (int k = 1; k <= n; ++k) {
    const double d = (1 + (n - 2 * k)) * H * t / (2 * n);
    const double e = (2 * k - 1 - n) * H * t / n;
    const point3 low{{x + d, y + d, z + (k - 1) * H / n}};
    const point3 high{{low[0] + xlen + e, low[1] + ylen + e, low[2] + H / n}};
    out.push_back(make_cuboid_shape(cuboid_t{low, high}));
  }
}

}  // namespace

void build_layout(const generated_layout& g, circuit_layout::raw& raw, const build_options& options) {
  raw.window_name = "generated";
  raw.boundary = 1;
  raw.window = cuboid_t{{{L(g.window_lower[0]), L(g.window_lower[1]), L(g.window_lower[2])}},
                        {{L(g.window_upper[0]), L(g.window_upper[1]), L(g.window_upper[2])}}};
  for (std::size_t k = 0; k < g.layer_names.size(); ++k) {
    raw.layer_types.emplace(g.layer_names[k], "interconnect");
    raw.layer_wmins.push_back(L(g.wire_width_min));
    raw.layer_names.emplace(short(k), g.layer_names[k]);
  }
  for (const generated_plate& plate : g.plates) {
    raw.plate_mediums.push_back(circuit_layout::plate_medium{plate.name, L(plate.z_top), L(plate.diel)});
    raw.medium_nets.emplace_back(plate.name, L(plate.diel));
  }
  for (const generated_net& m : g.media) {
    const std::size_t first = raw.medium_blocks.size();
    for (std::uint32_t i = 0; i < m.count; ++i) {
      const generated_solid& s = g.medium_solids[m.first + i];
      if (s.form == generated_form::polygon) {
        // A dielectric polygon is taken as the quadrilateral it is.
        const nprism_large_t poly = polygon_of(g, s);
        raw.medium_blocks.emplace_back(internal::make_prism_shape(poly), double(L(s.side_tan)));
      } else {
        raw.medium_blocks.emplace_back(make_cuboid_shape(box_of(s)), double(L(s.side_tan)));
      }
    }
    medium_net& net = raw.medium_nets.emplace_back(m.name, L(m.diel));
    for (std::size_t b = first; b < raw.medium_blocks.size(); ++b) {
      raw.medium_blocks[b].net = &net;
      net.blocks.push_back(&raw.medium_blocks[b]);
    }
  }
  std::vector<shape_t> shapes;
  for (const generated_net& c : g.conductors) {
    const std::size_t first = raw.wire_blocks.size();
    for (std::uint32_t i = 0; i < c.count; ++i) {
      const generated_solid& s = g.solids[c.first + i];
      shapes.clear();
      conductor_shapes(g, s, options, shapes);
      for (shape_t& shape : shapes)
        raw.wire_blocks.emplace_back(std::move(shape), "b" + std::to_string(c.first + i), s.layer);
    }
    wire_net& net = raw.wire_nets.emplace_back(c.name, false);
    for (std::size_t b = first; b < raw.wire_blocks.size(); ++b) {
      raw.wire_blocks[b].net = &net;
      raw.wire_blocks[b].floating = false;
      net.blocks.push_back(&raw.wire_blocks[b]);
    }
  }
  for (const std::string& task : g.tasks) raw.capacitance_tasks.insert(task);
}

void build_circuit(const generated_layout& g, circuit_layout& circuit, const build_options& options) {
  build_layout(g, circuit.data, options);
  circuit.data.critical_box = circuit.data.window;
  circuit.blocks.clear();
  circuit.cuboid_size = 0;
  circuit.prism_size = 0;
  for (const wire_block& b : circuit.data.wire_blocks) {
    circuit.blocks.push_back(&b);
    if (b.shape_kind == shape_cuboid)
      ++circuit.cuboid_size;
    else
      ++circuit.prism_size;
  }
}

}  // namespace torva
