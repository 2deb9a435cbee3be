// The binary writer: everything that can't be written is refused before a
// byte is, then the records go out in the file's order
// (internal/binary_record_writer.h makes each); and the file functions.
#include "torva/layout/binary_writer.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string_view>
#include <vector>

#include "torva/foundation/errors.h"
#include "torva/foundation/logger.h"
#include "torva/layout/cap3d_parser.h"
#include "torva/layout/internal/binary_fields.h"
#include "torva/layout/internal/binary_record_writer.h"
#include "torva/layout/internal/write_failure.h"

namespace torva {

namespace {

using internal::record_writer;
using internal::write_layers;
using internal::write_net_mark;
using internal::write_parameters;
using internal::write_plate;
using internal::write_solid;
using internal::note_record;
using internal::window_record;
using internal::task_record;
using internal::medium_begin_record;
using internal::medium_end_record;
using internal::conductor_begin_record;
using internal::conductor_end_record;

constexpr std::size_t max_file_name = 127;  // the length byte of a parameter name is signed

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
    return internal::write_failure("ERROR: (Binary) ", what, path, "cannot write binary cap3d file\n");
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
