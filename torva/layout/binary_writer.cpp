#include "torva/layout/binary_writer.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string_view>
#include <unordered_set>
#include <vector>

#include "torva/foundation/errors.h"
#include "torva/foundation/logger.h"
#include "torva/layout/cap3d_parser.h"
#include "torva/layout/internal/binary_fields.h"

namespace torva {

namespace {

// Record types of the format.
enum : unsigned char {
  note_record = 0,
  plate_medium_record = 1,
  layer_record = 2,
  window_record = 3,
  parameter_record = 4,
  task_record = 5,
  medium_begin_record = 6,
  medium_end_record = 7,
  conductor_begin_record = 8,
  conductor_end_record = 9,
  block_record = 10,
  polygon_record = 11,
};

constexpr std::size_t max_record = 32767;
constexpr std::size_t max_file_name = 127;  // the length byte of a parameter name is signed
constexpr double equal_area_half_side = 0.886226925452759;

[[noreturn]] void refuse(std::string_view why, std::string_view what) {
  sea::writer& out = *logger::instance().error;
  out.print("ERROR: (Binary) ");
  out.print(why);
  out.print(what.substr(0, 64));
  out.write('\n');
  out.flush();
  throw sea::fatal_error("BINARY WRITE ERROR.\n");
}

void check_name(const std::string& name, std::size_t limit = internal::binary_name_area - 1) {
  if (name.size() > limit) refuse("name too long for a binary cap3d file: ", name);
}

void check_shape(const shape_t& shape) {
  if (shape.shape_kind > shape_prism || shape.solid == nullptr)
    refuse("not a solid, can't be written: shape kind ", std::to_string(shape.shape_kind));
  if (shape.shape_kind == shape_prism && shape.prism().size > 8)
    refuse("prism of too many vertices: ", std::to_string(shape.prism().size));
}

// Everything that can't be written is found before a byte is written.
void check_layout(const circuit_layout::raw& layout, const binary_write_options& options) {
  check_name(options.note);
  check_name(layout.window_name);
  for (const auto& [id, name] : layout.layer_names) check_name(name);
  for (const auto& [name, type] : layout.layer_types) check_name(name);
  for (const auto& plate : layout.plate_mediums) check_name(plate.name);
  for (const medium_net& net : layout.medium_nets) {
    check_name(net.name);
    for (const medium_block* b : net.blocks) check_shape(*b);
  }
  for (const wire_net& net : layout.wire_nets) {
    check_name(net.name);
    for (const wire_block* b : net.blocks) {
      check_name(b->name);
      check_shape(*b);
    }
  }
  for (const std::string& task : layout.capacitance_tasks) check_name(task);
  if (options.parameters) {
    check_name(layout.log_file, max_file_name);
    check_name(layout.out_file, max_file_name);
  }
}

// Builds one record at a time and writes it whole.
class record_writer {
 public:
  record_writer(sea::writer& out, bool swapped, binary_write_summary& summary)
      : out_(out), swapped_(swapped), summary_(summary) {
    record_.reserve(256);
  }

  void header() {
    out_.write(Cap3dParser::BIN_FLAG.data(), Cap3dParser::BIN_FLAG.size());
    out_.write(swapped_ ? '\1' : '\0');
    summary_.bytes += Cap3dParser::BIN_FLAG.size() + 1;
  }

  void begin(unsigned char type) {
    record_.assign(2, '\0');
    record_.push_back(static_cast<char>(type));
  }

  void u8(unsigned char v) { record_.push_back(static_cast<char>(v)); }
  void i16(std::int16_t v) {
    std::uint16_t bits = static_cast<std::uint16_t>(v);
    if (swapped_) bits = __builtin_bswap16(bits);
    raw(&bits, sizeof bits);
  }
  void i32(std::int32_t v) {
    std::uint32_t bits = static_cast<std::uint32_t>(v);
    if (swapped_) bits = __builtin_bswap32(bits);
    raw(&bits, sizeof bits);
  }
  void f32(float v) { raw(&v, sizeof v); }
  void f64(double v) { raw(&v, sizeof v); }
  void text(const std::string& s) { record_.append(s); }

  void end() {
    // Names are checked, so no record comes near the limit.
    std::int16_t length = static_cast<std::int16_t>(std::min(record_.size(), max_record));
    std::uint16_t bits = static_cast<std::uint16_t>(length);
    if (swapped_) bits = __builtin_bswap16(bits);
    std::memcpy(record_.data(), &bits, sizeof bits);
    out_.write(record_.data(), record_.size());
    ++summary_.records;
    summary_.bytes += record_.size();
  }

 private:
  void raw(const void* p, std::size_t n) { record_.append(static_cast<const char*>(p), n); }

  sea::writer& out_;
  bool swapped_;
  binary_write_summary& summary_;
  std::string record_;
};

void write_solid(record_writer& w, const shape_t& shape, const std::string& name, short layer,
                 binary_write_summary& summary) {
  if (shape.shape_kind == shape_prism) {
    const nprism_t& p = shape.prism();
    w.begin(polygon_record);
    w.f64(p.bottom.value);
    w.f64(p.top.value - p.bottom.value);
    w.u8(static_cast<unsigned char>(p.size));
    for (std::uint64_t k = 0; k < p.size; ++k) {
      w.f64(p.points[k][0].value);
      w.f64(p.points[k][1].value);
    }
  } else {
    point3 low;
    point3 high;
    if (shape.shape_kind == shape_cylinder) {
      // No cylinder in this form: the square of equal area stands for it.
      const cylinder_t& c = shape.cylinder();
      const double d = c.radius.value * equal_area_half_side;
      const double h = c.half_height.value;
      low = point3{c.center[0] - d, c.center[1] - d, c.center[2] - h};
      high = point3{c.center[0] + d, c.center[1] + d, c.center[2] + h};
      ++summary.cylinders_as_cuboids;
    } else {
      low = shape.cuboid().lower;
      high = shape.cuboid().upper;
    }
    w.begin(block_record);
    for (int c = 0; c < 3; ++c) w.f64(low[c].value);
    for (int c = 0; c < 3; ++c) w.f64(high[c].value - low[c].value);
  }
  w.i16(layer);
  w.text(name);
  w.end();
}

int layer_type_code(const std::string& word) {
  static const char* const words[] = {"dielectric", "interconnect", "via", "substrate"};
  for (int k = 0; k < 4; ++k)
    if (word == words[k]) return k;
  return -1;
}

void write_layers(record_writer& w, const circuit_layout::raw& layout) {
  struct layer {
    short id;
    std::string name;
    int type;
    double wmin = -1.0;
  };
  std::vector<layer> records;
  std::unordered_set<std::string> typed;
  auto type_of = [&](const std::string& name) {
    const auto found = layout.layer_types.find(name);
    return found == layout.layer_types.end() ? -1 : layer_type_code(found->second);
  };
  for (const auto& [id, name] : layout.layer_names) {
    const int type = type_of(name);
    records.push_back(layer{id, name, type});
    if (type >= 0) typed.insert(name);
  }
  // The reader keeps the first name of an id, so a further record under an id
  // already written adds its type and its wmin and nothing else.
  const short spare = layout.layer_names.empty() ? short(-1) : layout.layer_names.begin()->first;
  std::vector<std::string> untyped;
  for (const auto& [name, word] : layout.layer_types)
    if (!typed.count(name) && layer_type_code(word) >= 0) untyped.push_back(name);
  std::sort(untyped.begin(), untyped.end());
  for (const std::string& name : untyped) records.push_back(layer{spare, name, type_of(name)});
  for (std::size_t k = 0; k < layout.layer_wmins.size(); ++k) {
    if (k == records.size()) records.push_back(layer{spare, std::string(), -1});
    records[k].wmin = layout.layer_wmins[k].value;
  }

  for (const layer& l : records) {
    w.begin(layer_record);
    w.i16(l.id);
    w.u8(l.type < 0 ? 255 : static_cast<unsigned char>(l.type));
    w.u8(0);  // flat: none
    w.f64(l.wmin);
    w.f64(0.0);  // thickness: none
    w.text(l.name);
    w.end();
  }
}

void write_parameters(record_writer& w, const circuit_layout::raw& layout) {
  w.begin(parameter_record);
  const double floats[] = {layout.c_ratio,           layout.b_ratio,           layout.b_net_ratio,
                           layout.self_precision,    layout.coupling_precision, layout.blk_self_precision,
                           layout.blk_coupling_precision};
  for (int k = 0; k < 7; ++k) {
    w.u8(static_cast<unsigned char>(k + 1));
    w.f32(static_cast<float>(floats[k]));
  }
  w.u8(8);
  w.i32(layout.seed);
  w.u8(9);
  w.i16(static_cast<std::int16_t>(layout.thread_num));
  w.u8(10);
  w.u8(static_cast<unsigned char>(static_cast<signed char>(layout.spice)));
  w.u8(11);
  w.u8(static_cast<unsigned char>(static_cast<signed char>(layout.walk_type)));
  // An empty file name is left out: it would change nothing a client keeps,
  // and the text dump of an empty one does not read back.
  const std::pair<unsigned char, const std::string*> files[] = {{12, &layout.log_file}, {13, &layout.out_file}};
  for (const auto& [id, name] : files) {
    if (name->empty()) continue;
    w.u8(id);
    w.u8(static_cast<unsigned char>(name->size()));
    w.text(*name);
  }
  w.u8(14);
  w.f32(static_cast<float>(layout.outmincap));
  w.end();
}

void write_plate(record_writer& w, const circuit_layout::plate_medium& plate) {
  w.begin(plate_medium_record);
  w.f64(plate.z_top.value);
  w.f32(static_cast<float>(plate.diel.value));
  w.text(plate.name);
  w.end();
}

void write_net_mark(record_writer& w, unsigned char type, float diel, const std::string& name) {
  w.begin(type);
  w.f32(diel);
  w.text(name);
  w.end();
}

void write_net_mark(record_writer& w, unsigned char type, bool floating, const std::string& name) {
  w.begin(type);
  w.u8(floating ? 1 : 0);
  w.text(name);
  w.end();
}

}  // namespace

binary_write_summary write_binary(const circuit_layout::raw& layout, sea::writer& out,
                                  const binary_write_options& options) {
  check_layout(layout, options);
  binary_write_summary summary;
  record_writer w(out, options.swapped, summary);
  w.header();

  if (!options.note.empty()) {
    w.begin(note_record);
    w.text(options.note);
    w.end();
  }

  if (layout.boundary == 1 || layout.boundary == 2) {
    w.begin(window_record);
    for (int c = 0; c < 3; ++c) w.f64(layout.window.lower[c].value);
    for (int c = 0; c < 3; ++c) w.f64(layout.window.upper[c].value);
    w.u8(static_cast<unsigned char>(layout.boundary));
    w.text(layout.window_name);
    w.end();
  }

  write_layers(w, layout);
  if (options.parameters) write_parameters(w, layout);

  // Dielectrics in the order of their nets, so that a reader appends them in
  // the same order; a plate medium's own net is its plate record.
  std::size_t next_plate = 0;
  const auto& plates = layout.plate_mediums;
  for (const medium_net& net : layout.medium_nets) {
    if (next_plate < plates.size() && net.blocks.empty() && plates[next_plate].name == net.name &&
        plates[next_plate].diel.value == net.diel.value) {
      write_plate(w, plates[next_plate++]);
      continue;
    }
    const float diel = static_cast<float>(net.diel.value);
    if (options.begin_records) write_net_mark(w, medium_begin_record, diel, net.name);
    for (const medium_block* b : net.blocks) write_solid(w, *b, std::string(), -1, summary);
    write_net_mark(w, medium_end_record, diel, net.name);
  }
  for (; next_plate < plates.size(); ++next_plate) write_plate(w, plates[next_plate]);

  for (const wire_net& net : layout.wire_nets) {
    if (options.begin_records) write_net_mark(w, conductor_begin_record, net.floating, net.name);
    for (const wire_block* b : net.blocks) write_solid(w, *b, b->name, b->layer, summary);
    write_net_mark(w, conductor_end_record, net.floating, net.name);
  }

  std::vector<std::string> tasks(layout.capacitance_tasks.begin(), layout.capacitance_tasks.end());
  std::sort(tasks.begin(), tasks.end());
  for (const std::string& task : tasks) {
    w.begin(task_record);
    w.u8(0);
    w.text(task);
    w.end();
  }

  if (summary.cylinders_as_cuboids > 0) {
    sea::writer& warn = *logger::instance().warning;
    warn("WARNING: (Binary) %llu cylinders written as blocks of equal area: the binary form holds no cylinder.\n",
         static_cast<unsigned long long>(summary.cylinders_as_cuboids));
    warn.flush();
  }
  out.flush();
  return summary;
}

std::string to_binary(const circuit_layout::raw& layout, const binary_write_options& options) {
  sea::string_writer out;
  write_binary(layout, out, options);
  return std::move(out.text);
}

binary_write_summary write_binary_file(const circuit_layout::raw& layout, const std::string& path,
                                       const binary_write_options& options) {
  auto fail = [&](const char* what) {
    const int code = errno;
    sea::writer& out = *logger::instance().error;
    out.print("ERROR: (Binary) ");
    out.print(what);
    out.print(" \"");
    out.print(path);
    out.print("\": ");
    out.print(std::strerror(code));
    out.write('\n');
    out.flush();
    return sea::file_error("cannot write binary cap3d file\n");
  };
  check_layout(layout, options);  // before the file is replaced
  FILE* f = std::fopen(path.c_str(), "wb");
  if (!f) throw fail("cannot open");
  binary_write_summary summary;
  try {
    sea::file_writer out(f);  // only flushes when it goes
    summary = write_binary(layout, out, options);
  } catch (...) {
    std::fclose(f);
    throw;
  }
  const bool bad = std::ferror(f) != 0;
  if (std::fclose(f) != 0 || bad) throw fail("short write on");
  return summary;
}

binary_write_summary write_binary_file(const generated_layout& layout, const std::string& path,
                                       const build_options& build, const binary_write_options& options) {
  circuit_layout::raw raw;
  build_layout(layout, raw, build);
  return write_binary_file(raw, path, options);
}

bool convert_text_to_binary(const std::string& text_path, const std::string& binary_path,
                            const binary_write_options& options, int incline_slices) {
  circuit_layout::raw layout;
  Cap3dParser parser(layout, incline_slices, true, false);
  if (!parser.parse(text_path, std::string())) return false;
  write_binary_file(layout, binary_path, options);
  return true;
}

}  // namespace torva
