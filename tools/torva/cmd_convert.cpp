// torva convert IN OUT: a text layout to the binary form with the library's
// writer, or a binary layout to text with the reader's dump. The direction is
// told by the input's first bytes. OUT is written beside itself under a
// temporary name and renamed into place only when it is whole, so a failed
// conversion leaves an existing OUT as it was.
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <string>

#include "cli_common.h"
#include "commands.h"
#include "output_files.h"
#include "torva/foundation/errors.h"
#include "torva/layout/binary_writer.h"

namespace torva::cli {

namespace {

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
  std::error_code ec;
  refuse_overwrite(a.out, a.force);

  read_options how;
  how.incline_slices = a.incline_slices;
  const auto start = std::chrono::steady_clock::now();

  // Peek at the input's form without reading it twice for a text file.
  bool binary = false;
  {
    FILE* f = std::fopen(a.in.c_str(), "rb");
    if (f != nullptr) {
      char head[12] = {};
      binary = std::fread(head, 1, 12, f) == 12 && std::string(head, 12) == "CAP3D_BINARY";
      std::fclose(f);
    }
  }

  if (binary) {
    // The reader writes the text form while it reads the records: a file that
    // fails half way leaves only the temporary, which goes with `staged`.
    staged_output staged(a.out);
    how.dump_file = staged.temp_path();
    const loaded_layout in = read_layout(a.in, how);
    staged.commit();
    const auto bytes = std::filesystem::file_size(a.out, ec);
    std::printf("wrote %s: text dump of the binary %s (%zu conductors, %zu blocks), %s, in %s\n", a.out.c_str(),
                a.in.c_str(), in.layout->data.wire_nets.size(), in.layout->data.wire_blocks.size(),
                format_bytes(ec ? 0.0 : double(bytes)).c_str(), format_seconds(seconds_since(start)).c_str());
    return exit_ok;
  }

  const loaded_layout in = read_layout(a.in, how);
  binary_write_options options;
  options.swapped = a.swapped;
  options.note = a.note;
  binary_write_summary summary;
  staged_output staged(a.out);
  try {
    summary = write_binary_file(in.layout->data, staged.temp_path(), options);
  } catch (const sea::base_error& e) {
    const std::string lines = take_errors();
    throw input_error(a.out + ": " + (lines.empty() ? std::string(e.what()) : lines));
  }
  staged.commit();
  std::printf("wrote %s: binary form of %s (%zu conductors, %zu blocks), %llu records, %s, in %s\n", a.out.c_str(),
              a.in.c_str(), in.layout->data.wire_nets.size(), in.layout->data.wire_blocks.size(),
              (unsigned long long)summary.records, format_bytes(double(summary.bytes)).c_str(),
              format_seconds(seconds_since(start)).c_str());
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
