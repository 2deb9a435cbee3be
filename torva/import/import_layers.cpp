// The conductor and via layers of a cell: layer expressions evaluated over
// the cell's shapes, merged into pieces, and vias shared out among their
// targets.
#include <algorithm>
#include <cstdio>
#include <map>
#include <charconv>
#include <cmath>
#include <string>

#include "torva/foundation/errors.h"
#include "torva/foundation/logger.h"
#include "torva/import/internal/import_steps.h"

namespace torva::internal {

void import_warnings::add(const std::string& message) {
  sea::writer& w = *logger::instance().warning;
  w.print("WARNING: " + message + "\n");
  w.flush();
  if (out) out->push_back(message);
}

void import_fail(const std::string& message) {
  sea::writer& err = *logger::instance().error;
  err.print("ERROR: " + message + "\n");
  err.flush();
  throw sea::file_error(message.c_str());
}

std::string format_um(double um) {
  char buf[32];
  const auto r = std::to_chars(buf, buf + sizeof buf, um);
  return std::string(buf, r.ptr);
}

length_unit::length_unit(double um_per) : um_per_unit(um_per) {
  const double per = std::round(1.0 / um_per);
  if (per >= 1 && std::abs(per * um_per - 1.0) < 1e-12) units_per_um = per;
}

length_unit length_unit::finer(int k) const {
  length_unit u(um_per_unit / k);
  if (units_per_um > 0) u.units_per_um = units_per_um * k;
  return u;
}

namespace {

std::string pair_text(gds_pair p) { return std::to_string(p.layer) + "/" + std::to_string(p.datatype); }

// The region of each GDS pair, built once.
class pair_regions {
 public:
  explicit pair_regions(const gds_flat_cell& cell) : cell_(cell), um_(cell.um_per_db) {}

  const region& of(gds_pair p) {
    auto it = cache_.find(p);
    if (it != cache_.end()) return it->second;
    region& r = cache_[p];
    region turned;
    std::vector<gds_point> backwards;
    if (const gds_polygons* polys = cell_.find(gds_layer{p.layer, p.datatype})) {
      for (std::size_t i = 0; i < polys->size(); ++i) {
        const auto ring = polys->polygon(i);
        for (const gds_point& q : ring)
          if (q.x > coordinate_limit || q.x < -coordinate_limit || q.y > coordinate_limit || q.y < -coordinate_limit)
            import_fail("cell " + cell_.top + ": a shape on GDS layer " + pair_text(p) + " reaches (" +
                        format_um(um_(double(q.x))) + ", " + format_um(um_(double(q.y))) + ") um, beyond the " +
                        format_um(um_(double(coordinate_limit))) +
                        " um from the origin that the import takes");
        if (ring.size() < 3) continue;
        r.add(ring);
        // A ring that crosses itself is filled wherever it winds, either
        // way: Boost.Polygon keeps what winds anticlockwise, so the ring
        // turned round gives the rest. A rectangle cannot cross itself.
        if (ring.size() > 4 || !is_manhattan(ring)) {
          backwards.assign(ring.rbegin(), ring.rend());
          turned.add(backwards);
        }
      }
    }
    if (!turned.empty()) unite(r, turned);
    return r;
  }

 private:
  const gds_flat_cell& cell_;
  length_unit um_;
  std::map<gds_pair, region> cache_;
};

region evaluate(const layer_expr& e, pair_regions& pairs) {
  if (e.kind == layer_expr::op::pair) return pairs.of(e.pair);
  region out;
  bool first = true;
  for (const layer_expr& t : e.terms) {
    const region r = evaluate(t, pairs);
    if (first) {
      out = r;
      first = false;
    } else if (e.kind == layer_expr::op::union_of) {
      unite(out, r);
    } else {
      intersect(out, r);
    }
  }
  if (!e.minus.empty() && !out.empty()) {
    region away;
    for (const layer_expr& t : e.minus) unite(away, evaluate(t, pairs));
    subtract(out, away);
  }
  return out;
}

void take_extent(chip_plan& plan, const piece_store& s) {
  for (const auto& p : s.pieces) {
    if (!plan.has_extent) {
      plan.extent = p.box;
      plan.has_extent = true;
    } else {
      gtl::encompass(plan.extent, p.box);
    }
  }
}

}  // namespace

void build_pieces(const gds_flat_cell& cell, const process_stack& stack, chip_plan& plan, import_warnings& warn,
                  const stage_progress& progress) {
  plan.um_per_db = cell.um_per_db;
  const length_unit um(cell.um_per_db);
  pair_regions pairs(cell);
  const std::uint64_t steps = stack.conductors.size() + stack.vias.size();
  std::uint64_t done = 0;

  // Conductors: their regions stay until the vias have been shared out.
  std::vector<region> conductor_regions(stack.conductors.size());
  plan.conductors.assign(stack.conductors.size(), piece_store{});
  for (std::size_t c = 0; c < stack.conductors.size(); ++c) {
    conductor_regions[c] = evaluate(stack.conductors[c].drawing, pairs);
    extract_pieces(conductor_regions[c], plan.conductors[c]);
    take_extent(plan, plan.conductors[c]);
    if (progress) progress("layers", ++done, steps);
  }

  for (std::size_t v = 0; v < stack.vias.size(); ++v) {
    const via_layer& via = stack.vias[v];
    region rest = evaluate(via.drawing, pairs);
    for (std::size_t t = 0; t < via.targets.size() && !rest.empty(); ++t) {
      const region& below = conductor_regions[via.targets[t].below];
      region part = rest;
      intersect(part, below);
      subtract(rest, below);
      via_parts vp;
      vp.via = v;
      vp.target = t;
      extract_pieces(part, vp.pieces);
      if (vp.pieces.size() == 0) continue;
      take_extent(plan, vp.pieces);
      plan.vias.push_back(std::move(vp));
    }
    if (!rest.empty()) {
      piece_store left;
      extract_pieces(rest, left);
      double area = 0;
      for (std::size_t i = 0; i < left.size(); ++i) area += left.area(i);
      const grid_rect& b = left.pieces.front().box;
      std::string layers;
      for (const via_target& t : via.targets)
        layers += (layers.empty() ? "" : " or ") + stack.conductors[t.below].name;
      warn.add("via " + via.name + ": " + std::to_string(left.size()) + " shapes (" +
               format_um(um(um(area))) + " um^2) lie over no " + layers + " and are left out, the first at (" +
               format_um(um(gtl::xl(b))) + ", " + format_um(um(gtl::yl(b))) + ") um");
    }
    if (progress) progress("layers", ++done, steps);
  }
}

}  // namespace torva::internal
