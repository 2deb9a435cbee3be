// The process stack's look-ups and the closed form of its coats and rings.
#include "torva/import/process_stack.h"

#include <algorithm>

namespace torva {

void layer_expr::collect_pairs(std::set<gds_pair>& out) const {
  if (kind == op::pair) out.insert(pair);
  for (const layer_expr& e : terms) e.collect_pairs(out);
  for (const layer_expr& e : minus) e.collect_pairs(out);
}

namespace {
template <class List>
std::size_t index_of(const List& list, std::string_view name) {
  for (std::size_t i = 0; i < list.size(); ++i)
    if (list[i].name == name) return i;
  return process_stack::npos;
}
}  // namespace

std::size_t process_stack::conductor_index(std::string_view n) const { return index_of(conductors, n); }
std::size_t process_stack::via_index(std::string_view n) const { return index_of(vias, n); }
std::size_t process_stack::dielectric_index(std::string_view n) const { return index_of(dielectrics, n); }

double process_stack::stack_bottom() const {
  for (const dielectric_layer& d : dielectrics)
    if (d.kind == dielectric_kind::planar) return d.z_bottom;
  return substrate.z_top;
}

double process_stack::stack_top() const {
  for (auto d = dielectrics.rbegin(); d != dielectrics.rend(); ++d)
    if (d->kind == dielectric_kind::planar) return d->z_top;
  return substrate.z_top;
}

std::set<gds_pair> process_stack::known_pairs() const {
  std::set<gds_pair> out;
  for (const auto& [name, p] : gds) out.insert(p);
  for (const conductor_layer& c : conductors) {
    c.drawing.collect_pairs(out);
    if (c.has_pin) out.insert(c.pin);
    if (c.has_label) out.insert(c.label);
  }
  for (const via_layer& v : vias) v.drawing.collect_pairs(out);
  return out;
}

std::vector<wrap_shell> wrap_shells(const process_stack& stack) {
  std::vector<wrap_shell> shells;
  std::vector<std::size_t> shell_of(stack.dielectrics.size(), process_stack::npos);
  for (std::size_t i = 0; i < stack.dielectrics.size(); ++i) {
    const dielectric_layer& d = stack.dielectrics[i];
    if (d.kind == dielectric_kind::planar) continue;
    wrap_shell s;
    s.dielectric = i;
    if (d.wraps_conductor != process_stack::npos) {
      const conductor_layer& c = stack.conductors[d.wraps_conductor];
      s.conductor = d.wraps_conductor;
      s.z_bottom = c.z;
      s.inner_top = c.top();
      s.field_bottom = c.z;
    } else {
      // The reader lets a coat wrap only a coat listed before it.
      const wrap_shell& in = shells[shell_of[d.wraps_dielectric]];
      s.conductor = in.conductor;
      s.z_bottom = in.z_bottom;
      s.inner_grow = in.outer_grow;
      s.inner_top = in.outer_top;
      s.field_bottom = in.field_top;
    }
    s.outer_grow = s.inner_grow + d.side;
    s.outer_top = s.inner_top + d.over;
    s.field_top = s.field_bottom + d.field;
    shell_of[i] = shells.size();
    shells.push_back(s);
  }
  return shells;
}

const char* to_string(conductor_kind kind) {
  switch (kind) {
    case conductor_kind::diffusion: return "diffusion";
    case conductor_kind::poly: return "poly";
    case conductor_kind::metal: return "metal";
    case conductor_kind::mim_plate: return "mim_plate";
  }
  return "?";
}

const char* to_string(dielectric_kind kind) {
  switch (kind) {
    case dielectric_kind::planar: return "planar";
    case dielectric_kind::conformal: return "conformal";
    case dielectric_kind::sidewall: return "sidewall";
  }
  return "?";
}

}  // namespace torva
