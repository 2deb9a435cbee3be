// torva convert IN OUT: a text layout to the binary form with the library's
// writer, or a binary layout to text with the library's text writer, which
// keeps every field the text form can hold (the reader's dump does not). The
// direction is told by the input's first bytes. OUT is written beside itself under a
// temporary name and renamed into place only when it is whole, so a failed
// conversion leaves an existing OUT as it was.
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <algorithm>
#include <string>
#include <vector>

#include "cli_common.h"
#include "commands.h"
#include "output_files.h"
#include "torva/foundation/errors.h"
#include "torva/layout/binary_writer.h"
#include "torva/layout/text_writer.h"
#include "torva/geometry/convex_decomposition.h"

namespace torva::cli {

namespace {

// The binary reader cuts every polygon into convex pieces, dielectric ones
// too, where the text reader takes a dielectric polygon as it stands. Writing
// the pieces a reader would make anyway changes nothing it gets, and lets a
// layout pass from text to binary and back to the same bytes.
void cut_dielectric_polygons(circuit_layout::raw& raw) {
  for (medium_net& net : raw.medium_nets) {
    std::vector<medium_block*> blocks;
    for (medium_block* b : net.blocks) {
      if (b->shape_kind != shape_prism) {
        blocks.push_back(b);
        continue;
      }
      const nprism_t& p = b->prism();
      nprism_large_t outline;
      outline.points.assign(p.points, p.points + std::min<std::uint64_t>(p.size, 8));
      outline.size = outline.points.size();
      outline.bottom = p.bottom;
      outline.top = p.top;
      std::vector<nprism_large_t> pieces;
      convex_decomposition(outline, pieces);
      for (const nprism_large_t& piece : pieces) {
        if (piece.size < 3 || piece.size > 8) continue;
        nprism_t solid;
        std::copy(piece.points.begin(), piece.points.end(), solid.points);
        solid.size = piece.size;
        solid.bottom = piece.bottom;
        solid.top = piece.top;
        shape_t shape;
        shape.solid = new_solid(solid);
        shape.shape_kind = shape_prism;
        raw.medium_blocks.emplace_back(shape, b->side_tan);
        raw.medium_blocks.back().net = &net;
        blocks.push_back(&raw.medium_blocks.back());
      }
    }
    net.blocks = std::move(blocks);
  }
}

struct convert_args {
  std::string in;
  std::string out;
  bool swapped = false;
  std::string note;
  int incline_slices = 4;
  bool force = false;
};

int run_convert(const convert_args& a) {
  // That OUT is not IN was checked with the log file, before anything was opened.
  refuse_overwrite(a.out, a.force);

  read_options how;
  how.incline_slices = a.incline_slices;
  const auto start = std::chrono::steady_clock::now();
  const loaded_layout in = read_layout(a.in, how);
  circuit_layout::raw& raw = in.layout->data;
  staged_output staged(a.out);

  if (in.binary) {
    // A writer of its own, not the reader's dump: the dump prints six
    // decimals and no boundary, and loses what this keeps.
    text_write_summary summary;
    try {
      summary = write_text_file(raw, staged.temp_path());
    } catch (const sea::base_error& e) {
      const std::string lines = take_errors();
      throw input_error(a.out + ": " + (lines.empty() ? std::string(e.what()) : lines));
    }
    staged.commit();
    std::printf("wrote %s: text form of the binary %s (%zu conductors, %zu blocks), %s, in %s\n", a.out.c_str(),
                a.in.c_str(), raw.wire_nets.size(), raw.wire_blocks.size(), format_bytes(double(summary.bytes)).c_str(),
                format_seconds(seconds_since(start)).c_str());
    for (const std::string& loss : summary.losses)
      std::fprintf(stderr, "torva: warning: the text form cannot carry: %s\n", loss.c_str());
    return exit_ok;
  }

  cut_dielectric_polygons(raw);
  binary_write_options options;
  options.swapped = a.swapped;
  options.note = a.note;
  binary_write_summary summary;
  try {
    summary = write_binary_file(raw, staged.temp_path(), options);
  } catch (const sea::base_error& e) {
    const std::string lines = take_errors();
    throw input_error(a.out + ": " + (lines.empty() ? std::string(e.what()) : lines));
  }
  staged.commit();
  std::printf("wrote %s: binary form of %s (%zu conductors, %zu blocks), %llu records, %s, in %s\n", a.out.c_str(),
              a.in.c_str(), raw.wire_nets.size(), raw.wire_blocks.size(), (unsigned long long)summary.records,
              format_bytes(double(summary.bytes)).c_str(), format_seconds(seconds_since(start)).c_str());
  if (summary.cylinders_as_cuboids != 0)
    std::printf("note: %llu cylinders were written as blocks of equal area (the binary form has no cylinder)\n",
                (unsigned long long)summary.cylinders_as_cuboids);
  return exit_ok;
}

}  // namespace

command add_convert(CLI::App& app) {
  auto* sub = app.add_subcommand("convert", "Convert a layout between text and binary (the input's form decides)");
  auto a = std::make_shared<convert_args>();
  sub->add_option("IN", a->in, "A cap3d layout, text or binary")->required();
  sub->add_option("OUT", a->out, "The file to write: binary for a text input, text for a binary one")->required();
  sub->add_flag("--force", a->force, "Replace OUT if it exists");
  sub->add_flag("--swapped", a->swapped, "Binary output with byte-swapped integers");
  sub->add_option("--note", a->note, "Binary output: a leading note record that readers skip");
  sub->add_option("--incline-slices", a->incline_slices, "Slices of a text conductor block with a side slope")
      ->capture_default_str();
  return {sub, [a] { return run_convert(*a); }, false,
          [a] { return run_files{{{"input file", a->in}}, {{"output", a->out}}}; }};
}

}  // namespace torva::cli
