#include "torva/import/cap3d_text_writer.h"

#include <cerrno>
#include <charconv>
#include <cstdio>
#include <cstring>
#include <set>

#include "torva/foundation/errors.h"
#include "torva/foundation/logger.h"

namespace torva {

namespace {

// Collects the text and hands it on in large pieces.
class text_out {
 public:
  explicit text_out(sea::writer& out) : out_(out) { buf_.reserve(1 << 16); }
  ~text_out() { drain(); }
  text_out& operator<<(std::string_view s) {
    buf_.append(s);
    if (buf_.size() >= (1 << 16)) drain();
    return *this;
  }
  text_out& operator<<(double v) {
    char b[32];
    const auto r = std::to_chars(b, b + sizeof b, v);
    buf_.append(b, r.ptr);
    return *this;
  }
  text_out& point(double x, double y, double z) { return *this << "(" << x << "," << y << "," << z << ")"; }
  void drain() {
    if (!buf_.empty()) out_.write(buf_.data(), buf_.size());
    buf_.clear();
  }

 private:
  sea::writer& out_;
  std::string buf_;
};

void write_shape(text_out& t, const shape_t& s, const std::string* name, short layer, bool conductor) {
  auto head = [&](const char* tag) {
    t << tag;
    if (name != nullptr && !name->empty()) t << " name " << *name;
    if (conductor && layer >= 0) t << " layer " << double(layer);
  };
  switch (s.shape_kind) {
    case shape_cylinder: {
      const cylinder_t& c = s.cylinder();
      head("<block>");
      t << " basepoint";
      t.point(c.center[0].value, c.center[1].value, c.center[2].value);
      t << " radius " << c.radius.value << " height " << 2.0 * c.half_height.value << " </block>\n";
      return;
    }
    case shape_prism: {
      const nprism_t& p = s.prism();
      head("<poly>");
      t << " basepoint";
      t.point(0.0, 0.0, p.bottom.value);
      t << " hvector";
      t.point(0.0, 0.0, p.top.value - p.bottom.value);
      t << " <coord>";
      const std::uint64_t n = p.size < 8 ? p.size : 8;
      for (std::uint64_t i = 0; i < n; ++i) t << " " << p.points[i][0].value << " " << p.points[i][1].value;
      // A dielectric polygon is read as four vertices: a triangle's first closes it.
      if (!conductor && n == 3) t << " " << p.points[0][0].value << " " << p.points[0][1].value;
      t << " </coord> </poly>\n";
      return;
    }
    default: {
      const cuboid_t& c = s.cuboid();
      head("<block>");
      t << " basepoint";
      t.point(c.lower[0].value, c.lower[1].value, c.lower[2].value);
      t << " v1";
      t.point(c.upper[0].value - c.lower[0].value, 0.0, 0.0);
      t << " v2";
      t.point(0.0, c.upper[1].value - c.lower[1].value, 0.0);
      t << " hvector";
      t.point(0.0, 0.0, c.upper[2].value - c.lower[2].value);
      t << " </block>\n";
    }
  }
}

}  // namespace

void write_cap3d_text(const circuit_layout::raw& d, sea::writer& out, const std::string& comment) {
  text_out t(out);
  if (!comment.empty()) {
    std::size_t from = 0;
    while (from <= comment.size()) {
      const std::size_t end = comment.find('\n', from);
      t << "// " << comment.substr(from, end == std::string::npos ? std::string::npos : end - from) << "\n";
      if (end == std::string::npos) break;
      from = end + 1;
    }
  }
  t << "<cap3d>\n";
  if (d.boundary == 1 || d.boundary == 2) {
    t << "<window>";
    if (!d.window_name.empty()) t << " name " << d.window_name;
    t << " v1";
    t.point(d.window.lower[0].value, d.window.lower[1].value, d.window.lower[2].value);
    t << " v2";
    t.point(d.window.upper[0].value, d.window.upper[1].value, d.window.upper[2].value);
    t << (d.boundary == 1 ? " dirichlet" : " neumann") << " </window>\n";
  }
  for (const auto& [id, name] : d.layer_names) {
    const auto type = d.layer_types.find(name);
    t << "<layer> name " << name << " type " << (type == d.layer_types.end() ? "interconnect" : type->second)
      << " id " << double(id) << " </layer>\n";
  }
  std::string params;
  auto param = [&](const char* key, double v) {
    if (v == 0.0) return;
    char b[32];
    const auto r = std::to_chars(b, b + sizeof b, v);
    params += std::string(" ") + key + " " + std::string(b, r.ptr);
  };
  param("self-precision", d.self_precision);
  param("coupling-precision", d.coupling_precision);
  param("c-ratio", d.c_ratio);
  param("thread-num", d.thread_num);
  param("walk-type", d.walk_type);
  param("seed", d.seed);
  param("blk-self-precision", d.blk_self_precision);
  param("blk-coupling-precision", d.blk_coupling_precision);
  param("b-net-ratio", d.b_net_ratio);
  param("b-ratio", d.b_ratio);
  param("outmincap", d.outmincap);
  if (!d.log_file.empty()) params += " log-file " + d.log_file;
  if (!d.out_file.empty()) params += " out-file " + d.out_file;
  if (d.spice != 0) params += " spice on";
  if (!params.empty()) t << "<parameter>" << params << " </parameter>\n";
  for (const auto& p : d.plate_mediums)
    t << "<plate_medium> name " << p.name << " z_top " << p.z_top.value << " diel " << p.diel.value
      << " </plate_medium>\n";
  for (const medium_net& m : d.medium_nets) {
    if (m.blocks.empty()) continue;  // a plate medium's body, or a body of nothing
    t << "<medium> name " << m.name << " diel " << m.diel.value << "\n";
    for (const medium_block* b : m.blocks) write_shape(t, *b, nullptr, -1, false);
    t << "</medium>\n";
  }
  for (const wire_net& n : d.wire_nets) {
    t << "<conductor> name " << n.name << (n.floating ? " floating" : "") << "\n";
    for (const wire_block* b : n.blocks) write_shape(t, *b, &b->name, b->layer, true);
    t << "</conductor>\n";
  }
  if (!d.capacitance_tasks.empty()) {
    // In the order of the nets, then any others by name, so the file is the same each time.
    std::set<std::string> rest(d.capacitance_tasks.begin(), d.capacitance_tasks.end());
    t << "<task>\n";
    for (const wire_net& n : d.wire_nets)
      if (rest.erase(n.name)) t << "  <capacitance> " << n.name << " </capacitance>\n";
    for (const std::string& name : rest) t << "  <capacitance> " << name << " </capacitance>\n";
    t << "</task>\n";
  }
  t << "</cap3d>\n";
  t.drain();
  out.flush();
}

namespace {

class checked_file_writer : public sea::file_writer {
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

[[noreturn]] void fail(const char* what, const std::string& path, int error) {
  sea::writer& err = *logger::instance().error;
  err("ERROR: %s \"%s\": %s.", what, path.c_str(), std::strerror(error));
  err("\n");
  err.flush();
  throw sea::file_error("Cannot write layout file.\n");
}

}  // namespace

void write_cap3d_text_file(const circuit_layout::raw& layout, const std::string& path, const std::string& comment) {
  std::FILE* f = std::fopen(path.c_str(), "wb");
  if (f == nullptr) fail("Failed to open", path, errno);
  bool failed;
  {
    checked_file_writer out(f);
    write_cap3d_text(layout, out, comment);
    failed = out.failed || std::ferror(f);
  }
  const int error = errno;
  if (std::fclose(f) != 0) failed = true;
  if (failed) fail("Failed to write", path, error ? error : EIO);
}

}  // namespace torva
