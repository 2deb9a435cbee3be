// The checks of a process stack that look at more than one field: a stack
// that passes them can be built into a layout without a contradiction.
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <map>

#include "torva/foundation/errors.h"
#include "torva/import/internal/stack_check.h"

namespace torva::stack_detail {
namespace {

// Heights are typed to 0.1 nm at best; sums of them differ by rounding only.
constexpr double tol = 1e-6;

std::string path(const char* list, std::size_t i, const char* field = nullptr) {
  std::string p = std::string(list) + "[" + std::to_string(i) + "]";
  return field ? p + "." + field : p;
}

std::string span(double lo, double hi) { return num(lo) + " to " + num(hi); }

void check_conductor_heights(const process_stack& s, const std::string& origin) {
  for (std::size_t j = 0; j < s.conductors.size(); ++j) {
    const conductor_layer& b = s.conductors[j];
    for (std::size_t i = 0; i < j; ++i) {
      const conductor_layer& a = s.conductors[i];
      const bool overlap = b.z < a.top() - tol && a.z < b.top() - tol;
      if (!overlap) continue;
      // n+ and p+ diffusion lie side by side at one height; metals never do.
      const bool same_level = std::abs(a.z - b.z) <= tol && std::abs(a.top() - b.top()) <= tol;
      if (same_level && a.kind == conductor_kind::diffusion && b.kind == conductor_kind::diffusion) continue;
      fail(origin, path("conductors", j, "z"),
           b.name + " (" + span(b.z, b.top()) + ") overlaps " + a.name + " (" + span(a.z, a.top()) + ")");
    }
  }
}

void check_vias(const process_stack& s, const std::string& origin) {
  for (std::size_t i = 0; i < s.vias.size(); ++i) {
    for (std::size_t k = 0; k < s.vias[i].targets.size(); ++k) {
      const via_target& t = s.vias[i].targets[k];
      const conductor_layer& lo = s.conductors[t.below];
      const conductor_layer& hi = s.conductors[t.above];
      const std::string p = path("vias", i) + ".targets[" + std::to_string(k) + "]";
      if (!(hi.z >= lo.top() - tol) || t.below == t.above)
        fail(origin, p + ".above", hi.name + " (bottom " + num(hi.z) + ") does not lie above " + lo.name + " (top " +
                                       num(lo.top()) + ")");
      if (!(t.z_bottom < t.z_top)) fail(origin, p + ".z", "no height between " + lo.name + " and " + hi.name);
      if (t.z_bottom < lo.z - tol || t.z_bottom > lo.top() + tol)
        fail(origin, p + ".z", "bottom " + num(t.z_bottom) + " is not within " + lo.name + " (" + span(lo.z, lo.top()) + ")");
      if (std::abs(t.z_top - hi.z) > tol)
        fail(origin, p + ".z", "top " + num(t.z_top) + " is not the bottom of " + hi.name + " (" + num(hi.z) + ")");
      // The first target on a layer takes every shape over it; a second would get none.
      for (std::size_t j = 0; j < k; ++j)
        if (s.vias[i].targets[j].below == t.below)
          fail(origin, p + ".below", lo.name + " is already the lower layer of targets[" + std::to_string(j) + "]");
    }
  }
}

void check_planar_tiling(const process_stack& s, const std::string& origin) {
  const dielectric_layer* below = nullptr;
  for (std::size_t i = 0; i < s.dielectrics.size(); ++i) {
    const dielectric_layer& d = s.dielectrics[i];
    if (d.kind != dielectric_kind::planar) continue;
    const std::string p = path("dielectrics", i, "z");
    if (!below) {
      if (std::abs(d.z_bottom - s.substrate.z_top) > tol)
        fail(origin, p, "the lowest planar layer starts at " + num(d.z_bottom) + ", not on the substrate's top (" +
                            num(s.substrate.z_top) + ")");
    } else if (d.z_bottom > below->z_top + tol) {
      fail(origin, p, "a gap from " + num(below->z_top) + " (top of " + below->name + ") to " + num(d.z_bottom));
    } else if (d.z_bottom < below->z_top - tol) {
      fail(origin, p, d.name + " (" + span(d.z_bottom, d.z_top) + ") overlaps " + below->name + " (" +
                          span(below->z_bottom, below->z_top) + ")");
    }
    below = &d;
  }
  if (!below) fail(origin, "dielectrics", "no planar layer: nothing fills the space between the conductors");
  for (std::size_t i = 0; i < s.conductors.size(); ++i) {
    const conductor_layer& c = s.conductors[i];
    if (c.z < s.stack_bottom() - tol || c.top() > s.stack_top() + tol)
      fail(origin, path("conductors", i, "z"),
           c.name + " (" + span(c.z, c.top()) + ") is not within the planar dielectrics (" +
               span(s.stack_bottom(), s.stack_top()) + ")");
  }
}

// A pair drawn by two layers makes every shape on it two conductors in one
// place; it is refused unless one of the two says it is meant.
void check_claims(const process_stack& s, const std::string& origin) {
  struct claim {
    std::string path, name, shares;
  };
  std::map<gds_pair, claim> claims;
  auto stake = [&](gds_pair p, const std::string& at, const std::string& name, const std::string& shares) {
    const auto [it, fresh] = claims.emplace(p, claim{at, name, shares});
    if (fresh || it->second.name == name) return;
    if (shares == it->second.name || it->second.shares == name) return;
    fail(origin, at, pair_text(p) + " is also drawn by " + it->second.path + " (" + it->second.name +
                         "); give \"shares_gds_with\" if both are meant");
  };
  auto shares_known = [&](const std::string& shares, const std::string& at) {
    if (!shares.empty() && s.conductor_index(shares) == process_stack::npos && s.via_index(shares) == process_stack::npos)
      fail(origin, at, "no conductor or via \"" + shares + "\"");
  };
  for (std::size_t i = 0; i < s.conductors.size(); ++i) {
    const conductor_layer& c = s.conductors[i];
    shares_known(c.shares_gds_with, path("conductors", i, "shares_gds_with"));
    if (!c.drawing.derived()) stake(c.drawing.pair, path("conductors", i, "drawing"), c.name, c.shares_gds_with);
    if (c.has_pin) stake(c.pin, path("conductors", i, "pin"), c.name, c.shares_gds_with);
  }
  for (std::size_t i = 0; i < s.vias.size(); ++i) {
    const via_layer& v = s.vias[i];
    shares_known(v.shares_gds_with, path("vias", i, "shares_gds_with"));
    if (!v.drawing.derived()) stake(v.drawing.pair, path("vias", i, "drawing"), v.name, v.shares_gds_with);
  }
}

}  // namespace

void fail(const std::string& origin, const std::string& field, const std::string& what) {
  const std::string text = "stack " + origin + ": " + (field.empty() ? "" : field + ": ") + what;
  throw sea::file_error(text.c_str());
}

std::string num(double v) {
  char buf[32];
  std::snprintf(buf, sizeof buf, "%.10g", v);
  return buf;
}

std::string pair_text(gds_pair p) { return std::to_string(p.layer) + "/" + std::to_string(p.datatype); }

void check_stack(const process_stack& s, const std::string& origin) {
  check_conductor_heights(s, origin);
  check_vias(s, origin);
  check_planar_tiling(s, origin);
  check_claims(s, origin);
}

}  // namespace torva::stack_detail
