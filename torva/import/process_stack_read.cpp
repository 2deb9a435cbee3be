// Reading a process stack from JSON: every field is checked for its type and
// range where it is read, and named by its path in the file in any complaint.
#include <algorithm>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>

#include "torva/foundation/errors.h"
#include "torva/import/internal/json_fields.h"
#include "torva/import/internal/stack_check.h"
#include "torva/import/process_stack.h"

namespace torva {
namespace {

using stack_detail::at;
using stack_detail::fail;
using stack_detail::json;
using stack_detail::json_fields;
using stack_detail::key_guard;
using stack_detail::num;

constexpr std::size_t max_bytes = 1 << 24;

// The sections of a stack, in the order they are read.
class reader : public json_fields {
 public:
  explicit reader(const std::string& origin) : json_fields(origin) {}

  // A name of the shared space of conductors, vias and dielectrics.
  std::string entry_name(const json& entry, const std::string& path) {
    const std::string where = at(path, "name");
    std::string s = name(need(entry, path, "name"), where);
    const auto [it, fresh] = names_.emplace(s, path);
    if (!fresh) bad(where, "\"" + s + "\" is also the name of " + it->second);
    return s;
  }

  gds_pair pair(const json& v, const std::string& path) const {
    if (v.is_string()) {
      const std::string n = v.get<std::string>();
      const auto it = gds_.find(n);
      if (it == gds_.end()) bad(path, "no GDS layer named \"" + n + "\" in gds");
      return it->second;
    }
    if (!v.is_array() || v.size() != 2 || !v[0].is_number_integer() || !v[1].is_number_integer())
      bad(path, "not a GDS pair [layer, datatype] or a name from gds");
    const long long l = v[0].get<long long>(), d = v[1].get<long long>();
    if (l < 0 || l > 65535 || d < 0 || d > 65535) bad(path, "layer and datatype lie in 0 to 65535");
    return {int(l), int(d)};
  }

  layer_expr expr(const json& v, const std::string& path) const {
    layer_expr e;
    if (!v.is_object()) {
      e.pair = pair(v, path);
      return e;
    }
    object(v, path, {"or", "and", "not"});
    const json* any = maybe(v, "or");
    const json* all = maybe(v, "and");
    if ((any != nullptr) == (all != nullptr)) bad(path, "needs one of \"or\" and \"and\"");
    e.kind = any ? layer_expr::op::union_of : layer_expr::op::intersection_of;
    const std::string terms_path = at(path, any ? "or" : "and");
    const json& terms = array(any ? *any : *all, terms_path);
    for (std::size_t i = 0; i < terms.size(); ++i) e.terms.push_back(expr(terms[i], at(terms_path, i)));
    if (const json* minus = maybe(v, "not")) {
      const std::string minus_path = at(path, "not");
      array(*minus, minus_path);
      for (std::size_t i = 0; i < minus->size(); ++i) e.minus.push_back(expr((*minus)[i], at(minus_path, i)));
    }
    return e;
  }

  std::size_t conductor(const process_stack& s, const json& v, const std::string& path) const {
    const std::string n = text(v, path);
    const std::size_t i = s.conductor_index(n);
    if (i == process_stack::npos) bad(path, "no conductor layer \"" + n + "\"");
    return i;
  }


  void read_gds(const json& v, process_stack& s) {
    if (!v.is_object()) bad("gds", "not an object");
    std::map<gds_pair, std::string> seen;
    for (auto it = v.begin(); it != v.end(); ++it) {
      const std::string path = at(std::string("gds"), it.key());
      name(json(it.key()), path);
      const gds_pair p = pair(it.value(), path);
      if (it.value().is_string()) bad(path, "not a GDS pair [layer, datatype]");
      const auto [old, fresh] = seen.emplace(p, it.key());
      if (!fresh) bad(path, stack_detail::pair_text(p) + " is also gds." + old->second);
      gds_.emplace(it.key(), p);
      s.gds.emplace_back(it.key(), p);
    }
  }

  void read_conductor(const json& v, const std::string& path, process_stack& s) {
    object(v, path, {"name", "kind", "drawing", "pin", "label", "z", "thickness", "shares_gds_with"});
    conductor_layer c;
    c.name = entry_name(v, path);
    const std::string kind = text(need(v, path, "kind"), at(path, "kind"));
    if (kind == "diffusion") c.kind = conductor_kind::diffusion;
    else if (kind == "poly") c.kind = conductor_kind::poly;
    else if (kind == "metal") c.kind = conductor_kind::metal;
    else if (kind == "mim_plate") c.kind = conductor_kind::mim_plate;
    else bad(at(path, "kind"), "\"" + kind + "\" is none of diffusion, poly, metal, mim_plate");
    c.drawing = expr(need(v, path, "drawing"), at(path, "drawing"));
    if (const json* p = maybe(v, "pin")) c.has_pin = true, c.pin = pair(*p, at(path, "pin"));
    if (const json* p = maybe(v, "label")) c.has_label = true, c.label = pair(*p, at(path, "label"));
    c.z = number(need(v, path, "z"), at(path, "z"));
    c.thickness = extent(need(v, path, "thickness"), at(path, "thickness"), false);
    if (const json* o = maybe(v, "shares_gds_with")) c.shares_gds_with = text(*o, at(path, "shares_gds_with"));
    s.conductors.push_back(std::move(c));
  }

  void read_via(const json& v, const std::string& path, process_stack& s) {
    object(v, path, {"name", "drawing", "targets", "cut", "shares_gds_with"});
    via_layer via;
    via.name = entry_name(v, path);
    via.drawing = expr(need(v, path, "drawing"), at(path, "drawing"));
    const std::string tpath = at(path, "targets");
    const json& targets = array(need(v, path, "targets"), tpath);
    for (std::size_t i = 0; i < targets.size(); ++i) {
      const std::string p = at(tpath, i);
      object(targets[i], p, {"below", "above", "z"});
      via_target t;
      t.below = conductor(s, need(targets[i], p, "below"), at(p, "below"));
      t.above = conductor(s, need(targets[i], p, "above"), at(p, "above"));
      if (const json* z = maybe(targets[i], "z")) {
        std::tie(t.z_bottom, t.z_top) = range(*z, at(p, "z"));
      } else {
        t.z_bottom = s.conductors[t.below].top();
        t.z_top = s.conductors[t.above].z;
      }
      via.targets.push_back(t);
    }
    if (const json* cut = maybe(v, "cut")) {
      const std::string p = at(path, "cut");
      object(*cut, p, {"width", "spacing", "border"});
      via.has_cut = true;
      via.cut.width = extent(need(*cut, p, "width"), at(p, "width"), false);
      via.cut.spacing = extent(need(*cut, p, "spacing"), at(p, "spacing"), false);
      via.cut.border = extent(need(*cut, p, "border"), at(p, "border"), true);
    }
    if (const json* o = maybe(v, "shares_gds_with")) via.shares_gds_with = text(*o, at(path, "shares_gds_with"));
    s.vias.push_back(std::move(via));
  }

  void read_dielectric(const json& v, const std::string& path, process_stack& s) {
    if (!v.is_object()) bad(path, "not an object");
    const std::string kind = text(need(v, path, "kind"), at(path, "kind"));
    dielectric_layer d;
    if (kind == "planar") {
      object(v, path, {"name", "kind", "z", "permittivity"});
      std::tie(d.z_bottom, d.z_top) = range(need(v, path, "z"), at(path, "z"));
    } else if (kind == "conformal") {
      d.kind = dielectric_kind::conformal;
      object(v, path, {"name", "kind", "wraps", "permittivity", "over", "sidewall", "elsewhere"});
      d.over = extent(need(v, path, "over"), at(path, "over"), true);
      d.side = extent(need(v, path, "sidewall"), at(path, "sidewall"), true);
      d.field = extent(need(v, path, "elsewhere"), at(path, "elsewhere"), true);
      if (d.over == 0 && d.side == 0 && d.field == 0) bad(path, "over, sidewall and elsewhere are all zero");
    } else if (kind == "sidewall") {
      d.kind = dielectric_kind::sidewall;
      object(v, path, {"name", "kind", "wraps", "permittivity", "width", "above"});
      d.side = extent(need(v, path, "width"), at(path, "width"), false);
      d.over = extent(need(v, path, "above"), at(path, "above"), true);
    } else {
      bad(at(path, "kind"), "\"" + kind + "\" is none of planar, conformal, sidewall");
    }
    d.name = entry_name(v, path);
    const std::string ppath = at(path, "permittivity");
    d.permittivity = number(need(v, path, "permittivity"), ppath);
    if (d.permittivity < 1) bad(ppath, "below 1 (" + num(d.permittivity) + ")");
    if (d.kind != dielectric_kind::planar) wraps(v, path, s, d);
    s.dielectrics.push_back(std::move(d));
  }

  // What a coat or ring wraps: a conductor, or a coat listed before it; each
  // at most once, so that the coats of one conductor make a single chain.
  void wraps(const json& v, const std::string& path, process_stack& s, dielectric_layer& d) {
    const std::string wpath = at(path, "wraps");
    const std::string n = text(need(v, path, "wraps"), wpath);
    d.wraps_conductor = s.conductor_index(n);
    if (d.wraps_conductor == process_stack::npos) {
      d.wraps_dielectric = s.dielectric_index(n);
      if (d.wraps_dielectric == process_stack::npos) bad(wpath, "no conductor or earlier coat named \"" + n + "\"");
      if (s.dielectrics[d.wraps_dielectric].kind == dielectric_kind::planar) bad(wpath, n + " is a planar layer");
    }
    const auto [it, fresh] = wrapped_.emplace(n, path);
    if (!fresh) bad(wpath, n + " is already wrapped by " + it->second);
  }

  void read_substrate(const json& v, process_stack& s) {
    const std::string path = "substrate";
    if (!v.is_object()) bad(path, "not an object");
    const std::string kind = text(need(v, path, "kind"), at(path, "kind"));
    substrate_model& m = s.substrate;
    if (kind == "conductor") {
      object(v, path, {"kind", "net", "z", "holes"});
      m.kind = substrate_kind::conductor;
      std::tie(m.z_bottom, m.z_top) = range(need(v, path, "z"), at(path, "z"));
    } else if (kind == "plane") {
      object(v, path, {"kind", "net", "top", "holes"});
      m.kind = substrate_kind::plane;
      m.z_bottom = m.z_top = number(need(v, path, "top"), at(path, "top"));
    } else {
      bad(at(path, "kind"), "\"" + kind + "\" is none of conductor, plane");
    }
    if (const json* n = maybe(v, "net")) m.net = name(*n, at(path, "net"));
    if (const json* h = maybe(v, "holes")) {
      const std::string hpath = at(path, "holes");
      object(*h, hpath, {"under", "grow"});
      const std::string upath = at(hpath, "under");
      const json& under = array(need(*h, hpath, "under"), upath);
      for (std::size_t i = 0; i < under.size(); ++i) m.holes_under.push_back(conductor(s, under[i], at(upath, i)));
      m.hole_grow = extent(need(*h, hpath, "grow"), at(hpath, "grow"), true);
    }
  }

  process_stack read(const json& top) {
    object(top, "", {"format", "version", "name", "units", "window_margin", "gds", "conductors", "vias", "dielectrics",
                     "substrate", "corrections"});
    process_stack s;
    if (const json& f = need(top, "", "format"); !f.is_string() || f.get<std::string>() != "torva-stack")
      bad("format", "not a torva stack (format is " + f.dump() + ", not \"torva-stack\")");
    if (const json& ver = need(top, "", "version"); !ver.is_number_integer() || ver.get<long long>() != 1)
      bad("version", ver.dump() + " is not a version this reader knows (1)");
    s.name = name(need(top, "", "name"), "name");
    if (const json* u = maybe(top, "units"); u && (!u->is_string() || u->get<std::string>() != "um"))
      bad("units", u->dump() + " is not \"um\" (the stack's lengths are micrometres)");
    if (const json* m = maybe(top, "window_margin")) s.window_margin = extent(*m, "window_margin", true);
    if (const json* g = maybe(top, "gds")) read_gds(*g, s);
    const json& conductors = array(need(top, "", "conductors"), "conductors");
    for (std::size_t i = 0; i < conductors.size(); ++i) read_conductor(conductors[i], at(std::string("conductors"), i), s);
    if (const json* vias = maybe(top, "vias")) {
      array(*vias, "vias", true);
      for (std::size_t i = 0; i < vias->size(); ++i) read_via((*vias)[i], at(std::string("vias"), i), s);
    }
    const json& dielectrics = array(need(top, "", "dielectrics"), "dielectrics");
    for (std::size_t i = 0; i < dielectrics.size(); ++i)
      read_dielectric(dielectrics[i], at(std::string("dielectrics"), i), s);
    read_substrate(need(top, "", "substrate"), s);
    if (const json* n = maybe(top, "notes")) free_text(*n, s.notes);
    if (const json* c = maybe(top, "corrections")) free_text(*c, s.corrections);
    return s;
  }

 private:
  std::map<std::string, gds_pair> gds_;
  std::map<std::string, std::string> names_;    // entry name -> its path
  std::map<std::string, std::string> wrapped_;  // wrapped name -> the coat's path
};

}  // namespace

process_stack parse_stack(std::string_view json_text, const std::string& origin) {
  json top;
  try {
    top = json::parse(json_text.begin(), json_text.end(), key_guard(origin));
  } catch (const json::exception& e) {
    // The library's prefix "[json.exception.parse_error.101] " says nothing to a reader.
    std::string what = e.what();
    if (const auto close = what.find("] "); what.rfind("[json.", 0) == 0 && close != std::string::npos)
      what.erase(0, close + 2);
    fail(origin, "", "not valid JSON: " + what);
  }
  process_stack s = reader(origin).read(top);
  stack_detail::check_stack(s, origin);
  return s;
}

process_stack read_stack_file(const std::string& path) {
  std::error_code ec;
  if (std::filesystem::is_directory(path, ec)) fail(path, "", "a directory, not a stack file");
  std::ifstream in(path, std::ios::binary);
  if (!in) fail(path, "", "cannot be opened");
  std::ostringstream text;
  text << in.rdbuf();
  if (in.bad()) fail(path, "", "cannot be read");
  const std::string bytes = std::move(text).str();
  if (bytes.size() > max_bytes) fail(path, "", "larger than " + std::to_string(max_bytes >> 20) + " MB: not a stack");
  process_stack s = parse_stack(bytes, path);
  s.path = path;
  return s;
}

}  // namespace torva
