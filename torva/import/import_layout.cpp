// The layout of an imported cell: window, plate media, coats and rings as
// dielectric bodies, conductor blocks net by net, the substrate, tasks.
#include <algorithm>
#include <chrono>
#include <cmath>
#include <map>
#include <string>

#include "torva/import/internal/import_steps.h"
#include "torva/layout/internal/shapes.h"

namespace torva::internal {

namespace {

using clock_type = std::chrono::steady_clock;

double since(clock_type::time_point t) { return std::chrono::duration<double>(clock_type::now() - t).count(); }

cuboid_t box(double x0, double y0, double z0, double x1, double y1, double z1) {
  return cuboid_t{point3{{x0, y0, z0}}, point3{{x1, y1, z1}}};
}

double volume(const cuboid_t& c) {
  return (c.upper[0].value - c.lower[0].value) * (c.upper[1].value - c.lower[1].value) *
         (c.upper[2].value - c.lower[2].value);
}

// How finely the grown footprints are drawn: database units times the
// smallest of 1, 10, 100, 1000 that makes every growth a whole number and
// keeps coordinates in range (1 and rounding otherwise).
int footprint_scale(const std::vector<double>& grows, double um_per_db, std::int64_t reach) {
  for (int k : {1, 10, 100, 1000}) {
    if ((reach + 1) * std::int64_t(k) > (std::int64_t(1) << 30)) break;
    bool whole = true;
    for (double g : grows) {
      const double units = g * k / um_per_db;
      if (std::abs(units - std::round(units)) > 1e-6 * std::max(1.0, units)) whole = false;
    }
    if (whole) return k;
  }
  return 1;
}

// Rectangles of a Manhattan set, by the fewer of its two slicings.
std::vector<grid_rect> rectangles(const set_90& s) {
  std::vector<grid_rect> across, along;
  s.get_rectangles(across, gtl::HORIZONTAL);
  s.get_rectangles(along, gtl::VERTICAL);
  return along.size() < across.size() ? along : across;
}

// Blocks of one net while they are made: conductor layer or via target, and piece.
struct piece_ref {
  std::uint32_t set;  // < conductors: that layer; else the via target conductors + k
  std::uint32_t piece;
};

}  // namespace

void build_layout(const process_stack& stack, const chip_plan& plan, double margin,
                  const std::vector<std::string>& tasks, circuit_layout& layout, import_report& report,
                  import_warnings& warn, const stage_progress& progress) {
  auto& raw = layout.data;
  const length_unit um(plan.um_per_db);
  const std::size_t conductors = stack.conductors.size(), vias = stack.vias.size();
  const short substrate_layer = short(conductors + vias);
  const bool substrate_conductor = stack.substrate.kind == substrate_kind::conductor;

  // Layers: conductors, then vias, then the substrate.
  for (std::size_t c = 0; c < conductors; ++c) {
    raw.layer_names.emplace(short(c), stack.conductors[c].name);
    raw.layer_types.emplace(stack.conductors[c].name, "interconnect");
  }
  for (std::size_t v = 0; v < vias; ++v) {
    raw.layer_names.emplace(short(conductors + v), stack.vias[v].name);
    raw.layer_types.emplace(stack.vias[v].name, "via");
  }
  if (substrate_conductor) {
    raw.layer_names.emplace(substrate_layer, stack.substrate.net);
    raw.layer_types.emplace(stack.substrate.net, "substrate");
  }

  // The window.
  const grid_rect& e = plan.extent;
  double z_top = stack.stack_top();
  for (const conductor_layer& c : stack.conductors) z_top = std::max(z_top, c.top());
  const std::vector<wrap_shell> shells = wrap_shells(stack);
  for (const wrap_shell& s : shells) z_top = std::max({z_top, s.outer_top, s.field_top});
  const double z_bottom = substrate_conductor ? stack.substrate.z_bottom : stack.substrate.z_top;
  const double wx0 = um(gtl::xl(e)) - margin, wy0 = um(gtl::yl(e)) - margin;
  const double wx1 = um(gtl::xh(e)) + margin, wy1 = um(gtl::yh(e)) + margin;
  raw.window = box(wx0, wy0, z_bottom, wx1, wy1, z_top + margin);
  raw.boundary = 1;
  raw.window_name = report.cell;
  report.window_margin = margin;

  // Growths of footprints on a common fine grid.
  std::vector<double> grows;
  for (const wrap_shell& s : shells) grows.push_back(s.outer_grow);
  if (substrate_conductor) grows.push_back(stack.substrate.hole_grow);
  double widest = margin;
  for (double g : grows) widest = std::max(widest, margin + g);
  const std::int64_t reach = std::max({std::abs(std::int64_t(gtl::xl(e))), std::abs(std::int64_t(gtl::xh(e))),
                                       std::abs(std::int64_t(gtl::yl(e))), std::abs(std::int64_t(gtl::yh(e)))}) +
                             std::int64_t(std::ceil(widest / plan.um_per_db)) + 2;
  const int scale = footprint_scale(grows, plan.um_per_db, reach);
  const length_unit fine = um.finer(scale);
  const double per_fine = plan.um_per_db / scale;
  auto fine_grow = [&](double g) { return int(std::lround(g / per_fine)); };
  for (double g : grows)
    if (std::abs(g / per_fine - std::round(g / per_fine)) > 1e-6 * std::max(1.0, g / per_fine)) {
      warn.add("a coat or hole growth of " + format_um(g) + " um is not a whole number of the cell's " +
               format_um(per_fine) + " um grid; growths are rounded to it");
      break;
    }

  // Dielectrics: planar layers as plate media, coats as bodies.
  const auto dielectric_start = clock_type::now();
  for (const dielectric_layer& d : stack.dielectrics) {
    if (d.kind != dielectric_kind::planar) continue;
    raw.plate_mediums.push_back(circuit_layout::plate_medium{d.name, d.z_top, d.permittivity});
    raw.medium_nets.emplace_back(d.name, d.permittivity);
  }
  std::map<std::size_t, std::pair<std::size_t, std::string>> approximated;  // conductor -> (pieces, coats)
  std::vector<import_layer> dielectric_info;
  for (std::size_t k = shells.size(); k-- > 0;) {
    // Last listed first: the walk's map lets a later body win where two
    // overlap, and the stack lets the one listed first win.
    const wrap_shell& s = shells[k];
    const dielectric_layer& d = stack.dielectrics[s.dielectric];
    const std::size_t first = raw.medium_blocks.size();
    if (s.field_top > s.field_bottom)
      raw.medium_blocks.emplace_back(make_cuboid_shape(box(wx0, wy0, s.field_bottom, wx1, wy1, s.field_top)), 0.0);
    const piece_store& wrapped = plan.conductors[s.conductor];
    if (wrapped.size() > 0) {
      set_90 grown;
      std::size_t rough = 0;
      add_grown(wrapped, scale, fine_grow(s.outer_grow), grown, rough);
      if (rough > 0) {
        auto& a = approximated[s.conductor];
        a.first = rough;
        a.second += (a.second.empty() ? "" : ", ") + d.name;
      }
      for (const grid_rect& r : rectangles(grown))
        raw.medium_blocks.emplace_back(
            make_cuboid_shape(box(fine(gtl::xl(r)), fine(gtl::yl(r)), s.z_bottom, fine(gtl::xh(r)), fine(gtl::yh(r)),
                                  s.outer_top)),
            0.0);
    }
    if (raw.medium_blocks.size() == first) continue;
    medium_net& net = raw.medium_nets.emplace_back(d.name, d.permittivity);
    import_layer info{d.name, "dielectric", 0, raw.medium_blocks.size() - first, 0.0};
    for (std::size_t b = first; b < raw.medium_blocks.size(); ++b) {
      raw.medium_blocks[b].net = &net;
      net.blocks.push_back(&raw.medium_blocks[b]);
      info.volume += volume(raw.medium_blocks[b].cuboid());
    }
    dielectric_info.push_back(info);
  }
  for (const auto& [c, a] : approximated)
    warn.add("layer " + stack.conductors[c].name + ": " + std::to_string(a.first) +
             " pieces are not Manhattan; the dielectric " + a.second +
             " around them is taken as boxes, the bounding boxes of their convex parts grown by the coat");
  report.dielectric_seconds += since(dielectric_start);

  // Conductor blocks, net by net.
  const auto cut_start = clock_type::now();
  const std::size_t nets = plan.net_names.size();
  std::vector<std::size_t> start(nets + 1, 0);
  for (std::size_t c = 0; c < conductors; ++c)
    for (std::uint32_t n : plan.net[c]) ++start[n + 1];
  for (const via_parts& vp : plan.vias)
    for (std::uint32_t n : vp.net) ++start[n + 1];
  for (std::size_t n = 0; n < nets; ++n) start[n + 1] += start[n];
  std::vector<piece_ref> refs(start[nets]);
  {
    std::vector<std::size_t> fill(start.begin(), start.end() - 1);
    for (std::size_t c = 0; c < conductors; ++c)
      for (std::uint32_t i = 0; i < plan.net[c].size(); ++i) refs[fill[plan.net[c][i]]++] = {std::uint32_t(c), i};
    for (std::size_t k = 0; k < plan.vias.size(); ++k)
      for (std::uint32_t i = 0; i < plan.vias[k].net.size(); ++i)
        refs[fill[plan.vias[k].net[i]]++] = {std::uint32_t(conductors + k), i};
  }
  for (std::size_t c = 0; c < conductors; ++c)
    report.layers.push_back({stack.conductors[c].name, "conductor", plan.conductors[c].size(), 0, 0.0});
  for (std::size_t v = 0; v < vias; ++v) report.layers.push_back({stack.vias[v].name, "via", 0, 0, 0.0});
  auto layer_info = [&](std::size_t layer) -> import_layer& { return report.layers[layer]; };
  for (const via_parts& vp : plan.vias) layer_info(conductors + vp.via).pieces += vp.pieces.size();

  std::vector<std::vector<grid_point>> rings;
  std::vector<bool> on_layer(conductors + vias);
  for (std::size_t n = 0; n < nets; ++n) {
    const std::size_t first = raw.wire_blocks.size();
    std::fill(on_layer.begin(), on_layer.end(), false);
    for (std::size_t r = start[n]; r < start[n + 1]; ++r) {
      const piece_ref ref = refs[r];
      const bool via = ref.set >= conductors;
      const piece_store& s = via ? plan.vias[ref.set - conductors].pieces : plan.conductors[ref.set];
      std::size_t layer = ref.set;
      double z0 = 0, z1 = 0;
      if (via) {
        const via_parts& vp = plan.vias[ref.set - conductors];
        const via_target& t = stack.vias[vp.via].targets[vp.target];
        layer = conductors + vp.via;
        z0 = t.z_bottom, z1 = t.z_top;
      } else {
        z0 = stack.conductors[ref.set].z, z1 = stack.conductors[ref.set].top();
      }
      on_layer[layer] = true;
      const std::string& name = via ? stack.vias[layer - conductors].name : stack.conductors[layer].name;
      import_layer& info = layer_info(layer);
      rings.clear();
      cut_piece(s, ref.piece, rings);
      for (auto& ring : rings) {
        if (ring.size() == 4 && ring[0].y() == ring[1].y() && ring[1].x() == ring[2].x() &&
            ring[2].y() == ring[3].y() && ring[3].x() == ring[0].x() && ring[0].x() < ring[1].x() &&
            ring[1].y() < ring[2].y()) {
          const cuboid_t c = box(um(ring[0].x()), um(ring[0].y()), z0, um(ring[2].x()), um(ring[2].y()), z1);
          raw.wire_blocks.emplace_back(make_cuboid_shape(c), name, short(layer));
          info.volume += volume(c);
        } else {
          // A convex part, anticlockwise.
          long double twice = 0;
          for (std::size_t k = 0; k < ring.size(); ++k) {
            const grid_point& a = ring[k];
            const grid_point& b = ring[(k + 1) % ring.size()];
            twice += (long double)a.x() * b.y() - (long double)b.x() * a.y();
          }
          if (twice == 0 || ring.size() < 3 || ring.size() > 4) continue;
          if (twice < 0) std::reverse(ring.begin(), ring.end());
          nprism_large_t poly;
          for (const grid_point& q : ring) poly.points.push_back(point2{{um(q.x()), um(q.y())}});
          poly.size = poly.points.size();
          poly.bottom = z0;
          poly.top = z1;
          raw.wire_blocks.emplace_back(make_prism_shape(poly), name, short(layer));
          info.volume += um(um(double(twice < 0 ? -twice : twice) / 2.0)) * (z1 - z0);
        }
        ++info.blocks;
      }
    }
    wire_net& net = raw.wire_nets.emplace_back(plan.net_names[n], false);
    import_net summary{plan.net_names[n], bool(plan.labelled[n]), false, raw.wire_blocks.size() - first, {}};
    for (std::size_t layer = 0; layer < on_layer.size(); ++layer)
      if (on_layer[layer])
        summary.layers.push_back(layer < conductors ? stack.conductors[layer].name : stack.vias[layer - conductors].name);
    report.nets.push_back(std::move(summary));
    for (std::size_t b = first; b < raw.wire_blocks.size(); ++b) {
      raw.wire_blocks[b].net = &net;
      net.blocks.push_back(&raw.wire_blocks[b]);
    }
    if (progress && (n % 4096 == 0 || n + 1 == nets)) progress("cutting", n + 1, nets);
  }
  report.cut_seconds += since(cut_start);

  // The substrate: the window's floor, less its holes.
  const auto substrate_start = clock_type::now();
  const substrate_model& sub = stack.substrate;
  if (substrate_conductor) {
    set_90 floor;
    const int fx0 = int(std::floor(wx0 / per_fine)), fy0 = int(std::floor(wy0 / per_fine));
    const int fx1 = int(std::ceil(wx1 / per_fine)), fy1 = int(std::ceil(wy1 / per_fine));
    floor.insert(grid_rect(fx0, fy0, fx1, fy1));
    set_90 holes;
    std::size_t rough = 0;
    for (std::size_t c : sub.holes_under) add_grown(plan.conductors[c], scale, fine_grow(sub.hole_grow), holes, rough);
    if (rough > 0)
      warn.add("the substrate's holes under " + std::to_string(rough) +
               " pieces that are not Manhattan are the bounding boxes of their convex parts, grown");
    using namespace boost::polygon::operators;
    floor -= holes;
    const std::size_t first = raw.wire_blocks.size();
    import_layer info{sub.net, "substrate", 0, 0, 0.0};
    // Sides on the rounded edge of the floor are the window's own.
    auto x_of = [&](int x) { return x <= fx0 ? wx0 : (x >= fx1 ? wx1 : fine(x)); };
    auto y_of = [&](int y) { return y <= fy0 ? wy0 : (y >= fy1 ? wy1 : fine(y)); };
    for (const grid_rect& r : rectangles(floor)) {
      const cuboid_t c = box(x_of(gtl::xl(r)), y_of(gtl::yl(r)), sub.z_bottom, x_of(gtl::xh(r)), y_of(gtl::yh(r)), sub.z_top);
      raw.wire_blocks.emplace_back(make_cuboid_shape(c), sub.net, substrate_layer);
      info.volume += volume(c);
      ++info.blocks;
    }
    std::vector<polygon_90> parts;
    floor.get(parts);
    info.pieces = parts.size();
    wire_net& net = raw.wire_nets.emplace_back(sub.net, false);
    for (std::size_t b = first; b < raw.wire_blocks.size(); ++b) {
      raw.wire_blocks[b].net = &net;
      net.blocks.push_back(&raw.wire_blocks[b]);
    }
    report.nets.push_back({sub.net, false, true, info.blocks, {sub.net}});
    report.layers.push_back(info);
  } else if (!sub.holes_under.empty()) {
    warn.add("the substrate is a plane (the window's floor): its holes under " +
             stack.conductors[sub.holes_under.front()].name + " are not modelled");
  }
  report.layers.insert(report.layers.end(), dielectric_info.begin(), dielectric_info.end());
  report.dielectric_seconds += since(substrate_start);

  // Tasks.
  if (tasks.empty()) {
    for (std::size_t n = 0; n < nets; ++n) raw.capacitance_tasks.insert(plan.net_names[n]);
  } else {
    for (const std::string& t : tasks) {
      if (std::find(plan.net_names.begin(), plan.net_names.end(), t) == plan.net_names.end()) {
        std::string names;
        for (std::size_t n = 0; n < nets && n < 20; ++n) names += (n ? ", " : "") + plan.net_names[n];
        if (nets > 20) names += ", ...";
        import_fail("cell " + report.cell + " has no net named " + t + " (its nets: " + names + ")");
      }
      raw.capacitance_tasks.insert(t);
    }
  }
}

}  // namespace torva::internal
