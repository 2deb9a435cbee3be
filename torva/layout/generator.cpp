#include "torva/layout/generator.h"

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstring>

#include "torva/foundation/errors.h"
#include "torva/foundation/logger.h"
#include "torva/geometry/convex_decomposition.h"
#include "torva/layout/internal/shapes.h"

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

// ------------------------------------------------------------------ text

namespace {

// Collects text in a buffer and hands it to the writer in large pieces.
class text_sink {
 public:
  explicit text_sink(sea::writer& out) : out_(out) { buf_.reserve(capacity + 256); }
  ~text_sink() { drain(); }

  text_sink& operator<<(const char* s) {
    buf_.append(s);
    return check();
  }
  text_sink& operator<<(const std::string& s) {
    buf_.append(s);
    return check();
  }
  text_sink& operator<<(char c) {
    buf_.push_back(c);
    return check();
  }
  // A length in thousandths, with three decimals.
  text_sink& length(std::int64_t units) {
    char tmp[32];
    char* end = tmp + sizeof tmp;
    char* p = end;
    const bool negative = units < 0;
    std::uint64_t u = negative ? std::uint64_t(-units) : std::uint64_t(units);
    for (int d = 0; d < 3; ++d) {
      *--p = char('0' + u % 10);
      u /= 10;
    }
    *--p = '.';
    do {
      *--p = char('0' + u % 10);
      u /= 10;
    } while (u);
    if (negative) *--p = '-';
    buf_.append(p, std::size_t(end - p));
    return check();
  }
  text_sink& integer(std::int64_t v) {
    buf_.append(std::to_string(v));
    return check();
  }
  text_sink& point(std::int64_t x, std::int64_t y, std::int64_t z) {
    *this << '(';
    length(x) << ", ";
    length(y) << ", ";
    length(z) << ')';
    return *this;
  }
  void drain() {
    if (!buf_.empty()) out_.write(buf_.data(), buf_.size());
    buf_.clear();
  }

 private:
  static constexpr std::size_t capacity = 1 << 16;
  text_sink& check() {
    if (buf_.size() >= capacity) drain();
    return *this;
  }
  sea::writer& out_;
  std::string buf_;
};

void write_solid(text_sink& t, const generated_layout& g, const generated_solid& s, const std::string* name) {
  if (s.form == generated_form::polygon) {
    t << "  <poly>";
    if (name) t << " name " << *name << '@' << g.layer_names[std::size_t(s.layer)] << " layer ", t.integer(s.layer);
    t << " basepoint";
    t.point(s.x, s.y, s.z) << " hvector";
    t.point(0, 0, s.dz) << " <coord>";
    for (std::uint32_t v = 0; v < s.vertex_count; ++v) {
      const auto& c = g.vertices[s.first_vertex + v];
      t << ' ';
      t.length(c[0]) << ' ';
      t.length(c[1]);
    }
    t << " </coord> </poly>\n";
    return;
  }
  t << "  <block>";
  if (name) t << " name " << *name << '@' << g.layer_names[std::size_t(s.layer)] << " layer ", t.integer(s.layer);
  t << " basepoint";
  t.point(s.x, s.y, s.z);
  if (s.form == generated_form::cylinder) {
    t << " radius ";
    t.length(s.dx) << " height ";
    t.length(s.dz);
  } else {
    t << " v1";
    t.point(s.dx, 0, 0) << " v2";
    t.point(0, s.dy, 0) << " hvector";
    t.point(0, 0, s.dz);
    if (s.side_tan != 0) {
      t << " side_tan ";
      t.length(s.side_tan);
    }
  }
  t << " </block>\n";
}

}  // namespace

void write_text(const generated_layout& g, sea::writer& out) {
  text_sink t(out);
  t << "<cap3d>\n<window>\n  name generated\n  v1";
  t.point(g.window_lower[0], g.window_lower[1], g.window_lower[2]) << "\n  v2";
  t.point(g.window_upper[0], g.window_upper[1], g.window_upper[2]) << "\n  dirichlet\n</window>\n";
  for (std::size_t k = 0; k < g.layer_names.size(); ++k) {
    t << "<layer> name " << g.layer_names[k] << " type interconnect wmin ";
    t.length(g.wire_width_min) << " id ";
    t.integer(std::int64_t(k)) << " </layer>\n";
  }
  for (const generated_plate& plate : g.plates) {
    t << "<plate_medium> name " << plate.name << " z_top ";
    t.length(plate.z_top) << " diel ";
    t.length(plate.diel) << " </plate_medium>\n";
  }
  for (const generated_net& m : g.media) {
    t << "<medium>\n  name " << m.name << "\n  diel ";
    t.length(m.diel) << '\n';
    for (std::uint32_t i = 0; i < m.count; ++i) write_solid(t, g, g.medium_solids[m.first + i], nullptr);
    t << "</medium>\n";
  }
  std::string name;
  for (const generated_net& c : g.conductors) {
    t << "<conductor>\n  name " << c.name << '\n';
    for (std::uint32_t i = 0; i < c.count; ++i) {
      name = "b" + std::to_string(c.first + i);
      write_solid(t, g, g.solids[c.first + i], &name);
    }
    t << "</conductor>\n";
  }
  if (!g.tasks.empty()) {
    t << "<task>\n";
    for (const std::string& task : g.tasks) t << "  <capacitance> " << task << " </capacitance>\n";
    t << "</task>\n";
  }
  t << "</cap3d>\n";
  t.drain();
  out.flush();
}

std::string to_text(const generated_layout& layout) {
  sea::string_writer out;
  write_text(layout, out);
  return std::move(out.text);
}

std::string generate_text(const generator_params& params) { return to_text(generate_layout(params)); }

namespace {

// Counts what reaches the stream, so that a full disc is noticed.
class counting_file_writer : public sea::file_writer {
 public:
  using sea::file_writer::file_writer;
  sea::writer& write(char c) override {
    if (std::fputc(c, stream) == EOF) failed = true;
    return *this;
  }
  sea::writer& write(const void* data, unsigned long size) override {
    if (std::fwrite(data, 1, size, stream) != size) failed = true;
    return *this;
  }
  bool failed = false;
};

[[noreturn]] void report_file_failure(const char* what, const std::string& path) {
  sea::writer& err = *logger::instance().error;
  err("ERROR: %s \"%s\": %s.", what, path.c_str(), std::strerror(errno));
  err("\n");
  err.flush();
  throw sea::file_error("Cannot write layout file.\n");
}

}  // namespace

void write_text_file(const generated_layout& layout, const std::string& path) {
  FILE* f = std::fopen(path.c_str(), "wb");
  if (!f) report_file_failure("Failed to open", path);
  bool failed;
  {
    counting_file_writer out(f);
    write_text(layout, out);
    failed = out.failed || std::ferror(f);
  }
  if (std::fclose(f) != 0) failed = true;
  if (failed) report_file_failure("Failed to write", path);
}

// ------------------------------------------------------------------ records

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
