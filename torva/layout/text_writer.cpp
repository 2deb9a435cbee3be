#include "torva/layout/text_writer.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <map>
#include <string_view>

#include "torva/foundation/errors.h"
#include "torva/foundation/logger.h"
#include "torva/layout/internal/write_failure.h"

namespace torva {

namespace {

// The kinds of loss, counted with their first case.
class losses {
 public:
  void add(const std::string& kind, const std::string& first_case) {
    auto [it, fresh] = seen_.try_emplace(kind, entry{0, first_case});
    if (fresh) order_.push_back(kind);
    ++it->second.count;
  }
  std::vector<std::string> lines() const {
    std::vector<std::string> out;
    for (const std::string& kind : order_) {
      const entry& e = seen_.at(kind);
      out.push_back(std::to_string(e.count) + " x " + kind + " (first: " + e.first + ")");
    }
    return out;
  }

 private:
  struct entry {
    std::size_t count;
    std::string first;
  };
  std::map<std::string, entry> seen_;
  std::vector<std::string> order_;
};

// A word the reader reads back as it stands: no separator, no NUL, no
// comment opening, not empty.
bool plain_word(std::string_view w) {
  if (w.empty()) return false;
  for (char c : w)
    if (c == '\0' || c == ' ' || c == '\t' || c == '(' || c == ',' || c == ')' || c == '\r' || c == '\n')
      return false;
  return w.find("//") == std::string_view::npos && w.find("/*") == std::string_view::npos;
}

// An offset that the reader adds to `low` to land on `high` exactly.
bool exact_offset(double low, double high, double& offset) {
  offset = high - low;
  double up = offset, down = offset;
  for (int step = 0; step < 4; ++step) {
    if (low + up == high) return (offset = up, true);
    if (low + down == high) return (offset = down, true);
    up = std::nextafter(up, HUGE_VAL);
    down = std::nextafter(down, -HUGE_VAL);
  }
  return false;
}

class text_out {
 public:
  text_out(sea::writer& out, losses& lost) : out_(out), lost_(lost) {}

  text_out& raw(std::string_view s) {
    out_.write(s.data(), s.size());
    bytes += s.size();
    return *this;
  }
  text_out& number(double v) {
    char b[40];
    const auto r = std::to_chars(b, b + sizeof b, v);
    return raw(std::string_view(b, std::size_t(r.ptr - b)));
  }
  text_out& integer(long long v) { return raw(std::to_string(v)); }
  text_out& point(double x, double y, double z) {
    raw("(").number(x).raw(",").number(y).raw(",").number(z);
    return raw(")");
  }
  // "<key> <word>\n" when the word reads back; the loss otherwise.
  void word(std::string_view indent, std::string_view key, const std::string& w, const std::string& where) {
    if (!plain_word(w)) {
      lost_.add("names the text form cannot hold (empty, a separator or a comment opening)", where);
      return;
    }
    raw(indent).raw(key).raw(" ").raw(w).raw("\n");
  }
  // An edge "<key>(a,b,c)" that the reader adds to `low` to reach `high`.
  double edge(double low, double high, const std::string& where) {
    double e = 0.0;
    if (!exact_offset(low, high, e)) lost_.add("edges no offset reproduces to the last bit", where);
    return e;
  }

  std::uint64_t bytes = 0;
  losses& lost() { return lost_; }

 private:
  sea::writer& out_;
  losses& lost_;
};

void write_window(text_out& t, const circuit_layout::raw& r) {
  if (r.boundary != 1 && r.boundary != 2) {
    bool empty = true;
    for (int k = 0; k < 3; ++k)
      empty = empty && r.window.lower[k].value == 0.0 && r.window.upper[k].value == 0.0;
    if (!r.window_name.empty() || !empty)
      t.lost().add("a window without a boundary (the text form's window always has one)", r.window_name);
    return;
  }
  t.raw("<window>\n");
  if (!r.window_name.empty()) t.word("  ", "name", r.window_name, "the window");
  t.raw("  v1").point(r.window.lower[0], r.window.lower[1], r.window.lower[2]).raw("\n");
  t.raw("  v2").point(r.window.upper[0], r.window.upper[1], r.window.upper[2]).raw("\n");
  t.raw(r.boundary == 1 ? "  dirichlet\n" : "  neumann\n").raw("</window>\n");
}

void write_layers(text_out& t, const circuit_layout::raw& r) {
  struct layer {
    std::string name, type;
    int id = -1;
    double wmin = -1.0;
  };
  std::vector<layer> records;
  for (const auto& [id, name] : r.layer_names) {
    const auto type = r.layer_types.find(name);
    if (type == r.layer_types.end() || id == -1) {
      t.lost().add("layer ids with no type or of -1 (the text form needs a type, and -1 means none)", name);
      continue;
    }
    records.push_back({name, type->second, id});
  }
  std::vector<std::string> unnamed;
  for (const auto& [name, type] : r.layer_types) {
    bool has_id = false;
    for (const layer& l : records) has_id = has_id || l.name == name;
    if (!has_id) unnamed.push_back(name);
  }
  std::sort(unnamed.begin(), unnamed.end());
  for (const std::string& name : unnamed) records.push_back({name, r.layer_types.at(name)});

  // -1 is the text form's mark for no wmin: one that trails is the same as
  // none (a binary reader stores it for records without one); one before a
  // real value is lost.
  std::size_t next = 0;
  bool later_value = false;
  for (std::size_t k = r.layer_wmins.size(); k-- > 0;) {
    const double w = r.layer_wmins[k].value;
    if (w != -1.0) later_value = true;
    else if (later_value) t.lost().add("wmin values of -1 before another wmin", std::to_string(k));
  }
  for (const sea::double_wrapper& w : r.layer_wmins) {
    if (w.value == -1.0) continue;
    if (next == records.size()) {
      if (records.empty()) {
        t.lost().add("wmin values with no typed layer to carry them", std::to_string(w.value));
        continue;
      }
      records.push_back({records.front().name, records.front().type});
    }
    records[next++].wmin = w.value;
  }
  for (const layer& l : records) {
    if (!plain_word(l.name) || !plain_word(l.type)) {
      t.lost().add("names the text form cannot hold (empty, a separator or a comment opening)", "layer " + l.name);
      continue;
    }
    t.raw("<layer> name ").raw(l.name).raw(" type ").raw(l.type);
    if (l.id != -1) t.raw(" id ").integer(l.id);
    if (l.wmin != -1.0) t.raw(" wmin ").number(l.wmin);
    t.raw(" </layer>\n");
  }
}

void write_parameters(text_out& t, const circuit_layout::raw& r) {
  sea::string_writer sink;
  losses& lost = t.lost();
  text_out p(sink, lost);
  const std::pair<const char*, double> reals[] = {
      {"c-ratio", r.c_ratio},
      {"b-ratio", r.b_ratio},
      {"b-net-ratio", r.b_net_ratio},
      {"self-precision", r.self_precision},
      {"coupling-precision", r.coupling_precision},
      {"blk-self-precision", r.blk_self_precision},
      {"blk-coupling-precision", r.blk_coupling_precision},
      {"outmincap", r.outmincap}};
  for (const auto& [key, v] : reals)
    if (v != 0.0 || std::signbit(v)) p.raw("  ").raw(key).raw(" ").number(v).raw("\n");
  const std::pair<const char*, int> wholes[] = {
      {"thread-num", r.thread_num}, {"seed", r.seed}, {"walk-type", r.walk_type}};
  for (const auto& [key, v] : wholes)
    if (v != 0) p.raw("  ").raw(key).raw(" ").integer(v).raw("\n");
  if (r.spice != 0) {
    if (r.spice != 1) lost.add("spice values other than 0 or 1 (the text form has on and off)", std::to_string(r.spice));
    p.raw("  spice on\n");
  }
  if (!r.log_file.empty()) p.word("  ", "log-file", r.log_file, "log-file");
  if (!r.out_file.empty()) p.word("  ", "out-file", r.out_file, "out-file");
  if (sink.text.empty()) return;
  t.raw("<parameter>\n").raw(sink.text).raw("</parameter>\n");
}

// The reader's names: "name" in a conductor sets both, in a medium only the
// medium's, and a section without "name" keeps the one before. An empty name
// can be had only while the reader still holds an empty one.
struct reader_names {
  std::string conductor, medium;
};

void write_net_name(text_out& t, const std::string& name, std::string& held, std::string* also,
                    const std::string& where) {
  if (name == held) return;
  if (name.empty() || !plain_word(name)) {
    t.lost().add("names the text form cannot hold (empty, a separator or a comment opening)", where);
    return;
  }
  t.raw("  name ").raw(name).raw("\n");
  held = name;
  if (also) *also = name;
}

void write_cuboid(text_out& t, const cuboid_t& c, const std::string& where) {
  t.raw(" basepoint").point(c.lower[0], c.lower[1], c.lower[2]);
  t.raw(" v1").point(t.edge(c.lower[0], c.upper[0], where), 0, 0);
  t.raw(" v2").point(0, t.edge(c.lower[1], c.upper[1], where), 0);
  t.raw(" hvector").point(0, 0, t.edge(c.lower[2], c.upper[2], where));
}

void write_prism(text_out& t, const nprism_t& p, std::size_t vertices, const std::string& where) {
  t.raw(" basepoint").point(0, 0, p.bottom);
  t.raw(" hvector").point(0, 0, t.edge(p.bottom, p.top, where)).raw(" <coord>");
  for (std::size_t k = 0; k < vertices; ++k) t.raw(" ").number(p.points[k][0]).raw(",").number(p.points[k][1]);
  t.raw(" </coord>");
}

void write_block_head(text_out& t, const char* tag, const wire_block& b, const std::string& where) {
  t.raw("  <").raw(tag).raw(">");
  if (!b.name.empty()) {
    if (!plain_word(b.name) || b.name.find('@') != std::string::npos)
      t.lost().add("block names the text form cannot hold (a separator, a comment opening or an \"@\")", where);
    else
      t.raw(" name ").raw(b.name);
  }
  if (b.layer == -1) t.lost().add("blocks of layer -1 (the text form's mark for a layer found by name)", where);
  t.raw(" layer ").integer(b.layer);
}

void write_conductor(text_out& t, const wire_net& n, reader_names& names) {
  t.raw("<conductor>\n");
  write_net_name(t, n.name, names.conductor, &names.medium, "conductor " + n.name);
  if (n.floating) t.raw("  floating\n");
  for (const wire_block* b : n.blocks) {
    const std::string where = "conductor " + n.name + ", block " + b->name;
    if (b->shape_kind == shape_cuboid) {
      write_block_head(t, "block", *b, where);
      write_cuboid(t, b->cuboid(), where);
      t.raw(" </block>\n");
    } else if (b->shape_kind == shape_cylinder) {
      const cylinder_t& c = b->cylinder();
      if (std::fabs(1.0 + c.radius.value) < 1e-10)
        t.lost().add("cylinders of radius -1 (the text form's mark for no radius)", where);
      write_block_head(t, "block", *b, where);
      t.raw(" basepoint").point(c.center[0], c.center[1], c.center[2]);
      t.raw(" radius ").number(c.radius).raw(" height ").number(2.0 * c.half_height.value).raw(" </block>\n");
    } else {
      const nprism_t& p = b->prism();
      if (p.size > 4) t.lost().add("conductor prisms of more than 4 vertices (the reader cuts them)", where);
      write_block_head(t, "poly", *b, where);
      write_prism(t, p, std::min<std::size_t>(p.size, 8), where);
      t.raw(" </poly>\n");
    }
  }
  t.raw("</conductor>\n");
}

void write_medium(text_out& t, const medium_net& n, reader_names& names) {
  t.raw("<medium>\n");
  write_net_name(t, n.name, names.medium, nullptr, "medium " + n.name);
  t.raw("  diel ").number(n.diel).raw("\n");
  for (const medium_block* b : n.blocks) {
    const std::string where = "medium " + n.name;
    if (b->shape_kind == shape_cuboid) {
      t.raw("  <block>");
      write_cuboid(t, b->cuboid(), where);
      if (b->side_tan != 0.0) t.raw(" side_tan ").number(b->side_tan);
      t.raw(" </block>\n");
    } else if (b->shape_kind == shape_prism && (b->prism().size == 3 || b->prism().size == 4)) {
      t.raw("  <poly>");
      write_prism(t, b->prism(), b->prism().size, where);
      if (b->side_tan != 0.0) t.raw(" side_tan ").number(b->side_tan);
      t.raw(" </poly>\n");
    } else {
      t.lost().add("dielectric cylinders and prisms of other than 3 or 4 vertices (left out)", where);
    }
  }
  t.raw("</medium>\n");
}

void write_plate(text_out& t, const circuit_layout::plate_medium& p) {
  t.raw("<plate_medium>\n");
  if (!p.name.empty()) t.word("  ", "name", p.name, "plate medium " + p.name);
  t.raw("  z_top ").number(p.z_top).raw("\n  diel ").number(p.diel).raw("\n</plate_medium>\n");
}

}  // namespace

text_write_summary write_text(const circuit_layout::raw& r, sea::writer& out, const std::string& comment) {
  losses lost;
  text_out t(out, lost);
  for (std::size_t from = 0; !comment.empty() && from <= comment.size();) {
    const std::size_t end = std::min(comment.find('\n', from), comment.size());
    t.raw("// ").raw(comment.substr(from, end - from)).raw("\n");
    from = end + 1;
  }
  t.raw("<cap3d>\n");
  write_window(t, r);
  write_layers(t, r);
  write_parameters(t, r);

  reader_names names;
  std::size_t next_plate = 0;
  for (const medium_net& net : r.medium_nets) {
    if (next_plate < r.plate_mediums.size() && net.blocks.empty() && r.plate_mediums[next_plate].name == net.name &&
        r.plate_mediums[next_plate].diel.value == net.diel.value) {
      write_plate(t, r.plate_mediums[next_plate++]);
      continue;
    }
    write_medium(t, net, names);
  }
  for (; next_plate < r.plate_mediums.size(); ++next_plate) {
    t.lost().add("plate media without their net (the text form makes one)", r.plate_mediums[next_plate].name);
    write_plate(t, r.plate_mediums[next_plate]);
  }
  for (const wire_net& net : r.wire_nets) write_conductor(t, net, names);

  std::vector<std::string> tasks(r.capacitance_tasks.begin(), r.capacitance_tasks.end());
  std::sort(tasks.begin(), tasks.end());
  if (!tasks.empty()) {
    t.raw("<task>\n");
    for (const std::string& task : tasks) {
      if (!plain_word(task)) {
        t.lost().add("names the text form cannot hold (empty, a separator or a comment opening)", "task " + task);
        continue;
      }
      t.raw("  <capacitance> ").raw(task).raw(" </capacitance>\n");
    }
    t.raw("</task>\n");
  }
  t.raw("</cap3d>\n");
  out.flush();
  return {t.bytes, lost.lines()};
}

std::string to_text(const circuit_layout::raw& layout, text_write_summary* summary) {
  sea::string_writer out;
  const text_write_summary s = write_text(layout, out);
  if (summary) *summary = s;
  return std::move(out.text);
}

text_write_summary write_text_file(const circuit_layout::raw& layout, const std::string& path,
                                   const std::string& comment) {
  auto fail = [&](const char* what) {
    return internal::write_failure("ERROR: (Text) ", what, path, "cannot write text cap3d file\n");
  };
  FILE* f = std::fopen(path.c_str(), "wb");
  if (!f) throw fail("cannot open");
  text_write_summary summary;
  try {
    sea::file_writer out(f);
    summary = write_text(layout, out, comment);
  } catch (...) {
    std::fclose(f);
    throw;
  }
  const bool bad = std::ferror(f) != 0;
  if (std::fclose(f) != 0 || bad) throw fail("short write on");
  return summary;
}

}  // namespace torva
