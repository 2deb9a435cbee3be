#include "torva/extract/report.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cmath>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <set>
#include <string>
#include <vector>

#include "torva/extract/staged_file.h"
#include "torva/foundation/errors.h"

namespace torva {

namespace {

// A report written through a staged file, with a stream over its temporary.
class report_file {
 public:
  explicit report_file(const std::string& path) : staged_(path) {
    stream_ = std::fopen(staged_.temp_path().c_str(), "w");
    if (stream_ == nullptr) fail_to_write(path, std::strerror(errno));
  }
  ~report_file() {
    if (stream_ != nullptr) std::fclose(stream_);
  }
  report_file(const report_file&) = delete;
  report_file& operator=(const report_file&) = delete;

  void print(const std::string& s) { std::fwrite(s.data(), 1, s.size(), stream_); }

  void printf(const char* format, ...) __attribute__((format(printf, 2, 3))) {
    va_list args;
    va_start(args, format);
    std::vfprintf(stream_, format, args);
    va_end(args);
  }

  void commit() {
    // A full disk shows at the flush or the close; the rename happens only after both.
    int e = 0;
    errno = 0;
    if (std::fflush(stream_) != 0 || std::ferror(stream_) != 0) e = errno != 0 ? errno : EIO;
    if (std::fclose(stream_) != 0 && e == 0) e = errno != 0 ? errno : EIO;
    stream_ = nullptr;
    if (e != 0) fail_to_write(staged_.path(), std::strerror(e));
    staged_.commit();
  }

 private:
  staged_file staged_;
  FILE* stream_ = nullptr;
};

// The writers read every row by the header's promise; a result that breaks it
// is a fault of the caller, said before anything is written.
void check_shape(const extract_result& r) {
  const std::size_t rows = r.masters.size(), cols = r.nets.size();
  auto bad = [](const std::string& what) {
    const std::string message = "the extraction result is inconsistent: " + what;
    throw sea::fatal_error(message.c_str());
  };
  if (r.matrix.size() != rows || r.stderr_matrix.size() != rows)
    bad("the matrix rows do not match the " + std::to_string(rows) + " masters");
  for (std::size_t i = 0; i < rows; ++i)
    if (r.matrix[i].size() != cols || r.stderr_matrix[i].size() != cols)
      bad("row " + std::to_string(i) + " does not have one entry per net (" + std::to_string(cols) + ")");
  if (r.walks.size() != rows || r.hops.size() != rows) bad("walks or hops are not given per master");
  if (r.has_ground && (cols == 0 || r.nets.back() != "GROUND")) bad("the GROUND column is missing");
}

std::string number(const char* format, double v) {
  char b[64];
  std::snprintf(b, sizeof b, format, v);
  return b;
}

// A name as a column or row label of the out-file: quoted when blank or when
// it holds white space, so that every row still splits into its fields.
std::string label(const std::string& name) {
  const bool plain = !name.empty() && std::none_of(name.begin(), name.end(), [](unsigned char c) {
    return c <= ' ' || c == '"' || c == 0x7f;
  });
  if (plain) return name;
  std::string s = "\"";
  for (char c : name) {
    if (c == '"' || c == '\\') s += '\\';
    s += (static_cast<unsigned char>(c) < ' ' || c == 0x7f) ? '?' : c;
  }
  return s + "\"";
}

// The entries of `m` in rows labelled by the masters and columns by the nets.
void write_matrix(report_file& f, const extract_result& r, const std::vector<std::vector<double>>& m) {
  std::size_t first = 6;
  for (const std::string& name : r.masters) first = std::max(first, label(name).size());
  std::vector<std::size_t> width(r.nets.size(), 13);
  for (std::size_t j = 0; j < r.nets.size(); ++j) width[j] = std::max(width[j], label(r.nets[j]).size());
  f.printf("%-*s", int(first), "");
  for (std::size_t j = 0; j < r.nets.size(); ++j) f.printf("  %*s", int(width[j]), label(r.nets[j]).c_str());
  f.print("\n");
  for (std::size_t i = 0; i < r.masters.size(); ++i) {
    f.printf("%-*s", int(first), label(r.masters[i]).c_str());
    for (std::size_t j = 0; j < r.nets.size(); ++j) f.printf("  %*.6g", int(width[j]), m[i][j]);
    f.print("\n");
  }
}

// A JSON string: quotes, backslashes and control characters escaped; bytes
// that are not valid UTF-8 are escaped one by one so the document stays valid.
std::string json_string(const std::string& s) {
  std::string out = "\"";
  const auto* p = reinterpret_cast<const unsigned char*>(s.data());
  const std::size_t n = s.size();
  char b[8];
  for (std::size_t i = 0; i < n;) {
    const unsigned char c = p[i];
    if (c == '"') {
      out += "\\\"";
    } else if (c == '\\') {
      out += "\\\\";
    } else if (c == '\n') {
      out += "\\n";
    } else if (c == '\t') {
      out += "\\t";
    } else if (c == '\r') {
      out += "\\r";
    } else if (c < 0x20 || c == 0x7f) {
      std::snprintf(b, sizeof b, "\\u%04x", unsigned(c));
      out += b;
    } else if (c < 0x80) {
      out += char(c);
    } else {
      // The length of a well-formed sequence starting here, or 0.
      std::size_t len = c >= 0xc2 && c <= 0xdf ? 2 : c >= 0xe0 && c <= 0xef ? 3 : c >= 0xf0 && c <= 0xf4 ? 4 : 0;
      if (len != 0 && i + len <= n) {
        for (std::size_t k = 1; k < len; ++k)
          if ((p[i + k] & 0xc0) != 0x80) len = 0;
        // Overlong three-byte forms, surrogates and code points past U+10FFFF.
        if (len == 3 && ((c == 0xe0 && p[i + 1] < 0xa0) || (c == 0xed && p[i + 1] >= 0xa0))) len = 0;
        if (len == 4 && ((c == 0xf0 && p[i + 1] < 0x90) || (c == 0xf4 && p[i + 1] >= 0x90))) len = 0;
      } else {
        len = 0;
      }
      if (len == 0) {
        std::snprintf(b, sizeof b, "\\u%04x", unsigned(c));
        out += b;
      } else {
        out.append(s, i, len);
        i += len;
        continue;
      }
    }
    ++i;
  }
  return out + "\"";
}

// JSON has no NaN or infinity: such a value becomes null.
std::string json_number(double v) { return std::isfinite(v) ? number("%.17g", v) : "null"; }

template <class T, class F>
std::string json_array(const std::vector<T>& v, F item) {
  std::string s = "[";
  for (std::size_t i = 0; i < v.size(); ++i) s += (i == 0 ? "" : ", ") + item(v[i]);
  return s + "]";
}

// A SPICE node name: characters that split a card or start a comment or an
// expression in common dialects (white space, = ( ) , ; $ * ' " { } and
// non-ASCII bytes) become '_'. A name that would then clash with another, or
// with the ground node 0, gets a numbered suffix.
std::string spice_node(const std::string& name) {
  std::string s;
  for (char ch : name) {
    const unsigned char c = static_cast<unsigned char>(ch);
    const bool safe = std::isalnum(c) != 0 || std::strchr("_.:/[]<>-+#@!%&|~^?", ch) != nullptr;
    s += (safe && c != 0) ? ch : '_';
  }
  return s.empty() ? "_" : s;
}

}  // namespace

void write_out_file(const std::string& path, const std::string& layout_path, const extract_result& r) {
  check_shape(r);
  report_file f(path);
  f.print("torva capacitance extraction\n");
  f.printf("layout              %s\n", layout_path.c_str());
  f.print("units               lengths in um, capacitance in fF\n");
  f.printf("dielectric          %s (relative permittivity)\n", r.dielectric.c_str());
  f.printf("stop distance       %.6g um\n", r.stop_distance);
  f.printf("self precision      %.6g (relative standard error of each C_ii)\n", r.self_precision);
  f.printf("coupling precision  %.6g\n", r.coupling_precision);
  f.printf("threads             %d\n", r.threads);
  f.printf("seed                %llu\n", (unsigned long long)r.seed);
  f.printf("search pair         %u\n", unsigned(r.spacemgr_type));
  f.printf("setup seconds       %.6g\n", r.setup_seconds);
  f.printf("walking seconds     %.6g\n", r.seconds);
  f.printf("stopped by          %s\n", r.stopped_by.c_str());
  for (const std::string& w : r.warnings) f.printf("warning             %s\n", w.c_str());

  f.print("\nmasters (C_ii and its standard error in fF; relative error reached against the goal)\n");
  std::size_t first = 6;
  for (const std::string& name : r.masters) first = std::max(first, label(name).size());
  f.printf("%-*s  %13s  %13s  %12s  %10s  %11s  %11s  %s\n", int(first), "name", "C_ii", "stderr", "walks",
           "hops/walk", "rel.error", "goal", "stopped by");
  for (std::size_t i = 0; i < r.masters.size(); ++i) {
    double self = 0.0, err = 0.0;
    for (std::size_t j = 0; j < r.nets.size(); ++j)
      if (r.nets[j] == r.masters[i]) {
        self = r.matrix[i][j];
        err = r.stderr_matrix[i][j];
      }
    const double reached = i < r.self_error.size() ? r.self_error[i] : (self != 0.0 ? err / std::fabs(self) : 0.0);
    const std::string why = i < r.master_stopped_by.size() ? r.master_stopped_by[i] : r.stopped_by;
    f.printf("%-*s  %13.6g  %13.6g  %12llu  %10.4g  %11.4g  %11.4g  %s\n", int(first), label(r.masters[i]).c_str(),
             self, err, (unsigned long long)r.walks[i], r.hops[i], reached, r.self_precision, why.c_str());
  }

  f.printf("\nMaxwell capacitance matrix in fF (rows: masters, columns: nets%s)\n",
           r.has_ground ? ", GROUND the Dirichlet window" : "");
  write_matrix(f, r, r.matrix);
  f.print("\nstandard error of each entry in fF\n");
  write_matrix(f, r, r.stderr_matrix);
  f.commit();
}

void write_json(const std::string& path, const extract_result& r) {
  check_shape(r);
  report_file f(path);
  auto row = [](const std::vector<double>& v) { return json_array(v, json_number); };
  f.print("{\"unit\": \"fF\",\n");
  f.print(" \"nets\": " + json_array(r.nets, json_string) + ",\n");
  f.print(" \"masters\": " + json_array(r.masters, json_string) + ",\n");
  f.print(" \"matrix\": " + json_array(r.matrix, row) + ",\n");
  f.print(" \"stderr\": " + json_array(r.stderr_matrix, row) + ",\n");
  f.print(" \"walks\": " +
          json_array(r.walks, [](std::uint64_t w) { return std::to_string(w); }) + ",\n");
  f.print(" \"hops\": " + json_array(r.hops, json_number) + ",\n");
  f.print(" \"seconds\": " + json_number(r.seconds) + ",\n");
  f.print(" \"stopped_by\": " + json_string(r.stopped_by) + "}\n");
  f.commit();
}

std::size_t write_spice(const std::string& path, const std::string& layout_path, const extract_result& r,
                        double outmincap) {
  check_shape(r);
  const std::size_t conductors = r.has_ground ? r.nets.size() - 1 : r.nets.size();

  // Node names, unique and never the ground node.
  std::vector<std::string> node(conductors);
  std::set<std::string> taken{"0"};
  for (std::size_t j = 0; j < conductors; ++j) {
    const std::string base = spice_node(r.nets[j]);
    std::string name = base;
    for (int k = 2; !taken.insert(name).second; ++k) name = base + "_" + std::to_string(k);
    node[j] = name;
  }

  auto master_row = [&](const std::string& net) -> std::ptrdiff_t {
    for (std::size_t i = 0; i < r.masters.size(); ++i)
      if (r.masters[i] == net) return std::ptrdiff_t(i);
    return -1;
  };
  auto column = [&](const std::string& net) -> std::ptrdiff_t {
    for (std::size_t j = 0; j < conductors; ++j)
      if (r.nets[j] == net) return std::ptrdiff_t(j);
    return -1;
  };

  struct card {
    std::size_t a, b;  // columns; b == conductors for the ground node
    double farads;
  };
  std::vector<card> cards;
  std::size_t dropped = 0;
  for (std::size_t i = 0; i < r.masters.size(); ++i) {
    const std::ptrdiff_t a = column(r.masters[i]);
    if (a < 0) continue;
    for (std::size_t b = 0; b < conductors; ++b) {
      if (b == std::size_t(a)) continue;
      // A pair of masters comes once, from the row of the one listed first.
      const std::ptrdiff_t other = master_row(r.nets[b]);
      if (other >= 0 && std::size_t(other) < i) continue;
      double value = std::fabs(r.matrix[i][b]);
      if (other >= 0) value = 0.5 * (value + std::fabs(r.matrix[std::size_t(other)][std::size_t(a)]));
      if (!(value >= outmincap) || value == 0.0) {
        ++dropped;
        continue;
      }
      cards.push_back({std::size_t(a), b, value * 1e-15});
    }
  }
  // Every master's capacitance to the window, whatever its size: leaving it
  // out would change the load the net sees.
  if (r.has_ground)
    for (std::size_t i = 0; i < r.masters.size(); ++i) {
      const std::ptrdiff_t a = column(r.masters[i]);
      if (a >= 0) cards.push_back({std::size_t(a), conductors, std::fabs(r.matrix[i][conductors]) * 1e-15});
    }

  report_file f(path);
  f.printf("* torva capacitance netlist of %s\n", layout_path.c_str());
  f.print("* values in farads (the extraction's fF times 1e-15); node 0 is the grounded window\n");
  f.printf("* %zu couplings left out: below outmincap %.6g fF in magnitude, or none found\n", dropped, outmincap);
  for (std::size_t j = 0; j < conductors; ++j)
    if (node[j] != r.nets[j]) f.printf("* node %s is net %s\n", node[j].c_str(), json_string(r.nets[j]).c_str());
  std::size_t k = 0;
  for (const card& c : cards)
    f.printf("C%zu %s %s %.6e\n", ++k, node[c.a].c_str(), c.b == conductors ? "0" : node[c.b].c_str(), c.farads);
  f.print(".end\n");
  f.commit();
  return dropped;
}

}  // namespace torva
