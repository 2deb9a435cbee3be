// The generated layout written as cap3d text, in large pieces to any writer
// or to a file.
#include "torva/layout/generated_text.h"

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "torva/foundation/errors.h"
#include "torva/foundation/logger.h"
#include "torva/layout/generator.h"

namespace torva {

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

}  // namespace torva
